// The upload side of APMMeasurement: the schedule, the upload pass and its result, the
// configuration fetch and its result. Everything here runs on the worker queue.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "kit/Date.h"
#include "kit/Dispatch.h"
#include "measurement/APMMonitor.h"
#include "measurement/events/APMEvent.h"
#include "measurement/events/APMIdentity.h"
#include "measurement/events/APMMeasurement.h"
#include "measurement/experiments/APMEManager.h"
#include "measurement/upload/APMUploadBatch.h"
#include "measurement/upload/APMUploadSchedule.h"
#include "platform/Platform.h"

namespace {

enum : int {
  kCodeSuspended = 7001,
  kCodeNoData = 7002,
  kCodeNoNextTime = 7003,
  kCodeNoNetwork = 7004,
  kCodeTaskExists = 7005,
  kCodeScheduled = 7006,
  kCodeStartingUpload = 7007,
  kCodePending = 7008,
  kCodeNotConnected = 7009,
  kCodeQueryFailed = 7010,
  kCodeElapsed = 7011,
  kCodeFilterBoth = 7012,
  kCodeSent = 7013,
  kCodeNoSession = 7014,
  kCodeDeleteFailed = 7015,
  kCodeUploadFailed = 7016,
  kCodeRetryFailed = 7017,
  kCodeConfigPending = 7018,
  kCodeConfigURL = 7019,
  kCodeFetching = 7020,
  kCodeFetched = 7021,
  kCodeConfigNotFound = 7022,
  kCodeConfigNotModified = 7023,
  kCodeConfigTimestamp = 7024,
  kCodeConfigFetched = 7025,
  kCodeConfigInvalid = 7026,
  kCodeConfigAppID = 7027,
  kCodeConfigUpdate = 7028,
  kCodeConfigFailed = 7029,
  kCodeConfigRetry = 7030,
  kCodeNoHost = 7031,
  kCodeStaleData = 7032,
  kCodeNetworkDisagrees = 7033,
  kCodeResignActive = 7034,
};

// How long a failed delete or timestamp write holds uploads, seconds of uptime.
constexpr double kSuspendInterval = 3600;
// The smallest delay the alarm is armed with.
constexpr double kEpsilon = 2.220446049250313e-16;
// The script runtime's version as the configuration request passes it; 0 while the client
// carries no runtime.
constexpr std::int64_t kAPMRuntimeVersion = 0;

std::shared_ptr<platform::Network> installedNetwork() { return platform::services().network; }

bool isSuccess(int status) {
  return status == platform::kSULNetworkHTTPStatusOK ||
         status == platform::kSULNetworkHTTPStatusNoContent;
}

bool isBackoffStatus(int status) {
  return status == platform::kSULNetworkHTTPStatusCodeUnavailable ||
         status == platform::kSULNetworkHTTPStatusCodeCannotAcceptTraffic;
}

std::string errorText(const std::optional<platform::Error>& error) {
  return error ? error->localizedDescription : std::string();
}

// Withholds the fields the data controls name; records each applied name in tag 64.
void applyDataControls(APMPBMeasurementBundle& b, const std::vector<std::string>& controls,
                       const std::string& ephemeralID) {
  for (const std::string& name : controls) {
    bool applied = false;
    if (name == "app_instance_id") {
      APMPBClearString(&b.app_instance_id);
      if (!ephemeralID.empty()) APMPBSetString(&b.ephemeral_app_instance_id, ephemeralID);
      applied = true;
    } else if (name == "user_id") {
      pb_size_t kept = 0;
      for (pb_size_t i = 0; i < b.user_properties_count; ++i) {
        if (APMPBString(b.user_properties[i].name) == "_id") {
          pb_release(APMPBMessage<APMPBUserAttribute>::fields(), &b.user_properties[i]);
          continue;
        }
        b.user_properties[kept++] = b.user_properties[i];
      }
      b.user_properties_count = kept;
      applied = true;
    }
    if (name == "os_version" || name == "device_info") {
      APMPBClearString(&b.os_version);
      applied = true;
    }
    if (name == "device_model" || name == "device_info") {
      APMPBClearString(&b.device_model);
      applied = true;
    }
    if (applied) APMPBAppendString(&b.redacted_fields, &b.redacted_fields_count, name);
  }
}

}  // namespace

