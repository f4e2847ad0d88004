// The window at the scale of a real library: the real app window, offscreen, on generated
// libraries of 1,000, 10,000 and 100,000 JPEGs of 1600x1200 taken in bursts of five (two
// seconds apart, bursts ten minutes apart). For each size, in a process of its own so that
// the memory figure is that size's alone:
//   - Duplicate Photos, then Find Duplicate Photos, tapped through the code a tap takes;
//   - results_s: from the scan's finished event to the first frame that shows result rows;
//   - longest_stall_ms: the longest the main thread kept a ping from another thread waiting,
//     from the Find tap until the results are on screen and the app is idle (a ping every
//     2 ms, so this is what a person's click would have waited at worst);
//   - scroll_fps: frames per second while the results scroll from top to bottom: ten stretches
//     spread evenly over the list, 60 frames each, 90 px per frame (a brisk flick), each frame
//     rendered before the next step;
//   - rss_mb: resident memory at the end;
//   - the reference: scan_s, the same scan's own time (Find tap to finished event), in the
//     same run, and the time to results as a fraction of it.
// SOLVANTA_BENCH_PLATFORM=xcb shows the window on the display instead (for instance under
// xvfb-run). Libraries are written once under build/release/bench-libraries (or $SOLVANTA_BENCH_LIBRARIES)
// and reused; the home (settings, metadata index, thumbnail cache) is fresh for every size,
// so every run is a first run.
//
//   cmake --build --preset release --target window_bench && build/release/bench/window_bench
//   build/release/bench/window_bench --sizes 1000,10000
#include <benchmark/benchmark.h>

#include <QBuffer>
#include <QElapsedTimer>
#include <QPainter>
#include <QGuiApplication>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTimer>

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "desktop/Platform.h"
#include "gui/GuiApp.h"
#include "kit/Controls.h"
#include "kit/Lists.h"
#include "kit/NavigationController.h"
#include "kit/Storyboard.h"
#include "media/PhotosCallBack.h"
#include "samplegen/SampleMedia.h"
#include "shell/MainStoryboard.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {


// ---- The libraries ----

std::string librariesRoot() {
  if (const char* dir = std::getenv("SOLVANTA_BENCH_LIBRARIES"); dir && *dir) return dir;
  return fs::path(BENCH_BINARY_DIR).parent_path().string() + "/bench-libraries";
}

std::string twoDigits(int v) { return (v < 10 ? "0" : "") + std::to_string(v); }

// "YYYY:MM:DD HH:MM:SS" of `seconds` after 2024-01-01 00:00:00 (a civil time, no zone).
std::string exifDate(long seconds) {
  static const int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  long days = seconds / 86400;
  long rest = seconds % 86400;
  int year = 2024, month = 0;
  while (true) {
    int inYear = (year % 4 == 0 && (year % 100 != 0 || year % 400 == 0)) ? 366 : 365;
    if (days < inYear) break;
    days -= inYear;
    ++year;
  }
  bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
  while (true) {
    int inMonth = kDays[month] - (month == 1 && !leap ? 1 : 0);
    if (days < inMonth) break;
    days -= inMonth;
    ++month;
  }
  return std::to_string(year) + ":" + twoDigits(month + 1) + ":" + twoDigits(static_cast<int>(days + 1)) + " " +
         twoDigits(static_cast<int>(rest / 3600)) + ":" + twoDigits(static_cast<int>(rest / 60 % 60)) + ":" +
         twoDigits(static_cast<int>(rest % 60));
}

// A 1600x1200 camera-like picture: soft gradients and shapes, about 60 KB as a JPEG, so that
// a library of 100,000 fits on a test machine's disk.
samplegen::Bytes picture(int seed) {
  QImage image(1600, 1200, QImage::Format_RGB32);
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  QLinearGradient sky(0, 0, 0, 1200);
  sky.setColorAt(0, QColor::fromHsv((seed * 45) % 360, 120, 230));
  sky.setColorAt(1, QColor::fromHsv((seed * 45 + 120) % 360, 160, 90));
  painter.fillRect(image.rect(), sky);
  for (int i = 0; i < 6; ++i) {
    QRadialGradient blob(200 + (seed * 131 + i * 257) % 1200, 150 + (seed * 71 + i * 193) % 900, 120 + i * 40);
    blob.setColorAt(0, QColor::fromHsv((seed * 30 + i * 60) % 360, 200, 250, 220));
    blob.setColorAt(1, QColor(0, 0, 0, 0));
    painter.fillRect(image.rect(), blob);
  }
  painter.end();
  QByteArray encoded;
  QBuffer buffer(&encoded);
  buffer.open(QIODevice::WriteOnly);
  if (!image.save(&buffer, "JPEG", 80)) return {};
  return samplegen::Bytes(encoded.begin(), encoded.end());
}

