#include "kit/Value.h"

#include <cmath>

namespace kit {

std::optional<bool> Value::asBool() const {
  if (auto* b = std::get_if<bool>(&v_)) return *b;
  return std::nullopt;
}

std::optional<std::int64_t> Value::asInteger() const {
  if (auto* i = std::get_if<std::int64_t>(&v_)) return *i;
  return std::nullopt;
}

std::optional<double> Value::asReal() const {
  if (auto* d = std::get_if<double>(&v_)) return *d;
  return std::nullopt;
}

std::optional<std::int64_t> Value::numberAsInteger() const {
  if (auto* b = std::get_if<bool>(&v_)) return *b ? 1 : 0;
  if (auto* i = std::get_if<std::int64_t>(&v_)) return *i;
  if (auto* d = std::get_if<double>(&v_)) {
    if (!std::isfinite(*d) || *d >= 9.2233720368547758e18 || *d < -9.2233720368547758e18) {
      return std::nullopt;
    }
    return static_cast<std::int64_t>(*d);
  }
  return std::nullopt;
}

std::optional<double> Value::numberAsReal() const {
  if (auto* b = std::get_if<bool>(&v_)) return *b ? 1.0 : 0.0;
  if (auto* i = std::get_if<std::int64_t>(&v_)) return static_cast<double>(*i);
  if (auto* d = std::get_if<double>(&v_)) return *d;
  return std::nullopt;
}

}  // namespace kit
