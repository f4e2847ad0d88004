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

// The parser's way through a text, which the functions below follow step by step: where it
// starts each attribute, where it gives up on one, and where a value ends. `text` is valid
// UTF-8; positions past its end read as the terminating NUL.

char charAt(std::string_view text, std::size_t at) { return at < text.size() ? text[at] : '\0'; }

std::size_t nextChar(std::string_view text, std::size_t at) {
  if (at >= text.size()) return at + 1;
  return static_cast<std::size_t>(g_utf8_next_char(text.data() + at) - text.data());
}

bool isLineBreak(char c) { return c == '\r' || c == '\n'; }

// Past a folded line break at `at` (a break, at most one other break character, then a space
// or tab), or in a quoted-printable text past a soft break ('=', a break, at most one other
// break character and then one space or tab); else `at` itself.
std::size_t skipNewline(std::string_view text, std::size_t at, bool quotedPrintable) {
  char c = charAt(text, at), next = charAt(text, at + 1);
  if (quotedPrintable && c == '=') {
    if (!isLineBreak(next)) return at;
    at += 2;
    if (isLineBreak(charAt(text, at)) && charAt(text, at) != next) {
      ++at;
      if (charAt(text, at) == ' ' || charAt(text, at) == '\t') ++at;
    }
    return at;
  }
  if (!isLineBreak(c)) return at;
  if (isLineBreak(next) && next != c) {
    char after = charAt(text, at + 2);
    return after == ' ' || after == '\t' ? at + 3 : at;
  }
  return next == ' ' || next == '\t' ? at + 2 : at;
}

// Past the end of the line at `at` and the line breaks after it.
std::size_t pastLine(std::string_view text, std::size_t at) {
  while (at < text.size() && !isLineBreak(text[at])) at = nextChar(text, at);
  while (at < text.size() && isLineBreak(text[at])) ++at;
  return at;
}

bool isNameChar(std::string_view text, std::size_t at) {
  char c = text[at];
  return c == '-' || c == '_' || g_unichar_isalnum(g_utf8_get_char(text.data() + at));
}

// The head of one attribute (its group, name and parameters, up to the ':' of its value).
struct AttributeHead {
  bool wellFormed = false;       // the parser reads it to its ':' without giving up
  bool quotedPrintable = false;  // its value is quoted-printable
  std::size_t valueStart = 0;    // just past the ':'
};

// Reads the head of the attribute at `at` as strictly as the parser must be fed: the parser
// keeps what it has built so far, and never frees it, when it gives up on a line half way (a
// name or a parameter the line ends in, a '=' inside a parameter's value). A head this refuses
// is one the parser drops or garbles.
AttributeHead readHead(std::string_view text, std::size_t at) {
  AttributeHead head;
  std::size_t nameLength = 0;
  bool inParameters = false, inValue = false, inQuote = false, pastFirstValue = false;
  std::string parameter, value;  // the parameter being read, and its first value, lowered
  auto append = [&](std::size_t from, std::size_t to) {
    if (inValue && pastFirstValue) return;
    std::string& into = inValue ? value : parameter;
    for (std::size_t i = from; i < to; ++i) into += static_cast<char>(std::tolower(static_cast<unsigned char>(text[i])));
  };
  auto endParameter = [&] {
    if (inValue ? parameter == "encoding" && value == "quoted-printable" : parameter == "quoted-printable") {
      head.quotedPrintable = true;
    }
    parameter.clear();
    value.clear();
    inValue = pastFirstValue = false;
  };
  auto colonAt = [&](std::size_t colon) {
    head.wellFormed = true;
    head.valueStart = colon + 1;
    return head;
  };
  for (at = skipNewline(text, at, false); at < text.size(); at = skipNewline(text, at, false)) {
    char c = text[at];
    if (isLineBreak(c)) return head;
    std::size_t next = nextChar(text, at);
    if (!inParameters) {
      if (c == ':' || c == ';') {
        if (nameLength == 0) return head;
        if (c == ':') return colonAt(at);
        inParameters = true;
      } else if (c == '.') {
        nameLength = 0;
      } else if (isNameChar(text, at)) {
        ++nameLength;
      } else {
        return head;
      }
    } else if (c == '"') {
      inQuote = !inQuote;
    } else if (inQuote) {
      append(at, next);
    } else if (c == ':' || c == ';') {
      endParameter();
      if (c == ':') return colonAt(at);
    } else if (c == '=') {
      if (inValue || parameter.empty()) return head;
      inValue = true;
    } else if (c == ',') {
      // After a bare value, a comma starts more values of the same (TYPE) parameter.
      if (!inValue && !parameter.empty()) {
        endParameter();
        parameter = "type";
        inValue = true;
      }
      pastFirstValue = inValue;
    } else if (inValue || isNameChar(text, at)) {
      append(at, next);
    } else {
      return head;
    }
    at = next;
  }
  return head;
}

// Where the parser starts the next attribute after a value that starts at `at`: a value ends
// at a line break that is not folded, a quoted-printable one not at a soft break either, and
// an escape ("=XX", "\x") may run over one.
std::size_t pastValue(std::string_view text, std::size_t at, bool quotedPrintable) {
  for (at = skipNewline(text, at, quotedPrintable); at < text.size() && !isLineBreak(text[at]);
       at = skipNewline(text, at, quotedPrintable)) {
    if (text[at] == '=' && quotedPrintable) {
      at = skipNewline(text, at + 1, true);
      char a = charAt(text, at);
      at = nextChar(text, at);
      if (a == '\0') break;
      at = skipNewline(text, at, true);
      if (charAt(text, at) == '\0') break;
      at = nextChar(text, at);
    } else if (text[at] == '\\') {
      at = nextChar(text, at);
      if (charAt(text, at) == '\0') break;
      at = nextChar(text, skipNewline(text, at, quotedPrintable));
    } else {
      at = nextChar(text, at);
    }
  }
  return pastLine(text, at);
}

// The parser never frees what it built for an attribute it gives up on half way: a few bytes
// a line, never returned, which a long-running reader must not pay. Such a line is dropped
// either way, so its first character is made one the parser refuses at once.
void disarmMalformedLines(std::string& text) {
  std::size_t at = 0;
  while (at < text.size()) {
    AttributeHead head = readHead(text, at);
    if (head.wellFormed) {
      at = pastValue(text, head.valueStart, head.quotedPrintable);
      continue;
    }
    // All bytes of the first character, so the text stays valid UTF-8.
    std::size_t width = nextChar(text, at) - at;
    text.replace(at, width, width, '!');
    at = pastLine(text, at);
  }
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
  copy = validUtf8(copy.c_str());
  copy.erase(0, copy.find_first_not_of("\r\n"));  // the parser would start on a line break
  // The parser's quoted-printable decoding can step past the end of a text that stops within
  // an escape ("=", or "=" and a soft break); two more line breaks give it room to stop.
  copy += "\r\n\r\n";
  disarmMalformedLines(copy);
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
