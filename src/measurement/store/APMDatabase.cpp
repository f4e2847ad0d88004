#include "measurement/store/APMDatabase.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "kit/Date.h"
#include "measurement/APMError.h"
#include "measurement/APMGzip.h"
#include "measurement/APMMonitor.h"
#include "platform/Platform.h"

namespace {

using ColumnInfo = APMSqliteStore::ColumnInfo;
using Parameters = APMSqliteStore::Parameters;
using Record = APMSqliteStore::Record;

// Message codes of the database's log lines.
enum : int {
  kCodeEnsureTable = 32001,
  kCodeTablesInvalid,
  kCodeDeleteAfterInvalid,
  kCodeAppMetadataInit,
  kCodeTransactionFailed,
  kCodeResetFailed,
  kCodeNegativeIndex,
  kCodeNegativeCount,
  kCodeRawEventFilter,
  kCodeNilBundle,
  kCodeBundleWithoutAppID,
  kCodeBundleWithoutTimestamp,
  kCodeBundleOutsideQueueTime,
  kCodeCompressBundle,
  kCodeSavingBundle,
  kCodeIncrementRetry,
  kCodeRetryLimit,
  kCodeDecompressBundle,
  kCodeParseBundle,
  kCodeNegativeRawEventsAge,
  kCodeNegativeBundlesAge,
  kCodeTableFull,
  kCodeUndecodableValue,
  kCodeEnsureIndex,
};

constexpr const char* kAppMetadata = "app_metadata";
constexpr const char* kRawEventsMetadata = "raw_events_metadata";
constexpr const char* kRawEvents = "raw_events";
constexpr const char* kQueue = "queue";
constexpr const char* kEvents = "events";
constexpr const char* kUserAttributes = "user_attributes";
constexpr const char* kEventFilters = "event_filters";
constexpr const char* kPropertyFilters = "property_filters";
constexpr const char* kAudienceFilterValues = "audience_filter_values";
constexpr const char* kPurchaseTransactions = "purchase_transactions";
constexpr const char* kSubscriptions = "subscriptions";
constexpr const char* kConditionalProperties = "conditional_properties";
constexpr const char* kMainEventParams = "main_event_params";

struct TableSchema {
  const char* name;
  ColumnInfo elementary;
  ColumnInfo addOn;
  ColumnInfo modify;
};

// Every table, in creation order, with its elementary columns, add-on columns and the
// modification list.
const std::vector<TableSchema>& schema() {
  static const std::vector<TableSchema> tables = {
      {kAppMetadata,
       {{"last_bundle_index", "INTEGER NOT NULL"}, {"last_bundle_end_timestamp", "REAL NOT NULL"}},
       {{"last_bundle_start_timestamp", "REAL"},
        {"day", "INTEGER"},
        {"daily_conversions_count", "INTEGER"},
        {"daily_events_count", "INTEGER"},
        {"daily_public_events_count", "INTEGER"},
        {"daily_error_events_count", "INTEGER"},
        {"remote_config_data", "BLOB"},
        {"remote_config_timestamp", "REAL"},
        {"daily_real_time_conversion_events_count", "INTEGER"}},
       {}},
      {kRawEventsMetadata,
       {{"metadata_fingerprint", "INTEGER NOT NULL PRIMARY KEY"}, {"metadata", "BLOB NOT NULL"}},
       {},
       {}},
      // `timestamp` is created INTEGER and migrated to REAL right after, on every new file.
      {kRawEvents,
       {{"name", "TEXT NOT NULL"},
        {"timestamp", "INTEGER NOT NULL"},
        {"metadata_fingerprint", "INTEGER NOT NULL"},
        {"data", "BLOB NOT NULL"}},
       {{"is_realtime", "INTEGER"}},
       {{"timestamp", "REAL NOT NULL"}}},
      {kQueue,
       {{"data", "BLOB NOT NULL"}, {"bundle_end_timestamp", "REAL NOT NULL"}},
       {{"is_realtime", "INTEGER"}, {"retry_count", "INTEGER"}},
       {}},
      {kEvents,
       {{"name", "TEXT NOT NULL PRIMARY KEY"},
        {"lifetime_count", "INTEGER NOT NULL"},
        {"current_bundle_count", "INTEGER NOT NULL"},
        {"last_fire_timestamp", "REAL NOT NULL"}},
       {{"last_bundled_timestamp", "REAL"},
        {"last_sampled_complex_event_id", "INTEGER"},
        {"last_sampling_rate", "INTEGER"},
        {"last_exempt_from_sampling", "INTEGER"},
        {"last_bundled_day", "INTEGER"},
        {"current_session_count", "INTEGER"}},
       {}},
      {kUserAttributes,
       {{"name", "TEXT NOT NULL PRIMARY KEY"},
        {"set_timestamp", "REAL NOT NULL"},
        {"value", "BLOB NOT NULL"}},
       {{"origin", "TEXT"}},
       {}},
      {kEventFilters,
       {{"audience_id", "INTEGER NOT NULL"},
        {"filter_id", "INTEGER NOT NULL"},
        {"event_name", "TEXT NOT NULL"},
        {"data", "BLOB NOT NULL"},
        {"PRIMARY KEY", "(audience_id, filter_id)"}},
       {{"session_scoped", "INTEGER"}},
       {}},
      {kPropertyFilters,
       {{"audience_id", "INTEGER NOT NULL"},
        {"filter_id", "INTEGER NOT NULL"},
        {"property_name", "TEXT NOT NULL"},
        {"data", "BLOB NOT NULL"},
        {"PRIMARY KEY", "(audience_id, filter_id)"}},
       {{"session_scoped", "INTEGER"}},
       {}},
      {kAudienceFilterValues,
       {{"audience_id", "INTEGER NOT NULL PRIMARY KEY"},
        {"current_results", "BLOB"},
        {"previous_results", "BLOB"}},
       {},
       {}},
      {kPurchaseTransactions, {{"fingerprint", "TEXT NOT NULL PRIMARY KEY"}}, {}, {}},
      {kSubscriptions, {{"subscription_id", "TEXT NOT NULL PRIMARY KEY"}}, {}, {}},
      {kConditionalProperties,
       {{"name", "TEXT NOT NULL PRIMARY KEY"},
        {"origin", "TEXT NOT NULL"},
        {"value", "BLOB NOT NULL"},
        {"creation_timestamp", "REAL NOT NULL"},
        {"active", "INTEGER NOT NULL"},
        {"trigger_timeout", "REAL NOT NULL"},
        {"triggered_timestamp", "REAL NOT NULL"},
        {"time_to_live", "REAL NOT NULL"},
        {"trigger_event_name", "TEXT"},
        {"timed_out_event", "BLOB"},
        {"triggered_event", "BLOB"},
        {"expired_event", "BLOB"}},
       {},
       {}},
      {kMainEventParams,
       {{"event_id", "INTEGER NOT NULL PRIMARY KEY"},
        {"children_to_process", "INTEGER NOT NULL"},
        {"main_event", "BLOB NOT NULL"}},
       {},
       {}},
  };
  return tables;
}

double now() { return kit::Date::now().timeIntervalSince1970; }

bool fail(platform::Error* error, int code, int messageCode, const std::string& message,
          int level = kAPMMonitorLevelError) {
  APMMonitor::log(level, messageCode, message);
  return APMSetError(error, code, message);
}

// "?, ?, ?" for `count` placeholders.
std::string placeholders(std::size_t count) {
  std::string out;
  for (std::size_t i = 0; i < count; ++i) out += i ? ", ?" : "?";
  return out;
}

Parameters idValues(const std::vector<std::int64_t>& ids) {
  Parameters values;
  values.reserve(ids.size());
  for (std::int64_t id : ids) values.emplace_back(static_cast<long long>(id));
  return values;
}

kit::Value integer(std::int64_t v) { return kit::Value(static_cast<long long>(v)); }

// Column readers: a missing column or SQL NULL reads as the fallback.
std::int64_t readInteger(const Record& r, const char* column, std::int64_t fallback = 0) {
  auto it = r.find(column);
  if (it == r.end()) return fallback;
  if (auto n = it->second.numberAsInteger()) return *n;
  return fallback;
}

std::optional<std::int64_t> readOptionalInteger(const Record& r, const char* column) {
  auto it = r.find(column);
  if (it == r.end()) return std::nullopt;
  return it->second.numberAsInteger();
}

double readReal(const Record& r, const char* column, double fallback = 0) {
  auto it = r.find(column);
  if (it == r.end()) return fallback;
  return it->second.numberAsReal().value_or(fallback);
}

std::optional<double> readOptionalReal(const Record& r, const char* column) {
  auto it = r.find(column);
  if (it == r.end()) return std::nullopt;
  return it->second.numberAsReal();
}

std::optional<std::string> readText(const Record& r, const char* column) {
  auto it = r.find(column);
  if (it == r.end() || !it->second.asString()) return std::nullopt;
  return *it->second.asString();
}

std::optional<kit::Data> readData(const Record& r, const char* column) {
  auto it = r.find(column);
  if (it == r.end() || !it->second.asData()) return std::nullopt;
  return *it->second.asData();
}

kit::Value optionalValue(const std::optional<std::int64_t>& v) {
  return v ? integer(*v) : kit::Value();
}
kit::Value optionalValue(const std::optional<double>& v) {
  return v ? kit::Value(*v) : kit::Value();
}
kit::Value optionalValue(const std::optional<std::string>& v) {
  return v ? kit::Value(*v) : kit::Value();
}
kit::Value optionalValue(const std::optional<kit::Data>& v) {
  return v ? kit::Value(*v) : kit::Value();
}

// The blob of a user attribute or conditional property value: one kind byte ('l' integer,
// 'd' double, each little-endian 8 bytes; 's' UTF-8 text) and the payload.
kit::Data encodeValue(const APMValue& value) {
  if (value.isString()) {
    const std::string& text = value.stringValue();
    kit::Data out(1 + text.size());
    out[0] = 's';
    std::copy(text.begin(), text.end(), out.begin() + 1);
    return out;
  }
  std::uint64_t word = static_cast<std::uint64_t>(value.isInt64() ? value.int64Value() : 0);
  if (value.isDouble()) {
    double d = value.doubleValue();
    std::memcpy(&word, &d, sizeof word);
  }
  kit::Data out(9);
  out[0] = value.isDouble() ? 'd' : 'l';
  for (int i = 0; i < 8; ++i) out[1 + i] = static_cast<std::uint8_t>(word >> (8 * i));
  return out;
}

std::optional<APMValue> decodeValue(const kit::Data& data) {
  if (data.empty()) return std::nullopt;
  auto word = [&data] {
    std::uint64_t w = 0;
    for (int i = 0; i < 8; ++i) w |= static_cast<std::uint64_t>(data[1 + i]) << (8 * i);
    return w;
  };
  switch (data[0]) {
    case 'l':
      if (data.size() != 9) return std::nullopt;
      return APMValue::fromInt64(static_cast<std::int64_t>(word()));
    case 'd': {
      if (data.size() != 9) return std::nullopt;
      std::uint64_t w = word();
      double d;
      std::memcpy(&d, &w, sizeof d);
      return APMValue::fromDouble(d);
    }
    case 's':
      return APMValue::fromString(std::string(data.begin() + 1, data.end()));
    default:
      return std::nullopt;
  }
}

std::optional<APMValue> readValue(const Record& r, const char* column) {
  auto data = readData(r, column);
  auto value = data ? decodeValue(*data) : std::nullopt;
  if (!value) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeUndecodableValue, "Stored value does not decode",
                    readText(r, "name").value_or(""));
  }
  return value;
}

