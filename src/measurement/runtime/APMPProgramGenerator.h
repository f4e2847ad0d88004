// Random programs, each written twice: as a command tree for APMPRuntime and as ECMAScript
// source for a reference engine. Both forms mean the same thing as long as the program stays
// inside the shared subset: unique names (no shadowing), no holes in arrays, no closures made
// inside loops, side-effect-free branches of conditional expressions, strings of printable
// ASCII, objects with non-numeric keys, and values that grow at most linearly.
//
// The JavaScript form of a program is the body of a function whose result is the program's
// final value; APMPDescribeResult and the reference printer write results the same way.
#pragma once

#include <cstdint>
#include <random>
#include <string>

#include "measurement/runtime/APMPRuntimeValue.h"

struct APMPGeneratedProgram {
  APMPRuntimeValue statements;  // an array of statements ending with a return
  std::string javaScript;       // a function body
};

class APMPProgramGenerator {
 public:
  explicit APMPProgramGenerator(std::uint64_t seed) : random_(seed) {}
  APMPGeneratedProgram next();

  // The reference printer in ECMAScript: `function describe(value)`.
  static const char* javaScriptDescriber();

 private:
  friend struct APMPGeneratorState;
  std::mt19937_64 random_;
};

// A value as the reference printer writes it: numbers as text, strings quoted, arrays in
// brackets, objects in braces with quoted keys, functions as "function", depth limited to 6.
std::string APMPDescribeResult(const APMPRuntimeValue& value);
