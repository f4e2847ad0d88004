// The photo library's fetch on generated photos: the first fetch (empty index: every file is
// read) and a later one (index present: no file is read), against the reference metadata tool
// reading the same capture times from the same folder.
//
//   cmake --build --preset release --target library_bench && build/release/bench/library_bench
//
// SOLVANTA_BENCH_PHOTOS sets the number of photos (default 10000). The photos are small JPEG
// files with Exif, written once into a temporary folder that is removed at the end; the page
// cache is warm for every contender alike.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "desktop/system/AppFolders.h"
#include "desktop/library/FolderPhotoLibrary.h"
#include "samplegen/SampleMedia.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Setup {
  std::string dir;
  int photos = 0;
  std::shared_ptr<desktop::PermissionStore> permissions;
};

Setup& setup() {
  static Setup s;
  return s;
}

// Best times in seconds, for the summary.
double gCold = 0, gWarmFresh = 0, gWarmSame = 0, gTool = 0;

void keepBest(double& best, double seconds) {
  if (best == 0 || seconds < best) best = seconds;
}

std::string indexPath() { return setup().dir + "/index.sqlite"; }
std::string libraryRoot() { return setup().dir + "/photos"; }

std::shared_ptr<desktop::FolderPhotoLibrary> makeLibrary() {
  desktop::FolderPhotoLibraryOptions options;
  options.root = libraryRoot();
  options.indexPath = indexPath();
  options.permissions = setup().permissions;
  return std::make_shared<desktop::FolderPhotoLibrary>(std::move(options));
}

int fetchAll(desktop::FolderPhotoLibrary& library) {
  platform::FetchOptions options;
  options.setSortDescriptors({{"creationDate", true}});
  return library.fetchAssetsWithMediaType(platform::MediaType::Image, &options).count();
}

void removeIndex() {
  for (const char* suffix : {"", "-wal", "-shm"}) std::remove((indexPath() + suffix).c_str());
}

bool generate(int count) {
  char pattern[] = "/tmp/solvanta-bench-XXXXXX";
  if (!::mkdtemp(pattern)) return false;
  setup().dir = pattern;
  setup().photos = count;
  setup().permissions =
      std::make_shared<desktop::PermissionStore>(setup().dir + "/permissions.json", nullptr);
  setup().permissions->set(desktop::PermissionKind::Photos,
                           platform::AuthorizationStatus::Authorized);
  // One template with Exif; each copy gets its own capture time in place (same length).
  const std::string stamp = "2023:06:10 09:15:00";
  samplegen::Bytes base = samplegen::withExif(samplegen::encodeImage("JPEG", 64, 48, 1), {stamp});
  std::vector<std::size_t> at;
  for (std::size_t i = 0; i + stamp.size() <= base.size(); ++i) {
    if (std::equal(stamp.begin(), stamp.end(), base.begin() + static_cast<long>(i)))
      at.push_back(i);
  }
  if (base.empty() || at.empty()) return false;
  for (int i = 0; i < count; ++i) {
    if (i % 100 == 0) {
      std::string error;
      if (!desktop::makeDirectories(libraryRoot() + "/" + std::to_string(i / 100), 0755, &error))
        return false;
    }
    int second = i * 3;  // bursts of photos 3 s apart, a new hour every 1200 photos
    char text[32];
    std::snprintf(text, sizeof text, "2023:06:%02d %02d:%02d:%02d", 1 + second / 86400,
                  second / 3600 % 24, second / 60 % 60, second % 60);
    samplegen::Bytes bytes = base;
    for (std::size_t p : at)
      std::copy(text, text + stamp.size(), bytes.begin() + static_cast<long>(p));
    std::string path =
        libraryRoot() + "/" + std::to_string(i / 100) + "/IMG_" + std::to_string(i) + ".jpg";
    if (!samplegen::writeFile(path, bytes)) return false;
  }
  return true;
}

