// GuiApp: the app in a window. The kit's main queue runs on Qt's event loop (a threaded
// environment over a QtMainLoop), the program's start runs as on the phone (AppDelegate, then
// the splash in a navigation controller), and QML draws whatever the kit shows. Needs a QGuiApplication; GUI thread only.
#pragma once

#include <QQmlApplicationEngine>
#include <QQuickWindow>

#include <atomic>
#include <functional>
#include <memory>

#include "desktop/threaded/ThreadedEnvironment.h"
#include "gui/AppBridge.h"
#include "gui/CameraBridge.h"
#include "gui/QtMainLoop.h"
#include "kit/Window.h"

namespace gui {

class GuiApp {
 public:
  // Installs the threaded environment over Qt's loop. The platform is installed afterwards by
  // the caller (it may need the environment).
  GuiApp();
  ~GuiApp();
  GuiApp(const GuiApp&) = delete;
  GuiApp& operator=(const GuiApp&) = delete;

  // Starts the app (the entry routine, AppDelegate's launch and the splash), or with `root`
  // shows that controller alone in the key window; then loads the QML window. Returns false
  // when QML fails to load.
  bool start(std::shared_ptr<kit::ViewController> root = nullptr);

  AppBridge& bridge() { return *bridge_; }
  // The camera view (`cameraBridge` in QML); its files go to a temporary folder until the
  // caller sets one.
  CameraBridge& camera() { return *camera_; }
  QQmlApplicationEngine& engine() { return engine_; }
  QQuickWindow* window() const;
  const std::shared_ptr<kit::Window>& kitWindow() const { return kitWindow_; }
  desktop::ThreadedEnvironment& environment() { return *env_; }

  // Marks the app as closing: questions waiting in the window are answered -1, and
  // isClosing() turns true for askers still on their way.
  void close();
  bool isClosing() const { return closing_.load(); }

  // Processes Qt events until `done()` or `timeoutMs` pass; returns whether `done()` held.
  bool waitUntil(const std::function<bool()>& done, int timeoutMs);
  // Processes events until the main loop and the background queues have been idle for a
  // moment (or `timeoutMs` pass).
  void settle(int timeoutMs = 5000);

 private:
  std::atomic<bool> closing_{false};
  std::shared_ptr<QtMainLoop> loop_;
  std::unique_ptr<desktop::ThreadedEnvironment> env_;
  std::shared_ptr<kit::Window> kitWindow_;
  std::unique_ptr<AppBridge> bridge_;
  std::unique_ptr<CameraBridge> camera_;
  QQmlApplicationEngine engine_;
};

// Loads the app's resources (QML files, images, animations) and registers the image provider
// with `engine`.
void registerResources(QQmlEngine& engine);

}  // namespace gui
