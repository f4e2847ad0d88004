// NotificationCenter: named notifications delivered synchronously, on the posting thread, to
// the observers registered for the name. Thread-safe.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kit/Value.h"

namespace kit {

struct Notification {
  std::string name;
  const void* object = nullptr;
  Dictionary userInfo;
};

class NotificationCenter {
 public:
  using Block = std::function<void(const Notification&)>;

  static NotificationCenter& defaultCenter();

  // Registers `block` for `name` on behalf of `observer` (an identity, not owned). A null
  // `object` observes every sender; otherwise only posts with that object.
  void addObserver(const void* observer, std::string name, const void* object, Block block);
  // Removes every registration of `observer`.
  void removeObserver(const void* observer);
  void removeObserver(const void* observer, const std::string& name);
  void postNotificationName(const std::string& name, const void* object = nullptr,
                            Dictionary userInfo = {});
  std::size_t observerCount() const;

 private:
  struct Entry {
    const void* observer;
    std::string name;
    const void* object;
    std::shared_ptr<Block> block;
  };
  mutable std::mutex mu_;
  std::vector<Entry> entries_;
};

}  // namespace kit
