#include "kit/NotificationCenter.h"

#include "kit/Singleton.h"

namespace kit {

NotificationCenter& NotificationCenter::defaultCenter() { return *sharedInstance<NotificationCenter>(); }

void NotificationCenter::addObserver(const void* observer, std::string name, const void* object,
                                     Block block) {
  std::lock_guard lock(mu_);
  entries_.push_back({observer, std::move(name), object, std::make_shared<Block>(std::move(block))});
}

void NotificationCenter::removeObserver(const void* observer) {
  std::lock_guard lock(mu_);
  std::erase_if(entries_, [observer](const Entry& e) { return e.observer == observer; });
}

void NotificationCenter::removeObserver(const void* observer, const std::string& name) {
  std::lock_guard lock(mu_);
  std::erase_if(entries_,
                [&](const Entry& e) { return e.observer == observer && e.name == name; });
}

void NotificationCenter::postNotificationName(const std::string& name, const void* object,
                                              Dictionary userInfo) {
  std::vector<std::shared_ptr<Block>> targets;
  {
    std::lock_guard lock(mu_);
    for (const Entry& e : entries_) {
      if (e.name == name && (!e.object || e.object == object)) targets.push_back(e.block);
    }
  }
  Notification n{name, object, std::move(userInfo)};
  for (auto& block : targets) (*block)(n);
}

std::size_t NotificationCenter::observerCount() const {
  std::lock_guard lock(mu_);
  return entries_.size();
}

}  // namespace kit
