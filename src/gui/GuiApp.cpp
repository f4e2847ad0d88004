#include "gui/GuiApp.h"

#include <algorithm>
#include <thread>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QQmlContext>
#include <QThread>

#include "gui/ImageRegistry.h"
#include "kit/NavigationController.h"
#include "kit/Storyboard.h"
#include "platform/Platform.h"
#include "shell/AppDelegate.h"
#include "shell/MainStoryboard.h"

namespace gui {

void registerResources(QQmlEngine& engine) {
  engine.addImageProvider("kit", new KitImageProvider);
}

GuiApp::GuiApp()
    : loop_(std::make_shared<QtMainLoop>()),
      // At least four workers: the access questions wait for the person's answer on a worker,
      // and the measurement client's start waits on a worker for its serial queues.
      env_(std::make_unique<desktop::ThreadedEnvironment>(
          loop_, static_cast<int>(std::max(4u, std::thread::hardware_concurrency())))),
      camera_(std::make_unique<CameraBridge>(QDir::temp().filePath("solvanta-camera"))) {
  registerResources(engine_);
}

GuiApp::~GuiApp() { close(); }

void GuiApp::close() {
  closing_ = true;
  if (bridge_) bridge_->cancelQuestions();
  camera_->close();
}

bool GuiApp::start(std::shared_ptr<kit::ViewController> root) {
  shell::registerMainStoryboard();
  if (!root) {
    // The program's start: the entry routine hands over to AppDelegate; the splash follows.
    kitWindow_ = shell::applicationMain();
  } else {
    kitWindow_ = kit::make<kit::Window>(kit::Screen::mainBounds());
    if (platform::services().application) platform::application().addWindow(kitWindow_);
    kitWindow_->setRootViewController(root);
    kitWindow_->makeKeyAndVisible();
  }
  kit::runLayoutPass();
  bridge_ = std::make_unique<AppBridge>(kitWindow_);
  engine_.rootContext()->setContextProperty("app", bridge_.get());
  engine_.rootContext()->setContextProperty("cameraBridge", camera_.get());
  engine_.load(QUrl("qrc:/qml/Main.qml"));
  return window() != nullptr;
}

QQuickWindow* GuiApp::window() const {
  auto roots = engine_.rootObjects();
  return roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow*>(roots.first());
}

bool GuiApp::waitUntil(const std::function<bool()>& done, int timeoutMs) {
  QElapsedTimer timer;
  timer.start();
  while (!done()) {
    if (timer.elapsed() > timeoutMs) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    QThread::msleep(1);
  }
  return true;
}

void GuiApp::settle(int timeoutMs) {
  int quiet = 0;
  waitUntil(
      [&] {
        bool idle = loop_->pendingCount() == 0 && env_->isBackgroundIdle();
        quiet = idle ? quiet + 1 : 0;
        return quiet >= 20;
      },
      timeoutMs);
}

}  // namespace gui
