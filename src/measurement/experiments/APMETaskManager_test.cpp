#include "measurement/experiments/APMETaskManager.h"

#include <gtest/gtest.h>

#include "measurement/APMError.h"
#include "measurement/events/APMIdentity.h"
#include "measurement/experiments/APMEExperimentsTestSupport.h"

namespace {

class APMETaskManagerTest : public APMEExperimentsTest {
 protected:
  // Starts the manager with "sdk" registered.
  void startWithSDK(std::shared_ptr<APMEClientDelegate> delegate = nullptr) {
    manager_->start();
    APMESDKProperty p = property("sdk", std::move(delegate));
    ASSERT_TRUE(manager_->registerSDKProperty(&p, {{"flag", std::int64_t{0}}}));
    env_.runUntilIdle();
  }
  std::vector<std::string> pendingNames() {
    std::vector<std::string> names;
    manager_->taskManager().workerQueue().sync([&] {
      auto all = manager_->taskManager().database()->snapshotsInTable(APMEDatabase::kPendingTable, nullptr);
      ASSERT_TRUE(all);
      for (auto& s : *all) names.push_back(s.SDKName + (s.manuallyActivated ? "(manual)" : ""));
    });
    return names;
  }
};

TEST_F(APMETaskManagerTest, TheFirstFetchComesTenSecondsAfterStartThenEveryFourHours) {
  platform::DeviceFactsSnapshot facts;
  facts.osVersion = "12.4";
  facts.model = "x86_64";
  facts.language = "de-at";
  platform_.deviceFacts().setFacts(facts);
  double start = env_.now();
  startWithSDK();
  env_.advance(9.9);
  EXPECT_TRUE(fetches().empty());
  env_.advance(0.2);
  auto sent = fetches();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].method, "POST");
  EXPECT_FALSE(sent[0].usingBackgroundSession);
  EXPECT_TRUE(monitor_.contains("Fetching new experiments. Request"));
  auto request = APMPBMessage<APMPBExperimentRequest>::parseFromData(sent[0].payload);
  ASSERT_TRUE(request);
  EXPECT_EQ(APMPBString((*request)->app_property.platform), "ios");
  EXPECT_EQ(APMPBString((*request)->app_property.device_model), "x86_64");
  EXPECT_EQ(APMPBString((*request)->app_property.os_version), "12.4");
  EXPECT_EQ(APMPBString((*request)->app_property.user_language), "de-at");
  EXPECT_EQ((*request)->app_property.version, kAPMLibraryVersion);
  ASSERT_EQ((*request)->client_properties_count, 1u);
  const APMPBClientProperty& client = (*request)->client_properties[0];
  EXPECT_EQ(APMPBString(client.sdk_name), "sdk");
  EXPECT_EQ(APMPBString(client.app_id), "app-1");
  EXPECT_EQ(client.version, 3);
  EXPECT_EQ(APMPBString(client.diversion_key), "div");
  ASSERT_EQ(client.custom_properties_count, 1u);
  EXPECT_EQ(APMPBString(client.custom_properties[0].value), "v");

  // The empty 200 is a success: the next fetch is four hours after it.
  EXPECT_NEAR(manager_->taskManager().lastSuccessTimestamp(), start + 10, 1e-3);
  env_.advance(14399);
  EXPECT_EQ(fetches().size(), 1u);
  env_.advance(2);
  EXPECT_EQ(fetches().size(), 2u);
}

TEST_F(APMETaskManagerTest, FailuresRetryAfterDoublingWaitsAndASeventhRetryNeverHappens) {
  platform_.network().setDefaultAnswer(sim::answer(500));
  double start = env_.now();
  startWithSDK();
  env_.advance(10.1);
  ASSERT_EQ(fetches().size(), 1u);
  // Retries counted from the start (nothing ever succeeded): 1800, +3600, +7200, ...
  double due = start;
  for (int retry = 0; retry < 6; ++retry) {
    due += 1800 * (1 << retry);
    env_.advance(due - 0.5 - env_.now());
    EXPECT_EQ(fetches().size(), static_cast<std::size_t>(retry + 1)) << retry;
    env_.advance(1);
    EXPECT_EQ(fetches().size(), static_cast<std::size_t>(retry + 2)) << retry;
  }
  EXPECT_TRUE(monitor_.contains("Network attempted too many times. Will not schedule new network."));
  env_.advance(30 * 86400);
  EXPECT_EQ(fetches().size(), 7u);
  EXPECT_EQ(manager_->taskManager().lastSuccessTimestamp(), 0);
  EXPECT_GT(manager_->taskManager().lastFailureTimestamp(), 0);
}

