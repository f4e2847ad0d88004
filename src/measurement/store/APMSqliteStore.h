// APMSqliteStore: a small general store over the SQLite C interface. It opens and validates
// one database file, ensures and migrates tables, prepares and caches statements, and runs
// exclusive transactions. It knows no schema; APMDatabase puts the measurement schema on it.
//
// Threading: not thread-safe and not locked. Every call must come from the measurement worker
// queue, the store's only user. The handle is opened in full-mutex mode, but nothing relies
// on that.
//
// Errors: every operation returns a truth value or an empty result and fills the caller's
// error record (kAPMErrorDomain): code 1 for a bad argument, 2 when the store is closed, 3 for
// a bad value or a failed SQLite step. SQLite failures read
//   Database operation "<operation>" failed with sqlite code <code> and error message "<text>"
//
// Journaling: the file is kept in write-ahead-log mode with normal synchronisation, so that a
// commit costs no sync of its own and a killed process loses no committed transaction.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kit/Value.h"
#include "platform/Types.h"

struct sqlite3;
struct sqlite3_stmt;

class APMSqliteStore {
 public:
  // One row: column name to value. Values are null, integers, reals, texts or bytes; truth
  // values bind as integers. Arrays and dictionaries are refused.
  using Record = kit::Dictionary;
  using Records = std::vector<Record>;
  // Column names and declarations ("INTEGER NOT NULL"), in creation order. An entry named
  // "PRIMARY KEY" is the table constraint; its declaration is the column list, "(a, b)".
  using ColumnInfo = std::vector<std::pair<std::string, std::string>>;
  using Parameters = std::vector<kit::Value>;
  // Decides whether `record` goes into the result. Setting *stop ends the read after it.
  using RecordFilter = std::function<bool(const Record& record, bool* stop)>;

  // Opens the database at `path`, creating it and its folder when absent: clears a missing
  // write permission on an existing file, opens read-write with create and full mutex, marks
  // the file as excluded from backup (a failure only logs), requires "PRAGMA integrity_check"
  // to answer "ok", and switches to write-ahead logging with normal synchronisation. Returns
  // nothing, with `error` filled and the handle closed, when any step fails.
  //
  // Write-ahead logging keeps "<path>-wal" and "<path>-shm" beside the database. With normal
  // synchronisation a commit is not synced on its own: a killed process loses nothing
  // committed, but a power cut may lose the last commits (never the file's consistency). It
  // is what keeps one transaction per event affordable: with the rollback journal and full
  // synchronisation the event write path is about 14 times slower (bench/events_bench).
  static std::unique_ptr<APMSqliteStore> initWithDatabasePath(const std::string& path,
                                                              platform::Error* error);

  // Finalizes the cached statements and closes the handle.
  ~APMSqliteStore();
  APMSqliteStore(const APMSqliteStore&) = delete;
  APMSqliteStore& operator=(const APMSqliteStore&) = delete;

  const std::string& databasePath() const { return path_; }
  bool isOpen() const { return db_ != nullptr; }

  // Finalizes the cached statements, closes the handle and deletes the file with its
  // write-ahead log. The store stays closed: every later operation fails with code 2.
  bool closeAndDeleteDatabase(platform::Error* error = nullptr);

  // --- Tables ---

  // Creates the table from `elementaryColumnInfo` when absent and adds the add-on columns;
  // for an existing table, validates it (see validateTableWithName) instead. Then, when
  // `modifyColumnInfo` names columns whose declared types differ from the table's, rebuilds
  // the table in one transaction: rename to "<name>_old", ensure afresh, copy every row,
  // drop the old table.
  bool ensureTableWithName(const std::string& name, const ColumnInfo& elementaryColumnInfo,
                           const ColumnInfo& addOnColumnInfo, const ColumnInfo& modifyColumnInfo,
                           platform::Error* error);
  // Requires `requiredColumnNames` to be present ("Table is missing required columns"), adds
  // each missing add-on column, and refuses a column that is neither required nor add-on and
  // is declared NOT NULL ("Table contains unknown non-optional columns").
  bool validateTableWithName(const std::string& name,
                             const std::vector<std::string>& requiredColumnNames,
                             const ColumnInfo& addOnColumns, platform::Error* error);
  bool dropTableWithName(const std::string& name, platform::Error* error);
  bool renameTable(const std::string& name, const std::string& toName, platform::Error* error);
  // Copies every row of `fromTable` into `toTable`, column by column position.
  bool copyContentsFromTable(const std::string& fromTable, const std::string& toTable,
                             platform::Error* error);
  std::optional<bool> tableExists(const std::string& name, platform::Error* error);
  std::optional<std::int64_t> rowCountForTableWithName(const std::string& name,
                                                       platform::Error* error);
  // Rows whose `columnName` equals `columnValue`.
  std::optional<std::int64_t> rowCountForTableWithName(const std::string& name,
                                                       const std::string& columnName,
                                                       const kit::Value& columnValue,
                                                       platform::Error* error);
  // Column names in table order.
  std::optional<std::vector<std::string>> columnsForTableWithName(const std::string& name,
                                                                  platform::Error* error);
  // The rows of "PRAGMA table_info": cid, name, type, notnull, dflt_value, pk.
  std::optional<Records> columnInfoForTableWithName(const std::string& name,
                                                    platform::Error* error);

