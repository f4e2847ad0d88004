// The consent entry points of APMAnalytics and the consent work of APMMeasurement on the
// worker queue.
#include "measurement/APMMonitor.h"
#include "measurement/consent/APMCampaign.h"
#include "platform/Platform.h"
#include "measurement/consent/APMConsentSettingsUtil.h"
#include "measurement/consent/APMLaunchContext.h"
#include "measurement/events/APMAnalytics.h"
#include "measurement/events/APMMeasurement.h"

namespace {

enum : int {
  kCodeResetDone = 22101,
  kCodeResetFailed = 22102,
  kCodeDeferredReset = 22103,
  kCodeDeactivated = 22104,
};

}  // namespace

void APMHandleStoredURLOnWorkerQueue(APMMeasurement& measurement);

void APMAnalytics::setConsent(const kit::Dictionary& consent) { setConsentForKey(consent, {}); }

void APMAnalytics::setConsentForKey(const kit::Dictionary& consent, const std::string& key) {
  APMConsentSettingsUtil& util = APMConsentSettingsUtil::sharedInstance();
  APMConsentSettingsUtil::Outcome outcome = util.setConsent(consent, key);
  if (!outcome.accepted) return;
  std::shared_ptr<APMMeasurement> measurement = APMMeasurement::sharedInstance();
  if (!measurement) {
    if (outcome.withdrew) util.setDeferredConsentReset(true);
    return;
  }
  bool withdrew = outcome.withdrew;
  measurement->scheduler().scheduleOnWorkerQueueBlockID(
      "APMAnalytics:setConsent", [measurement, withdrew] {
        if (withdrew) measurement->resetAnalyticsDataOnWorkerQueue();
        measurement->refreshConsentOnWorkerQueue();
      });
}

void APMAnalytics::clearConsent() {
  APMConsentSettingsUtil::sharedInstance().clearConsent();
  if (std::shared_ptr<APMMeasurement> measurement = APMMeasurement::sharedInstance()) {
    measurement->scheduler().scheduleOnWorkerQueueBlockID(
        "APMAnalytics:clearConsent", [measurement] { measurement->refreshConsentOnWorkerQueue(); });
  }
}

void APMMeasurement::refreshConsentOnWorkerQueue() {
  APMConsentSettingsUtil& util = APMConsentSettingsUtil::sharedInstance();
  APMRemoteConfig& config = remoteConfig();
  util.setEnabledFlags(config.isConsentSettingsEnabled(), config.isConsentSettings3PEnabled());
  settings_.consentSignals = util.consentSignals();
}

void APMMeasurement::applyConsentAtStartOnWorkerQueue() {
  APMConsentSettingsUtil& util = APMConsentSettingsUtil::sharedInstance();
  if (util.consentSource() == kAPMConsentSourceUnset) {
    util.loadPersistedConsentSettings();
    if (util.consentSource() == kAPMConsentSourceUnset && util.consentSettings().empty()) {
      util.setConsentSettings(
          APMConsentSettingsUtil::consentSettingsFromPlist(APMLaunchContext::infoDictionary()));
    }
  }
  // Each start keeps the settings it begins with. While only the information dictionary's
  // defaults are in force, a switch granted at the last start and denied at this one was
  // withdrawn by an update of the app, and the data gathered under the grant goes as at any
  // withdrawal. (A setting the app or another party made went through setConsent, which has
  // dealt with its own withdrawal.)
  APMConsentSettings atStart = util.consentSettings();
  std::optional<APMConsentSettings> lastStart = util.settingsOnStart();
  if (util.consentSource() == kAPMConsentSourceUnset && lastStart &&
      APMConsentSettingsUtil::withdraws(*lastStart, atStart)) {
    util.setDeferredConsentReset(true);
  }
  util.setSettingsOnStart(atStart);
  if (util.deferredConsentReset()) {
    APMMonitor::log(kAPMMonitorLevelNotice, kCodeDeferredReset,
                    "Resetting analytics data after consent was withdrawn");
    util.setDeferredConsentReset(false);
    resetAnalyticsDataOnWorkerQueue();
  }
  refreshConsentOnWorkerQueue();
  // The launch: the information dictionary's switches and the debug arguments.
  if (APMLaunchContext::infoBool("ORVEX_ANALYTICS_COLLECTION_DEACTIVATED").value_or(false)) {
    APMMonitor::log(kAPMMonitorLevelNotice, kCodeDeactivated, "Analytics collection deactivated");
    settings_.analyticsEnabled = false;
  } else if (auto enabled = APMLaunchContext::infoBool("ORVEX_ANALYTICS_COLLECTION_ENABLED")) {
    settings_.analyticsEnabled = *enabled;
  }
  APMLaunchContext::DebugSettings debug = APMLaunchContext::applyDebugArguments(platform::preferences());
  if (debug.debugMode) settings_.debugMode = true;
  if (debug.verboseLogging) APMMonitor::setConsoleLevel(kAPMMonitorLevelMax);
  if (settings_.analyticsEnabled) {
    APMHandleStoredURLOnWorkerQueue(*this);
    requestDeferredDeepLink();
  }
}

void APMMeasurement::resetAnalyticsDataOnWorkerQueue() {
  scheduler_.checkOnBackgroundThreadWithMethodName("resetAnalyticsDataOnWorkerQueue");
  platform::Error error;
  if (database_ && !database_->reset(&error)) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeResetFailed, "Failed to reset database",
                    error.localizedDescription);
  }
  rawEventFacts_.valid = false;
  persistedConfig_->setAppInstanceID("");
  persistedConfig_->setConfigServerETag("");
  persistedConfig_->setConfigServerLastModifiedString("");
  if (database_) openRemoteConfigOnWorkerQueue();
  APMMonitor::log(kAPMMonitorLevelNotice, kCodeResetDone, "Analytics data has been reset");
}

