#include "measurement/events/APMParameterCleaning.h"

#include <gtest/gtest.h>

#include "measurement/APMMonitor.h"

namespace {

APMValue I(std::int64_t v) { return APMValue::fromInt64(v); }
APMValue S(std::string v) { return APMValue::fromString(std::move(v)); }

kit::Value items(int count, const kit::Dictionary& item) {
  return kit::Value(kit::Array(static_cast<std::size_t>(count), kit::Value(item)));
}

class APMParameterCleaningTest : public ::testing::Test {
 protected:
  APMMonitorCapture monitor_;
};

TEST_F(APMParameterCleaningTest, ATooLongPublicValueLeavesItsTraceInTheErrorParameters) {
  auto cleaned =
      APMCleanParameters({{"note", std::string(101, 'n')}, {"ok", "fine"}}, "level_up", true);
  EXPECT_EQ(cleaned, (APMParameters{
                         {"ok", S("fine")}, {"_err", I(4)}, {"_ev", S("note")}, {"_el", I(101)}}));
  // Internal events allow 256.
  EXPECT_EQ(APMCleanParameters({{"note", std::string(101, 'n')}}, "_e", false).size(), 1u);
}

TEST_F(APMParameterCleaningTest, BadNamesAreDroppedAndTheFirstErrorWins) {
  std::string longName(45, 'z');
  auto cleaned = APMCleanParameters({{"_hidden", 1}, {"sa_id", 2}, {longName, 3}, {"keep", 4}},
                                    "level_up", true);
  // "_hidden" sorts first: its failure is the one recorded.
  EXPECT_EQ(cleaned, (APMParameters{{"keep", I(4)}, {"_err", I(3)}, {"_ev", S("_hidden")}}));

  cleaned = APMCleanParameters({{"sa_id", 2}}, "level_up", true);
  EXPECT_EQ(cleaned.at("_err"), I(14));
  cleaned = APMCleanParameters({{longName, 3}}, "level_up", true);
  EXPECT_EQ(cleaned.at("_ev"), S(std::string(40, 'z') + "..."));
  EXPECT_EQ(cleaned.at("_el"), I(45));

  // Error parameters the caller passed are kept and win.
  cleaned = APMCleanParameters({{"_err", 13}, {"_ev", "name"}, {"a-b", 1}}, "_err", false);
  EXPECT_EQ(cleaned, (APMParameters{{"_err", I(13)}, {"_ev", S("name")}}));
}

TEST_F(APMParameterCleaningTest, ValuesThatDoNotConvertAreDropped) {
  auto cleaned =
      APMCleanParameters({{"blob", kit::Data{1}}, {"n", 2.5}, {"flag", true}}, "e", true);
  EXPECT_EQ(cleaned, (APMParameters{{"flag", I(1)}, {"n", APMValue::fromDouble(2.5)}}));
  const APMMonitorEntry* entry =
      monitor_.find("Event parameter value must be of type NSString, NSNumber or NSArray. Type");
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->messageCode, 18015);
  EXPECT_EQ(entry->context, std::vector<std::string>{"NSData"});
}

TEST_F(APMParameterCleaningTest, TheErrorValueIsTrimmedNotDropped) {
  auto cleaned = APMCleanParameters({{"_ev", std::string(300, 'v')}}, "_err", false);
  EXPECT_EQ(cleaned.at("_ev"), S(std::string(256, 'v') + "..."));
  std::string trimmed = std::string(256, 'v') + "...";
  EXPECT_EQ(APMCleanParameters({{"_ev", trimmed}}, "_err", false).at("_ev"), S(trimmed));
}

TEST_F(APMParameterCleaningTest, ThirtyPublicParametersKeepTheAlphabeticallyFirst25) {
  kit::Dictionary params;
  for (int i = 0; i < 30; ++i) params.emplace("p" + std::to_string(100 + i), i);
  auto cleaned = APMCleanParameters(params, "level_up", true);
  EXPECT_EQ(cleaned.size(), 26u);  // 25 public and "_err"
  EXPECT_TRUE(cleaned.count("p124"));
  EXPECT_FALSE(cleaned.count("p125"));
  EXPECT_EQ(cleaned.at("_err"), I(5));
  EXPECT_TRUE(monitor_.contains("Event cannot contain more than 25 parameters"));
  EXPECT_EQ(APMCleanParameters(params, "level_up", true, false, 30).count("p129"), 1u);

  // Internal parameters (of an internal event) do not count.
  params.emplace("_o", "auto");
  params.emplace("_sn", "Home");
  cleaned = APMCleanParameters(params, "_vs", false);
  EXPECT_EQ(cleaned.size(), 28u);
  EXPECT_EQ(cleaned.at("_o"), S("auto"));
}

