// Audiences during bundling: bundles of 1,000 events (ten names, three parameters each)
// bundled with 50 audiences of 10 event filters each stored, against the same bundles with no
// audiences, in the same run. Every event meets one filter of every audience (50 filters),
// each with a range and a string parameter filter; most come out false and so are evaluated
// again by every later event. Medians of the repetitions.
//
//   cmake --preset release && cmake --build --preset release --target audience_bench
//   build/release/bench/audience_bench
//
// Figures: events per second through the audience evaluation alone (the difference of the two
// bundling times), the cost per event per filter, and the ratio of the audience work to the
// bundling without it.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "desktop/threaded/ThreadedEnvironment.h"
#include "kit/Singleton.h"
#include "measurement/APMMonitor.h"
#include "measurement/audiences/APMAudience.h"
#include "measurement/events/APMMeasurement.h"
#include "sim/Platform.h"

namespace {

constexpr int kEvents = 1000;
constexpr int kAudiences = 50;
constexpr int kFiltersPerAudience = 10;
constexpr int kNames = 10;

bench::ScratchFolder& scratch() {
  static bench::ScratchFolder folder("apm_audience_bench");
  return folder;
}

std::string eventName(int i) { return "bench_event_" + std::to_string(i % kNames); }

// 50 audiences; filter f of each audience is on name f, with "value" between bounds that
// depend on the audience and "currency" containing a letter.
std::vector<APMPBMessage<APMPBAudience>> audiences() {
  std::vector<APMPBMessage<APMPBAudience>> out;
  for (int a = 0; a < kAudiences; ++a) {
    APMPBMessage<APMPBAudience> audience;
    audience->has_audience_id = true;
    audience->audience_id = a + 1;
    for (int f = 0; f < kFiltersPerAudience; ++f) {
      auto& filter = APMPBAppend(&audience->event_filters, &audience->event_filters_count);
      filter.has_filter_id = true;
      filter.filter_id = f;
      APMPBSetString(&filter.event_name, eventName(f));
      auto& value = APMPBAppend(&filter.filters, &filter.filters_count);
      APMPBSetString(&value.param_name, "value");
      value.has_number_filter = true;
      value.number_filter.has_comparison_type = true;
      value.number_filter.comparison_type = 4;
      APMPBSetString(&value.number_filter.min_comparison_value, std::to_string(a * 1000));
      APMPBSetString(&value.number_filter.max_comparison_value, std::to_string(a * 1000 + 5));
      auto& currency = APMPBAppend(&filter.filters, &filter.filters_count);
      APMPBSetString(&currency.param_name, "currency");
      currency.has_string_filter = true;
      currency.string_filter.has_match_type = true;
      currency.string_filter.match_type = 4;
      APMPBSetString(&currency.string_filter.expression, "U");
    }
    out.push_back(std::move(audience));
  }
  return out;
}

std::shared_ptr<APMMeasurement> startClient(const std::string& folder, bool withAudiences) {
  APMMeasurementOptions options;
  options.databasePath = folder + "/measurement.sql";
  options.settings.maxEventsPerDay = 1000000;
  options.settings.maxPublicEventsPerDay = 1000000;
  auto m = std::make_shared<APMMeasurement>(options);
  m->scheduler().dispatchSyncOnWorkerQueueBlockID("bench:start", [&] {
    m->startMeasurementOnWorkerQueue();
    if (!withAudiences) return;
    auto list = audiences();
    std::vector<APMPBAudience> plain;
    for (auto& a : list) plain.push_back(*a);
    m->database()->performTransaction(
        [&] { return APMAudience(m->database()).updateAudiences(plain, {}, nullptr); });
  });
  return m;
}

void bundleOneThousand(benchmark::State& state, bool withAudiences) {
  desktop::ThreadedEnvironment env;
  kit::resetSingletonsForTesting();
  sim::Platform platform;
  APMMonitor::setConsoleLevel(kAPMMonitorLevelError);
  for (auto _ : state) {
    state.PauseTiming();
    auto m = startClient(scratch().fresh(withAudiences ? "with" : "without"), withAudiences);
    m->scheduler().dispatchSyncOnWorkerQueueBlockID("bench:fill", [&] {
      for (int i = 0; i < kEvents; ++i) {
        auto e = APMEvent::create("app", eventName(i), 1735689600 + i * 0.001, 0,
                                  {{"value", APMValue::fromInt64(i * 37 % 50000)},
                                   {"currency", APMValue::fromString(i % 2 ? "USD" : "EUR")},
                                   {"item", APMValue::fromString("sku-" + std::to_string(i))}});
        m->writeEventOnWorkerQueue(*e);
      }
    });
    state.ResumeTiming();
    int made = 0;
    m->scheduler().dispatchSyncOnWorkerQueueBlockID("bench:bundle", [&] {
      while (m->bundleRawEvents()) ++made;
    });
    if (made < 1) state.SkipWithError("no bundle made");
    state.PauseTiming();
    m.reset();
    state.ResumeTiming();
  }
}

void BM_BundleWithoutAudiences(benchmark::State& state) { bundleOneThousand(state, false); }
void BM_BundleWithAudiences(benchmark::State& state) { bundleOneThousand(state, true); }

BENCHMARK(BM_BundleWithoutAudiences)->Iterations(5)->Repetitions(5)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BundleWithAudiences)->Iterations(5)->Repetitions(5)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  bench::MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  double without = reporter.value("BM_BundleWithoutAudiences", "seconds");
  double with = reporter.value("BM_BundleWithAudiences", "seconds");
  double audienceSeconds = with - without;
  constexpr double kFiltersPerEvent = kAudiences;  // one filter of each audience per event
  std::printf("\nbundling %d events: %.3f ms without audiences, %.3f ms with %d x %d filters\n",
              kEvents, without * 1e3, with * 1e3, kAudiences, kFiltersPerAudience);
  if (audienceSeconds > 0) {
    std::printf("figure: audience_events_per_s %.0f 1/s\n", kEvents / audienceSeconds);
    std::printf("figure: audience_ns_per_event_filter %.1f ns\n",
                audienceSeconds / (kEvents * kFiltersPerEvent) * 1e9);
  } else {
    std::printf("figure: audience_events_per_s inf 1/s\n");
  }
  if (without > 0) {
    std::printf("figure: audience_over_bundling_ratio %.3f 1\n", audienceSeconds / without);
  }
  benchmark::Shutdown();
  return 0;
}
