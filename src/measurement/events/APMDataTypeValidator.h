// APMDataTypeValidator: the rules for names and values that applications pass to the
// measurement client. Every check returns whether the subject is valid and writes a failure
// code (APMValidationFailure) through `failureCode` when non-null; a failure is logged
// through APMMonitor and never thrown. Lengths count Unicode code points (UTF-32), never
// bytes or UTF-16 units. Stateless; callable from any queue.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "kit/Value.h"
#include "measurement/events/APMValue.h"

// Failure codes.
enum APMValidationFailure : int {
  kAPMValidationValid = 0,
  kAPMValidationMissing = 1,  // missing or empty
  kAPMValidationTooLong = 2,
  kAPMValidationIllegalCharacters = 3,  // or does not start with a letter
  kAPMValidationReserved = 4,           // reserved name or prefix
  kAPMValidationWrongType = 5,
  kAPMValidationForwardedOrigin = 6,  // forwarded origin without its suffix
  kAPMValidationTooShort = 7,
  kAPMValidationNotNumeric = 8,
  kAPMValidationBadCurrency = 9,
  kAPMValidationArrayNotAllowed = 10,  // array parameter on a non-commerce event
  kAPMValidationArrayWrongName = 11,
  kAPMValidationArrayTooManyItems = 12,
  kAPMValidationArrayNested = 13,
  kAPMValidationArrayItemNotDictionary = 14,
};

// The subject of a check; selects the first words of its message.
enum APMValidationType : int {
  kAPMValidationTypeEventName = 0,
  kAPMValidationTypeEventOrigin = 1,
  kAPMValidationTypeEventParameterName = 2,
  kAPMValidationTypeEventParameterValue = 3,
  kAPMValidationTypeUserPropertyName = 4,
  kAPMValidationTypeUserPropertyValue = 5,
  kAPMValidationTypeScreenParameterValue = 6,
  kAPMValidationTypeConditionalUserPropertyOrigin = 7,
  kAPMValidationTypeConditionalUserPropertyName = 8,
  kAPMValidationTypeConditionalUserPropertyValue = 9,
};

// Limits, in code points or items.
inline constexpr int kAPMMaxEventNameLength = 40;
inline constexpr int kAPMMaxEventParameterNameLength = 40;
inline constexpr int kAPMMaxPublicEventParameterValueLength = 100;
inline constexpr int kAPMMaxInternalEventParameterValueLength = 256;
inline constexpr int kAPMMaxEventOriginLength = 32;
inline constexpr int kAPMMaxUserPropertyNameLength = 24;
inline constexpr int kAPMMaxUserPropertyValueLength = 36;
inline constexpr int kAPMMaxLongUserPropertyValueLength = 256;  // `_id` and `_sbraid`
inline constexpr int kAPMMaxScreenParameterValueLength = 100;
inline constexpr int kAPMMaxArrayParameterItems = 200;
inline constexpr int kAPMCurrencyCodeLength = 3;

// Number of Unicode code points of UTF-8 `text`; each byte of a malformed sequence counts as
// one.
std::size_t apm_UTF32Length(std::string_view text);

// True for a Unicode letter (general category L, which excludes combining marks).
bool APMIsLetter(char32_t c);
// Letters, decimal digits (Nd) and "_".
bool APMIsNameCharacter(char32_t c);

// `text` cut to `limit` code points with "..." appended when it is longer, so the result may
// reach `limit` + 3; shorter text is returned as it is. A null subject gives "(nil)"; any
// other non-text its kind ("NSNumber", "NSArray", ...).
std::string APMTrimmedString(const kit::Value& subject, std::size_t limit);
std::string APMTrimmedString(const std::string& text, std::size_t limit);

// The platform class name of a property-list value's kind, for log lines.
std::string APMTypeName(const kit::Value& value);

class APMDataTypeValidator {
 public:
  // Null: 1 " is required and can't be nil". Not text: 5 " must be of type NSString". Empty
  // with minimum >= 1: 1 " is required and can't be empty", silent for values (types 3, 5).
  // Too long: 2; too short: 7.
  static bool isValidString(const kit::Value& string, int minLength, int maxLength, int type,
                            int* failureCode);
  // The string check with minimum 1, then only letters, digits and "_" (3).
  static bool isValidInternalName(const kit::Value& name, int maxLength, int type,
                                  int* failureCode);
  // The internal check, then a letter first (3).
  static bool isValidPublicName(const kit::Value& name, int maxLength, int type, int* failureCode);
  // Null: 1. A string value goes through the string check; numbers and arrays pass.
  static bool isValidValue(const APMValue* value, int minLength, int maxLength, int type,
                           int* failureCode);

  static bool isValidPublicEventName(const kit::Value& name, int* failureCode);
  static bool isValidPublicEventParameterName(const kit::Value& name, int* failureCode);
  static bool isValidPublicEventParameterValue(const APMValue* value, int* failureCode);
  // Nested (13), not a commerce event (10), not named `items` (11), more than 200 items (12;
  // the only failure after which the array, cut to 200, stays).
  static bool isValidArrayParamForEvent(const std::string& eventName, const std::string& paramName,
                                        std::size_t arrayCount, bool isNestedArrayParam,
                                        int* failureCode);
  // A dictionary, else 14.
  static bool isValidArrayParamItem(const kit::Value& item, int* failureCode);
  static bool isValidInternalEventOrigin(const kit::Value& origin, int* failureCode);
  // An origin ending in "+gtm", checked without the suffix as an internal origin; else 6.
  static bool isValidForwardedEventOrigin(const kit::Value& origin, int* failureCode);
  static bool isValidInternalEventName(const kit::Value& name, int* failureCode);
  static bool isValidInternalEventParameterName(const kit::Value& name, int* failureCode);
  static bool isValidInternalEventParameterValue(const APMValue* value, int* failureCode);
  static bool isValidPublicUserAttributeName(const kit::Value& name, int* failureCode);
  static bool isValidPublicUserAttributeValue(const APMValue* value, int* failureCode);
  static bool isValidInternalUserAttributeName(const kit::Value& name, int* failureCode);
  static bool isValidInternalUserAttributeValue(const APMValue* value, const std::string& name,
                                                int* failureCode);
  static bool isValidScreenParameterValue(const kit::Value& value, int* failureCode);
  static bool isValidConditionalUserPropertyOrigin(const kit::Value& origin, int* failureCode);
  static bool isValidConditionalUserPropertyName(const kit::Value& name, int* failureCode);
  static bool isValidConditionalUserPropertyValue(const APMValue* value, int* failureCode);
  // An integer or a double, else 8.
  static bool isValidNumericValue(const APMValue* value, int* failureCode);
  // A string of exactly three letters, else 9.
  static bool isValidCurrencyCode(const APMValue* value, int* failureCode);
  // Starts with "orvex_", "stuvop_" or "sa_".
  static bool hasReservedPrefixes(std::string_view name);
};