std::optional<APMEventAggregates> aggregatesFromRecord(const Record& r) {
  auto aggregates = APMEventAggregates::create(
      readText(r, "name").value_or(""), readInteger(r, "lifetime_count"),
      readInteger(r, "current_bundle_count"), readInteger(r, "current_session_count"),
      readReal(r, "last_fire_timestamp"));
  if (!aggregates) return std::nullopt;
  aggregates->lastBundledTimestamp = readOptionalReal(r, "last_bundled_timestamp");
  aggregates->lastSampledComplexEventID = readOptionalInteger(r, "last_sampled_complex_event_id");
  aggregates->lastSamplingRate = readOptionalInteger(r, "last_sampling_rate");
  aggregates->lastExemptFromSampling = readInteger(r, "last_exempt_from_sampling") != 0;
  aggregates->lastBundledDay = readOptionalInteger(r, "last_bundled_day");
  return aggregates;
}

std::optional<APMUserAttribute> userAttributeFromRecord(const Record& r) {
  auto value = readValue(r, "value");
  if (!value) return std::nullopt;
  return APMUserAttribute{readText(r, "origin").value_or(""), readText(r, "name").value_or(""),
                          std::move(*value), readReal(r, "set_timestamp")};
}

std::optional<APMConditionalProperty> conditionalPropertyFromRecord(const Record& r) {
  auto value = readValue(r, "value");
  if (!value) return std::nullopt;
  APMConditionalProperty p;
  p.name = readText(r, "name").value_or("");
  p.origin = readText(r, "origin").value_or("");
  p.value = std::move(*value);
  p.creationTimestamp = readReal(r, "creation_timestamp");
  p.active = readInteger(r, "active") != 0;
  p.triggerTimeout = readReal(r, "trigger_timeout");
  p.triggeredTimestamp = readReal(r, "triggered_timestamp");
  p.timeToLive = readReal(r, "time_to_live");
  p.triggerEventName = readText(r, "trigger_event_name");
  p.timedOutEvent = readData(r, "timed_out_event");
  p.triggeredEvent = readData(r, "triggered_event");
  p.expiredEvent = readData(r, "expired_event");
  return p;
}

// Parses every record with `parse`, skipping those it refuses.
template <class T, class Parse>
std::vector<T> parseAll(const std::vector<Record>& records, Parse parse) {
  std::vector<T> out;
  out.reserve(records.size());
  for (const Record& r : records) {
    if (auto parsed = parse(r)) out.push_back(std::move(*parsed));
  }
  return out;
}

}  // namespace

// --- Records ---

std::optional<APMAppMetadata> APMAppMetadata::create(std::int64_t lastBundleIndex,
                                                     double lastBundleEndTimestamp,
                                                     double lastBundleStartTimestamp) {
  if (lastBundleIndex < 0) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeNegativeIndex,
                    "Failed to create app metadata object. Received negative last bundle index.");
    return std::nullopt;
  }
  return APMAppMetadata{lastBundleIndex, lastBundleEndTimestamp, lastBundleStartTimestamp};
}

std::optional<APMEventAggregates> APMEventAggregates::create(std::string name,
                                                             std::int64_t lifetimeCount,
                                                             std::int64_t currentBundleCount,
                                                             std::int64_t currentSessionCount,
                                                             double lastFireTimestamp) {
  if (lifetimeCount < 0 || currentBundleCount < 0 || currentSessionCount < 0) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeNegativeCount,
                    "Failed to create event aggregates object. Received negative count.");
    return std::nullopt;
  }
  APMEventAggregates aggregates;
  aggregates.name = std::move(name);
  aggregates.lifetimeCount = lifetimeCount;
  aggregates.currentBundleCount = currentBundleCount;
  aggregates.currentSessionCount = currentSessionCount;
  aggregates.lastFireTimestamp = lastFireTimestamp;
  return aggregates;
}

// --- Opening ---

std::string APMDatabase::databasePathWithName(const std::string& name) {
  auto folders = platform::fileManager().searchPathForDirectoriesInDomains(
      platform::kApplicationSupportDirectory, platform::kUserDomainMask, true);
  std::string base = folders.empty() ? std::string(".") : folders.front();
  return base + "/Stuvop/Measurement/" + name;
}

std::unique_ptr<APMDatabase> APMDatabase::initWithDatabaseName(
    const std::string& name, std::shared_ptr<APMPersistedConfig> persistedConfig,
    platform::Error* error) {
  return initWithDatabasePath(databasePathWithName(name), std::move(persistedConfig), error);
}

