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
#include <vector>

#include "measurement/proto/APMPB.h"

// An exact decimal number: sign, significant digits and a power of ten.
class APMDecimal {
 public:
  // The number a text stands for, when the text passes the decimal expression; else nothing.
  static std::optional<APMDecimal> parse(std::string_view text);
  static APMDecimal fromInt64(std::int64_t value);

  // The value as a 64-bit integer when it is a whole number in range; else nothing.
  std::optional<std::int64_t> asInt64() const;

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

// A number filter made ready for many evaluations: its comparison values parsed once, as
// decimals, as doubles and, where whole, as 64-bit integers. Each evaluation gives what APMEvaluateNumberFilter(WithDouble)
// gives for the same filter, messages included.
class APMPreparedNumberFilter {
 public:
  explicit APMPreparedNumberFilter(const APMPBNumberFilter& filter);

  // True or false, or nothing when the filter's values are not valid for its type.
  std::optional<bool> evaluate(const APMDecimal& value) const;
  // The same for an integer, which is a decimal with no fraction.
  std::optional<bool> evaluateInteger(std::int64_t value) const;
  // The same for a double, compared as a double; nothing (logged) also when the value or a
  // comparison value is out of the double range.
  std::optional<bool> evaluateWithDouble(double value) const;

 private:
  std::uint32_t type_;
  APMAudienceComparisonValues values_;
  // The comparison values that are whole numbers within 64 bits, for comparing integers
  // without decimals; nothing for the others.
  std::optional<std::int64_t> integerValue_;
  std::optional<std::int64_t> integerMin_;
  std::optional<std::int64_t> integerMax_;
  // The comparison values read as doubles; nothing when absent or not finite.
  std::optional<double> doubleValue_;
  std::optional<double> doubleMin_;
  std::optional<double> doubleMax_;
};

// A string filter made ready for many evaluations: validated once, and its expressions put
// in one case once when it is not case-sensitive. Each evaluation gives what
// APMEvaluateStringFilter gives for the same filter, messages included.
class APMPreparedStringFilter {
 public:
  explicit APMPreparedStringFilter(const APMPBStringFilter& filter);

  std::optional<bool> evaluate(const std::string* subject) const;

 private:
  // Why the filter is invalid, logged again at every evaluation as validation logs it.
  struct Problem {
    int code;
    std::string message;
    std::optional<std::string> detail;  // the context, already described
    void log() const;
  };
  std::optional<Problem> problem_;
  std::uint32_t type_;
  bool caseSensitive_;
  std::string expression_;  // the regular expression as given; other expressions in one case
  std::vector<std::string> list_;  // in one case

  friend bool APMIsValidStringFilter(const APMPBStringFilter& filter);
  static std::optional<Problem> problemOf(const APMPBStringFilter& filter);
};

// Evaluations: true or false, or nothing when the filter cannot be evaluated (the reason is
// logged). Comparison values are parsed on each call; the prepared filters above parse once.
std::optional<bool> APMEvaluateNumberFilter(const APMPBNumberFilter& filter, const APMDecimal& value);
std::optional<bool> APMEvaluateNumberFilterWithDouble(const APMPBNumberFilter& filter, double value);
std::optional<bool> APMEvaluateStringFilter(const APMPBStringFilter& filter,
                                            const std::string* subject);

// The work limit of one regular-expression match, in steps of the matcher (each a few
// hundred microseconds at most), and its backtracking stack limit in bytes.
inline constexpr std::int32_t kAPMRegexTimeLimitSteps = 20;
inline constexpr std::int32_t kAPMRegexStackLimitBytes = 256 * 1024;
