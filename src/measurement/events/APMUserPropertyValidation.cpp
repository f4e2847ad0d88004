#include "measurement/events/APMUserPropertyValidation.h"

#include "measurement/APMMonitor.h"
#include "measurement/events/APMDataTypeValidator.h"
#include "measurement/events/APMEventNames.h"
#include "measurement/events/APMParameterCleaning.h"

namespace {

constexpr int kCodeValueNotString = 25003;
constexpr int kCodeUserIDNotString = 25004;
constexpr int kCodeInvalidOrigin = 25005;

constexpr const char* kPersonalizedAdsName = "allow_personalized_ads";
constexpr const char* kUserIDName = "_id";
constexpr const char* kLastAdvertisingIDResetName = "_lair";
constexpr const char* kAppOrigin = "app";

constexpr auto kNameLimit = static_cast<std::size_t>(kAPMMaxUserPropertyNameLength);

}  // namespace

APMUserPropertyOutcome APMCheckUserProperty(const kit::Value& value, const kit::Value& name) {
  APMUserPropertyOutcome outcome;
  const std::string* nameText = name.asString();
  if (nameText && *nameText == kPersonalizedAdsName) {
    outcome.personalizedAds = value;
    return outcome;
  }
  if (value.isNull()) {
    if (nameText) outcome.removals.push_back(*nameText);
    return outcome;
  }
  int failure = kAPMValidationValid;
  if (!APMDataTypeValidator::isValidPublicUserAttributeName(name, &failure)) {
    outcome.errorEventParameters = APMErrorParameters(
        failure == kAPMValidationReserved ? APMEventErrorCode::UserPropertyNameIsReserved
                                          : APMEventErrorCode::InvalidUserPropertyName,
        nameText ? *nameText : APMTrimmedString(name, kNameLimit), kNameLimit);
    return outcome;
  }
  const std::string* valueText = value.asString();
  if (!valueText) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeValueNotString,
                    "User property must be NSString. Value", APMTypeName(value));
    return outcome;
  }
  APMValue converted = APMValue::fromString(*valueText);
  if (!APMDataTypeValidator::isValidPublicUserAttributeValue(&converted, &failure)) {
    if (failure == kAPMValidationTooLong) {
      outcome.errorEventParameters =
          APMErrorParameters(APMEventErrorCode::UserPropertyValueTooLong, *nameText, kNameLimit,
                             static_cast<std::int64_t>(apm_UTF32Length(*valueText)));
    }
    return outcome;
  }
  outcome.set = APMUserPropertyOutcome::Set{*nameText, std::move(converted), kAppOrigin};
  return outcome;
}

APMUserPropertyOutcome APMCheckUserID(const kit::Value& userID, bool resetFeatureEnabled) {
  APMUserPropertyOutcome outcome;
  if (userID.isNull()) {
    outcome.removals.push_back(kUserIDName);
    if (resetFeatureEnabled) outcome.removals.push_back(kLastAdvertisingIDResetName);
    return outcome;
  }
  const std::string* text = userID.asString();
  if (!text) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeUserIDNotString,
                    "User ID must be NSString. User ID", APMTypeName(userID));
    return outcome;
  }
  return APMCheckInternalUserProperty(kUserIDName, APMValue::fromString(*text), kAppOrigin);
}

APMUserPropertyOutcome APMCheckInternalUserProperty(const std::string& name, const APMValue& value,
                                                    const std::string& origin) {
  APMUserPropertyOutcome outcome;
  if (!APMDataTypeValidator::isValidInternalUserAttributeName(kit::Value(name), nullptr)) {
    return outcome;
  }
  std::size_t originLength = apm_UTF32Length(origin);
  if (originLength < 1 || originLength > static_cast<std::size_t>(kAPMMaxEventOriginLength)) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeInvalidOrigin,
                    "Unable to set user property. Origin is invalid. Origin, name", origin, name);
    return outcome;
  }
  if (!APMDataTypeValidator::isValidInternalUserAttributeValue(&value, name, nullptr)) {
    return outcome;
  }
  outcome.set = APMUserPropertyOutcome::Set{name, value, origin};
  return outcome;
}
