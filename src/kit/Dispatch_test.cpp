#include "kit/Dispatch.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kit/Fatal.h"
#include "kit/Lists.h"
#include "sim/Environment.h"

namespace {

using Log = std::vector<std::string>;

TEST(DispatchTest, MainQueueRunsInFifoOrderOnlyWhenDriven) {
  sim::Environment env;
  Log log;
  kit::mainQueue().async([&] {
    log.push_back("a");
    kit::mainQueue().async([&] { log.push_back("c"); });
  });
  kit::mainQueue().async([&] { log.push_back("b"); });
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(env.runMain(), 3);
  EXPECT_EQ(log, (Log{"a", "b", "c"}));
}

TEST(DispatchTest, BackgroundWorkIsHeldUntilRunAndIsNotMain) {
  sim::Environment env;
  bool ran = false, onMain = true;
  kit::globalQueue(kit::QoS::Background).async([&] {
    ran = true;
    onMain = kit::isMainThread();
  });
  env.runMain();
  EXPECT_FALSE(ran);
  EXPECT_EQ(env.pendingBackgroundCount(), 1u);
  EXPECT_TRUE(env.runBackgroundOnce());
  EXPECT_TRUE(ran);
  EXPECT_FALSE(onMain);
  EXPECT_TRUE(kit::isMainThread());
}

TEST(DispatchTest, RunUntilIdleDrainsMainBeforeEachBackgroundTask) {
  sim::Environment env;
  Log log;
  auto& bg = kit::globalQueue(kit::QoS::Background);
  bg.async([&] {
    log.push_back("bg1");
    kit::mainQueue().async([&] { log.push_back("main-from-bg1"); });
    bg.async([&] { log.push_back("bg3"); });
  });
  bg.async([&] { log.push_back("bg2"); });
  kit::mainQueue().async([&] { log.push_back("main"); });
  env.runUntilIdle();
  EXPECT_EQ(log, (Log{"main", "bg1", "main-from-bg1", "bg2", "bg3"}));
  EXPECT_EQ(env.pendingCount(), 0u);
}

TEST(DispatchTest, SerialQueueSyncRunsEarlierTasksFirst) {
  sim::Environment env;
  Log log;
  auto q = kit::makeSerialQueue("worker");
  q->async([&] { log.push_back("1"); });
  kit::globalQueue(kit::QoS::Default).async([&] { log.push_back("other"); });
  q->async([&] { log.push_back("2"); });
  q->sync([&] { log.push_back("sync"); });
  EXPECT_EQ(log, (Log{"1", "2", "sync"}));
  env.runBackground();
  EXPECT_EQ(log.back(), "other");
}

TEST(DispatchTest, SyncThatWouldDeadlockIsFatal) {
  sim::Environment env;
  EXPECT_THROW(kit::mainQueue().sync([] {}), kit::FatalError);
  auto q = kit::makeSerialQueue("q");
  q->async([&] { q->sync([] {}); });
  EXPECT_THROW(env.runBackground(), kit::FatalError);
}

TEST(DispatchTest, SyncOntoMainFromBackgroundRunsQueuedMainWorkFirst) {
  sim::Environment env;
  Log log;
  kit::mainQueue().async([&] { log.push_back("queued"); });
  kit::globalQueue(kit::QoS::Background).async([&] {
    kit::mainQueue().sync([&] { log.push_back(kit::isMainThread() ? "sync-on-main" : "sync-off-main"); });
    log.push_back(kit::isMainThread() ? "after-on-main" : "after-off-main");
  });
  env.runBackground();
  EXPECT_EQ(log, (Log{"queued", "sync-on-main", "after-off-main"}));
}

TEST(DispatchTest, DelayedTasksRunInDueOrderThenPostingOrder) {
  sim::Environment env;
  Log log;
  double start = env.now();
  std::vector<double> at;
  kit::mainQueue().asyncAfter(2.0, [&] { log.push_back("2a"); at.push_back(env.now() - start); });
  kit::mainQueue().asyncAfter(1.0, [&] { log.push_back("1"); at.push_back(env.now() - start); });
  kit::globalQueue(kit::QoS::Utility).asyncAfter(2.0, [&] { log.push_back("2b"); });
  env.advance(1.5);
  EXPECT_EQ(log, (Log{"1"}));
  env.advance(0.5);
  EXPECT_EQ(log, (Log{"1", "2a", "2b"}));
  EXPECT_EQ(at, (std::vector<double>{1.0, 2.0}));
  EXPECT_DOUBLE_EQ(env.now() - start, 2.0);
}

TEST(DispatchTest, OneShotTimerFiresOnceAndInvalidatesItself) {
  sim::Environment env;
  int fired = 0;
  auto timer = kit::scheduledTimer(0.5, false, [&](kit::Timer&) { ++fired; });
  EXPECT_TRUE(timer->isValid());
  env.advance(0.49);
  EXPECT_EQ(fired, 0);
  env.advance(10);
  EXPECT_EQ(fired, 1);
  EXPECT_FALSE(timer->isValid());
}

TEST(DispatchTest, RepeatingTimerKeepsItsCadenceUntilInvalidated) {
  sim::Environment env;
  double start = env.now();
  std::vector<double> times;
  auto timer = kit::scheduledTimer(1.0, true, [&](kit::Timer& t) {
    times.push_back(env.now() - start);
    if (times.size() == 3) t.invalidate();
  });
  env.advance(10);
  EXPECT_EQ(times, (std::vector<double>{1.0, 2.0, 3.0}));
  EXPECT_FALSE(timer->isValid());
  EXPECT_EQ(env.pendingCount(), 0u);
}

TEST(DispatchTest, InvalidatedTimerNeverFires) {
  sim::Environment env;
  int fired = 0;
  auto timer = kit::scheduledTimer(1.0, true, [&](kit::Timer&) { ++fired; });
  env.advance(2.5);
  timer->invalidate();
  env.advance(5);
  EXPECT_EQ(fired, 2);
}

TEST(DispatchTest, ClockIsVirtualAndUptimeMonotonic) {
  sim::Environment env(1000.0);
  EXPECT_DOUBLE_EQ(env.now(), 1000.0);
  double up = kit::uptime();
  env.advance(3);
  EXPECT_DOUBLE_EQ(kit::uptime() - up, 3.0);
}

TEST(DispatchTest, DescribeNamesPendingWork) {
  sim::Environment env;
  kit::globalQueue(kit::QoS::Background).async([] {});
  auto timer = kit::scheduledTimer(2.0, true, [](kit::Timer&) {});
  std::string text = env.describe();
  EXPECT_NE(text.find("global.background x1"), std::string::npos) << text;
  EXPECT_NE(text.find("repeating"), std::string::npos) << text;
  EXPECT_EQ(env.pendingCount(), 2u);
}

TEST(DispatchTest, FatalErrorsReachTheTest) {
  sim::Environment env;
  kit::mainQueue().async([] { kit::fatal("boom"); });
  EXPECT_THROW(env.runMain(), kit::FatalError);
  EXPECT_THROW(kit::checkedAdd(INT64_MAX, 1), kit::FatalError);
  EXPECT_EQ(kit::checkedSubtract(5, 7), -2);
}

// The layout pass runs after the main-queue task that asked for a reload, not inside it.
class CountingSource : public kit::TableViewDataSource {
 public:
  int numberOfRowsInSection(kit::TableView&, int) override {
    ++rowQueries;
    return rows;
  }
  std::shared_ptr<kit::TableViewCell> cellForRowAtIndexPath(kit::TableView& t, kit::IndexPath p) override {
    ++cellQueries;
    return t.dequeueReusableCellWithIdentifier("cell", p);
  }
  int rows = 3, rowQueries = 0, cellQueries = 0;
};

TEST(DispatchTest, LayoutPassRunsTheDataSourceAfterTheTask) {
  sim::Environment env;
  auto table = kit::make<kit::TableView>();
  auto source = std::make_shared<CountingSource>();
  table->setDataSource(source);
  table->registerCell("cell", [] { return kit::make<kit::TableViewCell>(); });
  int queriesDuringTask = -1;
  kit::mainQueue().async([&] {
    table->reloadData();
    table->reloadData();
    queriesDuringTask = source->rowQueries;
  });
  env.runMain();
  EXPECT_EQ(queriesDuringTask, 0);
  EXPECT_EQ(source->rowQueries, 1);
  EXPECT_EQ(source->cellQueries, 3);
}

}  // namespace
