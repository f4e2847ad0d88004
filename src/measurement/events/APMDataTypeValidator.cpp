#include "measurement/events/APMDataTypeValidator.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <cstdint>

#include "measurement/APMMonitor.h"
#include "measurement/events/APMEventNames.h"

namespace {

// Message codes.
constexpr int kCodeStringWithContext = 13000;
constexpr int kCodeStringWithoutContext = 13001;
constexpr int kCodeIllegalCharacters = 13002;
constexpr int kCodeNotStartingWithLetter = 13003;
constexpr int kCodeNilValue = 13004;
constexpr int kCodeReservedEventName = 13006;
constexpr int kCodeReservedEventPrefix = 13007;
constexpr int kCodeReservedParameterPrefix = 13008;
constexpr int kCodeReservedUserPropertyName = 13009;
constexpr int kCodeReservedUserPropertyPrefix = 13010;
constexpr int kCodeNotNumeric = 13011;
constexpr int kCodeBadCurrency = 13012;
constexpr int kCodeNestedArray = 13013;
constexpr int kCodeArrayNotAllowed = 13014;
constexpr int kCodeArrayWrongName = 13015;
constexpr int kCodeArrayTooManyItems = 13016;
constexpr int kCodeArrayItemNotDictionary = 13017;

constexpr const char* kItemsParameterName = "items";
constexpr const char* kForwardedOriginSuffix = "+gtm";

bool isValueType(int type) {
  return type == kAPMValidationTypeEventParameterValue ||
         type == kAPMValidationTypeUserPropertyValue;
}

// Values fail quietly (level 3), names loudly (level 0).
int levelForType(int type) {
  return isValueType(type) ? kAPMMonitorLevelWarning : kAPMMonitorLevelError;
}

const char* subjectWord(int type) {
  switch (type) {
    case kAPMValidationTypeEventName:
      return "Event name";
    case kAPMValidationTypeEventOrigin:
      return "Event origin";
    case kAPMValidationTypeEventParameterName:
      return "Event parameter name";
    case kAPMValidationTypeEventParameterValue:
      return "Event parameter value";
    case kAPMValidationTypeUserPropertyName:
      return "User property name";
    case kAPMValidationTypeUserPropertyValue:
      return "User property value";
    case kAPMValidationTypeScreenParameterValue:
      return "Screen parameter value";
    case kAPMValidationTypeConditionalUserPropertyOrigin:
      return "Conditional user property origin";
    case kAPMValidationTypeConditionalUserPropertyName:
      return "Conditional user property name";
    case kAPMValidationTypeConditionalUserPropertyValue:
      return "Conditional user property value";
    default:
      return "Object";
  }
}

bool setFailure(int* failureCode, int code) {
  if (failureCode) *failureCode = code;
  return code == kAPMValidationValid;
}

// Walks the code points of `text`; a malformed byte comes out negative.
template <class Visit>
void forEachCodePoint(std::string_view text, Visit visit) {
  const auto* s = reinterpret_cast<const std::uint8_t*>(text.data());
  auto length = static_cast<std::int32_t>(text.size());
  std::int32_t i = 0;
  while (i < length) {
    UChar32 c;
    U8_NEXT(s, i, length, c);
    if (!visit(c)) return;
  }
}

bool hasNameCharactersOnly(std::string_view text) {
  bool ok = true;
  forEachCodePoint(text, [&ok](UChar32 c) {
    ok = c >= 0 && APMIsNameCharacter(static_cast<char32_t>(c));
    return ok;
  });
  return ok;
}

bool startsWithLetter(std::string_view text) {
  bool letter = false;
  forEachCodePoint(text, [&letter](UChar32 c) {
    letter = c >= 0 && APMIsLetter(static_cast<char32_t>(c));
    return false;
  });
  return letter;
}

bool fail(int* failureCode, int code, int level, int messageCode, std::string message) {
  APMMonitor::log(level, messageCode, std::move(message));
  return setFailure(failureCode, code);
}

template <class Context>
bool fail(int* failureCode, int code, int level, int messageCode, std::string message,
          const Context& context) {
  APMMonitor::log(level, messageCode, std::move(message), context);
  return setFailure(failureCode, code);
}

}  // namespace

