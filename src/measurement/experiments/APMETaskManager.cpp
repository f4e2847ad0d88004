#include "measurement/experiments/APMETaskManager.h"

#include <cmath>
#include <utility>

#include "kit/Date.h"
#include "measurement/APMError.h"
#include "measurement/APMGzip.h"
#include "measurement/APMMonitor.h"
#include "measurement/events/APMIdentity.h"
#include "measurement/experiments/APMEnvironmentInfo.h"
#include "platform/Platform.h"

namespace {

enum : int {
  kCodeTooManyAttempts = 8201,
  kCodeTaskExists = 8202,
  kCodeScheduled = 8203,
  kCodeFetching = 8204,
  kCodeInflate = 8205,
  kCodeFetchFailed = 8206,
  kCodeUpsertFailed = 8207,
  kCodeNoPending = 8208,
  kCodeActivated = 8209,
  kCodeReset = 8210,
  kCodeStartFailed = 8211,
  kCodeNothingToFetch = 8212,
  kCodeNoSession = 8213,
  kCodeParse = 8214,
  kCodeFetched = 8215,
};

constexpr const char* kSuccessKey = "APMExperimentSuiteName/APMExperimentFetchSuccessTimestamp";
constexpr const char* kFailureKey = "APMExperimentSuiteName/APMExperimentFetchFailureTimestamp";
constexpr const char* kBackoffKey = "APMExperimentSuiteName/APMExperimentFetchBackoffTimestamp";

double now() { return kit::Date::now().timeIntervalSince1970; }

bool isGoodStatus(int status) {
  return status == platform::kSULNetworkHTTPStatusOK ||
         status == platform::kSULNetworkHTTPStatusNoContent;
}

bool isBackoffStatus(int status) {
  return status == platform::kSULNetworkHTTPStatusCodeUnavailable ||
         status == platform::kSULNetworkHTTPStatusCodeCannotAcceptTraffic;
}

// Tags 1 to 4 and 7 of the app property: the platform, the device, the library's version.
void appPropertyProto(APMPBAppProperty& app, const APMEnvironmentInfo& environment) {
  APMPBSetString(&app.platform, "ios");
  APMPBSetString(&app.device_model, environment.deviceModel);
  APMPBSetString(&app.os_version, environment.deviceOSVersion);
  APMPBSetString(&app.user_language, environment.userDefaultLanguage);
  app.has_version = true;
  app.version = kAPMLibraryVersion;
}

// The request: the app property and one client property per SDK.
APMPBMessage<APMPBExperimentRequest> requestFor(
    const std::vector<std::pair<APMESDKProperty, bool>>& properties) {
  APMPBMessage<APMPBExperimentRequest> request;
  request->has_app_property = true;
  appPropertyProto(request->app_property, APMEnvironmentInfo::current());
  for (const auto& [property, manual] : properties) {
    APMPBClientProperty& client =
        APMPBAppend(&request->client_properties, &request->client_properties_count);
    APMPBSetString(&client.sdk_name, property.name);
    APMPBSetString(&client.app_id, property.appID);
    client.has_version = true;
    client.version = property.version;
    APMPBSetString(&client.diversion_key, property.diversionKey);
    for (const auto& [key, value] : property.customProperties) {
      APMPBCustomProperty& custom =
          APMPBAppend(&client.custom_properties, &client.custom_properties_count);
      APMPBSetString(&custom.key, key);
      APMPBSetString(&custom.value, value);
    }
  }
  return request;
}

}  // namespace

APMETaskManager::APMETaskManager(std::string databasePath,
                                 std::shared_ptr<platform::PreferenceStore> preferences,
                                 Hooks hooks)
    : worker_(kAPMExperimentWorkerQueueLabel, "Exception on async worker queue",
              "Exception on sync worker queue"),
      databasePath_(std::move(databasePath)),
      preferences_(preferences ? std::move(preferences) : platform::services().preferences),
      hooks_(std::move(hooks)),
      alarm_(worker_.queue(), "APMExperimentAlarm") {}

std::shared_ptr<APMETaskManager> APMETaskManager::create(
    std::string databasePath, std::shared_ptr<platform::PreferenceStore> preferences, Hooks hooks) {
  return std::shared_ptr<APMETaskManager>(
      new APMETaskManager(std::move(databasePath), std::move(preferences), std::move(hooks)));
}

