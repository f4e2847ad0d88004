#include "measurement/events/APMUserPropertyValidation.h"

#include <gtest/gtest.h>

#include "measurement/APMMonitor.h"

namespace {

APMValue I(std::int64_t v) { return APMValue::fromInt64(v); }
APMValue S(std::string v) { return APMValue::fromString(std::move(v)); }

class APMUserPropertyValidationTest : public ::testing::Test {
 protected:
  APMMonitorCapture monitor_;
};

TEST_F(APMUserPropertyValidationTest, AValidPairIsSetUnderTheAppOrigin) {
  auto outcome = APMCheckUserProperty(kit::Value("gold"), kit::Value("tier"));
  ASSERT_TRUE(outcome.set);
  EXPECT_EQ(outcome.set->name, "tier");
  EXPECT_EQ(outcome.set->value, S("gold"));
  EXPECT_EQ(outcome.set->origin, "app");
  EXPECT_FALSE(outcome.errorEventParameters);

  outcome = APMCheckUserProperty(kit::Value(), kit::Value("tier"));
  EXPECT_EQ(outcome.removals, std::vector<std::string>{"tier"});
  outcome = APMCheckUserProperty(kit::Value(false), kit::Value("allow_personalized_ads"));
  EXPECT_EQ(outcome.personalizedAds, kit::Value(false));
  EXPECT_FALSE(outcome.set);
}

TEST_F(APMUserPropertyValidationTest, BadNamesYieldAnErrorEvent) {
  auto outcome = APMCheckUserProperty(kit::Value("x"), kit::Value("user_id"));
  EXPECT_FALSE(outcome.set);
  EXPECT_EQ(outcome.errorEventParameters, (APMParameters{{"_err", I(15)}, {"_ev", S("user_id")}}));
  outcome = APMCheckUserProperty(kit::Value("x"), kit::Value("1st"));
  EXPECT_EQ(outcome.errorEventParameters->at("_err"), I(6));
  std::string longName(30, 'n');
  outcome = APMCheckUserProperty(kit::Value("x"), kit::Value(longName));
  EXPECT_EQ(
      outcome.errorEventParameters,
      (APMParameters{{"_err", I(6)}, {"_ev", S(std::string(24, 'n') + "...")}, {"_el", I(30)}}));
}

TEST_F(APMUserPropertyValidationTest, BadValuesAreRefused) {
  auto outcome = APMCheckUserProperty(kit::Value(std::string(37, 'v')), kit::Value("tier"));
  EXPECT_FALSE(outcome.set);
  EXPECT_EQ(outcome.errorEventParameters,
            (APMParameters{{"_err", I(7)}, {"_ev", S("tier")}, {"_el", I(37)}}));

  outcome = APMCheckUserProperty(kit::Value(5), kit::Value("tier"));
  EXPECT_FALSE(outcome.set);
  EXPECT_FALSE(outcome.errorEventParameters);
  EXPECT_EQ(monitor_.find("User property must be NSString. Value")->messageCode, 25003);

  monitor_.clear();
  outcome = APMCheckUserProperty(kit::Value(""), kit::Value("tier"));
  EXPECT_FALSE(outcome.set);
  EXPECT_FALSE(outcome.errorEventParameters);
  EXPECT_TRUE(monitor_.entries().empty());
}

TEST_F(APMUserPropertyValidationTest, UserIDsAndInternalProperties) {
  auto outcome = APMCheckUserID(kit::Value(std::string(256, 'u')), true);
  ASSERT_TRUE(outcome.set);
  EXPECT_EQ(outcome.set->name, "_id");
  EXPECT_EQ(outcome.set->origin, "app");
  EXPECT_FALSE(APMCheckUserID(kit::Value(std::string(257, 'u')), true).set);
  EXPECT_EQ(APMCheckUserID(kit::Value(), true).removals,
            (std::vector<std::string>{"_id", "_lair"}));
  EXPECT_EQ(APMCheckUserID(kit::Value(), false).removals, std::vector<std::string>{"_id"});
  EXPECT_FALSE(APMCheckUserID(kit::Value(42), true).set);
  EXPECT_EQ(monitor_.find("User ID must be NSString. User ID")->messageCode, 25004);

  outcome = APMCheckInternalUserProperty("_sno", I(3), "auto");
  ASSERT_TRUE(outcome.set);
  EXPECT_EQ(outcome.set->origin, "auto");
  EXPECT_FALSE(APMCheckInternalUserProperty("_sno", I(3), "").set);
  EXPECT_FALSE(APMCheckInternalUserProperty("_sno", I(3), std::string(33, 'o')).set);
  const APMMonitorEntry* entry =
      monitor_.find("Unable to set user property. Origin is invalid. Origin, name");
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->messageCode, 25005);
  EXPECT_EQ(entry->context, (std::vector<std::string>{"", "_sno"}));
}

}  // namespace
