#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "measurement/events/APMEventsTestSupport.h"
#include "measurement/events/APMMeasurement.h"

namespace {

using ::testing::HasSubstr;

APMValue Int(std::int64_t v) { return APMValue::fromInt64(v); }

std::string protocDecode(const kit::Data& bytes) {
  auto path = std::filesystem::temp_directory_path() /
              ("apm_bundle_" + std::to_string(::getpid()) + ".bin");
  {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
  }
  std::string command = std::string(APM_PROTOC) + " --decode=apm.MeasurementBundle -I " +
                        APM_PROTO_DIR + " measurement.proto < " + path.string() + " 2>&1";
  std::string text;
  if (FILE* pipe = ::popen(command.c_str(), "r")) {
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) text.append(buffer, n);
    EXPECT_EQ(::pclose(pipe), 0) << text;
  }
  std::filesystem::remove(path);
  return text;
}

class APMBundlingTest : public APMEventsTest {
 protected:
  // Runs bundleRawEvents once on the worker queue.
  bool bundleOnce() {
    bool result = false;
    onWorker([&] { result = m().bundleRawEvents(); });
    return result;
  }
  std::vector<APMQueuedBundle> bundles() {
    std::vector<APMQueuedBundle> out;
    onWorker([&] {
      auto queued = m().database()->queryBundlesWithCountLimit(1000, INT64_MAX, nullptr);
      ASSERT_TRUE(queued);
      out = std::move(*queued);
    });
    return out;
  }
  // Event names of a bundle, in order.
  static std::vector<std::string> names(const APMQueuedBundle& b) {
    std::vector<std::string> out;
    for (const APMPBEvent& e : APMPBItems(b.bundle->events, b.bundle->events_count)) {
      out.push_back(APMPBString(e.name).data());
    }
    return out;
  }
  static std::optional<APMEvent> eventAt(const APMQueuedBundle& b, std::size_t i) {
    if (i >= b.bundle->events_count) return std::nullopt;
    return APMEvent::fromProto(b.bundle->events[i]);
  }
};

TEST_F(APMBundlingTest, ABundleHoldsTheHeaderTheEventsAndTheRunningMetadata) {
  openDatabase();
  log(event("level_up", {{"level", Int(3)}}));
  ASSERT_TRUE(bundleOnce());
  EXPECT_FALSE(bundleOnce());  // nothing left
  auto queued = bundles();
  ASSERT_EQ(queued.size(), 1u);
  std::string instance(APMPBString(queued[0].bundle->app_instance_id));
  auto bytes = queued[0].bundle.protoBuffer();
  ASSERT_TRUE(bytes);
  EXPECT_EQ(protocDecode(*bytes),
            "protocol_version: 1\n"
            "events {\n"
            "  params {\n"
            "    name: \"_o\"\n"
            "    string_value: \"app\"\n"
            "  }\n"
            "  params {\n"
            "    name: \"level\"\n"
            "    int_value: 3\n"
            "  }\n"
            "  name: \"level_up\"\n"
            "  timestamp_millis: 1735689600000\n"
            "}\n"
            "user_properties {\n"
            "  set_timestamp_millis: 0\n"
            "  name: \"_fot\"\n"
            "  int_value: 1\n"
            "}\n"
            "bundle_start_timestamp_millis: 1735689600000\n"
            "bundle_end_timestamp_millis: 1735689600000\n"
            "previous_bundle_end_timestamp_millis: 0\n"
            "platform: \"ios\"\n"
            "os_version: \"17.0\"\n"
            "device_model: \"iPhone14,2\"\n"
            "user_language: \"en-us\"\n"
            "time_zone_offset_minutes: 0\n"
            "install_source: \"manual_install\"\n"
            "app_id: \"com.stuvop.solvanta\"\n"
            "app_version: \"0.1.0\"\n"
            "stored_library_version: 100300\n"
            "limited_ad_tracking: true\n"
            "app_instance_id: \"" +
                instance +
                "\"\n"
                "bundle_index: 1\n"
                "previous_bundle_start_timestamp_millis: 0\n"
                "app_version_major: 0\n"
                "app_version_minor: 1\n"
                "app_version_release: 0\n");
  EXPECT_EQ(instance.size(), 32u);
  EXPECT_EQ(count("SELECT count(1) FROM raw_events"), 0);
  EXPECT_EQ(count("SELECT count(1) FROM raw_events_metadata"), 0);
  EXPECT_EQ(count("SELECT lifetime_count FROM events WHERE name = 'level_up'"), 1);
  EXPECT_TRUE(monitor_.contains("Bundle added to the upload queue. BundleID, timestamp (ms)"));

  // The next bundle points back at this one and carries the previous time of its name.
  env_.advance(60);
  log(event("level_up", {{"level", Int(4)}}));
  ASSERT_TRUE(bundleOnce());
  queued = bundles();
  ASSERT_EQ(queued.size(), 2u);
  const APMPBMeasurementBundle& second = *queued[1].bundle;
  EXPECT_EQ(second.bundle_index, 2);
  EXPECT_EQ(second.previous_bundle_end_timestamp_millis, 1735689600000);
  EXPECT_EQ(second.previous_bundle_start_timestamp_millis, 1735689600000);
  EXPECT_EQ(second.events[0].previous_timestamp_millis, 1735689600000);
  EXPECT_EQ(count("SELECT lifetime_count FROM events WHERE name = 'level_up'"), 2);
}