std::unique_ptr<APMDatabase> APMDatabase::initWithDatabasePath(
    const std::string& path, std::shared_ptr<APMPersistedConfig> persistedConfig,
    platform::Error* error) {
  if (!APMCheckNotNull(persistedConfig.get(), kAPMErrorCodeInvalidArgument,
                       "Received empty persisted config", error)) {
    return nullptr;
  }
  std::unique_ptr<APMDatabase> database(new APMDatabase(path, std::move(persistedConfig)));
  if (!database->initializeDatabaseResourcesWithContext("Init", error)) return nullptr;
  return database;
}

bool APMDatabase::initializeDatabaseResourcesWithContext(const std::string& context,
                                                         platform::Error* error) {
  (void)context;  // a label only
  dropRowCache();
  auto store = APMSqliteStore::initWithDatabasePath(path_, error);
  if (!store) return false;
  store_ = std::move(store);
  if (!ensureAllTables(error)) {
    std::string reason = error ? error->localizedDescription : "";
    APMMonitor::log(kAPMMonitorLevelError, kCodeTablesInvalid,
                    "Failed to create or validate required database tables (" + reason + ")");
    platform::Error deleteError;
    if (!store_->closeAndDeleteDatabase(&deleteError)) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeDeleteAfterInvalid,
                      "Failed to delete old database file after failed validation. Error (" +
                          deleteError.localizedDescription + ")");
    }
    return false;
  }
  auto rows = store_->rowCountForTableWithName(kAppMetadata, error);
  bool ok = rows.has_value();
  if (ok && *rows == 0) {
    ok = store_->upsertRecord({{"rowid", 1},
                               {"last_bundle_index", 0},
                               {"last_bundle_end_timestamp", 0.0},
                               {"last_bundle_start_timestamp", 0.0}},
                              kAppMetadata, error);
  }
  if (!ok) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeAppMetadataInit,
                    "Failed to initialize App Metadata table (" +
                        (error ? error->localizedDescription : std::string()) + ")");
  }
  return ok;
}

bool APMDatabase::ensureAllTables(platform::Error* error) {
  for (const TableSchema& table : schema()) {
    if (!store_->ensureTableWithName(table.name, table.elementary, table.addOn, table.modify,
                                     error)) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeEnsureTable,
                      "Failed to ensure table. Table, error", table.name,
                      error ? error->localizedDescription : "");
      return false;
    }
  }
  // Audience filters are read by name, one name at a time while bundling; an index keeps each
  // read to the name's own rows. Without it the reads are slower, never wrong, so a failure
  // only logs.
  for (const auto& [table, column] : {std::pair{kEventFilters, "event_name"},
                                      std::pair{kPropertyFilters, "property_name"}}) {
    platform::Error indexError;
    std::string name = std::string(table) + "_by_" + column;
    if (!store_->executeSQL("CREATE INDEX IF NOT EXISTS " + name + " ON " + table + "(" +
                                column + ")",
                            {}, &indexError)) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeEnsureIndex,
                      "Failed to create index. Index, error", name,
                      indexError.localizedDescription);
    }
  }
  return true;
}

bool APMDatabase::reset(platform::Error* error) {
  dropRowCache();
  // The old file must go first: reopening it would bring the old data back.
  if (!store_->closeAndDeleteDatabase(error)) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeResetFailed, "Failed to delete database data");
    return false;
  }
  return initializeDatabaseResourcesWithContext("Reset", error);
}

APMDatabase::RowCache& APMDatabase::rowCache() {
  if (!store_ || !store_->isOpen() || rowCache_.rollbacks != store_->rollbackCount()) {
    dropRowCache();
  }
  return rowCache_;
}

void APMDatabase::dropRowCache() {
  rowCache_ = RowCache();
  if (store_) rowCache_.rollbacks = store_->rollbackCount();
}

bool APMDatabase::performTransaction(const std::function<bool()>& block, platform::Error* error) {
  platform::Error local;
  platform::Error* sink = error ? error : &local;
  if (store_->performTransactionWithError(sink, block)) return true;
  APMMonitor::log(kAPMMonitorLevelError, kCodeTransactionFailed,
                  "Transaction failed. " + sink->localizedDescription);
  return false;
}

// --- Small query helpers ---

std::optional<bool> APMDatabase::queryTruth(const std::string& sql, const Parameters& values,
                                            platform::Error* error) {
  auto n = store_->numberForQuery(sql, values, error);
  if (!n) return std::nullopt;
  return n->numberAsInteger().value_or(0) != 0;
}

std::optional<std::int64_t> APMDatabase::queryCount(const std::string& sql,
                                                    const Parameters& values,
                                                    platform::Error* error) {
  auto n = store_->numberForQuery(sql, values, error);
  if (!n) return std::nullopt;
  return n->numberAsInteger().value_or(0);
}

std::optional<double> APMDatabase::queryTime(const std::string& sql, platform::Error* error) {
  auto n = store_->numberForQuery(sql, {}, error);
  if (!n) return std::nullopt;
  return n->numberAsReal().value_or(0);
}

bool APMDatabase::checkRoomForRow(const std::string& table, const std::string& columnName,
                                  const kit::Value& columnValue, std::int64_t tableLimit,
                                  platform::Error* error) {
  // An existing key always passes; only a new one needs room.
  auto existing = store_->rowCountForTableWithName(table, columnName, columnValue, error);
  if (!existing) return false;
  if (*existing > 0) return true;
  auto rows = store_->rowCountForTableWithName(table, error);
  if (!rows) return false;
  if (*rows >= tableLimit) {
    return fail(error, kAPMErrorCodeFailedStep, kCodeTableFull,
                "Failed to insert data type. Table is full", kAPMMonitorLevelWarning);
  }
  return true;
}

bool APMDatabase::upsertDataType(const Record& record, const std::string& table,
                                 const std::string& columnName, const kit::Value& columnValue,
                                 std::int64_t tableLimit, platform::Error* error) {
  RowCache& cache = rowCache();
  if (table == kUserAttributes) cache.userAttributes.reset();
  if (table == kEvents) {
    if (const std::string* name = columnValue.asString()) {
      cache.eventAggregates.erase(*name);
    } else {
      cache.eventAggregates.clear();
    }
  }
  return checkRoomForRow(table, columnName, columnValue, tableLimit, error) &&
         store_->upsertRecord(record, table, error);
}

// --- app_metadata ---

std::optional<APMAppMetadata> APMDatabase::queryAppMetadata(platform::Error* error) {
  auto rows = store_->recordsForQuery(
      "SELECT last_bundle_index, last_bundle_end_timestamp, last_bundle_start_timestamp FROM "
      "app_metadata WHERE rowid = ?",
      {1}, error);
  if (!rows) return std::nullopt;
  if (rows->empty()) {
    APMSetError(error, kAPMErrorCodeInvalidState, "App metadata row is missing");
    return std::nullopt;
  }
  const Record& r = rows->front();
  auto metadata = APMAppMetadata::create(readInteger(r, "last_bundle_index"),
                                         readReal(r, "last_bundle_end_timestamp"),
                                         readReal(r, "last_bundle_start_timestamp"));
  if (!metadata) APMSetError(error, kAPMErrorCodeFailedStep, "Invalid app metadata");
  return metadata;
}

bool APMDatabase::updateAppMetadata(const APMAppMetadata& metadata, platform::Error* error) {
  return store_->updateRecord({{"last_bundle_index", integer(metadata.lastBundleIndex)},
                               {"last_bundle_end_timestamp", metadata.lastBundleEndTimestamp},
                               {"last_bundle_start_timestamp", metadata.lastBundleStartTimestamp}},
                              kAppMetadata, "rowid", 1, error);
}