bool APMEncodeBundleForUpload(APMPBMeasurementBundle& bundle, bool checksum, kit::Data* out,
                              platform::Error* error) {
  const pb_msgdesc_t* fields = APMPBMessage<APMPBMeasurementBundle>::fields();
  if (checksum) bundle.has_checksum = false;
  if (!APMPBEncodeBundle(bundle, out, error, SIZE_MAX)) return false;
  if (!checksum) return true;
  if (!APMPBWithinStreamLimit(out->size(), kAPMPBStreamLimit, nullptr)) return true;
  bundle.has_checksum = true;
  bundle.checksum = apm_64LSBMD5(*out);
  // Fields are written in declaration order, so the checksum's bytes go in right before
  // those of the fields declared after it.
  auto tail = APMPBEncodedSizeAfterField(bundle, apm_MeasurementBundle_checksum_tag);
  APMPBMeasurementBundle only{};
  only.has_checksum = true;
  only.checksum = bundle.checksum;
  kit::Data field;
  if (!tail || *tail > out->size() || !APMPBEncode(fields, &only, &field, nullptr)) {
    return APMPBEncodeBundle(bundle, out, error, SIZE_MAX);
  }
  out->insert(out->end() - static_cast<std::ptrdiff_t>(*tail), field.begin(), field.end());
  return true;
}

APMRemoteConfig& APMMeasurement::remoteConfig() {
  return remoteConfig_ ? *remoteConfig_ : APMRemoteConfig::defaultInstance();
}

std::string APMMeasurement::configurationAppID() const {
  if (!appInfo_.stuvopAppID.empty()) return appInfo_.stuvopAppID;
  if (!appInfo_.appID.empty()) return appInfo_.appID;
  return appInfo_.bundleIdentifier;
}

void APMMeasurement::openRemoteConfigOnWorkerQueue() {
  if (experimentsEnabled_ && !experimentManager_) {
    APMEManagerOptions options;
    options.databasePath =
        (std::filesystem::path(databasePath_).parent_path() / APMEDatabase::kDatabaseName).string();
    experimentManager_ = APMEManager::create(options);
    experimentManager_->start();
  }
  std::string diversionKey = persistedConfig_->diversionKey();
  if (diversionKey.empty()) {
    diversionKey = APMRandomIdentifier();
    persistedConfig_->setDiversionKey(diversionKey);
  }
  remoteConfig_ = APMRemoteConfig::initWithAppID(configurationAppID(), appInfo_.adnetAppID,
                                                 database_.get(), experimentManager_, diversionKey);
  if (remoteConfig_->version() >= 0 || !remoteConfig_->dataControls().empty()) {
    applyRemoteConfigOnWorkerQueue();
  } else {
    platform::Error error;
    auto stored = database_->queryRemoteConfigData(&error);
    if (stored && !stored->empty()) applyRemoteConfigOnWorkerQueue();
  }
}

void APMMeasurement::activateNewSnapshotOnWorkerQueue() {
  if (remoteConfig().activateNewSnapshot()) applyRemoteConfigOnWorkerQueue();
}

void APMMeasurement::applyRemoteConfigOnWorkerQueue() {
  APMDatabaseLimits limits = database_ ? database_->limits() : APMDatabaseLimits{};
  remoteConfig().applyToSettings(settings_, limits);
  if (database_) database_->setLimits(limits);
}

