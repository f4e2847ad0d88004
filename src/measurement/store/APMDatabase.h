// APMDatabase: the measurement schema over APMSqliteStore. One typed operation per question
// the pipeline asks, the row limits and the retention rules.
//
// Threading: every call runs on the measurement worker queue; nothing here locks.
//
// Results: an operation returns a truth value or an optional result; an empty optional (or
// false) means failure and fills `error`. A lookup that may find nothing returns an optional
// inside the optional.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "measurement/proto/APMPB.h"
#include "measurement/store/APMSqliteStore.h"
#include "measurement/store/APMStoreRecords.h"
#include "measurement/upload/APMPersistedConfig.h"

// The settings of the remote configuration that the retention rules read. The owner sets them
// again whenever a new configuration applies.
struct APMDatabaseLimits {
  double maxQueueTime = 2419200;                      // seconds (28 days)
  double databaseDeleteStaleBundlesInterval = 86400;  // seconds
};

class APMDatabase {
 public:
  using Record = APMSqliteStore::Record;
  // Sees each parsed raw event in row order; setting *stop ends the read after it.
  using RawEventFilter = std::function<bool(const APMRawEventData& event, bool* stop)>;

  static constexpr const char* kDatabaseName = "stuvop-app-measurement.sql";

  // Row limits.
  static constexpr std::int64_t kRawEventsMetadataLimit = 100000;
  static constexpr std::int64_t kEventsLimit = 1000;
  static constexpr std::int64_t kUserAttributesLimit = 1000;
  static constexpr std::int64_t kConditionalPropertiesLimit = 1000;
  static constexpr std::int64_t kPurchaseTransactionsLimit = 1000;
  static constexpr std::int64_t kSubscriptionsLimit = 1000;
  // Rows of one metadata fingerprint read at a time.
  static constexpr std::int64_t kRawEventsReadLimit = 1000;
  // The saturation value of `queue.retry_count`.
  static constexpr std::int64_t kMaxRetryCount = 2147483647;

  // "<application support>/Stuvop/Measurement/<name>", from the installed platform.
  static std::string databasePathWithName(const std::string& name);

  // Opens (creating when absent) the database `name` in the measurement folder, ensures every
  // table and the app_metadata row. A table that cannot be validated deletes the file.
  static std::unique_ptr<APMDatabase> initWithDatabaseName(
      const std::string& name, std::shared_ptr<APMPersistedConfig> persistedConfig,
      platform::Error* error);
  // The same at an explicit path.
  static std::unique_ptr<APMDatabase> initWithDatabasePath(
      const std::string& path, std::shared_ptr<APMPersistedConfig> persistedConfig,
      platform::Error* error);

  APMDatabase(const APMDatabase&) = delete;
  APMDatabase& operator=(const APMDatabase&) = delete;

  // The underlying store; closed (every call failing) after a failed reset.
  APMSqliteStore& store() { return *store_; }
  const std::string& databasePath() const { return path_; }
  void setLimits(const APMDatabaseLimits& limits) { limits_ = limits; }
  const APMDatabaseLimits& limits() const { return limits_; }

  // Runs `block` in one exclusive transaction (see APMSqliteStore); a failure logs
  // "Transaction failed. <error>".
  bool performTransaction(const std::function<bool()>& block, platform::Error* error = nullptr);

  // Deletes the file and builds a fresh database at the same path. When the file cannot be
  // deleted, logs "Failed to delete database data" and returns false with the store closed:
  // the old data are never reopened.
  bool reset(platform::Error* error);

  // --- app_metadata ---
  std::optional<APMAppMetadata> queryAppMetadata(platform::Error* error);
  bool updateAppMetadata(const APMAppMetadata& metadata, platform::Error* error);
  // Today's counters. Today is floor((now - midnightOffset) / 86400); a row of another day
  // reads as zero counts of today, so the counters reset with the first write of a day.
  std::optional<APMDailyCounts> dailyCounts(platform::Error* error);
  bool updateDailyCounts(const APMDailyCounts& counts, platform::Error* error);
  // The stored serialised configuration; empty when there is none.
  std::optional<kit::Data> queryRemoteConfigData(platform::Error* error);
  // When the configuration was last confirmed fresh; 0 when never.
  std::optional<double> queryRemoteConfigTimestamp(platform::Error* error);
  bool updateRemoteConfig(const kit::Data& data, double timestamp, platform::Error* error);
  bool updateRemoteConfigSuccessfulTimestamp(double timestamp, platform::Error* error);

