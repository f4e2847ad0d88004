// Short helpers that build program trees in C++: for tests, benchmarks and the fuzz seed
// writer. P::call("0", {P::num(1), P::num(2)}) is the statement "add 1 and 2".
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>
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

// The wire form of program trees (APMPBProgram), written by hand: for tests, the collector's
// configuration and the fuzz seeds.
namespace P {

inline void putVarint(std::string& out, std::uint64_t v) {
  while (v >= 0x80) {
    out += static_cast<char>((v & 0x7f) | 0x80);
    v >>= 7;
  }
  out += static_cast<char>(v);
}

inline void putBytes(std::string& out, int field, const std::string& bytes) {
  putVarint(out, static_cast<std::uint64_t>(field) << 3 | 2);
  putVarint(out, bytes.size());
  out += bytes;
}

// One value as an encoded RuntimeEntity.
inline std::string entity(const APMPRuntimeValue& v) {
  std::string out;
  auto kind = [&](int k) {
    out += '\x08';
    putVarint(out, static_cast<std::uint64_t>(k));
  };
  switch (v.kind()) {
    case APMPValueKind::kStatement:
      kind(1);
      for (const auto& a : v.asStatement()->arguments()) putBytes(out, 2, entity(a));
      putBytes(out, 3, v.asStatement()->functionName());
      break;
    case APMPValueKind::kArray:
      kind(2);
      for (const auto& a : v.asArray()->elements()) putBytes(out, 2, entity(a));
      break;
    case APMPValueKind::kString:
      kind(3);
      putBytes(out, 3, v.stringPayload());
      break;
    case APMPValueKind::kNumber: {
      kind(4);
      out += '\x31';
      double d = v.numberPayload();
      std::uint64_t bits;
      std::memcpy(&bits, &d, 8);
      for (int i = 0; i < 8; ++i) out += static_cast<char>(bits >> (8 * i));
      break;
    }
    case APMPValueKind::kBoolean:
      kind(4);
      out += '\x28';
      out += v.booleanPayload() ? '\x01' : '\x00';
      break;
    case APMPValueKind::kNull:
      kind(4);
      putBytes(out, 4, "null");
      break;
    default: kind(4); break;
  }
  return out;
}

// A Program: `statements` (an array) as tag 1, and activities (name, rules) as tag 2.
inline std::string program(const APMPRuntimeValue& statements,
                           const std::vector<std::pair<std::string, std::vector<APMPRuntimeValue>>>&
                               activities = {}) {
  std::string out;
  for (const auto& s : statements.asArray()->elements()) putBytes(out, 1, entity(s));
  if (!activities.empty()) {
    std::string list;
    for (const auto& [name, rules] : activities) {
      std::string activity;
      putBytes(activity, 1, name);
      for (const auto& r : rules) putBytes(activity, 2, entity(r));
      putBytes(list, 1, activity);
    }
    putBytes(out, 2, list);
  }
  return out;
}

}  // namespace P

// The same program in protobuf text format, as the collector's configuration file holds it
// ("dynamic_event_editing { ... }").
namespace P {

inline std::string textQuote(const std::string& s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

inline std::string entityText(const APMPRuntimeValue& v) {
  switch (v.kind()) {
    case APMPValueKind::kStatement: {
      std::string out = "kind: 1 string_value: " + textQuote(v.asStatement()->functionName());
      for (const auto& a : v.asStatement()->arguments()) out += " children { " + entityText(a) + " }";
      return out;
    }
    case APMPValueKind::kArray: {
      std::string out = "kind: 2";
      for (const auto& a : v.asArray()->elements()) out += " children { " + entityText(a) + " }";
      return out;
    }
    case APMPValueKind::kString: return "kind: 3 string_value: " + textQuote(v.stringPayload());
    case APMPValueKind::kNumber: return "kind: 4 number_value: " + APMPNumberToString(v.numberPayload());
    case APMPValueKind::kBoolean: return std::string("kind: 4 bool_value: ") + (v.booleanPayload() ? "true" : "false");
    case APMPValueKind::kNull: return "kind: 4 extra_string_value: \"null\"";
    default: return "kind: 4";
  }
}

inline std::string programText(const APMPRuntimeValue& statements,
                               const std::vector<std::pair<std::string, std::vector<APMPRuntimeValue>>>&
                                   activities = {}) {
  std::string out = "dynamic_event_editing {\n";
  for (const auto& s : statements.asArray()->elements()) out += "  instructions { " + entityText(s) + " }\n";
  if (!activities.empty()) {
    out += "  ogt_activities {\n";
    for (const auto& [name, rules] : activities) {
      out += "    activities { name: " + textQuote(name);
      for (const auto& r : rules) out += " arguments { " + entityText(r) + " }";
      out += " }\n";
    }
    out += "  }\n";
  }
  return out + "}\n";
}

}  // namespace P