std::string APMMeasurement::measurementHost() {
  auto network = installedNetwork();
  std::string host = network ? network->measurementHost() : std::string();
  if (host.empty() && !reportedNoHost_) {
    reportedNoHost_ = true;
    APMMonitor::log(kAPMMonitorLevelNotice, kCodeNoHost,
                    "No collection host is configured. Measurement data stays on this computer");
  }
  return host;
}

platform::NetworkCompletion APMMeasurement::workerCompletion(
    void (APMMeasurement::*handler)(const platform::NetworkResponse&,
                                    const std::optional<platform::Error>&)) {
  std::weak_ptr<int> alive = alive_;
  return [this, alive, handler](const platform::NetworkResponse& response,
                                const std::optional<platform::Error>& error) {
    if (!alive.lock()) return;
    scheduler_.scheduleOnWorkerQueueBlockID(
        "APMMeasurement:networkCompletion", [this, alive, handler, response, error] {
          if (alive.lock()) (this->*handler)(response, error);
        });
  };
}

// ---- schedule ----

double APMNextUploadingTime(APMDatabase& database, APMPersistedConfig& persisted,
                            APMRemoteConfig& config, bool debugMode, double current) {
  platform::Error error;
  double newest = std::max(database.queryLatestRawEventTime(&error).value_or(0),
                           database.queryLatestBundleTime(&error).value_or(0));
  bool realtime = database.containsRealtimeBundlesWithError(&error).value_or(false) ||
                  database.containsRealtimeRawEventsWithError(&error).value_or(false);
  return APMNextUploadingTimeWithData(newest, realtime, persisted, config, debugMode, current);
}

double APMNextUploadingTimeWithData(double newest, bool realtime, APMPersistedConfig& persisted,
                                    APMRemoteConfig& config, bool debugMode, double current) {
  if (std::fabs(newest) < kEpsilon) return 0;
  realtime = realtime || debugMode;
  double interval = realtime ? config.uploadingRealTimeInterval() : config.uploadingInterval();
  double age = std::fabs(newest - current);
  double dataTime = current - age;
  double lastSuccess = persisted.lastSuccessfulUploadTimestamp();
  double next = std::fabs(current - lastSuccess) < interval
                    ? lastSuccess + interval
                    : dataTime + config.uploadingInitialDelayInterval();
  double lastFailed = persisted.lastFailedUploadTimestamp();
  if (!(lastFailed < dataTime)) {
    std::int64_t retries = config.uploadingRetryCount();
    double retryInterval = config.uploadingRetryInterval();
    for (std::int64_t i = 0; i < retries; ++i) {
      next += retryInterval * std::pow(2.0, static_cast<double>(i));
      if (next > lastFailed) return next;
    }
    return 0;
  }
  if (debugMode) return std::min(next, dataTime + config.uploadingDebugModeInterval());
  return next;
}

const APMMeasurement::RawEventFacts& APMMeasurement::rawEventFacts() {
  if (!rawEventFacts_.valid && database_) {
    platform::Error error;
    auto newest = database_->queryLatestRawEventTime(&error);
    auto realtime = database_->containsRealtimeRawEventsWithError(&error);
    if (newest && realtime) rawEventFacts_ = {true, *newest, *realtime};
    else return rawEventFacts_ = {false, newest.value_or(0), realtime.value_or(false)};
  }
  return rawEventFacts_;
}

void APMMeasurement::noteRawEventWritten(double timestamp, bool realtime) {
  if (!rawEventFacts_.valid) return;
  rawEventFacts_.newest = std::max(rawEventFacts_.newest, timestamp);
  rawEventFacts_.realtime = rawEventFacts_.realtime || realtime;
}

double APMMeasurement::nextUploadingTime() {
  if (!database_) return 0;
  platform::Error error;
  const RawEventFacts& raw = rawEventFacts();
  double newest = std::max(raw.newest, database_->queryLatestBundleTime(&error).value_or(0));
  bool realtime =
      raw.realtime || database_->containsRealtimeBundlesWithError(&error).value_or(false);
  return APMNextUploadingTimeWithData(newest, realtime, *persistedConfig_, remoteConfig(),
                                      settings_.debugMode, now());
}

