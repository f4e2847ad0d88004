#include "measurement/events/APMParameterCleaning.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "measurement/APMMonitor.h"
#include "measurement/events/APMDataTypeValidator.h"
#include "measurement/events/APMEventNames.h"

namespace {

constexpr int kCodeCurrencyMissing = 18014;
constexpr int kCodeUnconvertibleValue = 18015;
constexpr int kCodeItemCustomParameters = 18016;
constexpr int kCodeTooManyParameters = 18017;
constexpr int kCodeInvalidScreenClass = 16003;
constexpr int kCodeInvalidScreenName = 16004;

constexpr const char* kError = "_err";
constexpr const char* kErrorValue = "_ev";
constexpr const char* kErrorLength = "_el";
constexpr const char* kConversion = "_c";
constexpr int kMaxItemCustomParameters = 0;  // a constant: an item's limit cannot be raised

APMValue code(APMEventErrorCode c) { return APMValue::fromInt64(static_cast<std::int64_t>(c)); }

bool hasErrorParameters(const APMParameters& p) {
  return p.count(kError) || p.count(kErrorValue) || p.count(kErrorLength);
}

constexpr auto kNameLimit = static_cast<std::size_t>(kAPMMaxEventParameterNameLength);

// The error parameters of the first failure of a parameter map.
class ErrorParameters {
 public:
  void add(APMParameters parameters) {
    if (!hasErrorParameters(params_)) params_ = std::move(parameters);
  }

  // Writes the error parameters into `parameters` unless it carries some already.
  void writeInto(APMParameters& parameters) const {
    if (!hasErrorParameters(parameters)) parameters.insert(params_.begin(), params_.end());
  }

 private:
  APMParameters params_;
};

bool isCounted(const std::string& name, bool isArrayItem) {
  if (name.starts_with("_")) return false;
  return !isArrayItem || !APMStandardItemParameterNames().count(name);
}

// Drops counted parameters, last in name order first, until at most `limit` remain.
void trimCounted(APMParameters& parameters, bool isArrayItem, std::size_t limit) {
  std::size_t counted = 0;
  for (const auto& [name, value] : parameters) counted += isCounted(name, isArrayItem);
  for (auto it = parameters.end(); counted > limit && it != parameters.begin();) {
    --it;
    if (isCounted(it->first, isArrayItem)) {
      it = parameters.erase(it);
      --counted;
    }
  }
}

// Cleans an array parameter; nothing when the array is dropped.
std::optional<APMValue> cleanArray(const kit::Array& array, const std::string& name,
                                   const std::string& eventName, bool isPublicEvent,
                                   bool isArrayItem, int maxPublicEventParams,
                                   ErrorParameters& errors) {
  int failure = kAPMValidationValid;
  if (!APMDataTypeValidator::isValidArrayParamForEvent(eventName, name, array.size(), isArrayItem,
                                                       &failure)) {
    switch (failure) {
      case kAPMValidationArrayNotAllowed:
        errors.add(APMErrorParameters(APMEventErrorCode::InvalidArrayParamEventName, eventName,
                                      kNameLimit));
        return std::nullopt;
      case kAPMValidationArrayWrongName:
        errors.add(APMErrorParameters(APMEventErrorCode::InvalidArrayParamName, name, kNameLimit));
        return std::nullopt;
      case kAPMValidationArrayNested:
        errors.add(
            APMErrorParameters(APMEventErrorCode::InvalidArrayParamNesting, name, kNameLimit));
        return std::nullopt;
      case kAPMValidationArrayTooManyItems:
        errors.add(APMErrorParameters(APMEventErrorCode::TooManyExtraParamEvents, name, kNameLimit,
                                      static_cast<std::int64_t>(array.size())));
        break;  // the first 200 items go on
      default:
        return std::nullopt;
    }
  }
  std::size_t kept = std::min(array.size(), static_cast<std::size_t>(kAPMMaxArrayParameterItems));
  std::vector<APMParameters> items;
  items.reserve(kept);
  for (std::size_t i = 0; i < kept; ++i) {
    if (!APMDataTypeValidator::isValidArrayParamItem(array[i], &failure)) return std::nullopt;
    items.push_back(APMCleanParameters(*array[i].asDictionary(), eventName, isPublicEvent, true,
                                       maxPublicEventParams));
  }
  return APMValue::fromArray(std::move(items));
}

}  // namespace

