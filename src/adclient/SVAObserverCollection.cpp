#include "adclient/SVAObserverCollection.h"

namespace adclient {

SVAObserverCollection::SVAObserverCollection() : live_(std::make_shared<std::atomic<bool>>(true)) {}

SVAObserverCollection::~SVAObserverCollection() { removeAllObservers(); }

void SVAObserverCollection::addObserverForName(std::string name, const void* object, kit::Queue* queue,
                                               Block block) {
  std::shared_ptr<std::atomic<bool>> live;
  {
    std::lock_guard lock(mu_);
    live = live_;
    ++count_;
  }
  auto shared = std::make_shared<Block>(std::move(block));
  kit::NotificationCenter::defaultCenter().addObserver(
      this, std::move(name), object, [live, queue, shared](const kit::Notification& note) {
        if (!live->load()) return;
        if (!queue) {
          (*shared)(note);
          return;
        }
        queue->async([live, shared, note] {
          if (live->load()) (*shared)(note);
        });
      });
}

void SVAObserverCollection::removeAllObservers() {
  kit::NotificationCenter::defaultCenter().removeObserver(this);
  std::lock_guard lock(mu_);
  live_->store(false);
  live_ = std::make_shared<std::atomic<bool>>(true);
  count_ = 0;
}

std::size_t SVAObserverCollection::count() const {
  std::lock_guard lock(mu_);
  return count_;
}

}  // namespace adclient
