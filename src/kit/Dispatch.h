// Dispatch: the main queue, the global queues, named serial queues, main-run-loop timers and
// the clock, all provided by one installed Environment.
//
// Ordering promises, kept by every environment:
//  - tasks on the main queue and on one serial queue run one at a time, in FIFO order;
//  - delayed tasks and timers with equal due times run in posting order;
//  - after each main-queue task and each timer firing, the UI model's layout pass runs
//    (kit::runLayoutPass).
// Global queues are concurrent: their tasks start in FIFO order but may overlap.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "kit/Object.h"

namespace kit {

using Task = std::function<void()>;

// Quality-of-service classes of the global queues.
enum class QoS { Background, Utility, Default, UserInitiated, UserInteractive };

class Queue {
 public:
  virtual ~Queue() = default;
  // Runs `task` later on this queue. Never runs it before returning.
  virtual void async(Task task) = 0;
  // Runs `task` on this queue once `seconds` have passed on the environment's clock.
  virtual void asyncAfter(double seconds, Task task) = 0;
  // Runs `task` on this queue after every task queued before it, and returns when it has
  // run. Calling it on the queue it targets (or the main queue from the main thread) is a
  // fatal error, as a deadlock would be.
  virtual void sync(Task task) = 0;
  virtual const std::string& label() const = 0;
};

// A main-run-loop timer. Fires on the main queue until invalidated; a one-shot timer
// invalidates itself after firing. The run loop keeps a valid timer alive.
class Timer : public Object {
 public:
  virtual void invalidate() = 0;
  virtual bool isValid() const = 0;
  virtual double timeInterval() const = 0;
  virtual bool repeats() const = 0;
};

using TimerBlock = std::function<void(Timer&)>;

// The runtime that executes queues and timers and owns the clock. Exactly one is installed
// at a time; the app reaches it through the free functions below.
class Environment {
 public:
  virtual ~Environment() = default;

  // The installed environment. Fatal error when there is none.
  static Environment& current();
  static bool isInstalled();

  virtual Queue& mainQueue() = 0;
  virtual Queue& globalQueue(QoS qos) = 0;
  virtual std::shared_ptr<Queue> makeSerialQueue(std::string label) = 0;
  // Schedules a timer on the main run loop; the first firing is `interval` seconds from now.
  // A repeating timer's next due time is its previous due time plus `interval`.
  virtual std::shared_ptr<Timer> scheduledTimer(double interval, bool repeats, TimerBlock block) = 0;
  // Seconds since 1970 (wall clock).
  virtual double now() = 0;
  // Seconds since an arbitrary start (boot-relative), never going backwards.
  virtual double uptime() = 0;
  // True on the thread that runs the main queue.
  virtual bool isMainThread() = 0;
  // For a wait that would block the calling thread (kit::Semaphore). An environment that runs
  // every queue on one thread cannot block it: it runs its other ready work instead until
  // `done()` holds or nothing else can run, and returns `done()`. Environments on real threads
  // return nothing, and the caller blocks for up to `timeoutSeconds`.
  virtual std::optional<bool> runOtherWorkUntil(const std::function<bool()>& done, double timeoutSeconds) {
    (void)done;
    (void)timeoutSeconds;
    return std::nullopt;
  }

 protected:
  // Implementations install themselves on construction and uninstall on destruction.
  void install();
  void uninstall();
};

Queue& mainQueue();
Queue& globalQueue(QoS qos);
// A new serial queue (dispatch_queue_create with a serial attribute).
std::shared_ptr<Queue> makeSerialQueue(std::string label);
std::shared_ptr<Timer> scheduledTimer(double interval, bool repeats, TimerBlock block);
double uptime();
bool isMainThread();

// Runs the layout pass of the UI model. Environments call it after each main-queue task and
// each timer firing, and the user-input entry points (kit::tap and the like) after each
// event, as the platform's run loop does at the end of every turn. Main thread only.
void runLayoutPass();

}  // namespace kit