std::optional<APMDailyCounts> APMDatabase::dailyCounts(platform::Error* error) {
  RowCache& cache = rowCache();
  if (!cache.dailyCounts) {
    auto rows = store_->recordsForQuery(
        "SELECT day, daily_conversions_count, daily_events_count, daily_public_events_count, "
        "daily_error_events_count, daily_real_time_conversion_events_count FROM app_metadata "
        "WHERE rowid = ?",
        {1}, error);
    if (!rows) return std::nullopt;
    RowCache::DailyCounts stored;
    if (!rows->empty()) {
      const Record& r = rows->front();
      auto count = [&r](const char* column) {
        return static_cast<std::int32_t>(readInteger(r, column));
      };
      stored.rowExists = true;
      stored.day = readOptionalInteger(r, "day");
      stored.counts.conversionsCount = count("daily_conversions_count");
      stored.counts.allEventsCount = count("daily_events_count");
      stored.counts.publicEventsCount = count("daily_public_events_count");
      stored.counts.errorEventsCount = count("daily_error_events_count");
      stored.counts.realtimeCount = count("daily_real_time_conversion_events_count");
    }
    cache.dailyCounts = stored;
  }
  APMDailyCounts counts;
  counts.day =
      static_cast<std::int32_t>(std::floor((now() - persistedConfig_->midnightOffset()) / 86400.0));
  const RowCache::DailyCounts& stored = *cache.dailyCounts;
  if (!stored.rowExists || stored.day != std::optional<std::int64_t>(counts.day)) return counts;
  std::int32_t day = counts.day;
  counts = stored.counts;
  counts.day = day;
  return counts;
}

bool APMDatabase::updateDailyCounts(const APMDailyCounts& counts, platform::Error* error) {
  // The statement the generic update builds from these columns (in name order), written out
  // once so that the write path does not build it for every event.
  static const std::string kSQL =
      "UPDATE app_metadata SET daily_conversions_count=?,daily_error_events_count=?,"
      "daily_events_count=?,daily_public_events_count=?,"
      "daily_real_time_conversion_events_count=?,day=? WHERE rowid=?";
  RowCache& cache = rowCache();
  std::optional<RowCache::DailyCounts> before = std::move(cache.dailyCounts);
  cache.dailyCounts.reset();
  if (!store_->executeSQL(kSQL,
                          {integer(counts.conversionsCount), integer(counts.errorEventsCount),
                           integer(counts.allEventsCount), integer(counts.publicEventsCount),
                           integer(counts.realtimeCount), integer(counts.day), integer(1)},
                          error)) {
    return false;
  }
  if (before) {
    // An UPDATE of a missing row changes nothing: the copy keeps saying so.
    before->day = counts.day;
    if (before->rowExists) before->counts = counts;
    cache.dailyCounts = std::move(before);
  }
  return true;
}

std::optional<kit::Data> APMDatabase::queryRemoteConfigData(platform::Error* error) {
  auto rows =
      store_->recordsForQuery("SELECT remote_config_data FROM app_metadata LIMIT 1", {}, error);
  if (!rows) return std::nullopt;
  if (rows->empty()) return kit::Data();
  return readData(rows->front(), "remote_config_data").value_or(kit::Data());
}

std::optional<double> APMDatabase::queryRemoteConfigTimestamp(platform::Error* error) {
  return queryTime("SELECT remote_config_timestamp FROM app_metadata LIMIT 1", error);
}

bool APMDatabase::updateRemoteConfig(const kit::Data& data, double timestamp,
                                     platform::Error* error) {
  return store_->updateRecord(
      {{"remote_config_data", data}, {"remote_config_timestamp", timestamp}}, kAppMetadata, "rowid",
      1, error);
}

bool APMDatabase::updateRemoteConfigSuccessfulTimestamp(double timestamp, platform::Error* error) {
  return store_->updateRecord({{"remote_config_timestamp", timestamp}}, kAppMetadata, "rowid", 1,
                              error);
}

// --- raw_events_metadata and raw_events ---

bool APMDatabase::insertIfNotExistsRawEventMetadata(std::int64_t fingerprint,
                                                    const kit::Data& metadata,
                                                    platform::Error* error) {
  RowCache& cache = rowCache();
  if (cache.metadataFingerprints.count(fingerprint)) return true;
  kit::Value key = integer(fingerprint);
  auto existing =
      store_->rowCountForTableWithName(kRawEventsMetadata, "metadata_fingerprint", key, error);
  if (!existing) return false;
  if (*existing == 0 &&
      !(checkRoomForRow(kRawEventsMetadata, "metadata_fingerprint", key, kRawEventsMetadataLimit,
                        error) &&
        store_->upsertRecord({{"metadata_fingerprint", key}, {"metadata", metadata}},
                             kRawEventsMetadata, error))) {
    return false;
  }
  cache.metadataFingerprints.insert(fingerprint);
  return true;
}

std::optional<std::optional<APMPBMessage<APMPBMeasurementBundle>>>
APMDatabase::queryRawEventsMetadataWithFingerprint(std::int64_t fingerprint,
                                                   platform::Error* error) {
  auto rows = store_->recordsForQuery(
      "SELECT metadata FROM raw_events_metadata WHERE metadata_fingerprint = ?",
      {integer(fingerprint)}, error);
  if (!rows) return std::nullopt;
  if (rows->empty()) return std::optional<APMPBMessage<APMPBMeasurementBundle>>();
  auto data = readData(rows->front(), "metadata").value_or(kit::Data());
  auto metadata = APMPBMessage<APMPBMeasurementBundle>::parseFromData(data, error);
  if (!metadata) return std::nullopt;
  return std::optional<APMPBMessage<APMPBMeasurementBundle>>(std::move(*metadata));
}

bool APMDatabase::deleteRawEventMetadataWithMetadataFingerprint(std::int64_t fingerprint,
                                                                platform::Error* error) {
  rowCache().metadataFingerprints.erase(fingerprint);
  return store_->deleteRecordFromTableWithName(kRawEventsMetadata, "metadata_fingerprint",
                                               integer(fingerprint), error);
}

std::optional<std::int64_t> APMDatabase::deleteUnusedRawEventsMetadata(platform::Error* error) {
  rowCache().metadataFingerprints.clear();
  return store_->deleteRecordsFromTableWithName(
      kRawEventsMetadata,
      "metadata_fingerprint NOT IN (SELECT DISTINCT metadata_fingerprint FROM raw_events)", {},
      error);
}

std::optional<bool> APMDatabase::isRawEventsTableEmpty(platform::Error* error) {
  if (rowCache().rawEventsStored) return false;
  return queryTruth("SELECT NOT EXISTS (SELECT 1 FROM raw_events LIMIT 1)", {}, error);
}

std::optional<std::int64_t> APMDatabase::rawEventsRowIDSpan(platform::Error* error) {
  RowCache& cache = rowCache();
  if (!cache.rawEventsRowIDs) {
    auto rows = store_->recordsForQuery(
        "SELECT (SELECT min(rowid) FROM raw_events) AS low, (SELECT max(rowid) FROM raw_events) "
        "AS high",
        {}, error);
    if (!rows) return std::nullopt;
    auto low = rows->empty() ? std::nullopt : readOptionalInteger(rows->front(), "low");
    auto high = rows->empty() ? std::nullopt : readOptionalInteger(rows->front(), "high");
    cache.rawEventsRowIDs.emplace();
    if (low && high) *cache.rawEventsRowIDs = std::make_pair(*low, *high);
  }
  const auto& ids = *cache.rawEventsRowIDs;
  return ids ? ids->second - ids->first + 1 : 0;
}

bool APMDatabase::insertRawEvent(const APMPBEvent& event, std::int64_t metadataFingerprint,
                                 bool isRealtime, platform::Error* error) {
  // A shallow copy without the name: it shares the event's allocations and frees none.
  APMPBEvent nameless = event;
  nameless.name = nullptr;
  kit::Data data;
  if (!APMPBEncode(APMPBMessage<APMPBEvent>::fields(), &nameless, &data, error)) return false;
  return insertRawEvent(std::string(APMPBString(event.name)), event.timestamp_millis,
                        std::move(data), metadataFingerprint, isRealtime, error);
}

bool APMDatabase::insertRawEvent(const std::string& name, std::int64_t timestampMillis,
                                 kit::Data data, std::int64_t metadataFingerprint,
                                 bool isRealtime, platform::Error* error) {
  // The statement the generic upsert builds from these columns (in name order), written out
  // once so that the write path does not build it for every event.
  static const std::string kSQL =
      "INSERT OR REPLACE INTO raw_events (data, is_realtime, metadata_fingerprint, name, "
      "timestamp) VALUES (?, ?, ?, ?, ?);";
  RowCache& cache = rowCache();
  if (!store_->executeSQL(kSQL,
                          {kit::Value(std::move(data)), integer(isRealtime ? 1 : 0),
                           integer(metadataFingerprint), name,
                           static_cast<double>(timestampMillis) / 1000.0},
                          error)) {
    return false;
  }
  cache.rawEventsStored = true;
  if (cache.rawEventsRowIDs) {
    std::int64_t id = store_->lastInsertRowID();
    auto& ids = *cache.rawEventsRowIDs;
    if (ids && id > ids->second) {
      ids->second = id;
    } else if (!ids) {
      ids = std::make_pair(id, id);
    } else {
      cache.rawEventsRowIDs.reset();  // not the next row id: read them again
    }
  }
  return true;
}

