#include "measurement/upload/APMRemoteConfig.h"

#include <gtest/gtest.h>

#include "measurement/APMMonitor.h"
#include "measurement/runtime/APMPEventEditing.h"
#include "measurement/runtime/APMPProgramBuilder.h"
#include "measurement/store/APMStoreTestSupport.h"
#include "sim/Environment.h"
#include "sim/Platform.h"

namespace {

// A configuration message for `appID` with `settings` as (key, value) texts.
APMPBMessage<APMPBMeasurementConfig> makeConfig(
    const std::string& appID, const std::vector<std::pair<std::string, std::string>>& settings,
    std::int64_t version = 7) {
  APMPBMessage<APMPBMeasurementConfig> config;
  APMPBSetString(&config->stuvop_app_id, appID);
  config->has_version = true;
  config->version = version;
  for (const auto& [key, value] : settings) {
    APMPBSetting& s = APMPBAppend(&config->settings, &config->settings_count);
    APMPBSetString(&s.key, key);
    APMPBSetString(&s.value, value);
  }
  return config;
}

class APMRemoteConfigTest : public ::testing::Test {
 protected:
  APMRemoteConfigTest() {
    database_ = APMDatabase::initWithDatabasePath(
        folder_.path() + "/m.sql",
        std::make_shared<APMPersistedConfig>(platform::services().preferences), nullptr);
    config_ = APMRemoteConfig::initWithAppID("1:app", "", database_.get());
  }

