// APMEManager: the experiment client's entry point. SDKs register with their default flags
// and read flag values; the task manager fetches snapshots for them and keeps them in the
// experiment database; the manager holds the stored snapshots in memory for the reads.
//
// Reading a flag: the SDK's activated snapshot, then its launched snapshot, then the
// registered default. Activation replaces the activated snapshot by the pending one: at
// start for rows that do not wait for a manual activation, or when the SDK asks
// (activateSnapshotOfSDK).
//
// Threading: the manager's state lives on the serial queue "APMEExperimentSerialQueue"; the
// database and the fetch on the task manager's worker queue. Every public method may be called
// from any thread except from inside the worker queue's blocks; the reading ones wait for the
// serial queue. Delegates are called on the serial queue and may read flags there, but must
// not activate or reset synchronously from a callback.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "measurement/experiments/APMEClient.h"
#include "measurement/experiments/APMEQueue.h"
#include "measurement/experiments/APMESDKProperty.h"
#include "measurement/experiments/APMETaskManager.h"

inline constexpr const char* kAPMEExperimentSerialQueueLabel = "APMEExperimentSerialQueue";

// Where a flag's value came from.
enum class APMEFlagSource { Activated, Launched, Default };

// The state of an SDK's snapshots.
enum APMESnapshotStatus : int {
  kAPMESnapshotStatusNone = 0,       // no activated snapshot and none pending
  kAPMESnapshotStatusActivated = 1,  // an activated snapshot, none pending
  kAPMESnapshotStatusPending = 2,    // a pending snapshot waits for activation
};

struct APMEManagerOptions {
  // The database file; empty: "stuvop_experimentation_database.sql" in the measurement folder.
  std::string databasePath;
  // Null: the installed platform's preference store.
  std::shared_ptr<platform::PreferenceStore> preferences;
};

class APMEManager : public std::enable_shared_from_this<APMEManager> {
 public:
  using Flags = std::map<std::string, APMEFlagValue>;

  static std::shared_ptr<APMEManager> create(APMEManagerOptions options = {});
  ~APMEManager();
  APMEManager(const APMEManager&) = delete;
  APMEManager& operator=(const APMEManager&) = delete;

  // Opens the database, activates what waits for it, loads every snapshot and schedules the
  // first fetch; returns once the snapshots are loaded.
  void start();

  // Registers an SDK with its default flags and returns its client. Refuses (nothing) a
  // null property ("Cannot register client with a nil SDK property"), an empty name
  // ("Cannot register experiment client with no SDK name") and a flag without a name or
  // with a value that is not a finite number ("Cannot register experiment client invalid
  // flags. Flag name, value"). A second registration replaces the defaults ("Registered an
  // SDK that has already registered. Default flags will be overwritten. SDK name") and keeps
  // the client.
  std::shared_ptr<APMEClient> registerSDKProperty(const APMESDKProperty* property,
                                                  const Flags& defaultFlags);
  // The registered SDK's client, or null.
  std::shared_ptr<APMEClient> clientForSDKName(const std::string& SDKName);
  // The experiment ids of every activated snapshot, in table order.
  std::vector<std::int32_t> experimentIDs();
  // The flag's value (see the head of this file); nothing for an unregistered SDK ("Cannot
  // get flag for unregistered SDK. SDK name, flag name") or flag ("Cannot get flag for
  // unregistered flag. SDK name, flag name"). `source` tells where the value came from.
  std::optional<APMEFlagValue> flagValueForFlagName(const std::string& flagName,
                                                    const std::string& SDKName,
                                                    APMEFlagSource* source = nullptr);
  // Activates the SDK's pending snapshot ("No pending snapshot to activate. SDK name"
  // without one); returns once the flags read it.
  bool activateSnapshotOfSDK(const std::string& SDKName, platform::Error* error);
  APMESnapshotStatus activatedSnapshotStatusOfSDKName(const std::string& SDKName);
  // Removes the SDK's snapshots from the three tables ("Reset all experiments to default.
  // SDK name"); its flags read their defaults.
  void resetToDefaultsOfSDKName(const std::string& SDKName);
  // Removes every snapshot and the fetch outcomes; registrations stay.
  void reset();

  APMETaskManager& taskManager() { return *taskManager_; }
  APMEQueue& serialQueue() { return serial_; }

 private:
  struct Registration {
    APMESDKProperty property;
    Flags defaultFlags;
    std::shared_ptr<APMEClient> client;
  };

  APMEManager() = default;
  // Serial queue.
  void applyStoredSnapshots(APMEStoredSnapshots stored);
  std::vector<std::pair<APMESDKProperty, bool>> propertiesToFetch();

  APMEQueue serial_{kAPMEExperimentSerialQueueLabel, "Exception on async Experimentation serial queue",
                    "Exception on sync Experimentation serial queue"};
  std::shared_ptr<APMETaskManager> taskManager_;
  // Serial queue state.
  std::map<std::string, Registration> registrations_;
  std::map<std::string, APMESnapshot> activated_;
  std::map<std::string, APMESnapshot> pending_;
  std::map<std::string, APMESnapshot> launched_;
  std::vector<std::int32_t> experimentIDs_;
};