std::optional<double> APMDatabase::queryLatestRawEventTime(platform::Error* error) {
  return queryTime("SELECT MAX(timestamp) FROM raw_events", error);
}

std::optional<std::vector<APMRawEventData>> APMDatabase::rawEventsWithMetadataFingerprint(
    std::int64_t metadataFingerprint, platform::Error* error, const RawEventFilter& eventFilter) {
  std::vector<APMRawEventData> events;
  auto rows = store_->recordsForQuery(
      "SELECT rowid, * FROM raw_events WHERE metadata_fingerprint = ? ORDER BY rowid ASC LIMIT ?",
      {integer(metadataFingerprint), integer(kRawEventsReadLimit)}, error,
      [&](const Record& r, bool* stop) {
        kit::Data data = readData(r, "data").value_or(kit::Data());
        platform::Error parseError;
        auto event = APMPBMessage<APMPBEvent>::parseFromData(data, &parseError);
        if (!event) {
          APMMonitor::log(kAPMMonitorLevelError, kCodeRawEventFilter,
                          "Failed to filter raw event. Error", parseError.localizedDescription);
          return false;
        }
        APMPBSetString(&(*event)->name, readText(r, "name").value_or(""));
        APMRawEventData raw{readInteger(r, "rowid"), readInteger(r, "metadata_fingerprint"),
                            readInteger(r, "is_realtime") != 0, std::move(*event), data.size()};
        if (eventFilter && !eventFilter(raw, stop)) return false;
        events.push_back(std::move(raw));
        return true;
      });
  if (!rows) return std::nullopt;
  return events;
}

std::optional<bool> APMDatabase::containsRawEventWithMetadataFingerprint(
    std::int64_t metadataFingerprint, platform::Error* error) {
  return queryTruth(
      "SELECT EXISTS (SELECT 1 FROM raw_events WHERE metadata_fingerprint = ? LIMIT 1)",
      {integer(metadataFingerprint)}, error);
}

bool APMDatabase::deleteRawEventsWithMaxRowID(std::int64_t maxRowID, platform::Error* error) {
  rowCache().rawEventsStored = false;
  rowCache().rawEventsRowIDs.reset();
  return store_
      ->deleteRecordsFromTableWithName(kRawEvents, "rowid <= ?", {integer(maxRowID)}, error)
      .has_value();
}

std::optional<std::int64_t> APMDatabase::deleteRawEventsOverAbsoluteLimit(
    std::int64_t maxEventsStored, platform::Error* error) {
  rowCache().rawEventsStored = false;
  rowCache().rawEventsRowIDs.reset();
  return store_->deleteRecordsFromTableWithName(
      kRawEvents, "rowid IN (SELECT rowid FROM raw_events ORDER BY rowid DESC LIMIT -1 OFFSET ?)",
      {integer(std::max<std::int64_t>(maxEventsStored - 1, 0))}, error);
}

std::optional<std::int64_t> APMDatabase::deleteStaleRawEventsDataOlderThanMaxAge(
    double maxAge, platform::Error* error) {
  if (maxAge < 0) {
    fail(error, kAPMErrorCodeInvalidArgument, kCodeNegativeRawEventsAge,
         "Cannot delete stale raw events given negative time period");
    return std::nullopt;
  }
  rowCache().rawEventsStored = false;
  rowCache().rawEventsRowIDs.reset();
  return store_->deleteRecordsFromTableWithName(
      kRawEvents, "abs(timestamp - cast(? as REAL)) > cast(? as REAL)", {now(), maxAge}, error);
}

std::optional<std::optional<std::int64_t>> APMDatabase::nextMetadataFingerprintToProcess(
    platform::Error* error) {
  auto rows =
      store_->recordsForQuery("SELECT metadata_fingerprint, MIN(rowid) FROM raw_events", {}, error);
  if (!rows) return std::nullopt;
  if (rows->empty()) return std::optional<std::int64_t>();
  return readOptionalInteger(rows->front(), "metadata_fingerprint");
}

std::optional<bool> APMDatabase::containsRealtimeRawEventsWithError(platform::Error* error) {
  return queryTruth("SELECT EXISTS (SELECT 1 FROM raw_events WHERE is_realtime = 1 LIMIT 1)", {},
                    error);
}

// --- queue ---

std::optional<bool> APMDatabase::isQueuedBundleTableEmpty(platform::Error* error) {
  return queryTruth("SELECT NOT EXISTS (SELECT 1 FROM queue LIMIT 1)", {}, error);
}

std::optional<std::int64_t> APMDatabase::insertBundle(const APMPBMeasurementBundle& bundle,
                                                      bool isRealtime, platform::Error* error) {
  kit::Data bytes;
  if (!APMPBEncodeBundle(bundle, &bytes, error)) return std::nullopt;
  if (bytes.empty()) {
    fail(error, kAPMErrorCodeInvalidArgument, kCodeNilBundle, "Failed to insert nil bundle");
    return std::nullopt;
  }
  if (APMPBString(bundle.app_id).empty()) {
    fail(error, kAPMErrorCodeInvalidArgument, kCodeBundleWithoutAppID,
         "Failed to insert bundle without App ID");
    return std::nullopt;
  }
  if (!bundle.has_bundle_end_timestamp_millis || bundle.bundle_end_timestamp_millis < 1) {
    fail(error, kAPMErrorCodeInvalidArgument, kCodeBundleWithoutTimestamp,
         "Failed to insert bundle without valid timestamp");
    return std::nullopt;
  }
  double end = static_cast<double>(bundle.bundle_end_timestamp_millis) / 1000.0;
  if (std::fabs(end - now()) > limits_.maxQueueTime) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeBundleOutsideQueueTime,
                    "Storing bundle outside of the max uploading time span");
  }
  platform::Error zipError;
  auto zipped = APMGzipData(bytes, &zipError);
  if (!zipped || zipped->empty()) {
    fail(error, kAPMErrorCodeFailedStep, kCodeCompressBundle, "Failed to compress bundle");
    return std::nullopt;
  }
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeSavingBundle, "Saving bundle. size (bytes)",
                  zipped->size());
  if (!store_->upsertRecord({{"bundle_end_timestamp", end},
                             {"data", std::move(*zipped)},
                             {"is_realtime", isRealtime ? 1 : 0},
                             {"retry_count", bundle.has_retry_count ? bundle.retry_count : 0}},
                            kQueue, error)) {
    return std::nullopt;
  }
  RowCache& cache = rowCache();
  if (cache.latestBundleTime) cache.latestBundleTime = std::max(*cache.latestBundleTime, end);
  if (cache.realtimeBundles) cache.realtimeBundles = *cache.realtimeBundles || isRealtime;
  return store_->lastInsertRowID();
}

bool APMDatabase::incrementRetryCounterForBundlesWithIDs(const std::vector<std::int64_t>& rowIDs,
                                                         platform::Error* error) {
  if (rowIDs.empty()) {
    return fail(error, kAPMErrorCodeInvalidArgument, kCodeIncrementRetry,
                "Failed to increment retry counter");
  }
  std::string inRows = "rowid IN (" + placeholders(rowIDs.size()) + ")";
  Parameters values = idValues(rowIDs);
  values.push_back(integer(kMaxRetryCount));
  auto saturated =
      queryTruth("SELECT EXISTS (SELECT 1 FROM queue WHERE " + inRows + " AND retry_count = ?)",
                 values, error);
  if (!saturated) return false;
  if (*saturated) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeRetryLimit,
                    "The number of upload retries exceeds the limit. Will remain unchanged.");
  }
  return store_->increaseColumn("retry_count", 1, kQueue, inRows + " AND retry_count < ?", values,
                                error);
}

