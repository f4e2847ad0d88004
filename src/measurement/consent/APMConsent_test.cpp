#include <gtest/gtest.h>

#include "measurement/consent/APMConsentSettingsUtil.h"
#include "measurement/consent/APMLaunchContext.h"
#include "measurement/events/APMAnalytics.h"
#include "measurement/events/APMEventsTestSupport.h"
#include "sim/Platform.h"

namespace {

kit::Dictionary consent(const char* ad, const char* analytics) {
  kit::Dictionary d;
  if (ad) d[kAPMConsentAdStorage] = ad;
  if (analytics) d[kAPMConsentAnalyticsStorage] = analytics;
  return d;
}

class APMConsentSettingsUtilTest : public ::testing::Test {
 protected:
  std::shared_ptr<sim::PreferenceStore> store_ = std::make_shared<sim::PreferenceStore>();
  APMConsentSettingsUtil util_{store_};
  APMMonitorCapture monitor_;
};

TEST_F(APMConsentSettingsUtilTest, SignalSpellsEachSwitch) {
  EXPECT_EQ(util_.consentSignals(), "G1--");
  ASSERT_TRUE(util_.setConsent(consent("denied", "granted")).accepted);
  EXPECT_EQ(util_.consentSignals(), "G101");
  EXPECT_TRUE(util_.isAdStorageDenied());
  EXPECT_FALSE(util_.isAnalyticsStorageDenied());
  EXPECT_EQ(util_.description(), "ad_storage is denied. analytics_storage is granted.");
  APMConsentSettingsUtil fresh(std::make_shared<sim::PreferenceStore>());
  fresh.setConsent(consent("granted", nullptr));
  EXPECT_EQ(fresh.consentSignals(), "G11-");
  // Either switch of the configuration off: no signal, and nothing reads as denied.
  util_.setEnabledFlags(true, false);
  EXPECT_EQ(util_.consentSignals(), "");
  util_.setEnabledFlags(false, true);
  EXPECT_EQ(util_.consentSignals(), "");
  EXPECT_FALSE(util_.isAdStorageDenied());
  EXPECT_FALSE(util_.setConsent(consent("granted", "granted")).accepted);
}

TEST_F(APMConsentSettingsUtilTest, LowerSourceWins) {
  ASSERT_TRUE(util_.setConsent(consent("granted", nullptr), kAPMConsentSettings3PKey).accepted);
  EXPECT_EQ(util_.consentSource(), kAPMConsentSource3P);
  // The application's own call comes after another party's: ignored.
  EXPECT_FALSE(util_.setConsent(consent("denied", nullptr)).accepted);
  EXPECT_TRUE(monitor_.find("Ignoring lower priority consent settings"));
  EXPECT_EQ(util_.consentSignals(), "G11-");

  APMConsentSettingsUtil other(std::make_shared<sim::PreferenceStore>());
  ASSERT_TRUE(other.setConsent(consent("granted", "granted")).accepted);
  EXPECT_EQ(other.consentSource(), kAPMConsentSourceApp);
  // Another party after the application: wins, and merges over what was set.
  ASSERT_TRUE(other.setConsent(consent("denied", nullptr), kAPMConsentSettings3PKey).accepted);
  EXPECT_EQ(other.consentSignals(), "G101");
  // Third-party settings switched off by the configuration are refused.
  other.setEnabledFlags(true, false);
  EXPECT_FALSE(other.setConsent(consent("granted", nullptr), kAPMConsentSettings3PKey).accepted);
  EXPECT_EQ(other.consentSettings().at("ad_storage"), "denied");
}

TEST_F(APMConsentSettingsUtilTest, InvalidEntriesAreDroppedAndEmptyIsDiscarded) {
  kit::Dictionary mixed{{"ad_storage", "yes"}, {"analytics_storage", "denied"}, {"other", "granted"},
                        {"ad_personalization", 1}};
  EXPECT_EQ(APMConsentSettingsUtil::consentSettingsFromDictionary(mixed),
            (APMConsentSettings{{"analytics_storage", "denied"}}));
  EXPECT_TRUE(monitor_.find("Valid consent values are 'granted' and 'denied'. Ignoring invalid "
                            "consent setting. Key, value"));
  EXPECT_FALSE(util_.setConsent({{"ad_storage", "GRANTED"}}).accepted);
  EXPECT_TRUE(monitor_.find("Discarding empty consent settings"));
  EXPECT_EQ(util_.consentSource(), kAPMConsentSourceUnset);
}

TEST_F(APMConsentSettingsUtilTest, PersistedSettingsComeBackWithCappedSource) {
  ASSERT_TRUE(util_.setConsent(consent("denied", "granted")).accepted);
  APMConsentSettingsUtil reloaded(store_);
  reloaded.loadPersistedConsentSettings();
  EXPECT_EQ(reloaded.consentSource(), kAPMConsentSourceApp);  // 30 is under the cap of 40
  EXPECT_EQ(reloaded.consentSignals(), "G101");

  ASSERT_TRUE(util_.setConsent(consent("granted", nullptr), kAPMConsentSettings3PKey).accepted);
  APMConsentSettingsUtil third(store_);
  third.loadPersistedConsentSettings();
  EXPECT_EQ(third.consentSource(), kAPMConsentSource3P);
  EXPECT_EQ(third.consentSignals(), "G111");

  // A stored source above the cap comes back at the cap.
  store_->setInteger(100, kAPMConsentSourceKey);
  APMConsentSettingsUtil capped(store_);
  capped.loadPersistedConsentSettings();
  EXPECT_EQ(capped.consentSource(), kAPMConsentSourcePersisted3P);
  store_->setObject(kit::Value(), kAPMConsentSettings3PKey);
  APMConsentSettingsUtil firstParty(store_);
  firstParty.loadPersistedConsentSettings();
  EXPECT_EQ(firstParty.consentSource(), kAPMConsentSourcePersisted);

  util_.clearConsent();
  APMConsentSettingsUtil cleared(store_);
  cleared.loadPersistedConsentSettings();
  EXPECT_EQ(cleared.consentSource(), kAPMConsentSourceUnset);
  EXPECT_EQ(cleared.consentSignals(), "G1--");
}

TEST_F(APMConsentSettingsUtilTest, WithdrawalIsOnlyAGrantTurnedDenied) {
  EXPECT_TRUE(util_.didWithdrawPreviousConsent({{"ad_storage", "denied"}}));  // unset to denied
  util_.setConsent(consent("denied", "denied"));
  EXPECT_FALSE(util_.setConsent(consent("granted", "granted")).withdrew);
  EXPECT_TRUE(util_.setConsent(consent(nullptr, "denied")).withdrew);
  EXPECT_FALSE(util_.setConsent(consent(nullptr, "denied")).withdrew);
  EXPECT_EQ(APMConsentSettingsUtil::consentSettingsFromPlist(
                {{"STUVOP_ANALYTICS_DEFAULT_ALLOW_AD_STORAGE", false},
                 {"STUVOP_ANALYTICS_DEFAULT_ALLOW_ANALYTICS_STORAGE", true}}),
            (APMConsentSettings{{"ad_storage", "denied"}, {"analytics_storage", "granted"}}));
}

// --- through the running client ---

class APMConsentClientTest : public APMEventsTest {
 protected:
  void SetUp() override {
    APMMeasurement::setSharedInstance(measurement_);
    onWorker([&] { ASSERT_TRUE(m().startMeasurementOnWorkerQueue()); });
  }
  void TearDown() override { APMMeasurement::setSharedInstance(nullptr); }
  std::vector<APMQueuedBundle> bundleAll() {
    std::vector<APMQueuedBundle> out;
    onWorker([&] {
      while (m().bundleRawEvents()) {
      }
      auto queued = m().database()->queryBundlesWithCountLimit(1000, INT64_MAX, nullptr);
      ASSERT_TRUE(queued);
      out = std::move(*queued);
    });
    return out;
  }
};

TEST_F(APMConsentClientTest, EveryBundleCarriesTheSignalAndDeniedAnalyticsWithholdsIdentity) {
  APMAnalytics::setConsent(consent("granted", "granted"));
  env_.runUntilIdle();
  log(event("level_up"));
  auto granted = bundleAll();
  ASSERT_FALSE(granted.empty());
  EXPECT_EQ(APMPBString(granted.back().bundle->consent_signals), "G111");
  EXPECT_FALSE(APMPBString(granted.back().bundle->app_instance_id).empty());

  // Denying analytics withdraws consent: the data so far is reset, and what follows carries
  // no instance id.
  std::string instanceBefore = m().persistedConfig().appInstanceID();
  APMAnalytics::setConsent(consent(nullptr, "denied"));
  env_.runUntilIdle();
  EXPECT_TRUE(monitor_.find("Analytics data has been reset"));
  EXPECT_NE(m().persistedConfig().appInstanceID(), instanceBefore);
  log(event("level_up"));
  auto denied = bundleAll();
  ASSERT_FALSE(denied.empty());
  for (const auto& b : denied) {
    EXPECT_EQ(APMPBString(b.bundle->consent_signals), "G110");
    EXPECT_TRUE(APMPBString(b.bundle->app_instance_id).empty());
  }
}

TEST_F(APMConsentClientTest, GrantingAfterDenyingResetsNothing) {
  APMAnalytics::setConsent(consent("denied", "denied"));
  env_.runUntilIdle();
  monitor_.clear();
  log(event("level_up"));
  APMAnalytics::setConsent(consent("granted", "granted"));
  env_.runUntilIdle();
  EXPECT_FALSE(monitor_.find("Analytics data has been reset"));
  EXPECT_EQ(rawEventNames().size(), 1u);
}

TEST_F(APMConsentClientTest, WithdrawalBeforeTheClientRunsResetsAtItsStart) {
  APMMeasurement::setSharedInstance(nullptr);
  APMAnalytics::setConsent(consent("granted", nullptr));
  APMAnalytics::setConsent(consent("denied", nullptr));
  EXPECT_TRUE(APMConsentSettingsUtil::sharedInstance().deferredConsentReset());
  onWorker([&] { m().startMeasurementOnWorkerQueue(); });
  EXPECT_TRUE(monitor_.find("Analytics data has been reset"));
  EXPECT_FALSE(APMConsentSettingsUtil::sharedInstance().deferredConsentReset());
}

// Each start keeps the settings it begins with; with only the defaults in force, an update
// whose defaults deny what the last start granted withdraws consent.
TEST_F(APMConsentClientTest, AnUpdateWhoseDefaultsDenyWithdrawsAtStart) {
  APMConsentSettingsUtil& util = APMConsentSettingsUtil::sharedInstance();
  util.clearConsent();
  EXPECT_FALSE(util.settingsOnStart().has_value());
  auto startWithDefaults = [&](bool allowAnalytics) {
    util.setConsentSettings({});  // what a new process holds before its start
    APMLaunchContext::setInfoDictionary(
        {{"STUVOP_ANALYTICS_DEFAULT_ALLOW_ANALYTICS_STORAGE", allowAnalytics}});
    monitor_.clear();
    onWorker([&] { m().startMeasurementOnWorkerQueue(); });
  };
  startWithDefaults(true);
  EXPECT_FALSE(monitor_.find("Analytics data has been reset"));
  EXPECT_EQ(util.settingsOnStart(), (APMConsentSettings{{"analytics_storage", "granted"}}));
  startWithDefaults(false);
  EXPECT_TRUE(monitor_.find("Analytics data has been reset"));
  EXPECT_EQ(util.settingsOnStart(), (APMConsentSettings{{"analytics_storage", "denied"}}));
  startWithDefaults(false);  // denied before and now: nothing withdrawn
  EXPECT_FALSE(monitor_.find("Analytics data has been reset"));
  // Settings the app made are its own: an update of the defaults does not touch them.
  APMAnalytics::setConsent(consent(nullptr, "granted"));
  env_.runUntilIdle();
  util.setConsentSource(kAPMConsentSourceUnset);
  startWithDefaults(false);
  EXPECT_FALSE(monitor_.find("Analytics data has been reset"));
  EXPECT_EQ(util.consentSettings().at("analytics_storage"), "granted");
}

TEST_F(APMConsentClientTest, InfoDictionaryDefaultsAndDebugArguments) {
  APMConsentSettingsUtil::sharedInstance().clearConsent();
  APMLaunchContext::setInfoDictionary({{"STUVOP_ANALYTICS_DEFAULT_ALLOW_AD_STORAGE", false}});
  auto rest = APMLaunchContext::setLaunchArguments(
      {"-APMAnalyticsDebugEnabled", "--library", "/x", "-APMAnalyticsVerboseLoggingEnabled", "NO"});
  EXPECT_EQ(rest, (std::vector<std::string>{"--library", "/x"}));
  onWorker([&] { m().startMeasurementOnWorkerQueue(); });
  EXPECT_EQ(m().settings().consentSignals, "G10-");
  EXPECT_TRUE(m().settings().debugMode);
  EXPECT_TRUE(platform::preferences().boolForKey(kAPMDebugModeKey));
  EXPECT_FALSE(platform::preferences().boolForKey(kAPMVerboseLoggingKey));
  // Debug mode persists until a launch turns it off.
  APMLaunchContext::setLaunchArguments({});
  EXPECT_TRUE(APMLaunchContext::applyDebugArguments(platform::preferences()).debugMode);
  APMLaunchContext::setLaunchArguments({"-noAPMAnalyticsDebugEnabled"});
  EXPECT_FALSE(APMLaunchContext::applyDebugArguments(platform::preferences()).debugMode);

  APMLaunchContext::setInfoDictionary({{"ORVEX_ANALYTICS_COLLECTION_DEACTIVATED", true}});
  onWorker([&] { m().startMeasurementOnWorkerQueue(); });
  EXPECT_TRUE(monitor_.find("Analytics collection deactivated"));
  EXPECT_FALSE(m().settings().analyticsEnabled);
}

}  // namespace