  sim::Environment env_;
  sim::Platform platform_;
  APMTemporaryFolder folder_;
  APMMonitorCapture monitor_;
  std::unique_ptr<APMDatabase> database_;
  std::unique_ptr<APMRemoteConfig> config_;
};

TEST_F(APMRemoteConfigTest, EverySettingStartsAtItsDefault) {
  APMRemoteConfig& c = *config_;
  EXPECT_EQ(c.maxAudienceCount(), 50);
  EXPECT_EQ(c.maxEventsStored(), 100000);
  EXPECT_EQ(c.uploadMaxSizeLimitBytes(), 65536);
  EXPECT_EQ(c.uploadingRetryCount(), 6);
  EXPECT_DOUBLE_EQ(c.uploadingInterval(), 3600);
  EXPECT_DOUBLE_EQ(c.uploadingBackoffInterval(), 43200);
  EXPECT_DOUBLE_EQ(c.maxQueueTime(), 2419200);
  EXPECT_DOUBLE_EQ(c.networkTimeout(), 60);
  EXPECT_TRUE(c.configurableLimitsEnabled());
  EXPECT_FALSE(c.checksumEnabled());
  EXPECT_TRUE(c.isDeferredDeepLinkEnabled());
  EXPECT_EQ(c.analyticsAccountTimeZoneOffsetMinutes(), 0);
  EXPECT_EQ(c.version(), -1);
}

TEST_F(APMRemoteConfigTest, ServerValuesAreParsedOnceConvertedAndBadOnesFallBackToTheDefault) {
  auto config = makeConfig("1:app", {
      {"measurement.upload.interval", "600000"},          // ms: 600 s
      {"measurement.upload.retry_count", "5000"},         // over 24: the default, not 24
      {"measurement.upload.max_bundles", "0"},            // under 1: the default
      {"measurement.upload.max_events_per_day", "abc"},   // no number: the default
      {"measurement.upload.retry_time", "59999"},         // 59.999 s < 60: the default
      {"measurement.account.time_zone_offset_minutes", "-900"},  // the bound itself is kept
      {"measurement.quality.checksum", "1"},
      {"measurement.upload.max_batch_size", " 1024 "},
  });
  ASSERT_TRUE(config_->updateMeasurementConfig(*config, nullptr));
  APMRemoteConfig& c = *config_;
  EXPECT_DOUBLE_EQ(c.uploadingInterval(), 600);
  EXPECT_EQ(c.uploadingRetryCount(), 6);
  EXPECT_EQ(c.uploadMaxBundlesLimit(), 100);
  EXPECT_EQ(c.maxEventsPerDay(), 100000);
  EXPECT_DOUBLE_EQ(c.uploadingRetryInterval(), 1800);
  EXPECT_EQ(c.analyticsAccountTimeZoneOffsetMinutes(), -900);
  EXPECT_TRUE(c.checksumEnabled());
  EXPECT_EQ(c.uploadMaxSizeLimitBytes(), 1024);
  EXPECT_EQ(c.version(), 7);
  // A second read returns the converted value without converting it again.
  EXPECT_DOUBLE_EQ(c.uploadingInterval(), 600);

  // The configuration survives in the database: a new instance reads it back.
  auto reopened = APMRemoteConfig::initWithAppID("1:app", "", database_.get());
  EXPECT_DOUBLE_EQ(reopened->uploadingInterval(), 600);
  EXPECT_EQ(reopened->version(), 7);
}

TEST_F(APMRemoteConfigTest, ThreeLimitsFollowTheServerOnlyWhileConfigurableLimitsAreOn) {
  std::vector<std::pair<std::string, std::string>> limits = {
      {"measurement.upload.max_public_user_properties", "50"},
      {"measurement.upload.max_public_event_params", "60"},
      {"measurement.upload.max_event_name_cardinality", "1000"}};
  ASSERT_TRUE(config_->updateMeasurementConfig(*makeConfig("1:app", limits), nullptr));
  EXPECT_EQ(config_->maxPublicUserProperties(), 50);
  EXPECT_EQ(config_->maxPublicEventParams(), 60);
  EXPECT_EQ(config_->maxEventNameCardinality(), 1000);

  limits.push_back({"measurement.upload.configurable_limits_enabled", "0"});
  ASSERT_TRUE(config_->updateMeasurementConfig(*makeConfig("1:app", limits), nullptr));
  EXPECT_EQ(config_->maxPublicUserProperties(), 25);
  EXPECT_EQ(config_->maxPublicEventParams(), 25);
  EXPECT_EQ(config_->maxEventNameCardinality(), 500);
}

TEST_F(APMRemoteConfigTest, AConfigurationOfAnotherApplicationChangesNothing) {
  ASSERT_TRUE(config_->updateMeasurementConfig(
      *makeConfig("1:app", {{"measurement.upload.interval", "600000"}}), nullptr));
  EXPECT_FALSE(config_->parseRemoteConfigFromMeasurementConfig(
      *makeConfig("2:other", {{"measurement.upload.interval", "900000"}}, 9)));
  EXPECT_TRUE(monitor_.contains("Configuration does not have valid Stuvop App ID."));
  EXPECT_DOUBLE_EQ(config_->uploadingInterval(), 600);
  EXPECT_EQ(config_->version(), 7);
}

TEST_F(APMRemoteConfigTest, AnEmptySettingsListResetsEverySettingToItsDefault) {
  ASSERT_TRUE(config_->updateMeasurementConfig(
      *makeConfig("1:app", {{"measurement.upload.interval", "600000"}}), nullptr));
  ASSERT_TRUE(config_->updateMeasurementConfig(*makeConfig("1:app", {}), nullptr));
  EXPECT_TRUE(monitor_.contains("Cannot parse empty measurement config. Using default values"));
  EXPECT_DOUBLE_EQ(config_->uploadingInterval(), 3600);
}

TEST_F(APMRemoteConfigTest, EventConfigurationsAnswerUnderBothNamesAndSamplingRatesAreBounded) {
  auto config = makeConfig("1:app", {{"k", "v"}});
  auto add = [&](const char* name, bool blocked, int rate) {
    APMPBEventConfig& e = APMPBAppend(&config->event_config, &config->event_config_count);
    APMPBSetString(&e.name, name);
    e.has_blocked = true;
    e.blocked = blocked;
    e.has_sampling_rate = true;
    e.sampling_rate = rate;
  };
  add("screen_view", true, 2);
  add("rare", false, 65535);
  add("too_rare", false, 65536);
  add("once", false, 1);
  ASSERT_TRUE(config_->updateMeasurementConfig(*config, nullptr));
  EXPECT_TRUE(config_->isEventBlocklisted("screen_view"));
  EXPECT_TRUE(config_->isEventBlocklisted("_vs"));
  EXPECT_FALSE(config_->isEventBlocklisted("rare"));
  EXPECT_EQ(config_->samplingRateForEvent("_vs"), 2);
  EXPECT_EQ(config_->samplingRateForEvent("rare"), 65535);
  EXPECT_EQ(config_->samplingRateForEvent("too_rare"), 1);
  EXPECT_EQ(config_->samplingRateForEvent("once"), 1);
  EXPECT_FALSE(config_->eventHasSamplingRate("unknown"));

  APMMeasurementSettings settings;
  APMDatabaseLimits limits;
  config_->applyToSettings(settings, limits);
  ASSERT_NE(settings.eventConfig("_vs"), nullptr);
  EXPECT_TRUE(settings.eventConfig("_vs")->blocked);
  EXPECT_EQ(settings.configVersion, 7);
}

TEST_F(APMRemoteConfigTest, URLsCarryTheRegionTheApplicationAndTheQuery) {
  EXPECT_EQ(config_->uploadURL("https://collect.example"), "https://collect.example/a");
  EXPECT_EQ(config_->uploadURL(""), "");
  auto config = makeConfig("1:app", {{"k", "v"}});
  APMPBSetString(&config->upload_sub_domain, "eu");
  APMPBDataControl& control = APMPBAppend(&config->data_controls, &config->data_controls_count);
  APMPBSetString(&control.name, "device_info");
  ASSERT_TRUE(config_->updateMeasurementConfig(*config, nullptr));
  EXPECT_EQ(config_->uploadURL("https://collect.example"), "https://eu.collect.example/a");
  EXPECT_EQ(config_->dataControls(), std::vector<std::string>{"device_info"});
  EXPECT_EQ(config_->remoteConfigURLWithAppInstanceID("http://127.0.0.1:9", "ab c", "ios", 100300, 0),
            "http://127.0.0.1:9/config/app/1%3Aapp?app_instance_id=ab%20c&platform=ios"
            "&smp_version=100300&runtime_version=0");
}

TEST_F(APMRemoteConfigTest, ExpiryFollowsTheCacheTimeAndTheDefaultInstanceNeverExpires) {
  EXPECT_TRUE(config_->isExpired());  // never fetched
  ASSERT_TRUE(config_->updateMeasurementConfig(*makeConfig("1:app", {{"k", "v"}}), nullptr));
  EXPECT_FALSE(config_->isExpired());
  env_.advance(3599);
  EXPECT_FALSE(config_->isExpired());
  env_.advance(1);
  EXPECT_TRUE(config_->isExpired());
  // A clock set far back is as far from the last update as one set far ahead.
  env_.setNow(sim::Environment::kDefaultStart - 7200);
  EXPECT_TRUE(config_->isExpired());

  APMRemoteConfig& fallback = APMRemoteConfig::defaultInstance();
  EXPECT_FALSE(fallback.isExpired());
  EXPECT_FALSE(fallback.updateMeasurementConfig(*makeConfig("", {{"k", "v"}}), nullptr));
  EXPECT_TRUE(monitor_.contains("Cannot update the default measurement configuration"));
  EXPECT_FALSE(fallback.numberFromCacheWithKey("", 1, 2, 0));
  EXPECT_TRUE(monitor_.contains("Cannot get setting with empty key from cache"));
}

}  // namespace

