// Short helpers that build program trees in C++: for tests, benchmarks and the fuzz seed
// writer. P::call("0", {P::num(1), P::num(2)}) is the statement "add 1 and 2".
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "measurement/runtime/APMPRuntimeValue.h"

namespace P {

inline APMPRuntimeValue num(double d) { return APMPRuntimeValue::number(d); }
inline APMPRuntimeValue str(std::string s) { return APMPRuntimeValue::string(std::move(s)); }
inline APMPRuntimeValue boolean(bool b) { return APMPRuntimeValue::boolean(b); }
inline APMPRuntimeValue list(std::vector<APMPRuntimeValue> elements) {
  return APMPMake<APMPArrayValue>(std::move(elements));
}
inline APMPRuntimeValue call(std::string command, std::vector<APMPRuntimeValue> arguments = {}) {
  return APMPMake<APMPStatementValue>(std::move(command), std::move(arguments));
}
// Common statements.
inline APMPRuntimeValue var(std::string name) { return call("15", {str(std::move(name))}); }
inline APMPRuntimeValue let(std::string name, APMPRuntimeValue value) {
  return call("41", {str(std::move(name)), std::move(value)});
}
inline APMPRuntimeValue assign(std::string name, APMPRuntimeValue value) {
  return call("3", {str(std::move(name)), std::move(value)});
}
inline APMPRuntimeValue ret(APMPRuntimeValue value) { return call("36", {std::move(value)}); }
inline APMPRuntimeValue method(APMPRuntimeValue target, std::string name,
                               std::vector<APMPRuntimeValue> arguments) {
  return call("2", {std::move(target), str(std::move(name)), call("7", std::move(arguments))});
}
inline APMPRuntimeValue function(std::string name, std::vector<std::string> parameters,
                                 std::vector<APMPRuntimeValue> body) {
  std::vector<APMPRuntimeValue> names;
  for (auto& p : parameters) names.push_back(str(std::move(p)));
  return call("51", {str(std::move(name)), list(std::move(names)), list(std::move(body))});
}

}  // namespace P
