// QtMainLoop: the kit's main queue and main-run-loop timers on Qt's event loop, so that the
// app's main thread is the GUI thread.
#pragma once

#include <QObject>
#include <QTimer>

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>

#include "desktop/threaded/MainLoop.h"

namespace gui {

class QtMainLoop : public QObject, public desktop::MainLoop {
  Q_OBJECT
 public:
  // Runs its tasks on the thread `QtMainLoop` is made on (the GUI thread).
  QtMainLoop();

  // Queues `task`; tasks run in posting order. They run in slices of about kSliceMs: when a
  // slice is over, the loop goes back to Qt's event loop (input, painting, other events) and
  // the rest runs in its next round, so a flood of tasks never freezes the window. Any thread.
  void post(kit::Task task) override;
  // Keeps its own queue of due times, so that tasks due together run in posting order.
  void postAfter(double delaySeconds, kit::Task task) override;
  bool isLoopThread() const override;

  // Tasks posted and not yet run (immediate and delayed).
  int pendingCount() const;

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr int kSliceMs = 8;

  void armTimer();
  void runDue();
  // Runs queued tasks for one slice. GUI thread.
  void drain();

  mutable std::mutex mu_;
  std::map<std::pair<Clock::time_point, std::uint64_t>, kit::Task> timed_;
  std::uint64_t seq_ = 0;
  std::deque<kit::Task> tasks_;
  bool drainScheduled_ = false;  // a drain is posted or its continuation armed
  QTimer timer_;
  QTimer continuation_;  // a zero timer: runs in the event loop's next round
};

}  // namespace gui
