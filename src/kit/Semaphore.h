// Semaphore: a counting semaphore whose waits give up after a time (dispatch_semaphore).
// Any thread may wait or signal. A wait on an environment that runs every queue on one thread
// (the simulated one) runs the environment's other ready work while it waits, since blocking
// would stop the only thread that could signal it.
#pragma once

#include <condition_variable>
#include <mutex>

namespace kit {

class Semaphore {
 public:
  explicit Semaphore(long value) : count_(value) {}
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  // Takes one unit, waiting for it at most `timeoutSeconds` (real seconds on real threads).
  // True when a unit was taken, false on timeout.
  bool wait(double timeoutSeconds);
  // Gives one unit back, waking one waiter.
  void signal();
  long value() const;

 private:
  bool tryTake();
  mutable std::mutex mu_;
  std::condition_variable cv_;
  long count_;
};

}  // namespace kit
