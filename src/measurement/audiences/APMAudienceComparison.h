// The comparisons behind audience filters: decimal comparison values, number filters and
// string filters (prefix, suffix, substring, equality, list membership and regular
// expressions).
//
// Comparison values are decimal texts admitted by ^[+-]?(([0-9]+\.?)|([0-9]*\.[0-9]+))$ and
// compared exactly (an integer or a numeric text against them never goes through a double).
// A double value is compared as a double.
//
// Regular expressions are bounded: each match runs with a work limit and a backtracking
// stack limit, so a pattern that backtracks exponentially ends with an error (no result)
// after a few milliseconds instead of stalling the worker queue. Patterns are compiled once
// and kept in a small per-thread cache.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "measurement/proto/APMPB.h"

// An exact decimal number: sign, significant digits and a power of ten.
class APMDecimal {
 public:
  // The number a text stands for, when the text passes the decimal expression; else nothing.
  static std::optional<APMDecimal> parse(std::string_view text);
  static APMDecimal fromInt64(std::int64_t value);

  // -1, 0 or 1.
  int compare(const APMDecimal& other) const;

 private:
  bool negative_ = false;
  std::string digits_;       // no leading or trailing zeros; empty for zero
  std::int64_t exponent_ = 0;  // value = 0.digits_ * 10^exponent_
};

// Whether `text` passes the decimal expression. "1." and ".5" do; "." and "1e5" do not.
bool APMIsDecimalString(std::string_view text);

// The parsed values of a number filter. isValid says whether the values its comparison type
// needs are all present and decimal.
struct APMAudienceComparisonValues {
  std::optional<APMDecimal> comparisonValue;
  std::optional<APMDecimal> minComparisonValue;
  std::optional<APMDecimal> maxComparisonValue;
  bool isValid = false;

  static APMAudienceComparisonValues fromNumberFilter(const APMPBNumberFilter& filter);
};

// Validation of a filter at the time definitions are saved; each logs its reason
// ("Numeric filter does not have a valid comparison value. Filter", "String filter has no
// expression", "Unable to parse regular expression", ...).
bool APMIsValidNumberFilter(const APMPBNumberFilter& filter);
bool APMIsValidStringFilter(const APMPBStringFilter& filter);

// Evaluations: true or false, or nothing when the filter cannot be evaluated (the reason is
// logged). Comparison values are parsed on each call.
std::optional<bool> APMEvaluateNumberFilter(const APMPBNumberFilter& filter, const APMDecimal& value);
std::optional<bool> APMEvaluateNumberFilterWithDouble(const APMPBNumberFilter& filter, double value);
std::optional<bool> APMEvaluateStringFilter(const APMPBStringFilter& filter,
                                            const std::string* subject);

// The work limit of one regular-expression match, in steps of the matcher (each a few
// hundred microseconds at most), and its backtracking stack limit in bytes.
inline constexpr std::int32_t kAPMRegexTimeLimitSteps = 20;
inline constexpr std::int32_t kAPMRegexStackLimitBytes = 256 * 1024;