  // --- raw_events_metadata and raw_events ---
  // Stores the serialised header `metadata` under `fingerprint` unless that fingerprint is
  // already stored. Refuses a new one when the table holds its limit.
  bool insertIfNotExistsRawEventMetadata(std::int64_t fingerprint, const kit::Data& metadata,
                                         platform::Error* error);
  std::optional<std::optional<APMPBMessage<APMPBMeasurementBundle>>>
  queryRawEventsMetadataWithFingerprint(std::int64_t fingerprint, platform::Error* error);
  bool deleteRawEventMetadataWithMetadataFingerprint(std::int64_t fingerprint,
                                                     platform::Error* error);
  // Deletes the headers no raw event uses; returns how many went.
  std::optional<std::int64_t> deleteUnusedRawEventsMetadata(platform::Error* error);
  std::optional<bool> isRawEventsTableEmpty(platform::Error* error);
  // The largest row id of raw_events less the smallest, plus one: a bound on the number of
  // rows that costs no walk of the table. 0 when the table is empty.
  std::optional<std::int64_t> rawEventsRowIDSpan(platform::Error* error);
  // Stores `event` without its name (the name stands in its column); the timestamp column is
  // the event's milliseconds / 1000.0.
  bool insertRawEvent(const APMPBEvent& event, std::int64_t metadataFingerprint, bool isRealtime,
                      platform::Error* error);
  // The same with the event already serialised without its name (`data`), its name and its
  // time in milliseconds given apart.
  bool insertRawEvent(const std::string& name, std::int64_t timestampMillis, kit::Data data,
                      std::int64_t metadataFingerprint, bool isRealtime, platform::Error* error);
  // The newest raw event time in seconds; 0 when there is none.
  std::optional<double> queryLatestRawEventTime(platform::Error* error);
  // The oldest rows (at most kRawEventsReadLimit) of `metadataFingerprint`, in row order,
  // through `eventFilter`. A row that does not parse logs "Failed to filter raw event. Error"
  // and is skipped.
  std::optional<std::vector<APMRawEventData>> rawEventsWithMetadataFingerprint(
      std::int64_t metadataFingerprint, platform::Error* error,
      const RawEventFilter& eventFilter = nullptr);
  std::optional<bool> containsRawEventWithMetadataFingerprint(std::int64_t metadataFingerprint,
                                                              platform::Error* error);
  bool deleteRawEventsWithMaxRowID(std::int64_t maxRowID, platform::Error* error);
  // Keeps the newest `maxEventsStored` - 1 rows, making room for one more; returns how many
  // rows went.
  std::optional<std::int64_t> deleteRawEventsOverAbsoluteLimit(std::int64_t maxEventsStored,
                                                               platform::Error* error = nullptr);
  // Deletes rows whose time lies more than `maxAge` seconds from now, in either direction;
  // returns how many went. A negative age is refused.
  std::optional<std::int64_t> deleteStaleRawEventsDataOlderThanMaxAge(double maxAge,
                                                                      platform::Error* error);
  // The fingerprint of the oldest raw event; nothing inside when there are no raw events.
  std::optional<std::optional<std::int64_t>> nextMetadataFingerprintToProcess(
      platform::Error* error);
  std::optional<bool> containsRealtimeRawEventsWithError(platform::Error* error);

