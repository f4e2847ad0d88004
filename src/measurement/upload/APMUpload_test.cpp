#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "measurement/events/APMEventsTestSupport.h"
#include "measurement/events/APMMeasurement.h"
#include "measurement/experiments/APMEExperimentsTestSupport.h"
#include "measurement/upload/APMUploadBatch.h"

#include <filesystem>

namespace {

constexpr const char* kHost = "https://collect.test";

// Every event name of every bundle of a posted batch, in order.
std::vector<std::string> eventNamesOf(const sim::NetworkRequest& request) {
  std::vector<std::string> names;
  auto batch = APMPBMessage<APMPBMeasurementBatch>::parseFromData(request.payload);
  EXPECT_TRUE(batch) << "the payload is not a batch";
  if (!batch) return names;
  for (const auto& bundle : APMPBItems((*batch)->bundles, (*batch)->bundles_count)) {
    for (const auto& e : APMPBItems(bundle.events, bundle.events_count)) {
      names.emplace_back(APMPBString(e.name));
    }
  }
  return names;
}

APMPBMessage<APMPBMeasurementConfig> serverConfig(
    const std::string& appID, const std::vector<std::pair<std::string, std::string>>& settings) {
  APMPBMessage<APMPBMeasurementConfig> config;
  APMPBSetString(&config->stuvop_app_id, appID);
  config->has_version = true;
  config->version = 3;
  for (const auto& [key, value] : settings) {
    APMPBSetting& s = APMPBAppend(&config->settings, &config->settings_count);
    APMPBSetString(&s.key, key);
    APMPBSetString(&s.value, value);
  }
  return config;
}

class APMUploadTest : public APMEventsTest {
 protected:
  APMUploadTest() {
    net().setHost(kHost);
    openDatabase();
  }

