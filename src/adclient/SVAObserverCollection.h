// SVAObserverCollection: the notification observers of one object, removed together when the
// collection goes away. Any thread.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "kit/Dispatch.h"
#include "kit/NotificationCenter.h"

namespace adclient {

class SVAObserverCollection {
 public:
  using Block = kit::NotificationCenter::Block;

  SVAObserverCollection();
  // Removes every registration; a delivery already queued is dropped.
  ~SVAObserverCollection();
  SVAObserverCollection(const SVAObserverCollection&) = delete;
  SVAObserverCollection& operator=(const SVAObserverCollection&) = delete;

  // Observes `name` posted by `object` (null: by anyone) on the default centre. With a
  // `queue`, `block` runs there later with a copy of the notification; without one it runs
  // at once on the posting thread. `queue` must outlive the collection (the main queue does).
  void addObserverForName(std::string name, const void* object, kit::Queue* queue, Block block);
  // Removes every registration made through this collection.
  void removeAllObservers();
  std::size_t count() const;

 private:
  // Cleared on removal, so that queued deliveries made before it do nothing.
  std::shared_ptr<std::atomic<bool>> live_;
  mutable std::mutex mu_;
  std::size_t count_ = 0;
};

}  // namespace adclient