void APMMeasurement::setSuspendedUploadTimestamp(double uptime) {
  suspendedUploadTimestamp_ = uptime;
}

void APMMeasurement::suspendUploads(const std::string& message) {
  setSuspendedUploadTimestamp(kit::uptime());
  APMMonitor::log(kAPMMonitorLevelError, kCodeDeleteFailed, message, kSuspendInterval);
}

void APMMeasurement::updateSchedule() {
  if (!database_) return;
  auto reachability = platform::services().reachability;
  auto stop = [&](bool watchNetwork) {
    alarm_.cancel();
    if (!reachability) return;
    if (!watchNetwork) {
      reachability->setReachabilityHandler(nullptr);
      return;
    }
    std::weak_ptr<int> alive = alive_;
    reachability->setReachabilityHandler([this, alive](bool) {
      if (!alive.lock()) return;
      scheduler_.scheduleOnWorkerQueueBlockID("APMMeasurement:reachabilityDidChange",
                                              [this, alive] {
                                                if (alive.lock()) updateSchedule();
                                              });
    });
  };
  if (suspendedUploadTimestamp_ > 0) {
    double elapsed = kit::uptime() - suspendedUploadTimestamp_;
    if (elapsed >= 0 && elapsed < kSuspendInterval) {
      APMMonitor::log(kAPMMonitorLevelNotice, kCodeSuspended,
                      "Upload has been suspended. Will update scheduling later. Seconds",
                      kSuspendInterval - elapsed);
      stop(false);
      return;
    }
    suspendedUploadTimestamp_ = 0;
  }
  if (!hasDataToUpload()) {
    activateNewSnapshotOnWorkerQueue();
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeNoData,
                    "No data to upload. Upload task will not be scheduled");
    stop(false);
    return;
  }
  if (measurementHost().empty()) {
    stop(false);
    return;
  }
  double next = nextUploadingTime();
  if (next == 0) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeNoNextTime,
                    "No next uploading time. Upload task will not be scheduled");
    stop(false);
    return;
  }
  auto network = installedNetwork();
  if (!network->isNetworkConnected()) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeNoNetwork,
                    "No network. Upload task will not be scheduled");
    stop(true);
    return;
  }
  double current = now();
  std::optional<double> delay = alarm_.delayUntil(next, current, persistedConfig_->lastBackoffTimestamp(),
                                                  remoteConfig().uploadingBackoffInterval());
  if (!delay) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeTaskExists,
                    "Do not schedule an upload task. Task already exists. Will be executed in seconds",
                    alarm_.scheduledTimestamp() - current);
    return;
  }
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeScheduled, "Upload task scheduled. Seconds", *delay);
  std::weak_ptr<int> alive = alive_;
  alarm_.runAfterDelay(*delay, [this, alive] {
    if (!alive.lock()) return;
    scheduler_.scheduleOnWorkerQueueBlockID("APMMeasurement:alarm", [this, alive] {
      if (alive.lock()) uploadDataOrRegisterAlarm();
    });
  });
}

void APMMeasurement::handleAppWillResignActiveEvent() {
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeResignActive,
                  "App will resign active state. Scheduling data upload");
  std::weak_ptr<int> alive = alive_;
  scheduler_.scheduleOnWorkerQueueBlockID("APMMeasurement:resignActive", [this, alive] {
    if (alive.lock()) updateSchedule();
  });
}

void APMMeasurement::uploadDataOrRegisterAlarm() {
  auto network = installedNetwork();
  if (network && network->isNetworkConnected() && hasDataToUpload()) {
    uploadData();
  } else {
    updateSchedule();
  }
}

