#include "measurement/experiments/APMEDatabase.h"

#include <gtest/gtest.h>

#include <fstream>

#include "measurement/APMMonitor.h"
#include "measurement/store/APMStoreTestSupport.h"
#include "sim/Environment.h"

namespace {

APMESnapshot snapshot(const std::string& sdk, std::int32_t id, const std::string& flag,
                      APMEFlagValue value, bool manual = false) {
  APMESnapshot s;
  s.SDKName = sdk;
  s.manuallyActivated = manual;
  s.experiments.push_back({id, {{flag, std::move(value)}}});
  return s;
}

class APMEDatabaseTest : public ::testing::Test {
 protected:
  std::unique_ptr<APMEDatabase> open() {
    platform::Error error;
    auto db = APMEDatabase::initWithDatabasePath(path_, &error);
    EXPECT_TRUE(db) << error.localizedDescription;
    return db;
  }
  std::vector<std::string> names(APMEDatabase& db, const char* table) {
    std::vector<std::string> out;
    auto all = db.snapshotsInTable(table, nullptr);
    EXPECT_TRUE(all);
    for (auto& s : *all) out.push_back(s.SDKName);
    return out;
  }

  sim::Environment env_;
  APMTemporaryFolder folder_;
  APMMonitorCapture monitor_;
  std::string path_ = folder_.path() + "/" + APMEDatabase::kDatabaseName;
};

TEST_F(APMEDatabaseTest, ThreeTablesOfOneShape) {
  auto db = open();
  for (const char* table : {APMEDatabase::kPendingTable, APMEDatabase::kActivatedTable,
                            APMEDatabase::kLaunchedTable}) {
    auto info = db->store().columnInfoForTableWithName(table, nullptr);
    ASSERT_TRUE(info) << table;
    std::vector<std::pair<std::string, std::string>> columns;
    for (auto& row : *info) columns.emplace_back(*row.at("name").asString(), *row.at("type").asString());
    EXPECT_EQ(columns, (std::vector<std::pair<std::string, std::string>>{
                           {"sdk_name", "TEXT"}, {"snapshotProto", "BLOB"}, {"timestamp", "REAL"},
                           {"manually_activated", "INTEGER"}}))
        << table;
  }
}

TEST_F(APMEDatabaseTest, SnapshotsRoundTripWithEveryKindOfValue) {
  auto db = open();
  APMESnapshot s;
  s.SDKName = "sdk";
  s.experiments.push_back({7, {{"i", std::int64_t{-3}}, {"s", std::string("on")}}});
  s.experiments.push_back({8, {{"d", 0.25}, {"b", true}}});
  ASSERT_TRUE(db->upsertPendingExperimentSnapshots({s}, 100, nullptr));
  auto stored = db->snapshotOfSDK(APMEDatabase::kPendingTable, "sdk", nullptr);
  ASSERT_TRUE(stored && *stored);
  const APMESnapshot& back = **stored;
  EXPECT_DOUBLE_EQ(back.timestamp, 100);
  ASSERT_EQ(back.experiments.size(), 2u);
  EXPECT_EQ(back.experiments[1].experimentID, 8);
  EXPECT_EQ(back.flagValueForFlagName("i"), APMEFlagValue(std::int64_t{-3}));
  EXPECT_EQ(back.flagValueForFlagName("s"), APMEFlagValue(std::string("on")));
  EXPECT_EQ(back.flagValueForFlagName("d"), APMEFlagValue(0.25));
  EXPECT_EQ(back.flagValueForFlagName("b"), APMEFlagValue(true));
  EXPECT_FALSE(back.flagValueForFlagName("missing"));
}

TEST_F(APMEDatabaseTest, ActivationMovesThePendingRowAndRefusesAnEmptySnapshot) {
  auto db = open();
  ASSERT_TRUE(db->upsertPendingExperimentSnapshots(
      {snapshot("a", 1, "f", std::int64_t{1}), snapshot("b", 2, "f", std::int64_t{2})}, 10, nullptr));
  ASSERT_TRUE(db->activateSnapshot(snapshot("a", 3, "f", std::int64_t{3}), 20, nullptr));
  EXPECT_EQ(names(*db, APMEDatabase::kPendingTable), std::vector<std::string>{"b"});
  auto active = db->snapshotOfSDK(APMEDatabase::kActivatedTable, "a", nullptr);
  ASSERT_TRUE(active && *active);
  EXPECT_EQ((*active)->experiments[0].experimentID, 3);
  EXPECT_DOUBLE_EQ((*active)->timestamp, 20);

  APMESnapshot empty;
  empty.SDKName = "b";
  empty.experiments.push_back({4, {}});
  platform::Error error;
  EXPECT_FALSE(db->activateSnapshot(empty, 30, &error));
  EXPECT_EQ(error.localizedDescription, "Cannot activate an empty snapshot");
  EXPECT_TRUE(monitor_.contains("Cannot activate an empty snapshot"));
  EXPECT_EQ(names(*db, APMEDatabase::kPendingTable), std::vector<std::string>{"b"});
}

TEST_F(APMEDatabaseTest, StartRulesAutomaticActivationExpiryAndReset) {
  auto db = open();
  ASSERT_TRUE(db->upsertPendingExperimentSnapshots(
      {snapshot("auto", 1, "f", true), snapshot("manual", 2, "f", true, true)}, 10, nullptr));
  auto activated = db->activatePendingSnapshotsAutomatically(50, nullptr);
  ASSERT_TRUE(activated);
  EXPECT_EQ(*activated, 1);
  EXPECT_EQ(names(*db, APMEDatabase::kPendingTable), std::vector<std::string>{"manual"});
  EXPECT_EQ(names(*db, APMEDatabase::kActivatedTable), std::vector<std::string>{"auto"});

  ASSERT_TRUE(db->activateSnapshot(snapshot("later", 3, "f", false), 60, nullptr));
  auto deleted = db->deleteActivatedSnapshotsNotAfter(50, nullptr);
  ASSERT_TRUE(deleted);
  EXPECT_EQ(*deleted, 1);
  EXPECT_EQ(names(*db, APMEDatabase::kActivatedTable), std::vector<std::string>{"later"});

  ASSERT_TRUE(db->upsertLaunchedSnapshot(snapshot("later", 4, "f", true), 70, nullptr));
  ASSERT_TRUE(db->upsertPendingExperimentSnapshots({snapshot("later", 5, "f", true)}, 70, nullptr));
  ASSERT_TRUE(db->resetSDK("later", nullptr));
  for (const char* table : {APMEDatabase::kPendingTable, APMEDatabase::kActivatedTable,
                            APMEDatabase::kLaunchedTable}) {
    for (const std::string& name : names(*db, table)) EXPECT_NE(name, "later") << table;
  }
  EXPECT_EQ(names(*db, APMEDatabase::kPendingTable), std::vector<std::string>{"manual"});
}

TEST_F(APMEDatabaseTest, ADamagedFileIsReplacedAndAnUndecodableRowIsSkipped) {
  {
    auto db = open();
    ASSERT_TRUE(db->upsertPendingExperimentSnapshots({snapshot("a", 1, "f", true)}, 10, nullptr));
    ASSERT_TRUE(db->store().upsertRecord({{"sdk_name", "bad"},
                                          {"snapshotProto", kit::Data{0xff, 0xff, 0xff}},
                                          {"timestamp", 1.0},
                                          {"manually_activated", 0}},
                                         APMEDatabase::kPendingTable, nullptr));
    EXPECT_EQ(names(*db, APMEDatabase::kPendingTable), std::vector<std::string>{"a"});
    // The undecodable row is dropped by the automatic activation, the good one activated.
    auto activated = db->activatePendingSnapshotsAutomatically(20, nullptr);
    ASSERT_TRUE(activated);
    EXPECT_EQ(*activated, 1);
    EXPECT_EQ(db->store().rowCountForTableWithName(APMEDatabase::kPendingTable, nullptr), 0);
  }
  {
    std::ofstream damage(path_, std::ios::binary | std::ios::trunc);
    damage << std::string(8192, '\x5a');
  }
  auto db = open();
  ASSERT_TRUE(db);
  EXPECT_TRUE(monitor_.contains("Experiment database is damaged. Recreating it. Error"));
  EXPECT_TRUE(names(*db, APMEDatabase::kActivatedTable).empty());
  ASSERT_TRUE(db->upsertPendingExperimentSnapshots({snapshot("a", 1, "f", true)}, 10, nullptr));
}

}  // namespace