  sim::Network& net() { return platform_.network(); }
  APMPersistedConfig& persisted() { return m().persistedConfig(); }
  std::vector<sim::NetworkRequest> posts() {
    std::vector<sim::NetworkRequest> out;
    for (auto& r : net().requests()) {
      if (r.method == "POST") out.push_back(r);
    }
    return out;
  }
  std::vector<sim::NetworkRequest> gets() {
    std::vector<sim::NetworkRequest> out;
    for (auto& r : net().requests()) {
      if (r.method == "GET") out.push_back(r);
    }
    return out;
  }
  // Marks the configuration fresh, so that a pass goes straight to the upload.
  void freshConfig() {
    onWorker([this] { ASSERT_TRUE(m().database()->updateRemoteConfigSuccessfulTimestamp(env_.now(), nullptr)); });
  }
  std::int64_t queued() { return count("SELECT COUNT(*) FROM queue"); }
  std::int64_t raw() { return count("SELECT COUNT(*) FROM raw_events"); }
  double nextUploadingTime() {
    double next = -1;
    onWorker([&] { next = m().nextUploadingTime(); });
    return next;
  }
};

TEST_F(APMUploadTest, TheFirstPassFetchesTheConfigurationThenPostsTheEventsFifteenSecondsAfterTheFirst) {
  log(event("first_thing"));
  double firstAt = env_.now();
  log(event("second_thing"));
  env_.advance(14.9);
  EXPECT_TRUE(net().requests().empty());
  env_.advance(0.2);
  auto requests = net().requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_THAT(requests[0].url, ::testing::StartsWith(std::string(kHost) + "/config/app/"));
  EXPECT_THAT(requests[0].url, ::testing::HasSubstr("platform=ios"));
  EXPECT_EQ(requests[1].method, "POST");
  EXPECT_EQ(requests[1].url, std::string(kHost) + "/a");
  EXPECT_DOUBLE_EQ(requests[1].timeout, 60);
  EXPECT_THAT(eventNamesOf(requests[1]), ::testing::IsSupersetOf({"first_thing", "second_thing"}));
  EXPECT_EQ(queued(), 0);
  EXPECT_EQ(raw(), 0);
  EXPECT_NEAR(persisted().lastSuccessfulUploadTimestamp(), firstAt + 15, 1e-3);
  EXPECT_DOUBLE_EQ(persisted().lastFailedUploadTimestamp(), 0);
  // Running out of raw events to bundle is the normal end of bundling, not a failure.
  EXPECT_FALSE(monitor_.contains("Transaction failed. "));
}

TEST_F(APMUploadTest, NoBundleIsDeletedUnlessTheServerAnswered200Or204) {
  struct Case {
    const char* what;
    sim::NetworkAnswer answer;
    bool deleted;
  };
  sim::NetworkAnswer garbage = sim::answer(200);
  garbage.body = {0xff, 0x00, 0x13};  // an answer body is never read
  std::vector<Case> cases = {
      {"200", sim::answer(200), true},          {"204", sim::answer(204), true},
      {"200 with a stray body", garbage, true}, {"201", sim::answer(201), false},
      {"302", sim::answer(302), false},         {"304", sim::answer(304), false},
      {"400", sim::answer(400), false},         {"413", sim::answer(413), false},
      {"429", sim::answer(429), false},         {"500", sim::answer(500), false},
      {"503", sim::answer(503), false},         {"reset", sim::connectionFailure(), false},
  };
  for (auto& c : cases) {
    SCOPED_TRACE(c.what);
    onWorker([this] { ASSERT_TRUE(m().database()->store().executeSQL("DELETE FROM queue", {}, nullptr)); });
    persisted().setLastFailedUploadTimestamp(0);
    persisted().setLastSuccessfulUploadTimestamp(0);
    log(event("thing"));
    freshConfig();
    net().enqueue(c.answer);
    std::size_t before = posts().size();
    onWorker([this] { m().uploadData(); });
    ASSERT_EQ(posts().size(), before + 1);
    EXPECT_EQ(queued(), c.deleted ? 0 : 1);
    EXPECT_FALSE(m().isNetworkRequestPending());
    if (!c.deleted) {
      EXPECT_EQ(count("SELECT retry_count FROM queue"), 1);
      EXPECT_DOUBLE_EQ(persisted().lastFailedUploadTimestamp(), env_.now());
    }
  }
}

TEST_F(APMUploadTest, A503Or429BacksOffForTwelveHoursAndA500DoesNot) {
  log(event("thing"));
  freshConfig();
  net().enqueue(sim::answer(500));
  onWorker([this] { m().uploadData(); });
  double failedAt = env_.now();
  EXPECT_DOUBLE_EQ(persisted().lastBackoffTimestamp(), 0);
  EXPECT_TRUE(m().alarm().hasActiveTimer());
  EXPECT_LT(m().alarm().scheduledTimestamp(), failedAt + 43200);

  for (int status : {503, 429}) {
    SCOPED_TRACE(status);
    net().enqueue(sim::answer(status));
    freshConfig();
    onWorker([this] {
      m().alarm().cancel();  // an earlier alarm would stay
      m().uploadData();
    });
    EXPECT_DOUBLE_EQ(persisted().lastBackoffTimestamp(), env_.now());
    EXPECT_GE(m().alarm().scheduledTimestamp(), env_.now() + 43200);
  }
  // A good answer clears the failure and the back-off.
  freshConfig();
  onWorker([this] { m().uploadData(); });
  EXPECT_DOUBLE_EQ(persisted().lastBackoffTimestamp(), 0);
  EXPECT_EQ(queued(), 0);
}

TEST_F(APMUploadTest, RetriesDoubleTheirWaitAndStopAfterTheRetryCountUntilNewData) {
  log(event("thing"));
  double dataTime = env_.now();
  EXPECT_DOUBLE_EQ(nextUploadingTime(), dataTime + 15);
  // A failure just after the first attempt: 1800, 3600, 7200 ... seconds later.
  persisted().setLastFailedUploadTimestamp(dataTime + 15);
  EXPECT_DOUBLE_EQ(nextUploadingTime(), dataTime + 15 + 1800);
  persisted().setLastFailedUploadTimestamp(dataTime + 15 + 1800);
  EXPECT_DOUBLE_EQ(nextUploadingTime(), dataTime + 15 + 1800 + 3600);
  // Past the sixth retry (1800 * 63 s after the first attempt) nothing is scheduled.
  persisted().setLastFailedUploadTimestamp(dataTime + 15 + 1800 * 63);
  EXPECT_DOUBLE_EQ(nextUploadingTime(), 0);
  onWorker([this] { m().updateSchedule(); });
  EXPECT_FALSE(m().alarm().hasActiveTimer());
  EXPECT_TRUE(monitor_.contains("No next uploading time. Upload task will not be scheduled"));
  // An event newer than the failure starts the clock again.
  env_.setNow(dataTime + 15 + 1800 * 63 + 1);
  log(event("newer"));
  EXPECT_DOUBLE_EQ(nextUploadingTime(), env_.now() + 15);
  EXPECT_TRUE(m().alarm().hasActiveTimer());
}

TEST_F(APMUploadTest, AfterASuccessTheNextUploadWaitsTheIntervalUnlessRealTime) {
  log(event("thing"));
  persisted().setLastSuccessfulUploadTimestamp(env_.now() - 600);
  EXPECT_DOUBLE_EQ(nextUploadingTime(), env_.now() + 3000);
  m().settings().debugMode = true;
  // In debug mode the real-time interval (10 s) and the debug interval (1 s) apply.
  EXPECT_DOUBLE_EQ(nextUploadingTime(), env_.now() + 1);
}

TEST_F(APMUploadTest, ARealTimeEventBringsAnArmedUploadForward) {
  persisted().setLastSuccessfulUploadTimestamp(env_.now() - 600);
  log(event("ordinary"));
  ASSERT_TRUE(m().alarm().hasActiveTimer());
  EXPECT_DOUBLE_EQ(m().alarm().scheduledTimestamp(), env_.now() + 3000);
  APMEvent urgent = event("urgent");
  urgent.setRealtime(true);
  log(urgent);
  EXPECT_DOUBLE_EQ(m().alarm().scheduledTimestamp(), env_.now() + 15);
  // Leaving the foreground works the schedule out again; the earlier alarm stays.
  m().handleAppWillResignActiveEvent();
  env_.runUntilIdle();
  EXPECT_TRUE(monitor_.contains("App will resign active state. Scheduling data upload"));
  EXPECT_DOUBLE_EQ(m().alarm().scheduledTimestamp(), env_.now() + 15);
}

TEST_F(APMUploadTest, ConfigurationAnswersFollowTheirStatusRules) {
  log(event("thing"));
  // 200 with a configuration: applied, stored with its validators.
  sim::NetworkAnswer good = sim::answer(200);
  good.body = *serverConfig(m().appInfo().bundleIdentifier,
                            {{"measurement.upload.max_events_per_day", "12345"}})
                   .protoBuffer();
  good.headers = {{"ETag", "\"v3\""}, {"Last-Modified", "Wed, 01 Jan 2025 00:00:00 GMT"}};
  net().enqueue(good);
  onWorker([this] { m().fetchRemoteConfig(); });
  EXPECT_EQ(m().settings().maxEventsPerDay, 12345);
  EXPECT_EQ(m().remoteConfig().version(), 3);
  EXPECT_FALSE(m().remoteConfig().isExpired());
  EXPECT_EQ(persisted().configServerETag(), "\"v3\"");

  // An hour on, the fetch is conditional; 304 and 404 keep the stored configuration and
  // move its time.
  for (int status : {304, 404}) {
    SCOPED_TRACE(status);
    env_.advance(3600);
    EXPECT_TRUE(m().remoteConfig().isExpired());
    net().enqueue(sim::answer(status));
    onWorker([this] { m().fetchRemoteConfig(); });
    auto request = gets().back();
    EXPECT_EQ(request.headers["If-None-Match"], "\"v3\"");
    EXPECT_EQ(request.headers["If-Modified-Since"], "Wed, 01 Jan 2025 00:00:00 GMT");
    EXPECT_FALSE(m().remoteConfig().isExpired());
    EXPECT_EQ(m().settings().maxEventsPerDay, 12345);
  }
  EXPECT_TRUE(monitor_.contains("Configuration not found. Using default configuration"));
  EXPECT_TRUE(monitor_.contains("Configuration has not been modified. Using the same configuration. Code"));

  // A body that is not a configuration, and one of another application, change nothing.
  sim::NetworkAnswer junk = sim::answer(200);
  junk.body = {0x0a, 0xff, 0xff};
  sim::NetworkAnswer foreign = sim::answer(200);
  foreign.body = *serverConfig("someone.else", {{"measurement.upload.max_events_per_day", "5"}}).protoBuffer();
  for (auto* bad : {&junk, &foreign}) {
    env_.advance(3600);
    net().enqueue(*bad);
    onWorker([this] { m().fetchRemoteConfig(); });
    EXPECT_EQ(m().settings().maxEventsPerDay, 12345);
    EXPECT_TRUE(m().remoteConfig().isExpired());
  }
  EXPECT_TRUE(monitor_.contains("Configuration data is invalid."));
  EXPECT_TRUE(monitor_.contains("Configuration does not have valid Stuvop App ID."));

  // A 503 is a failure with a back-off.
  net().enqueue(sim::answer(503));
  onWorker([this] { m().fetchRemoteConfig(); });
  EXPECT_TRUE(monitor_.contains("Network fetch failed. Will retry later. Code, error"));
  EXPECT_DOUBLE_EQ(persisted().lastBackoffTimestamp(), env_.now());
}

TEST_F(APMUploadTest, BundlesOfTwoApplicationsGoOutInTwoBatches) {
  freshConfig();
  onWorker([this] {
    for (const char* app : {"app.one", "app.two", "app.one"}) {
      APMPBMessage<APMPBMeasurementBundle> b;
      APMPBSetString(&b->app_id, app);
      b->has_bundle_end_timestamp_millis = true;
      b->bundle_end_timestamp_millis = static_cast<std::int64_t>(env_.now() * 1000);
      APMPBEvent& e = APMPBAppend(&b->events, &b->events_count);
      APMPBSetString(&e.name, app);
      ASSERT_TRUE(m().database()->insertBundle(*b, false, nullptr));
    }
    m().uploadData();
  });
  auto sent = posts();
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(eventNamesOf(sent[0]), (std::vector<std::string>{"app.one", "app.one"}));
  EXPECT_EQ(eventNamesOf(sent[1]), (std::vector<std::string>{"app.two"}));
  EXPECT_EQ(queued(), 0);
}

TEST_F(APMUploadTest, APendingRequestHoldsOffAnotherPass) {
  log(event("thing"));
  freshConfig();
  net().setHolding(true);
  onWorker([this] { m().uploadData(); });
  ASSERT_EQ(net().heldCount(), 1u);
  EXPECT_TRUE(m().isNetworkRequestPending());
  onWorker([this] { m().uploadData(); });
  EXPECT_TRUE(monitor_.contains("Network operation is pending. Ignoring upload request"));
  EXPECT_EQ(posts().size(), 1u);
  net().setHolding(false);
  ASSERT_TRUE(net().answerHeld(sim::answer(204)));
  env_.runUntilIdle();
  EXPECT_EQ(queued(), 0);
  EXPECT_FALSE(m().isNetworkRequestPending());
}

TEST_F(APMUploadTest, AFailedDeleteSuspendsUploadsForAnHour) {
  log(event("thing"));
  freshConfig();
  onWorker([this] {
    ASSERT_TRUE(m().database()->store().executeSQL(
        "CREATE TRIGGER keep BEFORE DELETE ON queue BEGIN SELECT RAISE(FAIL, 'kept'); END", {},
        nullptr));
    m().uploadData();
  });
  EXPECT_TRUE(monitor_.contains("Unable to delete uploaded bundles. Uploads will be suspended for seconds"));
  EXPECT_GT(m().suspendedUploadTimestamp(), 0);
  EXPECT_EQ(posts().size(), 1u);
  EXPECT_FALSE(m().alarm().hasActiveTimer());
  log(event("later"));
  EXPECT_TRUE(monitor_.contains("Upload has been suspended. Will update scheduling later. Seconds"));
  EXPECT_FALSE(m().alarm().hasActiveTimer());
  // An hour of uptime later the hold is lifted.
  env_.advance(3600);
  onWorker([this] { m().updateSchedule(); });
  EXPECT_EQ(m().suspendedUploadTimestamp(), 0);
  EXPECT_TRUE(m().alarm().hasActiveTimer());
}

TEST_F(APMUploadTest, WithoutAHostNothingLeavesAndItIsSaidOnce) {
  net().setHost("");
  for (int i = 0; i < 3; ++i) log(event("thing"));
  env_.advance(7200);
  onWorker([this] { m().uploadData(); });
  EXPECT_TRUE(net().requests().empty());
  EXPECT_EQ(monitor_.count("No collection host is configured. Measurement data stays on this computer"), 1);
  EXPECT_FALSE(m().alarm().hasActiveTimer());
  EXPECT_EQ(raw(), 3);
}

TEST_F(APMUploadTest, NoNetworkWaitsForReachability) {
  net().setConnected(false);
  log(event("thing"));
  EXPECT_TRUE(monitor_.contains("No network. Upload task will not be scheduled"));
  EXPECT_FALSE(m().alarm().hasActiveTimer());
  net().setConnected(true);
  platform_.reachability().setConnected(false);
  platform_.reachability().setConnected(true);
  env_.runUntilIdle();
  EXPECT_TRUE(m().alarm().hasActiveTimer());
}

TEST_F(APMUploadTest, DataControlsAndChecksumShapeTheSentBundle) {
  sim::NetworkAnswer config = sim::answer(200);
  auto message = serverConfig(m().appInfo().bundleIdentifier, {{"measurement.quality.checksum", "1"}});
  for (const char* name : {"app_instance_id", "device_info"}) {
    APMPBDataControl& d = APMPBAppend(&message->data_controls, &message->data_controls_count);
    APMPBSetString(&d.name, name);
  }
  config.body = *message.protoBuffer();
  net().enqueue(config);
  onWorker([this] { m().fetchRemoteConfig(); });
  log(event("thing"));
  onWorker([this] { m().uploadData(); });
  ASSERT_EQ(posts().size(), 1u);
  auto batch = APMPBMessage<APMPBMeasurementBatch>::parseFromData(posts()[0].payload);
  ASSERT_TRUE(batch);
  ASSERT_GE((*batch)->bundles_count, 1u);
  APMPBMeasurementBundle& b = (*batch)->bundles[0];
  EXPECT_EQ(b.app_instance_id, nullptr);
  EXPECT_EQ(APMPBString(b.ephemeral_app_instance_id).size(), 32u);
  EXPECT_EQ(b.os_version, nullptr);
  EXPECT_EQ(b.device_model, nullptr);
  ASSERT_EQ(b.redacted_fields_count, 2u);
  EXPECT_EQ(APMPBString(b.redacted_fields[0]), "app_instance_id");
  EXPECT_EQ(b.sent_library_version, kAPMLibraryVersion);
  EXPECT_EQ(b.upload_timestamp_millis, static_cast<std::int64_t>(env_.now() * 1000));
  // The payload is exactly what writing the whole batch gives.
  EXPECT_EQ(*batch->protoBuffer(), posts()[0].payload);
  ASSERT_TRUE(b.has_checksum);
  std::int64_t sent = b.checksum;
  b.has_checksum = false;
  kit::Data bytes;
  ASSERT_TRUE(APMPBEncode(APMPBMessage<APMPBMeasurementBundle>::fields(), &b, &bytes, nullptr));
  EXPECT_EQ(sent, apm_64LSBMD5(bytes));
}

TEST(APMUploadBatchTest, TheChecksumGoesWhereAWholeWriteWouldPutIt) {
  auto filled = [](bool trailing) {
    APMPBMessage<APMPBMeasurementBundle> b;
    APMPBSetString(&b->app_id, "com.example.app");
    for (int i = 0; i < 3; ++i) {
      APMPBEvent& e = APMPBAppend(&b->events, &b->events_count);
      APMPBSetString(&e.name, "e" + std::to_string(i));
      APMPBEventParam& p = APMPBAppend(&e.params, &e.params_count);
      APMPBSetString(&p.name, "level");
      p.has_int_value = true;
      p.int_value = -i;
    }
    b->has_config_version = true;
    b->config_version = 7;
    if (trailing) {  // every field declared after the checksum
      APMPBSetString(&b->unused_50, "u");
      APMPBSetString(&b->consent_signals, "G111");
      b->has_tracking_authorization_status = true;
      b->tracking_authorization_status = 3;
      b->has_unused_55 = true;
      APMPBSetString(&b->unused_63, "v");
      APMPBAppendString(&b->redacted_fields, &b->redacted_fields_count, "user_id");
      APMPBSetString(&b->ephemeral_app_instance_id, "eph");
    }
    return b;
  };
  for (bool trailing : {false, true}) {
    auto b = filled(trailing);
    kit::Data without;
    ASSERT_TRUE(APMPBEncode(APMPBMessage<APMPBMeasurementBundle>::fields(), b.get(), &without, nullptr));
    kit::Data sent;
    ASSERT_TRUE(APMEncodeBundleForUpload(*b, true, &sent, nullptr));
    ASSERT_TRUE(b->has_checksum);
    EXPECT_EQ(b->checksum, apm_64LSBMD5(without));
    EXPECT_EQ(sent, *b.protoBuffer()) << trailing;
    // Without the checksum the bundle goes as it stands, a checksum it holds included.
    kit::Data plain;
    ASSERT_TRUE(APMEncodeBundleForUpload(*b, false, &plain, nullptr));
    EXPECT_EQ(plain, sent);
  }
}

// The measurement client with its experiment client: a fetched snapshot waits until no data
// waits, then its flag overrides the setting and its experiment id goes into bundles.
class APMUploadExperimentsTest : public APMEventsTest {
 protected:
  APMUploadExperimentsTest() {
    platform_.network().setHost(kHost);
    measurement_ = make({}, true);
    openDatabase();
  }
};

TEST_F(APMUploadExperimentsTest, ASnapshotTakesEffectAtAQuietMomentAndTagsBundles) {
  ASSERT_TRUE(m().experimentManager());
  EXPECT_TRUE(std::filesystem::exists(folder_.path() + "/Stuvop/Measurement/" +
                                      APMEDatabase::kDatabaseName));
  platform_.network().enqueue(APMEAnswer(
      {{"app_measurement", 77, "redundant_engagement_removal_enabled", true}}));
  env_.advance(10.1);
  std::vector<sim::NetworkRequest> fetches;
  for (auto& r : platform_.network().requests()) {
    if (r.url == std::string(kHost) + "/sdk-exp") fetches.push_back(r);
  }
  ASSERT_EQ(fetches.size(), 1u);
  auto request = APMPBMessage<APMPBExperimentRequest>::parseFromData(fetches[0].payload);
  ASSERT_TRUE(request);
  ASSERT_EQ((*request)->client_properties_count, 1u);
  EXPECT_EQ(APMPBString((*request)->client_properties[0].sdk_name), "app_measurement");
  EXPECT_EQ(APMPBString((*request)->client_properties[0].diversion_key).size(), 32u);

  // Not in effect until a quiet moment.
  auto& manager = *m().experimentManager();
  EXPECT_EQ(manager.activatedSnapshotStatusOfSDKName("app_measurement"), kAPMESnapshotStatusPending);
  onWorker([&] { EXPECT_FALSE(m().remoteConfig().redundantEngagementRemovalEnabled()); });
  onWorker([&] { m().updateSchedule(); });
  EXPECT_TRUE(monitor_.contains("Successfully activated a snapshot of SDK"));
  onWorker([&] {
    EXPECT_TRUE(m().remoteConfig().redundantEngagementRemovalEnabled());
    EXPECT_TRUE(m().settings().redundantEngagementRemovalEnabled);
    EXPECT_FALSE(m().remoteConfig().efficientEngagementReportingEnabled());
    EXPECT_EQ(m().settings().experimentIDs, std::vector<std::uint32_t>{77});
  });

  log(event("tagged"));
  env_.advance(20);
  bool tagged = false;
  for (auto& r : platform_.network().requests()) {
    if (r.url != std::string(kHost) + "/a") continue;
    auto batch = APMPBMessage<APMPBMeasurementBatch>::parseFromData(r.payload);
    ASSERT_TRUE(batch);
    for (const auto& b : APMPBItems((*batch)->bundles, (*batch)->bundles_count)) {
      ASSERT_EQ(b.experiment_ids_count, 1u);
      EXPECT_EQ(b.experiment_ids[0], 77u);
      tagged = true;
    }
  }
  EXPECT_TRUE(tagged);
}

}  // namespace
