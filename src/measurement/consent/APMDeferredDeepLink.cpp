// The deferred deep link: asked of the collection host once after install, its answer reported
// through the URL path and handed to the application.
#include <mutex>

#include "kit/Dispatch.h"
#include "measurement/APMMonitor.h"
#include "measurement/consent/APMCampaign.h"
#include "measurement/consent/APMLaunchContext.h"
#include "measurement/events/APMAnalytics.h"
#include "measurement/events/APMMeasurement.h"
#include "platform/Platform.h"

namespace {

enum : int {
  kCodeDisabled = 22401,
  kCodeAlreadyRetrieved = 22402,
  kCodeRetryLimit = 22403,
  kCodeNoIDFA = 22404,
  kCodeEnabled = 22405,
  kCodeBadURL = 22406,
  kCodeFailed = 22407,
  kCodeSucceeded = 22408,
  kCodeEmpty = 22409,
  kCodeDelegate = 22411,
};

constexpr const char* kCompleteKey = "/stuvop/measurement/deep_link_retrieval_complete";
constexpr const char* kRetryCountKey = "/stuvop/measurement/deep_link_retry_count";

std::mutex gHandlerMu;
std::function<void(const std::string&)> gHandler;

std::string percentEncoded(const std::string& text) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : text) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
        c == '.' || c == '_' || c == '~') {
      out.push_back(static_cast<char>(c));
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

}  // namespace

void APMAnalytics::setDeferredDeepLinkHandler(std::function<void(const std::string&)> handler) {
  std::lock_guard lock(gHandlerMu);
  gHandler = std::move(handler);
}

bool APMMeasurement::shouldAllowRequestDeferredDeepLink() {
  platform::PreferenceStore& store = platform::preferences();
  if (!remoteConfig().isDeferredDeepLinkEnabled() ||
      !APMLaunchContext::infoBool("STUVOP_ANALYTICS_DEFERRED_DEEP_LINK_ENABLED").value_or(false)) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeDisabled, "Deferred Deep Link feature disabled");
    return false;
  }
  if (store.boolForKey(kCompleteKey)) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeAlreadyRetrieved,
                    "Already retrieved Deferred Deep Link. Skipping");
    return false;
  }
  if (store.integerForKey(kRetryCountKey) >= remoteConfig().maxDeferredDeepLinkRetryCount()) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeRetryLimit,
                    "Failed to retrieve Deferred Deep Link. Reached retry limit");
    store.setBool(true, kCompleteKey);
    return false;
  }
  platform::AdvertisingIdentity& identity = platform::advertisingIdentity();
  std::optional<std::string> id = identity.advertisingIdentifier();
  std::optional<int> tracking = identity.trackingAuthorizationStatus();
  if (!id || id->empty() || (tracking && *tracking != platform::kTrackingAuthorized)) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeNoIDFA,
                    "IDFA unavailable to retrieve Deferred Deep Link. Skipping");
    return false;
  }
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeEnabled, "Deferred Deep Link feature enabled");
  return true;
}

void APMMeasurement::requestDeferredDeepLink() {
  if (!shouldAllowRequestDeferredDeepLink()) return;
  std::shared_ptr<platform::Network> network = platform::services().network;
  std::string host = network ? network->measurementHost() : std::string();
  if (host.empty() || host.find("://") == std::string::npos) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeBadURL, "URL to retrieve Deferred Deep Link is invalid");
    return;
  }
  std::string url = host + "/adserve/conversion/app/deeplink?sdk_version=" +
                    std::to_string(kAPMLibraryVersion) + "&rdid=" +
                    percentEncoded(platform::advertisingIdentity().advertisingIdentifier().value_or("")) +
                    "&id_type=idfa&bundleid=" + percentEncoded(appInfo_.bundleIdentifier) +
                    "&retry=" + std::to_string(platform::preferences().integerForKey(kRetryCountKey));
  if (APMLaunchContext::hasLaunchArgument("-DebugDeferredDeepLink")) url += "&ddl_test=1";
  if (!network->getURL(url, {}, scheduler_.queue(), false,
                       workerCompletion(&APMMeasurement::handleDeferredDeepLinkResponse))) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeBadURL, "URL to retrieve Deferred Deep Link is invalid");
  }
}

void APMMeasurement::handleDeferredDeepLinkResponse(const platform::NetworkResponse& response,
                                                    const std::optional<platform::Error>& error) {
  platform::PreferenceStore& store = platform::preferences();
  if (error || response.statusCode < 200 || response.statusCode > 299) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeFailed,
                    "Failed to retrieve Deferred Deep Link. Will retry on next launch. Code, error",
                    response.statusCode, error ? error->localizedDescription : std::string());
    store.setInteger(store.integerForKey(kRetryCountKey) + 1, kRetryCountKey);
    return;
  }
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeSucceeded, "Successfully retrieved Deferred Deep Link");
  store.setBool(true, kCompleteKey);
  if (response.body.empty()) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeEmpty, "Deferred Deep Link response is empty");
    return;
  }
  std::optional<APMDeepLinkInfo> info = APMDeepLinkInfoFromResponseData(response.body);
  if (!info || info->deeplink.empty()) return;
  // handleDeferredDeepLinkInfo: reported as the URL that opened the app, then handed over.
  double now = APMMeasurement::now();
  handleOpenURLOnWorkerQueue(info->deeplink,
                             APMMilliseconds(info->timestamp > 0 ? info->timestamp : now), now,
                             info->parameters);
  std::function<void(const std::string&)> handler;
  {
    std::lock_guard lock(gHandlerMu);
    handler = gHandler;
  }
  if (!handler) {
    APMMonitor::log(kAPMMonitorLevelNotice, kCodeDelegate,
                    "App delegate not configured to handle Deferred Deep Link");
    return;
  }
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeDelegate, "Sending Deferred Deep Link to app delegate");
  kit::mainQueue().async([handler, link = info->deeplink] { handler(link); });
}
