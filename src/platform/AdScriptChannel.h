// The script side of a web ad view: the named messages, with their arguments, that the ad's
// script receives. A channel belongs to one ad view.
#pragma once

#include <string>

#include "kit/Value.h"

namespace platform {

class AdScriptChannel {
 public:
  virtual ~AdScriptChannel() = default;
  // Delivers one message to the script. Main thread.
  virtual void postMessage(const std::string& name, const kit::Dictionary& arguments) = 0;
};

}  // namespace platform
