#include "measurement/audiences/APMAudienceComparison.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <cmath>
#include <cstdlib>
#include <iterator>
#include <list>
#include <memory>
#include <unordered_map>

#include "measurement/APMMonitor.h"

namespace {

enum : int {
  kCodeInvalidComparisonValue = 21101,
  kCodeNoComparisonType = 21102,
  kCodeUnknownComparisonType = 21103,
  kCodeRealUnknownComparisonType = 21104,
  kCodeNoExpression = 21105,
  kCodeBadRegex = 21106,
  kCodeNoExpressionList = 21107,
  kCodeNoMatchType = 21108,
  kCodeUnknownMatchType = 21109,
  kCodeNotDoubleRange = 21110,
  kCodeNilSubject = 21111,
  kCodeInvalidStringFilter = 21112,
  kCodeRegexNil = 21113,
  kCodeRegexBounded = 21114,
  kCodeValidatedUnknownType = 21115,
};

std::string describeNumberFilter(const APMPBNumberFilter& f) {
  return "type " + std::to_string(f.comparison_type) + " value '" +
         std::string(APMPBString(f.comparison_value)) + "' min '" +
         std::string(APMPBString(f.min_comparison_value)) + "' max '" +
         std::string(APMPBString(f.max_comparison_value)) + "'";
}

// A compiled pattern, keyed by its text and case option. The cache keeps the most recently
// used patterns of this thread (the worker queue's thread, in the client).
class RegexCache {
 public:
  // The compiled pattern, or null when it does not compile.
  const icu::RegexPattern* pattern(const std::string& expression, bool caseSensitive) {
    std::string key = (caseSensitive ? "1" : "0") + expression;
    auto found = index_.find(key);
    if (found != index_.end()) {
      order_.splice(order_.begin(), order_, found->second);
      return found->second->pattern.get();
    }
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError;
    std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(
        icu::UnicodeString::fromUTF8(expression), caseSensitive ? 0 : UREGEX_CASE_INSENSITIVE,
        parseError, status));
    if (U_FAILURE(status)) compiled.reset();
    order_.push_front({key, std::move(compiled)});
    index_[key] = order_.begin();
    if (order_.size() > kCapacity) {
      index_.erase(order_.back().key);
      order_.pop_back();
    }
    return order_.front().pattern.get();
  }

 private:
  static constexpr std::size_t kCapacity = 256;
  struct Entry {
    std::string key;
    std::unique_ptr<icu::RegexPattern> pattern;
  };
  std::list<Entry> order_;
  std::unordered_map<std::string, std::list<Entry>::iterator> index_;
};

RegexCache& regexCache() {
  thread_local RegexCache cache;
  return cache;
}

std::string folded(const std::string& text) {
  std::string out;
  icu::UnicodeString::fromUTF8(text).foldCase().toUTF8String(out);
  return out;
}

bool isASCII(const std::string& text) {
  for (unsigned char c : text) {
    if (c >= 0x80) return false;
  }
  return true;
}

// Both sides in one case: ASCII texts are lowered in place, others folded by ICU.
std::string oneCase(const std::string& text) {
  if (!isASCII(text)) return folded(text);
  std::string out = text;
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

// The bounded regular-expression search.
std::optional<bool> regexFinds(const std::string& expression, bool caseSensitive,
                               const std::string& subject) {
  const icu::RegexPattern* pattern = regexCache().pattern(expression, caseSensitive);
  if (!pattern) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeRegexNil,
                    "Parsed regex is nil. Audience filter will not be evaluated");
    return std::nullopt;
  }
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString input = icu::UnicodeString::fromUTF8(subject);
  std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(input, status));
  if (U_FAILURE(status) || !matcher) return std::nullopt;
  matcher->setTimeLimit(kAPMRegexTimeLimitSteps, status);
  matcher->setStackLimit(kAPMRegexStackLimitBytes, status);
  if (U_FAILURE(status)) return std::nullopt;
  bool found = matcher->find(status);
  if (U_FAILURE(status)) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeRegexBounded,
                    "Regular expression exceeded its work limit. Audience filter will not be "
                    "evaluated. Expression, error",
                    expression, std::string(u_errorName(status)));
    return std::nullopt;
  }
  return found;
}

bool needsSingleValue(std::uint32_t type) { return type >= 1 && type <= 3; }