bool APMMeasurement::hasDataToUpload() {
  if (!database_) return false;
  platform::Error error;
  auto rawEmpty = database_->isRawEventsTableEmpty(&error);
  if (rawEmpty && !*rawEmpty) return true;
  auto queueEmpty = database_->isQueuedBundleTableEmpty(&error);
  return queueEmpty && !*queueEmpty;
}

bool APMMeasurement::isNetworkReadyForRequest() {
  auto network = installedNetwork();
  bool networkUploading = network && network->hasUploadInProgress();
  if (networkRequestPending_ && !networkUploading) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeNetworkDisagrees,
                    "Analytics is uploading but network is not uploading");
  }
  return !networkRequestPending_ && !networkUploading;
}

void APMMeasurement::setUploadInProgressWithBundleIDs(std::vector<std::int64_t> bundleIDs) {
  networkRequestPending_ = true;
  inFlightBundleIDs_ = std::move(bundleIDs);
}

// ---- upload pass ----

std::vector<APMQueuedBundle> APMMeasurement::filteredBundlesWithCompatibleAppID(
    const std::string& appID, const std::string& resettableDeviceID,
    const std::string& vendorDeviceID, std::vector<APMQueuedBundle> bundlesToUpload) {
  if (!resettableDeviceID.empty() && !vendorDeviceID.empty()) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeFilterBoth,
                    "Bundle filter must not specify both resettableDeviceID and vendorDeviceID");
    return {};
  }
  std::vector<APMQueuedBundle> kept;
  for (APMQueuedBundle& queued : bundlesToUpload) {
    const APMPBMeasurementBundle& b = *queued.bundle;
    if (APMPBString(b.app_id) != appID) continue;
    if (!resettableDeviceID.empty() && APMPBString(b.resettable_device_id) != resettableDeviceID) {
      continue;
    }
    if (!vendorDeviceID.empty() && APMPBString(b.vendor_device_id) != vendorDeviceID) continue;
    if (resettableDeviceID.empty() && vendorDeviceID.empty() &&
        (b.resettable_device_id || b.vendor_device_id)) {
      continue;
    }
    kept.push_back(std::move(queued));
  }
  return kept;
}

