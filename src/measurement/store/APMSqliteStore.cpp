#include "measurement/store/APMSqliteStore.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>
#include <system_error>

#include "measurement/APMError.h"
#include "measurement/APMMonitor.h"

namespace {

// Operations named in database errors.
enum Operation : int {
  kOperationInitializeHandle,
  kOperationPrepare,
  kOperationExecute,
  kOperationQueryNumeric,
  kOperationSelect,
  kOperationBind,
  kOperationValidate,
  kOperationUpdateAll,
  kOperationIncrease,
  kOperationDeleteRecord,
  kOperationDeleteWithCondition,
  kOperationDeleteAll,
};

const char* operationName(int operation) {
  switch (operation) {
    case kOperationInitializeHandle:
      return "initialize sqlite handle";
    case kOperationPrepare:
      return "prepare statement";
    case kOperationExecute:
      return "execute statement";
    case kOperationQueryNumeric:
      return "query numeric result";
    case kOperationSelect:
      return "select";
    case kOperationBind:
      return "bind values";
    case kOperationValidate:
      return "validate database";
    case kOperationUpdateAll:
      return "update all records value";
    case kOperationIncrease:
      return "increase records value";
    case kOperationDeleteRecord:
      return "delete record";
    case kOperationDeleteWithCondition:
      return "delete records with condition";
    case kOperationDeleteAll:
      return "delete all records";
    default:
      return "Unknown operation";
  }
}

// Message codes of the store's log lines.
constexpr int kCodeExcludeFromBackup = 31001;
constexpr int kCodeCloseFailed = 31002;
constexpr int kCodeRollbackAfterException = 31003;
constexpr int kCodeRollbackFailed = 31004;

constexpr const char* kPrimaryKey = "PRIMARY KEY";
constexpr const char* kBackupAttribute = "user.xdg.robots.backup";

bool containsIgnoringCase(std::string_view text, std::string_view word) {
  auto it = std::search(text.begin(), text.end(), word.begin(), word.end(), [](char a, char b) {
    return std::toupper(static_cast<unsigned char>(a)) ==
           std::toupper(static_cast<unsigned char>(b));
  });
  return it != text.end();
}

bool isBlank(const char* text) {
  for (; text && *text; ++text) {
    if (!std::isspace(static_cast<unsigned char>(*text))) return false;
  }
  return true;
}

std::string firstWord(const std::string& text) { return text.substr(0, text.find(' ')); }

std::string upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

// "a, b, c" (or "a=?,b=?," style) from `items`, each rendered by `render`, joined by `sep`.
template <class Items, class Render>
std::string join(const Items& items, const char* sep, Render render) {
  std::string out;
  for (const auto& item : items) {
    if (!out.empty()) out += sep;
    out += render(item);
  }
  return out;
}

bool isStorableValue(const kit::Value& value) { return !value.isArray() && !value.isDictionary(); }

}  // namespace