std::optional<std::vector<APMQueuedBundle>> APMDatabase::readBundles(const std::string& sql,
                                                                     const Parameters& values,
                                                                     std::int64_t sizeLimit,
                                                                     platform::Error* error) {
  // Rows are stepped one at a time and kept by nobody: reading stops at the first bundle
  // that does not fit, so the rows behind it are never copied out of the file.
  std::vector<APMQueuedBundle> bundles;
  std::int64_t totalSize = 0;
  std::optional<ParsedBundle> held = std::move(heldBundle_);
  heldBundle_.reset();
  platform::Error readError;
  auto rows = store_->recordsForQuery(sql, values, &readError, [&](const Record& r, bool* stop) {
    std::int64_t rowID = readInteger(r, "rowid");
    auto it = r.find("data");
    const kit::Data* zipped = it == r.end() ? nullptr : it->second.asData();
    ParsedBundle parsed;
    if (held && held->rowID == rowID && zipped && held->zipped == *zipped) {
      parsed = std::move(*held);
      held.reset();
    } else {
      auto bytes = !zipped || zipped->empty() ? std::nullopt : APMGunzipData(*zipped, nullptr);
      if (!bytes || bytes->empty()) {
        APMMonitor::log(kAPMMonitorLevelError, kCodeDecompressBundle,
                        "Cannot decompress an empty bundle data", rowID);
        return false;
      }
      auto bundle = APMPBMessage<APMPBMeasurementBundle>::parseFromData(*bytes);
      if (!bundle) {
        APMMonitor::log(kAPMMonitorLevelError, kCodeParseBundle,
                        "Unable to parse bundle from decompressed data", rowID);
        return false;
      }
      parsed = ParsedBundle{rowID, *zipped, std::move(*bundle), bytes->size()};
    }
    // The first bundle is taken whatever its size, so that one cannot block the queue.
    auto size = static_cast<std::int64_t>(parsed.serializedSize);
    if (!bundles.empty() && totalSize + size > sizeLimit) {
      // The next read most likely starts with this row: its parse is kept for it.
      heldBundle_ = std::move(parsed);
      *stop = true;
      return false;
    }
    totalSize += size;
    bundles.push_back(APMQueuedBundle{rowID, std::move(parsed.bundle),
                                      readInteger(r, "retry_count"), parsed.serializedSize});
    return false;
  });
  if (!rows) {
    if (error) *error = readError;
    return std::nullopt;
  }
  return bundles;
}

std::optional<std::vector<APMQueuedBundle>> APMDatabase::queryBundlesWithCountLimit(
    std::int64_t countLimit, std::int64_t sizeLimit, platform::Error* error) {
  return readBundles("SELECT rowid, data, retry_count FROM queue ORDER BY rowid ASC LIMIT ?",
                     {integer(countLimit)}, sizeLimit, error);
}

std::optional<std::vector<APMQueuedBundle>> APMDatabase::queryBundlesWithRowIDs(
    const std::vector<std::int64_t>& rowIDs, platform::Error* error) {
  if (rowIDs.empty()) return std::vector<APMQueuedBundle>();
  return readBundles("SELECT rowid, data, retry_count FROM queue WHERE rowid IN (" +
                         placeholders(rowIDs.size()) + ")",
                     idValues(rowIDs), INT64_MAX, error);
}

bool APMDatabase::deleteBundlesWithRowIDs(const std::vector<std::int64_t>& rowIDs,
                                          platform::Error* error) {
  if (rowIDs.empty()) return true;
  forgetQueueFacts();
  return store_
      ->deleteRecordsFromTableWithName(kQueue, "rowid IN (" + placeholders(rowIDs.size()) + ")",
                                       idValues(rowIDs), error)
      .has_value();
}

bool APMDatabase::maybeDeleteStaleData(platform::Error* error) {
  double current = now();
  if (std::fabs(current - persistedConfig_->lastDeleteStaleBundlesTimestamp()) <=
      limits_.databaseDeleteStaleBundlesInterval) {
    return false;
  }
  auto rawDeleted = deleteStaleRawEventsDataOlderThanMaxAge(limits_.maxQueueTime, error);
  if (!rawDeleted) return false;
  if (*rawDeleted > 0 && !deleteUnusedRawEventsMetadata(error)) return false;
  if (!deleteStaleBundlesOlderThanMaxAge(limits_.maxQueueTime, error)) return false;
  persistedConfig_->setLastDeleteStaleBundlesTimestamp(current);
  return true;
}

std::optional<std::int64_t> APMDatabase::deleteStaleBundlesOlderThanMaxAge(double maxAge,
                                                                           platform::Error* error) {
  if (maxAge < 0) {
    fail(error, kAPMErrorCodeInvalidArgument, kCodeNegativeBundlesAge,
         "Cannot delete stale bundles after negative time period");
    return std::nullopt;
  }
  forgetQueueFacts();
  return store_->deleteRecordsFromTableWithName(
      kQueue, "abs(bundle_end_timestamp - cast(? as REAL)) > cast(? as REAL)", {now(), maxAge},
      error);
}

void APMDatabase::forgetQueueFacts() {
  RowCache& cache = rowCache();
  cache.latestBundleTime.reset();
  cache.realtimeBundles.reset();
}

std::optional<double> APMDatabase::queryLatestBundleTime(platform::Error* error) {
  RowCache& cache = rowCache();
  if (cache.latestBundleTime) return cache.latestBundleTime;
  auto latest = queryTime("SELECT MAX(bundle_end_timestamp) FROM queue", error);
  if (latest) rowCache().latestBundleTime = latest;
  return latest;
}

std::optional<bool> APMDatabase::containsRealtimeBundlesWithError(platform::Error* error) {
  RowCache& cache = rowCache();
  if (cache.realtimeBundles) return cache.realtimeBundles;
  auto realtime =
      queryTruth("SELECT EXISTS (SELECT 1 FROM queue WHERE is_realtime = 1 LIMIT 1)", {}, error);
  if (realtime) rowCache().realtimeBundles = realtime;
  return realtime;
}

// --- events ---

std::optional<std::optional<APMEventAggregates>> APMDatabase::queryEventAggregatesWithName(
    const std::string& name, platform::Error* error) {
  RowCache& cache = rowCache();
  if (auto it = cache.eventAggregates.find(name); it != cache.eventAggregates.end()) {
    return std::optional<APMEventAggregates>(it->second);
  }
  auto rows = store_->recordsForQuery("SELECT * FROM events WHERE name = ?", {name}, error);
  if (!rows) return std::nullopt;
  if (rows->empty()) return std::optional<APMEventAggregates>();
  auto aggregates = aggregatesFromRecord(rows->front());
  if (!aggregates) {
    APMSetError(error, kAPMErrorCodeFailedStep, "Invalid event aggregates");
    return std::nullopt;
  }
  if (aggregates->name == name) cache.eventAggregates.insert_or_assign(name, *aggregates);
  return std::optional<APMEventAggregates>(std::move(*aggregates));
}

std::optional<std::vector<APMEventAggregates>> APMDatabase::queryAllEventAggregates(
    platform::Error* error) {
  auto rows = store_->recordsForQuery("SELECT * FROM events", {}, error);
  if (!rows) return std::nullopt;
  return parseAll<APMEventAggregates>(*rows, aggregatesFromRecord);
}

bool APMDatabase::updateEventAggregates(const APMEventAggregates& a, platform::Error* error) {
  // The upsert the generic path builds from these columns (in name order), written out once:
  // bundling writes the aggregates of every event it takes.
  static const std::string kSQL =
      "INSERT OR REPLACE INTO events (current_bundle_count, current_session_count, "
      "last_bundled_day, last_bundled_timestamp, last_exempt_from_sampling, last_fire_timestamp, "
      "last_sampled_complex_event_id, last_sampling_rate, lifetime_count, name) VALUES (?, ?, ?, "
      "?, ?, ?, ?, ?, ?, ?);";
  RowCache& cache = rowCache();
  // A name whose row is known to stand in the table always has room.
  auto known = cache.eventAggregates.find(a.name);
  bool exists = known != cache.eventAggregates.end();
  if (exists) cache.eventAggregates.erase(known);
  if (!exists && !checkRoomForRow(kEvents, "name", a.name, kEventsLimit, error)) return false;
  if (!store_->executeSQL(kSQL,
                          {integer(a.currentBundleCount), integer(a.currentSessionCount),
                           optionalValue(a.lastBundledDay), optionalValue(a.lastBundledTimestamp),
                           integer(a.lastExemptFromSampling ? 1 : 0), a.lastFireTimestamp,
                           optionalValue(a.lastSampledComplexEventID),
                           optionalValue(a.lastSamplingRate), integer(a.lifetimeCount), a.name},
                          error)) {
    return false;
  }
  rowCache().eventAggregates.insert_or_assign(a.name, a);
  return true;
}

