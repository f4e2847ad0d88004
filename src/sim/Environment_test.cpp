#include "sim/Environment.h"

#include <gtest/gtest.h>

#include "kit/Date.h"
#include "kit/Fatal.h"

namespace {

TEST(SimEnvironmentTest, AdvanceRunsWorkThatDelayedTasksMakeReady) {
  sim::Environment env;
  std::vector<std::string> log;
  kit::globalQueue(kit::QoS::Background).asyncAfter(1.0, [&] {
    log.push_back("bg@" + std::to_string(static_cast<int>(kit::uptime() - 1000)));
    kit::mainQueue().async([&] { log.push_back("main"); });
    kit::mainQueue().asyncAfter(0.5, [&] { log.push_back("later"); });
  });
  env.advance(1.0);
  EXPECT_EQ(log, (std::vector<std::string>{"bg@1", "main"}));
  env.advance(0.5);
  EXPECT_EQ(log.back(), "later");
}

TEST(SimEnvironmentTest, EagerMainRunsMainWorkInsideBackgroundWork) {
  sim::Environment env;
  env.setEagerMain(true);
  std::vector<std::string> log;
  kit::globalQueue(kit::QoS::Background).async([&] {
    kit::mainQueue().async([&] { log.push_back(kit::isMainThread() ? "main" : "not main"); });
    log.push_back(kit::isMainThread() ? "bg on main?" : "bg");
  });
  kit::mainQueue().async([&] { log.push_back("first"); });
  env.runBackground();
  EXPECT_EQ(log, (std::vector<std::string>{"first", "main", "bg"}));
}

TEST(SimEnvironmentTest, EachEnvironmentStartsFromFreshState) {
  {
    sim::Environment env;
    env.setTimeZone(kit::TimeZone::fixed(7200, "EET"));
    EXPECT_EQ(kit::TimeZone::defaultTimeZone()->secondsFromGMTForDate(kit::Date{}), 7200);
  }
  sim::Environment env;
  EXPECT_EQ(kit::TimeZone::defaultTimeZone()->secondsFromGMTForDate(kit::Date{}), 0);
  EXPECT_DOUBLE_EQ(kit::Date::now().timeIntervalSince1970, sim::Environment::kDefaultStart);
}

TEST(SimEnvironmentTest, OnlyOneEnvironmentAtATime) {
  sim::Environment env;
  EXPECT_THROW({ sim::Environment second; }, kit::FatalError);
}

}  // namespace
