// The write path under SIGKILL: a child process logs events as fast as it can (and bundles
// now and then) and reports through a pipe every event whose write has committed; the parent
// kills it at a random moment, then checks that the database passes its integrity check and
// that every reported event is in `raw_events` or in a bundle. APM_DURABILITY_KILLS sets the
// number of kills (10 by default).
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <random>
#include <set>

#include "measurement/APMGzip.h"
#include "measurement/events/APMMeasurement.h"
#include "measurement/store/APMStoreTestSupport.h"
#include "sim/Environment.h"
#include "sim/Platform.h"

namespace {

constexpr std::int64_t kRunStride = 1000000000;

// The child: never returns.
[[noreturn]] void logUntilKilled(const std::string& path, int fd, std::int64_t firstSeq) {
  sim::Environment env;
  sim::Platform platform;
  APMMeasurementOptions options;
  options.databasePath = path;
  APMMeasurement m(options);
  auto run = [&](std::function<void()> block) {
    m.scheduler().scheduleOnWorkerQueueBlockID("durability", std::move(block));
    env.runUntilIdle();
  };
  run([&] { m.startMeasurementOnWorkerQueue(); });
  for (std::int64_t seq = firstSeq;; ++seq) {
    bool committed = false;
    run([&] {
      auto event = APMEvent::create("app", "tick", env.now(), 0,
                                    {{"seq", APMValue::fromInt64(seq)}});
      committed = event && m.writeEventOnWorkerQueue(*event);
      if (seq % 64 == 63) m.bundleRawEvents();
    });
    if (committed && ::write(fd, &seq, sizeof seq) != sizeof seq) ::_exit(3);
  }
}

bool integrityOK(const std::string& path) {
  sqlite3* db = nullptr;
  bool ok = false;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
      const unsigned char* text = sqlite3_column_text(statement, 0);
      ok = text && std::string(reinterpret_cast<const char*>(text)) == "ok";
    }
    sqlite3_finalize(statement);
  }
  sqlite3_close(db);
  return ok;
}

void collectSeq(const APMPBEvent& event, std::set<std::int64_t>& out) {
  for (const APMPBEventParam& p : APMPBItems(event.params, event.params_count)) {
    if (p.name && std::string(p.name) == "seq" && p.has_int_value) out.insert(p.int_value);
  }
}

// Every `seq` stored in raw_events or in a queued bundle.
std::set<std::int64_t> storedSeqs(const std::string& path) {
  std::set<std::int64_t> out;
  sim::Environment env;
  sim::Platform platform;
  auto config = std::make_shared<APMPersistedConfig>(platform::services().preferences);
  auto database = APMDatabase::initWithDatabasePath(path, config, nullptr);
  EXPECT_TRUE(database);
  if (!database) return out;
  auto rows = database->store().recordsForQuery("SELECT data FROM raw_events", {}, nullptr);
  EXPECT_TRUE(rows);
  for (const auto& r : *rows) {
    auto event = APMPBMessage<APMPBEvent>::parseFromData(*r.at("data").asData());
    if (event) collectSeq(**event, out);
  }
  auto bundles = database->queryBundlesWithCountLimit(INT64_MAX, INT64_MAX, nullptr);
  EXPECT_TRUE(bundles);
  for (const APMQueuedBundle& b : *bundles) {
    for (const APMPBEvent& e : APMPBItems(b.bundle->events, b.bundle->events_count)) {
      collectSeq(e, out);
    }
  }
  return out;
}

TEST(APMDurabilityTest, EveryCommittedEventSurvivesSIGKILL) {
  const char* configured = std::getenv("APM_DURABILITY_KILLS");
  int kills = configured ? std::atoi(configured) : 10;
  APMTemporaryFolder folder;
  std::string path = folder.path() + "/Stuvop/Measurement/durability.sql";
  std::mt19937 rng(20261123);
  std::set<std::int64_t> reported;
  std::int64_t lostCommitted = 0, failedChecks = 0, committedInAll = 0, checked = 0;
  for (int run = 0; run < kills; ++run) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::close(fds[0]);
      logUntilKilled(path, fds[1], (run + 1) * kRunStride);
    }
    ::close(fds[1]);
    // A random moment: from just after start to well into the logging.
    std::uniform_int_distribution<int> delay(0, 400000);
    ::usleep(static_cast<useconds_t>(delay(rng)));
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the child ended by itself with " << status;
    std::int64_t seq;
    while (::read(fds[0], &seq, sizeof seq) == sizeof seq) reported.insert(seq);
    ::close(fds[0]);
    if (!std::filesystem::exists(path)) continue;  // killed before the file was made
    if (!integrityOK(path)) ++failedChecks;
    std::set<std::int64_t> stored = storedSeqs(path);
    for (std::int64_t s : reported) lostCommitted += stored.count(s) == 0;
    committedInAll += static_cast<std::int64_t>(reported.size());
    ++checked;
    reported.clear();
  }
  std::printf("figure: durability_kills %d, databases_checked %lld, committed_events %lld, "
              "integrity_failures %lld, committed_events_lost %lld\n",
              kills, static_cast<long long>(checked), static_cast<long long>(committedInAll),
              static_cast<long long>(failedChecks), static_cast<long long>(lostCommitted));
  EXPECT_EQ(failedChecks, 0);
  EXPECT_EQ(lostCommitted, 0);
}

}  // namespace
