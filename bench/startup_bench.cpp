// Start-up: from the program's start to the first rendered frame of the splash, with the real
// window offscreen (software rendering), in a fresh home each run (a first start), median of
// 10 runs. Each run is a process of its own, started by this program with --child; its clock
// starts just before the fork. The child also reports when it reached main, had its Qt
// application, had its platform, and had started the app (AppDelegate's launch, the splash's
// controller, the QML window loaded), so the phases' medians show what dominates.
//
//   cmake --build --preset release --target startup_bench && build/release/bench/startup_bench
#include <QGuiApplication>
#include <QQuickWindow>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "desktop/Platform.h"
#include "gui/GuiApp.h"
#include "kit/NavigationController.h"

namespace {

constexpr int kRuns = 10;
// main, Qt application, platform, app started, first frame.
constexpr int kMarks = 5;
const char* const kMarkNames[kMarks] = {"exec_to_main", "qt_application", "platform", "launch_and_qml",
                                        "first_frame"};

double nowMs() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) * 1000.0 + static_cast<double>(t.tv_nsec) / 1e6;
}

[[noreturn]] void failChild(const char* what) {
  std::fprintf(stderr, "startup_bench child: %s\n", what);
  std::_Exit(3);
}

int child(int fd) {
  double marks[kMarks] = {};
  marks[0] = nowMs();
  int argc = 1;
  char name[] = "startup_bench";
  char* argv[] = {name, nullptr};
  QGuiApplication qt(argc, argv);
  qt.setApplicationName("Solvanta");
  kit::Screen::setMainBounds(kit::makeRect(0, 0, 390, 844));
  gui::GuiApp app;
  marks[1] = nowMs();
  desktop::PlatformOptions options;
  options.libraryRoot = std::string(std::getenv("XDG_DATA_HOME")) + "/Pictures";
  options.permissionPrompt = [](desktop::PermissionKind) { return platform::AuthorizationStatus::Denied; };
  desktop::Platform platform(options);
  marks[2] = nowMs();
  bool started = app.start();
  marks[3] = nowMs();
  if (!started || !app.window()) failChild("the window did not load");
  QObject::connect(app.window(), &QQuickWindow::afterRendering, &qt, [&] {
    auto nav = std::dynamic_pointer_cast<kit::NavigationController>(app.kitWindow()->rootViewController());
    if (!nav || !nav->visibleViewController() || nav->visibleViewController()->storyboardIdentifier() != "SplashVC") {
      failChild("the first frame is not the splash");
    }
    marks[4] = nowMs();
    if (write(fd, marks, sizeof marks) != static_cast<ssize_t>(sizeof marks)) failChild("cannot report");
    std::_Exit(0);
  }, Qt::DirectConnection);
  app.window()->update();
  qt.exec();
  failChild("the event loop ended before a frame");
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--child") == 0) return child(std::atoi(argv[2]));

  setenv("QT_QPA_PLATFORM", "offscreen", 1);
  setenv("QT_QUICK_BACKEND", "software", 1);
  std::vector<std::vector<double>> phases(kMarks);
  std::vector<double> totals;
  for (int run = 0; run < kRuns; ++run) {
    char tmpl[] = "/tmp/solvanta-startup-XXXXXX";
    if (!mkdtemp(tmpl)) return 2;
    std::string home = tmpl;
    setenv("XDG_CONFIG_HOME", (home + "/config").c_str(), 1);
    setenv("XDG_DATA_HOME", (home + "/data").c_str(), 1);
    setenv("XDG_CACHE_HOME", (home + "/cache").c_str(), 1);
    std::filesystem::create_directories(home + "/data/Pictures");
    int fds[2];
    if (pipe(fds) != 0) return 2;
    double start = nowMs();
    pid_t pid = fork();
    if (pid == 0) {
      close(fds[0]);
      std::string fd = std::to_string(fds[1]);
      execl("/proc/self/exe", argv[0], "--child", fd.c_str(), static_cast<char*>(nullptr));
      std::_Exit(127);
    }
    close(fds[1]);
    double marks[kMarks] = {};
    ssize_t got = read(fds[0], marks, sizeof marks);
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    std::filesystem::remove_all(home);
    if (got != static_cast<ssize_t>(sizeof marks)) {
      std::fprintf(stderr, "startup_bench: run %d reported nothing (status %d)\n", run + 1, status);
      return 1;
    }
    double previous = start;
    for (int i = 0; i < kMarks; ++i) {
      phases[i].push_back(marks[i] - previous);
      previous = marks[i];
    }
    totals.push_back(marks[kMarks - 1] - start);
    std::printf("run %2d: %.1f ms\n", run + 1, totals.back());
  }
  std::printf("\nmedian of %d runs, by phase:\n", kRuns);
  for (int i = 0; i < kMarks; ++i) std::printf("  %-18s %7.1f ms\n", kMarkNames[i], median(phases[i]));
  std::printf("\nfigure: startup_ms %.0f ms\n", median(totals));
  return 0;
}