TEST_F(APMETaskManagerTest, A503OrA429HoldsTheNextFetchForTwelveHours) {
  for (int status : {503, 429}) {
    platform_.network().setDefaultAnswer(sim::answer(status));
    restart();
    manager_->reset();
    std::size_t before = fetches().size();
    startWithSDK();
    env_.advance(10.1);
    ASSERT_EQ(fetches().size(), before + 1) << status;
    double failedAt = manager_->taskManager().lastBackoffTimestamp();
    EXPECT_NEAR(failedAt, env_.now() - 0.1, 1e-3) << status;
    EXPECT_TRUE(monitor_.contains("Network fetch failed. Will retry later. Code, error"));
    env_.advance(failedAt + 43200 - 1 - env_.now());
    EXPECT_EQ(fetches().size(), before + 1) << status;
    env_.advance(2);
    EXPECT_EQ(fetches().size(), before + 2) << status;
  }
}

TEST_F(APMETaskManagerTest, AGoodAnswerFillsPendingAndLaunchedAndTellsTheDelegate) {
  auto delegate = std::make_shared<APMETestDelegate>();
  platform_.network().enqueue(APMEAnswer({{"sdk", 11, "flag", std::int64_t{5}},
                                          {"other", 12, "x", true}},
                                         {{"sdk", 13, "flag", std::int64_t{9}}}));
  startWithSDK(delegate);
  env_.advance(10.1);
  ASSERT_EQ(fetches().size(), 1u);
  // The SDK with a delegate activates its snapshot itself; the one nobody registered waits
  // for the next start.
  EXPECT_EQ(pendingNames(), (std::vector<std::string>{"sdk(manual)", "other"}));
  EXPECT_EQ(delegate->received, std::vector<std::string>{"sdk"});
  EXPECT_EQ(manager_->activatedSnapshotStatusOfSDKName("sdk"), kAPMESnapshotStatusPending);
  APMEFlagSource source{};
  EXPECT_EQ(manager_->flagValueForFlagName("flag", "sdk", &source), APMEFlagValue(std::int64_t{9}));
  EXPECT_EQ(source, APMEFlagSource::Launched);
  EXPECT_EQ(manager_->taskManager().lastFailureTimestamp(), 0);

  // A delegate that declines is left out of the next request, which then has nobody to ask
  // for.
  delegate->fetch = false;
  env_.advance(14401);
  EXPECT_EQ(fetches().size(), 1u);
  EXPECT_TRUE(monitor_.contains("No experiments to fetch now. SDK count, host"));
}

TEST_F(APMETaskManagerTest, OfflineLooksAgainLaterWithoutCountingAFailure) {
  platform_.network().setConnected(false);
  startWithSDK();
  env_.advance(10.1);
  EXPECT_TRUE(fetches().empty());
  EXPECT_TRUE(monitor_.contains("No network. Experiments will be fetched later. Seconds"));
  EXPECT_EQ(manager_->taskManager().lastFailureTimestamp(), 0);
  platform_.network().setConnected(true);
  env_.advance(1799);
  EXPECT_TRUE(fetches().empty());
  env_.advance(2);
  EXPECT_EQ(fetches().size(), 1u);
}

TEST_F(APMETaskManagerTest, AnswersThatDoNotInflateOrParseOrArriveAreFailures) {
  auto delegate = std::make_shared<APMETestDelegate>();
  sim::NetworkAnswer notGzip = sim::answer(200);
  notGzip.body = {'n', 'o', 't', ' ', 'g', 'z'};
  sim::NetworkAnswer notProto = sim::answer(200);
  kit::Data garbage = {0xff, 0xff, 0xff, 0xff};
  notProto.body = *APMGzipData(garbage, nullptr);
  platform_.network().enqueue(notGzip);
  platform_.network().enqueue(notProto);
  platform_.network().enqueue(sim::connectionFailure());
  startWithSDK(delegate);
  env_.advance(10.1);
  EXPECT_TRUE(monitor_.contains("Cannot inflate downloaded experiment data. Error"));
  env_.advance(1800);
  EXPECT_TRUE(monitor_.contains("Cannot parse downloaded experiment data. Error"));
  env_.advance(3600);
  ASSERT_EQ(fetches().size(), 3u);
  EXPECT_EQ(delegate->errors.size(), 3u);
  EXPECT_EQ(delegate->codes, (std::vector<int>{kAPMErrorCodeFailedStep, kAPMErrorCodeFailedStep,
                                               kAPMErrorCodeFailedStep}));
  EXPECT_TRUE(pendingNames().empty());
  EXPECT_EQ(manager_->taskManager().lastSuccessTimestamp(), 0);
  EXPECT_EQ(manager_->taskManager().lastBackoffTimestamp(), 0);
}

}  // namespace
