// QtMainLoop: the kit's main queue and main-run-loop timers on Qt's event loop, so that the
// app's main thread is the GUI thread.
#pragma once

#include <QObject>
#include <QTimer>

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>

#include "desktop/threaded/MainLoop.h"

namespace gui {

class QtMainLoop : public QObject, public desktop::MainLoop {
  Q_OBJECT
 public:
  // Runs its tasks on the thread `QtMainLoop` is made on (the GUI thread).
  QtMainLoop();

  // Posts through Qt's event queue, which keeps posting order. Any thread.
  void post(kit::Task task) override;
  // Keeps its own queue of due times, so that tasks due together run in posting order.
  void postAfter(double delaySeconds, kit::Task task) override;
  bool isLoopThread() const override;

  // Tasks posted and not yet run (immediate and delayed).
  int pendingCount() const;

 private:
  using Clock = std::chrono::steady_clock;
  void armTimer();
  void runDue();

  mutable std::mutex mu_;
  std::map<std::pair<Clock::time_point, std::uint64_t>, kit::Task> timed_;
  std::uint64_t seq_ = 0;
  int posted_ = 0;
  QTimer timer_;
};

}  // namespace gui
