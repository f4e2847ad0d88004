// Reading one vCard (versions 2.1, 3.0 and 4.0: folded lines, escapes, quoted-printable,
// charsets) into the platform's contact, through Evolution's EVCard parser. Pure; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/ContactStore.h"

namespace desktop {

// The largest card read; bigger files are refused unread (a contact is a few kilobytes, a
// picture a few hundred).
inline constexpr std::size_t kMaxVCardBytes = 4 * 1024 * 1024;

// The contact of `text`: its UID as `identifier` (empty when the card has none), its
// structured name (N), or the formatted name (FN) as the given name when N is missing or
// empty, its organisation (ORG, the first unit), its numbers (TEL, in order, labelled by
// TYPE: "mobile", "home", "work", else "other"), and its picture (PHOTO, inline data only).
// Text that is not valid UTF-8 is repaired (bad bytes become U+FFFD). Nothing, with a reason
// in `why`, for text that is not one vCard: empty, binary, too large, or without
// BEGIN:VCARD ... END:VCARD.
std::optional<platform::Contact> readVCard(std::string_view text, std::string* why);

}  // namespace desktop
