// The measurement client's write path end to end: events per second from logEventWithName
// (three parameters) to a committed raw_events row, through the entry points' queues, the
// validation and the worker queue on real threads; plain SQLite writing the same rows with
// the same pragmas in the same run; and the time to bundle 10,000 raw events. Medians of
// the repetitions.
//
//   cmake --preset release && cmake --build --preset release --target events_bench
//   build/release/bench/events_bench
//
// The daily limits are raised to their largest allowed values so that no event is dropped.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "PlainRawEvents.h"
#include "desktop/threaded/ThreadedEnvironment.h"
#include "kit/Singleton.h"
#include "measurement/events/APMAnalytics.h"
#include "measurement/events/APMMeasurement.h"
#include "sim/Platform.h"

namespace {

constexpr int kBatch = 2000;

bench::ScratchFolder& scratch() {
  static bench::ScratchFolder folder("apm_events_bench");
  return folder;
}

APMMeasurementSettings benchSettings() {
  APMMeasurementSettings settings;
  settings.maxEventsPerDay = 1000000;
  settings.maxPublicEventsPerDay = 1000000;
  return settings;
}

// A client on real threads with its database in `folder`, started and connected to the
// entry points.
std::shared_ptr<APMMeasurement> startClient(const std::string& folder) {
  APMMeasurementOptions options;
  options.databasePath = folder + "/measurement.sql";
  options.settings = benchSettings();
  auto m = std::make_shared<APMMeasurement>(options);
  m->scheduler().dispatchSyncOnWorkerQueueBlockID("bench:start",
                                                  [&] { m->startMeasurementOnWorkerQueue(); });
  APMAnalytics::unsuspendOperationQueue(m);
  return m;
}

void BM_LogEventEndToEnd(benchmark::State& state) {
  desktop::ThreadedEnvironment env;
  kit::resetSingletonsForTesting();
  sim::Platform platform;
  auto m = startClient(scratch().fresh("end_to_end"));
  std::mutex mu;
  std::condition_variable seen;
  std::int64_t markersSeen = 0;
  APMAnalytics::addLogEventListener(
      [&](const std::string&, const std::string& name, const APMParameters&, double) {
        if (name != "bench_marker") return;
        std::lock_guard lock(mu);
        ++markersSeen;
        seen.notify_all();
      });
  std::int64_t markers = 0;
  for (auto _ : state) {
    for (int i = 0; i < kBatch; ++i) {
      APMAnalytics::logEventWithName(
          "scan_finished",
          {{"media_type", "photos"}, {"sections", static_cast<long long>(i)}, {"seconds", 1.5}});
    }
    // The marker follows every event of the batch through the same queues; once the worker
    // has seen it, one more turn of the worker commits it, and everything before it.
    APMAnalytics::logEventWithName("bench_marker", {});
    ++markers;
    {
      std::unique_lock lock(mu);
      seen.wait(lock, [&] { return markersSeen >= markers; });
    }
    m->scheduler().dispatchSyncOnWorkerQueueBlockID("bench:barrier", [] {});
  }
  state.SetItemsProcessed(state.iterations() * (kBatch + 1));
  APMAnalytics::resetForTesting();
}

void BM_PlainSqlite(benchmark::State& state) {
  bench::PlainRawEvents plain(scratch().fresh("plain") + "/plain.sql");
  // The same row as the client writes: the event without its name, and a header.
  auto event = APMEvent::create("app", "scan_finished", 1735689600, 0,
                                {{"media_type", APMValue::fromString("photos")},
                                 {"sections", APMValue::fromInt64(7)},
                                 {"seconds", APMValue::fromDouble(1.5)}})
                   ->protoEvent();
  APMPBClearString(&event->name);
  kit::Data data = *event.protoBuffer();
  kit::Data metadata(400, 7);
  double timestamp = 1735689600.0;
  for (auto _ : state) {
    for (int i = 0; i < kBatch + 1; ++i) {
      timestamp += 0.001;
      if (!plain.write("scan_finished", timestamp, 42, metadata, data)) {
        state.SkipWithError(plain.error());
        return;
      }
    }
  }
  state.SetItemsProcessed(state.iterations() * (kBatch + 1));
}

void BM_Bundle10k(benchmark::State& state) {
  desktop::ThreadedEnvironment env;
  kit::resetSingletonsForTesting();
  sim::Platform platform;
  for (auto _ : state) {
    state.PauseTiming();
    auto m = startClient(scratch().fresh("bundle"));
    m->scheduler().dispatchSyncOnWorkerQueueBlockID("bench:fill", [&] {
      for (int i = 0; i < 10000; ++i) {
        auto e = APMEvent::create("app", "scan_finished", 1735689600 + i * 0.001, 0,
                                  {{"sections", APMValue::fromInt64(i)}});
        m->writeEventOnWorkerQueue(*e);
      }
    });
    state.ResumeTiming();
    int made = 0;
    m->scheduler().dispatchSyncOnWorkerQueueBlockID("bench:bundle", [&] {
      while (m->bundleRawEvents()) ++made;
    });
    if (made < 10) state.SkipWithError("fewer bundles than expected");
    APMAnalytics::resetForTesting();
  }
}

BENCHMARK(BM_LogEventEndToEnd)
    ->MinTime(1.0)
    ->Repetitions(3)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainSqlite)->MinTime(1.0)->Repetitions(3)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Bundle10k)->Iterations(1)->Repetitions(3)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  bench::MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  double endToEnd = reporter.value("BM_LogEventEndToEnd", "items_per_second");
  double plain = reporter.value("BM_PlainSqlite", "items_per_second");
  std::printf("\nfigure: events_per_s %.0f 1/s\n", endToEnd);
  std::printf("figure: plain_sqlite_events_per_s %.0f 1/s\n", plain);
  std::printf("figure: bundle_10k_s %.3f s\n", reporter.value("BM_Bundle10k", "seconds"));
  if (endToEnd > 0) std::printf("ratio plain / end to end: %.2f\n", plain / endToEnd);
  benchmark::Shutdown();
  return 0;
}