// A prepared statement with its values bound. Cached statements go back to the cache reset
// and unbound; others are finalized.
class APMSqliteStore::Statement {
 public:
  explicit Statement(APMSqliteStore& store) : store_(store) {}
  ~Statement() { finish(nullptr); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  bool prepare(const std::string& sql, const Parameters& values, platform::Error* error);
  sqlite3_stmt* get() const { return statement_; }
  // Returns the statement to the cache or finalizes it.
  bool finish(platform::Error* error);

 private:
  bool bind(const Parameters& values, platform::Error* error);

  APMSqliteStore& store_;
  const std::string* sql_ = nullptr;
  sqlite3_stmt* statement_ = nullptr;
  bool cached_ = false;
  // The cache entry the statement came from, valid while the cache keeps its generation.
  CachedStatement* entry_ = nullptr;
  std::uint64_t generation_ = 0;
};

bool APMSqliteStore::Statement::prepare(const std::string& sql, const Parameters& values,
                                        platform::Error* error) {
  if (!store_.checkOpen("Prepare SQL failed. Database not open.", error)) return false;
  bool hasPlaceholders = sql.find('?') != std::string::npos;
  if (!APMCheck(!(hasPlaceholders && values.empty()), kAPMErrorCodeInvalidArgument,
                "Received empty parameters", error)) {
    return false;
  }
  sql_ = &sql;
  auto it = store_.cache_.find(sql);
  if (it != store_.cache_.end() && !it->second.inUse) {
    it->second.inUse = true;
    statement_ = it->second.statement;
    cached_ = true;
    entry_ = &it->second;
    generation_ = store_.cacheGeneration_;
    return bind(values, error);
  }
  // A statement already in use (a nested read of the same query) gets a private copy.
  bool cacheable =
      it == store_.cache_.end() && (hasPlaceholders || !containsIgnoringCase(sql, "WHERE"));
  const char* tail = nullptr;
  int rc = sqlite3_prepare_v3(store_.db_, sql.c_str(), static_cast<int>(sql.size()) + 1,
                              cacheable ? SQLITE_PREPARE_PERSISTENT : 0, &statement_, &tail);
  if (rc != SQLITE_OK) {
    statement_ = nullptr;
    return store_.setDatabaseError(error, kOperationPrepare);
  }
  if (!isBlank(tail)) {
    sqlite3_finalize(statement_);
    statement_ = nullptr;
    return APMSetError(error, kAPMErrorCodeInvalidArgument,
                       "Query contained more than one SQL statement.");
  }
  if (!APMCheckNotNull(statement_, kAPMErrorCodeInvalidArgument, "Received empty SQL statement",
                       error)) {
    return false;
  }
  if (cacheable) {
    entry_ = &(store_.cache_[sql] = CachedStatement{statement_, true});
    generation_ = store_.cacheGeneration_;
    cached_ = true;
  }
  return bind(values, error);
}

bool APMSqliteStore::Statement::bind(const Parameters& values, platform::Error* error) {
  if (!APMCheckNotNull(statement_, kAPMErrorCodeInvalidState, "Failed to bind to NULL statement",
                       error)) {
    return false;
  }
  // SQLite's own rules for the count: a placeholder left without a value binds NULL, a value
  // beyond the last placeholder fails as a "bind values" error.
  for (std::size_t i = 0; i < values.size(); ++i) {
    const kit::Value& v = values[i];
    int index = static_cast<int>(i) + 1;
    int rc = SQLITE_OK;
    if (v.isNull()) {
      rc = sqlite3_bind_null(statement_, index);
    } else if (auto b = v.asBool()) {
      rc = sqlite3_bind_int64(statement_, index, *b ? 1 : 0);
    } else if (auto n = v.asInteger()) {
      rc = sqlite3_bind_int64(statement_, index, *n);
    } else if (auto d = v.asReal()) {
      rc = sqlite3_bind_double(statement_, index, *d);
    } else if (const std::string* s = v.asString()) {
      rc = sqlite3_bind_text(statement_, index, s->data(), static_cast<int>(s->size()),
                             SQLITE_STATIC);
    } else if (const kit::Data* data = v.asData()) {
      // An empty blob binds as a zero-length blob, not as NULL.
      rc = data->empty() ? sqlite3_bind_zeroblob(statement_, index, 0)
                         : sqlite3_bind_blob(statement_, index, data->data(),
                                             static_cast<int>(data->size()), SQLITE_STATIC);
    } else {
      return APMSetError(error, kAPMErrorCodeInvalidArgument,
                         "Failed to bind parameter of unexpected type to update statement");
    }
    if (rc != SQLITE_OK) return store_.setDatabaseError(error, kOperationBind);
  }
  return true;
}

bool APMSqliteStore::Statement::finish(platform::Error* error) {
  if (!statement_) return true;
  sqlite3_stmt* statement = statement_;
  statement_ = nullptr;
  if (!cached_) {
    sqlite3_finalize(statement);
    return true;
  }
  // Entries of the map stay in place until the cache is emptied, which changes its generation.
  CachedStatement* entry = nullptr;
  if (entry_ && generation_ == store_.cacheGeneration_) {
    entry = entry_;
  } else if (auto it = store_.cache_.find(*sql_); it != store_.cache_.end()) {
    entry = &it->second;
  }
  if (!entry || entry->statement != statement) {
    sqlite3_finalize(statement);
    return APMSetError(error, kAPMErrorCodeInvalidState,
                       "Statement is not the same one in the cache");
  }
  sqlite3_reset(statement);
  sqlite3_clear_bindings(statement);
  entry->inUse = false;
  return true;
}

// --- Opening and closing ---

std::unique_ptr<APMSqliteStore> APMSqliteStore::initWithDatabasePath(const std::string& path,
                                                                     platform::Error* error) {
  std::unique_ptr<APMSqliteStore> store(new APMSqliteStore(path));
  if (!store->openAndValidateDatabase(error)) return nullptr;
  return store;
}

APMSqliteStore::~APMSqliteStore() { close(); }

bool APMSqliteStore::openAndValidateDatabase(platform::Error* error) {
  namespace fs = std::filesystem;
  std::error_code ec;
  struct stat st {};
  if (::stat(path_.c_str(), &st) == 0) {
    // A file without write permission is the desktop's immutable mark: clear it.
    if (!(st.st_mode & S_IWUSR)) ::chmod(path_.c_str(), st.st_mode | S_IWUSR);
  } else {
    fs::path parent = fs::path(path_).parent_path();
    if (!parent.empty() && !fs::create_directories(parent, ec) && ec) {
      return APMSetError(error, kAPMErrorCodeFailedStep,
                         "Failed to create database folder: " + ec.message());
    }
  }

  int rc =
      sqlite3_open_v2(path_.c_str(), &db_,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    setDatabaseError(error, kOperationInitializeHandle);
    close();
    return false;
  }
  sqlite3_rollback_hook(
      db_, [](void* store) { ++static_cast<APMSqliteStore*>(store)->rollbacks_; }, this);

  static const char kNo[] = "false";
  if (::setxattr(path_.c_str(), kBackupAttribute, kNo, sizeof kNo - 1, 0) != 0) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeExcludeFromBackup,
                    "Failed to exclude database file from backup", path_);
  }

  if (!validateIntegrity(error)) {
    close();
    return false;
  }
  if (!executeSQL("PRAGMA journal_mode=WAL", {}, error) ||
      !executeSQL("PRAGMA synchronous=NORMAL", {}, error)) {
    close();
    return false;
  }
  return true;
}