std::size_t apm_UTF32Length(std::string_view text) {
  std::size_t count = 0;
  forEachCodePoint(text, [&count](UChar32) {
    ++count;
    return true;
  });
  return count;
}

bool APMIsLetter(char32_t c) { return (U_GET_GC_MASK(static_cast<UChar32>(c)) & U_GC_L_MASK) != 0; }

bool APMIsNameCharacter(char32_t c) {
  return c == U'_' || APMIsLetter(c) ||
         u_charType(static_cast<UChar32>(c)) == U_DECIMAL_DIGIT_NUMBER;
}

std::string APMTrimmedString(const std::string& text, std::size_t limit) {
  std::size_t seen = 0;
  std::size_t cut = text.size();
  const auto* s = reinterpret_cast<const std::uint8_t*>(text.data());
  auto length = static_cast<std::int32_t>(text.size());
  std::int32_t i = 0;
  while (i < length) {
    if (seen == limit) {
      cut = static_cast<std::size_t>(i);
      break;
    }
    UChar32 c;
    U8_NEXT(s, i, length, c);
    ++seen;
  }
  if (cut == text.size()) return text;
  return text.substr(0, cut) + "...";
}

std::string APMTrimmedString(const kit::Value& subject, std::size_t limit) {
  if (subject.isNull()) return "(nil)";
  if (const std::string* s = subject.asString()) return APMTrimmedString(*s, limit);
  return APMTrimmedString(APMTypeName(subject), limit);
}

std::string APMTypeName(const kit::Value& value) {
  if (value.isNull()) return "NSNull";
  if (value.isNumber()) return "NSNumber";
  if (value.isString()) return "NSString";
  if (value.isData()) return "NSData";
  if (value.isArray()) return "NSArray";
  return "NSDictionary";
}

// --- Generic checks ---

bool APMDataTypeValidator::isValidString(const kit::Value& string, int minLength, int maxLength,
                                         int type, int* failureCode) {
  std::string word = subjectWord(type);
  int level = levelForType(type);
  if (string.isNull()) {
    return fail(failureCode, kAPMValidationMissing, level, kCodeStringWithoutContext,
                word + " is required and can't be nil");
  }
  const std::string* text = string.asString();
  if (!text) {
    return fail(failureCode, kAPMValidationWrongType, level, kCodeStringWithoutContext,
                word + " must be of type NSString");
  }
  if (text->empty() && minLength >= 1) {
    if (isValueType(type)) return setFailure(failureCode, kAPMValidationMissing);
    return fail(failureCode, kAPMValidationMissing, level, kCodeStringWithoutContext,
                word + " is required and can't be empty");
  }
  auto length = static_cast<long long>(apm_UTF32Length(*text));
  if (length > maxLength) {
    return fail(failureCode, kAPMValidationTooLong, level, kCodeStringWithContext,
                word + " is too long. The maximum supported length is " + std::to_string(maxLength),
                *text);
  }
  if (length < minLength) {
    return fail(
        failureCode, kAPMValidationTooShort, level, kCodeStringWithContext,
        word + " is too short. The minimum supported length is " + std::to_string(minLength),
        *text);
  }
  return setFailure(failureCode, kAPMValidationValid);
}

bool APMDataTypeValidator::isValidInternalName(const kit::Value& name, int maxLength, int type,
                                               int* failureCode) {
  if (!isValidString(name, 1, maxLength, type, failureCode)) return false;
  if (!hasNameCharactersOnly(*name.asString())) {
    return fail(
        failureCode, kAPMValidationIllegalCharacters, levelForType(type), kCodeIllegalCharacters,
        std::string(subjectWord(type)) + " must contain only letters, numbers, or underscores",
        *name.asString());
  }
  return setFailure(failureCode, kAPMValidationValid);
}

