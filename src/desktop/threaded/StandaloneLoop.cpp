#include "desktop/threaded/StandaloneLoop.h"

#include <algorithm>

namespace desktop {

StandaloneLoop::StandaloneLoop() : owner_(std::this_thread::get_id()) {}

void StandaloneLoop::post(kit::Task task) {
  {
    std::lock_guard lock(mu_);
    ready_.push_back(std::move(task));
  }
  cv_.notify_one();
}

void StandaloneLoop::postAfter(double delaySeconds, kit::Task task) {
  auto due = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                std::chrono::duration<double>(delaySeconds > 0 ? delaySeconds : 0));
  {
    std::lock_guard lock(mu_);
    timed_.emplace(std::make_pair(due, seq_++), std::move(task));
  }
  cv_.notify_one();
}

bool StandaloneLoop::isLoopThread() const {
  std::lock_guard lock(mu_);
  return owner_ == std::this_thread::get_id();
}

std::size_t StandaloneLoop::pendingCount() const {
  std::lock_guard lock(mu_);
  return ready_.size() + timed_.size();
}

void StandaloneLoop::adoptCurrentThread() {
  std::lock_guard lock(mu_);
  owner_ = std::this_thread::get_id();
}

void StandaloneLoop::quit() {
  {
    std::lock_guard lock(mu_);
    quit_ = true;
  }
  cv_.notify_all();
}

// Runs one ready task (moving due timed tasks to the ready list first) or waits until one is
// ready, `deadline` passes or quit() is called. Returns whether a task ran.
bool StandaloneLoop::runOne(std::unique_lock<std::mutex>& lock, Clock::time_point deadline) {
  while (true) {
    if (quit_) return false;
    auto now = Clock::now();
    while (!timed_.empty() && timed_.begin()->first.first <= now) {
      ready_.push_back(std::move(timed_.begin()->second));
      timed_.erase(timed_.begin());
    }
    if (!ready_.empty()) {
      kit::Task task = std::move(ready_.front());
      ready_.pop_front();
      lock.unlock();
      struct Relock {
        std::unique_lock<std::mutex>& l;
        ~Relock() { l.lock(); }
      } relock{lock};
      task();
      return true;
    }
    if (now >= deadline) return false;
    auto wakeAt = deadline;
    if (!timed_.empty() && timed_.begin()->first.first < wakeAt) wakeAt = timed_.begin()->first.first;
    cv_.wait_until(lock, wakeAt);
  }
}

void StandaloneLoop::run() {
  std::unique_lock lock(mu_);
  owner_ = std::this_thread::get_id();
  quit_ = false;
  while (!quit_) runOne(lock, Clock::time_point::max());
}

bool StandaloneLoop::runUntil(const std::function<bool()>& done, double timeoutSeconds) {
  auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                     std::chrono::duration<double>(timeoutSeconds));
  std::unique_lock lock(mu_);
  owner_ = std::this_thread::get_id();
  quit_ = false;
  while (true) {
    lock.unlock();
    bool finished = done();
    lock.lock();
    if (finished) return true;
    auto now = Clock::now();
    if (quit_ || now >= deadline) return false;
    // Other threads may make `done` true without posting here: look again every few ms.
    runOne(lock, std::min(deadline, now + std::chrono::milliseconds(2)));
  }
}

}  // namespace desktop