void APMETaskManager::later(std::function<void(APMETaskManager&)> block) {
  worker_.async([weak = weak_from_this(), block = std::move(block)] {
    if (auto self = weak.lock()) block(*self);
  });
}

void APMETaskManager::start() {
  later([](APMETaskManager& self) { self.startTaskManagerOnWorkerQueue(); });
}

void APMETaskManager::scheduleFetch() {
  later([](APMETaskManager& self) { self.scheduleFetchOnWorkerQueue(); });
}

double APMETaskManager::timestamp(const char* key) const { return preferences_->doubleForKey(key); }

void APMETaskManager::setTimestamp(const char* key, double value) {
  preferences_->setObject(value == 0 ? kit::Value() : kit::Value(value), key);
}

double APMETaskManager::lastSuccessTimestamp() const { return timestamp(kSuccessKey); }
double APMETaskManager::lastFailureTimestamp() const { return timestamp(kFailureKey); }
double APMETaskManager::lastBackoffTimestamp() const { return timestamp(kBackoffKey); }

void APMETaskManager::startTaskManagerOnWorkerQueue() {
  initTime_ = now();
  if (!database_) {
    platform::Error error;
    database_ = APMEDatabase::initWithDatabasePath(databasePath_, &error);
  }
  if (database_) {
    platform::Error error;
    bool ok = database_->deleteActivatedSnapshotsNotAfter(initTime_ - kActivatedSnapshotLifetime,
                                                          &error)
                  .has_value() &&
              database_->activatePendingSnapshotsAutomatically(initTime_, &error).has_value();
    if (!ok) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeStartFailed,
                      "Failed to prepare stored experiments. Error", error.localizedDescription);
    }
  }
  publishSnapshotsOnWorkerQueue();
  scheduleFetchOnWorkerQueue();
}

void APMETaskManager::publishSnapshotsOnWorkerQueue() {
  APMEStoredSnapshots stored;
  if (database_) {
    platform::Error error;
    stored.activated = database_->snapshotsInTable(APMEDatabase::kActivatedTable, &error)
                           .value_or(std::vector<APMESnapshot>{});
    stored.pending = database_->snapshotsInTable(APMEDatabase::kPendingTable, &error)
                         .value_or(std::vector<APMESnapshot>{});
    stored.launched = database_->snapshotsInTable(APMEDatabase::kLaunchedTable, &error)
                          .value_or(std::vector<APMESnapshot>{});
  }
  if (hooks_.snapshotsDidChange) hooks_.snapshotsDidChange(std::move(stored));
}

double APMETaskManager::fetchTimeFromLastSuccessfulTimestamp(double lastSuccess, double lastFailed) {
  double current = now();
  double success = current - std::fabs(lastSuccess - current);
  if (!firstFetchTimeComputed_) {
    firstFetchTimeComputed_ = true;
    return std::max(success + kFetchInterval, current + kFirstFetchDelay);
  }
  if (lastFailed == 0) return success + kFetchInterval;
  double next = lastSuccess == 0 ? initTime_ : success + kFetchInterval;
  for (int i = 0; i < kRetryCount; ++i) {
    next += kRetryInterval * std::pow(2.0, i);
    if (next > lastFailed) return next;
  }
  APMMonitor::log(kAPMMonitorLevelWarning, kCodeTooManyAttempts,
                  "Network attempted too many times. Will not schedule new network.");
  setTimestamp(kSuccessKey, 0);
  return 0;
}

void APMETaskManager::scheduleFetchOnWorkerQueue() {
  double next = fetchTimeFromLastSuccessfulTimestamp(lastSuccessTimestamp(), lastFailureTimestamp());
  if (next == 0) {
    alarm_.cancel();
    return;
  }
  double current = now();
  std::optional<double> delay = alarm_.delayUntil(next, current, lastBackoffTimestamp(), kBackoffInterval);
  if (!delay) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeTaskExists,
                    "Do not schedule a fetch task. Task already exists. Will be executed in seconds",
                    alarm_.scheduledTimestamp() - current);
    return;
  }
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeScheduled, "Experiment fetch scheduled. Seconds", *delay);
  alarm_.runAfterDelay(*delay, [weak = weak_from_this()] {
    if (auto self = weak.lock()) {
      self->later([](APMETaskManager& tasks) { tasks.fetchExperimentsOnWorkerQueue(); });
    }
  });
}