bool APMSqliteStore::validateIntegrity(platform::Error* error) {
  sqlite3_stmt* statement = nullptr;
  bool ok =
      sqlite3_prepare_v2(db_, "PRAGMA integrity_check", -1, &statement, nullptr) == SQLITE_OK &&
      sqlite3_step(statement) == SQLITE_ROW && sqlite3_column_count(statement) == 1;
  if (ok) {
    const unsigned char* text = sqlite3_column_text(statement, 0);
    ok = text && std::string_view(reinterpret_cast<const char*>(text)) == "ok";
  }
  if (!ok) setDatabaseError(error, kOperationValidate);
  sqlite3_finalize(statement);
  return ok;
}

void APMSqliteStore::finalizeCachedStatements() {
  for (auto& [sql, cached] : cache_) sqlite3_finalize(cached.statement);
  cache_.clear();
  ++cacheGeneration_;
}

void APMSqliteStore::close() {
  if (!db_) return;
  finalizeCachedStatements();
  int rc = sqlite3_close(db_);
  if (rc != SQLITE_OK) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeCloseFailed,
                    "Failed to close database. Got error code", rc);
  }
  db_ = nullptr;
}

bool APMSqliteStore::closeAndDeleteDatabase(platform::Error* error) {
  close();
  std::error_code ec;
  bool ok = true;
  for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
    std::filesystem::remove(path_ + suffix, ec);
    if (ec)
      ok = APMSetError(error, kAPMErrorCodeFailedStep,
                       "Failed to delete database file: " + ec.message());
  }
  return ok;
}

// --- Errors and plain statements ---

bool APMSqliteStore::setDatabaseError(platform::Error* error, int operation) const {
  if (!db_) {
    return APMSetError(error, kAPMErrorCodeInvalidState,
                       "Failed to get last error message. Database not open");
  }
  return APMSetError(error, kAPMErrorCodeFailedStep,
                     std::string("Database operation \"") + operationName(operation) +
                         "\" failed with sqlite code " + std::to_string(sqlite3_errcode(db_)) +
                         " and error message \"" + sqlite3_errmsg(db_) + "\"");
}

