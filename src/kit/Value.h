// Value: a property-list value (nothing, truth value, integer, real, text, bytes, array,
// dictionary). Preferences, notification payloads and key-value reads carry these.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kit {

class Value;
using Array = std::vector<Value>;
using Dictionary = std::map<std::string, Value>;
using Data = std::vector<std::uint8_t>;

class Value {
 public:
  using Storage =
      std::variant<std::monostate, bool, std::int64_t, double, std::string, Data, Array, Dictionary>;

  Value() = default;
  Value(bool b) : v_(b) {}
  Value(int i) : v_(std::int64_t{i}) {}
  Value(long i) : v_(std::int64_t{i}) {}
  Value(long long i) : v_(std::int64_t{i}) {}
  Value(double d) : v_(d) {}
  Value(const char* s) : v_(std::string(s)) {}
  Value(std::string s) : v_(std::move(s)) {}
  Value(Data d) : v_(std::move(d)) {}
  Value(Array a) : v_(std::move(a)) {}
  Value(Dictionary d) : v_(std::move(d)) {}

  bool isNull() const { return std::holds_alternative<std::monostate>(v_); }
  bool isBool() const { return std::holds_alternative<bool>(v_); }
  bool isInteger() const { return std::holds_alternative<std::int64_t>(v_); }
  bool isReal() const { return std::holds_alternative<double>(v_); }
  // A truth value, an integer or a real.
  bool isNumber() const { return isBool() || isInteger() || isReal(); }
  bool isString() const { return std::holds_alternative<std::string>(v_); }
  bool isData() const { return std::holds_alternative<Data>(v_); }
  bool isArray() const { return std::holds_alternative<Array>(v_); }
  bool isDictionary() const { return std::holds_alternative<Dictionary>(v_); }

  // Exact-type accessors: nothing when the value holds another type.
  std::optional<bool> asBool() const;
  std::optional<std::int64_t> asInteger() const;
  std::optional<double> asReal() const;
  const std::string* asString() const { return std::get_if<std::string>(&v_); }
  const Data* asData() const { return std::get_if<Data>(&v_); }
  const Array* asArray() const { return std::get_if<Array>(&v_); }
  const Dictionary* asDictionary() const { return std::get_if<Dictionary>(&v_); }

  // Numeric conversions of a number (truth values count as 0 and 1); nothing otherwise.
  std::optional<std::int64_t> numberAsInteger() const;
  std::optional<double> numberAsReal() const;

  const Storage& storage() const { return v_; }
  bool operator==(const Value& other) const = default;

 private:
  Storage v_;
};

}  // namespace kit
