#include "measurement/experiments/APMEManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "measurement/experiments/APMEExperimentsTestSupport.h"

namespace {

APMESnapshot snapshotOf(const std::string& sdk, std::int32_t id, APMEManager::Flags flags,
                        bool manual = false) {
  APMESnapshot s;
  s.SDKName = sdk;
  s.manuallyActivated = manual;
  s.experiments.push_back({id, std::move(flags)});
  return s;
}

class APMEManagerTest : public APMEExperimentsTest {
 protected:
  // Writes rows straight into the database file, as an earlier process left them.
  void store(const char* table, const APMESnapshot& s, double timestamp) {
    platform::Error error;
    auto db = APMEDatabase::initWithDatabasePath(folder_.path() + "/" + APMEDatabase::kDatabaseName, &error);
    ASSERT_TRUE(db) << error.localizedDescription;
    if (std::string(table) == APMEDatabase::kPendingTable) {
      ASSERT_TRUE(db->upsertPendingExperimentSnapshots({s}, timestamp, nullptr));
    } else if (std::string(table) == APMEDatabase::kLaunchedTable) {
      ASSERT_TRUE(db->upsertLaunchedSnapshot(s, timestamp, nullptr));
    } else {
      ASSERT_TRUE(db->activateSnapshot(s, timestamp, nullptr));
    }
  }
  std::shared_ptr<APMEClient> registerSDK(const std::string& name, APMEManager::Flags flags) {
    APMESDKProperty p = property(name);
    return manager_->registerSDKProperty(&p, flags);
  }
};

TEST_F(APMEManagerTest, RegistrationRefusesBadPropertiesAndWarnsOnASecondOne) {
  EXPECT_FALSE(manager_->registerSDKProperty(nullptr, {}));
  EXPECT_TRUE(monitor_.contains("Cannot register client with a nil SDK property"));
  EXPECT_FALSE(registerSDK("", {}));
  EXPECT_TRUE(monitor_.contains("Cannot register experiment client with no SDK name"));
  EXPECT_FALSE(registerSDK("sdk", {{"", true}}));
  EXPECT_FALSE(registerSDK("sdk", {{"nan", std::nan("")}}));
  EXPECT_EQ(monitor_.count("Cannot register experiment client invalid flags. Flag name, value"), 2);
  EXPECT_FALSE(manager_->clientForSDKName("sdk"));

  auto first = registerSDK("sdk", {{"a", std::int64_t{1}}});
  ASSERT_TRUE(first);
  auto second = registerSDK("sdk", {{"a", std::int64_t{2}}});
  EXPECT_EQ(first, second);
  EXPECT_EQ(manager_->clientForSDKName("sdk"), first);
  EXPECT_TRUE(monitor_.contains(
      "Registered an SDK that has already registered. Default flags will be overwritten. SDK name"));
  EXPECT_EQ(first->flagValueForFlagName("a"), APMEFlagValue(std::int64_t{2}));
}

TEST_F(APMEManagerTest, AFlagReadsActivatedThenLaunchedThenDefault) {
  store(APMEDatabase::kActivatedTable, snapshotOf("sdk", 21, {{"both", std::string("activated")}}), env_.now());
  store(APMEDatabase::kLaunchedTable,
        snapshotOf("sdk", 22, {{"both", std::string("launched")}, {"launched_only", 0.5}}), env_.now());
  manager_->start();
  auto client = registerSDK("sdk", {{"both", std::string("default")},
                                    {"launched_only", 0.0},
                                    {"default_only", false}});
  ASSERT_TRUE(client);
  APMEFlagSource source{};
  EXPECT_EQ(manager_->flagValueForFlagName("both", "sdk", &source), APMEFlagValue(std::string("activated")));
  EXPECT_EQ(source, APMEFlagSource::Activated);
  EXPECT_EQ(manager_->flagValueForFlagName("launched_only", "sdk", &source), APMEFlagValue(0.5));
  EXPECT_EQ(source, APMEFlagSource::Launched);
  EXPECT_TRUE(monitor_.contains(
      "Cannot find activated flag. Looking for launched flag. SDK name, flag name, launched flag"));
  EXPECT_EQ(client->flagValueForFlagName("default_only"), APMEFlagValue(false));
  EXPECT_TRUE(monitor_.contains(
      "Cannot find launched flag. Returned the default flag value. SDK name, flag name, default flag"));
  EXPECT_EQ(manager_->experimentIDs(), std::vector<std::int32_t>{21});

  EXPECT_FALSE(manager_->flagValueForFlagName("both", "nobody"));
  EXPECT_TRUE(monitor_.contains("Cannot get flag for unregistered SDK. SDK name, flag name"));
  EXPECT_FALSE(manager_->flagValueForFlagName("unknown", "sdk"));
  EXPECT_TRUE(monitor_.contains("Cannot get flag for unregistered flag. SDK name, flag name"));
}

TEST_F(APMEManagerTest, AtStartOldActivationsExpireAndOnlyAutomaticPendingRowsActivate) {
  double day = 86400;
  // Activated four days ago, launched value underneath.
  store(APMEDatabase::kActivatedTable, snapshotOf("old", 1, {{"f", std::int64_t{1}}}), env_.now() - 4 * day);
  store(APMEDatabase::kLaunchedTable, snapshotOf("old", 2, {{"f", std::int64_t{2}}}), env_.now() - 4 * day);
  // Activated two days ago: kept.
  store(APMEDatabase::kActivatedTable, snapshotOf("recent", 3, {{"f", std::int64_t{3}}}), env_.now() - 2 * day);
  store(APMEDatabase::kPendingTable, snapshotOf("auto", 4, {{"f", std::int64_t{4}}}), env_.now());
  store(APMEDatabase::kPendingTable, snapshotOf("manual", 5, {{"f", std::int64_t{5}}}, true), env_.now());
  manager_->start();
  for (const char* sdk : {"old", "recent", "auto", "manual", "none"}) registerSDK(sdk, {{"f", std::int64_t{0}}});
  EXPECT_EQ(manager_->flagValueForFlagName("f", "old"), APMEFlagValue(std::int64_t{2}));
  EXPECT_EQ(manager_->flagValueForFlagName("f", "recent"), APMEFlagValue(std::int64_t{3}));
  EXPECT_EQ(manager_->flagValueForFlagName("f", "auto"), APMEFlagValue(std::int64_t{4}));
  EXPECT_EQ(manager_->flagValueForFlagName("f", "manual"), APMEFlagValue(std::int64_t{0}));
  EXPECT_EQ(manager_->activatedSnapshotStatusOfSDKName("manual"), kAPMESnapshotStatusPending);
  EXPECT_EQ(manager_->activatedSnapshotStatusOfSDKName("auto"), kAPMESnapshotStatusActivated);
  EXPECT_EQ(manager_->activatedSnapshotStatusOfSDKName("none"), kAPMESnapshotStatusNone);
  auto ids = manager_->experimentIDs();
  std::sort(ids.begin(), ids.end());
  EXPECT_EQ(ids, (std::vector<std::int32_t>{3, 4}));

  // Two more days: "recent" is now more than three days old and is gone after a restart.
  restart(2 * day);
  manager_->start();
  registerSDK("recent", {{"f", std::int64_t{0}}});
  EXPECT_EQ(manager_->flagValueForFlagName("f", "recent"), APMEFlagValue(std::int64_t{0}));
}

TEST_F(APMEManagerTest, ManualActivationAndResetToDefaults) {
  store(APMEDatabase::kPendingTable, snapshotOf("sdk", 31, {{"f", true}}, true), env_.now());
  store(APMEDatabase::kLaunchedTable, snapshotOf("sdk", 32, {{"f", false}}), env_.now());
  manager_->start();
  auto client = registerSDK("sdk", {{"f", false}});
  registerSDK("idle", {{"f", false}});
  platform::Error error;
  EXPECT_FALSE(manager_->activateSnapshotOfSDK("idle", &error));
  EXPECT_TRUE(monitor_.contains("No pending snapshot to activate. SDK name"));
  EXPECT_EQ(error.localizedDescription, "No pending snapshot to activate");

  EXPECT_TRUE(client->activateSnapshot(&error));
  EXPECT_TRUE(monitor_.contains("Successfully activated a snapshot of SDK"));
  EXPECT_EQ(client->flagValueForFlagName("f"), APMEFlagValue(true));
  EXPECT_EQ(client->activatedSnapshotStatus(), kAPMESnapshotStatusActivated);
  EXPECT_EQ(manager_->experimentIDs(), std::vector<std::int32_t>{31});

  client->resetToDefaults();
  EXPECT_TRUE(monitor_.contains("Reset all experiments to default. SDK name"));
  EXPECT_EQ(client->flagValueForFlagName("f"), APMEFlagValue(false));
  EXPECT_TRUE(manager_->experimentIDs().empty());
  // Nothing comes back after a restart either.
  restart();
  manager_->start();
  client = registerSDK("sdk", {{"f", std::string("d")}});
  EXPECT_EQ(client->flagValueForFlagName("f"), APMEFlagValue(std::string("d")));
}

}  // namespace