  // --- queue ---
  std::optional<bool> isQueuedBundleTableEmpty(platform::Error* error);
  // Gzips and stores `bundle`; returns the new row id. Refuses an empty bundle, one without
  // application id (tag 14) and one whose end (tag 6) is below 1. The retry count starts from
  // the bundle's tag 39.
  std::optional<std::int64_t> insertBundle(const APMPBMeasurementBundle& bundle, bool isRealtime,
                                           platform::Error* error);
  // Adds one to the retry count of each row; a count at kMaxRetryCount stays there.
  bool incrementRetryCounterForBundlesWithIDs(const std::vector<std::int64_t>& rowIDs,
                                              platform::Error* error);
  // The oldest bundles, at most `countLimit`, while the sum of their serialised sizes stays
  // within `sizeLimit`; the first is taken whatever its size. Rows that do not inflate or
  // parse are logged and left out.
  std::optional<std::vector<APMQueuedBundle>> queryBundlesWithCountLimit(std::int64_t countLimit,
                                                                         std::int64_t sizeLimit,
                                                                         platform::Error* error);
  std::optional<std::vector<APMQueuedBundle>> queryBundlesWithRowIDs(
      const std::vector<std::int64_t>& rowIDs, platform::Error* error);
  bool deleteBundlesWithRowIDs(const std::vector<std::int64_t>& rowIDs, platform::Error* error);
  // When more than `databaseDeleteStaleBundlesInterval` lies between now and the last pass:
  // deletes raw events older than `maxQueueTime` (and then unused headers), and bundles older
  // than `maxQueueTime`, and records now as the last pass. Returns whether the pass ran.
  bool maybeDeleteStaleData(platform::Error* error);
  std::optional<std::int64_t> deleteStaleBundlesOlderThanMaxAge(double maxAge,
                                                                platform::Error* error);
  // The newest bundle end in seconds; 0 when there is none.
  std::optional<double> queryLatestBundleTime(platform::Error* error);
  std::optional<bool> containsRealtimeBundlesWithError(platform::Error* error);

  // --- events ---
  std::optional<std::optional<APMEventAggregates>> queryEventAggregatesWithName(
      const std::string& name, platform::Error* error);
  std::optional<std::vector<APMEventAggregates>> queryAllEventAggregates(platform::Error* error);
  // Upserts the row; a new name is refused when the table holds kEventsLimit rows.
  bool updateEventAggregates(const APMEventAggregates& aggregates, platform::Error* error);
  bool clearCurrentSessionCounts(platform::Error* error);
  // Names that do not start with "_".
  std::optional<std::int64_t> countPublicEventNames(platform::Error* error);

  // Upserts `record` into `table`, refusing with "Failed to insert data type. Table is full"
  // a row whose `columnName` value is new while the table holds `tableLimit` rows.
  bool upsertDataType(const Record& record, const std::string& table, const std::string& columnName,
                      const kit::Value& columnValue, std::int64_t tableLimit,
                      platform::Error* error);

  // --- user_attributes ---
  std::optional<std::vector<APMUserAttribute>> queryAllUserAttributes(platform::Error* error);
  std::optional<std::optional<APMUserAttribute>> queryUserAttributeWithName(const std::string& name,
                                                                            platform::Error* error);
  // Upserts; a new name is refused when the table holds kUserAttributesLimit rows.
  bool updateUserAttribute(const APMUserAttribute& attribute, platform::Error* error);
  bool deleteUserAttributeWithName(const std::string& name, platform::Error* error);
  std::optional<std::int64_t> countPublicUserAttributes(platform::Error* error);
  std::optional<std::int64_t> countUserAttributesWithOrigin(const std::string& origin,
                                                            platform::Error* error);
  std::optional<bool> containsUserAttributeWithName(const std::string& name,
                                                    platform::Error* error);
  // Names matching `prefix` as a LIKE pattern, newest set first.
  std::optional<std::vector<APMUserAttribute>> queryUserAttributesWithNamePrefix(
      const std::string& prefix, platform::Error* error);

