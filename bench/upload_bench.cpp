// The measurement client's upload path end to end: 100,000 events (three short parameters
// each) logged, bundled and uploaded over the loopback to the local collector, with the
// default upload limits (1000 events a bundle, 64 KiB a batch, 100 bundles a pass); the daily
// and stored-event limits are raised so that no event is dropped. Reports events per second
// end to end, bytes on the wire per event (gzip, as the collector counted them) and the time
// of each stage. The reference in the same run posts the same events, already encoded as
// batches of one 1000-event bundle, through the same network client with no database.
//
//   cmake --preset release && cmake --build --preset release --target upload_bench
//   build/release/bench/upload_bench
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "collector/Collector.h"
#include "collector/UploadClient.h"
#include "desktop/network/CurlNetwork.h"
#include "desktop/threaded/ThreadedEnvironment.h"
#include "kit/Singleton.h"
#include "sim/Platform.h"

namespace {

constexpr std::int64_t kEvents = 100000;

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

bench::ScratchFolder& scratch() {
  static bench::ScratchFolder folder("apm_upload_bench");
  return folder;
}

APMMeasurementSettings benchSettings() {
  APMMeasurementSettings settings;
  settings.maxEventsPerDay = 1000000;
  settings.maxPublicEventsPerDay = 1000000;
  settings.maxEventsStored = 1000000;
  return settings;
}

void BM_UploadEndToEnd(benchmark::State& state) {
  for (auto _ : state) {
    desktop::ThreadedEnvironment env;
    kit::resetSingletonsForTesting();
    sim::Platform platform;
    collector::Collector server({});
    std::string error;
    if (!server.start(&error)) {
      state.SkipWithError(error.c_str());
      return;
    }
    collector::UploadClient client({scratch().fresh("end_to_end"), server.host(), benchSettings()});

    auto start = Clock::now();
    client.logMany(kEvents);
    double logSeconds = since(start);
    auto bundleStart = Clock::now();
    client.measurement().scheduler().dispatchSyncOnWorkerQueueBlockID("bench:bundle", [&] {
      while (client.measurement().bundleRawEvents()) {
      }
    });
    double bundleSeconds = since(bundleStart);
    auto uploadStart = Clock::now();
    bool drained = client.drain(600);
    double uploadSeconds = since(uploadStart);
    double total = since(start);
    state.SetIterationTime(total);
    collector::CollectorStats stats = server.stats();
    std::int64_t arrived = 0;
    for (const std::string& line : server.lines()) arrived += line.find("\"bench_event\"") != std::string::npos;
    if (!drained || arrived < kEvents) {
      state.SkipWithError(("events missing at the collector: " + std::to_string(arrived)).c_str());
      return;
    }
    state.counters["events_per_s"] = kEvents / total;
    state.counters["wire_bytes_per_event"] = static_cast<double>(stats.wireBytes) / stats.events;
    state.counters["log_s"] = logSeconds;
    state.counters["bundle_s"] = bundleSeconds;
    state.counters["upload_s"] = uploadSeconds;
    state.counters["posts"] = static_cast<double>(stats.uploads);
  }
}

// The same events as batches of one bundle of 1000, encoded beforehand, posted one after the
// other through the network client.
void BM_ReferencePost(benchmark::State& state) {
  for (auto _ : state) {
    desktop::ThreadedEnvironment env;
    collector::Collector server({});
    std::string error;
    if (!server.start(&error)) {
      state.SkipWithError(error.c_str());
      return;
    }
    std::vector<kit::Data> payloads;
    for (std::int64_t first = 0; first < kEvents; first += 1000) {
      APMPBMessage<APMPBMeasurementBatch> batch;
      APMPBMeasurementBundle& b = APMPBAppend(&batch->bundles, &batch->bundles_count);
      APMPBSetString(&b.app_id, "com.stuvop.solvanta");
      for (std::int64_t i = first; i < first + 1000; ++i) {
        APMPBEvent& e = APMPBAppend(&b.events, &b.events_count);
        APMPBSetString(&e.name, "bench_event");
        e.has_timestamp_millis = true;
        e.timestamp_millis = 1735689600000 + i;
        APMPBEventParam& p1 = APMPBAppend(&e.params, &e.params_count);
        APMPBSetString(&p1.name, "item");
        APMPBSetString(&p1.string_value, "sku-" + std::to_string(i % 97));
        APMPBEventParam& p2 = APMPBAppend(&e.params, &e.params_count);
        APMPBSetString(&p2.name, "level");
        p2.has_int_value = true;
        p2.int_value = i % 10;
        APMPBEventParam& p3 = APMPBAppend(&e.params, &e.params_count);
        APMPBSetString(&p3.name, "mode");
        APMPBSetString(&p3.string_value, i % 2 ? "fast" : "slow");
      }
      payloads.push_back(*batch.protoBuffer());
    }
    auto queue = env.makeSerialQueue("bench.reference");
    desktop::CurlNetwork network(server.host(), nullptr);
    auto start = Clock::now();
    for (const kit::Data& payload : payloads) {
      std::mutex mu;
      std::condition_variable done;
      bool finished = false;
      network.postURL(server.host() + "/a", payload, *queue, false,
                      [&](const platform::NetworkResponse&, const std::optional<platform::Error>&) {
                        std::lock_guard lock(mu);
                        finished = true;
                        done.notify_all();
                      });
      std::unique_lock lock(mu);
      done.wait(lock, [&] { return finished; });
    }
    double total = since(start);
    state.SetIterationTime(total);
    collector::CollectorStats stats = server.stats();
    state.counters["events_per_s"] = kEvents / total;
    state.counters["wire_bytes_per_event"] = static_cast<double>(stats.wireBytes) / stats.events;
  }
}

BENCHMARK(BM_UploadEndToEnd)->Iterations(1)->Repetitions(3)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReferencePost)->Iterations(1)->Repetitions(3)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  bench::MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\nfigure: upload_events_per_s %.0f 1/s\n", reporter.value("BM_UploadEndToEnd", "events_per_s"));
  std::printf("figure: wire_bytes_per_event %.1f B\n", reporter.value("BM_UploadEndToEnd", "wire_bytes_per_event"));
  std::printf("figure: upload_stage_log_s %.3f s\n", reporter.value("BM_UploadEndToEnd", "log_s"));
  std::printf("figure: upload_stage_bundle_s %.3f s\n", reporter.value("BM_UploadEndToEnd", "bundle_s"));
  std::printf("figure: upload_stage_post_s %.3f s\n", reporter.value("BM_UploadEndToEnd", "upload_s"));
  std::printf("figure: reference_post_events_per_s %.0f 1/s\n", reporter.value("BM_ReferencePost", "events_per_s"));
  std::printf("figure: reference_wire_bytes_per_event %.1f B\n",
              reporter.value("BM_ReferencePost", "wire_bytes_per_event"));
  benchmark::Shutdown();
  return 0;
}
