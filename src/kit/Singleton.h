// Process-wide shared instances ("shared" objects), created on first use from any thread.
// Tests start each case from fresh instances: resetSingletonsForTesting() drops them all.
#pragma once

#include <functional>
#include <memory>
#include <mutex>

namespace kit {

// Registers `reset` to run on resetSingletonsForTesting(). Thread-safe.
void registerSingletonReset(std::function<void()> reset);
// Drops every shared instance made so far, so that the next use makes a new one.
void resetSingletonsForTesting();

// The shared instance of T, made with T's default constructor on first use. Thread-safe.
template <class T>
std::shared_ptr<T> sharedInstance() {
  static std::mutex mu;
  static std::shared_ptr<T> slot;
  static bool registered = false;
  std::lock_guard lock(mu);
  if (!slot) {
    slot = std::make_shared<T>();
    if (!registered) {
      registered = true;
      registerSingletonReset([] {
        std::shared_ptr<T> old;
        {
          std::lock_guard inner(mu);
          old.swap(slot);
        }
      });
    }
  }
  return slot;
}

}  // namespace kit
