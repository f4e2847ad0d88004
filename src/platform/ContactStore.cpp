#include "platform/ContactStore.h"

#include <cctype>

namespace platform {

namespace {

// Lower-cases ASCII letters; other bytes (UTF-8 included) are compared as they stand.
std::string folded(const std::string& s) {
  std::string out = s;
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::vector<std::string> words(const std::string& s) {
  std::vector<std::string> out;
  std::string word;
  for (char c : s) {
    if (isBlank(c) || c == ',' || c == '-') {
      if (!word.empty()) out.push_back(folded(word));
      word.clear();
    } else {
      word += c;
    }
  }
  if (!word.empty()) out.push_back(folded(word));
  return out;
}

}  // namespace

bool isEqualContact(const ContactPtr& a, const ContactPtr& b) {
  if (a == b) return true;
  return a && b && a->identifier == b->identifier;
}

std::optional<std::string> stringFromContact(const Contact& c) {
  std::string name;
  for (const std::string* part : {&c.namePrefix, &c.givenName, &c.middleName, &c.familyName, &c.nameSuffix}) {
    if (part->empty()) continue;
    if (!name.empty()) name += ' ';
    name += *part;
  }
  if (!name.empty()) return name;
  if (!c.organizationName.empty()) return c.organizationName;
  return std::nullopt;
}

bool contactMatchesName(const Contact& contact, const std::string& name) {
  std::vector<std::string> wanted = words(name);
  if (wanted.empty()) return false;
  std::vector<std::string> have;
  for (const std::string* part : {&contact.namePrefix, &contact.givenName, &contact.middleName, &contact.familyName,
                                  &contact.nameSuffix, &contact.organizationName}) {
    for (auto& w : words(*part)) have.push_back(std::move(w));
  }
  for (const auto& w : wanted) {
    bool found = false;
    for (const auto& h : have) {
      if (h.compare(0, w.size(), w) == 0) {
        found = true;
        break;
      }
    }
    if (!found) return false;
  }
  return true;
}

}  // namespace platform
