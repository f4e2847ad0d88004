// The flow runner: plays one parsed flow on a fresh simulated world (sim platform and
// sim::Environment, virtual clock) as a person would, and checks what the person would see.
//
// After each command every ready task runs (main and background queues, in the environment's
// order, the platform's questions answered as the world says) until nothing is ready; the
// clock moves only by `advance` and `waitFor`. A flow may move its clock by at most
// kVirtualTimeCap seconds in all, one settling may run at most kTaskCap tasks, and the flow
// at most kCommandCap commands: beyond any of them the flow fails rather than hangs. A fatal error of the app fails the flow.
//
// Main thread of the process; one flow at a time (the world is process-wide state).
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "flow/FlowFile.h"
#include "kit/Window.h"

namespace flow {

constexpr double kVirtualTimeCap = 6 * 3600.0;
constexpr long kTaskCap = 1000000;
// Commands one flow may run in all (repeats and runFlow counted).
constexpr int kCommandCap = 100000;

// Draws the app's window as a picture, for `takeScreenshot`. Implemented by the GUI; the
// runner itself knows nothing of how pictures are made.
class ScreenRenderer {
 public:
  virtual ~ScreenRenderer() = default;
  // Writes a PNG of `window` as it looks now to `path`. False, with `error` set, on failure.
  // Called on the runner's thread, between commands. Drawing may ask the app for more (cells
  // coming into view post their pictures); `settle` runs that work, as after a command.
  virtual bool renderPNG(const std::shared_ptr<kit::Window>& window, const std::string& path,
                         const std::function<void()>& settle, std::string* error) = 0;
};

// The outcome of one command.
struct StepReport {
  std::string file;
  int line = 0;
  std::string command;
  bool ok = true;
  std::string message;
  double virtualTime = 0;  // seconds since the flow began, on its clock
};

struct RunOptions {
  // Folder for `takeScreenshot`, and who draws; without both the command does nothing.
  std::string screenshotDir;
  ScreenRenderer* renderer = nullptr;
  // Called as each command ends (containers after their commands).
  std::function<void(const StepReport&)> onStep;
  // Where `dump` writes (null: nowhere).
  std::FILE* dumpOut = nullptr;
};

struct FlowResult {
  bool passed = true;
  int commands = 0;     // commands run
  StepReport failure;   // the failing command, when !passed
  nlohmann::json screen;  // the front-most screen at the failure
  double virtualTime = 0;
};

// Runs `flow` to its end or its first failure.
FlowResult runFlow(const Flow& flow, const RunOptions& options);

}  // namespace flow
