#include "measurement/events/APMScheduler.h"

#include <algorithm>
#include <cmath>
#include <exception>

#include "kit/Date.h"
#include "measurement/APMMonitor.h"

namespace {

constexpr int kCodeWorkerException = 2001;
constexpr int kCodeSyncFailed = 2002;
constexpr int kCodeNotOnWorker = 2003;

thread_local const APMScheduler* tCurrentScheduler = nullptr;

}  // namespace

APMScheduler::APMScheduler() : queue_(kit::makeSerialQueue(kAPMWorkerQueueLabel)) {}

void APMScheduler::run(const std::string& blockID, const std::function<void()>& block) {
  const APMScheduler* outer = tCurrentScheduler;
  tCurrentScheduler = this;
  try {
    block();
  } catch (const std::exception& e) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeWorkerException,
                    "Exception on worker queue. Block ID=" + blockID + ". Exception", e.what());
  } catch (...) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeWorkerException,
                    "Exception on worker queue. Block ID=" + blockID + ". Exception", "unknown");
  }
  tCurrentScheduler = outer;
}

void APMScheduler::scheduleOnWorkerQueueBlockID(const std::string& blockID,
                                                std::function<void()> block) {
  queue_->async([this, blockID, block = std::move(block)] { run(blockID, block); });
}

bool APMScheduler::dispatchSyncOnWorkerQueueBlockID(const std::string& blockID,
                                                    std::function<void()> block) {
  if (isOnWorkerQueue()) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeSyncFailed,
                    "Synchronous task failed. Block ID=" + blockID);
    return false;
  }
  queue_->sync([&] { run(blockID, block); });
  return true;
}

bool APMScheduler::isOnWorkerQueue() const { return tCurrentScheduler == this; }

bool APMScheduler::checkOnBackgroundThreadWithMethodName(const std::string& method) const {
  if (isOnWorkerQueue()) return true;
  APMMonitor::log(kAPMMonitorLevelError, kCodeNotOnWorker,
                  "Method " + method + " should execute on background thread");
  return false;
}

APMAlarm::APMAlarm(kit::Queue& queue, std::string name) : queue_(queue), name_(std::move(name)) {}

APMAlarm::~APMAlarm() { cancel(); }

void APMAlarm::runAfterDelay(double delay, std::function<void()> block) {
  std::uint64_t generation;
  {
    std::lock_guard lock(state_->mu);
    generation = ++state_->generation;
    state_->active = true;
    state_->due = kit::Date::now().timeIntervalSince1970 + delay;
  }
  // A replaced or cancelled block finds a newer generation and does nothing.
  queue_.asyncAfter(delay, [state = state_, generation, block = std::move(block)] {
    {
      std::lock_guard lock(state->mu);
      if (state->generation != generation || !state->active) return;
      state->active = false;
      state->due = 0;
    }
    block();
  });
}

void APMAlarm::cancel() {
  std::lock_guard lock(state_->mu);
  ++state_->generation;
  state_->active = false;
  state_->due = 0;
}

bool APMAlarm::hasActiveTimer() const {
  std::lock_guard lock(state_->mu);
  return state_->active;
}

double APMAlarm::scheduledTimestamp() const {
  std::lock_guard lock(state_->mu);
  return state_->due;
}

std::optional<double> APMAlarm::delayUntil(double next, double now, double backoff, double backoffInterval) const {
  if (backoff > 0 && std::fabs(now - backoff) < backoffInterval) next = std::max(next, backoff + backoffInterval);
  if (hasActiveTimer() && scheduledTimestamp() <= next) return std::nullopt;
  double delay = next - now;
  constexpr double kMinimumDelay = 0.001;
  if (delay < kMinimumDelay) delay = kMinimumDelay;
  return delay;
}
