// startScan(1) to the finished event on simulated libraries of photos taken in bursts,
// including the main-queue work the scan posts (progress labels and section lists, as the
// scan screen would queue them).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <map>
#include <memory>
#include <string>

#include "kit/Views.h"
#include "media/PhotosCallBack.h"
#include "media/Scan.h"
#include "sim/World.h"

namespace {

// Hops to the main queue like the scan screen: a label per progress event, the list per
// section.
class ScreenLikeListener : public media::PhotosCallBackDelegate {
 public:
  void totalPhotosCount(std::int64_t n) override { total = n; }
  void photoScanProgress(std::int64_t i) override {
    kit::mainQueue().async([this, i] { label->setText(std::to_string(i) + "/" + std::to_string(total)); });
  }
  void photoSectionsChanged(const media::PhotoSections& s) override {
    kit::mainQueue().async([this, s] { sections = s; });
  }
  void photoScanFinished() override { finished = true; }
  void setSectionArray1(media::PhotoSections s) override { sections = std::move(s); }
  void reloadSections() override {}

  std::int64_t total = 0;
  bool finished = false;
  media::PhotoSections sections;
  std::shared_ptr<kit::Label> label = kit::make<kit::Label>();
};

// `count` photos in bursts of five, two seconds apart, bursts ten minutes apart.
std::vector<std::shared_ptr<const platform::Asset>> burstLibrary(int count) {
  std::vector<std::shared_ptr<const platform::Asset>> assets;
  assets.reserve(count);
  for (int i = 0; i < count; ++i) {
    double t = 1.6e9 + (i / 5) * 600.0 + (i % 5) * 2.0;
    assets.push_back(sim::photo(t, "p" + std::to_string(i)));
  }
  return assets;
}

// Bytes the heap hands out now, small blocks and mapped ones.
double heapInUse() {
  struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

// Bytes per photo that a finished scan keeps (records, sections, the slot's lists and the
// screen's copy), measured once per size outside the timed runs.
std::map<long, double> bytesPerPhoto;

void BM_PhotoScan(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  auto library = burstLibrary(count);
  std::size_t sections = 0;
  for (auto _ : state) {
    state.PauseTiming();
    {
      sim::World world;
      world.platform.photos().setStatus(platform::AuthorizationStatus::Authorized);
      world.platform.photos().setAssets(library);
      auto listener = std::make_shared<ScreenLikeListener>();
      media::PhotosCallBack::shared()->itemdelegates.store(listener);
      double before = heapInUse();
      state.ResumeTiming();
      media::startScan(1);
      world.env.runUntilIdle();
      state.PauseTiming();
      if (!bytesPerPhoto.count(count)) bytesPerPhoto[count] = (heapInUse() - before) / count;
      if (!listener->finished) state.SkipWithError("the scan did not finish");
      sections = listener->sections.size();
    }
    state.ResumeTiming();
  }
  state.counters["photos"] = count;
  state.counters["sections"] = static_cast<double>(sections);
  state.SetItemsProcessed(state.iterations() * count);
}

// Five repetitions per size, reported as their mean, median, spread and minimum: single runs
// of this memory-bound work swing widely on a shared machine.
BENCHMARK(BM_PhotoScan)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(1.0)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true)
    ->ComputeStatistics("min", [](const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); });

// A million photos: one run per repetition, as each takes about a second.
BENCHMARK(BM_PhotoScan)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true)
    ->ComputeStatistics("min", [](const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); });

// Prints as the console does and keeps the mean time of each size's repetitions.
class FigureReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "mean" || run.error_occurred) continue;
      // "BM_PhotoScan/100000" -> 100000
      std::string args = run.run_name.args;
      seconds[std::atol(args.c_str())] = run.real_accumulated_time / static_cast<double>(run.iterations);
    }
  }
  std::map<long, double> seconds;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  FigureReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  auto& s = reporter.seconds;
  if (s.count(100000)) std::printf("figure: scan_100k_s %.4f s\n", s[100000]);
  if (s.count(100000) && s.count(10000) && s[10000] > 0) {
    std::printf("figure: scan_100k_over_10k_ratio %.2f x\n", s[100000] / s[10000]);
  }
  if (s.count(1000000)) std::printf("figure: scan_1m_s %.4f s\n", s[1000000]);
  if (s.count(1000000) && s.count(100000) && s[100000] > 0) {
    std::printf("figure: scan_1m_over_100k_ratio %.2f x\n", s[1000000] / s[100000]);
  }
  if (bytesPerPhoto.count(1000000)) std::printf("figure: scan_bytes_per_photo %.0f B\n", bytesPerPhoto[1000000]);
  return 0;
}