TEST_F(APMBundlingTest, OnlyAContiguousRunOfOneHeaderMakesABundle) {
  openDatabase();
  log(event("a1"));
  log(event("a2"));
  onWorker([&] { m().setUserAttributeOnWorkerQueue("fav", APMValue::fromString("x"), "app", 1); });
  log(event("b1"));
  onWorker([&] { m().setUserAttributeOnWorkerQueue("fav", std::nullopt, "app", 1); });
  log(event("a3"));  // header A again, but after a row of header B
  ASSERT_TRUE(bundleOnce());
  ASSERT_TRUE(bundleOnce());
  ASSERT_TRUE(bundleOnce());
  EXPECT_FALSE(bundleOnce());
  auto queued = bundles();
  ASSERT_EQ(queued.size(), 3u);
  EXPECT_EQ(names(queued[0]), (std::vector<std::string>{"a1", "a2"}));
  EXPECT_EQ(names(queued[1]), (std::vector<std::string>{"b1"}));
  EXPECT_EQ(names(queued[2]), (std::vector<std::string>{"a3"}));
}

TEST_F(APMBundlingTest, CountAndSizeLimitsCutTheRun) {
  openDatabase();
  m().settings().uploadMaxEventsPerBundle = 2;
  for (int i = 0; i < 5; ++i) log(event("e"));
  onWorker([&] { EXPECT_EQ(m().bundleRawEventsForUpload(), 3); });
  auto queued = bundles();
  ASSERT_EQ(queued.size(), 3u);
  EXPECT_EQ(queued[0].bundle->events_count, 2u);
  EXPECT_EQ(queued[2].bundle->events_count, 1u);

  m().settings().uploadMaxEventsPerBundle = 1000;
  m().settings().uploadMaxSizeLimitBytes = 1;  // every row reaches it alone
  log(event("x"));
  log(event("y"));
  ASSERT_TRUE(bundleOnce());
  auto afterLimit = bundles();
  EXPECT_EQ(names(afterLimit.back()), std::vector<std::string>{"x"});
}

TEST_F(APMBundlingTest, ARejectedGroupIsDeletedWithoutABundle) {
  openDatabase();
  log(event("gone"));
  log(event("_e", {{"_et", Int(5)}, {"_fr", Int(1)}}, "auto"));
  m().settings().eventConfigs["gone"].blocked = true;
  m().settings().redundantEngagementRemovalEnabled = true;
  EXPECT_TRUE(bundleOnce());
  EXPECT_TRUE(bundles().empty());
  EXPECT_EQ(count("SELECT count(1) FROM raw_events"), 0);
  EXPECT_TRUE(monitor_.contains("Rejected all events."));
}

TEST_F(APMBundlingTest, AFailedReadRollsEverythingBack) {
  openDatabase();
  log(event("kept"));
  onWorker([&] {
    ASSERT_TRUE(m().database()->store().executeSQL(
        "UPDATE raw_events_metadata SET metadata = x'ffffff'", {}, nullptr));
  });
  EXPECT_FALSE(bundleOnce());
  EXPECT_TRUE(monitor_.contains("Unable to fetch event metadata. Metadata fingerprint, error"));
  EXPECT_EQ(rawEventNames(), std::vector<std::string>{"kept"});
  EXPECT_TRUE(bundles().empty());
  EXPECT_EQ(count("SELECT last_bundle_index FROM app_metadata"), 0);
}