void APMETaskManager::fetchExperimentsOnWorkerQueue() {
  if (fetchInFlight_) return;
  auto properties = hooks_.propertiesToFetch ? hooks_.propertiesToFetch()
                                             : std::vector<std::pair<APMESDKProperty, bool>>{};
  auto network = platform::services().network;
  std::string host = network ? network->measurementHost() : std::string();
  if (properties.empty() || host.empty()) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeNothingToFetch,
                    "No experiments to fetch now. SDK count, host", properties.size(), host);
    return;
  }
  if (!network->isNetworkConnected()) {
    // Offline is no failure of the server's: look again after the first retry interval.
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeNothingToFetch,
                    "No network. Experiments will be fetched later. Seconds", kRetryInterval);
    alarm_.runAfterDelay(kRetryInterval, [weak = weak_from_this()] {
      if (auto self = weak.lock()) {
        self->later([](APMETaskManager& tasks) { tasks.fetchExperimentsOnWorkerQueue(); });
      }
    });
    return;
  }
  auto request = requestFor(properties);
  platform::Error error;
  auto payload = request.protoBuffer(&error);
  if (!payload) {
    failFetchOnWorkerQueue(0, error.localizedDescription);
    return;
  }
  std::string names;
  for (const auto& [property, manual] : properties) {
    names += (names.empty() ? "" : ", ") + property.name;
  }
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeFetching, "Fetching new experiments. Request", names,
                  static_cast<long long>(payload->size()));
  fetchManual_.clear();
  for (const auto& [property, manual] : properties) fetchManual_[property.name] = manual;
  fetchInFlight_ = true;
  bool sent = network->postURL(
      host + "/sdk-exp", *payload, worker_.queue(), false,
      [weak = weak_from_this()](const platform::NetworkResponse& response,
                                const std::optional<platform::Error>& failure) {
        if (auto self = weak.lock()) {
          self->later([response, failure](APMETaskManager& tasks) {
            tasks.handleFetchResponseOnWorkerQueue(response, failure);
          });
        }
      });
  if (!sent) {
    fetchInFlight_ = false;
    APMMonitor::log(kAPMMonitorLevelError, kCodeNoSession, "Unable to create network session.");
    failFetchOnWorkerQueue(0, "Unable to create network session.");
  }
}

void APMETaskManager::failFetchOnWorkerQueue(int status, const std::string& message) {
  double current = now();
  setTimestamp(kFailureKey, current);
  if (isBackoffStatus(status)) setTimestamp(kBackoffKey, current);
  APMMonitor::log(kAPMMonitorLevelWarning, kCodeFetchFailed,
                  "Network fetch failed. Will retry later. Code, error", status, message);
  if (hooks_.didFailFetch) {
    // The code is the HTTP status of a refused request, else a failed step.
    int code = status == 0 || isGoodStatus(status) ? kAPMErrorCodeFailedStep : status;
    hooks_.didFailFetch({kAPMErrorDomain, code, message});
  }
  scheduleFetchOnWorkerQueue();
}