bool APMDataTypeValidator::isValidPublicName(const kit::Value& name, int maxLength, int type,
                                             int* failureCode) {
  if (!isValidInternalName(name, maxLength, type, failureCode)) return false;
  if (!startsWithLetter(*name.asString())) {
    return fail(failureCode, kAPMValidationIllegalCharacters, levelForType(type),
                kCodeNotStartingWithLetter,
                std::string(subjectWord(type)) + " must start with a letter", *name.asString());
  }
  return setFailure(failureCode, kAPMValidationValid);
}

bool APMDataTypeValidator::isValidValue(const APMValue* value, int minLength, int maxLength,
                                        int type, int* failureCode) {
  if (!value) {
    return fail(failureCode, kAPMValidationMissing, levelForType(type), kCodeNilValue,
                std::string(subjectWord(type)) + " cannot be nil");
  }
  if (value->isString()) {
    return isValidString(kit::Value(value->stringValue()), minLength, maxLength, type, failureCode);
  }
  return setFailure(failureCode, kAPMValidationValid);
}

// --- Events ---

bool APMDataTypeValidator::isValidPublicEventName(const kit::Value& name, int* failureCode) {
  if (!isValidPublicName(name, kAPMMaxEventNameLength, kAPMValidationTypeEventName, failureCode)) {
    return false;
  }
  const std::string& text = *name.asString();
  if (text == "screen_view") return setFailure(failureCode, kAPMValidationValid);
  if (APMEventNameMap().count(text) && !APMAllowedEventNames().count(text)) {
    return fail(failureCode, kAPMValidationReserved, kAPMMonitorLevelError, kCodeReservedEventName,
                "Event name is reserved. Ignoring event", text);
  }
  if (hasReservedPrefixes(text)) {
    return fail(failureCode, kAPMValidationReserved, kAPMMonitorLevelError,
                kCodeReservedEventPrefix, "Event name uses reserved prefix. Ignoring event", text);
  }
  return setFailure(failureCode, kAPMValidationValid);
}

bool APMDataTypeValidator::isValidPublicEventParameterName(const kit::Value& name,
                                                           int* failureCode) {
  if (!isValidPublicName(name, kAPMMaxEventParameterNameLength,
                         kAPMValidationTypeEventParameterName, failureCode)) {
    return false;
  }
  if (hasReservedPrefixes(*name.asString())) {
    return fail(failureCode, kAPMValidationReserved, kAPMMonitorLevelError,
                kCodeReservedParameterPrefix,
                "Parameter name uses reserved prefix. Ignoring parameter", *name.asString());
  }
  return setFailure(failureCode, kAPMValidationValid);
}

bool APMDataTypeValidator::isValidPublicEventParameterValue(const APMValue* value,
                                                            int* failureCode) {
  return isValidValue(value, 0, kAPMMaxPublicEventParameterValueLength,
                      kAPMValidationTypeEventParameterValue, failureCode);
}