APMParameters APMCleanParameters(const kit::Dictionary& parameters, const std::string& eventName,
                                 bool isPublicEvent, bool isArrayItem, int maxPublicEventParams) {
  APMParameters cleaned;
  if (parameters.empty()) return cleaned;
  ErrorParameters errors;

  for (const auto& [name, object] : parameters) {
    int failure = kAPMValidationValid;
    kit::Value nameValue(name);
    bool validName =
        isPublicEvent
            ? APMDataTypeValidator::isValidPublicEventParameterName(nameValue, &failure)
            : APMDataTypeValidator::isValidInternalEventParameterName(nameValue, &failure);
    if (!validName) {
      errors.add(APMErrorParameters(failure == kAPMValidationReserved
                                        ? APMEventErrorCode::ParameterNameIsReserved
                                        : APMEventErrorCode::InvalidParameterName,
                                    name, kNameLimit));
      continue;
    }

    if (const kit::Array* array = object.asArray()) {
      auto value = cleanArray(*array, name, eventName, isPublicEvent, isArrayItem,
                              maxPublicEventParams, errors);
      if (value) cleaned.insert_or_assign(name, std::move(*value));
      continue;
    }

    auto value = APMValue::valueFromObject(object, false);
    if (!value) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeUnconvertibleValue,
                      "Event parameter value must be of type NSString, NSNumber or NSArray. Type",
                      APMTypeName(object));
      continue;
    }
    bool validValue =
        !isPublicEvent || APMDataTypeValidator::isValidPublicEventParameterValue(&*value, &failure);
    if (validValue && name == kErrorValue && value->isString()) {
      // `_ev` is trimmed, not dropped; an already trimmed text stays as it is.
      const std::string& text = value->stringValue();
      std::size_t length = apm_UTF32Length(text);
      auto limit = static_cast<std::size_t>(kAPMMaxInternalEventParameterValueLength);
      if (length > limit && !(length == limit + 3 && text.ends_with("..."))) {
        value = APMValue::fromString(APMTrimmedString(text, limit));
      }
    } else if (validValue) {
      validValue = APMDataTypeValidator::isValidInternalEventParameterValue(&*value, &failure);
    }
    if (!validValue) {
      if (failure == kAPMValidationTooLong) {
        errors.add(
            APMErrorParameters(APMEventErrorCode::InvalidParameterValue, name, kNameLimit,
                               static_cast<std::int64_t>(apm_UTF32Length(value->stringValue()))));
      }
      continue;
    }
    cleaned.insert_or_assign(name, std::move(*value));
  }
  errors.writeInto(cleaned);

  std::size_t counted = 0;
  for (const auto& [name, value] : cleaned) counted += isCounted(name, isArrayItem);
  if (isArrayItem) {
    if (counted > static_cast<std::size_t>(kMaxItemCustomParameters)) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeItemCustomParameters,
                      "Item cannot contain custom parameters");
      trimCounted(cleaned, true, kMaxItemCustomParameters);
      if (!cleaned.count(kError)) {
        cleaned.emplace(kError, code(APMEventErrorCode::CustomParamsInArrayElement));
      }
    }
  } else if (counted > static_cast<std::size_t>(maxPublicEventParams)) {
    APMMonitor::log(
        kAPMMonitorLevelWarning, kCodeTooManyParameters,
        "Event cannot contain more than " + std::to_string(maxPublicEventParams) + " parameters");
    trimCounted(cleaned, false, static_cast<std::size_t>(maxPublicEventParams));
    // Unlike a bad name or value, the limit's code replaces an earlier one (its _ev stays).
    cleaned.insert_or_assign(kError, code(APMEventErrorCode::ParameterLimitReached));
  }
  return cleaned;
}

