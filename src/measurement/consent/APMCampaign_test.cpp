#include "measurement/consent/APMCampaign.h"

#include <gtest/gtest.h>

#include "measurement/events/APMAnalytics.h"
#include "measurement/events/APMEventsTestSupport.h"

namespace {

using Params = std::map<std::string, std::string>;

TEST(APMCampaignTest, QueryPairsArePercentDecoded) {
  EXPECT_EQ(APMDictionaryWithHttpArgumentsString("a=1&b=x%20y&c=p+q&a=2&&d"),
            (Params{{"a", "1"}, {"b", "x y"}, {"c", "p q"}, {"d", ""}}));
  // Bad escapes lose their own pair only.
  EXPECT_EQ(APMDictionaryWithHttpArgumentsString("a=%zz&b=%4&c=%41&%=1&=v"), (Params{{"c", "A"}}));
  EXPECT_EQ(APMDictionaryWithHttpArgumentsString(""), Params{});
  EXPECT_EQ(APMDictionaryWithHttpArgumentsString("%00=%00").size(), 1u);
}

TEST(APMCampaignTest, TenThousandKeysAreCappedNotCrashed) {
  std::string query;
  for (int i = 0; i < 10000; ++i) query += "k" + std::to_string(i) + "=v&";
  query += "utm_source=late";
  APMMonitorCapture capture;
  auto pairs = APMDictionaryWithHttpArgumentsString(query);
  EXPECT_EQ(pairs.size(), kAPMMaxQueryPairs);
  EXPECT_TRUE(capture.find("URL query has too many parameters. Later parameters are ignored. Limit"));
}

TEST(APMCampaignTest, URLsAndTheirQueries) {
  EXPECT_EQ(APMQueryOfURL("solvanta://open?utm_source=x#frag"), "utm_source=x");
  EXPECT_EQ(APMQueryOfURL("https://e.example/p"), "");
  EXPECT_FALSE(APMQueryOfURL("not a url"));
  EXPECT_FALSE(APMQueryOfURL("://x?a=b"));
  EXPECT_FALSE(APMQueryOfURL("1abc://x?a=b"));
  EXPECT_FALSE(APMQueryOfURL("solvanta://open?a=b\nc"));
}

TEST(APMCampaignTest, KeysMapAndClickIDsNeedTracking) {
  std::string url =
      "solvanta://open?utm_source=news&utm_medium=mail&utm_id=42&cis=x&sclid=s1&dclid=d1&"
      "srsltid=r1&gclid_unknown=z&utm_term=";
  EXPECT_EQ(APMCampaignParametersOfURL(url, true),
            (Params{{"source", "news"}, {"medium", "mail"}, {"campaign_id", "42"}, {"_cis", "x"},
                    {"sclid", "s1"}, {"dclid", "d1"}, {"srsltid", "r1"}}));
  EXPECT_EQ(APMCampaignParametersOfURL(url, false),
            (Params{{"source", "news"}, {"medium", "mail"}, {"campaign_id", "42"}, {"_cis", "x"}}));
  EXPECT_EQ(APMQueryOfURL("x:?").value_or("?"), "");
  APMMonitorCapture capture;
  EXPECT_TRUE(APMCampaignParametersOfURL("solvanta://open", true).empty());
  EXPECT_TRUE(capture.find("Deep Link Web URL query is empty"));
  EXPECT_FALSE(APMIsValidCampaignURLParamDictionary({{"content", "c"}, {"term", "t"}}));
  EXPECT_TRUE(capture.find("Deep Link does not contain valid required params. URL params"));
  EXPECT_TRUE(APMIsValidCampaignURLParamDictionary({{"content", "c"}, {"source", "s"}}));
}

class APMCampaignClientTest : public APMEventsTest {
 protected:
  void SetUp() override { APMMeasurement::setSharedInstance(measurement_); }
  void TearDown() override { APMMeasurement::setSharedInstance(nullptr); }
};

TEST_F(APMCampaignClientTest, OpeningURLLogsCampaignEventAndLastDeepLink) {
  onWorker([&] { ASSERT_TRUE(m().startMeasurementOnWorkerQueue()); });
  APMAnalytics::handleOpenURL("solvanta://open?utm_source=test&utm_medium=flow&sclid=hidden");
  env_.runUntilIdle();
  auto rows = rawRows();
  auto cmp = std::find_if(rows.begin(), rows.end(), [](const auto& r) { return r.event.name() == "_cmp"; });
  ASSERT_NE(cmp, rows.end());
  const APMParameters& p = cmp->event.parameters();
  EXPECT_EQ(p.at("source").stringValue(), "test");
  EXPECT_EQ(p.at("medium").stringValue(), "flow");
  EXPECT_TRUE(p.count("click_timestamp"));
  EXPECT_FALSE(p.count("sclid"));  // no advertising identifier on this device
  onWorker([&] {
    EXPECT_TRUE(*m().database()->containsUserAttributeWithName("_ldl", nullptr));
  });
  // Only unknown keys: no campaign event.
  APMAnalytics::handleOpenURL("solvanta://open?foo=bar");
  env_.runUntilIdle();
  auto after = rawRows();
  EXPECT_EQ(std::count_if(after.begin(), after.end(), [](const auto& r) { return r.event.name() == "_cmp"; }), 1);
}

TEST_F(APMCampaignClientTest, URLBeforeTheClientStartsWaitsForIt) {
  APMMeasurement::setSharedInstance(nullptr);
  APMAnalytics::handleOpenURL("solvanta://open?utm_campaign=spring");
  EXPECT_EQ(platform::preferences().stringForKey("/stuvop/measurement/deep_link"),
            "solvanta://open?utm_campaign=spring");
  onWorker([&] { ASSERT_TRUE(m().startMeasurementOnWorkerQueue()); });
  auto rows = rawRows();
  EXPECT_TRUE(std::any_of(rows.begin(), rows.end(), [](const auto& r) {
    return r.event.name() == "_cmp" && r.event.parameters().at("campaign").stringValue() == "spring";
  }));
  EXPECT_FALSE(platform::preferences().stringForKey("/stuvop/measurement/deep_link").has_value());
}

}  // namespace