namespace {

// The configuration with `programs` appended as tag 9.
APMPBMessage<APMPBMeasurementConfig> withPrograms(const APMPBMessage<APMPBMeasurementConfig>& config,
                                                  const std::vector<std::string>& programs) {
  auto bytes = config.protoBuffer();
  std::string all(bytes->begin(), bytes->end());
  for (const auto& p : programs) P::putBytes(all, 9, p);
  auto parsed = APMPBMessage<APMPBMeasurementConfig>::parseFromData(
      std::span(reinterpret_cast<const std::uint8_t*>(all.data()), all.size()));
  EXPECT_TRUE(parsed);
  return std::move(*parsed);
}

TEST_F(APMRemoteConfigTest, EventEditingProgramsLoadWithTheConfigurationOrAreDropped) {
  auto base = makeConfig("1:app", {{"measurement.ees_feature_enabled", "1"}});
  EXPECT_EQ(config_->eventEditing(), nullptr);
  // Renames every event to "edited".
  APMPRuntimeValue program = P::list(
      {P::call("52", {P::str("register"), P::call("require", {P::str("internal.registerCallback")})}),
       P::call("register", {P::num(1),
                            P::function("", {"e"}, {P::method(P::var("e"), "setEventName", {P::str("edited")})}),
                            P::str("edit")})});
  ASSERT_TRUE(config_->updateMeasurementConfig(*withPrograms(base, {P::program(program)}), nullptr));
  auto editing = config_->eventEditing();
  ASSERT_NE(editing, nullptr);
  ASSERT_TRUE(editing->handleEvent({"tap", 1, {}}, nullptr));
  EXPECT_EQ(editing->eventContext().outputEvent().name, "edited");
  APMMeasurementSettings settings;
  APMDatabaseLimits limits;
  config_->applyToSettings(settings, limits);
  EXPECT_TRUE(settings.eesFeatureEnabled);
  EXPECT_EQ(settings.eventEditing, editing);

  // A program that fails to load leaves no editing at all.
  ASSERT_TRUE(config_->updateMeasurementConfig(
      *withPrograms(base, {P::program(program), P::program(P::list({P::call("undefinedFunction")}))}), nullptr));
  EXPECT_EQ(config_->eventEditing(), nullptr);
  EXPECT_TRUE(monitor_.contains("Failed to initiate event editing instance"));
}

}  // namespace
