// The gallery import of the hidden files on the real desktop services: photos of 4000 by
// 3000 pixels picked in the library grid and imported, each as a 100 by 100 still written and
// flushed into the hidden folder, against vipsthumbnail making 100 by 100 thumbnails of the
// same files. And the import grid scrolled through a library of 10,000 photos: how many
// images its cells ask for.
//
//   cmake --build --preset release --target import_bench && build/release/bench/import_bench
//
// SOLVANTA_BENCH_PHOTOS sets the number of photos (default 1000). The photos are copies of one
// generated JPEG (each its own file), written once into a temporary folder that is removed at
// the end; the page cache is warm for every contender alike.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "BenchSupport.h"
#include "SecretSpaceWindow.h"
#include "desktop/Platform.h"
#include "kit/AlertController.h"
#include "samplegen/SampleMedia.h"
#include "sim/Environment.h"
#include "sim/World.h"
#include "vault/SecretDataViewController.h"
#include "vault/SecretFilesVC.h"

namespace {

using Clock = std::chrono::steady_clock;

bench::ScratchFolder& scratch() {
  static bench::ScratchFolder folder("import_bench");
  return folder;
}
std::string gLibrary;
int gPhotos = 0;
double gImport = 0, gVips = 0;
long gScrollRequests = 0, gScrollCells = 0;

void keepBest(double& best, double seconds) {
  if (best == 0 || seconds < best) best = seconds;
}

bool generate(int count) {
  gLibrary = scratch().fresh("library");
  auto jpeg = samplegen::encodeImage("JPEG", 4000, 3000, 7);
  if (jpeg.empty()) return false;
  for (int i = 0; i < count; ++i) {
    std::ofstream out(gLibrary + "/IMG_" + std::to_string(10000 + i) + ".jpg", std::ios::binary);
    out.write(reinterpret_cast<const char*>(jpeg.data()), static_cast<std::streamsize>(jpeg.size()));
    if (!out) return false;
  }
  gPhotos = count;
  return true;
}

// One import of every photo through the screens, on a fresh home each time (no cached
// thumbnails, an empty store). Returns the seconds of the import alone.
double importOnce() {
  std::string home = scratch().fresh("home");
  desktop::AppFolders folders{home, home + "/.config", home + "/.local/share", home + "/.cache"};
  sim::Environment env;
  desktop::PlatformOptions options;
  options.libraryRoot = gLibrary;
  options.folders = folders;
  options.permissionPrompt = [](desktop::PermissionKind) { return platform::AuthorizationStatus::Authorized; };
  options.confirmPrompt = [](const std::string&) { return false; };
  desktop::Platform platform(options);
  platform::photoLibrary().requestAuthorization([](platform::AuthorizationStatus) {});
  env.runUntilIdle();

  bench::SecretSpaceWindow hub;
  auto list = hub.board.instantiate<vault::SecretFilesVC>("SecretFilesVC");
  hub.nav->pushViewController(list, false);
  env.runUntilIdle();
  list->openGallery();
  env.runUntilIdle();
  auto picker = std::dynamic_pointer_cast<vault::SecretDataViewController>(hub.nav->viewControllers().back());
  if (!picker || static_cast<int>(picker->tempArray.size()) != gPhotos) return -1;
  picker->selectUnselectAll();
  env.runUntilIdle();
  auto start = Clock::now();
  picker->addNewPressed();
  double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  if (auto alert = std::dynamic_pointer_cast<kit::AlertController>(hub.nav->presentedViewController()))
    alert->chooseActionTitled("Cancel");
  env.runUntilIdle();
  struct stat st {};
  std::string store = folders.documents() + "/Cleaner";
  auto names = platform::fileManager().contentsOfDirectoryAtPath(store, nullptr);
  if (!names || static_cast<int>(names->size()) != gPhotos || ::stat(store.c_str(), &st) != 0) return -1;
  return seconds;
}

void BM_Import(benchmark::State& state) {
  for (auto _ : state) {
    double seconds = importOnce();
    if (seconds < 0) {
      state.SkipWithError("the import did not store one still per photo");
      return;
    }
    keepBest(gImport, seconds);
  }
  state.counters["photos/s"] = benchmark::Counter(gPhotos, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_Vipsthumbnail(benchmark::State& state) {
  if (std::system("command -v vipsthumbnail >/dev/null 2>&1") != 0) {
    state.SkipWithError("vipsthumbnail is not installed (Debian package libvips-tools)");
    return;
  }
  for (auto _ : state) {
    std::string out = scratch().fresh("vips");
    std::string command = "cd '" + gLibrary + "' && ls | xargs vipsthumbnail -s 100x100 -o '" + out + "/%s.jpg'";
    auto start = Clock::now();
    int rc = std::system(command.c_str());
    keepBest(gVips, std::chrono::duration<double>(Clock::now() - start).count());
    if (rc != 0) state.SkipWithError("vipsthumbnail failed");
  }
  state.counters["photos/s"] = benchmark::Counter(gPhotos, benchmark::Counter::kIsIterationInvariantRate);
}

// The picker's grid over 10,000 simulated photos, its visible window moved down one screen
// at a time from the top to the bottom: the image requests its cells make.
void BM_GridScroll(benchmark::State& state) {
  for (auto _ : state) {
    sim::World world;
    world.env.setEagerMain(true);
    std::vector<std::shared_ptr<const platform::Asset>> assets;
    for (int i = 0; i < 10000; ++i) assets.push_back(sim::photo(1000.0 + i, "p" + std::to_string(i)));
    world.platform.photos().setAssets(std::move(assets));
    world.platform.photos().setStatus(platform::AuthorizationStatus::Authorized);
    bench::SecretSpaceWindow hub;
    auto picker = hub.board.instantiate<vault::SecretDataViewController>("SecretDataViewController");
    hub.nav->pushViewController(picker, false);
    world.env.runUntilIdle();
    auto& grid = *picker->galleryCollectionView;
    const int window = 15;  // five lines of three, as the window shows
    int before = world.platform.images().requestCount();
    long cellsBefore = grid.cellRequests();
    for (int first = 0; first < 10000; first += window) {
      grid.setVisibleRange(first, window);
      grid.layoutIfNeeded();
    }
    gScrollRequests = world.platform.images().requestCount() - before;
    gScrollCells = grid.cellRequests() - cellsBefore;
  }
}

BENCHMARK(BM_Import)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();
BENCHMARK(BM_Vipsthumbnail)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();
BENCHMARK(BM_GridScroll)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  const char* env = std::getenv("SOLVANTA_BENCH_PHOTOS");
  int count = env ? std::atoi(env) : 1000;
  if (count <= 0) count = 1000;
  std::fprintf(stderr, "Writing %d photos of 4000x3000...\n", count);
  if (!generate(count)) {
    std::fprintf(stderr, "import_bench: cannot write the photos\n");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();

  std::printf("\nSummary (%d photos of 4000x3000, best of each):\n", gPhotos);
  if (gImport > 0) std::printf("  import into the store:  %8.3f s  %7.1f photos/s\n", gImport, gPhotos / gImport);
  if (gVips > 0) std::printf("  vipsthumbnail 100x100:  %8.3f s  %7.1f photos/s\n", gVips, gPhotos / gVips);
  if (gImport > 0 && gVips > 0) {
    double ratio = gVips / gImport;
    std::printf("  import vs vipsthumbnail: %.2fx (goal: at least 1x) %s\n", ratio, ratio >= 1 ? "met" : "NOT MET");
  }
  std::printf("  grid scroll over 10,000 photos: %ld cells asked, %ld image requests\n", gScrollCells, gScrollRequests);
  if (gImport > 0) std::printf("figure: import_photos_per_s %.1f 1/s\n", gPhotos / gImport);
  if (gVips > 0) std::printf("figure: vipsthumbnail_photos_per_s %.1f 1/s\n", gPhotos / gVips);
  if (gImport > 0 && gVips > 0) std::printf("figure: import_vs_vipsthumbnail %.2f x\n", gVips / gImport);
  std::printf("figure: grid_scroll_image_requests %ld 1\n", gScrollRequests);
  return 0;
}