TEST_F(APMBundlingTest, EngagementTotalsAndSessionCounts) {
  openDatabase();
  log(event("_s", {{"_sid", Int(1)}}, "auto"));
  log(event("_e", {{"_et", Int(500)}}, "auto"));
  log(event("_e", {{"_et", Int(250)}, {"_fr", Int(1)}}, "auto"));  // a free ride counts nowhere
  log(event("_e", {}, "auto"));
  ASSERT_TRUE(bundleOnce());
  onWorker([&] {
    auto lte = m().database()->queryUserAttributeWithName("_lte", nullptr);
    auto se = m().database()->queryUserAttributeWithName("_se", nullptr);
    ASSERT_TRUE(lte && *lte && se && *se);
    EXPECT_EQ((*lte)->value, Int(500));
    EXPECT_EQ((*se)->value, Int(500));
  });
  EXPECT_TRUE(monitor_.contains("User engagement event doesn't contain any user engagement time"));
  EXPECT_EQ(count("SELECT current_session_count FROM events WHERE name = '_e'"), 3);
  log(event("_s", {{"_sid", Int(2)}}, "auto"));
  ASSERT_TRUE(bundleOnce());
  EXPECT_EQ(count("SELECT count(1) FROM user_attributes WHERE name = '_se'"), 0);
  EXPECT_EQ(count("SELECT current_session_count FROM events WHERE name = '_e'"), 0);
  EXPECT_EQ(count("SELECT current_session_count FROM events WHERE name = '_s'"), 1);
}

TEST_F(APMBundlingTest, ConversionsOverTheDailyLimitLoseTheirMark) {
  openDatabase();
  m().settings().maxConversionsPerDay = 1;
  log(event("purchase", {{"value", Int(1)}, {"currency", APMValue::fromString("EUR")}}));
  log(event("purchase", {{"value", Int(2)}, {"currency", APMValue::fromString("EUR")}}));
  // Each purchase changes the lifetime value property, so each has its own header.
  ASSERT_TRUE(bundleOnce());
  ASSERT_TRUE(bundleOnce());
  auto queued = bundles();
  ASSERT_EQ(queued.size(), 2u);
  auto first = eventAt(queued[0], 0);
  auto second = eventAt(queued[1], 0);
  ASSERT_TRUE(first && second);
  EXPECT_EQ(*first->parameter("_c"), Int(1));
  EXPECT_EQ(second->parameter("_c"), nullptr);
  EXPECT_EQ(*second->parameter("_err"), Int(10));
  EXPECT_EQ(dailyCounts().conversionsCount, 1);
}

TEST_F(APMBundlingTest, SamplingKeepsTheFirstOfEachDayAndSparesDebugMode) {
  openDatabase();
  m().settings().isEventSamplingEnabled = true;
  m().settings().eventConfigs["sampled"].samplingRate = 1 << 30;  // the roll is all but lost
  m().settings().eventConfigs["bad_rate"].samplingRate = 1;
  log(event("sampled"));
  log(event("sampled"));
  log(event("bad_rate"));
  ASSERT_TRUE(bundleOnce());
  auto queued = bundles();
  ASSERT_EQ(queued.size(), 1u);
  EXPECT_EQ(names(queued[0]), (std::vector<std::string>{"sampled", "bad_rate"}));
  auto kept = eventAt(queued[0], 0);
  EXPECT_EQ(*kept->parameter("_efs"), Int(1));
  EXPECT_EQ(*kept->parameter("_sr"), Int(1 << 30));
  EXPECT_TRUE(monitor_.contains("Invalid sampling rate provided"));
  EXPECT_EQ(count("SELECT last_sampling_rate FROM events WHERE name = 'sampled'"), 1 << 30);

  log(event("sampled"));  // the same day: dropped, and the bundle with it
  EXPECT_TRUE(bundleOnce());
  EXPECT_EQ(bundles().size(), 1u);
  EXPECT_TRUE(monitor_.contains("No events left after sampling. Dropping bundle"));
  EXPECT_EQ(count("SELECT count(1) FROM raw_events"), 0);

  env_.advance(86400);  // a new day keeps its first again
  log(event("sampled"));
  ASSERT_TRUE(bundleOnce());
  EXPECT_EQ(bundles().size(), 2u);

  m().settings().debugMode = true;
  log(event("sampled"));
  log(event("sampled"));
  ASSERT_TRUE(bundleOnce());
  auto all = bundles();
  const APMQueuedBundle& last = all.back();
  EXPECT_EQ(last.bundle->events_count, 2u);
}

}  // namespace
