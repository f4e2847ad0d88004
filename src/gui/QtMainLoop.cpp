#include "gui/QtMainLoop.h"

#include <QThread>

namespace gui {

QtMainLoop::QtMainLoop() {
  timer_.setSingleShot(true);
  timer_.setTimerType(Qt::PreciseTimer);
  connect(&timer_, &QTimer::timeout, this, [this] { runDue(); });
  continuation_.setSingleShot(true);
  continuation_.setInterval(0);
  connect(&continuation_, &QTimer::timeout, this, [this] { drain(); });
}

void QtMainLoop::post(kit::Task task) {
  bool schedule;
  {
    std::lock_guard lock(mu_);
    tasks_.push_back(std::move(task));
    schedule = !drainScheduled_;
    drainScheduled_ = true;
  }
  if (schedule) QMetaObject::invokeMethod(this, [this] { drain(); }, Qt::QueuedConnection);
}

void QtMainLoop::drain() {
  const auto end = Clock::now() + std::chrono::milliseconds(kSliceMs);
  do {
    kit::Task task;
    {
      std::lock_guard lock(mu_);
      if (tasks_.empty()) {
        drainScheduled_ = false;
        return;
      }
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    task();
  } while (Clock::now() < end);
  continuation_.start();
}

void QtMainLoop::postAfter(double delaySeconds, kit::Task task) {
  auto due = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                std::chrono::duration<double>(delaySeconds > 0 ? delaySeconds : 0));
  {
    std::lock_guard lock(mu_);
    timed_.emplace(std::make_pair(due, seq_++), std::move(task));
  }
  QMetaObject::invokeMethod(this, [this] { armTimer(); }, Qt::QueuedConnection);
}

bool QtMainLoop::isLoopThread() const { return QThread::currentThread() == thread(); }

int QtMainLoop::pendingCount() const {
  std::lock_guard lock(mu_);
  return static_cast<int>(tasks_.size() + timed_.size());
}

void QtMainLoop::armTimer() {
  Clock::time_point next;
  {
    std::lock_guard lock(mu_);
    if (timed_.empty()) return;
    next = timed_.begin()->first.first;
  }
  // Round up: a timer that fires early would find nothing due.
  auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
  timer_.start(static_cast<int>(std::max<long long>(0, wait)));
}

void QtMainLoop::runDue() {
  while (true) {
    kit::Task task;
    {
      std::lock_guard lock(mu_);
      if (timed_.empty() || timed_.begin()->first.first > Clock::now()) break;
      task = std::move(timed_.begin()->second);
      timed_.erase(timed_.begin());
    }
    task();
  }
  armTimer();
}

}  // namespace gui