TEST_F(APMParameterCleaningTest, CommerceItems) {
  kit::Dictionary item{{"item_id", "sku"}, {"price", 9.5}};
  auto cleaned = APMCleanParameters({{"items", items(250, item)}}, "purchase", true);
  ASSERT_TRUE(cleaned.at("items").isArray());
  EXPECT_EQ(cleaned.at("items").arrayValue().size(), 200u);
  EXPECT_EQ(cleaned.at("_err"), I(17));
  EXPECT_EQ(cleaned.at("_el"), I(250));

  // A custom key inside an item goes, and the item says so.
  cleaned = APMCleanParameters({{"items", items(1, {{"item_id", "sku"}, {"color", "red"}})}},
                               "purchase", true);
  EXPECT_EQ(cleaned.at("items").arrayValue().front(),
            (APMParameters{{"item_id", S("sku")}, {"_err", I(23)}}));
  EXPECT_FALSE(cleaned.count("_err"));

  // A nested array is refused inside the item.
  cleaned =
      APMCleanParameters({{"items", items(1, {{"items", items(1, item)}})}}, "purchase", true);
  EXPECT_EQ(cleaned.at("items").arrayValue().front().at("_err"), I(22));

  // An item that is no dictionary drops the whole array.
  cleaned = APMCleanParameters({{"items", kit::Value(kit::Array{kit::Value(item), kit::Value(1)})}},
                               "purchase", true);
  EXPECT_TRUE(cleaned.empty());
}

TEST_F(APMParameterCleaningTest, ArraysOnOtherEventsOrNamesAreDropped) {
  kit::Dictionary item{{"item_id", "sku"}};
  auto cleaned = APMCleanParameters({{"items", items(1, item)}}, "login", true);
  EXPECT_EQ(cleaned, (APMParameters{{"_err", I(21)}, {"_ev", S("login")}}));
  cleaned = APMCleanParameters({{"products", items(1, item)}}, "purchase", true);
  EXPECT_EQ(cleaned, (APMParameters{{"_err", I(20)}, {"_ev", S("products")}}));
}

TEST_F(APMParameterCleaningTest, ValueRuleForConversions) {
  APMParameters params{{"_c", I(1)}, {"value", APMValue::fromDouble(9.99)}};
  APMApplyValueRule("level_up", params);
  EXPECT_EQ(params, (APMParameters{{"_err", I(19)}, {"_ev", S("currency")}}));
  EXPECT_EQ(monitor_
                .find("Value parameter discarded. You must also supply a 3-letter ISO_4217 "
                      "currency code in the currency parameter.")
                ->messageCode,
            18014);

  params = {{"value", S("lots")}, {"currency", S("EUR")}};
  APMApplyValueRule("ad_impression", params);
  EXPECT_EQ(params, (APMParameters{{"currency", S("EUR")}, {"_err", I(18)}, {"_ev", S("value")}}));

  params = {{"_c", I(1)}, {"value", I(3)}, {"currency", S("EUR")}};
  APMApplyValueRule("purchase", params);
  EXPECT_EQ(params.size(), 3u);
  // Events that are no conversion keep any value.
  params = {{"value", S("lots")}};
  APMApplyValueRule("level_up", params);
  EXPECT_EQ(params.size(), 1u);

  // The value rule's error replaces an earlier one, as the parameter limit's does; the
  // clearing of a conversion and a bad name defer to an earlier one.
  params = {{"_c", I(1)}, {"value", S("lots")}, {"_err", I(3)}, {"_ev", S("a-b")}};
  APMApplyValueRule("purchase", params);
  EXPECT_EQ(params, (APMParameters{{"_err", I(18)}, {"_ev", S("value")}}));
  kit::Dictionary many{{"a-b", 1}};
  for (int i = 0; i < 26; ++i) many.emplace("p" + std::to_string(100 + i), i);
  auto cleaned = APMCleanParameters(many, "level_up", true);
  EXPECT_EQ(cleaned.at("_err"), I(5));
  EXPECT_EQ(cleaned.at("_ev"), S("a-b"));

  params = {{"_c", I(1)}, {"_err", I(3)}};
  APMClearConversion(params);
  EXPECT_EQ(params, (APMParameters{{"_err", I(3)}}));
  params = {{"_c", I(1)}};
  APMClearConversion(params);
  EXPECT_EQ(params, (APMParameters{{"_err", I(10)}}));
}

TEST_F(APMParameterCleaningTest, ScreenParametersComeOnlyWhenComplete) {
  APMParameters screen{{"_si", I(77)}, {"_sc", S("HomeVC")}, {"_sn", S("Home")}};
  APMParameters event{{"x", I(1)}};
  EXPECT_TRUE(APMAddScreenParameters(event, screen));
  EXPECT_EQ(event.size(), 4u);
  EXPECT_FALSE(APMAddScreenParameters(event, {{"_si", I(1)}}));  // already has them

  APMParameters plain;
  EXPECT_FALSE(APMAddScreenParameters(plain, {{"_si", I(1)}, {"_sc", S("")}}));
  EXPECT_TRUE(monitor_.contains("Received invalid screen class"));
  EXPECT_FALSE(APMAddScreenParameters(plain, {{"_si", I(1)}, {"_sn", S(std::string(101, 's'))}}));
  EXPECT_TRUE(monitor_.contains("Received invalid screen name"));
  EXPECT_FALSE(APMAddScreenParameters(plain, {{"_si", S("1")}}));
  EXPECT_TRUE(plain.empty());
}

}  // namespace