std::optional<bool> compareWithType(std::uint32_t type, int vsValue, int vsMin, int vsMax) {
  switch (type) {
    case 1: return vsValue < 0;
    case 2: return vsValue > 0;
    case 3: return vsValue == 0;
    case 4: return vsMin >= 0 && vsMax <= 0;
    default: return std::nullopt;
  }
}

}  // namespace

bool APMIsDecimalString(std::string_view text) {
  std::size_t i = 0;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  std::size_t intDigits = 0;
  while (i < text.size() && text[i] >= '0' && text[i] <= '9') ++i, ++intDigits;
  if (i == text.size()) return intDigits > 0;
  if (text[i] != '.') return false;
  ++i;
  std::size_t fracDigits = 0;
  while (i < text.size() && text[i] >= '0' && text[i] <= '9') ++i, ++fracDigits;
  return i == text.size() && (intDigits > 0 || fracDigits > 0);
}

std::optional<APMDecimal> APMDecimal::parse(std::string_view text) {
  if (!APMIsDecimalString(text)) return std::nullopt;
  APMDecimal d;
  std::size_t i = 0;
  if (text[0] == '+' || text[0] == '-') {
    d.negative_ = text[0] == '-';
    ++i;
  }
  std::string all;
  std::int64_t pointAt = -1;
  for (; i < text.size(); ++i) {
    if (text[i] == '.') {
      pointAt = static_cast<std::int64_t>(all.size());
    } else {
      all.push_back(text[i]);
    }
  }
  if (pointAt < 0) pointAt = static_cast<std::int64_t>(all.size());
  std::size_t first = all.find_first_not_of('0');
  if (first == std::string::npos) {
    d.negative_ = false;
    return d;  // zero
  }
  std::size_t last = all.find_last_not_of('0');
  d.digits_ = all.substr(first, last - first + 1);
  d.exponent_ = pointAt - static_cast<std::int64_t>(first);
  return d;
}

APMDecimal APMDecimal::fromInt64(std::int64_t value) {
  APMDecimal d;
  if (value == 0) return d;
  d.negative_ = value < 0;
  // The magnitude in unsigned arithmetic, so that the smallest value has one too.
  std::uint64_t magnitude = d.negative_ ? 0 - static_cast<std::uint64_t>(value)
                                        : static_cast<std::uint64_t>(value);
  char buffer[20];
  int length = 0;
  while (magnitude) {
    buffer[length++] = static_cast<char>('0' + magnitude % 10);
    magnitude /= 10;
  }
  d.exponent_ = length;
  int last = 0;  // trailing zeros are the first digits out
  while (buffer[last] == '0') ++last;
  d.digits_.assign(std::make_reverse_iterator(buffer + length), std::make_reverse_iterator(buffer + last));
  return d;
}

std::optional<std::int64_t> APMDecimal::asInt64() const {
  if (digits_.empty()) return 0;
  auto size = static_cast<std::int64_t>(digits_.size());
  if (exponent_ < size || exponent_ > 19) return std::nullopt;
  // 0.digits * 10^exponent with every digit before the point.
  std::uint64_t magnitude = 0;
  for (std::int64_t i = 0; i < exponent_; ++i) {
    std::uint64_t digit = i < size ? static_cast<std::uint64_t>(digits_[i] - '0') : 0;
    if (magnitude > (UINT64_MAX - digit) / 10) return std::nullopt;
    magnitude = magnitude * 10 + digit;
  }
  std::uint64_t limit = negative_ ? std::uint64_t{1} << 63 : (std::uint64_t{1} << 63) - 1;
  if (magnitude > limit) return std::nullopt;
  return negative_ ? static_cast<std::int64_t>(0 - magnitude) : static_cast<std::int64_t>(magnitude);
}

int APMDecimal::compare(const APMDecimal& other) const {
  bool zero = digits_.empty();
  bool otherZero = other.digits_.empty();
  if (zero || otherZero) {
    if (zero && otherZero) return 0;
    if (zero) return other.negative_ ? 1 : -1;
    return negative_ ? -1 : 1;
  }
  if (negative_ != other.negative_) return negative_ ? -1 : 1;
  int magnitude;
  if (exponent_ != other.exponent_) {
    magnitude = exponent_ < other.exponent_ ? -1 : 1;
  } else {
    int c = digits_.compare(other.digits_);
    magnitude = c < 0 ? -1 : (c > 0 ? 1 : 0);
  }
  return negative_ ? -magnitude : magnitude;
}

