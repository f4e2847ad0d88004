#include "measurement/experiments/APMEClient.h"

#include "measurement/experiments/APMEManager.h"

std::optional<APMEFlagValue> APMEClient::flagValueForFlagName(const std::string& flagName) const {
  auto manager = manager_.lock();
  return manager ? manager->flagValueForFlagName(flagName, SDKName_) : std::nullopt;
}

bool APMEClient::activateSnapshot(platform::Error* error) const {
  auto manager = manager_.lock();
  return manager && manager->activateSnapshotOfSDK(SDKName_, error);
}

APMESnapshotStatus APMEClient::activatedSnapshotStatus() const {
  auto manager = manager_.lock();
  return manager ? manager->activatedSnapshotStatusOfSDKName(SDKName_) : kAPMESnapshotStatusNone;
}

void APMEClient::resetToDefaults() const {
  if (auto manager = manager_.lock()) manager->resetToDefaultsOfSDKName(SDKName_);
}
