// APMScheduler: the measurement worker queue ("com.stuvop.orva.worker"). Every block runs
// tagged with a block id ("APMMeasurement:568") so that a failure names its origin; an
// exception is caught and logged ("Exception on worker queue. Block ID=%@. Exception") and
// the queue goes on.
//
// APMAlarm: one pending block on a queue after a delay, replaced or cancelled as a whole.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "kit/Dispatch.h"

inline constexpr const char* kAPMWorkerQueueLabel = "com.stuvop.orva.worker";

class APMScheduler {
 public:
  APMScheduler();

  // Runs `block` later on the worker queue. Any thread.
  void scheduleOnWorkerQueueBlockID(const std::string& blockID, std::function<void()> block);
  // Runs `block` on the worker queue and waits for it. Called on the worker queue itself it
  // refuses: "Synchronous task failed. Block ID=%@". Returns whether the block ran.
  bool dispatchSyncOnWorkerQueueBlockID(const std::string& blockID, std::function<void()> block);
  // True while a block of this scheduler runs on the calling thread.
  bool isOnWorkerQueue() const;
  // Logs "Method %@ should execute on background thread" when called off the worker queue;
  // returns whether the call is on it.
  bool checkOnBackgroundThreadWithMethodName(const std::string& method) const;

  kit::Queue& queue() { return *queue_; }

 private:
  void run(const std::string& blockID, const std::function<void()>& block);
  std::shared_ptr<kit::Queue> queue_;
};

class APMAlarm {
 public:
  // Runs its blocks on `queue`, which must outlive the alarm.
  APMAlarm(kit::Queue& queue, std::string name);
  ~APMAlarm();

  // Replaces any pending block with `block`, due `delay` seconds from now. Any thread.
  void runAfterDelay(double delay, std::function<void()> block);
  void cancel();
  bool hasActiveTimer() const;
  // When the pending block is due, seconds since 1970; 0 when none.
  double scheduledTimestamp() const;
  // For a scheduler that backs off: the delay from `now` until `next`, pushed to
  // `backoffInterval` after `backoff` (the last back-off, 0 for none) while that has not passed,
  // and at least a millisecond. Nothing when the pending block is due no later.
  std::optional<double> delayUntil(double next, double now, double backoff, double backoffInterval) const;
  const std::string& name() const { return name_; }

 private:
  struct State {
    std::mutex mu;
    std::uint64_t generation = 0;
    double due = 0;
    bool active = false;
  };
  kit::Queue& queue_;
  std::string name_;
  std::shared_ptr<State> state_ = std::make_shared<State>();
};
