// The event pipeline's test fixture: a simulated environment and platform, a fresh database
// in a temporary folder, a captured monitor, and helpers that drive the worker queue. Test
// code only.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "measurement/APMMonitor.h"
#include "measurement/events/APMMeasurement.h"
#include "measurement/store/APMStoreTestSupport.h"
#include "sim/Environment.h"
#include "sim/Platform.h"

class APMEventsTest : public ::testing::Test {
 protected:
  APMEventsTest() { measurement_ = make(); }

  // The experiment client is off unless `experiments`: its fetch would stand among the
  // requests the pipeline's tests count.
  std::shared_ptr<APMMeasurement> make(APMMeasurementSettings settings = {},
                                       bool experiments = false) {
    APMMeasurementOptions options;
    options.databasePath = folder_.path() + "/Stuvop/Measurement/test.sql";
    options.settings = std::move(settings);
    options.experimentsEnabled = experiments;
    return std::make_shared<APMMeasurement>(std::move(options));
  }

  APMMeasurement& m() { return *measurement_; }
  // Runs `block` on the worker queue and everything pending after it.
  void onWorker(std::function<void()> block) {
    m().scheduler().scheduleOnWorkerQueueBlockID("test", std::move(block));
    env_.runUntilIdle();
  }
  // Opens the database (without the first-open report) on the worker queue.
  void openDatabase() {
    onWorker([this] { ASSERT_TRUE(m().setUserAttributeOnWorkerQueue("_fot", APMValue::fromInt64(1), "auto", 0)); });
  }
  APMEvent event(const std::string& name, APMParameters parameters = {},
                 const std::string& origin = "app") {
    auto e = APMEvent::create(origin, name, env_.now(), 0, std::move(parameters));
    EXPECT_TRUE(e.has_value()) << name;
    return *e;
  }
  // Logs `e` through the worker path and runs the queues.
  void log(const APMEvent& e) {
    m().logEvent(e);
    env_.runUntilIdle();
  }
  std::vector<std::string> rawEventNames() {
    std::vector<std::string> names;
    onWorker([&] {
      auto rows = m().database()->store().recordsForQuery(
          "SELECT name FROM raw_events ORDER BY rowid", {}, nullptr);
      ASSERT_TRUE(rows);
      for (const auto& r : *rows) names.push_back(*r.at("name").asString());
    });
    return names;
  }
  struct RawRow {
    APMEvent event;
    bool isRealtime;
    std::int64_t fingerprint;
  };
  // Every row of raw_events, in order, its event parsed.
  std::vector<RawRow> rawRows() {
    std::vector<RawRow> out;
    onWorker([&] {
      auto rows = m().database()->store().recordsForQuery(
          "SELECT name, data, is_realtime, metadata_fingerprint FROM raw_events ORDER BY rowid",
          {}, nullptr);
      ASSERT_TRUE(rows);
      for (const auto& r : *rows) {
        auto proto = APMPBMessage<APMPBEvent>::parseFromData(*r.at("data").asData());
        ASSERT_TRUE(proto);
        APMPBSetString(&(*proto)->name, *r.at("name").asString());
        auto e = APMEvent::fromProto(**proto);
        ASSERT_TRUE(e);
        out.push_back({*e, r.at("is_realtime").numberAsInteger() == 1,
                       *r.at("metadata_fingerprint").numberAsInteger()});
      }
    });
    return out;
  }
  // The rows of events named `name`.
  std::vector<APMEvent> rawEventsNamed(const std::string& name) {
    std::vector<APMEvent> out;
    for (auto& row : rawRows()) {
      if (row.event.name() == name) out.push_back(row.event);
    }
    return out;
  }
  std::int64_t count(const std::string& sql) {
    std::int64_t n = -1;
    onWorker([&] { auto v = m().database()->store().numberForQuery(sql, {}, nullptr); n = v ? v->numberAsInteger().value_or(-1) : -1; });
    return n;
  }
  APMDailyCounts dailyCounts() {
    APMDailyCounts counts;
    onWorker([&] {
      ASSERT_NE(m().database(), nullptr);
      counts = *m().database()->dailyCounts(nullptr);
    });
    return counts;
  }

  sim::Environment env_;
  sim::Platform platform_;
  APMTemporaryFolder folder_;
  APMMonitorCapture monitor_;
  std::shared_ptr<APMMeasurement> measurement_;
};