void APMMeasurement::uploadData() {
  scheduler_.checkOnBackgroundThreadWithMethodName("uploadData");
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeStartingUpload, "Starting data upload");
  if (!database_) return;
  platform::Error error;
  rawEventFacts_.valid = false;
  if (database_->maybeDeleteStaleData(&error)) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeStaleData, "Deleted stale data");
  }
  if (!isNetworkReadyForRequest()) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodePending,
                    "Network operation is pending. Ignoring upload request");
    return;
  }
  auto network = installedNetwork();
  if (!network || !network->isNetworkConnected()) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeNotConnected,
                    "Network not connected, ignoring upload request");
    return;
  }
  std::string host = measurementHost();
  if (host.empty()) return;
  APMRemoteConfig& config = remoteConfig();
  bool expired = config.isExpired();
  if (!expired) bundleRawEventsForUpload();
  auto bundles = database_->queryBundlesWithCountLimit(config.uploadMaxBundlesLimit(),
                                                       config.uploadMaxSizeLimitBytes(), &error);
  if (!bundles) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeQueryFailed, "Failed to query bundles. Error",
                    error.localizedDescription);
    return;
  }
  if (bundles->empty()) {
    activateNewSnapshotOnWorkerQueue();
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeNoData, "No data to upload");
    if (expired) {
      fetchRemoteConfig();
    } else {
      updateSchedule();
    }
    return;
  }
  for (APMQueuedBundle& queued : *bundles) {
    APMPBMeasurementBundle& b = *queued.bundle;
    APMPBClearString(&b.consent_signals);
    if (!settings_.consentSignals.empty()) APMPBSetString(&b.consent_signals, settings_.consentSignals);
  }
  double current = now();
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeElapsed,
                  "Uploading events. Elapsed time since last successful upload (s)",
                  current - persistedConfig_->lastSuccessfulUploadTimestamp());
  const APMPBMeasurementBundle& first = *bundles->front().bundle;
  std::string firstResettable(APMPBString(first.resettable_device_id));
  std::string firstVendor = firstResettable.empty() ? std::string(APMPBString(first.vendor_device_id))
                                                    : std::string();
  auto kept = filteredBundlesWithCompatibleAppID(std::string(APMPBString(first.app_id)),
                                                 firstResettable, firstVendor,
                                                 std::move(*bundles));
  if (kept.empty()) {
    updateSchedule();
    return;
  }
  static const std::string ephemeralID = APMRandomIdentifier();
  std::vector<std::string> controls = config.dataControls();
  bool checksum = config.checksumEnabled();
  // The batch is written from each bundle's own serialisation, framed as its repeated field:
  // the same bytes as writing the whole batch, with every bundle written once.
  kit::Data payload;
  std::vector<std::int64_t> ids;
  auto nowMillis = static_cast<std::int64_t>(std::llround(current * 1000));
  for (APMQueuedBundle& queued : kept) {
    APMPBMeasurementBundle& b = *queued.bundle;
    b.has_sent_library_version = true;
    b.sent_library_version = kAPMLibraryVersion;
    b.has_upload_timestamp_millis = true;
    b.upload_timestamp_millis = nowMillis;
    applyDataControls(b, controls, ephemeralID);
    kit::Data bytes;
    if (!APMEncodeBundleForUpload(b, checksum, &bytes, &error)) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeQueryFailed, "Failed to query bundles. Error",
                      error.localizedDescription);
      return;
    }
    APMPBAppendLengthDelimited(&payload, 1, bytes);
    ids.push_back(queued.rowID);
  }
  if (!APMPBWithinStreamLimit(payload.size(), kAPMPBStreamLimit, &error)) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeQueryFailed, "Failed to query bundles. Error",
                    error.localizedDescription);
    return;
  }
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeSent,
                  "Measurement data sent to network. Timestamp (ms), data",
                  static_cast<long long>(nowMillis), static_cast<long long>(ids.size()));
  setUploadInProgressWithBundleIDs(std::move(ids));
  persistedConfig_->setLastFailedUploadTimestamp(current);
  network->setTimeoutInterval(config.networkTimeout());
  bool background = false;  // no background task runs on this platform
  if (!network->postURL(config.uploadURL(host), payload, scheduler_.queue(), background,
                        workerCompletion(&APMMeasurement::networkUploadCompletionHandlerWithResponse))) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeNoSession, "Unable to create network session.");
    networkRequestPending_ = false;
    inFlightBundleIDs_.clear();
    updateSchedule();
  }
}

void APMMeasurement::incrementRetryCounter() {
  if (!database_ || inFlightBundleIDs_.empty()) return;
  platform::Error error;
  if (!database_->incrementRetryCounterForBundlesWithIDs(inFlightBundleIDs_, &error)) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeRetryFailed,
                    "Failed to increment bundle retry counter. Error", error.localizedDescription);
  }
}

bool APMMeasurement::removeBundlesFromDatabaseWithIDs(const std::vector<std::int64_t>& bundleIDs) {
  if (!database_) return false;
  platform::Error error;
  return database_->deleteBundlesWithRowIDs(bundleIDs, &error);
}

