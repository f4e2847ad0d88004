#include "desktop/contacts/VCardReader.h"

#include <libebook-contacts/libebook-contacts.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <mutex>

namespace desktop {

namespace {

std::string lowered(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

// `s` as valid UTF-8 (invalid bytes replaced).
std::string validUtf8(const char* s) {
  if (!s) return {};
  if (g_utf8_validate(s, -1, nullptr)) return s;
  gchar* fixed = g_utf8_make_valid(s, -1);
  std::string out = fixed;
  g_free(fixed);
  return out;
}

// The n-th value of a structured attribute ("" when missing).
std::string valueAt(EVCardAttribute* attr, std::size_t n) {
  GList* values = e_vcard_attribute_get_values(attr);
  auto* item = g_list_nth(values, static_cast<guint>(n));
  return item ? validUtf8(static_cast<const char*>(item->data)) : std::string();
}

std::string phoneLabel(EVCardAttribute* attr) {
  std::string label = "other";
  for (GList* p = e_vcard_attribute_get_param(attr, "TYPE"); p; p = p->next) {
    std::string type = lowered(static_cast<const char*>(p->data));
    if (type == "cell" || type == "mobile") return "mobile";
    if (type == "home" || type == "work") label = type;
  }
  // vCard 2.1 writes bare types as parameters without a name.
  for (GList* a = e_vcard_attribute_get_params(attr); a; a = a->next) {
    auto* param = static_cast<EVCardAttributeParam*>(a->data);
    const char* name = e_vcard_attribute_param_get_name(param);
    if (name && lowered(name) == "cell") return "mobile";
  }
  return label;
}

// The parser warns on standard error about each odd line it meets; a card it cannot use is
// reported by the caller, once, so its own warnings are dropped.
void quietParser() {
  static std::once_flag once;
  std::call_once(once, [] {
    g_log_set_handler("libebook-contacts", static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_MESSAGE),
                      [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
  });
}

bool startsWithBegin(std::string_view text) {
  std::size_t at = 0;
  // A byte-order mark and blank lines may come first.
  if (text.substr(0, 3) == "\xEF\xBB\xBF") at = 3;
  while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at]))) ++at;
  return lowered(text.substr(at, 11)) == "begin:vcard";
}

}  // namespace

std::optional<platform::Contact> readVCard(std::string_view text, std::string* why) {
  auto refuse = [why](const char* reason) -> std::optional<platform::Contact> {
    if (why) *why = reason;
    return std::nullopt;
  };
  if (text.empty()) return refuse("the file is empty");
  if (text.size() > kMaxVCardBytes) return refuse("the file is larger than a contact card can be");
  if (text.find('\0') != std::string_view::npos) return refuse("the file holds binary data, not a vCard");
  if (!startsWithBegin(text)) return refuse("the file does not begin with BEGIN:VCARD");
  if (lowered(text).find("end:vcard") == std::string::npos) return refuse("the card has no END:VCARD (truncated?)");

  quietParser();
  std::string copy(text);
  std::unique_ptr<EVCard, decltype(&g_object_unref)> card(e_vcard_new_from_string(copy.c_str()), &g_object_unref);
  if (!card) return refuse("the card could not be read");

  platform::Contact contact;
  std::string formatted;
  bool hasN = false;
  for (GList* a = e_vcard_get_attributes(card.get()); a; a = a->next) {
    auto* attr = static_cast<EVCardAttribute*>(a->data);
    const char* rawName = e_vcard_attribute_get_name(attr);
    if (!rawName) continue;
    std::string name = lowered(rawName);
    if (name == "uid") {
      if (contact.identifier.empty()) contact.identifier = valueAt(attr, 0);
    } else if (name == "n" && !hasN) {
      hasN = true;
      contact.familyName = valueAt(attr, 0);
      contact.givenName = valueAt(attr, 1);
      contact.middleName = valueAt(attr, 2);
      contact.namePrefix = valueAt(attr, 3);
      contact.nameSuffix = valueAt(attr, 4);
    } else if (name == "fn" && formatted.empty()) {
      formatted = valueAt(attr, 0);
    } else if (name == "org" && contact.organizationName.empty()) {
      contact.organizationName = valueAt(attr, 0);
    } else if (name == "tel") {
      std::string number = valueAt(attr, 0);
      if (number.rfind("tel:", 0) == 0) number = number.substr(4);
      if (!number.empty()) contact.phoneNumbers.push_back({phoneLabel(attr), number});
    } else if (name == "photo" && contact.imageData.empty()) {
      GList* decoded = e_vcard_attribute_get_values_decoded(attr);
      if (decoded && decoded->data) {
        auto* bytes = static_cast<GString*>(decoded->data);
        // Inline data only: a URI is text, not a picture.
        std::string_view data(bytes->str, bytes->len);
        if (data.rfind("http", 0) != 0 && data.rfind("data:", 0) != 0 && data.rfind("file:", 0) != 0) {
          contact.imageData.assign(data.begin(), data.end());
        }
      }
    }
  }
  bool named = !contact.givenName.empty() || !contact.familyName.empty() || !contact.middleName.empty() ||
               !contact.namePrefix.empty() || !contact.nameSuffix.empty();
  // A card with no structured name but a formatted one that is not just the organisation.
  if (!named && !formatted.empty() && formatted != contact.organizationName) contact.givenName = formatted;
  contact.thumbnailImageData = contact.imageData;
  return contact;
}

}  // namespace desktop
