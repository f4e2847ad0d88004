// Screenshots of flows: the window's own QML drawn offscreen over a flow's simulated app, and
// the entry points of the program that use it. GUI thread; a QGuiApplication must exist
// before a renderer draws.
#pragma once

#include <string>
#include <vector>

#include "flow/Runner.h"

namespace gui {

// Draws the kit window of a flow through Main.qml, as the desktop window would show it
// (390x844), into a PNG. Each picture loads the QML afresh over the window's current state.
class QmlScreenRenderer : public flow::ScreenRenderer {
 public:
  bool renderPNG(const std::shared_ptr<kit::Window>& window, const std::string& path,
                 const std::function<void()>& settle, std::string* error) override;
};

// `solvanta flow ARGS`: with --screenshots, sets up an offscreen Qt application and the
// renderer first; without, runs headless. Returns the exit code.
int runFlows(const std::vector<std::string>& args, const char* programName);

// `solvanta --screenshot DIR`: the screenshot journey built into the program (the flow
// flows/screenshots.yaml), its pictures written to DIR. Returns the exit code.
int runScreenshotFlow(const std::string& dir, const char* programName);

}  // namespace gui