void APMMeasurement::networkUploadCompletionHandlerWithResponse(
    const platform::NetworkResponse& response, const std::optional<platform::Error>& error) {
  networkRequestPending_ = false;
  int status = error ? 0 : response.statusCode;
  double current = now();
  if (isSuccess(status)) {
    persistedConfig_->setLastSuccessfulUploadTimestamp(current);
    persistedConfig_->setLastFailedUploadTimestamp(0);
    persistedConfig_->setLastBackoffTimestamp(0);
    updateSchedule();
    if (!removeBundlesFromDatabaseWithIDs(inFlightBundleIDs_)) {
      suspendUploads("Unable to delete uploaded bundles. Uploads will be suspended for seconds");
    } else {
      setSuspendedUploadTimestamp(0);
    }
    inFlightBundleIDs_.clear();
    auto network = installedNetwork();
    bool suspended = suspendedUploadTimestamp_ > 0;
    if (!suspended && ((network && network->isNetworkConnected() && hasDataToUpload()) ||
                       remoteConfig().isExpired())) {
      uploadData();
    } else {
      updateSchedule();
    }
    return;
  }
  persistedConfig_->setLastFailedUploadTimestamp(current);
  if (isBackoffStatus(status)) persistedConfig_->setLastBackoffTimestamp(current);
  APMMonitor::log(kAPMMonitorLevelWarning, kCodeUploadFailed,
                  "Network upload failed. Will retry later. Code, error", status, errorText(error));
  incrementRetryCounter();
  inFlightBundleIDs_.clear();
  updateSchedule();
}

// ---- configuration ----

void APMMeasurement::fetchRemoteConfig() {
  auto network = installedNetwork();
  if (!isNetworkReadyForRequest() || !network || !network->isNetworkConnected()) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeConfigPending,
                    "Network operation is pending. Ignoring request to fetch configuration");
    return;
  }
  std::string host = measurementHost();
  if (host.empty()) return;
  bool storageDenied = APMConsentVerdictOf(settings_.consentSignals).analyticsDenied;
  std::string instance = storageDenied ? std::string() : APMAppInstanceID(*persistedConfig_);
  const std::string platformName = "ios";
  if (instance.empty() && !storageDenied) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeConfigURL,
                    "Cannot create a URL to fetch a configuration with empty app instance ID or "
                    "empty platform (app instance, platform)",
                    instance, platformName);
    return;
  }
  APMRemoteConfig& config = remoteConfig();
  std::string url = config.remoteConfigURLWithAppInstanceID(host, instance, platformName,
                                                            kAPMLibraryVersion, kAPMRuntimeVersion);
  std::map<std::string, std::string> headers;
  std::string lastModified = persistedConfig_->configServerLastModifiedString();
  std::string etag = persistedConfig_->configServerETag();
  if (!lastModified.empty()) headers["If-Modified-Since"] = lastModified;
  if (!etag.empty()) headers["If-None-Match"] = etag;
  networkRequestPending_ = true;
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeFetching, "Fetching configuration from the server");
  network->setTimeoutInterval(config.networkTimeout());
  if (!network->getURL(url, headers, scheduler_.queue(), false,
                       workerCompletion(&APMMeasurement::networkRemoteConfigFetchCompletionHandler))) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeNoSession, "Unable to create network session.");
    networkRequestPending_ = false;
    updateSchedule();
  }
}