bool APMDatabase::clearCurrentSessionCounts(platform::Error* error) {
  rowCache().eventAggregates.clear();
  return store_->updateAllRecordsInTableWithName(kEvents, "current_session_count", 0, error);
}

std::optional<std::int64_t> APMDatabase::countPublicEventNames(platform::Error* error) {
  return queryCount("SELECT count(1) FROM events WHERE name NOT LIKE '!_%' ESCAPE '!'", {}, error);
}

// --- user_attributes ---

std::optional<std::vector<APMUserAttribute>> APMDatabase::queryAllUserAttributes(
    platform::Error* error) {
  RowCache& cache = rowCache();
  if (cache.userAttributes) return *cache.userAttributes;
  auto rows = store_->recordsForQuery("SELECT * FROM user_attributes", {}, error);
  if (!rows) return std::nullopt;
  auto attributes = parseAll<APMUserAttribute>(*rows, userAttributeFromRecord);
  if (attributes.size() == rows->size()) cache.userAttributes = attributes;
  return attributes;
}

std::optional<std::optional<APMUserAttribute>> APMDatabase::queryUserAttributeWithName(
    const std::string& name, platform::Error* error) {
  auto rows =
      store_->recordsForQuery("SELECT * FROM user_attributes WHERE name = ?", {name}, error);
  if (!rows) return std::nullopt;
  if (rows->empty()) return std::optional<APMUserAttribute>();
  return userAttributeFromRecord(rows->front());
}

bool APMDatabase::updateUserAttribute(const APMUserAttribute& attribute, platform::Error* error) {
  if (!APMCheck(!attribute.value.isArray(), kAPMErrorCodeInvalidArgument,
                "User attribute value cannot be an array", error)) {
    return false;
  }
  return upsertDataType({{"name", attribute.name},
                         {"set_timestamp", attribute.lastSetTimestamp},
                         {"value", encodeValue(attribute.value)},
                         {"origin", attribute.origin}},
                        kUserAttributes, "name", attribute.name, kUserAttributesLimit, error);
}

bool APMDatabase::deleteUserAttributeWithName(const std::string& name, platform::Error* error) {
  rowCache().userAttributes.reset();
  return store_->deleteRecordFromTableWithName(kUserAttributes, "name", name, error);
}

std::optional<std::int64_t> APMDatabase::countPublicUserAttributes(platform::Error* error) {
  return queryCount("SELECT count(1) FROM user_attributes WHERE name NOT LIKE '!_%' ESCAPE '!'", {},
                    error);
}

std::optional<std::int64_t> APMDatabase::countUserAttributesWithOrigin(const std::string& origin,
                                                                       platform::Error* error) {
  return queryCount("SELECT count(1) FROM user_attributes WHERE origin = ?", {origin}, error);
}

std::optional<bool> APMDatabase::containsUserAttributeWithName(const std::string& name,
                                                               platform::Error* error) {
  return queryTruth("SELECT EXISTS (SELECT 1 FROM user_attributes WHERE name = ? LIMIT 1)", {name},
                    error);
}

std::optional<std::vector<APMUserAttribute>> APMDatabase::queryUserAttributesWithNamePrefix(
    const std::string& prefix, platform::Error* error) {
  auto rows = store_->recordsForQuery(
      "SELECT * FROM user_attributes WHERE name LIKE ? || '%' ORDER BY set_timestamp DESC",
      {prefix}, error);
  if (!rows) return std::nullopt;
  return parseAll<APMUserAttribute>(*rows, userAttributeFromRecord);
}

// --- audiences ---

bool APMDatabase::insertFilter(const std::string& table, const std::string& nameColumn,
                               const APMAudienceFilterRecord& filter, platform::Error* error) {
  return store_->upsertRecord({{"audience_id", integer(filter.audienceID)},
                               {"filter_id", integer(filter.filterID)},
                               {nameColumn, filter.name},
                               {"data", filter.data},
                               {"session_scoped", filter.sessionScoped ? 1 : 0}},
                              table, error);
}

bool APMDatabase::insertEventFilter(const APMAudienceFilterRecord& filter, platform::Error* error) {
  return insertFilter(kEventFilters, "event_name", filter, error);
}

bool APMDatabase::insertPropertyFilter(const APMAudienceFilterRecord& filter,
                                       platform::Error* error) {
  return insertFilter(kPropertyFilters, "property_name", filter, error);
}

bool APMDatabase::deleteAllAudienceFilters(platform::Error* error) {
  return store_->deleteAllRecordsFromTableWithName(kEventFilters, error) &&
         store_->deleteAllRecordsFromTableWithName(kPropertyFilters, error);
}

std::optional<std::vector<APMAudienceFilterRecord>> APMDatabase::queryFilters(
    const std::string& table, const std::string& nameColumn, const std::string& name,
    platform::Error* error) {
  auto rows = store_->recordsForQuery(
      "SELECT * FROM " + table + " WHERE " + nameColumn + " = ? ORDER BY audience_id, filter_id",
      {name}, error);
  if (!rows) return std::nullopt;
  std::vector<APMAudienceFilterRecord> filters;
  for (const Record& r : *rows) {
    filters.push_back({readInteger(r, "audience_id"), readInteger(r, "filter_id"),
                       readText(r, nameColumn.c_str()).value_or(""),
                       readData(r, "data").value_or(kit::Data()),
                       readInteger(r, "session_scoped") != 0});
  }
  return filters;
}

std::optional<std::vector<APMAudienceFilterRecord>> APMDatabase::queryEventFiltersWithEventName(
    const std::string& eventName, platform::Error* error) {
  return queryFilters(kEventFilters, "event_name", eventName, error);
}

std::optional<std::vector<APMAudienceFilterRecord>>
APMDatabase::queryPropertyFiltersWithPropertyName(const std::string& propertyName,
                                                  platform::Error* error) {
  return queryFilters(kPropertyFilters, "property_name", propertyName, error);
}

std::optional<std::vector<std::int64_t>> APMDatabase::queryAllAudienceIDs(platform::Error* error) {
  auto rows = store_->recordsForQuery(
      "SELECT audience_id FROM event_filters UNION SELECT audience_id FROM property_filters", {},
      error);
  if (!rows) return std::nullopt;
  std::vector<std::int64_t> ids;
  for (const Record& r : *rows) ids.push_back(readInteger(r, "audience_id"));
  return ids;
}

std::optional<std::vector<std::pair<std::int64_t, std::int64_t>>>
APMDatabase::querySessionScopedFilterIDs(platform::Error* error) {
  auto rows = store_->recordsForQuery(
      "SELECT audience_id, filter_id FROM event_filters WHERE session_scoped = 1 UNION SELECT "
      "audience_id, filter_id FROM property_filters WHERE session_scoped = 1",
      {}, error);
  if (!rows) return std::nullopt;
  std::vector<std::pair<std::int64_t, std::int64_t>> ids;
  for (const Record& r : *rows) {
    ids.emplace_back(readInteger(r, "audience_id"), readInteger(r, "filter_id"));
  }
  return ids;
}

std::optional<std::int64_t> APMDatabase::deleteAudienceFiltersWithIDs(
    const std::vector<std::pair<std::int64_t, std::int64_t>>& ids, platform::Error* error) {
  if (ids.empty()) return 0;
  std::string condition;
  for (const auto& [audience, filter] : ids) {
    if (!condition.empty()) condition += " OR ";
    condition += "(audience_id=" + std::to_string(audience) +
                 " AND filter_id=" + std::to_string(filter) + ")";
  }
  std::int64_t deleted = 0;
  for (const char* table : {kEventFilters, kPropertyFilters}) {
    auto n = store_->deleteRecordsFromTableWithName(table, condition, {}, error);
    if (!n) return std::nullopt;
    deleted += *n;
  }
  return deleted;
}