bool APMSqliteStore::checkOpen(const char* message, platform::Error* error) const {
  return APMCheckNotNull(db_, kAPMErrorCodeInvalidState, message, error);
}

bool APMSqliteStore::runStatement(const std::string& sql, const Parameters& parameterValues,
                                  int operation, platform::Error* error, std::int64_t* changes) {
  Statement statement(*this);
  if (!statement.prepare(sql, parameterValues, error)) return false;
  int rc;
  while ((rc = sqlite3_step(statement.get())) == SQLITE_ROW) {
  }
  if (rc != SQLITE_DONE) return setDatabaseError(error, operation);
  if (changes) *changes = sqlite3_changes64(db_);
  return statement.finish(error);
}

bool APMSqliteStore::executeSQL(const std::string& sql, const Parameters& parameterValues,
                                platform::Error* error) {
  return runStatement(sql, parameterValues, kOperationExecute, error);
}

std::int64_t APMSqliteStore::lastInsertRowID() const {
  return db_ ? sqlite3_last_insert_rowid(db_) : 0;
}

// --- Tables ---

bool APMSqliteStore::ensureTableWithName(const std::string& name,
                                         const ColumnInfo& elementaryColumnInfo,
                                         const ColumnInfo& addOnColumnInfo,
                                         const ColumnInfo& modifyColumnInfo,
                                         platform::Error* error) {
  if (!APMCheck(!name.empty() && !elementaryColumnInfo.empty(), kAPMErrorCodeInvalidArgument,
                "Received empty table name or columns", error)) {
    return false;
  }
  std::string create =
      "CREATE TABLE IF NOT EXISTS " + name + " ( " +
      join(elementaryColumnInfo, ", ", [](const auto& c) { return c.first + " " + c.second; }) +
      ");";
  auto exists = tableExists(name, error);
  if (!exists) return false;
  std::vector<std::string> required;
  for (const auto& [column, declaration] : elementaryColumnInfo) {
    if (column != kPrimaryKey) required.push_back(column);
  }
  if (!*exists) {
    if (!executeSQL(create, {}, error)) return false;
  }
  // A new table has none of its add-on columns; an old one may lack some.
  if (!validateTableWithName(name, required, addOnColumnInfo, error)) return false;
  if (modifyColumnInfo.empty()) return true;

  // The wanted declarations, with the modifications merged into both lists.
  ColumnInfo elementary = elementaryColumnInfo;
  ColumnInfo addOn = addOnColumnInfo;
  for (const auto& [column, declaration] : modifyColumnInfo) {
    for (ColumnInfo* list : {&elementary, &addOn}) {
      for (auto& entry : *list) {
        if (entry.first == column) entry.second = declaration;
      }
    }
  }
  auto info = columnInfoForTableWithName(name, error);
  if (!info) return false;
  std::unordered_map<std::string, std::string> realTypes;
  for (const Record& row : *info) {
    const std::string* column = row.at("name").asString();
    const std::string* type = row.at("type").asString();
    if (column) realTypes[*column] = type ? upper(*type) : "";
  }
  bool differs = false;
  for (const auto& [column, declaration] : elementary) {
    if (column == kPrimaryKey) continue;
    differs |= realTypes[column] != upper(firstWord(declaration));
  }
  for (const auto& [column, declaration] : addOn) {
    differs |= realTypes[column] != upper(declaration);
  }
  if (!differs) return true;

  std::string old = name + "_old";
  return performTransactionWithError(error, [&] {
    return renameTable(name, old, error) &&
           ensureTableWithName(name, elementary, addOn, {}, error) &&
           copyContentsFromTable(old, name, error) && dropTableWithName(old, error);
  });
}