void APMMeasurement::networkRemoteConfigFetchCompletionHandler(
    const platform::NetworkResponse& response, const std::optional<platform::Error>& error) {
  networkRequestPending_ = false;
  int status = error ? 0 : response.statusCode;
  double current = now();
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeFetched, "Fetched configuration. Status code", status);
  bool good = status == platform::kSULNetworkHTTPStatusOK ||
              status == platform::kSULNetworkHTTPStatusNotModified ||
              status == platform::kSULNetworkHTTPStatusNoContent ||
              status == platform::kSULNetworkHTTPStatusNotFound;
  if (!good) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeConfigFailed,
                    "Network request failed to fetch remote config. Code, Error", status,
                    errorText(error));
    persistedConfig_->setLastFailedUploadTimestamp(current);
    if (isBackoffStatus(status)) persistedConfig_->setLastBackoffTimestamp(current);
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeConfigRetry,
                    "Network fetch failed. Will retry later. Code, error", status, errorText(error));
    updateSchedule();
    return;
  }
  std::string lastModified = response.header("Last-Modified");
  std::string etag = response.header("ETag");
  if (!lastModified.empty()) persistedConfig_->setConfigServerLastModifiedString(lastModified);
  if (!etag.empty()) persistedConfig_->setConfigServerETag(etag);
  persistedConfig_->setLastFailedUploadTimestamp(0);
  persistedConfig_->setLastBackoffTimestamp(0);

  bool withBody = isSuccess(status) && !response.body.empty();
  if (!withBody) {
    if (status == platform::kSULNetworkHTTPStatusNotFound) {
      APMMonitor::log(kAPMMonitorLevelNotice, kCodeConfigNotFound,
                      "Configuration not found. Using default configuration");
    } else if (status == platform::kSULNetworkHTTPStatusNotModified) {
      APMMonitor::log(kAPMMonitorLevelDebug, kCodeConfigNotModified,
                      "Configuration has not been modified. Using the same configuration. Code",
                      status);
    }
    platform::Error writeError;
    if (!database_ || !database_->updateRemoteConfigSuccessfulTimestamp(current, &writeError)) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeConfigTimestamp,
                      "Failed to update config last set timestamp. Error",
                      writeError.localizedDescription);
      suspendUploads("Uploads will be suspended for seconds");
    }
    uploadDataOrRegisterAlarm();
    return;
  }

  APMMonitor::log(kAPMMonitorLevelDebug, kCodeConfigFetched,
                  "Successfully fetched configuration from the server. Code, size", status,
                  static_cast<long long>(response.body.size()));
  platform::Error parseError;
  auto parsed = APMPBMessage<APMPBMeasurementConfig>::parseFromData(response.body, &parseError);
  bool applied = false;
  if (!parsed) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeConfigInvalid, "Configuration data is invalid.");
  } else if (APMPBString((*parsed)->stuvop_app_id) != configurationAppID()) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeConfigAppID,
                    "Configuration does not have valid Stuvop App ID.");
  } else {
    APMPBMeasurementConfig& config = **parsed;
    platform::Error audienceError;
    bool audiencesSaved = true;
    if (database_) {
      APMRemoteConfig& limits = remoteConfig();
      APMAudience::Limits audienceLimits{limits.maxAudienceCount(), limits.maxFiltersPerAudience(),
                                         limits.maxParametersPerFilter(),
                                         limits.maxFilterResultCount()};
      audiencesSaved = database_->performTransaction(
          [&] {
            return APMAudience(database_.get())
                .updateAudiences({config.audiences, config.audiences_count}, audienceLimits,
                                 &audienceError);
          },
          &audienceError);
    }
    if (!audiencesSaved) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeConfigUpdate,
                      "Failed to update audiences with new server configuration",
                      audienceError.localizedDescription);
    }
    // Audiences are kept apart from the stored configuration.
    for (pb_size_t i = 0; i < config.audiences_count; ++i) {
      pb_release(APMPBMessage<APMPBAudience>::fields(), &config.audiences[i]);
    }
    std::free(config.audiences);
    config.audiences = nullptr;
    config.audiences_count = 0;
    platform::Error updateError;
    applied = database_ && database_->performTransaction(
                               [&] { return remoteConfig().updateMeasurementConfig(config, &updateError); },
                               &updateError);
    if (applied) {
      applyRemoteConfigOnWorkerQueue();
      refreshConsentOnWorkerQueue();
    } else {
      APMMonitor::log(kAPMMonitorLevelError, kCodeConfigUpdate,
                      "Failed to update configuration with new server configuration",
                      updateError.localizedDescription);
    }
  }
  if (!applied) {
    // A body that cannot be used leaves the configuration expired; the retry schedule spaces
    // the next attempts instead of fetching again at once.
    persistedConfig_->setLastFailedUploadTimestamp(current);
    updateSchedule();
    return;
  }
  uploadDataOrRegisterAlarm();
}
