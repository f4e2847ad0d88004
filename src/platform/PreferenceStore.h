// The per-application preference store (the standard user defaults): one flat map of keys
// to property-list values. A key never written reads as nothing, and the typed reads turn
// that into the zero value (false, 0, no string). Thread-safe.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "kit/Value.h"

namespace platform {

class PreferenceStore {
 public:
  virtual ~PreferenceStore() = default;

  // The stored value, or null.
  virtual kit::Value objectForKey(const std::string& key) = 0;
  // Stores `value`; a null value removes the key.
  virtual void setObject(kit::Value value, const std::string& key) = 0;

  // Typed reads with the platform's conversions:
  // a number is true when non-zero; a text is true when it starts with Y, y, T, t or a
  // non-zero digit; anything else is false.
  bool boolForKey(const std::string& key);
  // A number, truncated; a text's leading integer; anything else 0.
  std::int64_t integerForKey(const std::string& key);
  double doubleForKey(const std::string& key);
  // A text; a number as decimal text; anything else nothing.
  std::optional<std::string> stringForKey(const std::string& key);
  // An array, or nothing.
  std::optional<kit::Array> arrayForKey(const std::string& key);

  void setBool(bool value, const std::string& key) { setObject(kit::Value(value), key); }
  void setInteger(std::int64_t value, const std::string& key) {
    setObject(kit::Value(static_cast<long long>(value)), key);
  }
  // Key-value coding's setter: the same as setObject.
  void setValue(kit::Value value, const std::string& key) { setObject(std::move(value), key); }
  // Stores a URL as text; no URL removes the key.
  void setURL(std::optional<std::string> url, const std::string& key) {
    setObject(url ? kit::Value(*url) : kit::Value(), key);
  }
  void removeObjectForKey(const std::string& key) { setObject(kit::Value(), key); }
};

}  // namespace platform