// A library of `count` photos (written once, then reused): eight pictures, each file one of
// them with its own Exif capture time patched into a copy of the encoded bytes.
std::string library(int count) {
  std::string dir = librariesRoot() + "/photos-" + std::to_string(count);
  std::string done = dir + "/.complete";
  if (fs::exists(done)) return dir;
  fs::remove_all(dir);
  fs::create_directories(dir);
  const std::string placeholder = "2024:01:01 00:00:00";
  std::vector<samplegen::Bytes> pictures;
  for (std::uint32_t seed = 1; seed <= 8; ++seed) {
    samplegen::ExifFields fields;
    fields.dateTimeOriginal = placeholder;
    pictures.push_back(samplegen::withExif(picture(static_cast<int>(seed)), fields));
    if (pictures.back().empty()) {
      std::fprintf(stderr, "window_bench: cannot encode a picture\n");
      std::exit(3);
    }
  }
  std::fprintf(stderr, "window_bench: writing %d photos to %s\n", count, dir.c_str());
  for (int i = 0; i < count; ++i) {
    samplegen::Bytes bytes = pictures[static_cast<std::size_t>(i) % pictures.size()];
    std::string date = exifDate((i / 5) * 600L + (i % 5) * 2L);
    // Every copy of the placeholder (the Exif block may hold the date more than once).
    for (auto it = bytes.begin();
         (it = std::search(it, bytes.end(), placeholder.begin(), placeholder.end())) != bytes.end();) {
      it = std::copy(date.begin(), date.end(), it);
    }
    std::string folder = dir + "/" + std::to_string(i / 1000);
    if (i % 1000 == 0) fs::create_directories(folder);
    if (!samplegen::writeFile(folder + "/IMG_" + std::to_string(i) + ".jpg", bytes)) {
      std::fprintf(stderr, "window_bench: cannot write into %s\n", folder.c_str());
      std::exit(3);
    }
  }
  std::ofstream(done) << count << "\n";
  return dir;
}

// ---- One size, in a child process ----

// Stands between the photo scan and the scan screen: notes the time of the finished event,
// forwards everything.
class FinishedClock : public media::PhotosCallBackDelegate {
 public:
  explicit FinishedClock(std::shared_ptr<media::PhotosCallBackDelegate> screen) : screen_(std::move(screen)) {}
  void totalPhotosCount(std::int64_t n) override { screen_->totalPhotosCount(n); }
  void photoScanProgress(std::int64_t i) override { screen_->photoScanProgress(i); }
  void photoSectionsChanged(const media::PhotoSections& s) override { screen_->photoSectionsChanged(s); }
  void photoScanFinished() override {
    finishedAt.store(Clock::now().time_since_epoch().count());
    screen_->photoScanFinished();
  }
  void setSectionArray1(media::PhotoSections s) override { screen_->setSectionArray1(std::move(s)); }
  void reloadSections() override { screen_->reloadSections(); }

  std::atomic<Clock::rep> finishedAt{0};

 private:
  std::shared_ptr<media::PhotosCallBackDelegate> screen_;
};

// Posts a ping to the main thread every 2 ms and keeps the longest wait for one.
class StallWatch {
 public:
  void start() {
    running_ = true;
    thread_ = std::thread([this] {
      while (running_) {
        auto sent = Clock::now();
        auto delivered = std::make_shared<std::atomic<bool>>(false);
        QMetaObject::invokeMethod(qApp, [delivered] { delivered->store(true); }, Qt::QueuedConnection);
        while (!delivered->load() && running_) std::this_thread::sleep_for(std::chrono::microseconds(200));
        double waited = std::chrono::duration<double, std::milli>(Clock::now() - sent).count();
        if (delivered->load() && waited > longestMs_) longestMs_ = waited;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
    });
  }
  double stop() {
    running_ = false;
    if (thread_.joinable()) thread_.join();
    return longestMs_;
  }

 private:
  std::atomic<bool> running_{false};
  std::atomic<double> longestMs_{0};
  std::thread thread_;
};

double residentMb() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::stod(line.substr(6)) / 1024.0;
  }
  return 0;
}

[[noreturn]] void failChild(const char* what) {
  std::fprintf(stderr, "window_bench: %s\n", what);
  std::fflush(stderr);
  std::_Exit(4);
}

// The item named `name` under `item`, searched through the visual tree.
QQuickItem* findItem(QQuickItem* item, const QString& name) {
  if (item->objectName() == name) return item;
  for (QQuickItem* child : item->childItems()) {
    if (QQuickItem* found = findItem(child, name)) return found;
  }
  return nullptr;
}

// Renders one frame of `window` and waits for it.
bool renderFrame(QQuickWindow* window) {
  bool swapped = false;
  auto connection = QObject::connect(window, &QQuickWindow::afterRendering, [&] { swapped = true; });
  window->update();
  QElapsedTimer timer;
  timer.start();
  while (!swapped && timer.elapsed() < 2000) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
  QObject::disconnect(connection);
  return swapped;
}

