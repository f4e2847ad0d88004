// The ordering promises of the threaded runtime, run under ThreadSanitizer in CI.
#include "desktop/threaded/ThreadedEnvironment.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>
#include <vector>

#include "kit/Fatal.h"

namespace {

constexpr double kTimeout = 20.0;

struct ThreadedTest : ::testing::Test {
  desktop::ThreadedEnvironment env{nullptr, 4};
  desktop::StandaloneLoop& loop = *env.standaloneLoop();
  bool runUntil(const std::function<bool()>& done) { return loop.runUntil(done, kTimeout); }
};

TEST_F(ThreadedTest, MainQueueKeepsEachPostersOrder) {
  constexpr int kPosters = 4, kEach = 500;
  std::vector<std::vector<int>> seen(kPosters);  // touched on the main thread only
  std::atomic<int> total{0};
  for (int p = 0; p < kPosters; ++p) {
    kit::globalQueue(kit::QoS::Default).async([&, p] {
      for (int i = 0; i < kEach; ++i) {
        kit::mainQueue().async([&, p, i] {
          EXPECT_TRUE(kit::isMainThread());
          seen[p].push_back(i);
          ++total;
        });
      }
    });
  }
  ASSERT_TRUE(runUntil([&] { return total.load() == kPosters * kEach; }));
  for (auto& s : seen) {
    ASSERT_EQ(s.size(), static_cast<std::size_t>(kEach));
    for (int i = 0; i < kEach; ++i) EXPECT_EQ(s[i], i);
  }
}

TEST_F(ThreadedTest, SerialQueueRunsOneTaskAtATimeInOrder) {
  auto queue = kit::makeSerialQueue("serial");
  std::atomic<int> running{0}, maxRunning{0};
  std::vector<int> order;  // guarded by the queue's one-at-a-time promise
  std::atomic<int> done{0};
  for (int i = 0; i < 300; ++i) {
    queue->async([&, i] {
      int now = ++running;
      int seen = maxRunning.load();
      while (now > seen && !maxRunning.compare_exchange_weak(seen, now)) {}
      order.push_back(i);
      --running;
      ++done;
    });
  }
  ASSERT_TRUE(runUntil([&] { return done.load() == 300; }));
  EXPECT_EQ(maxRunning.load(), 1);
  for (int i = 0; i < 300; ++i) EXPECT_EQ(order[i], i);
}

TEST_F(ThreadedTest, SerialSyncWaitsForEarlierTasks) {
  auto queue = kit::makeSerialQueue("serial");
  std::vector<int> order;
  for (int i = 0; i < 50; ++i) queue->async([&, i] { order.push_back(i); });
  queue->sync([&] { order.push_back(-1); });
  ASSERT_EQ(order.size(), 51u);
  EXPECT_EQ(order.back(), -1);
  std::atomic<bool> fatal{false};
  queue->async([&] {
    try {
      queue->sync([] {});
    } catch (const kit::FatalError&) {
      fatal = true;
    }
  });
  queue->sync([] {});
  EXPECT_TRUE(fatal.load());
}

TEST_F(ThreadedTest, SyncOntoMainFromAWorkerRunsOnMain) {
  std::atomic<bool> ranOnMain{false}, finished{false};
  kit::globalQueue(kit::QoS::Utility).async([&] {
    kit::mainQueue().sync([&] { ranOnMain = kit::isMainThread(); });
    finished = true;
  });
  ASSERT_TRUE(runUntil([&] { return finished.load(); }));
  EXPECT_TRUE(ranOnMain.load());
  EXPECT_THROW(kit::mainQueue().sync([] {}), kit::FatalError);
}

TEST_F(ThreadedTest, DelayedTasksWithEqualDueTimesKeepPostingOrder) {
  std::vector<int> order;
  for (int i = 0; i < 20; ++i) kit::mainQueue().asyncAfter(0.05, [&, i] { order.push_back(i); });
  kit::mainQueue().asyncAfter(0.01, [&] { order.push_back(-1); });
  ASSERT_TRUE(runUntil([&] { return order.size() == 21; }));
  EXPECT_EQ(order.front(), -1);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(order[i + 1], i);
}

TEST_F(ThreadedTest, DelayedBackgroundWorkReachesItsQueue) {
  auto queue = kit::makeSerialQueue("delayed");
  std::atomic<int> n{0};
  queue->asyncAfter(0.02, [&] { n += 1; });
  kit::globalQueue(kit::QoS::Background).asyncAfter(0.01, [&] { n += 10; });
  ASSERT_TRUE(runUntil([&] { return n.load() == 11; }));
}

TEST_F(ThreadedTest, RepeatingTimerFiresUntilInvalidatedOneShotOnce) {
  int repeats = 0, once = 0;
  std::shared_ptr<kit::Timer> repeating = kit::scheduledTimer(0.01, true, [&](kit::Timer& t) {
    EXPECT_TRUE(kit::isMainThread());
    if (++repeats == 5) t.invalidate();
  });
  auto oneShot = kit::scheduledTimer(0.01, false, [&](kit::Timer&) { ++once; });
  ASSERT_TRUE(runUntil([&] { return !repeating->isValid() && !oneShot->isValid(); }));
  // Give a stray extra firing the chance to show itself.
  bool waited = false;
  kit::mainQueue().asyncAfter(0.05, [&] { waited = true; });
  ASSERT_TRUE(runUntil([&] { return waited; }));
  EXPECT_EQ(repeats, 5);
  EXPECT_EQ(once, 1);
}

TEST_F(ThreadedTest, QuitEndsRun) {
  kit::globalQueue(kit::QoS::Default).async([&] { kit::mainQueue().async([&] { loop.quit(); }); });
  loop.run();
  SUCCEED();
}

TEST_F(ThreadedTest, ClockIsTheSystemsWallClock) {
  double now = kit::Environment::current().now();
  EXPECT_GT(now, 1.7e9);
  double a = kit::uptime(), b = kit::uptime();
  EXPECT_LE(a, b);
}

TEST_F(ThreadedTest, BackgroundIsIdleOnlyOnceChainedWorkIsDone) {
  EXPECT_TRUE(env.isBackgroundIdle());
  // A global task that waits, then hands work to a serial queue, which hands delayed work
  // back to a global queue: idle may be seen only after the last link ran.
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  auto serial = kit::makeSerialQueue("chain");
  std::atomic<int> links{0};
  kit::globalQueue(kit::QoS::Background).async([&, released] {
    released.wait();
    ++links;
    serial->async([&] {
      ++links;
      kit::globalQueue(kit::QoS::Utility).asyncAfter(0.01, [&] { ++links; });
    });
  });
  EXPECT_FALSE(env.isBackgroundIdle());
  release.set_value();
  ASSERT_TRUE(runUntil([&] { return env.isBackgroundIdle(); }));
  EXPECT_EQ(links.load(), 3);
}

TEST_F(ThreadedTest, StandaloneLoopCountsWaitingTasks) {
  EXPECT_EQ(loop.pendingCount(), 0u);
  kit::mainQueue().async([] {});
  kit::mainQueue().asyncAfter(30, [] {});
  EXPECT_EQ(loop.pendingCount(), 2u);
  ASSERT_TRUE(runUntil([&] { return loop.pendingCount() == 1; }));
}

}  // namespace