  // --- Writes ---

  // INSERT OR REPLACE of `record` (column to value) into `table`.
  bool upsertRecord(const Record& record, const std::string& table, platform::Error* error);
  // Sets the columns of `record` on the rows whose `columnName` equals `columnValue`.
  bool updateRecord(const Record& record, const std::string& table, const std::string& columnName,
                    const kit::Value& columnValue, platform::Error* error);
  bool updateAllRecordsInTableWithName(const std::string& table, const std::string& columnName,
                                       const kit::Value& columnValue, platform::Error* error);
  // Adds `byValue` to the INTEGER column `column` of the rows matching `condition`. Refuses
  // an unknown column ("Invalid column or table name") and a column not declared INTEGER
  // ("Column type is not integer.").
  bool increaseColumn(const std::string& column, std::int64_t byValue, const std::string& table,
                      const std::string& condition, const Parameters& parameterValues,
                      platform::Error* error);
  bool deleteRecordFromTableWithName(const std::string& table, const std::string& columnName,
                                     const kit::Value& columnValue, platform::Error* error);
  // Returns the number of rows deleted.
  std::optional<std::int64_t> deleteRecordsFromTableWithName(const std::string& table,
                                                             const std::string& condition,
                                                             const Parameters& parameterValues,
                                                             platform::Error* error);
  bool deleteAllRecordsFromTableWithName(const std::string& table, platform::Error* error);

  // --- Reads and plain statements ---

  // Every row of `query`. A query whose rows were all rejected by `filter` gives an empty
  // result and fills `error` with "Database contains records that were all filtered out";
  // the caller decides what that means.
  std::optional<Records> recordsForQuery(const std::string& query,
                                         const Parameters& parameterValues, platform::Error* error,
                                         const RecordFilter& filter = nullptr);
  // The first column of the first row: an integer or a real, or null when the value is SQL
  // NULL or there is no row. Text or bytes fail with "Found result that was not numeric".
  std::optional<kit::Value> numberForQuery(const std::string& query,
                                           const Parameters& parameterValues,
                                           platform::Error* error);
  // Runs one statement, discarding any rows.
  bool executeSQL(const std::string& sql, const Parameters& parameterValues,
                  platform::Error* error);
  // The row id of the last row inserted through this store.
  std::int64_t lastInsertRowID() const;
  // How many transactions SQLite has rolled back on this handle, whether by "ROLLBACK" or on
  // its own after an error. Whoever keeps copies of rows in memory compares it to know when
  // a copy made inside a transaction may no longer match the file.
  std::uint64_t rollbackCount() const { return rollbacks_; }

  // Runs `block` between "BEGIN EXCLUSIVE TRANSACTION" and "END TRANSACTION"; a block that
  // returns false, or a commit that fails, rolls back. An exception from `block` rolls back
  // and propagates. Transactions do not nest.
  bool performTransactionWithError(platform::Error* error, const std::function<bool()>& block);

 private:
  class Statement;
  struct CachedStatement {
    sqlite3_stmt* statement = nullptr;
    bool inUse = false;
  };

  explicit APMSqliteStore(std::string path) : path_(std::move(path)) {}

  bool openAndValidateDatabase(platform::Error* error);
  bool validateIntegrity(platform::Error* error);
  void finalizeCachedStatements();
  void close();
  bool rollback();
  bool runStatement(const std::string& sql, const Parameters& parameterValues, int operation,
                    platform::Error* error, std::int64_t* changes = nullptr);
  bool setDatabaseError(platform::Error* error, int operation) const;
  bool checkOpen(const char* message, platform::Error* error) const;

  std::string path_;
  sqlite3* db_ = nullptr;
  std::unordered_map<std::string, CachedStatement> cache_;
  // Changes whenever the cache is emptied.
  std::uint64_t cacheGeneration_ = 0;
  std::uint64_t rollbacks_ = 0;
};
