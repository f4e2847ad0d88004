// APMEClient: the handle of one registered SDK, made by APMEManager::registerSDKProperty. It
// forwards to the manager under the SDK's name; once the manager is gone every call answers
// as for an unregistered SDK.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "measurement/experiments/APMESnapshot.h"
#include "platform/Types.h"

class APMEManager;
enum APMESnapshotStatus : int;

class APMEClient {
 public:
  APMEClient(std::weak_ptr<APMEManager> manager, std::string SDKName)
      : manager_(std::move(manager)), SDKName_(std::move(SDKName)) {}

  const std::string& SDKName() const { return SDKName_; }
  // The flag's value: activated, else launched, else default (see APMEManager).
  std::optional<APMEFlagValue> flagValueForFlagName(const std::string& flagName) const;
  // Activates the SDK's pending snapshot now.
  bool activateSnapshot(platform::Error* error) const;
  APMESnapshotStatus activatedSnapshotStatus() const;
  // Forgets every snapshot of the SDK: its flags read their defaults.
  void resetToDefaults() const;

 private:
  std::weak_ptr<APMEManager> manager_;
  std::string SDKName_;
};
