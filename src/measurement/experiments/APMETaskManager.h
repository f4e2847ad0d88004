// APMETaskManager: the experiment client's worker. On its own queue
// ("APMExperimentWorkerQueue") it owns the database, the fetch alarm ("APMExperimentAlarm")
// and the fetch: a POST of the serialised APMPBExperimentRequest to "<collection host>/sdk-exp",
// whose gzipped answer (an APMPBExperimentResponse) fills the pending table.
//
// When to fetch (fetchTimeFromLastSuccessfulTimestamp), with t = now - |lastSuccess - now|:
//  1. the first call of the process: the later of t + 14400 and now + 10;
//  2. no failure on record: t + 14400;
//  3. after a failure: from t + 14400 (or the start time when nothing ever succeeded) add
//     1800 * 2^i for i from 0 to 5 and take the first value past the failure; running out
//     gives 0 (no fetch is scheduled) and clears the success time.
// A back-off (a 503 or 429) less than 43200 s old moves the fetch to its end; a fetch already
// due earlier stays.
//
// The answer: each snapshot of tag 1 becomes its SDK's pending row, marked for manual
// activation when the SDK has a delegate (which hears of it and activates when it likes);
// a snapshot inside an SDK response (tag 2) whose status is kAPMESdkResponseStatusLaunched
// becomes the SDK's launched row, which flags fall back to once no activated snapshot sets
// them. Other statuses carry nothing this client acts on.
//
// Fetch outcomes live in the preference store under the suite "APMExperimentSuiteName":
// "APMExperimentFetchSuccessTimestamp", "APMExperimentFetchFailureTimestamp",
// "APMExperimentFetchBackoffTimestamp", each "APMExperimentSuiteName/<key>".
//
// Threading: methods ending in OnWorkerQueue run on the worker queue; the rest may be called
// from any thread but the worker queue's own blocks, and wait for it where they return a
// result. The hooks are called on the worker queue.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "measurement/events/APMScheduler.h"
#include "measurement/experiments/APMEDatabase.h"
#include "measurement/experiments/APMEQueue.h"
#include "measurement/experiments/APMESDKProperty.h"
#include "platform/Network.h"
#include "platform/PreferenceStore.h"

inline constexpr const char* kAPMExperimentWorkerQueueLabel = "APMExperimentWorkerQueue";
inline constexpr const char* kAPMExperimentSuiteName = "APMExperimentSuiteName";
// The status of an SDK response that carries the SDK's launched snapshot.
inline constexpr std::uint32_t kAPMESdkResponseStatusLaunched = 2;

// Every stored snapshot, by table.
struct APMEStoredSnapshots {
  std::vector<APMESnapshot> activated;
  std::vector<APMESnapshot> pending;
  std::vector<APMESnapshot> launched;
};

class APMETaskManager : public std::enable_shared_from_this<APMETaskManager> {
 public:
  // Seconds a snapshot stays activated; older ones are deleted at start.
  static constexpr double kActivatedSnapshotLifetime = 259200;
  static constexpr double kFetchInterval = 14400;
  static constexpr double kFirstFetchDelay = 10;
  static constexpr double kRetryInterval = 1800;
  static constexpr int kRetryCount = 6;
  static constexpr double kBackoffInterval = 43200;

  struct Hooks {
    // The SDKs to fetch for now (those whose delegates agree), each with whether it
    // activates its snapshots itself.
    std::function<std::vector<std::pair<APMESDKProperty, bool>>()> propertiesToFetch;
    // The stored snapshots after every change.
    std::function<void(APMEStoredSnapshots)> snapshotsDidChange;
    // A fetch stored new pending snapshots of these SDKs.
    std::function<void(std::vector<std::string>)> didReceiveNewSnapshots;
    // A fetch failed.
    std::function<void(platform::Error)> didFailFetch;
  };

  // Nothing runs until start(). `preferences` null: the installed platform's store. Queued
  // blocks hold the task manager weakly; one that runs keeps it alive until it ends, so the
  // last owner may let go on any thread without waiting for the queue.
  static std::shared_ptr<APMETaskManager> create(std::string databasePath,
                                                 std::shared_ptr<platform::PreferenceStore> preferences,
                                                 Hooks hooks);
  APMETaskManager(const APMETaskManager&) = delete;
  APMETaskManager& operator=(const APMETaskManager&) = delete;

  // Any thread: startTaskManagerOnWorkerQueue, later.
  void start();
  // Any thread: works out the fetch time again (after a registration).
  void scheduleFetch();
  // Any thread, waiting: activates the SDK's pending snapshot ("No pending snapshot to
  // activate. SDK name" when there is none).
  bool activateSnapshotOfSDK(const std::string& SDKName, platform::Error* error);
  // Any thread, waiting: removes the SDK's rows from the three tables.
  bool resetToDefaultsOfSDKName(const std::string& SDKName);
  // Any thread, waiting: removes every row and the fetch outcomes.
  void reset();

  APMEQueue& workerQueue() { return worker_; }

  // ---- worker queue ----
  // Opens the database, deletes activated snapshots older than three days, activates the
  // pending rows not waiting for a manual activation, hands every snapshot to the hooks and
  // schedules the fetch.
  void startTaskManagerOnWorkerQueue();
  // When to fetch next, seconds since 1970; 0 for never (see the head of this file).
  double fetchTimeFromLastSuccessfulTimestamp(double lastSuccess, double lastFailed);
  void scheduleFetchOnWorkerQueue();
  // Posts the request for the SDKs the hooks name; nothing without SDKs, network or host.
  void fetchExperimentsOnWorkerQueue();
  void handleFetchResponseOnWorkerQueue(const platform::NetworkResponse& response,
                                        const std::optional<platform::Error>& error);
  // Null when the database could not be opened.
  APMEDatabase* database() { return database_.get(); }
  APMAlarm& alarm() { return alarm_; }

  double lastSuccessTimestamp() const;
  double lastFailureTimestamp() const;
  double lastBackoffTimestamp() const;

 private:
  APMETaskManager(std::string databasePath, std::shared_ptr<platform::PreferenceStore> preferences,
                  Hooks hooks);
  // Runs `block` on the worker queue later, while the task manager lives.
  void later(std::function<void(APMETaskManager&)> block);
  void setTimestamp(const char* key, double value);
  double timestamp(const char* key) const;
  void publishSnapshotsOnWorkerQueue();
  void failFetchOnWorkerQueue(int status, const std::string& message);

  APMEQueue worker_;
  std::string databasePath_;
  std::shared_ptr<platform::PreferenceStore> preferences_;
  Hooks hooks_;
  APMAlarm alarm_;
  std::unique_ptr<APMEDatabase> database_;
  double initTime_ = 0;
  bool firstFetchTimeComputed_ = false;
  bool fetchInFlight_ = false;
  // The SDKs of the request in flight, each with whether it activates its snapshots itself.
  std::map<std::string, bool> fetchManual_;
};
