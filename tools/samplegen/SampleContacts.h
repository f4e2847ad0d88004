// The sample address book: a vdir of .vcf files with a contact of each shape the app meets
// (same-name pairs, no name, no number, a vCard 2.1 card in quoted-printable, a non-ASCII
// name, an organisation, a nested address book) and one broken file that readers skip.
#pragma once

#include <string>

namespace samplegen {

// Writes the sample address book into `dir` (made when missing). False with a reason on
// failure.
bool writeSampleAddressBook(const std::string& dir, std::string* error);
// How many readable contacts it holds.
inline constexpr int kSampleContactCount = 10;

}  // namespace samplegen