std::optional<std::vector<APMFilterResult>> APMDatabase::queryAllFilterResults(
    platform::Error* error) {
  auto rows = store_->recordsForQuery("SELECT * FROM audience_filter_values", {}, error);
  if (!rows) return std::nullopt;
  std::vector<APMFilterResult> results;
  for (const Record& r : *rows) {
    results.push_back({readInteger(r, "audience_id"), readData(r, "current_results"),
                       readData(r, "previous_results")});
  }
  return results;
}

bool APMDatabase::updateFilterResult(const APMFilterResult& result, platform::Error* error) {
  return store_->upsertRecord({{"audience_id", integer(result.audienceID)},
                               {"current_results", optionalValue(result.currentResults)},
                               {"previous_results", optionalValue(result.previousResults)}},
                              kAudienceFilterValues, error);
}

std::optional<std::int64_t> APMDatabase::deleteFilterResultsWithAudienceIDs(
    const std::vector<std::int64_t>& audienceIDs, platform::Error* error) {
  if (audienceIDs.empty()) return 0;
  std::string list;
  for (std::int64_t id : audienceIDs) list += (list.empty() ? "" : ", ") + std::to_string(id);
  return store_->deleteRecordsFromTableWithName(
      kAudienceFilterValues, std::string("audience_id") + " IN (" + list + ")", {}, error);
}

// --- purchase_transactions and subscriptions ---

bool APMDatabase::insertIfNewKey(const std::string& table, const std::string& column,
                                 const std::string& key, platform::Error* error) {
  if (key.empty()) return false;
  auto known = store_->rowCountForTableWithName(table, column, key, error);
  if (!known || *known > 0) return false;
  return store_->upsertRecord({{column, key}}, table, error);
}

bool APMDatabase::insertIfNotDuplicatePurchaseFingerprint(const std::string& fingerprint,
                                                          platform::Error* error) {
  return insertIfNewKey(kPurchaseTransactions, "fingerprint", fingerprint, error) &&
         store_
             ->deleteRecordsFromTableWithName(
                 kPurchaseTransactions,
                 "rowid IN (SELECT rowid FROM purchase_transactions ORDER BY rowid DESC LIMIT -1 "
                 "OFFSET ?)",
                 {integer(kPurchaseTransactionsLimit)}, error)
             .has_value();
}

bool APMDatabase::insertIfNotDuplicateSubscriptionID(const std::string& subscriptionID,
                                                     platform::Error* error) {
  return insertIfNewKey(kSubscriptions, "subscription_id", subscriptionID, error);
}

std::optional<std::int64_t> APMDatabase::deleteSubscriptionsOverLimit(std::int64_t limit,
                                                                      platform::Error* error) {
  return store_->deleteRecordsFromTableWithName(
      kSubscriptions,
      "rowid IN (SELECT rowid FROM subscriptions ORDER BY rowid DESC LIMIT -1 OFFSET ?)",
      {integer(limit)}, error);
}

// --- conditional_properties ---

bool APMDatabase::updateConditionalProperty(const APMConditionalProperty& p,
                                            platform::Error* error) {
  if (!APMCheck(!p.value.isArray(), kAPMErrorCodeInvalidArgument,
                "Conditional property value cannot be an array", error)) {
    return false;
  }
  return upsertDataType({{"name", p.name},
                         {"origin", p.origin},
                         {"value", encodeValue(p.value)},
                         {"creation_timestamp", p.creationTimestamp},
                         {"active", p.active ? 1 : 0},
                         {"trigger_timeout", p.triggerTimeout},
                         {"triggered_timestamp", p.triggeredTimestamp},
                         {"time_to_live", p.timeToLive},
                         {"trigger_event_name", optionalValue(p.triggerEventName)},
                         {"timed_out_event", optionalValue(p.timedOutEvent)},
                         {"triggered_event", optionalValue(p.triggeredEvent)},
                         {"expired_event", optionalValue(p.expiredEvent)}},
                        kConditionalProperties, "name", p.name, kConditionalPropertiesLimit, error);
}

std::optional<std::vector<APMConditionalProperty>> APMDatabase::queryConditionalPropertiesWhere(
    const std::string& condition, const Parameters& values, platform::Error* error) {
  auto rows = store_->recordsForQuery("SELECT * FROM conditional_properties WHERE " + condition,
                                      values, error);
  if (!rows) return std::nullopt;
  return parseAll<APMConditionalProperty>(*rows, conditionalPropertyFromRecord);
}

std::optional<std::optional<APMConditionalProperty>> APMDatabase::queryConditionalPropertyWithName(
    const std::string& name, platform::Error* error) {
  auto found = queryConditionalPropertiesWhere("name = ?", {name}, error);
  if (!found) return std::nullopt;
  if (found->empty()) return std::optional<APMConditionalProperty>();
  return std::optional<APMConditionalProperty>(std::move(found->front()));
}

bool APMDatabase::deleteConditionalPropertyWithName(const std::string& name,
                                                    platform::Error* error) {
  return store_->deleteRecordFromTableWithName(kConditionalProperties, "name", name, error);
}

std::optional<std::vector<APMConditionalProperty>> APMDatabase::queryTimedOutConditionalProperties(
    double current, platform::Error* error) {
  return queryConditionalPropertiesWhere(
      "active=0 and abs(? - creation_timestamp) > trigger_timeout", {current}, error);
}

std::optional<std::vector<APMConditionalProperty>> APMDatabase::queryExpiredConditionalProperties(
    double current, platform::Error* error) {
  return queryConditionalPropertiesWhere("active=1 and abs(? - triggered_timestamp) > time_to_live",
                                         {current}, error);
}

std::optional<std::vector<APMConditionalProperty>> APMDatabase::queryTriggeredConditionalProperties(
    const std::string& eventName, double current, platform::Error* error) {
  return queryConditionalPropertiesWhere(
      "active=0 and trigger_event_name=? and abs(? - creation_timestamp) <= trigger_timeout",
      {eventName, current}, error);
}

std::optional<std::vector<APMConditionalProperty>> APMDatabase::queryConditionalProperties(
    const std::optional<std::string>& namePrefix, const std::optional<std::string>& origin,
    platform::Error* error) {
  std::string condition;
  Parameters values;
  if (namePrefix) {
    condition = "name LIKE ? || '%'";
    values.emplace_back(*namePrefix);
  }
  if (origin) {
    condition += (condition.empty() ? "" : " AND ") + std::string("origin LIKE ?");
    values.emplace_back(*origin);
  }
  return queryConditionalPropertiesWhere(condition.empty() ? "1 == 1" : condition, values, error);
}

// --- main_event_params ---

bool APMDatabase::updateMainEventParams(const APMMainEventParams& params, platform::Error* error) {
  return store_->upsertRecord({{"event_id", integer(params.eventID)},
                               {"children_to_process", integer(params.childrenToProcess)},
                               {"main_event", params.mainEvent}},
                              kMainEventParams, error);
}

std::optional<std::optional<APMMainEventParams>> APMDatabase::queryMainEventParamsWithEventID(
    std::int64_t eventID, platform::Error* error) {
  auto rows = store_->recordsForQuery("SELECT * FROM main_event_params WHERE event_id = ?",
                                      {integer(eventID)}, error);
  if (!rows) return std::nullopt;
  if (rows->empty()) return std::optional<APMMainEventParams>();
  const Record& r = rows->front();
  return std::optional<APMMainEventParams>(
      APMMainEventParams{readInteger(r, "event_id"), readInteger(r, "children_to_process"),
                         readData(r, "main_event").value_or(kit::Data())});
}

bool APMDatabase::deleteMainEventParamsWithEventID(std::int64_t eventID, platform::Error* error) {
  return store_->deleteRecordFromTableWithName(kMainEventParams, "event_id", integer(eventID),
                                               error);
}
