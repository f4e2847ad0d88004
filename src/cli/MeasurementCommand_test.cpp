#include "cli/MeasurementCommand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>

#include "measurement/audiences/APMAudience.h"
#include "measurement/consent/APMConsentSettingsUtil.h"
#include "measurement/events/APMMeasurement.h"
#include "sim/Environment.h"
#include "sim/Platform.h"

namespace cli {
namespace {

using ::testing::HasSubstr;

class MeasurementCommandTest : public ::testing::Test {
 protected:
  MeasurementCommandTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "apm_cli_XXXXXX").string();
    folder_ = ::mkdtemp(pattern.data());
    path_ = folder_ + "/m.sql";
  }
  ~MeasurementCommandTest() override { std::filesystem::remove_all(folder_); }

  // A database with one bundled event and one waiting, made by the client itself.
  void record() {
    APMMeasurementOptions options;
    options.databasePath = path_;
    options.settings.consentSignals = "G110";
    APMMeasurement m(options);
    auto run = [&](std::function<void()> block) {
      m.scheduler().scheduleOnWorkerQueueBlockID("test", std::move(block));
      env_.runUntilIdle();
    };
    run([&] { m.setUserAttributeOnWorkerQueue("colour", APMValue::fromString("blue"), "app", 5); });
    m.logEvent(*APMEvent::create("app", "scan_done", env_.now(), 0,
                                 {{"found", APMValue::fromInt64(12)}}));
    env_.runUntilIdle();
    run([&] { ASSERT_TRUE(m.bundleRawEvents()); });
    m.logEvent(*APMEvent::create("app", "delete", env_.now() + 1, 0,
                                 {{"items", APMValue::fromInt64(3)}}));
    env_.runUntilIdle();
  }

  sim::Environment env_;
  sim::Platform platform_;
  std::string folder_, path_;
};

TEST_F(MeasurementCommandTest, ReportsWaitingEventsBundlesPropertiesCountsAndConsent) {
  record();
  std::string error;
  auto report = measurementReport(path_, 0, &error);
  ASSERT_TRUE(report) << error;
  const auto& raw = (*report)["raw_events"];
  ASSERT_EQ(raw.size(), 1u);
  EXPECT_EQ(raw[0]["name"], "delete");
  EXPECT_EQ(raw[0]["parameters"]["items"], 3);
  EXPECT_EQ(raw[0]["time"], "2025-01-01T00:00:01Z");
  const auto& bundles = (*report)["bundles"];
  ASSERT_EQ(bundles.size(), 1u);
  EXPECT_EQ(bundles[0]["events"][0]["name"], "scan_done");
  EXPECT_EQ(bundles[0]["events"][0]["parameters"]["found"], 12);
  EXPECT_EQ(bundles[0]["user_properties"][0]["value"], "blue");
  EXPECT_EQ((*report)["user_properties"][0]["origin"], "app");
  EXPECT_EQ((*report)["daily_counts"]["events"], 2);
  EXPECT_EQ((*report)["consent"]["analytics"], "denied");
  EXPECT_EQ((*report)["consent"]["device_identifier"], "none");

  std::string text = measurementText(*report);
  EXPECT_THAT(text, HasSubstr("Events waiting to be bundled: 1\n  delete at 2025-01-01T00:00:01Z\n"
                              "      _o = app\n      items = 3\n"));
  EXPECT_THAT(text, HasSubstr("Bundles waiting to be sent: 1\n  bundle 1,"));
  EXPECT_THAT(text, HasSubstr("  colour = blue (set by app, 1970-01-01T00:00:05Z)\n"));
  EXPECT_THAT(text, HasSubstr("Consent: G110; ads not denied, analytics denied"));
}