  // --- audiences ---
  bool insertEventFilter(const APMAudienceFilterRecord& filter, platform::Error* error);
  bool insertPropertyFilter(const APMAudienceFilterRecord& filter, platform::Error* error);
  bool deleteAllAudienceFilters(platform::Error* error);
  std::optional<std::vector<APMAudienceFilterRecord>> queryEventFiltersWithEventName(
      const std::string& eventName, platform::Error* error);
  std::optional<std::vector<APMAudienceFilterRecord>> queryPropertyFiltersWithPropertyName(
      const std::string& propertyName, platform::Error* error);
  // Every audience id of either filter table, without repeats.
  std::optional<std::vector<std::int64_t>> queryAllAudienceIDs(platform::Error* error);
  // (audience id, filter id) of the session-scoped filters of both tables.
  std::optional<std::vector<std::pair<std::int64_t, std::int64_t>>> querySessionScopedFilterIDs(
      platform::Error* error);
  // Deletes the filters with these (audience id, filter id) pairs from both tables.
  std::optional<std::int64_t> deleteAudienceFiltersWithIDs(
      const std::vector<std::pair<std::int64_t, std::int64_t>>& ids, platform::Error* error);
  std::optional<std::vector<APMFilterResult>> queryAllFilterResults(platform::Error* error);
  bool updateFilterResult(const APMFilterResult& result, platform::Error* error);
  std::optional<std::int64_t> deleteFilterResultsWithAudienceIDs(
      const std::vector<std::int64_t>& audienceIDs, platform::Error* error);

  // --- purchase_transactions and subscriptions ---
  // True when `fingerprint` was new and is now stored (keeping the newest 1000). False for an
  // empty or known fingerprint, and on failure (with `error` filled).
  bool insertIfNotDuplicatePurchaseFingerprint(const std::string& fingerprint,
                                               platform::Error* error);
  // The same for subscriptions, without trimming: see deleteSubscriptionsOverLimit.
  bool insertIfNotDuplicateSubscriptionID(const std::string& subscriptionID,
                                          platform::Error* error);
  // Keeps the newest `limit` subscriptions; returns how many went.
  std::optional<std::int64_t> deleteSubscriptionsOverLimit(std::int64_t limit,
                                                           platform::Error* error);

  // --- conditional_properties ---
  // Upserts; a new name is refused when the table holds kConditionalPropertiesLimit rows.
  bool updateConditionalProperty(const APMConditionalProperty& property, platform::Error* error);
  std::optional<std::optional<APMConditionalProperty>> queryConditionalPropertyWithName(
      const std::string& name, platform::Error* error);
  bool deleteConditionalPropertyWithName(const std::string& name, platform::Error* error);
  // Waiting properties whose trigger did not come within their timeout by `now`.
  std::optional<std::vector<APMConditionalProperty>> queryTimedOutConditionalProperties(
      double now, platform::Error* error);
  // Triggered properties whose time to live has passed by `now`.
  std::optional<std::vector<APMConditionalProperty>> queryExpiredConditionalProperties(
      double now, platform::Error* error);
  // Waiting properties that `eventName` triggers at `now`.
  std::optional<std::vector<APMConditionalProperty>> queryTriggeredConditionalProperties(
      const std::string& eventName, double now, platform::Error* error);
  // Properties whose name starts with `namePrefix` and whose origin matches `origin` (LIKE
  // patterns); either may be absent, and with neither every property matches.
  std::optional<std::vector<APMConditionalProperty>> queryConditionalProperties(
      const std::optional<std::string>& namePrefix, const std::optional<std::string>& origin,
      platform::Error* error);

  // --- main_event_params ---
  bool updateMainEventParams(const APMMainEventParams& params, platform::Error* error);
  std::optional<std::optional<APMMainEventParams>> queryMainEventParamsWithEventID(
      std::int64_t eventID, platform::Error* error);
  bool deleteMainEventParamsWithEventID(std::int64_t eventID, platform::Error* error);

 private:
  APMDatabase(std::string path, std::shared_ptr<APMPersistedConfig> persistedConfig)
      : path_(std::move(path)), persistedConfig_(std::move(persistedConfig)) {}

