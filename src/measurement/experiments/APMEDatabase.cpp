#include "measurement/experiments/APMEDatabase.h"

#include <filesystem>

#include "measurement/APMError.h"
#include "measurement/APMMonitor.h"

namespace {

enum : int {
  kCodeOpenFailed = 8101,
  kCodeRecreated = 8102,
  kCodeBadRow = 8103,
  kCodeEmptySnapshot = 8104,
};

const APMSqliteStore::ColumnInfo kElementaryColumns = {
    {"sdk_name", "TEXT NOT NULL PRIMARY KEY"},
    {"snapshotProto", "BLOB NOT NULL"},
    {"timestamp", "REAL NOT NULL"},
};
const APMSqliteStore::ColumnInfo kAddOnColumns = {{"manually_activated", "INTEGER"}};

void removeDatabaseFiles(const std::string& path) {
  std::error_code ec;
  for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
    std::filesystem::remove(path + suffix, ec);
  }
}

}  // namespace

std::unique_ptr<APMEDatabase> APMEDatabase::initWithDatabasePath(const std::string& path,
                                                                 platform::Error* error) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    platform::Error local;
    auto store = APMSqliteStore::initWithDatabasePath(path, &local);
    if (store) {
      std::unique_ptr<APMEDatabase> database(new APMEDatabase(std::move(store)));
      if (database->ensureTables(&local)) return database;
      database.reset();
    }
    if (error) *error = local;
    if (attempt == 0) {
      // The file holds nothing but copies of what the server sends again: a damaged one is
      // replaced rather than kept.
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeRecreated,
                      "Experiment database is damaged. Recreating it. Error",
                      local.localizedDescription);
      removeDatabaseFiles(path);
    }
  }
  APMMonitor::log(kAPMMonitorLevelError, kCodeOpenFailed,
                  "Failed to open experiment database. Error",
                  error ? error->localizedDescription : std::string());
  return nullptr;
}

bool APMEDatabase::ensureTables(platform::Error* error) {
  for (const char* table : {kPendingTable, kActivatedTable, kLaunchedTable}) {
    if (!store_->ensureTableWithName(table, kElementaryColumns, kAddOnColumns, {}, error)) {
      return false;
    }
  }
  return true;
}

bool APMEDatabase::insertRow(const std::string& table, const APMESnapshot& snapshot,
                             double timestamp, platform::Error* error) {
  auto bytes = snapshot.snapshotProto(error);
  if (!bytes) return false;
  return store_->upsertRecord({{"sdk_name", snapshot.SDKName},
                               {"snapshotProto", std::move(*bytes)},
                               {"timestamp", timestamp},
                               {"manually_activated", snapshot.manuallyActivated ? 1 : 0}},
                              table, error);
}

bool APMEDatabase::upsertPendingExperimentSnapshots(const std::vector<APMESnapshot>& snapshots,
                                                    double timestamp, platform::Error* error) {
  return store_->performTransactionWithError(error, [&] {
    for (const APMESnapshot& snapshot : snapshots) {
      if (!insertRow(kPendingTable, snapshot, timestamp, error)) return false;
    }
    return true;
  });
}

bool APMEDatabase::upsertLaunchedSnapshot(const APMESnapshot& snapshot, double timestamp,
                                          platform::Error* error) {
  return insertRow(kLaunchedTable, snapshot, timestamp, error);
}

bool APMEDatabase::activateSnapshot(const APMESnapshot& snapshot, double timestamp,
                                    platform::Error* error) {
  if (snapshot.isEmpty()) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeEmptySnapshot,
                    "Cannot activate an empty snapshot", snapshot.SDKName);
    return APMSetError(error, kAPMErrorCodeInvalidArgument, "Cannot activate an empty snapshot");
  }
  APMESnapshot activated = snapshot;
  activated.manuallyActivated = false;
  return store_->performTransactionWithError(error, [&] {
    return store_->deleteRecordFromTableWithName(kActivatedTable, "sdk_name", snapshot.SDKName,
                                                 error) &&
           insertRow(kActivatedTable, activated, timestamp, error) &&
           store_->deleteRecordFromTableWithName(kPendingTable, "sdk_name", snapshot.SDKName,
                                                 error);
  });
}

