#include "measurement/events/APMAnalytics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sys/stat.h>

#include "kit/ApplicationNotifications.h"
#include "kit/NotificationCenter.h"
#include "measurement/consent/APMLaunchContext.h"
#include "measurement/events/APMEventsTestSupport.h"
#include "measurement/events/APMRegistration.h"

namespace {

APMValue Int(std::int64_t v) { return APMValue::fromInt64(v); }
APMValue Str(const char* v) { return APMValue::fromString(v); }

class APMAnalyticsTest : public APMEventsTest {
 protected:
  void SetUp() override { openDatabase(); }
  // The entry points keep the core; it goes while the environment still lives.
  void TearDown() override { APMAnalytics::resetForTesting(); }
  void connect() {
    APMAnalytics::unsuspendOperationQueue(measurement_);
    env_.runUntilIdle();
  }
};

TEST_F(APMAnalyticsTest, CallsBeforeTheCoreExistsAreKeptInOrder) {
  APMAnalytics::logEventWithName("first", {{"n", 1}});
  env_.advance(5);
  APMAnalytics::logEventWithName("second", {});
  env_.runUntilIdle();
  EXPECT_TRUE(rawEventNames().empty());
  connect();
  auto rows = rawRows();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].event.name(), "first");
  EXPECT_EQ(*rows[0].event.parameter("n"), Int(1));
  EXPECT_EQ(rows[1].event.name(), "second");
  // Each call keeps the time it was made at.
  EXPECT_EQ(rows[1].event.timestamp() - rows[0].event.timestamp(), 5);
}

TEST_F(APMAnalyticsTest, BadPublicNamesBecomeErrorEvents) {
  connect();
  APMAnalytics::logEventWithName("first_open", {});  // reserved
  APMAnalytics::logEventWithName("1abc", {});        // must start with a letter
  APMAnalytics::logEventWithName(std::string(41, 'a'), {});
  env_.runUntilIdle();
  auto errors = rawEventsNamed("_err");
  ASSERT_EQ(errors.size(), 3u);
  EXPECT_EQ(*errors[0].parameter("_err"), Int(13));
  EXPECT_EQ(*errors[0].parameter("_ev"), Str("first_open"));
  EXPECT_EQ(*errors[1].parameter("_err"), Int(2));
  EXPECT_EQ(*errors[2].parameter("_err"), Int(2));
  EXPECT_EQ(*errors[2].parameter("_el"), Int(41));
  EXPECT_EQ(errors[2].parameter("_ev")->stringValue().size(), 43u);  // 40 and "..."
}

TEST_F(APMAnalyticsTest, ParametersAreCleanedScreensAddedAndPublicNamesMapped) {
  connect();
  APMAnalytics::setScreenName(std::string("Home"), std::string("HomeVC"));
  APMAnalytics::logEventWithName("tap", {{"long", std::string(101, 'x')}, {"ok", "fine"}});
  APMAnalytics::logEventWithName("ad_impression", {});  // a public name with an internal one
  env_.runUntilIdle();
  auto views = rawEventsNamed("_vs");
  ASSERT_EQ(views.size(), 1u);
  EXPECT_EQ(*views[0].parameter("_sn"), Str("Home"));
  auto taps = rawEventsNamed("tap");
  ASSERT_EQ(taps.size(), 1u);
  EXPECT_EQ(taps[0].parameter("long"), nullptr);
  EXPECT_EQ(*taps[0].parameter("_err"), Int(4));
  EXPECT_EQ(*taps[0].parameter("_el"), Int(101));
  EXPECT_EQ(*taps[0].parameter("_sc"), Str("HomeVC"));
  EXPECT_EQ(*taps[0].parameter("_si"), *views[0].parameter("_si"));
  EXPECT_EQ(rawEventsNamed("_ai").size(), 1u);
}