int runOne(int count, const char* program, const char* figuresPath) {
  std::string dir = library(count);
  char pattern[] = "/tmp/solvanta-window-bench-XXXXXX";
  const char* home = mkdtemp(pattern);
  if (!home) failChild("cannot make a scratch home");
  setenv("XDG_CONFIG_HOME", (std::string(home) + "/config").c_str(), 1);
  setenv("XDG_DATA_HOME", (std::string(home) + "/data").c_str(), 1);
  setenv("XDG_CACHE_HOME", (std::string(home) + "/cache").c_str(), 1);
  // Offscreen by default; SOLVANTA_BENCH_PLATFORM=xcb runs it in a real window (under Xvfb, say).
  const char* platformName = std::getenv("SOLVANTA_BENCH_PLATFORM");
  setenv("QT_QPA_PLATFORM", platformName && *platformName ? platformName : "offscreen", 1);
  if (!platformName || !*platformName) setenv("QT_QUICK_BACKEND", "software", 1);

  int argc = 1;
  char* argv[] = {const_cast<char*>(program), nullptr};
  QGuiApplication qt(argc, argv);
  kit::Screen::setMainBounds(kit::makeRect(0, 0, 390, 844));
  gui::GuiApp app;
  desktop::PlatformOptions options;
  options.libraryRoot = dir;
  options.houseAds.fillRate = 0;  // no ad over the results
  desktop::Platform platform(options);
  platform.permissions().set(desktop::PermissionKind::Photos, platform::AuthorizationStatus::Authorized);
  // Straight to home: the splash and the interlude are the start-up benchmark's.
  shell::registerMainStoryboard();
  if (!app.start(std::make_shared<kit::NavigationController>(
          kit::Storyboard::named("Main").instantiateViewControllerWithIdentifier("HomeVC")))) {
    failChild("the window did not load");
  }
  QQuickWindow* window = app.window();
  app.settle();

  auto nav = std::dynamic_pointer_cast<kit::NavigationController>(app.kitWindow()->rootViewController());
  auto homeScreen = nav->viewControllers().front();
  kit::tap(homeScreen->outlet<kit::Button>("photoButton"));
  auto screen = nav->topViewController();
  if (!app.waitUntil([&] { return !screen->outlet<kit::View>("findPhotoView").isHidden(); }, 30000)) {
    failChild("the find prompt did not come");
  }
  app.settle();
  auto slot = media::PhotosCallBack::shared();
  auto clock = std::make_shared<FinishedClock>(slot->itemdelegates.load());
  slot->itemdelegates.store(clock);

  auto& table = screen->outlet<kit::TableView>("tableView");
  auto& scanning = screen->outlet<kit::View>("scanningView");
  std::atomic<Clock::rep> resultsAt{0};
  QObject::connect(window, &QQuickWindow::afterRendering, [&] {
    if (clock->finishedAt.load() == 0 || resultsAt.load() != 0) return;
    if (!table.isHidden() && scanning.isHidden() && !table.visibleCells().empty()) {
      resultsAt.store(Clock::now().time_since_epoch().count());
    }
  });
  // Frames as a display would ask for them, about sixty a second.
  QTimer frames;
  QObject::connect(&frames, &QTimer::timeout, [window] { window->update(); });
  frames.start(16);

  StallWatch stalls;
  stalls.start();
  auto tappedAt = Clock::now();
  kit::tap(screen->outlet<kit::Button>("findBtn"));
  if (!app.waitUntil([&] { return resultsAt.load() != 0; }, 600000)) failChild("the results did not come");
  app.settle(60000);
  double longestStallMs = stalls.stop();
  frames.stop();

  auto finished = Clock::time_point(Clock::duration(clock->finishedAt.load()));
  auto shown = Clock::time_point(Clock::duration(resultsAt.load()));
  std::fprintf(stderr, "window_bench: %d photos: scan %.3f s, results %.3f s after it, idle after %.3f s\n", count,
               std::chrono::duration<double>(finished - tappedAt).count(),
               std::chrono::duration<double>(shown - finished).count(),
               std::chrono::duration<double>(Clock::now() - tappedAt).count());
  double scanS = std::chrono::duration<double>(finished - tappedAt).count();
  double resultsS = std::chrono::duration<double>(shown - finished).count();

  // Scrolling: ten stretches of sixty frames.
  auto* list = findItem(window->contentItem(), "resultsTable");
  if (!list) failChild("the results table is not in the window");
  const double contentHeight = list->property("contentHeight").toDouble();
  const double viewHeight = list->height();
  const double range = std::max(0.0, contentHeight - viewHeight);
  int rendered = 0;
  QElapsedTimer scrolling;
  scrolling.start();
  for (int stretch = 0; stretch < 10; ++stretch) {
    double y = range * stretch / 10.0;
    for (int frame = 0; frame < 60; ++frame, y += 90) {
      list->setProperty("contentY", std::min(y, range));
      if (renderFrame(window)) ++rendered;
    }
  }
  double fps = rendered / (scrolling.nsecsElapsed() / 1e9);

  // The app writes its console to the standard streams; the figures go to a file of their own.
  FILE* out = std::fopen(figuresPath, "w");
  if (!out) failChild("cannot write the figures");
  std::fprintf(out, "sections %d\n", table.numberOfItemsInSection(0));
  std::fprintf(out, "scan_s %.4f\nresults_s %.4f\nlongest_stall_ms %.1f\nscroll_fps %.1f\nrss_mb %.1f\n", scanS, resultsS,
              longestStallMs, fps, residentMb());
  std::fclose(out);
  app.close();
  platform.images().stopCachingImagesForAllAssets();
  std::error_code ignored;  // a thumbnail may still be on its way into the scratch home
  fs::remove_all(home, ignored);
  // The process ends here: the platform's queues may still hold decodes of the cache.
  std::_Exit(0);
}