APMAudienceComparisonValues APMAudienceComparisonValues::fromNumberFilter(
    const APMPBNumberFilter& filter) {
  APMAudienceComparisonValues values;
  if (filter.comparison_value) values.comparisonValue = APMDecimal::parse(filter.comparison_value);
  if (filter.min_comparison_value) {
    values.minComparisonValue = APMDecimal::parse(filter.min_comparison_value);
  }
  if (filter.max_comparison_value) {
    values.maxComparisonValue = APMDecimal::parse(filter.max_comparison_value);
  }
  if (needsSingleValue(filter.comparison_type)) {
    values.isValid = values.comparisonValue.has_value();
  } else if (filter.comparison_type == 4) {
    values.isValid = values.minComparisonValue && values.maxComparisonValue &&
                     values.minComparisonValue->compare(*values.maxComparisonValue) <= 0;
  }
  return values;
}

bool APMIsValidNumberFilter(const APMPBNumberFilter& filter) {
  if (!filter.has_comparison_type) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeNoComparisonType,
                    "Number filter has no comparison type");
    return false;
  }
  if (filter.comparison_type == 0) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeUnknownComparisonType,
                    "Number filter has unknown comparison type");
    return false;
  }
  if (filter.comparison_type > 4) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeRealUnknownComparisonType,
                    "Number filter has a real unknown comparison type", filter.comparison_type);
    return false;
  }
  if (!APMAudienceComparisonValues::fromNumberFilter(filter).isValid) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeInvalidComparisonValue,
                    "Numeric filter does not have a valid comparison value. Filter",
                    describeNumberFilter(filter));
    return false;
  }
  return true;
}

void APMPreparedStringFilter::Problem::log() const {
  if (!APMMonitor::isLoggable(kAPMMonitorLevelWarning)) return;
  APMMonitorEntry entry{kAPMMonitorLevelWarning, code, message, {}};
  if (detail) entry.context.push_back(*detail);
  APMMonitor::write(std::move(entry));
}

std::optional<APMPreparedStringFilter::Problem> APMPreparedStringFilter::problemOf(
    const APMPBStringFilter& filter) {
  if (!filter.has_match_type) return Problem{kCodeNoMatchType, "String filter has no match type", {}};
  std::uint32_t type = filter.match_type;
  if (type == 0 || type > 6) {
    return Problem{kCodeUnknownMatchType, "String filter has unknown match type", kit::describe(type)};
  }
  if (type <= 5 && !filter.expression) {
    return Problem{kCodeNoExpression, "String filter has no expression", {}};
  }
  if (type == 1 && !regexCache().pattern(filter.expression, filter.case_sensitive)) {
    return Problem{kCodeBadRegex, "Unable to parse regular expression",
                   kit::describe(std::string(filter.expression))};
  }
  if (type == 6 && filter.expression_list_count == 0) {
    return Problem{kCodeNoExpressionList, "String filter has no expression list", {}};
  }
  return std::nullopt;
}

bool APMIsValidStringFilter(const APMPBStringFilter& filter) {
  auto problem = APMPreparedStringFilter::problemOf(filter);
  if (!problem) return true;
  problem->log();
  return false;
}

// --- prepared filters ---

APMPreparedNumberFilter::APMPreparedNumberFilter(const APMPBNumberFilter& filter)
    : type_(filter.comparison_type), values_(APMAudienceComparisonValues::fromNumberFilter(filter)) {
  // Comparison values as doubles, read the same way in every locale.
  auto asDouble = [](const char* text) -> std::optional<double> {
    if (!text) return std::nullopt;
    double d = std::strtod(text, nullptr);
    if (!std::isfinite(d)) return std::nullopt;
    return d;
  };
  auto asInteger = [](const std::optional<APMDecimal>& d) -> std::optional<std::int64_t> {
    return d ? d->asInt64() : std::nullopt;
  };
  integerValue_ = asInteger(values_.comparisonValue);
  integerMin_ = asInteger(values_.minComparisonValue);
  integerMax_ = asInteger(values_.maxComparisonValue);
  doubleValue_ = asDouble(filter.comparison_value);
  doubleMin_ = asDouble(filter.min_comparison_value);
  doubleMax_ = asDouble(filter.max_comparison_value);
}

std::optional<bool> APMPreparedNumberFilter::evaluate(const APMDecimal& value) const {
  if (!values_.isValid) return std::nullopt;
  int vsValue = values_.comparisonValue ? value.compare(*values_.comparisonValue) : 0;
  int vsMin = values_.minComparisonValue ? value.compare(*values_.minComparisonValue) : 0;
  int vsMax = values_.maxComparisonValue ? value.compare(*values_.maxComparisonValue) : 0;
  return compareWithType(type_, vsValue, vsMin, vsMax);
}

