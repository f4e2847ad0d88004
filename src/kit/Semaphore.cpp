#include "kit/Semaphore.h"

#include <chrono>
#include <cmath>

#include "kit/Dispatch.h"

namespace kit {

bool Semaphore::tryTake() {
  std::lock_guard lock(mu_);
  if (count_ <= 0) return false;
  --count_;
  return true;
}

bool Semaphore::wait(double timeoutSeconds) {
  if (tryTake()) return true;
  if (!(timeoutSeconds > 0.0)) return false;
  if (Environment::isInstalled()) {
    auto ran = Environment::current().runOtherWorkUntil(
        [this] {
          std::lock_guard lock(mu_);
          return count_ > 0;
        },
        timeoutSeconds);
    if (ran) return tryTake();
  }
  std::unique_lock lock(mu_);
  const double capped = std::isfinite(timeoutSeconds) ? std::min(timeoutSeconds, 1e7) : 1e7;
  auto deadline = std::chrono::steady_clock::now() +
                  std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                      std::chrono::duration<double>(capped));
  if (!cv_.wait_until(lock, deadline, [this] { return count_ > 0; })) return false;
  --count_;
  return true;
}

void Semaphore::signal() {
  {
    std::lock_guard lock(mu_);
    ++count_;
  }
  cv_.notify_one();
}

long Semaphore::value() const {
  std::lock_guard lock(mu_);
  return count_;
}

}  // namespace kit