void APMApplyValueRule(const std::string& eventName, APMParameters& parameters) {
  bool shouldValidateParams =
      parameters.count(kConversion) || eventName == "ad_impression" || eventName == "_ai";
  auto value = parameters.find("value");
  if (!shouldValidateParams || value == parameters.end()) return;

  // The value rule's error replaces any earlier `_err` and `_ev`.
  auto addError = [&parameters](APMEventErrorCode error, const char* errorValue) {
    for (auto& [name, v] : APMErrorParameters(error, errorValue, kNameLimit)) {
      parameters.insert_or_assign(name, std::move(v));
    }
  };
  if (!APMDataTypeValidator::isValidNumericValue(&value->second, nullptr)) {
    parameters.erase(value);
    addError(APMEventErrorCode::ValueIsNotNumeric, "value");
    parameters.erase(kConversion);
    return;
  }
  auto currency = parameters.find("currency");
  const APMValue* currencyValue = currency == parameters.end() ? nullptr : &currency->second;
  if (!APMDataTypeValidator::isValidCurrencyCode(currencyValue, nullptr)) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeCurrencyMissing,
                    "Value parameter discarded. You must also supply a 3-letter ISO_4217 currency "
                    "code in the currency parameter.");
    parameters.erase(value);
    addError(APMEventErrorCode::CurrencyCodeIsMissingOrInvalid, "currency");
    parameters.erase(kConversion);
  }
}

void APMClearConversion(APMParameters& parameters) {
  parameters.erase(kConversion);
  if (!parameters.count(kError)) {
    parameters.emplace(kError, code(APMEventErrorCode::ConversionEventLimitReached));
  }
}

bool APMAddScreenParameters(APMParameters& parameters, const APMParameters& screen) {
  if (parameters.count("_sn") || parameters.count("_sc") || parameters.count("_si")) return false;
  auto id = screen.find("_si");
  if (id == screen.end() || !id->second.isInt64()) return false;
  // `_sc` and `_sn`, when present, must be screen texts.
  auto valid = [&screen](const char* key, int messageCode, const char* message) {
    auto it = screen.find(key);
    if (it == screen.end() ||
        APMDataTypeValidator::isValidScreenParameterValue(it->second.objectValue(), nullptr)) {
      return true;
    }
    APMMonitor::log(kAPMMonitorLevelWarning, messageCode, message);
    return false;
  };
  if (!valid("_sc", kCodeInvalidScreenClass, "Received invalid screen class") ||
      !valid("_sn", kCodeInvalidScreenName, "Received invalid screen name")) {
    return false;
  }
  auto screenClass = screen.find("_sc");
  auto screenName = screen.find("_sn");
  parameters.insert_or_assign("_si", id->second);
  if (screenClass != screen.end()) parameters.insert_or_assign("_sc", screenClass->second);
  if (screenName != screen.end()) parameters.insert_or_assign("_sn", screenName->second);
  return true;
}

APMParameters APMErrorParameters(APMEventErrorCode error, const std::string& subject,
                                 std::size_t limit, std::optional<std::int64_t> length) {
  APMParameters parameters{{kError, code(error)},
                           {kErrorValue, APMValue::fromString(APMTrimmedString(subject, limit))}};
  std::size_t subjectLength = apm_UTF32Length(subject);
  if (!length && subjectLength > limit) length = static_cast<std::int64_t>(subjectLength);
  if (length) parameters.emplace(kErrorLength, APMValue::fromInt64(*length));
  return parameters;
}

bool APMIsValidEventOrigin(const std::string& origin) {
  int failure = kAPMValidationValid;
  if (APMDataTypeValidator::isValidForwardedEventOrigin(kit::Value(origin), &failure)) return true;
  return failure == kAPMValidationForwardedOrigin &&
         APMDataTypeValidator::isValidInternalEventOrigin(kit::Value(origin), nullptr);
}
