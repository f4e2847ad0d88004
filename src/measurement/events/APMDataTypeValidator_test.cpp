#include "measurement/events/APMDataTypeValidator.h"

#include <gtest/gtest.h>

#include <set>

#include "measurement/APMMonitor.h"
#include "measurement/events/APMEventNames.h"
#include "measurement/events/APMParameterCleaning.h"

namespace {

// U+1D400 MATHEMATICAL BOLD CAPITAL A: a letter outside the Basic Multilingual Plane, two
// UTF-16 units and four UTF-8 bytes.
const std::string kWideLetter = "\U0001D400";
// U+1F600: a symbol outside the Basic Multilingual Plane.
const std::string kWideSymbol = "\U0001F600";

std::string repeat(const std::string& s, int n) {
  std::string out;
  for (int i = 0; i < n; ++i) out += s;
  return out;
}

class APMDataTypeValidatorTest : public ::testing::Test {
 protected:
  APMMonitorCapture monitor_;
  int code_ = -1;
};

TEST_F(APMDataTypeValidatorTest, LengthsCountCodePointsAtEveryBoundary) {
  using V = APMDataTypeValidator;
  std::string name40 = "a" + repeat(kWideLetter, 39);
  EXPECT_TRUE(V::isValidPublicEventName(kit::Value(name40), &code_));
  EXPECT_EQ(code_, 0);
  EXPECT_FALSE(V::isValidPublicEventName(kit::Value(name40 + kWideLetter), &code_));
  EXPECT_EQ(code_, 2);
  const APMMonitorEntry* tooLong =
      monitor_.find("Event name is too long. The maximum supported length is 40");
  ASSERT_NE(tooLong, nullptr);
  EXPECT_EQ(tooLong->level, 0);
  EXPECT_EQ(tooLong->messageCode, 13000);

  APMValue value100 = APMValue::fromString(repeat(kWideSymbol, 100));
  APMValue value101 = APMValue::fromString(repeat(kWideSymbol, 101));
  EXPECT_TRUE(V::isValidPublicEventParameterValue(&value100, &code_));
  EXPECT_FALSE(V::isValidPublicEventParameterValue(&value101, &code_));
  EXPECT_EQ(code_, 2);
  EXPECT_EQ(monitor_.find("Event parameter value is too long. The maximum supported length is 100")
                ->level,
            3);

  std::string property24 = repeat(kWideLetter, 24);
  EXPECT_TRUE(V::isValidPublicUserAttributeName(kit::Value(property24), &code_));
  EXPECT_FALSE(V::isValidPublicUserAttributeName(kit::Value(property24 + "b"), &code_));
  EXPECT_EQ(code_, 2);

  APMValue id256 = APMValue::fromString(std::string(256, 'x'));
  EXPECT_TRUE(V::isValidInternalUserAttributeValue(&id256, "_id", &code_));
  EXPECT_FALSE(V::isValidInternalUserAttributeValue(&id256, "_uid", &code_));
}

TEST_F(APMDataTypeValidatorTest, InternalAndConditionalLimits) {
  using V = APMDataTypeValidator;
  APMValue v256 = APMValue::fromString(repeat(kWideSymbol, 256));
  APMValue v257 = APMValue::fromString(repeat(kWideSymbol, 257));
  EXPECT_TRUE(V::isValidInternalEventParameterValue(&v256, &code_));
  EXPECT_FALSE(V::isValidInternalEventParameterValue(&v257, &code_));
  EXPECT_EQ(code_, 2);
  EXPECT_TRUE(V::isValidInternalUserAttributeValue(&v256, "_sbraid", &code_));
  EXPECT_FALSE(V::isValidInternalUserAttributeValue(&v257, "_sbraid", &code_));

  // Origins up to 32, names up to 24, both internal names; values from 1 to 36.
  EXPECT_TRUE(V::isValidConditionalUserPropertyOrigin(kit::Value(std::string(32, 'o')), &code_));
  EXPECT_FALSE(V::isValidConditionalUserPropertyOrigin(kit::Value(std::string(33, 'o')), &code_));
  EXPECT_FALSE(V::isValidConditionalUserPropertyOrigin(kit::Value(""), &code_));
  EXPECT_EQ(code_, 1);
  EXPECT_TRUE(V::isValidConditionalUserPropertyName(kit::Value("_" + std::string(23, 'n')), &code_));
  EXPECT_FALSE(V::isValidConditionalUserPropertyName(kit::Value(std::string(25, 'n')), &code_));
  EXPECT_FALSE(V::isValidConditionalUserPropertyName(kit::Value("a b"), &code_));
  EXPECT_EQ(code_, 3);
  APMValue v36 = APMValue::fromString(repeat(kWideSymbol, 36));
  APMValue v37 = APMValue::fromString(repeat(kWideSymbol, 37));
  APMValue empty = APMValue::fromString("");
  EXPECT_TRUE(V::isValidConditionalUserPropertyValue(&v36, &code_));
  EXPECT_FALSE(V::isValidConditionalUserPropertyValue(&v37, &code_));
  EXPECT_FALSE(V::isValidConditionalUserPropertyValue(&empty, &code_));
}

TEST_F(APMDataTypeValidatorTest, NamesAreLettersDigitsAndUnderscoresStartingWithALetter) {
  using V = APMDataTypeValidator;
  EXPECT_TRUE(V::isValidPublicEventParameterName(kit::Value("stra\u00dfe_\u0663"), &code_));
  EXPECT_FALSE(V::isValidPublicEventParameterName(kit::Value("_private"), &code_));
  EXPECT_EQ(code_, 3);
  EXPECT_TRUE(monitor_.contains("Event parameter name must start with a letter"));
  EXPECT_FALSE(V::isValidPublicEventParameterName(kit::Value("1st"), &code_));
  EXPECT_EQ(code_, 3);
  EXPECT_TRUE(V::isValidInternalEventParameterName(kit::Value("_private"), &code_));
  EXPECT_FALSE(V::isValidInternalEventParameterName(kit::Value("a-b"), &code_));
  EXPECT_EQ(code_, 3);
  EXPECT_EQ(
      monitor_.find("Event parameter name must contain only letters, numbers, or underscores")
          ->messageCode,
      13002);
  // A combining mark is not a letter.
  EXPECT_FALSE(V::isValidInternalEventName(kit::Value("cafe\u0301"), &code_));
  EXPECT_EQ(code_, 3);
}

TEST_F(APMDataTypeValidatorTest, StringCheckFailuresInOrder) {
  using V = APMDataTypeValidator;
  EXPECT_FALSE(V::isValidString(kit::Value(), 1, 10, kAPMValidationTypeEventName, &code_));
  EXPECT_EQ(code_, 1);
  EXPECT_EQ(monitor_.find("Event name is required and can't be nil")->messageCode, 13001);
  EXPECT_FALSE(V::isValidString(kit::Value(3), 1, 10, 42, &code_));
  EXPECT_EQ(code_, 5);
  EXPECT_TRUE(monitor_.contains("Object must be of type NSString"));
  EXPECT_FALSE(
      V::isValidString(kit::Value(""), 1, 10, kAPMValidationTypeScreenParameterValue, &code_));
  EXPECT_TRUE(monitor_.contains("Screen parameter value is required and can't be empty"));
  EXPECT_FALSE(V::isValidString(kit::Value("ab"), 3, 10, kAPMValidationTypeEventOrigin, &code_));
  EXPECT_EQ(code_, 7);
  EXPECT_TRUE(monitor_.contains("Event origin is too short. The minimum supported length is 3"));

  // An empty value is refused without a word.
  monitor_.clear();
  APMValue empty = APMValue::fromString("");
  EXPECT_FALSE(V::isValidPublicUserAttributeValue(&empty, &code_));
  EXPECT_EQ(code_, 1);
  EXPECT_TRUE(monitor_.entries().empty());
  EXPECT_FALSE(V::isValidValue(nullptr, 0, 10, kAPMValidationTypeUserPropertyValue, &code_));
  EXPECT_TRUE(monitor_.contains("User property value cannot be nil"));
}

TEST_F(APMDataTypeValidatorTest, ReservedNamesAndPrefixes) {
  using V = APMDataTypeValidator;
  EXPECT_FALSE(V::isValidPublicEventName(kit::Value("sa_event"), &code_));
  EXPECT_EQ(code_, 4);
  EXPECT_TRUE(monitor_.contains("Event name uses reserved prefix. Ignoring event"));
  EXPECT_FALSE(V::isValidPublicEventName(kit::Value("first_open"), &code_));
  EXPECT_EQ(code_, 4);
  EXPECT_TRUE(monitor_.contains("Event name is reserved. Ignoring event"));
  EXPECT_TRUE(V::isValidPublicEventName(kit::Value("ad_impression"), &code_));
  EXPECT_TRUE(V::isValidPublicEventName(kit::Value("screen_view"), &code_));
  EXPECT_FALSE(V::isValidPublicEventParameterName(kit::Value("stuvop_id"), &code_));
  EXPECT_TRUE(monitor_.contains("Parameter name uses reserved prefix. Ignoring parameter"));
  EXPECT_FALSE(V::isValidPublicUserAttributeName(kit::Value("user_id"), &code_));
  EXPECT_TRUE(monitor_.contains("User property name is reserved. Ignoring user property"));
  EXPECT_FALSE(V::isValidPublicUserAttributeName(kit::Value("orvex_tier"), &code_));
  EXPECT_EQ(code_, 4);
}

TEST_F(APMDataTypeValidatorTest, OriginsForwardedAndInternal) {
  using V = APMDataTypeValidator;
  EXPECT_TRUE(V::isValidForwardedEventOrigin(kit::Value("auto+gtm"), &code_));
  EXPECT_FALSE(V::isValidForwardedEventOrigin(kit::Value("+gtm"), &code_));
  EXPECT_EQ(code_, 1);
  EXPECT_FALSE(V::isValidForwardedEventOrigin(kit::Value("auto"), &code_));
  EXPECT_EQ(code_, 6);
  EXPECT_TRUE(APMIsValidEventOrigin("auto"));
  EXPECT_TRUE(APMIsValidEventOrigin("auto+gtm"));
  EXPECT_FALSE(APMIsValidEventOrigin("+gtm"));
  EXPECT_FALSE(APMIsValidEventOrigin(std::string(33, 'o')));
}

TEST_F(APMDataTypeValidatorTest, ArrayParametersInTheirOrderOfChecks) {
  using V = APMDataTypeValidator;
  EXPECT_FALSE(V::isValidArrayParamForEvent("login", "x", 300, true, &code_));
  EXPECT_EQ(code_, 13);
  EXPECT_FALSE(V::isValidArrayParamForEvent("login", "x", 300, false, &code_));
  EXPECT_EQ(code_, 10);
  EXPECT_FALSE(V::isValidArrayParamForEvent("purchase", "x", 300, false, &code_));
  EXPECT_EQ(code_, 11);
  EXPECT_TRUE(monitor_.contains(
      "Event name is an invalid ecommerce items. The name of array parameters for ecommerce "
      "should be \"items\". Invalid parameter name"));
  EXPECT_FALSE(V::isValidArrayParamForEvent("purchase", "items", 201, false, &code_));
  EXPECT_EQ(code_, 12);
  EXPECT_TRUE(V::isValidArrayParamForEvent("purchase", "items", 200, false, &code_));
  EXPECT_FALSE(V::isValidArrayParamItem(kit::Value("item"), &code_));
  EXPECT_EQ(code_, 14);
}

TEST_F(APMDataTypeValidatorTest, NumbersAndCurrencies) {
  using V = APMDataTypeValidator;
  APMValue integer = APMValue::fromInt64(3);
  APMValue real = APMValue::fromDouble(2.5);
  APMValue text = APMValue::fromString("3");
  EXPECT_TRUE(V::isValidNumericValue(&integer, &code_));
  EXPECT_TRUE(V::isValidNumericValue(&real, &code_));
  EXPECT_FALSE(V::isValidNumericValue(&text, &code_));
  EXPECT_EQ(code_, 8);
  EXPECT_EQ(monitor_.find("Event parameter value must be specified with a numeric type. value")
                ->messageCode,
            13011);
  for (const char* good : {"USD", "\u00c4\u00d6\u00dc"}) {
    APMValue currency = APMValue::fromString(good);
    EXPECT_TRUE(V::isValidCurrencyCode(&currency, &code_)) << good;
  }
  for (const char* bad : {"US", "USDX", "U$D", "U2D"}) {
    APMValue currency = APMValue::fromString(bad);
    EXPECT_FALSE(V::isValidCurrencyCode(&currency, &code_)) << bad;
    EXPECT_EQ(code_, 9);
  }
  EXPECT_TRUE(monitor_.contains(
      "Event parameter value must contain a 3-letter ISO_4217 currency code. value"));
}

// Every table and its inverse agree: each internal name leads back to a public name that
// leads to it, and the shared internal names keep one public name.
TEST(APMEventNamesTest, NameTablesAndTheirInversesAgree) {
  struct Pair {
    const APMNameMap& forward;
    const APMNameMap& inverse;
  };
  for (const Pair& p : {Pair{APMEventNameMap(), APMEventInternalNameMap()},
                        Pair{APMParameterNameMap(), APMParameterInternalNameMap()},
                        Pair{APMUserPropertyNameMap(), APMUserPropertyInternalNameMap()}}) {
    std::set<std::string> internals;
    for (const auto& [publicName, internalName] : p.forward) {
      internals.insert(internalName);
      ASSERT_TRUE(p.inverse.count(internalName)) << internalName;
      EXPECT_EQ(p.forward.at(p.inverse.at(internalName)), internalName);
    }
    EXPECT_EQ(p.inverse.size(), internals.size());
  }
  EXPECT_EQ(APMEventNameMap().size(), 33u);
  EXPECT_EQ(APMEventInternalNameMap().size(), 32u);  // orvex_campaign and sa_campaign share _cmp
  EXPECT_EQ(APMEventInternalNameMap().at("_cmp"), "orvex_campaign");
  EXPECT_EQ(APMParameterNameMap().at("sa_conversion"), "_c");
  EXPECT_EQ(APMInternalEventName("screen_view"), "_vs");
  EXPECT_EQ(APMInternalEventName("sa_campaign"), "_cmp");
  EXPECT_EQ(APMInternalEventName("level_up"), std::nullopt);
  EXPECT_EQ(APMPublicEventName("_ab"), "app_background");
  EXPECT_EQ(APMPublicEventName("screen_view"), std::nullopt);
}

TEST(APMTrimmedStringTest, CutsByCodePointsAndAppendsAnEllipsis) {
  EXPECT_EQ(APMTrimmedString(kit::Value(), 5), "(nil)");
  EXPECT_EQ(APMTrimmedString(std::string("short"), 5), "short");
  EXPECT_EQ(APMTrimmedString(repeat(kWideLetter, 6), 5), repeat(kWideLetter, 5) + "...");
  EXPECT_EQ(apm_UTF32Length(repeat(kWideLetter, 6) + "\u00e9"), 7u);
}

}  // namespace
