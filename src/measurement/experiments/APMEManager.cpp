#include "measurement/experiments/APMEManager.h"

#include <cmath>
#include <utility>

#include "measurement/APMMonitor.h"
#include "measurement/store/APMDatabase.h"

namespace {

enum : int {
  kCodeNilProperty = 8301,
  kCodeNoName = 8302,
  kCodeInvalidFlags = 8303,
  kCodeRegisteredTwice = 8304,
  kCodeUnregisteredSDK = 8305,
  kCodeUnregisteredFlag = 8306,
  kCodeLookingForLaunched = 8307,
  kCodeReturnedDefault = 8308,
};

std::map<std::string, APMESnapshot> bySDK(std::vector<APMESnapshot> snapshots) {
  std::map<std::string, APMESnapshot> out;
  for (APMESnapshot& s : snapshots) out[s.SDKName] = std::move(s);
  return out;
}

}  // namespace

std::shared_ptr<APMEManager> APMEManager::create(APMEManagerOptions options) {
  std::shared_ptr<APMEManager> manager(new APMEManager());
  std::string path = options.databasePath.empty()
                         ? APMDatabase::databasePathWithName(APMEDatabase::kDatabaseName)
                         : options.databasePath;
  std::weak_ptr<APMEManager> weak = manager;
  APMETaskManager::Hooks hooks;
  hooks.propertiesToFetch = [weak] {
    std::vector<std::pair<APMESDKProperty, bool>> properties;
    if (auto self = weak.lock()) {
      self->serial_.sync([&] { properties = self->propertiesToFetch(); });
    }
    return properties;
  };
  hooks.snapshotsDidChange = [weak](APMEStoredSnapshots stored) {
    auto self = weak.lock();
    if (!self) return;
    self->serial_.async([weak, stored = std::move(stored)]() mutable {
      if (auto live = weak.lock()) live->applyStoredSnapshots(std::move(stored));
    });
  };
  hooks.didReceiveNewSnapshots = [weak](std::vector<std::string> names) {
    auto self = weak.lock();
    if (!self) return;
    self->serial_.async([weak, names = std::move(names)] {
      auto live = weak.lock();
      if (!live) return;
      for (const std::string& name : names) {
        auto found = live->registrations_.find(name);
        if (found == live->registrations_.end()) continue;
        if (auto delegate = found->second.property.delegate.lock()) {
          delegate->clientDidReceiveNewSnapshot(*found->second.client);
        }
      }
    });
  };
  hooks.didFailFetch = [weak](platform::Error error) {
    auto self = weak.lock();
    if (!self) return;
    self->serial_.async([weak, error = std::move(error)] {
      auto live = weak.lock();
      if (!live) return;
      for (auto& [name, registration] : live->registrations_) {
        if (auto delegate = registration.property.delegate.lock()) {
          delegate->clientDidReceiveFetchError(*registration.client, error);
        }
      }
    });
  };
  manager->taskManager_ =
      APMETaskManager::create(std::move(path), std::move(options.preferences), std::move(hooks));
  return manager;
}

APMEManager::~APMEManager() = default;

void APMEManager::start() {
  taskManager_->workerQueue().sync([this] { taskManager_->startTaskManagerOnWorkerQueue(); });
  serial_.sync([] {});
}

std::shared_ptr<APMEClient> APMEManager::registerSDKProperty(const APMESDKProperty* property,
                                                             const Flags& defaultFlags) {
  if (!property) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeNilProperty,
                    "Cannot register client with a nil SDK property");
    return nullptr;
  }
  if (property->name.empty()) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeNoName,
                    "Cannot register experiment client with no SDK name");
    return nullptr;
  }
  for (const auto& [name, value] : defaultFlags) {
    const double* real = std::get_if<double>(&value);
    if (name.empty() || (real && !std::isfinite(*real))) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeInvalidFlags,
                      "Cannot register experiment client invalid flags. Flag name, value", name,
                      APMEDescribeFlagValue(value));
      return nullptr;
    }
  }
  std::shared_ptr<APMEClient> client;
  serial_.sync([&] {
    auto found = registrations_.find(property->name);
    if (found != registrations_.end()) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeRegisteredTwice,
                      "Registered an SDK that has already registered. Default flags will be "
                      "overwritten. SDK name",
                      property->name);
      found->second.property = *property;
      found->second.defaultFlags = defaultFlags;
      client = found->second.client;
      return;
    }
    client = std::make_shared<APMEClient>(weak_from_this(), property->name);
    registrations_[property->name] = {*property, defaultFlags, client};
  });
  // A registration after the first fetch time passed with nothing to fetch starts the
  // schedule again.
  taskManager_->workerQueue().async([weak = std::weak_ptr<APMETaskManager>(taskManager_)] {
    auto tasks = weak.lock();
    if (tasks && !tasks->alarm().hasActiveTimer()) tasks->scheduleFetchOnWorkerQueue();
  });
  return client;
}