bool APMSqliteStore::validateTableWithName(const std::string& name,
                                           const std::vector<std::string>& requiredColumnNames,
                                           const ColumnInfo& addOnColumns, platform::Error* error) {
  auto columns = columnsForTableWithName(name, error);
  if (!columns) return false;
  std::set<std::string> present(columns->begin(), columns->end());
  for (const std::string& column : requiredColumnNames) {
    if (!present.count(column)) {
      return APMSetError(error, kAPMErrorCodeFailedStep, "Table is missing required columns");
    }
  }
  for (const auto& [column, declaration] : addOnColumns) {
    if (present.count(column)) continue;
    if (!executeSQL("ALTER TABLE " + name + " ADD COLUMN " + column + " " + declaration, {},
                    error)) {
      return false;
    }
  }
  auto info = columnInfoForTableWithName(name, error);
  if (!info) return false;
  std::set<std::string> known(requiredColumnNames.begin(), requiredColumnNames.end());
  for (const auto& entry : addOnColumns) known.insert(entry.first);
  for (const Record& row : *info) {
    const std::string* column = row.at("name").asString();
    auto notNull = row.at("notnull").asInteger();
    if (column && !known.count(*column) && notNull.value_or(0) != 0) {
      return APMSetError(error, kAPMErrorCodeFailedStep,
                         "Table contains unknown non-optional columns");
    }
  }
  return true;
}

bool APMSqliteStore::dropTableWithName(const std::string& name, platform::Error* error) {
  return executeSQL("DROP TABLE " + name, {}, error);
}

bool APMSqliteStore::renameTable(const std::string& name, const std::string& toName,
                                 platform::Error* error) {
  return executeSQL("ALTER TABLE " + name + " RENAME TO " + toName, {}, error);
}

bool APMSqliteStore::copyContentsFromTable(const std::string& fromTable, const std::string& toTable,
                                           platform::Error* error) {
  return executeSQL("INSERT INTO " + toTable + " SELECT * FROM " + fromTable, {}, error);
}

std::optional<bool> APMSqliteStore::tableExists(const std::string& name, platform::Error* error) {
  auto found = numberForQuery(
      "SELECT EXISTS (SELECT 1 FROM sqlite_master WHERE type = 'table' "
      "AND name = ?)",
      {name}, error);
  if (!found) return std::nullopt;
  return found->asInteger().value_or(0) != 0;
}

std::optional<std::int64_t> APMSqliteStore::rowCountForTableWithName(const std::string& name,
                                                                     platform::Error* error) {
  if (!checkOpen("Row count failed. Database not open.", error)) return std::nullopt;
  auto count = numberForQuery("SELECT COUNT(*) FROM " + name, {}, error);
  if (!count) return std::nullopt;
  return count->asInteger().value_or(0);
}

std::optional<std::int64_t> APMSqliteStore::rowCountForTableWithName(const std::string& name,
                                                                     const std::string& columnName,
                                                                     const kit::Value& columnValue,
                                                                     platform::Error* error) {
  if (!checkOpen("Row count failed. Database not open.", error)) return std::nullopt;
  auto count = numberForQuery("SELECT COUNT(*) FROM " + name + " WHERE " + columnName + " = ?",
                              {columnValue}, error);
  if (!count) return std::nullopt;
  return count->asInteger().value_or(0);
}

std::optional<std::vector<std::string>> APMSqliteStore::columnsForTableWithName(
    const std::string& name, platform::Error* error) {
  auto info = columnInfoForTableWithName(name, error);
  if (!info) return std::nullopt;
  std::vector<std::string> columns;
  for (const Record& row : *info) {
    if (const std::string* column = row.at("name").asString()) columns.push_back(*column);
  }
  return columns;
}

std::optional<APMSqliteStore::Records> APMSqliteStore::columnInfoForTableWithName(
    const std::string& name, platform::Error* error) {
  return recordsForQuery("PRAGMA table_info(" + name + ")", {}, error);
}

// --- Writes ---

bool APMSqliteStore::upsertRecord(const Record& record, const std::string& table,
                                  platform::Error* error) {
  if (!APMCheck(!table.empty(), kAPMErrorCodeInvalidArgument,
                "Received empty table name for upsert", error) ||
      !APMCheck(!record.empty(), kAPMErrorCodeInvalidArgument, "Received empty record for upsert",
                error)) {
    return false;
  }
  std::string sql = "INSERT OR REPLACE INTO " + table + " (";
  std::string placeholders;
  Parameters values;
  values.reserve(record.size());
  for (const auto& [column, value] : record) {
    if (!APMCheck(isStorableValue(value), kAPMErrorCodeInvalidArgument,
                  "Record has value of unexpected type", error)) {
      return false;
    }
    if (!values.empty()) {
      sql += ", ";
      placeholders += ", ";
    }
    sql += column;
    placeholders += "?";
    values.push_back(value);
  }
  sql += ") VALUES (" + placeholders + ");";
  return executeSQL(sql, values, error);
}

