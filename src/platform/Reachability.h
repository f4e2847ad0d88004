// Whether the network can be reached, and word when that changes.
#pragma once

#include <functional>

namespace platform {

class Reachability {
 public:
  virtual ~Reachability() = default;
  // True when some route leaves the machine. Any thread.
  virtual bool isNetworkConnected() = 0;
  // `handler` (may be null to clear) hears the new state after a change, on a queue of the
  // implementation's choosing. One handler at a time. Any thread.
  virtual void setReachabilityHandler(std::function<void(bool connected)> handler) = 0;
};

}  // namespace platform
