// Raw-event writes: through APMDatabase (header upsert plus raw event, one exclusive
// transaction per event) against plain SQLite writing the same rows with the same pragmas
// (write-ahead log, normal synchronisation). Prints events per second for both, by wall
// clock and by the process's own CPU time, and their ratios: medians of five interleaved
// runs.
//
//   cmake --preset release && cmake --build --preset release --target store_bench
//   build/release/bench/store_bench
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "PlainRawEvents.h"
#include "measurement/proto/APMPB.h"
#include "measurement/store/APMDatabase.h"
#include "sim/Environment.h"
#include "sim/Platform.h"

namespace {

constexpr std::int64_t kFingerprint = 0x5eed5eed5eedLL;

bench::ScratchFolder& scratch() {
  static bench::ScratchFolder folder("apm_store_bench");
  return folder;
}

// A typical event: a screen view with a handful of parameters.
APMPBMessage<APMPBEvent> sampleEvent(std::int64_t millis) {
  APMPBMessage<APMPBEvent> event;
  APMPBSetString(&event->name, "_vs");
  event->has_timestamp_millis = true;
  event->timestamp_millis = millis;
  auto addString = [&event](const char* name, const char* value) {
    APMPBEventParam& p = APMPBAppend(&event->params, &event->params_count);
    APMPBSetString(&p.name, name);
    APMPBSetString(&p.string_value, value);
  };
  auto addInt = [&event](const char* name, std::int64_t value) {
    APMPBEventParam& p = APMPBAppend(&event->params, &event->params_count);
    APMPBSetString(&p.name, name);
    p.has_int_value = true;
    p.int_value = value;
  };
  addString("_o", "auto");
  addString("_sc", "DuplicatePhotoVC");
  addString("_sn", "Duplicate photos");
  addInt("_si", 4242424242LL);
  addString("_pc", "HomeVC");
  addInt("_pi", 4242424241LL);
  addInt("_et", 1520);
  addString("item_category", "photos");
  return event;
}

// The shared header of the events: device fields and two user properties.
kit::Data sampleMetadata() {
  APMPBMessage<APMPBMeasurementBundle> header;
  header->has_protocol_version = true;
  header->protocol_version = 1;
  APMPBSetString(&header->platform, "ios");
  APMPBSetString(&header->os_version, "17.4");
  APMPBSetString(&header->device_model, "iPhone15,2");
  APMPBSetString(&header->user_language, "en-us");
  APMPBSetString(&header->app_id, "com.solvanta.cleaner");
  APMPBSetString(&header->app_version, "2.3.1");
  APMPBSetString(&header->app_instance_id, "0f3c9a5e1d2b4c6f8a7e9d1c3b5a7f9e");
  for (const char* name : {"_fot", "_sid"}) {
    APMPBUserAttribute& a = APMPBAppend(&header->user_properties, &header->user_properties_count);
    APMPBSetString(&a.name, name);
    a.has_int_value = true;
    a.int_value = 1735689600;
  }
  return *header.protoBuffer();
}

void BM_APMDatabase(benchmark::State& state) {
  sim::Environment env;
  auto config = std::make_shared<APMPersistedConfig>(std::make_shared<sim::PreferenceStore>());
  auto database =
      APMDatabase::initWithDatabasePath(scratch().fresh("apm") + "/measurement.sql", config, nullptr);
  if (!database) {
    state.SkipWithError("cannot open the database");
    return;
  }
  kit::Data metadata = sampleMetadata();
  auto event = sampleEvent(1735689600000);
  for (auto _ : state) {
    ++event->timestamp_millis;
    bool ok = database->performTransaction([&] {
      return database->insertIfNotExistsRawEventMetadata(kFingerprint, metadata, nullptr) &&
             database->insertRawEvent(*event, kFingerprint, false, nullptr);
    });
    if (!ok) {
      state.SkipWithError("insert failed");
      return;
    }
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_PlainSqlite(benchmark::State& state) {
  bench::PlainRawEvents plain(scratch().fresh("plain") + "/plain.sql");
  kit::Data metadata = sampleMetadata();
  auto event = sampleEvent(1735689600000);
  char* name = event->name;
  event->name = nullptr;  // the stored event has no name
  kit::Data data = *event.protoBuffer();
  event->name = name;
  double timestamp = 1735689600.0;
  for (auto _ : state) {
    timestamp += 0.001;
    if (!plain.write("_vs", timestamp, kFingerprint, metadata, data)) {
      state.SkipWithError(plain.error());
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
}

// Five runs of each, interleaved (see main).
BENCHMARK(BM_APMDatabase)->MinTime(1.0)->Repetitions(5)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PlainSqlite)->MinTime(1.0)->Repetitions(5)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  // The repetitions of the two benchmarks run interleaved, so that the load of a shared
  // machine falls on both alike.
  std::vector<char*> args(argv, argv + argc);
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  args.insert(args.begin() + 1, interleave.data());
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  bench::MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);

  std::printf("\nevents/s, median of 5 runs      wall clock   process CPU time\n");
  for (const char* name : {"BM_APMDatabase", "BM_PlainSqlite"}) {
    std::printf("%-30s %12.0f %18.0f\n", name, reporter.value(name, "wall_rate"), reporter.value(name, "cpu_rate"));
  }
  if (reporter.value("BM_APMDatabase", "wall_rate") > 0 && reporter.value("BM_APMDatabase", "cpu_rate") > 0) {
    std::printf("%-30s %12.2f %18.2f\n", "ratio plain / APMDatabase",
                reporter.value("BM_PlainSqlite", "wall_rate") / reporter.value("BM_APMDatabase", "wall_rate"),
                reporter.value("BM_PlainSqlite", "cpu_rate") / reporter.value("BM_APMDatabase", "cpu_rate"));
  }
  std::printf("figure: apm_events_per_s %.0f 1/s\n", reporter.value("BM_APMDatabase", "wall_rate"));
  std::printf("figure: plain_sqlite_events_per_s %.0f 1/s\n", reporter.value("BM_PlainSqlite", "wall_rate"));
  benchmark::Shutdown();
  return 0;
}
