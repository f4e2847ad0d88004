// Raw-event writes: through APMDatabase (header upsert plus raw event, one exclusive
// transaction per event) against plain SQLite writing the same rows with the same pragmas
// (write-ahead log, normal synchronisation). Prints events per second for both, by wall
// clock and by the process's own CPU time, and their ratios: medians of five interleaved
// runs.
//
//   cmake --preset release && cmake --build --preset release --target store_bench
//   build/release/bench/store_bench
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "measurement/proto/APMPB.h"
#include "measurement/store/APMDatabase.h"
#include "sim/Environment.h"
#include "sim/Platform.h"

namespace {

constexpr std::int64_t kFingerprint = 0x5eed5eed5eedLL;

std::filesystem::path benchFolder() {
  return std::filesystem::temp_directory_path() / ("apm_store_bench_" + std::to_string(::getpid()));
}

// A fresh, empty folder for one run's database.
std::string freshFolder(const char* name) {
  auto folder = benchFolder() / name;
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  return folder.string();
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
      APMDatabase::initWithDatabasePath(freshFolder("apm") + "/measurement.sql", config, nullptr);
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

bool exec(sqlite3* db, const char* sql) {
  return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool prepare(sqlite3* db, const char* sql, sqlite3_stmt** statement) {
  return sqlite3_prepare_v2(db, sql, -1, statement, nullptr) == SQLITE_OK;
}

void BM_PlainSqlite(benchmark::State& state) {
  std::string path = freshFolder("plain") + "/plain.sql";
  sqlite3* db = nullptr;
  sqlite3_open_v2(path.c_str(), &db,
                  SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
  sqlite3_stmt* begin = nullptr;
  sqlite3_stmt* commit = nullptr;
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
      prepare(db, "BEGIN EXCLUSIVE TRANSACTION", &begin) &&
      prepare(db, "END TRANSACTION", &commit) &&
      prepare(db,
              "INSERT OR IGNORE INTO raw_events_metadata (metadata_fingerprint, metadata) VALUES "
              "(?, ?)",
              &header) &&
      prepare(db,
              "INSERT INTO raw_events (name, timestamp, metadata_fingerprint, data, is_realtime) "
              "VALUES (?, ?, ?, ?, ?)",
              &row);
  kit::Data metadata = sampleMetadata();
  auto event = sampleEvent(1735689600000);
  char* name = event->name;
  event->name = nullptr;  // the stored event has no name
  kit::Data data = *event.protoBuffer();
  event->name = name;
  auto step = [](sqlite3_stmt* s) {
    int rc = sqlite3_step(s);
    sqlite3_reset(s);
    return rc == SQLITE_DONE;
  };
  double timestamp = 1735689600.0;
  for (auto _ : state) {
    if (!ready) {
      state.SkipWithError(sqlite3_errmsg(db));
      break;
    }
    timestamp += 0.001;
    sqlite3_bind_int64(header, 1, kFingerprint);
    sqlite3_bind_blob(header, 2, metadata.data(), static_cast<int>(metadata.size()), SQLITE_STATIC);
    sqlite3_bind_text(row, 1, "_vs", -1, SQLITE_STATIC);
    sqlite3_bind_double(row, 2, timestamp);
    sqlite3_bind_int64(row, 3, kFingerprint);
    sqlite3_bind_blob(row, 4, data.data(), static_cast<int>(data.size()), SQLITE_STATIC);
    sqlite3_bind_int(row, 5, 0);
    if (!(step(begin) && step(header) && step(row) && step(commit))) {
      state.SkipWithError(sqlite3_errmsg(db));
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
  for (sqlite3_stmt* s : {begin, commit, header, row}) sqlite3_finalize(s);
  sqlite3_close(db);
}

// Five runs of each, interleaved (see main).
BENCHMARK(BM_APMDatabase)->MinTime(1.0)->Repetitions(5)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PlainSqlite)->MinTime(1.0)->Repetitions(5)->Unit(benchmark::kMicrosecond);

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Prints as the console does and keeps, per benchmark, the events per second of each run by
// wall clock and by the process's CPU time.
class RateReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      auto n = static_cast<double>(run.iterations);
      wall_[run.run_name.function_name].push_back(n / run.real_accumulated_time);
      cpu_[run.run_name.function_name].push_back(n / run.cpu_accumulated_time);
    }
  }
  double wallRate(const std::string& name) { return median(wall_[name]); }
  double cpuRate(const std::string& name) { return median(cpu_[name]); }

 private:
  std::map<std::string, std::vector<double>> wall_;
  std::map<std::string, std::vector<double>> cpu_;
};

}  // namespace

int main(int argc, char** argv) {
  // The repetitions of the two benchmarks run interleaved, so that the load of a shared
  // machine falls on both alike.
  std::vector<char*> args(argv, argv + argc);
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  args.insert(args.begin() + 1, interleave.data());
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  RateReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);

  std::printf("\nevents/s, median of 5 runs      wall clock   process CPU time\n");
  for (const char* name : {"BM_APMDatabase", "BM_PlainSqlite"}) {
    std::printf("%-30s %12.0f %18.0f\n", name, reporter.wallRate(name), reporter.cpuRate(name));
  }
  if (reporter.wallRate("BM_APMDatabase") > 0 && reporter.cpuRate("BM_APMDatabase") > 0) {
    std::printf("%-30s %12.2f %18.2f\n", "ratio plain / APMDatabase",
                reporter.wallRate("BM_PlainSqlite") / reporter.wallRate("BM_APMDatabase"),
                reporter.cpuRate("BM_PlainSqlite") / reporter.cpuRate("BM_APMDatabase"));
  }
  std::printf("figure: apm_events_per_s %.0f 1/s\n", reporter.wallRate("BM_APMDatabase"));
  std::printf("figure: plain_sqlite_events_per_s %.0f 1/s\n", reporter.wallRate("BM_PlainSqlite"));
  std::filesystem::remove_all(benchFolder());
  benchmark::Shutdown();
  return 0;
}