// ---- campaigns ----

namespace {

constexpr const char* kDeepLinkKey = "/stuvop/measurement/deep_link";
constexpr const char* kDeepLinkTimestampKey = "/stuvop/measurement/deep_link_timestamp_seconds";

enum : int {
  kCodeCampaign = 22301,
  kCodeStoredLink = 22302,
  kCodeURLOnWorkerQueue = 22303,
};

// A parameter that says yes: the integer 1, or the text "1".
bool isOne(const APMValue& value) {
  if (value.isInt64()) return value.int64Value() == 1;
  if (value.isDouble()) return value.doubleValue() == 1.0;
  return value.isString() && value.stringValue() == "1";
}

}  // namespace

void APMAnalytics::handleOpenURL(const std::string& url) {
  double now = APMMeasurement::now();
  if (std::shared_ptr<APMMeasurement> measurement = APMMeasurement::sharedInstance()) {
    measurement->handleNonFirstOpenEventURL(url, now);
    return;
  }
  platform::PreferenceStore& store = platform::preferences();
  store.setObject(kit::Value(url), kDeepLinkKey);
  store.setObject(kit::Value(now), kDeepLinkTimestampKey);
}

void APMMeasurement::handleNonFirstOpenEventURL(const std::string& url, double eventTimestampInSeconds) {
  if (scheduler_.isOnWorkerQueue()) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeURLOnWorkerQueue,
                    "Do not call handleNonFirstOpenOpenURL on the measurement worker queue");
    return;
  }
  std::int64_t clickTimestampInMs = APMMilliseconds(eventTimestampInSeconds);
  std::weak_ptr<int> alive = alive_;
  scheduler_.scheduleOnWorkerQueueBlockID(
      "APMMeasurement:handleOpenURL", [this, alive, url, clickTimestampInMs, eventTimestampInSeconds] {
        if (alive.expired()) return;
        handleOpenURLOnWorkerQueue(url, clickTimestampInMs, eventTimestampInSeconds, {});
      });
}

bool APMMeasurement::shouldAllowClickID() {
  platform::AdvertisingIdentity& identity = platform::advertisingIdentity();
  std::optional<std::string> id = identity.advertisingIdentifier();
  if (!id || id->empty()) return false;
  std::optional<int> tracking = identity.trackingAuthorizationStatus();
  return !tracking || *tracking == platform::kTrackingAuthorized;
}

void APMMeasurement::handleOpenURLOnWorkerQueue(const std::string& url,
                                                std::int64_t clickTimestampInMs,
                                                double eventTimestampInSeconds,
                                                const APMParameters& extraParameters) {
  scheduler_.checkOnBackgroundThreadWithMethodName("handleOpenURLOnWorkerQueue");
  std::map<std::string, std::string> campaign = APMCampaignParametersOfURL(url, shouldAllowClickID());
  if (campaign.empty() || !APMIsValidCampaignURLParamDictionary(campaign)) return;
  APMParameters parameters = extraParameters;
  for (const auto& [key, value] : campaign) parameters.insert_or_assign(key, APMValue::fromString(value));
  parameters.insert_or_assign("click_timestamp", APMValue::fromInt64(clickTimestampInMs));
  if (cameTooLateForFirstOpenOnWorkerQueue(eventTimestampInSeconds)) {
    parameters.insert_or_assign("_cmpx", APMValue::fromInt64(1));
  }
  // The privacy-preserving click id is kept for later events only where the link allows it.
  auto allowed = parameters.find("_cc");
  bool keepsClickID = allowed != parameters.end() && isOne(allowed->second) && campaign.count("sbraid");
  auto event = APMEvent::create("auto", "_cmp", eventTimestampInSeconds, 0, std::move(parameters));
  if (!event) return;
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeCampaign, "Logging campaign event. URL", url);
  handleInternalEventOnWorkerQueue(*event);
  setUserAttributeOnWorkerQueue("_ldl", APMValue::fromString(url), "auto", eventTimestampInSeconds);
  if (keepsClickID) {
    setUserAttributeOnWorkerQueue("_sbraid", APMValue::fromString(campaign.at("sbraid")), "auto",
                                  eventTimestampInSeconds);
  }
}

bool APMMeasurement::cameTooLateForFirstOpenOnWorkerQueue(double eventTimestampInSeconds) {
  platform::Error error;
  auto firstOpen = database_ ? database_->queryUserAttributeWithName("_fot", &error) : std::nullopt;
  if (!firstOpen || !*firstOpen || !(*firstOpen)->value.isInt64()) return false;
  // The first open's time is rounded up to the hour, so a campaign may carry an earlier one.
  double sinceFirstOpen = eventTimestampInSeconds - (*firstOpen)->value.int64Value() / 1000.0;
  return sinceFirstOpen <= remoteConfig().attributionCacheTTLInterval();
}

// A URL that arrived before the client ran.
void APMHandleStoredURLOnWorkerQueue(APMMeasurement& measurement) {
  platform::PreferenceStore& store = platform::preferences();
  std::optional<std::string> url = store.stringForKey(kDeepLinkKey);
  if (!url || url->empty()) return;
  double timestamp = store.doubleForKey(kDeepLinkTimestampKey);
  store.setObject(kit::Value(), kDeepLinkKey);
  store.setObject(kit::Value(), kDeepLinkTimestampKey);
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeStoredLink, "Reporting the URL that opened the app");
  measurement.handleOpenURLOnWorkerQueue(*url, APMMilliseconds(timestamp), timestamp, {});
}