bool APMSqliteStore::updateRecord(const Record& record, const std::string& table,
                                  const std::string& columnName, const kit::Value& columnValue,
                                  platform::Error* error) {
  if (!APMCheck(!table.empty() && !record.empty(), kAPMErrorCodeInvalidArgument,
                "Received empty table name or record for update", error)) {
    return false;
  }
  Parameters values;
  values.reserve(record.size() + 1);
  for (const auto& [column, value] : record) {
    if (!APMCheck(isStorableValue(value), kAPMErrorCodeInvalidArgument,
                  "Record has value of unexpected type (update)", error)) {
      return false;
    }
    values.push_back(value);
  }
  values.push_back(columnValue);
  std::string sets = join(record, ",", [](const auto& entry) { return entry.first + "=?"; });
  return executeSQL("UPDATE " + table + " SET " + sets + " WHERE " + columnName + "=?", values,
                    error);
}

bool APMSqliteStore::updateAllRecordsInTableWithName(const std::string& table,
                                                     const std::string& columnName,
                                                     const kit::Value& columnValue,
                                                     platform::Error* error) {
  if (!APMCheck(isStorableValue(columnValue), kAPMErrorCodeInvalidArgument,
                "Record has value of unexpected type (update)", error)) {
    return false;
  }
  return runStatement("UPDATE " + table + " SET " + columnName + "=?", {columnValue},
                      kOperationUpdateAll, error);
}

bool APMSqliteStore::increaseColumn(const std::string& column, std::int64_t byValue,
                                    const std::string& table, const std::string& condition,
                                    const Parameters& parameterValues, platform::Error* error) {
  auto info = columnInfoForTableWithName(table, error);
  if (!info) return false;
  const Record* found = nullptr;
  for (const Record& row : *info) {
    if (const std::string* name = row.at("name").asString(); name && *name == column) found = &row;
  }
  if (!APMCheckNotNull(found, kAPMErrorCodeInvalidArgument, "Invalid column or table name",
                       error)) {
    return false;
  }
  const std::string* type = found->at("type").asString();
  if (!APMCheck(type && upper(*type) == "INTEGER", kAPMErrorCodeInvalidArgument,
                "Column type is not integer.", error)) {
    return false;
  }
  return runStatement("UPDATE " + table + " SET " + column + " = " + column + " + " +
                          std::to_string(byValue) + " WHERE " + condition,
                      parameterValues, kOperationIncrease, error);
}

bool APMSqliteStore::deleteRecordFromTableWithName(const std::string& table,
                                                   const std::string& columnName,
                                                   const kit::Value& columnValue,
                                                   platform::Error* error) {
  return runStatement("DELETE FROM " + table + " WHERE " + columnName + "=?", {columnValue},
                      kOperationDeleteRecord, error);
}

std::optional<std::int64_t> APMSqliteStore::deleteRecordsFromTableWithName(
    const std::string& table, const std::string& condition, const Parameters& parameterValues,
    platform::Error* error) {
  std::int64_t changes = 0;
  if (!runStatement("DELETE FROM " + table + " WHERE " + condition, parameterValues,
                    kOperationDeleteWithCondition, error, &changes)) {
    return std::nullopt;
  }
  return changes;
}

bool APMSqliteStore::deleteAllRecordsFromTableWithName(const std::string& table,
                                                       platform::Error* error) {
  return runStatement("DELETE FROM " + table, {}, kOperationDeleteAll, error);
}

// --- Reads ---