std::shared_ptr<APMEClient> APMEManager::clientForSDKName(const std::string& SDKName) {
  std::shared_ptr<APMEClient> client;
  serial_.sync([&] {
    auto found = registrations_.find(SDKName);
    if (found != registrations_.end()) client = found->second.client;
  });
  return client;
}

std::vector<std::int32_t> APMEManager::experimentIDs() {
  std::vector<std::int32_t> ids;
  serial_.sync([&] { ids = experimentIDs_; });
  return ids;
}

std::optional<APMEFlagValue> APMEManager::flagValueForFlagName(const std::string& flagName,
                                                               const std::string& SDKName,
                                                               APMEFlagSource* source) {
  std::optional<APMEFlagValue> value;
  serial_.sync([&] {
    auto registration = registrations_.find(SDKName);
    if (registration == registrations_.end()) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeUnregisteredSDK,
                      "Cannot get flag for unregistered SDK. SDK name, flag name", SDKName, flagName);
      return;
    }
    auto defaultFlag = registration->second.defaultFlags.find(flagName);
    if (defaultFlag == registration->second.defaultFlags.end()) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeUnregisteredFlag,
                      "Cannot get flag for unregistered flag. SDK name, flag name", SDKName,
                      flagName);
      return;
    }
    if (auto activated = activated_.find(SDKName); activated != activated_.end()) {
      value = activated->second.flagValueForFlagName(flagName);
      if (value) {
        if (source) *source = APMEFlagSource::Activated;
        return;
      }
    }
    if (auto launched = launched_.find(SDKName); launched != launched_.end()) {
      value = launched->second.flagValueForFlagName(flagName);
    }
    if (APMMonitor::isLoggable(kAPMMonitorLevelDebug)) {
      APMMonitor::log(kAPMMonitorLevelDebug, kCodeLookingForLaunched,
                      "Cannot find activated flag. Looking for launched flag. SDK name, flag name, "
                      "launched flag",
                      SDKName, flagName, value ? APMEDescribeFlagValue(*value) : "(none)");
    }
    if (value) {
      if (source) *source = APMEFlagSource::Launched;
      return;
    }
    value = defaultFlag->second;
    if (source) *source = APMEFlagSource::Default;
    if (APMMonitor::isLoggable(kAPMMonitorLevelDebug)) {
      APMMonitor::log(kAPMMonitorLevelDebug, kCodeReturnedDefault,
                      "Cannot find launched flag. Returned the default flag value. SDK name, flag "
                      "name, default flag",
                      SDKName, flagName, APMEDescribeFlagValue(*value));
    }
  });
  return value;
}

bool APMEManager::activateSnapshotOfSDK(const std::string& SDKName, platform::Error* error) {
  bool activated = taskManager_->activateSnapshotOfSDK(SDKName, error);
  // The new snapshots were handed to the serial queue before this: wait for them.
  serial_.sync([] {});
  return activated;
}

APMESnapshotStatus APMEManager::activatedSnapshotStatusOfSDKName(const std::string& SDKName) {
  APMESnapshotStatus status = kAPMESnapshotStatusNone;
  serial_.sync([&] {
    if (pending_.count(SDKName)) {
      status = kAPMESnapshotStatusPending;
    } else if (activated_.count(SDKName)) {
      status = kAPMESnapshotStatusActivated;
    }
  });
  return status;
}

void APMEManager::resetToDefaultsOfSDKName(const std::string& SDKName) {
  taskManager_->resetToDefaultsOfSDKName(SDKName);
  serial_.sync([] {});
}

void APMEManager::reset() {
  taskManager_->reset();
  serial_.sync([] {});
}

void APMEManager::applyStoredSnapshots(APMEStoredSnapshots stored) {
  experimentIDs_.clear();
  for (const APMESnapshot& s : stored.activated) {
    for (const APMEExperiment& e : s.experiments) experimentIDs_.push_back(e.experimentID);
  }
  activated_ = bySDK(std::move(stored.activated));
  pending_ = bySDK(std::move(stored.pending));
  launched_ = bySDK(std::move(stored.launched));
}

std::vector<std::pair<APMESDKProperty, bool>> APMEManager::propertiesToFetch() {
  std::vector<std::pair<APMESDKProperty, bool>> properties;
  for (auto& [name, registration] : registrations_) {
    auto delegate = registration.property.delegate.lock();
    if (delegate && !delegate->shouldFetchExperimentsForClient(*registration.client)) continue;
    properties.emplace_back(registration.property, delegate != nullptr);
  }
  return properties;
}