std::optional<int> APMEDatabase::activatePendingSnapshotsAutomatically(double timestamp,
                                                                       platform::Error* error) {
  auto rows = store_->recordsForQuery(
      "SELECT rowid,* FROM pending_snapshot_table WHERE NOT manually_activated = ? ORDER BY rowid",
      {1}, error);
  if (!rows) return std::nullopt;
  int activated = 0;
  for (const auto& row : *rows) {
    const std::string* name = row.at("sdk_name").asString();
    const kit::Data* bytes = row.at("snapshotProto").asData();
    platform::Error parseError;
    auto snapshot = bytes ? APMESnapshot::fromData(*bytes, &parseError) : std::nullopt;
    if (!snapshot || snapshot->isEmpty()) {
      if (!snapshot) {
        APMMonitor::log(kAPMMonitorLevelWarning, kCodeBadRow,
                        "Dropping a pending snapshot that does not decode. SDK name",
                        name ? *name : std::string());
      }
      if (name && !store_->deleteRecordFromTableWithName(kPendingTable, "sdk_name", *name, error)) {
        return std::nullopt;
      }
      continue;
    }
    if (!activateSnapshot(*snapshot, timestamp, error)) return std::nullopt;
    ++activated;
  }
  return activated;
}

std::optional<std::int64_t> APMEDatabase::deleteActivatedSnapshotsNotAfter(double timestamp,
                                                                           platform::Error* error) {
  return store_->deleteRecordsFromTableWithName(kActivatedTable, "timestamp <= ?", {timestamp},
                                                error);
}

std::optional<std::vector<APMESnapshot>> APMEDatabase::snapshotsInTable(const std::string& table,
                                                                        platform::Error* error) {
  auto rows = store_->recordsForQuery("SELECT * FROM " + table + " ORDER BY rowid", {}, error);
  if (!rows) return std::nullopt;
  std::vector<APMESnapshot> snapshots;
  for (const auto& row : *rows) {
    const kit::Data* bytes = row.at("snapshotProto").asData();
    platform::Error parseError;
    auto snapshot = bytes ? APMESnapshot::fromData(*bytes, &parseError) : std::nullopt;
    if (!snapshot) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeBadRow,
                      "Skipping a stored snapshot that does not decode. Table", table);
      continue;
    }
    const std::string* name = row.at("sdk_name").asString();
    if (name) snapshot->SDKName = *name;
    snapshot->timestamp = row.at("timestamp").numberAsReal().value_or(0);
    auto manual = row.count("manually_activated") ? row.at("manually_activated").numberAsInteger()
                                                  : std::nullopt;
    snapshot->manuallyActivated = manual.value_or(0) == 1;
    snapshots.push_back(std::move(*snapshot));
  }
  return snapshots;
}

std::optional<std::optional<APMESnapshot>> APMEDatabase::snapshotOfSDK(const std::string& table,
                                                                       const std::string& SDKName,
                                                                       platform::Error* error) {
  auto all = snapshotsInTable(table, error);
  if (!all) return std::nullopt;
  for (APMESnapshot& snapshot : *all) {
    if (snapshot.SDKName == SDKName) return std::optional<APMESnapshot>(std::move(snapshot));
  }
  return std::optional<APMESnapshot>();
}

bool APMEDatabase::resetSDK(const std::string& SDKName, platform::Error* error) {
  return store_->performTransactionWithError(error, [&] {
    for (const char* table : {kPendingTable, kActivatedTable, kLaunchedTable}) {
      if (!store_->deleteRecordFromTableWithName(table, "sdk_name", SDKName, error)) return false;
    }
    return true;
  });
}