TEST_F(MeasurementCommandTest, TheScheduleShowsTheNextUploadRetriesAndTheBackOff) {
  record();
  env_.setNow(sim::Environment::kDefaultStart + 1);  // the newest event's time
  std::string error;
  auto report = measurementReport(path_, 0, &error);
  ASSERT_TRUE(report) << error;
  const auto& schedule = (*report)["schedule"];
  // Fifteen seconds after the newest data; nothing failed yet; no configuration fetched.
  EXPECT_EQ(schedule["next_upload"], "2025-01-01T00:00:16Z");
  EXPECT_EQ(schedule["retry_count"], 0);
  EXPECT_TRUE(schedule["backoff_until"].is_null());
  EXPECT_EQ(schedule["configuration_version"], -1);
  EXPECT_THAT(measurementText(*report),
              HasSubstr("Uploads: next 2025-01-01T00:00:16Z, most retries of a waiting bundle 0, "
                        "back-off until none\n"));

  // A 503 a minute in: the first retry would come after 30 minutes, the back-off holds 12 hours.
  double failed = env_.now() + 60;
  env_.setNow(failed);
  report = measurementReport(path_, 0, &error, {0, failed, failed});
  ASSERT_TRUE(report) << error;
  EXPECT_EQ((*report)["schedule"]["next_upload"], "2025-01-01T12:01:01Z");
  EXPECT_EQ((*report)["schedule"]["backoff_until"], "2025-01-01T12:01:01Z");
  EXPECT_EQ((*report)["schedule"]["last_failed_upload"], "2025-01-01T00:01:01Z");
}

TEST_F(MeasurementCommandTest, ShowsConsentWithItsSourceAndTheAudienceResults) {
  {
    // One audience of two filters: any "scan_done", and a "delete" (never logged here).
    APMMeasurementOptions options;
    options.databasePath = path_;
    APMMeasurement m(options);
    APMPBMessage<APMPBAudience> audience;
    audience->has_audience_id = true;
    audience->audience_id = 12;
    for (auto [id, name] : {std::pair{3, "scan_done"}, std::pair{4, "delete"}}) {
      auto& f = APMPBAppend(&audience->event_filters, &audience->event_filters_count);
      f.has_filter_id = true;
      f.filter_id = id;
      APMPBSetString(&f.event_name, name);
    }
    m.scheduler().scheduleOnWorkerQueueBlockID("test", [&] {
      m.setUserAttributeOnWorkerQueue("_fot", APMValue::fromInt64(1), "auto", 0);
      ASSERT_TRUE(m.database()->performTransaction([&] {
        return APMAudience(m.database()).updateAudiences({audience.get(), 1}, {}, nullptr);
      }));
    });
    env_.runUntilIdle();
  }
  record();
  std::string error;
  auto report = measurementReport(path_, 0, &error);
  ASSERT_TRUE(report) << error;
  ASSERT_EQ((*report)["audiences"].size(), 1u);
  EXPECT_EQ((*report)["audiences"][0]["audience"], 12);
  EXPECT_EQ((*report)["audiences"][0]["true"], nlohmann::json::array({3}));
  EXPECT_EQ((*report)["bundles"][0]["audiences"][0]["true"], nlohmann::json::array({3}));

  auto preferences = std::make_shared<sim::PreferenceStore>();
  addConsentSettings(*report, preferences);
  EXPECT_EQ((*report)["consent"]["source_name"], "nobody yet");
  APMConsentSettingsUtil(preferences).setConsent({{"ad_storage", "denied"}},
                                                 kAPMConsentSettings3PKey);
  addConsentSettings(*report, preferences);
  EXPECT_EQ((*report)["consent"]["settings"]["ad_storage"], "denied");
  EXPECT_EQ((*report)["consent"]["settings"]["analytics_storage"], "unset");
  EXPECT_EQ((*report)["consent"]["source"], 10);
  std::string text = measurementText(*report);
  EXPECT_THAT(text, HasSubstr("ad storage denied, analytics storage unset; set by another party "
                              "(source 10)\n"));
  EXPECT_THAT(text, HasSubstr("Audiences evaluated on this computer: 1\n  audience 12: filters "
                              "true 3 (of 1 evaluated)\n"));
  EXPECT_THAT(text, HasSubstr("    bundle 1, audience 12: filters true 3\n"));
}

TEST_F(MeasurementCommandTest, MissingDatabaseAndBadArguments) {
  std::string error;
  EXPECT_FALSE(measurementReport(folder_ + "/none.sql", 0, &error));
  EXPECT_THAT(error, HasSubstr("no measurement database"));
  EXPECT_FALSE(std::filesystem::exists(folder_ + "/none.sql"));
  std::FILE* sink = std::tmpfile();
  EXPECT_EQ(runMeasurement({"--bogus"}, sink, sink), 2);
  std::fclose(sink);
}

}  // namespace
}  // namespace cli
