#include "gui/FlowScreenshots.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQuickWindow>
#include <QThread>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "flow/FlowCommand.h"
#include "gui/AppBridge.h"
#include "gui/GuiApp.h"

namespace gui {

namespace {

// The offscreen Qt application pictures need, for the caller's scope.
std::unique_ptr<QGuiApplication> offscreenApplication(const char* programName) {
  setenv("QT_QPA_PLATFORM", "offscreen", 1);
  setenv("QT_QUICK_BACKEND", "software", 1);
  static int argc = 1;
  static char* argv[] = {const_cast<char*>(programName), nullptr};
  auto app = std::make_unique<QGuiApplication>(argc, argv);
  app->setApplicationName("Solvanta");
  return app;
}

}  // namespace

bool QmlScreenRenderer::renderPNG(const std::shared_ptr<kit::Window>& window, const std::string& path,
                                  const std::function<void()>& settle, std::string* error) {
  if (!window) {
    *error = "the app is not running";
    return false;
  }
  // The bridge outlives the engine, whose QML reads it to the end.
  AppBridge bridge(window);
  CameraBridge camera{QString()};  // the simulated camera has no view of its own
  QQmlApplicationEngine engine;
  registerResources(engine);
  engine.rootContext()->setContextProperty("app", &bridge);
  engine.rootContext()->setContextProperty("cameraBridge", &camera);
  engine.load(QUrl("qrc:/qml/Main.qml"));
  auto roots = engine.rootObjects();
  auto* quickWindow = roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow*>(roots.first());
  if (!quickWindow) {
    *error = "the window's QML did not load";
    return false;
  }
  // Let the scene lay out, the app answer what the scene asks of it (the pictures of cells
  // coming into view), and the first transitions finish.
  QElapsedTimer timer;
  timer.start();
  while (timer.elapsed() < 250) {
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    if (settle) settle();
    QThread::msleep(2);
  }
  QImage image = quickWindow->grabWindow();
  if (image.isNull()) {
    *error = "the window could not be drawn";
    return false;
  }
  if (!image.save(QString::fromStdString(path))) {
    *error = "the picture could not be saved";
    return false;
  }
  return true;
}

int runFlows(const std::vector<std::string>& args, const char* programName) {
  if (!flow::wantsScreenshots(args)) return flow::runFlowCommand(args, stdout, stderr);
  auto qt = offscreenApplication(programName);
  QmlScreenRenderer renderer;
  return flow::runFlowCommand(args, stdout, stderr, &renderer);
}

int runScreenshotFlow(const std::string& dir, const char* programName) {
  auto qt = offscreenApplication(programName);
  QFile file(":/flows/screenshots.yaml");
  if (!file.open(QIODevice::ReadOnly)) {
    std::fprintf(stderr, "solvanta: the screenshot flow is missing from the program\n");
    return 3;
  }
  const std::string text = file.readAll().toStdString();
  flow::Flow flow;
  try {
    flow = flow::parseFlow("flows/screenshots.yaml", text);
  } catch (const flow::FlowSyntaxError& e) {
    std::fprintf(stderr, "%s\n", e.located().c_str());
    return 2;
  }
  QDir().mkpath(QString::fromStdString(dir));
  QmlScreenRenderer renderer;
  flow::RunOptions options;
  options.screenshotDir = dir;
  options.renderer = &renderer;
  options.onStep = [](const flow::StepReport& r) {
    if (r.command == "takeScreenshot" && r.ok) std::printf("%s\n", r.message.c_str());
  };
  flow::FlowResult result = flow::runFlow(flow, options);
  if (result.passed) return 0;
  const flow::StepReport& f = result.failure;
  std::fprintf(stderr, "%s:%d: %s: %s\n", f.file.c_str(), f.line, f.command.c_str(), f.message.c_str());
  return 1;
}

}  // namespace gui