void APMETaskManager::handleFetchResponseOnWorkerQueue(const platform::NetworkResponse& response,
                                                       const std::optional<platform::Error>& error) {
  fetchInFlight_ = false;
  int status = error ? 0 : response.statusCode;
  if (!isGoodStatus(status)) {
    failFetchOnWorkerQueue(status, error ? error->localizedDescription
                                         : "HTTP status " + std::to_string(status));
    return;
  }
  APMPBMessage<APMPBExperimentResponse> parsed;
  if (!response.body.empty()) {
    platform::Error inflateError;
    auto inflated = APMGunzipData(response.body, &inflateError, kAPMPBStreamLimit);
    if (!inflated) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeInflate,
                      "Cannot inflate downloaded experiment data. Error",
                      inflateError.localizedDescription);
      failFetchOnWorkerQueue(status, "Cannot inflate downloaded experiment data.");
      return;
    }
    platform::Error parseError;
    auto message = APMPBMessage<APMPBExperimentResponse>::parseFromData(*inflated, &parseError);
    if (!message) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeParse, "Cannot parse downloaded experiment data. Error",
                      parseError.localizedDescription);
      failFetchOnWorkerQueue(status, parseError.localizedDescription);
      return;
    }
    parsed = std::move(*message);
  }
  double current = now();
  setTimestamp(kSuccessKey, current);
  setTimestamp(kFailureKey, 0);
  setTimestamp(kBackoffKey, 0);

  // Answers for SDKs not asked for are kept too, for activation at the next start.
  std::vector<APMESnapshot> pending;
  for (const APMPBSnapshot& s : APMPBItems(parsed->snapshots, parsed->snapshots_count)) {
    APMESnapshot snapshot = APMESnapshot::fromProto(s, current);
    if (snapshot.SDKName.empty()) continue;
    auto manual = fetchManual_.find(snapshot.SDKName);
    snapshot.manuallyActivated = manual != fetchManual_.end() && manual->second;
    pending.push_back(std::move(snapshot));
  }
  std::vector<APMESnapshot> launched;
  for (const APMPBSdkResponse& r : APMPBItems(parsed->sdk_responses, parsed->sdk_responses_count)) {
    if (!r.has_status || r.status != kAPMESdkResponseStatusLaunched || !r.has_snapshot) continue;
    APMESnapshot snapshot = APMESnapshot::fromProto(r.snapshot, current);
    if (snapshot.SDKName.empty()) snapshot.SDKName = std::string(APMPBString(r.sdk_name));
    if (!snapshot.SDKName.empty()) launched.push_back(std::move(snapshot));
  }
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeFetched,
                  "Fetched experiments. Pending snapshots, launched snapshots",
                  static_cast<long long>(pending.size()), static_cast<long long>(launched.size()));
  std::vector<std::string> received;
  if (database_) {
    platform::Error writeError;
    if (!database_->upsertPendingExperimentSnapshots(pending, current, &writeError)) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeUpsertFailed,
                      "Cannot upsert pending snapshots. Error, snapshots",
                      writeError.localizedDescription, static_cast<long long>(pending.size()));
    } else {
      for (const APMESnapshot& s : pending) received.push_back(s.SDKName);
    }
    for (const APMESnapshot& s : launched) {
      if (!database_->upsertLaunchedSnapshot(s, current, &writeError)) {
        APMMonitor::log(kAPMMonitorLevelError, kCodeUpsertFailed,
                        "Cannot upsert launched snapshot. Error, SDK name",
                        writeError.localizedDescription, s.SDKName);
      }
    }
  }
  publishSnapshotsOnWorkerQueue();
  if (!received.empty() && hooks_.didReceiveNewSnapshots) hooks_.didReceiveNewSnapshots(received);
  scheduleFetchOnWorkerQueue();
}

bool APMETaskManager::activateSnapshotOfSDK(const std::string& SDKName, platform::Error* error) {
  bool activated = false;
  platform::Error local;
  worker_.sync([&] {
    if (!database_) {
      APMSetError(&local, kAPMErrorCodeInvalidState, "The experiment database is not open");
      return;
    }
    auto pending = database_->snapshotOfSDK(APMEDatabase::kPendingTable, SDKName, &local);
    if (!pending) return;
    if (!*pending) {
      APMMonitor::log(kAPMMonitorLevelDebug, kCodeNoPending,
                      "No pending snapshot to activate. SDK name", SDKName);
      APMSetError(&local, kAPMErrorCodeInvalidArgument, "No pending snapshot to activate");
      return;
    }
    activated = database_->activateSnapshot(**pending, now(), &local);
    if (!activated) return;
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeActivated,
                    "Successfully activated a snapshot of SDK", SDKName);
    publishSnapshotsOnWorkerQueue();
  });
  if (!activated && error) *error = local;
  return activated;
}

bool APMETaskManager::resetToDefaultsOfSDKName(const std::string& SDKName) {
  bool done = false;
  worker_.sync([&] {
    if (!database_) return;
    platform::Error error;
    done = database_->resetSDK(SDKName, &error);
    APMMonitor::log(kAPMMonitorLevelNotice, kCodeReset, "Reset all experiments to default. SDK name",
                    SDKName);
    publishSnapshotsOnWorkerQueue();
  });
  return done;
}

void APMETaskManager::reset() {
  worker_.sync([&] {
    if (database_) {
      platform::Error error;
      for (const char* table : {APMEDatabase::kPendingTable, APMEDatabase::kActivatedTable,
                                APMEDatabase::kLaunchedTable}) {
        database_->store().deleteAllRecordsFromTableWithName(table, &error);
      }
    }
    setTimestamp(kSuccessKey, 0);
    setTimestamp(kFailureKey, 0);
    setTimestamp(kBackoffKey, 0);
    alarm_.cancel();
    publishSnapshotsOnWorkerQueue();
  });
}