bool APMDataTypeValidator::isValidArrayParamForEvent(const std::string& eventName,
                                                     const std::string& paramName,
                                                     std::size_t arrayCount,
                                                     bool isNestedArrayParam, int* failureCode) {
  int level = kAPMMonitorLevelWarning;
  if (isNestedArrayParam) {
    return fail(failureCode, kAPMValidationArrayNested, level, kCodeNestedArray,
                "Nested array parameters are not allowed. Name", paramName);
  }
  if (!APMCommerceEventNames().count(eventName)) {
    return fail(failureCode, kAPMValidationArrayNotAllowed, level, kCodeArrayNotAllowed,
                "Only ecommerce events are allowed to contain array parameters. Invalid ecommerce "
                "name",
                eventName);
  }
  if (paramName != kItemsParameterName) {
    return fail(failureCode, kAPMValidationArrayWrongName, level, kCodeArrayWrongName,
                std::string(subjectWord(kAPMValidationTypeEventName)) +
                    " is an invalid ecommerce items. The name of array parameters for ecommerce "
                    "should be \"" +
                    kItemsParameterName + "\". Invalid parameter name",
                paramName);
  }
  if (arrayCount > static_cast<std::size_t>(kAPMMaxArrayParameterItems)) {
    return fail(failureCode, kAPMValidationArrayTooManyItems, level, kCodeArrayTooManyItems,
                "Array parameter has too many items. The maximum number of supported items is " +
                    std::to_string(kAPMMaxArrayParameterItems) + ". Invalid array size",
                arrayCount);
  }
  return setFailure(failureCode, kAPMValidationValid);
}

bool APMDataTypeValidator::isValidArrayParamItem(const kit::Value& item, int* failureCode) {
  if (!item.isDictionary()) {
    return fail(failureCode, kAPMValidationArrayItemNotDictionary, kAPMMonitorLevelWarning,
                kCodeArrayItemNotDictionary, "Array param must be a dictionary. Parameters",
                APMTypeName(item));
  }
  return setFailure(failureCode, kAPMValidationValid);
}

bool APMDataTypeValidator::isValidInternalEventOrigin(const kit::Value& origin, int* failureCode) {
  return isValidInternalName(origin, kAPMMaxEventOriginLength, kAPMValidationTypeEventOrigin,
                             failureCode);
}

bool APMDataTypeValidator::isValidForwardedEventOrigin(const kit::Value& origin, int* failureCode) {
  const std::string* text = origin.asString();
  std::string_view suffix = kForwardedOriginSuffix;
  if (!text || !text->ends_with(suffix)) {
    return setFailure(failureCode, kAPMValidationForwardedOrigin);
  }
  return isValidInternalEventOrigin(kit::Value(text->substr(0, text->size() - suffix.size())),
                                    failureCode);
}

bool APMDataTypeValidator::isValidInternalEventName(const kit::Value& name, int* failureCode) {
  return isValidInternalName(name, kAPMMaxEventNameLength, kAPMValidationTypeEventName,
                             failureCode);
}

bool APMDataTypeValidator::isValidInternalEventParameterName(const kit::Value& name,
                                                             int* failureCode) {
  return isValidInternalName(name, kAPMMaxEventParameterNameLength,
                             kAPMValidationTypeEventParameterName, failureCode);
}

bool APMDataTypeValidator::isValidInternalEventParameterValue(const APMValue* value,
                                                              int* failureCode) {
  return isValidValue(value, 0, kAPMMaxInternalEventParameterValueLength,
                      kAPMValidationTypeEventParameterValue, failureCode);
}

// --- User properties ---

bool APMDataTypeValidator::isValidPublicUserAttributeName(const kit::Value& name,
                                                          int* failureCode) {
  if (!isValidPublicName(name, kAPMMaxUserPropertyNameLength, kAPMValidationTypeUserPropertyName,
                         failureCode)) {
    return false;
  }
  const std::string& text = *name.asString();
  if (APMUserPropertyNameMap().count(text)) {
    return fail(failureCode, kAPMValidationReserved, kAPMMonitorLevelError,
                kCodeReservedUserPropertyName,
                "User property name is reserved. Ignoring user property", text);
  }
  if (hasReservedPrefixes(text)) {
    return fail(failureCode, kAPMValidationReserved, kAPMMonitorLevelError,
                kCodeReservedUserPropertyPrefix,
                "User property name uses reserved prefix. Ignoring user property", text);
  }
  return setFailure(failureCode, kAPMValidationValid);
}

