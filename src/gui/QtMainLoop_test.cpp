#include "gui/QtMainLoop.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <atomic>
#include <thread>
#include <vector>

namespace {

bool spin(const std::function<bool()>& done) {
  QElapsedTimer timer;
  timer.start();
  while (!done() && timer.elapsed() < 10000) QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
  return done();
}

TEST(QtMainLoopTest, TasksFromOtherThreadsRunOnTheGuiThreadInOrder) {
  gui::QtMainLoop loop;
  std::vector<int> seen;
  std::atomic<bool> wrongThread{false};
  std::thread poster([&] {
    for (int i = 0; i < 200; ++i) {
      loop.post([&, i] {
        if (!loop.isLoopThread()) wrongThread = true;
        seen.push_back(i);
      });
    }
  });
  poster.join();
  ASSERT_TRUE(spin([&] { return seen.size() == 200; }));
  EXPECT_FALSE(wrongThread.load());
  for (int i = 0; i < 200; ++i) EXPECT_EQ(seen[i], i);
  EXPECT_EQ(loop.pendingCount(), 0);
}

TEST(QtMainLoopTest, DelayedTasksKeepDueAndPostingOrder) {
  gui::QtMainLoop loop;
  std::vector<int> seen;
  for (int i = 0; i < 10; ++i) loop.postAfter(0.03, [&, i] { seen.push_back(i); });
  loop.postAfter(0.01, [&] { seen.push_back(-1); });
  ASSERT_TRUE(spin([&] { return seen.size() == 11; }));
  EXPECT_EQ(seen.front(), -1);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(seen[i + 1], i);
}

TEST(QtMainLoopTest, AFloodOfTasksLetsOtherEventsIn) {
  gui::QtMainLoop loop;
  std::vector<int> seen;
  for (int i = 0; i < 40; ++i) {
    loop.post([&, i] {
      seen.push_back(i);
      QThread::msleep(2);
    });
  }
  // Posted after all forty, but not left waiting behind all of them.
  int seenWhenOtherRan = -1;
  QMetaObject::invokeMethod(qApp, [&] { seenWhenOtherRan = static_cast<int>(seen.size()); }, Qt::QueuedConnection);
  ASSERT_TRUE(spin([&] { return seen.size() == 40 && seenWhenOtherRan >= 0; }));
  EXPECT_LT(seenWhenOtherRan, 40);
  for (int i = 0; i < 40; ++i) EXPECT_EQ(seen[i], i);
}

}  // namespace