  bool initializeDatabaseResourcesWithContext(const std::string& context, platform::Error* error);
  bool ensureAllTables(platform::Error* error);
  // Refuses, when the row whose `columnName` is `columnValue` is new, a table at `tableLimit`.
  bool checkRoomForRow(const std::string& table, const std::string& columnName,
                       const kit::Value& columnValue, std::int64_t tableLimit,
                       platform::Error* error);
  std::optional<bool> queryTruth(const std::string& sql, const APMSqliteStore::Parameters& values,
                                 platform::Error* error);
  std::optional<std::int64_t> queryCount(const std::string& sql,
                                         const APMSqliteStore::Parameters& values,
                                         platform::Error* error);
  std::optional<double> queryTime(const std::string& sql, platform::Error* error);
  std::optional<std::vector<APMQueuedBundle>> readBundles(const std::string& sql,
                                                          const APMSqliteStore::Parameters& values,
                                                          std::int64_t sizeLimit,
                                                          platform::Error* error);
  std::optional<std::vector<APMConditionalProperty>> queryConditionalPropertiesWhere(
      const std::string& condition, const APMSqliteStore::Parameters& values,
      platform::Error* error);
  std::optional<std::vector<APMAudienceFilterRecord>> queryFilters(const std::string& table,
                                                                   const std::string& nameColumn,
                                                                   const std::string& name,
                                                                   platform::Error* error);
  // Stores `key` in the one-column `table`; false when it is empty or already there.
  bool insertIfNewKey(const std::string& table, const std::string& column, const std::string& key,
                      platform::Error* error);
  bool insertFilter(const std::string& table, const std::string& nameColumn,
                    const APMAudienceFilterRecord& filter, platform::Error* error);

  // Copies of the rows that the write path reads for every event. A copy is made when a read
  // or a write through this class has seen the row, and stands for the row while the file
  // can only have changed through this class: a write through this class keeps its copy up to
  // date or drops it, and any rollback on the handle drops them all (a copy made inside a
  // transaction that did not commit would be wrong). Rows that fail to parse are never
  // copied, so their failures are reported at every read as before. This rests on the worker
  // queue being the file's only writer, as the rest of the client does.
  // The fingerprints are bounded by the header table's own limit.
  struct RowCache {
    std::uint64_t rollbacks = 0;
    // The daily columns of app_metadata as stored: the row's day (nothing when NULL) and its
    // counts; `rowExists` false when app_metadata has no row.
    struct DailyCounts {
      bool rowExists = false;
      std::optional<std::int64_t> day;
      APMDailyCounts counts;
    };
    std::optional<DailyCounts> dailyCounts;
    // Every row of user_attributes in table order.
    std::optional<std::vector<APMUserAttribute>> userAttributes;
    // Rows of events by name.
    std::unordered_map<std::string, APMEventAggregates> eventAggregates;
    // Fingerprints known to stand in raw_events_metadata.
    std::unordered_set<std::int64_t> metadataFingerprints;
    // A raw event was stored since raw_events last lost rows: the table is not empty.
    bool rawEventsStored = false;
    // The smallest and largest row ids of raw_events (nothing inside when it is empty).
    std::optional<std::optional<std::pair<std::int64_t, std::int64_t>>> rawEventsRowIDs;
    // MAX(bundle_end_timestamp) of queue (0 when it is empty) and whether a realtime bundle
    // stands in it.
    std::optional<double> latestBundleTime;
    std::optional<bool> realtimeBundles;
  };
  // The copies, dropped first when a rollback happened since they were made or the store is
  // closed.
  RowCache& rowCache();
  void dropRowCache();
  // Drops the copies of what queue holds (before rows leave it).
  void forgetQueueFacts();

  // A row of queue that a read inflated and parsed but left out because the batch was full.
  // The next read takes it as it is when the row still holds the same compressed bytes, so
  // that each waiting bundle is inflated and parsed once however many reads pass over it.
  struct ParsedBundle {
    std::int64_t rowID = 0;
    kit::Data zipped;
    APMPBMessage<APMPBMeasurementBundle> bundle;
    std::size_t serializedSize = 0;
  };

  std::string path_;
  std::shared_ptr<APMPersistedConfig> persistedConfig_;
  std::unique_ptr<APMSqliteStore> store_;
  APMDatabaseLimits limits_;
  RowCache rowCache_;
  std::optional<ParsedBundle> heldBundle_;
};