std::optional<APMSqliteStore::Records> APMSqliteStore::recordsForQuery(
    const std::string& query, const Parameters& parameterValues, platform::Error* error,
    const RecordFilter& filter) {
  Statement statement(*this);
  if (!statement.prepare(query, parameterValues, error)) return std::nullopt;
  sqlite3_stmt* s = statement.get();
  Records records;
  std::size_t rowsRead = 0;
  int columns = sqlite3_column_count(s);
  int rc;
  while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
    Record record;
    for (int i = 0; i < columns; ++i) {
      const char* name = sqlite3_column_name(s, i);
      if (!name) {
        APMSetError(error, kAPMErrorCodeFailedStep, "Failed to get column name");
        return std::nullopt;
      }
      kit::Value value;
      switch (sqlite3_column_type(s, i)) {
        case SQLITE_INTEGER:
          value = kit::Value(static_cast<long long>(sqlite3_column_int64(s, i)));
          break;
        case SQLITE_FLOAT:
          value = kit::Value(sqlite3_column_double(s, i));
          break;
        case SQLITE_TEXT: {
          const unsigned char* text = sqlite3_column_text(s, i);
          if (!text) {
            APMSetError(error, kAPMErrorCodeFailedStep,
                        std::string("Value is nil for column ") + name);
            return std::nullopt;
          }
          value = kit::Value(std::string(reinterpret_cast<const char*>(text),
                                         static_cast<std::size_t>(sqlite3_column_bytes(s, i))));
          break;
        }
        case SQLITE_BLOB: {
          const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(s, i));
          int size = sqlite3_column_bytes(s, i);
          value = kit::Value(bytes ? kit::Data(bytes, bytes + size) : kit::Data());
          break;
        }
        default:
          break;  // SQL NULL
      }
      record.emplace(name, std::move(value));
    }
    ++rowsRead;
    if (!filter) {
      records.push_back(std::move(record));
      continue;
    }
    bool stop = false;
    if (filter(record, &stop)) records.push_back(std::move(record));
    if (stop) break;
  }
  if (rc != SQLITE_ROW && rc != SQLITE_DONE) {
    setDatabaseError(error, kOperationSelect);
    return std::nullopt;
  }
  if (!statement.finish(error)) return std::nullopt;
  if (filter && rowsRead > 0 && records.empty()) {
    APMSetError(error, kAPMErrorCodeFailedStep,
                "Database contains records that were all filtered out");
  }
  return records;
}

std::optional<kit::Value> APMSqliteStore::numberForQuery(const std::string& query,
                                                         const Parameters& parameterValues,
                                                         platform::Error* error) {
  Statement statement(*this);
  if (!statement.prepare(query, parameterValues, error)) return std::nullopt;
  sqlite3_stmt* s = statement.get();
  int rc = sqlite3_step(s);
  if (rc != SQLITE_ROW && rc != SQLITE_DONE) {
    setDatabaseError(error, kOperationQueryNumeric);
    return std::nullopt;
  }
  kit::Value result;
  if (rc == SQLITE_ROW) {
    switch (sqlite3_column_type(s, 0)) {
      case SQLITE_INTEGER:
        result = kit::Value(static_cast<long long>(sqlite3_column_int64(s, 0)));
        break;
      case SQLITE_FLOAT:
        result = kit::Value(sqlite3_column_double(s, 0));
        break;
      case SQLITE_NULL:
        break;
      default:
        APMSetError(error, kAPMErrorCodeFailedStep, "Found result that was not numeric");
        return std::nullopt;
    }
  }
  if (!statement.finish(error)) return std::nullopt;
  return result;
}

// --- Transactions ---

bool APMSqliteStore::rollback() {
  // SQLite may already have rolled back on its own (a full disk, for one).
  if (!db_ || sqlite3_get_autocommit(db_)) return true;
  platform::Error ignored;
  return executeSQL("ROLLBACK", {}, &ignored);
}

bool APMSqliteStore::performTransactionWithError(platform::Error* error,
                                                 const std::function<bool()>& block) {
  if (!executeSQL("BEGIN EXCLUSIVE TRANSACTION", {}, error)) return false;
  bool committed;
  try {
    committed = block();
  } catch (...) {
    if (!rollback()) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeRollbackAfterException,
                      "Failed to rollback transaction after exception");
    }
    throw;
  }
  if (committed && executeSQL("END TRANSACTION", {}, error)) return true;
  if (!rollback()) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeRollbackFailed, "Failed to rollback transaction");
  }
  return false;
}