// ---- The parent: one benchmark per size, each running a child ----

std::string selfPath;
std::map<std::string, double> lastFigures;

std::map<std::string, double> runChild(int count) {
  std::string figuresPath = librariesRoot() + "/figures-" + std::to_string(getpid()) + ".txt";
  pid_t pid = fork();
  if (pid == 0) {
    std::string size = std::to_string(count);
    execl(selfPath.c_str(), selfPath.c_str(), "--one", size.c_str(), figuresPath.c_str(), static_cast<char*>(nullptr));
    std::_Exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  std::map<std::string, double> figures;
  std::ifstream lines(figuresPath);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || !lines) return figures;
  std::string key;
  double value;
  while (lines >> key >> value) figures[key] = value;
  fs::remove(figuresPath);
  return figures;
}

std::string label(int count) { return count >= 1000 ? std::to_string(count / 1000) + "k" : std::to_string(count); }

std::vector<std::pair<std::string, std::map<std::string, double>>> results;

void BM_Window(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  std::map<std::string, double> figures;
  for (auto _ : state) {
    figures = runChild(count);
    if (figures.empty()) {
      state.SkipWithError("the window run failed (see its messages above)");
      return;
    }
    state.SetIterationTime(figures["results_s"]);
  }
  for (const auto& [k, v] : figures) state.counters[k] = v;
  results.emplace_back(label(count), figures);
}

}  // namespace

int main(int argc, char** argv) {
  selfPath = fs::canonical("/proc/self/exe").string();
  if (argc == 4 && std::strcmp(argv[1], "--one") == 0) return runOne(std::atoi(argv[2]), argv[0], argv[3]);

  std::vector<int> sizes = {1000, 10000, 100000};
  std::vector<char*> rest = {argv[0]};
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--sizes") == 0 && i + 1 < argc) {
      sizes.clear();
      std::stringstream list(argv[++i]);
      std::string item;
      while (std::getline(list, item, ',')) sizes.push_back(std::stoi(item));
    } else {
      rest.push_back(argv[i]);
    }
  }
  for (int count : sizes) library(count);  // written before any timing
  for (int count : sizes) {
    benchmark::RegisterBenchmark("BM_Window", BM_Window)
        ->Arg(count)
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
  }
  int restCount = static_cast<int>(rest.size());
  benchmark::Initialize(&restCount, rest.data());
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();

  // Reference: the scan's own time in the same run; the goals of the window beside it.
  for (const auto& [name, f] : results) {
    auto get = [&](const char* k) { return f.count(k) ? f.at(k) : NAN; };
    std::printf("figure: window_%s_results_s %.3f s\n", name.c_str(), get("results_s"));
    std::printf("figure: window_%s_longest_stall_ms %.1f ms\n", name.c_str(), get("longest_stall_ms"));
    std::printf("figure: window_%s_scroll_fps %.1f 1/s\n", name.c_str(), get("scroll_fps"));
    std::printf("figure: window_%s_rss_mb %.0f MB\n", name.c_str(), get("rss_mb"));
    std::printf("figure: window_%s_scan_s %.3f s\n", name.c_str(), get("scan_s"));
    std::printf("figure: window_%s_results_over_scan %.2f x\n", name.c_str(), get("results_s") / get("scan_s"));
  }
  std::map<std::string, double> byName;
  for (const auto& [name, f] : results) byName[name] = f.count("results_s") ? f.at("results_s") : NAN;
  if (byName.count("10k") && byName.count("100k")) {
    std::printf("figure: window_results_growth_10k_to_100k %.2f x\n", byName["100k"] / byName["10k"]);
  }
  return 0;
}
