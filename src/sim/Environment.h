// sim::Environment: the deterministic runtime for tests and scripted runs. One thread, one
// virtual clock; nothing runs until the test says so.
//
//  - Main-queue tasks wait for runMain / runMainOnce (or runUntilIdle, advance).
//  - Background work (global queues and serial queues) is held until runBackground /
//    runBackgroundOnce (or runUntilIdle, advance), and then runs in posting order.
//  - Delayed tasks and timers wait for advance(seconds), which moves the clock from one due
//    time to the next, task by task, and runs everything that becomes ready.
//
// Constructing an environment installs it, drops every shared instance (each test starts from
// a fresh process state) and sets the device's time zone to UTC; destroying it uninstalls it.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kit/Date.h"
#include "kit/Dispatch.h"

namespace sim {

class Environment : public kit::Environment {
 public:
  // 2025-01-01 00:00:00 UTC.
  static constexpr double kDefaultStart = 1735689600.0;

  explicit Environment(double startSecondsSince1970 = kDefaultStart);
  ~Environment() override;
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

  // --- kit::Environment ---
  kit::Queue& mainQueue() override;
  kit::Queue& globalQueue(kit::QoS qos) override;
  std::shared_ptr<kit::Queue> makeSerialQueue(std::string label) override;
  std::shared_ptr<kit::Timer> scheduledTimer(double interval, bool repeats, kit::TimerBlock block) override;
  double now() override { return now_; }
  double uptime() override { return now_ - bootTime_; }
  // False only while a background task runs.
  bool isMainThread() override { return !inBackground_; }
  // Runs, in posting order, the main-queue tasks (when the waiter is not the main thread) and
  // the held background tasks of queues other than the serial queues running now, until
  // `done()` holds or none is left. Delayed work waits and the clock stays: a wait that
  // nothing ready can satisfy times out at once.
  std::optional<bool> runOtherWorkUntil(const std::function<bool()>& done, double timeoutSeconds) override;

  // --- Driving ---
  // Runs main-queue tasks until the main queue is empty (tasks they post included); returns
  // how many ran.
  int runMain();
  // Runs the first main-queue task, if any.
  bool runMainOnce();
  // Runs held background tasks in posting order until none is left (tasks they post
  // included); main-queue tasks they post wait. Returns how many ran.
  int runBackground();
  // Runs the first held background task, if any.
  bool runBackgroundOnce();
  // Alternates: drains the main queue, then runs one background task, until both are empty.
  // Delayed work waits. Returns how many tasks ran.
  int runUntilIdle();
  // Moves the clock forward by `seconds`, firing timers and delayed tasks in due order (equal
  // due times in posting order) and running, after each, everything that became ready.
  void advance(double seconds);

  // Tasks waiting anywhere: main, background, delayed, and valid timers.
  std::size_t pendingCount() const;
  std::size_t pendingMainCount() const { return main_.size(); }
  std::size_t pendingBackgroundCount() const { return background_.size(); }
  // A readable account of the clock and of everything pending.
  std::string describe() const;

  // When on, a main-queue task posted by background work runs at once, before the background
  // task goes on, as an idle main thread on another core would run it. Off by default: main
  // tasks then wait until the test runs the main queue.
  void setEagerMain(bool eager) { eagerMain_ = eager; }

  void setNow(double secondsSince1970) { now_ = secondsSince1970; }
  // Sets the device's time zone (the default zone of every new formatter).
  void setTimeZone(std::shared_ptr<const kit::TimeZone> zone);

 private:
  class SimQueue;
  class SimTimer;
  friend class SimQueue;
  friend class SimTimer;

  struct Held {
    SimQueue* queue;
    kit::Task task;
  };
  struct Delayed {
    SimQueue* queue;  // null for a timer firing
    kit::Task task;
    std::shared_ptr<SimTimer> timer;
  };

  void post(SimQueue* queue, kit::Task task);
  void postAfter(SimQueue* queue, double seconds, kit::Task task);
  void sync(SimQueue* queue, kit::Task task);
  void runMainTask(kit::Task& task);
  void runBackgroundTask(Held& held);
  void scheduleTimer(const std::shared_ptr<SimTimer>& timer, double due);

  double now_;
  double bootTime_;
  std::unique_ptr<SimQueue> main_q_;
  std::map<kit::QoS, std::unique_ptr<SimQueue>> globals_;
  std::vector<std::shared_ptr<SimQueue>> serials_;
  std::deque<kit::Task> main_;
  std::deque<Held> background_;
  std::map<std::pair<double, std::uint64_t>, Delayed> delayed_;
  std::uint64_t seq_ = 0;
  bool inBackground_ = false;
  bool eagerMain_ = false;
  bool drainingEagerly_ = false;
  SimQueue* runningQueue_ = nullptr;
};

}  // namespace sim