bool APMDataTypeValidator::isValidPublicUserAttributeValue(const APMValue* value,
                                                           int* failureCode) {
  return isValidValue(value, 1, kAPMMaxUserPropertyValueLength, kAPMValidationTypeUserPropertyValue,
                      failureCode);
}

bool APMDataTypeValidator::isValidInternalUserAttributeName(const kit::Value& name,
                                                            int* failureCode) {
  return isValidInternalName(name, kAPMMaxUserPropertyNameLength,
                             kAPMValidationTypeUserPropertyName, failureCode);
}

bool APMDataTypeValidator::isValidInternalUserAttributeValue(const APMValue* value,
                                                             const std::string& name,
                                                             int* failureCode) {
  int maxLength = (name == "_id" || name == "_sbraid") ? kAPMMaxLongUserPropertyValueLength
                                                       : kAPMMaxUserPropertyValueLength;
  return isValidValue(value, 1, maxLength, kAPMValidationTypeUserPropertyValue, failureCode);
}

// --- Screens, conditional properties, numbers ---

bool APMDataTypeValidator::isValidScreenParameterValue(const kit::Value& value, int* failureCode) {
  return isValidString(value, 1, kAPMMaxScreenParameterValueLength,
                       kAPMValidationTypeScreenParameterValue, failureCode);
}

bool APMDataTypeValidator::isValidConditionalUserPropertyOrigin(const kit::Value& origin,
                                                                int* failureCode) {
  return isValidInternalName(origin, kAPMMaxEventOriginLength,
                             kAPMValidationTypeConditionalUserPropertyOrigin, failureCode);
}

bool APMDataTypeValidator::isValidConditionalUserPropertyName(const kit::Value& name,
                                                              int* failureCode) {
  return isValidInternalName(name, kAPMMaxUserPropertyNameLength,
                             kAPMValidationTypeConditionalUserPropertyName, failureCode);
}

bool APMDataTypeValidator::isValidConditionalUserPropertyValue(const APMValue* value,
                                                               int* failureCode) {
  return isValidValue(value, 1, kAPMMaxUserPropertyValueLength,
                      kAPMValidationTypeConditionalUserPropertyValue, failureCode);
}

bool APMDataTypeValidator::isValidNumericValue(const APMValue* value, int* failureCode) {
  if (value && (value->isInt64() || value->isDouble())) {
    return setFailure(failureCode, kAPMValidationValid);
  }
  return fail(failureCode, kAPMValidationNotNumeric, kAPMMonitorLevelWarning, kCodeNotNumeric,
              std::string(subjectWord(kAPMValidationTypeEventParameterValue)) +
                  " must be specified with a numeric type. value",
              value ? APMTypeName(value->objectValue()) : std::string("(nil)"));
}

bool APMDataTypeValidator::isValidCurrencyCode(const APMValue* value, int* failureCode) {
  if (value && value->isString()) {
    const std::string& text = value->stringValue();
    std::size_t letters = 0;
    forEachCodePoint(text, [&letters](UChar32 c) {
      if (c >= 0 && APMIsLetter(static_cast<char32_t>(c))) ++letters;
      return true;
    });
    if (letters == static_cast<std::size_t>(kAPMCurrencyCodeLength) &&
        apm_UTF32Length(text) == letters) {
      return setFailure(failureCode, kAPMValidationValid);
    }
  }
  return fail(failureCode, kAPMValidationBadCurrency, kAPMMonitorLevelWarning, kCodeBadCurrency,
              std::string(subjectWord(kAPMValidationTypeEventParameterValue)) + " must contain a " +
                  std::to_string(kAPMCurrencyCodeLength) + "-letter ISO_4217 currency code. value",
              value && value->isString() ? value->stringValue() : std::string("(nil)"));
}

bool APMDataTypeValidator::hasReservedPrefixes(std::string_view name) {
  for (const std::string& prefix : APMReservedPrefixes()) {
    if (name.starts_with(prefix)) return true;
  }
  return false;
}
