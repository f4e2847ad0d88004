// Typed reads of single YAML values for the flow files and their worlds: each gives nothing
// when the node is absent, not a scalar, or not of the type.
#pragma once

#include <yaml-cpp/yaml.h>

#include <cmath>
#include <optional>
#include <string>

namespace flow {

inline bool isScalar(const YAML::Node& n) { return n.IsDefined() && n.IsScalar(); }

// A finite number.
inline std::optional<double> number(const YAML::Node& n) {
  if (!isScalar(n)) return std::nullopt;
  try {
    double v = n.as<double>();
    if (!std::isfinite(v)) return std::nullopt;
    return v;
  } catch (const YAML::Exception&) {
    return std::nullopt;
  }
}

inline std::optional<long long> integer(const YAML::Node& n) {
  if (!isScalar(n)) return std::nullopt;
  try {
    return n.as<long long>();
  } catch (const YAML::Exception&) {
    return std::nullopt;
  }
}

// Exactly "true" or "false".
inline std::optional<bool> boolean(const YAML::Node& n) {
  if (!isScalar(n)) return std::nullopt;
  const std::string& s = n.Scalar();
  if (s == "true") return true;
  if (s == "false") return false;
  return std::nullopt;
}

}  // namespace flow