// Times `fetch` (which returns the number of photos it found) once per iteration, with
// `prepare` run untimed before each, and keeps the best time in `best`.
void measure(benchmark::State& state, double& best, const std::function<int()>& fetch,
             const std::function<void()>& prepare = nullptr) {
  for (auto _ : state) {
    if (prepare) {
      state.PauseTiming();
      prepare();
      state.ResumeTiming();
    }
    auto start = Clock::now();
    int n = fetch();
    keepBest(best, std::chrono::duration<double>(Clock::now() - start).count());
    if (n != setup().photos) state.SkipWithError("fetch found a different number of photos");
  }
  state.counters["files/s"] =
      benchmark::Counter(setup().photos, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_FirstFetchEmptyIndex(benchmark::State& state) {
  measure(
      state, gCold, [] { return fetchAll(*makeLibrary()); }, removeIndex);
}

void BM_LaterFetchNewProcess(benchmark::State& state) {
  fetchAll(*makeLibrary());  // the index is complete
  // A new library object per fetch, as a new run makes: the index comes from its file.
  measure(state, gWarmFresh, [] { return fetchAll(*makeLibrary()); });
}

void BM_LaterFetchSameLibrary(benchmark::State& state) {
  auto library = makeLibrary();
  fetchAll(*library);
  measure(state, gWarmSame, [&] { return fetchAll(*library); });
}

void BM_ReferenceTool(benchmark::State& state) {
  if (std::system("command -v exiftool >/dev/null 2>&1") != 0) {
    state.SkipWithError("exiftool is not installed (Debian package libimage-exiftool-perl)");
    return;
  }
  std::string command =
      "exiftool -fast2 -r -DateTimeOriginal '" + libraryRoot() + "' >/dev/null 2>&1";
  for (auto _ : state) {
    auto start = Clock::now();
    int rc = std::system(command.c_str());
    keepBest(gTool, std::chrono::duration<double>(Clock::now() - start).count());
    if (rc != 0) state.SkipWithError("exiftool failed");
  }
  state.counters["files/s"] =
      benchmark::Counter(setup().photos, benchmark::Counter::kIsIterationInvariantRate);
}

BENCHMARK(BM_FirstFetchEmptyIndex)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_LaterFetchNewProcess)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(BM_LaterFetchSameLibrary)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(BM_ReferenceTool)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  const char* env = std::getenv("SOLVANTA_BENCH_PHOTOS");
  int count = env ? std::atoi(env) : 10000;
  if (count <= 0) count = 10000;
  std::fprintf(stderr, "Writing %d photos...\n", count);
  if (!generate(count)) {
    std::fprintf(stderr, "library_bench: cannot write the photos\n");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();

  int n = setup().photos;
  std::printf("\nSummary (%d photos, best of each):\n", n);
  if (gCold > 0)
    std::printf("  first fetch, empty index:  %8.3f s  %9.0f files/s\n", gCold, n / gCold);
  if (gWarmFresh > 0)
    std::printf("  later fetch, new run:      %8.3f s  %9.0f files/s\n", gWarmFresh,
                n / gWarmFresh);
  if (gWarmSame > 0)
    std::printf("  later fetch, same library: %8.3f s  %9.0f files/s\n", gWarmSame, n / gWarmSame);
  if (gTool > 0)
    std::printf("  exiftool -fast2 -r:        %8.3f s  %9.0f files/s\n", gTool, n / gTool);
  if (gCold > 0 && gTool > 0) {
    double ratio = gTool / gCold;
    std::printf("  first fetch vs exiftool: %.1fx faster (goal: at least 10x) %s\n", ratio,
                ratio >= 10 ? "met" : "NOT MET");
  }
  if (gWarmFresh > 0) {
    std::printf("  later fetch of unchanged files: %.3f s (goal: under 0.3 s for 10,000) %s\n",
                gWarmFresh, gWarmFresh * 10000.0 / n < 0.3 ? "met" : "NOT MET");
  }
  if (gCold > 0) std::printf("figure: first_fetch_files_per_s %.0f 1/s\n", n / gCold);
  if (gTool > 0) std::printf("figure: exiftool_files_per_s %.0f 1/s\n", n / gTool);
  if (gWarmFresh > 0) std::printf("figure: later_fetch_10k_s %.3f s\n", gWarmFresh * 10000.0 / n);
  std::string cleanup = "rm -rf '" + setup().dir + "'";
  return std::system(cleanup.c_str()) == 0 ? 0 : 1;
}