// Copy-on-write arrays handed from a writer thread to the main thread while the writer keeps
// appending: every snapshot keeps exactly its prefix.
#include "kit/AtomicShared.h"
#include "kit/CowArray.h"

namespace {

TEST_F(ThreadedTest, CowArraySnapshotsCrossThreadsSafely) {
  using Array = kit::CowArray<std::shared_ptr<const int>>;
  kit::AtomicShared<const Array> published;
  std::atomic<bool> done{false};
  std::atomic<int> checked{0};
  kit::globalQueue(kit::QoS::Background).async([&] {
    Array array;
    for (int i = 0; i < 3000; ++i) {
      array.append(std::make_shared<const int>(i));
      published.store(std::make_shared<const Array>(array));
      if (i % 100 == 0) {
        kit::mainQueue().async([&, copy = array] {
          for (std::size_t k = 0; k < copy.size(); ++k) ASSERT_EQ(*copy[k], static_cast<int>(k));
          ++checked;
        });
      }
    }
    done = true;
  });
  ASSERT_TRUE(runUntil([&] {
    if (auto snapshot = published.load()) {
      for (std::size_t k = 0; k < snapshot->size(); k += 7) EXPECT_EQ(*(*snapshot)[k], static_cast<int>(k));
    }
    return done.load() && checked.load() == 30;
  }));
}

}  // namespace
