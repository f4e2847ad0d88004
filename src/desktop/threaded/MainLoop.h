// MainLoop: the thread where the main queue and main-run-loop timers run. The standalone loop
// serves the command line and tests; the GUI supplies one over its own event loop.
#pragma once

#include <functional>

#include "kit/Dispatch.h"

namespace desktop {

class MainLoop {
 public:
  virtual ~MainLoop() = default;
  // Runs `task` on the loop's thread after every task posted before it. Any thread.
  virtual void post(kit::Task task) = 0;
  // Runs `task` on the loop's thread once `delaySeconds` have passed; tasks due at the same
  // time run in posting order. Any thread.
  virtual void postAfter(double delaySeconds, kit::Task task) = 0;
  // True on the loop's thread.
  virtual bool isLoopThread() const = 0;
};

}  // namespace desktop
