// StandaloneLoop: a main loop of our own, run on the thread that calls run().
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

#include "desktop/threaded/MainLoop.h"

namespace desktop {

class StandaloneLoop : public MainLoop {
 public:
  using Clock = std::chrono::steady_clock;

  StandaloneLoop();

  void post(kit::Task task) override;
  void postAfter(double delaySeconds, kit::Task task) override;
  bool isLoopThread() const override;

  // Runs tasks on the calling thread until quit() (which may come from any thread, before or
  // during the run). The calling thread becomes the loop's thread. An exception thrown by a
  // task ends the run and propagates.
  void run();
  // Runs until `done()` is true (checked after each task and every few milliseconds) or
  // `timeoutSeconds` pass; returns whether `done()` became true.
  bool runUntil(const std::function<bool()>& done, double timeoutSeconds);
  void quit();

  // Tasks posted and not yet run, delayed ones included. Any thread.
  std::size_t pendingCount() const;

  // Makes the calling thread the loop's thread without running (for set-up before run()).
  void adoptCurrentThread();

 private:
  bool runOne(std::unique_lock<std::mutex>& lock, Clock::time_point deadline);

  mutable std::mutex mu_;
  std::condition_variable cv_;
  std::deque<kit::Task> ready_;
  std::map<std::pair<Clock::time_point, std::uint64_t>, kit::Task> timed_;
  std::uint64_t seq_ = 0;
  bool quit_ = false;
  std::thread::id owner_;
};

}  // namespace desktop