TEST_F(APMAnalyticsTest, UserPropertiesListenersAndTheInterceptor) {
  connect();
  std::vector<std::string> heard;
  int token = APMAnalytics::addLogEventListener(
      [&](const std::string&, const std::string& name, const APMParameters&, double) {
        heard.push_back(name);
      });
  APMAnalytics::setLogEventInterceptor(
      [](const std::string&, const std::string& name, APMParameters& parameters) {
        if (name == "edited") parameters.insert_or_assign("added", APMValue::fromInt64(7));
      });
  APMAnalytics::setUserPropertyString("blue", "colour");
  APMAnalytics::setUserPropertyString(std::string(37, 'v'), "colour2");
  APMAnalytics::logEventWithName("edited", {});
  env_.runUntilIdle();
  APMAnalytics::removeLogEventListener(token);
  APMAnalytics::logEventWithName("unheard", {});
  env_.runUntilIdle();
  EXPECT_EQ(heard, std::vector<std::string>{"edited"});
  EXPECT_EQ(*rawEventsNamed("edited")[0].parameter("added"), Int(7));
  auto errors = rawEventsNamed("_err");
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(*errors[0].parameter("_err"), Int(7));
  onWorker([&] {
    auto colour = m().database()->queryUserAttributeWithName("colour", nullptr);
    ASSERT_TRUE(colour && *colour);
    EXPECT_EQ((*colour)->value, Str("blue"));
    EXPECT_EQ((*colour)->origin, "app");
  });
}

TEST_F(APMAnalyticsTest, PersonalizedAdsSettingBecomesNpa) {
  connect();
  auto npa = [&]() -> std::optional<APMValue> {
    std::optional<APMValue> out;
    onWorker([&] {
      auto row = m().database()->queryUserAttributeWithName("_npa", nullptr);
      if (row && *row) out = (*row)->value;
    });
    return out;
  };
  // Neither a setting nor a default: no property.
  EXPECT_EQ(npa(), std::nullopt);
  APMAnalytics::setUserPropertyString("false", "allow_personalized_ads");
  env_.runUntilIdle();
  EXPECT_EQ(npa(), Int(1));
  APMAnalytics::setUserPropertyString("  0012", "allow_personalized_ads");  // read as true
  env_.runUntilIdle();
  EXPECT_EQ(npa(), Int(0));
  // The setting is not a user property of its own, and it outlives the run.
  onWorker([&] {
    auto row = m().database()->queryUserAttributeWithName("allow_personalized_ads", nullptr);
    EXPECT_TRUE(row && !*row);
  });
  // Cleared: the information dictionary's default, inverted, then nothing.
  APMLaunchContext::setInfoDictionary({{"STUVOP_ANALYTICS_DEFAULT_ALLOW_AD_PERSONALIZATION_SIGNALS", false}});
  APMAnalytics::setUserPropertyString(kit::Value(), "allow_personalized_ads");
  env_.runUntilIdle();
  EXPECT_EQ(npa(), Int(1));
  APMLaunchContext::reset();
  APMAnalytics::setUserPropertyString(kit::Value(), "allow_personalized_ads");
  env_.runUntilIdle();
  EXPECT_EQ(npa(), std::nullopt);
}

TEST(APMSelfStartTest, TheLaunchNotificationStartsTheClientWithoutTheApp) {
  sim::Environment env;
  sim::Platform platform;
  APMTemporaryFolder folder;
  platform.files().setApplicationSupportPath(folder.path() + "/Application Support");
  EXPECT_EQ(APMMeasurement::sharedInstance(), nullptr);
  APMAnalytics::logEventWithName("early", {});
  auto& center = kit::NotificationCenter::defaultCenter();
  center.postNotificationName(kit::kApplicationDidFinishLaunchingNotification);
  center.postNotificationName(kit::kApplicationDidBecomeActiveNotification);
  env.runUntilIdle();
  auto measurement = APMMeasurement::sharedInstance();
  ASSERT_TRUE(measurement);
  std::string folderPath = folder.path() + "/Application Support/Stuvop/Measurement";
  EXPECT_EQ(measurement->databasePath(), folderPath + "/stuvop-app-measurement.sql");
  struct stat st {};
  ASSERT_EQ(::stat(folderPath.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
  env.advance(30);
  center.postNotificationName(kit::kApplicationWillResignActiveNotification);
  env.runUntilIdle();
  std::vector<std::string> names;
  measurement->scheduler().scheduleOnWorkerQueueBlockID("test", [&] {
    auto rows = measurement->database()->store().recordsForQuery(
        "SELECT name FROM raw_events ORDER BY rowid", {}, nullptr);
    for (const auto& r : *rows) names.push_back(*r.at("name").asString());
  });
  env.runUntilIdle();
  // First open with its session, the early call, then the engagement of 30 s on leaving.
  EXPECT_EQ(names, (std::vector<std::string>{"_f", "_s", "_e", "early", "_e", "_ab"}));
  measurement.reset();
  APMMeasurement::setSharedInstance(nullptr);
  APMAnalytics::resetForTesting();
}

}  // namespace
