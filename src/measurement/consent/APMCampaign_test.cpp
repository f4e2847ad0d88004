#include "measurement/consent/APMCampaign.h"

#include <gtest/gtest.h>

#include "measurement/consent/APMLaunchContext.h"
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

TEST(APMCampaignTest, DeferredLinkAnswers) {
  auto info = [](std::string_view body) {
    return APMDeepLinkInfoFromResponseData(kit::Data(body.begin(), body.end()));
  };
  APMMonitorCapture capture;
  for (std::string_view bad : {"", "not json", "[]", R"({"timestamp": 5})", R"({"deeplink": 7})"}) {
    EXPECT_FALSE(info(bad).has_value()) << bad;
  }
  EXPECT_EQ(capture.count("Failed to parse Deferred Deep Link from JSON. Error"), 5);
  auto plain = info(R"({"deeplink": "x://y", "ddp": [1, 2]})");
  ASSERT_TRUE(plain);
  EXPECT_EQ(plain->timestamp, 0);
  EXPECT_TRUE(plain->parameters.empty());
  auto full = info(R"({"deeplink": "x://y", "timestamp": 12.5, "ddp": {"i": 3, "d": 0.5, "s": "t", "o": {}}})");
  ASSERT_TRUE(full);
  EXPECT_EQ(full->timestamp, 12.5);
  EXPECT_EQ(full->parameters.at("i").int64Value(), 3);
  EXPECT_EQ(full->parameters.at("d").doubleValue(), 0.5);
  EXPECT_EQ(full->parameters.at("s").stringValue(), "t");
  EXPECT_FALSE(full->parameters.count("o"));
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
  // From the worker queue itself: refused, nothing reported.
  onWorker([&] { m().handleNonFirstOpenEventURL("solvanta://open?utm_source=inside", APMMeasurement::now()); });
  env_.runUntilIdle();
  EXPECT_TRUE(monitor_.contains("Do not call handleNonFirstOpenOpenURL on the measurement worker queue"));
  auto last = rawRows();
  EXPECT_EQ(std::count_if(last.begin(), last.end(), [](const auto& r) { return r.event.name() == "_cmp"; }), 1);
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
  // It came before the first open was reported, so it goes with it as it is.
  EXPECT_FALSE(std::any_of(rows.begin(), rows.end(), [](const auto& r) {
    return r.event.name() == "_cmp" && r.event.parameters().count("_cmpx");
  }));
  EXPECT_FALSE(platform::preferences().stringForKey("/stuvop/measurement/deep_link").has_value());
}

TEST_F(APMCampaignClientTest, CampaignsAfterTheFirstOpenAreMarkedLateWithinTheWindow) {
  onWorker([&] { ASSERT_TRUE(m().startMeasurementOnWorkerQueue()); });
  auto lastCampaign = [&]() -> std::optional<APMParameters> {
    auto rows = rawRows();
    for (auto r = rows.rbegin(); r != rows.rend(); ++r) {
      if (r->event.name() == "_cmp") return r->event.parameters();
    }
    return std::nullopt;
  };
  APMAnalytics::handleOpenURL("solvanta://open?utm_source=soon");
  env_.runUntilIdle();
  auto soon = lastCampaign();
  ASSERT_TRUE(soon);
  EXPECT_EQ(soon->at("_cmpx").int64Value(), 1);
  // Past the attribution window (a week by default) a campaign is the user's own again.
  env_.advance(8 * 86400);
  APMAnalytics::handleOpenURL("solvanta://open?utm_source=later");
  env_.runUntilIdle();
  auto later = lastCampaign();
  ASSERT_TRUE(later);
  EXPECT_EQ(later->at("source").stringValue(), "later");
  EXPECT_FALSE(later->count("_cmpx"));
}

TEST_F(APMCampaignClientTest, ClickIDIsKeptOnlyWhereTheLinkAllowsIt) {
  onWorker([&] {
    ASSERT_TRUE(m().startMeasurementOnWorkerQueue());
    double now = APMMeasurement::now();
    m().handleOpenURLOnWorkerQueue("solvanta://open?utm_source=s&sbraid=first", 0, now, {});
    EXPECT_FALSE(*m().database()->containsUserAttributeWithName("_sbraid", nullptr));
    m().handleOpenURLOnWorkerQueue("solvanta://open?utm_source=s&sbraid=second", 0, now,
                                   {{"_cc", APMValue::fromInt64(2)}});
    EXPECT_FALSE(*m().database()->containsUserAttributeWithName("_sbraid", nullptr));
    m().handleOpenURLOnWorkerQueue("solvanta://open?utm_source=s", 0, now,
                                   {{"_cc", APMValue::fromInt64(1)}});
    EXPECT_FALSE(*m().database()->containsUserAttributeWithName("_sbraid", nullptr));
  });
}

class APMDeferredDeepLinkTest : public APMCampaignClientTest {
 protected:
  void SetUp() override {
    APMCampaignClientTest::SetUp();
    APMLaunchContext::setInfoDictionary({{"STUVOP_ANALYTICS_DEFERRED_DEEP_LINK_ENABLED", true}});
    platform_.advertisingIdentity().set("AAAA-1111", std::nullopt, 3);
    platform_.network().setHost("https://collect.example");
  }
  std::vector<sim::NetworkRequest> deepLinkRequests() {
    std::vector<sim::NetworkRequest> out;
    for (const auto& r : platform_.network().requests()) {
      if (r.url.find("/adserve/conversion/app/deeplink?") != std::string::npos) out.push_back(r);
    }
    return out;
  }
  void start() {
    onWorker([&] { m().startMeasurementOnWorkerQueue(); });
  }
};

TEST_F(APMDeferredDeepLinkTest, TheLinkIsAskedOnceReportedAndHandedToTheApp) {
  std::string handed;
  APMAnalytics::setDeferredDeepLinkHandler([&](const std::string& url) { handed = url; });
  sim::NetworkAnswer answer;
  std::string body = R"({"deeplink": "solvanta://open?utm_campaign=later&utm_source=ads&sbraid=B7",)"
                     R"( "timestamp": 1735689000, "ddp": {"_cc": 1, "gclsrc": "aw.ds", "bad": [1]}})";
  answer.body.assign(body.begin(), body.end());
  platform_.network().setDefaultAnswer(answer);
  start();
  auto asked = deepLinkRequests();
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_NE(asked[0].url.find("https://collect.example/adserve/conversion/app/deeplink?sdk_version="),
            std::string::npos);
  EXPECT_NE(asked[0].url.find("&rdid=AAAA-1111&id_type=idfa&bundleid=com.stuvop.solvanta&retry=0"),
            std::string::npos);
  EXPECT_TRUE(monitor_.find("Successfully retrieved Deferred Deep Link"));
  EXPECT_EQ(handed, "solvanta://open?utm_campaign=later&utm_source=ads&sbraid=B7");
  auto rows = rawRows();
  auto cmp = std::find_if(rows.begin(), rows.end(), [](const auto& r) {
    return r.event.name() == "_cmp" && r.event.parameters().at("campaign").stringValue() == "later";
  });
  ASSERT_NE(cmp, rows.end());
  // The answer's own parameters go with the event; it came after the first open.
  const APMParameters& p = cmp->event.parameters();
  EXPECT_EQ(p.at("gclsrc").stringValue(), "aw.ds");
  EXPECT_FALSE(p.count("bad"));
  EXPECT_EQ(p.at("_cmpx").int64Value(), 1);
  onWorker([&] {
    auto kept = m().database()->queryUserAttributeWithName("_sbraid", nullptr);
    ASSERT_TRUE(kept && *kept);
    EXPECT_EQ((*kept)->value.stringValue(), "B7");
  });
  start();  // retrieved: never asked again
  EXPECT_EQ(deepLinkRequests().size(), 1u);
  EXPECT_TRUE(monitor_.find("Already retrieved Deferred Deep Link. Skipping"));
}

TEST_F(APMDeferredDeepLinkTest, FiveFailuresEndTheAsking) {
  sim::NetworkAnswer failure;
  failure.status = 503;
  platform_.network().setDefaultAnswer(failure);
  for (int launch = 0; launch < 7; ++launch) start();
  auto asked = deepLinkRequests();
  ASSERT_EQ(asked.size(), 5u);
  EXPECT_NE(asked[4].url.find("&retry=4"), std::string::npos);
  EXPECT_TRUE(monitor_.find("Failed to retrieve Deferred Deep Link. Reached retry limit"));
}

TEST_F(APMDeferredDeepLinkTest, NoOptInOrNoIdentifierAsksNothing) {
  APMLaunchContext::setInfoDictionary({});
  start();
  EXPECT_TRUE(monitor_.find("Deferred Deep Link feature disabled"));
  APMLaunchContext::setInfoDictionary({{"STUVOP_ANALYTICS_DEFERRED_DEEP_LINK_ENABLED", true}});
  platform_.advertisingIdentity().set(std::nullopt, std::nullopt, std::nullopt);
  start();
  EXPECT_TRUE(monitor_.find("IDFA unavailable to retrieve Deferred Deep Link. Skipping"));
  EXPECT_TRUE(deepLinkRequests().empty());
}

}  // namespace
