// APMEDatabase: the experiment client's store, "stuvop_experimentation_database.sql" beside
// the measurement database. Three tables of one shape keep one row per SDK each:
//   pending_snapshot_table    fetched, not yet in effect
//   activated_snapshot_table  in effect
//   launched_snapshot_table   in effect after the experiments, below the activated snapshot
// with the columns sdk_name (TEXT NOT NULL PRIMARY KEY), snapshotProto (BLOB NOT NULL, the
// serialised snapshot), timestamp (REAL NOT NULL, seconds) and the add-on manually_activated
// (INTEGER, 1 when the row waits for a manual activation).
//
// Threading: every call runs on the experiment worker queue; nothing here locks.
// Results: truth values or optionals, with `error` filled on failure (kAPMErrorDomain).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "measurement/experiments/APMESnapshot.h"
#include "measurement/store/APMSqliteStore.h"

class APMEDatabase {
 public:
  static constexpr const char* kDatabaseName = "stuvop_experimentation_database.sql";
  static constexpr const char* kPendingTable = "pending_snapshot_table";
  static constexpr const char* kActivatedTable = "activated_snapshot_table";
  static constexpr const char* kLaunchedTable = "launched_snapshot_table";

  // Opens (creating when absent) the database at `path` and ensures the three tables. A file
  // that fails its integrity check or whose tables cannot be validated is deleted and made
  // afresh once; nothing when that fails too.
  static std::unique_ptr<APMEDatabase> initWithDatabasePath(const std::string& path,
                                                            platform::Error* error);

  APMSqliteStore& store() { return *store_; }

  // Stores each snapshot as its SDK's pending row (replacing an older one), stamped
  // `timestamp`, with its manuallyActivated mark, in one transaction.
  bool upsertPendingExperimentSnapshots(const std::vector<APMESnapshot>& snapshots,
                                        double timestamp, platform::Error* error);
  // Stores `snapshot` as its SDK's launched row.
  bool upsertLaunchedSnapshot(const APMESnapshot& snapshot, double timestamp,
                              platform::Error* error);
  // In one transaction: deletes the SDK's activated row, inserts `snapshot` stamped
  // `timestamp`, deletes the SDK's pending row. An empty snapshot is refused ("Cannot
  // activate an empty snapshot").
  bool activateSnapshot(const APMESnapshot& snapshot, double timestamp, platform::Error* error);
  // Activates every pending row not marked manually_activated = 1, in row order, stamped
  // `timestamp`; returns how many. Empty pending rows are dropped without activation.
  std::optional<int> activatePendingSnapshotsAutomatically(double timestamp,
                                                           platform::Error* error);
  // Deletes activated rows stamped at or before `timestamp`; returns how many.
  std::optional<std::int64_t> deleteActivatedSnapshotsNotAfter(double timestamp,
                                                               platform::Error* error);
  // Every row of `table`, in row order, decoded. A row that does not decode is skipped.
  std::optional<std::vector<APMESnapshot>> snapshotsInTable(const std::string& table,
                                                            platform::Error* error);
  // The SDK's row of `table`, if any.
  std::optional<std::optional<APMESnapshot>> snapshotOfSDK(const std::string& table,
                                                           const std::string& SDKName,
                                                           platform::Error* error);
  // Removes the SDK's rows from all three tables, in one transaction.
  bool resetSDK(const std::string& SDKName, platform::Error* error);

 private:
  explicit APMEDatabase(std::unique_ptr<APMSqliteStore> store) : store_(std::move(store)) {}
  bool ensureTables(platform::Error* error);
  bool insertRow(const std::string& table, const APMESnapshot& snapshot, double timestamp,
                 platform::Error* error);

  std::unique_ptr<APMSqliteStore> store_;
};
