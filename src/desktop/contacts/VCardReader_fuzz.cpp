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
