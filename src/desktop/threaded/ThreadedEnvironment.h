// desktop::ThreadedEnvironment: the runtime on real threads.
//
//  - The main queue and main-run-loop timers run on a MainLoop: the standalone loop (run by the
//    command line's main thread, or a test's) unless another loop (the GUI's) is given.
//  - Global queues share a pool of worker threads; a higher quality of service is picked first,
//    FIFO within one class.
//  - Serial queues are strands on that pool: one task at a time, in FIFO order.
//  - Delayed work waits on one scheduler thread, then goes to its queue.
// Clock: the system's wall clock and its monotonic clock.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "desktop/threaded/MainLoop.h"
#include "desktop/threaded/StandaloneLoop.h"

namespace desktop {

class ThreadedEnvironment : public kit::Environment {
 public:
  // Installs itself. With no `loop`, a standalone loop is made (see standaloneLoop()).
  // `workers` 0 means max(2, hardware threads).
  explicit ThreadedEnvironment(std::shared_ptr<MainLoop> loop = nullptr, int workers = 0);
  // Stops the workers (tasks not yet started are dropped) and uninstalls itself.
  ~ThreadedEnvironment() override;
  ThreadedEnvironment(const ThreadedEnvironment&) = delete;
  ThreadedEnvironment& operator=(const ThreadedEnvironment&) = delete;

  // The standalone loop when this environment made one, else null.
  StandaloneLoop* standaloneLoop() const { return standalone_; }
  MainLoop& mainLoop() const { return *loop_; }

  kit::Queue& mainQueue() override;
  kit::Queue& globalQueue(kit::QoS qos) override;
  std::shared_ptr<kit::Queue> makeSerialQueue(std::string label) override;
  std::shared_ptr<kit::Timer> scheduledTimer(double interval, bool repeats, kit::TimerBlock block) override;
  double now() override;
  double uptime() override;
  bool isMainThread() override { return loop_->isLoopThread(); }

  // True when no background work is left: no task runs on a worker or waits for one (global
  // and serial queues alike) and no delayed task is pending. The main loop is not counted.
  // Any thread; the answer may be stale as soon as it is given unless the caller knows that
  // nothing else starts work (the command line asks from the main loop once its own work is
  // posted).
  bool isBackgroundIdle();

  // Runs `task` on a worker (for queues of this environment).
  void submit(kit::QoS qos, kit::Task task);
  // Runs `task` on `target` once `seconds` have passed.
  void submitAfter(double seconds, kit::Queue* target, kit::Task task);

 private:
  class MainQueue;
  class GlobalQueue;
  class SerialQueue;
  class LoopTimer;

  void workerLoop();
  void schedulerLoop();

  std::shared_ptr<MainLoop> loop_;
  StandaloneLoop* standalone_ = nullptr;
  std::unique_ptr<MainQueue> main_;
  std::map<kit::QoS, std::unique_ptr<GlobalQueue>> globals_;

  std::mutex poolMu_;
  std::condition_variable poolCv_;
  std::map<kit::QoS, std::deque<kit::Task>> pool_;
  std::atomic<bool> stopping_{false};
  int running_ = 0;  // tasks being run by workers; guarded by poolMu_
  std::vector<std::thread> workers_;

  std::mutex schedMu_;
  std::condition_variable schedCv_;
  struct Pending {
    kit::Queue* target;
    kit::Task task;
  };
  std::map<std::pair<std::chrono::steady_clock::time_point, std::uint64_t>, Pending> delayed_;
  int dispatching_ = 0;  // due tasks taken from delayed_ and not yet queued; guarded by schedMu_
  std::uint64_t seq_ = 0;
  std::thread scheduler_;
  std::chrono::steady_clock::time_point start_;
};

}  // namespace desktop
