// AtomicShared<T>: a shared_ptr field that one queue writes and another reads. Loads and
// stores are atomic, so the logical race (which value a reader sees) stays while the data
// race goes. A collection shared this way is an immutable snapshot, replaced whole.
#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace kit {

template <class T>
class AtomicShared {
 public:
  AtomicShared() = default;
  explicit AtomicShared(std::shared_ptr<T> value) : value_(std::move(value)) {}
  AtomicShared(const AtomicShared&) = delete;
  AtomicShared& operator=(const AtomicShared&) = delete;

  std::shared_ptr<T> load() const {
    std::lock_guard lock(mu_);
    return value_;
  }
  void store(std::shared_ptr<T> value) {
    std::shared_ptr<T> old;
    {
      std::lock_guard lock(mu_);
      old = std::exchange(value_, std::move(value));
    }
    // `old` is released outside the lock: its destructor may do anything.
  }
  // Replaces the value with update(current) as one step; returns the new value.
  template <class F>
  std::shared_ptr<T> update(F&& f) {
    std::shared_ptr<T> old, next;
    {
      std::lock_guard lock(mu_);
      next = f(value_);
      old = std::exchange(value_, next);
    }
    return next;
  }

 private:
  mutable std::mutex mu_;
  std::shared_ptr<T> value_;
};

}  // namespace kit
