// APMValue: the value of an event parameter or a user property: a double, a 64-bit integer,
// a string, or (for event parameters only) an array whose items are parameter maps.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "kit/Value.h"

class APMValue;
// Parameters of an event or of an array item: internal name to value, in name order.
using APMParameters = std::map<std::string, APMValue>;

enum class APMValueType { kDouble, kInt64, kString, kArray };

class APMValue {
 public:
  static APMValue fromDouble(double value) { return APMValue(value); }
  static APMValue fromInt64(std::int64_t value) { return APMValue(value); }
  static APMValue fromString(std::string value) { return APMValue(std::move(value)); }
  static APMValue fromArray(std::vector<APMParameters> items) { return APMValue(std::move(items)); }

  // Converts a property-list value: an integer or a truth value becomes an integer, a real a
  // double, a text a string. With `allowArray`, an array of dictionaries becomes an array
  // whose items hold the members that convert (nested arrays never do); an array with an
  // item that is no dictionary does not convert. Anything else gives nothing.
  static std::optional<APMValue> valueFromObject(const kit::Value& object, bool allowArray);

  APMValueType valueType() const { return static_cast<APMValueType>(value_.index()); }
  bool isDouble() const { return valueType() == APMValueType::kDouble; }
  bool isInt64() const { return valueType() == APMValueType::kInt64; }
  bool isString() const { return valueType() == APMValueType::kString; }
  bool isArray() const { return valueType() == APMValueType::kArray; }

  // Typed reads; each is valid only for its own kind.
  double doubleValue() const { return std::get<double>(value_); }
  std::int64_t int64Value() const { return std::get<std::int64_t>(value_); }
  const std::string& stringValue() const { return std::get<std::string>(value_); }
  const std::vector<APMParameters>& arrayValue() const {
    return std::get<std::vector<APMParameters>>(value_);
  }

  // The property-list form: integer, real, text, or an array of dictionaries.
  kit::Value objectValue() const;

  bool operator==(const APMValue& other) const = default;

 private:
  explicit APMValue(double v) : value_(v) {}
  explicit APMValue(std::int64_t v) : value_(v) {}
  explicit APMValue(std::string v) : value_(std::move(v)) {}
  explicit APMValue(std::vector<APMParameters> v) : value_(std::move(v)) {}

  std::variant<double, std::int64_t, std::string, std::vector<APMParameters>> value_;
};
