#include "platform/PreferenceStore.h"

#include <cstdlib>

#include "kit/Console.h"

namespace platform {

bool PreferenceStore::boolForKey(const std::string& key) {
  kit::Value v = objectForKey(key);
  if (auto n = v.numberAsReal()) return *n != 0;
  if (const std::string* s = v.asString()) {
    std::size_t i = s->find_first_not_of(" \t\n");
    if (i == std::string::npos) return false;
    char c = (*s)[i];
    if (c == 'Y' || c == 'y' || c == 'T' || c == 't') return true;
    if (c == '+' || c == '-') ++i;
    while (i < s->size() && (*s)[i] == '0') ++i;
    return i < s->size() && (*s)[i] >= '1' && (*s)[i] <= '9';
  }
  return false;
}

std::int64_t PreferenceStore::integerForKey(const std::string& key) {
  kit::Value v = objectForKey(key);
  if (auto n = v.numberAsInteger()) return *n;
  if (const std::string* s = v.asString()) return std::strtoll(s->c_str(), nullptr, 10);
  return 0;
}

double PreferenceStore::doubleForKey(const std::string& key) {
  kit::Value v = objectForKey(key);
  if (auto n = v.numberAsReal()) return *n;
  if (const std::string* s = v.asString()) return std::strtod(s->c_str(), nullptr);
  return 0;
}

std::optional<std::string> PreferenceStore::stringForKey(const std::string& key) {
  kit::Value v = objectForKey(key);
  if (const std::string* s = v.asString()) return *s;
  if (auto i = v.asInteger()) return std::to_string(*i);
  if (auto b = v.asBool()) return std::string(*b ? "1" : "0");
  if (auto d = v.asReal()) return kit::describe(*d);
  return std::nullopt;
}

std::optional<kit::Array> PreferenceStore::arrayForKey(const std::string& key) {
  kit::Value v = objectForKey(key);
  if (const kit::Array* a = v.asArray()) return *a;
  return std::nullopt;
}

}  // namespace platform