std::optional<bool> APMPreparedNumberFilter::evaluateInteger(std::int64_t value) const {
  if (!values_.isValid) return std::nullopt;
  // Integers compare exactly with whole comparison values; any other needs decimals.
  if (values_.comparisonValue.has_value() != integerValue_.has_value() ||
      values_.minComparisonValue.has_value() != integerMin_.has_value() ||
      values_.maxComparisonValue.has_value() != integerMax_.has_value()) {
    return evaluate(APMDecimal::fromInt64(value));
  }
  auto cmp = [](std::int64_t a, std::int64_t b) { return a < b ? -1 : (a > b ? 1 : 0); };
  int vsValue = integerValue_ ? cmp(value, *integerValue_) : 0;
  int vsMin = integerMin_ ? cmp(value, *integerMin_) : 0;
  int vsMax = integerMax_ ? cmp(value, *integerMax_) : 0;
  return compareWithType(type_, vsValue, vsMin, vsMax);
}

std::optional<bool> APMPreparedNumberFilter::evaluateWithDouble(double value) const {
  if (!values_.isValid) return std::nullopt;
  auto outOfRange = [] {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeNotDoubleRange,
                    "Value is not within double range. Audience filter will not be evaluated");
    return std::optional<bool>();
  };
  auto cmp = [](double a, double b) { return a < b ? -1 : (a > b ? 1 : 0); };
  if (!std::isfinite(value)) return outOfRange();
  int vsValue = 0, vsMin = 0, vsMax = 0;
  if (needsSingleValue(type_)) {
    if (!doubleValue_) return outOfRange();
    vsValue = cmp(value, *doubleValue_);
  } else {
    if (!doubleMin_ || !doubleMax_) return outOfRange();
    vsMin = cmp(value, *doubleMin_);
    vsMax = cmp(value, *doubleMax_);
  }
  return compareWithType(type_, vsValue, vsMin, vsMax);
}

APMPreparedStringFilter::APMPreparedStringFilter(const APMPBStringFilter& filter)
    : problem_(problemOf(filter)), type_(filter.match_type), caseSensitive_(filter.case_sensitive) {
  if (problem_) return;
  auto side = [&](const char* text) {
    std::string s = text ? text : "";
    return caseSensitive_ ? s : oneCase(s);
  };
  expression_ = type_ == 1 ? std::string(filter.expression) : side(filter.expression);
  for (const char* item : APMPBItems(filter.expression_list, filter.expression_list_count)) {
    list_.push_back(side(item));
  }
}

std::optional<bool> APMPreparedStringFilter::evaluate(const std::string* subject) const {
  if (!subject) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeNilSubject,
                    "Evaluation string is nil. Audience filter will not be evaluated");
    return std::nullopt;
  }
  if (problem_) {
    problem_->log();
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeInvalidStringFilter,
                    "String filter is invalid. Audience filter will not be evaluated");
    return std::nullopt;
  }
  if (type_ == 1) return regexFinds(expression_, caseSensitive_, *subject);
  std::string lowered;
  if (!caseSensitive_) lowered = oneCase(*subject);
  std::string_view value = caseSensitive_ ? std::string_view(*subject) : std::string_view(lowered);
  switch (type_) {
    case 2: return value.starts_with(expression_);
    case 3: return value.ends_with(expression_);
    case 4: return value.find(expression_) != std::string_view::npos;
    case 5: return value == expression_;
    case 6:
      for (const std::string& item : list_) {
        if (value == item) return true;
      }
      return false;
    default:
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeValidatedUnknownType,
                      "Validated string filter has unknown comparison type. Audience filter will "
                      "not be evaluated");
      return std::nullopt;
  }
}

// --- one-off evaluations ---

std::optional<bool> APMEvaluateNumberFilter(const APMPBNumberFilter& filter,
                                            const APMDecimal& value) {
  return APMPreparedNumberFilter(filter).evaluate(value);
}

std::optional<bool> APMEvaluateNumberFilterWithDouble(const APMPBNumberFilter& filter,
                                                      double value) {
  return APMPreparedNumberFilter(filter).evaluateWithDouble(value);
}

std::optional<bool> APMEvaluateStringFilter(const APMPBStringFilter& filter,
                                            const std::string* subject) {
  return APMPreparedStringFilter(filter).evaluate(subject);
}
