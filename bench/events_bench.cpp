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
#include <sqlite3.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "desktop/threaded/ThreadedEnvironment.h"
#include "kit/Singleton.h"
#include "measurement/events/APMAnalytics.h"
#include "measurement/events/APMMeasurement.h"
#include "sim/Platform.h"

namespace {

constexpr int kBatch = 2000;

std::filesystem::path benchFolder() {
  return std::filesystem::temp_directory_path() /
         ("apm_events_bench_" + std::to_string(::getpid()));
}

std::string freshFolder(const std::string& name) {
  auto folder = benchFolder() / name;
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  return folder.string();
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
  auto m = startClient(freshFolder("end_to_end"));
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

bool exec(sqlite3* db, const char* sql) {
  return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

void BM_PlainSqlite(benchmark::State& state) {
  std::string path = freshFolder("plain") + "/plain.sql";
  sqlite3* db = nullptr;
  sqlite3_open_v2(path.c_str(), &db,
                  SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
  sqlite3_stmt* header = nullptr;
  sqlite3_stmt* row = nullptr;
  bool ready =
      exec(db, "PRAGMA journal_mode=WAL") && exec(db, "PRAGMA synchronous=NORMAL") &&
      exec(db,
           "CREATE TABLE raw_events_metadata (metadata_fingerprint INTEGER NOT NULL PRIMARY KEY, "
           "metadata BLOB NOT NULL)") &&
      exec(db,
           "CREATE TABLE raw_events (name TEXT NOT NULL, timestamp REAL NOT NULL, "
           "metadata_fingerprint INTEGER NOT NULL, data BLOB NOT NULL, is_realtime INTEGER)") &&
      sqlite3_prepare_v2(db,
                         "INSERT OR IGNORE INTO raw_events_metadata (metadata_fingerprint, "
                         "metadata) VALUES (?, ?)",
                         -1, &header, nullptr) == SQLITE_OK &&
      sqlite3_prepare_v2(db,
                         "INSERT INTO raw_events (name, timestamp, metadata_fingerprint, data, "
                         "is_realtime) VALUES (?, ?, ?, ?, ?)",
                         -1, &row, nullptr) == SQLITE_OK;
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
  auto step = [](sqlite3_stmt* s) {
    int rc = sqlite3_step(s);
    sqlite3_reset(s);
    return rc == SQLITE_DONE;
  };
  for (auto _ : state) {
    for (int i = 0; i < kBatch + 1 && ready; ++i) {
      timestamp += 0.001;
      sqlite3_bind_int64(header, 1, 42);
      sqlite3_bind_blob(header, 2, metadata.data(), static_cast<int>(metadata.size()),
                        SQLITE_STATIC);
      sqlite3_bind_text(row, 1, "scan_finished", -1, SQLITE_STATIC);
      sqlite3_bind_double(row, 2, timestamp);
      sqlite3_bind_int64(row, 3, 42);
      sqlite3_bind_blob(row, 4, data.data(), static_cast<int>(data.size()), SQLITE_STATIC);
      sqlite3_bind_int(row, 5, 0);
      ready = exec(db, "BEGIN EXCLUSIVE TRANSACTION") && step(header) && step(row) &&
              exec(db, "END TRANSACTION");
    }
    if (!ready) {
      state.SkipWithError(sqlite3_errmsg(db));
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * (kBatch + 1));
  sqlite3_finalize(header);
  sqlite3_finalize(row);
  sqlite3_close(db);
}

void BM_Bundle10k(benchmark::State& state) {
  desktop::ThreadedEnvironment env;
  kit::resetSingletonsForTesting();
  sim::Platform platform;
  for (auto _ : state) {
    state.PauseTiming();
    auto m = startClient(freshFolder("bundle"));
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

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

class FigureReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      auto items = run.counters.find("items_per_second");
      std::string name = run.run_name.function_name;
      if (items != run.counters.end()) rates_[name].push_back(items->second.value);
      seconds_[name].push_back(run.real_accumulated_time / static_cast<double>(run.iterations));
    }
  }
  double rate(const std::string& name) { return median(rates_[name]); }
  double seconds(const std::string& name) { return median(seconds_[name]); }

 private:
  std::map<std::string, std::vector<double>> rates_;
  std::map<std::string, std::vector<double>> seconds_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  FigureReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  double endToEnd = reporter.rate("BM_LogEventEndToEnd");
  double plain = reporter.rate("BM_PlainSqlite");
  std::printf("\nfigure: events_per_s %.0f\n", endToEnd);
  std::printf("figure: plain_sqlite_events_per_s %.0f\n", plain);
  std::printf("figure: bundle_10k_s %.3f\n", reporter.seconds("BM_Bundle10k"));
  if (endToEnd > 0) std::printf("ratio plain / end to end: %.2f\n", plain / endToEnd);
  std::filesystem::remove_all(benchFolder());
  benchmark::Shutdown();
  return 0;
}
