#include "measurement/store/APMDatabase.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "measurement/APMGzip.h"
#include "measurement/APMMonitor.h"
#include "measurement/store/APMStoreTestSupport.h"
#include "platform/Platform.h"
#include "sim/Environment.h"
#include "sim/Platform.h"

namespace {

constexpr double kDay = 86400;

APMPBMessage<APMPBMeasurementBundle> makeBundle(double endSeconds, std::size_t padding = 0,
                                                const char* appID = "com.example.app") {
  APMPBMessage<APMPBMeasurementBundle> bundle;
  APMPBSetString(&bundle->app_id, appID);
  bundle->has_bundle_end_timestamp_millis = true;
  bundle->bundle_end_timestamp_millis = static_cast<std::int64_t>(endSeconds * 1000);
  if (padding) APMPBSetString(&bundle->monitoring_data, std::string(padding, 'x'));
  return bundle;
}

APMPBMessage<APMPBEvent> makeEvent(const char* name, double seconds) {
  APMPBMessage<APMPBEvent> event;
  APMPBSetString(&event->name, name);
  event->has_timestamp_millis = true;
  event->timestamp_millis = static_cast<std::int64_t>(seconds * 1000);
  APMPBEventParam& param = APMPBAppend(&event->params, &event->params_count);
  APMPBSetString(&param.name, "_o");
  APMPBSetString(&param.string_value, "app");
  return event;
}

class APMDatabaseTest : public ::testing::Test {
 protected:
  void SetUp() override { database_ = open(); }

  std::unique_ptr<APMDatabase> open(platform::Error* error = nullptr) {
    return APMDatabase::initWithDatabasePath(path_, config_, error);
  }

  double now() const { return kit::Date::now().timeIntervalSince1970; }
  APMSqliteStore& store() { return database_->store(); }
  std::int64_t rows(const char* table) { return *store().rowCountForTableWithName(table, nullptr); }

  // Inserts `count` generated rows into `table` (a name, or a name with its column list)
  // through plain SQL; `values` is the select list over i = 1..count.
  void fill(const char* table, int count, const std::string& values) {
    ASSERT_TRUE(store().executeSQL(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
            std::to_string(count) + ") INSERT INTO " + table + " SELECT " + values + " FROM n",
        {}, nullptr));
  }

  sim::Environment env_;
  APMMonitorCapture monitor_;
  APMTemporaryFolder folder_;
  std::string path_ = folder_.path() + "/measurement.sql";
  std::shared_ptr<APMPersistedConfig> config_ =
      std::make_shared<APMPersistedConfig>(std::make_shared<sim::PreferenceStore>());
  std::unique_ptr<APMDatabase> database_;
};

TEST_F(APMDatabaseTest, ANewDatabaseHoldsEveryTableAndOneMetadataRow) {
  ASSERT_TRUE(database_);
  for (const char* table :
       {"app_metadata", "raw_events_metadata", "raw_events", "queue", "events", "user_attributes",
        "event_filters", "property_filters", "audience_filter_values", "purchase_transactions",
        "subscriptions", "conditional_properties", "main_event_params"}) {
    EXPECT_EQ(store().tableExists(table, nullptr), true) << table;
  }
  EXPECT_EQ(store().numberForQuery("SELECT count(1) FROM sqlite_master WHERE name LIKE '%!_old' "
                                   "ESCAPE '!'",
                                   {}, nullptr),
            kit::Value(0));
  // Audience filters are read by name through an index, not by a scan of every filter.
  for (const char* table : {"event_filters", "property_filters"}) {
    std::string column = std::string(table) == "event_filters" ? "event_name" : "property_name";
    auto plan = store().recordsForQuery("EXPLAIN QUERY PLAN SELECT * FROM " + std::string(table) +
                                            " WHERE " + column + " = ? ORDER BY audience_id, filter_id",
                                        {"x"}, nullptr);
    ASSERT_TRUE(plan);
    bool indexed = false;
    for (const auto& row : *plan) {
      const std::string* detail = row.at("detail").asString();
      indexed = indexed || (detail && detail->find("USING INDEX " + std::string(table) + "_by_" +
                                                   column) != std::string::npos);
    }
    EXPECT_TRUE(indexed) << table;
  }
  auto info = store().recordsForQuery(
      "SELECT type FROM pragma_table_info('raw_events') WHERE name = ?", {"timestamp"}, nullptr);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->front().at("type"), kit::Value("REAL"));

  auto metadata = database_->queryAppMetadata(nullptr);
  ASSERT_TRUE(metadata);
  EXPECT_EQ(metadata->lastBundleIndex, 0);
  EXPECT_EQ(metadata->lastBundleStartTimestamp, 0.0);
  ASSERT_TRUE(database_->updateAppMetadata({4, 100.5, 90.25}, nullptr));
  database_.reset();
  database_ = open();
  ASSERT_TRUE(database_);
  EXPECT_EQ(rows("app_metadata"), 1);
  EXPECT_EQ(database_->queryAppMetadata(nullptr)->lastBundleStartTimestamp, 90.25);
}

TEST_F(APMDatabaseTest, TheNamedDatabaseLivesInTheMeasurementFolder) {
  class Folders : public platform::FileManager {
   public:
    explicit Folders(std::string root) : root_(std::move(root)) {}
    std::vector<std::string> searchPathForDirectoriesInDomains(int directory, int, bool) override {
      return directory == platform::kApplicationSupportDirectory ? std::vector{root_}
                                                                 : std::vector<std::string>{};
    }
    std::optional<kit::Dictionary> attributesOfFileSystemForPath(const std::string&,
                                                                 platform::Error*) override {
      return std::nullopt;
    }

   private:
    std::string root_;
  };
  platform::Services services;
  services.fileManager = std::make_shared<Folders>(folder_.path());
  platform::install(services);
  auto named = APMDatabase::initWithDatabaseName(APMDatabase::kDatabaseName, config_, nullptr);
  platform::uninstall();
  ASSERT_TRUE(named);
  EXPECT_TRUE(
      std::filesystem::exists(folder_.path() + "/Stuvop/Measurement/stuvop-app-measurement.sql"));
}

TEST_F(APMDatabaseTest, ATableThatFailsValidationDeletesTheFile) {
  database_.reset();
  std::filesystem::remove(path_);
  APMExecuteOnTestDatabase(path_,
                           "CREATE TABLE events (name TEXT NOT NULL PRIMARY KEY, lifetime_count "
                           "INTEGER NOT NULL, current_bundle_count INTEGER NOT NULL, "
                           "last_fire_timestamp REAL NOT NULL, owner TEXT NOT NULL)");
  platform::Error error;
  EXPECT_FALSE(open(&error));
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_TRUE(
      monitor_.contains("Failed to create or validate required database tables (Table "
                        "contains unknown non-optional columns)"));
  const APMMonitorEntry* ensure = monitor_.find("Failed to ensure table. Table, error");
  ASSERT_NE(ensure, nullptr);
  EXPECT_EQ(ensure->context.front(), "events");
  // The next start builds a fresh file.
  EXPECT_TRUE(open());
}

TEST_F(APMDatabaseTest, AnOldQueueGainsItsRetryCountColumn) {
  database_.reset();
  std::filesystem::remove(path_);
  auto bytes = makeBundle(now()).protoBuffer();
  auto zipped = APMGzipData(*bytes, nullptr);
  std::string hex;
  for (std::uint8_t b : *zipped) {
    char pair[3];
    std::snprintf(pair, sizeof pair, "%02x", b);
    hex += pair;
  }
  APMExecuteOnTestDatabase(path_,
                           "CREATE TABLE queue (data BLOB NOT NULL, bundle_end_timestamp "
                           "REAL NOT NULL); INSERT INTO queue VALUES (x'" +
                               hex + "', 1.0)");
  database_ = open();
  ASSERT_TRUE(database_);
  auto bundles = database_->queryBundlesWithCountLimit(10, 1 << 20, nullptr);
  ASSERT_TRUE(bundles);
  ASSERT_EQ(bundles->size(), 1u);
  EXPECT_EQ(bundles->front().retryCount, 0);
  EXPECT_EQ(store().numberForQuery("SELECT retry_count FROM queue", {}, nullptr), kit::Value());
}

TEST_F(APMDatabaseTest, FullTablesRefuseNewKeysAndStillUpdateExistingOnes) {
  fill("events", 1000, "'e' || i, 1, 1, 0.0, NULL, NULL, NULL, NULL, NULL, NULL");
  auto existing = APMEventAggregates::create("e7", 9, 2, 1, now());
  ASSERT_TRUE(existing);
  EXPECT_TRUE(database_->updateEventAggregates(*existing, nullptr));
  EXPECT_EQ(database_->queryEventAggregatesWithName("e7", nullptr).value()->lifetimeCount, 9);

  platform::Error error;
  EXPECT_FALSE(
      database_->updateEventAggregates(*APMEventAggregates::create("new", 1, 1, 1, 0), &error));
  EXPECT_EQ(error.localizedDescription, "Failed to insert data type. Table is full");
  EXPECT_EQ(rows("events"), 1000);

  fill("raw_events_metadata", 100000, "i, x'00'");
  EXPECT_TRUE(database_->insertIfNotExistsRawEventMetadata(5, {1}, nullptr));
  EXPECT_FALSE(database_->insertIfNotExistsRawEventMetadata(-5, {1}, &error));
  EXPECT_EQ(error.localizedDescription, "Failed to insert data type. Table is full");
}

TEST_F(APMDatabaseTest, PurchaseFingerprintsKeepTheNewestThousand) {
  EXPECT_FALSE(database_->insertIfNotDuplicatePurchaseFingerprint("", nullptr));
  for (int i = 1; i <= 1001; ++i) {
    ASSERT_TRUE(
        database_->insertIfNotDuplicatePurchaseFingerprint("p" + std::to_string(i), nullptr));
  }
  EXPECT_EQ(rows("purchase_transactions"), 1000);
  EXPECT_EQ(store().rowCountForTableWithName("purchase_transactions", "fingerprint", "p1", nullptr),
            0);
  EXPECT_FALSE(database_->insertIfNotDuplicatePurchaseFingerprint("p1001", nullptr));

  for (int i = 1; i <= 1002; ++i) {
    ASSERT_TRUE(database_->insertIfNotDuplicateSubscriptionID("s" + std::to_string(i), nullptr));
  }
  EXPECT_FALSE(database_->insertIfNotDuplicateSubscriptionID("s5", nullptr));
  EXPECT_EQ(rows("subscriptions"), 1002);
  EXPECT_EQ(database_->deleteSubscriptionsOverLimit(1000, nullptr), 2);
  EXPECT_EQ(store().rowCountForTableWithName("subscriptions", "subscription_id", "s3", nullptr), 1);
}

TEST_F(APMDatabaseTest, BundleInsertRefusesIncompleteBundles) {
  platform::Error error;
  EXPECT_FALSE(database_->insertBundle(*APMPBMessage<APMPBMeasurementBundle>(), false, &error));
  EXPECT_EQ(error.localizedDescription, "Failed to insert nil bundle");
  EXPECT_FALSE(database_->insertBundle(*makeBundle(now(), 0, ""), false, &error));
  EXPECT_EQ(error.localizedDescription, "Failed to insert bundle without App ID");
  EXPECT_FALSE(database_->insertBundle(*makeBundle(0.0005), false, &error));
  EXPECT_EQ(error.localizedDescription, "Failed to insert bundle without valid timestamp");
  EXPECT_EQ(rows("queue"), 0);

  // Outside the queue time it is stored all the same; the retry count starts from tag 39.
  auto late = makeBundle(now() - 40 * kDay);
  late->has_retry_count = true;
  late->retry_count = 4;
  auto id = database_->insertBundle(*late, true, nullptr);
  ASSERT_TRUE(id);
  EXPECT_TRUE(monitor_.contains("Storing bundle outside of the max uploading time span"));
  EXPECT_TRUE(monitor_.contains("Saving bundle. size (bytes)"));
  auto stored = database_->queryBundlesWithRowIDs({*id}, nullptr);
  ASSERT_TRUE(stored);
  EXPECT_EQ(stored->front().retryCount, 4);
  EXPECT_EQ(database_->containsRealtimeBundlesWithError(nullptr), true);
  EXPECT_DOUBLE_EQ(*database_->queryLatestBundleTime(nullptr), now() - 40 * kDay);
}

TEST_F(APMDatabaseTest, TheQueuesNewestTimeAndRealtimeMarkFollowInsertsAndDeletes) {
  EXPECT_EQ(database_->queryLatestBundleTime(nullptr), 0.0);
  EXPECT_EQ(database_->containsRealtimeBundlesWithError(nullptr), false);
  auto newer = *database_->insertBundle(*makeBundle(now()), true, nullptr);
  auto older = *database_->insertBundle(*makeBundle(now() - kDay), false, nullptr);
  EXPECT_DOUBLE_EQ(*database_->queryLatestBundleTime(nullptr), now());
  EXPECT_EQ(database_->containsRealtimeBundlesWithError(nullptr), true);
  ASSERT_TRUE(database_->deleteBundlesWithRowIDs({newer}, nullptr));
  EXPECT_DOUBLE_EQ(*database_->queryLatestBundleTime(nullptr), now() - kDay);
  EXPECT_EQ(database_->containsRealtimeBundlesWithError(nullptr), false);
  // A bundle stored in a transaction that rolls back leaves no trace.
  platform::Error error;
  EXPECT_FALSE(store().performTransactionWithError(&error, [&] {
    EXPECT_TRUE(database_->insertBundle(*makeBundle(now()), true, nullptr));
    EXPECT_EQ(database_->containsRealtimeBundlesWithError(nullptr), true);
    return false;
  }));
  EXPECT_DOUBLE_EQ(*database_->queryLatestBundleTime(nullptr), now() - kDay);
  EXPECT_EQ(database_->containsRealtimeBundlesWithError(nullptr), false);
  ASSERT_TRUE(database_->deleteBundlesWithRowIDs({older}, nullptr));
  EXPECT_EQ(database_->queryLatestBundleTime(nullptr), 0.0);
}

TEST_F(APMDatabaseTest, RetryCounterSaturatesAtTheInt32Maximum) {
  auto first = *database_->insertBundle(*makeBundle(now()), false, nullptr);
  auto second = *database_->insertBundle(*makeBundle(now()), false, nullptr);
  ASSERT_TRUE(store().updateRecord({{"retry_count", 2147483647LL}}, "queue", "rowid",
                                   static_cast<long long>(first), nullptr));
  ASSERT_TRUE(database_->incrementRetryCounterForBundlesWithIDs({first, second}, nullptr));
  auto bundles = database_->queryBundlesWithRowIDs({first, second}, nullptr);
  ASSERT_TRUE(bundles);
  EXPECT_EQ((*bundles)[0].retryCount, 2147483647);
  EXPECT_EQ((*bundles)[1].retryCount, 1);
  EXPECT_TRUE(
      monitor_.contains("The number of upload retries exceeds the limit. Will remain unchanged."));

  platform::Error error;
  EXPECT_FALSE(database_->incrementRetryCounterForBundlesWithIDs({}, &error));
  EXPECT_EQ(error.localizedDescription, "Failed to increment retry counter");
}

TEST_F(APMDatabaseTest, BundleQueriesHonourCountAndSizeAndAlwaysTakeTheFirst) {
  std::vector<std::size_t> sizes;
  for (std::size_t padding : {5000u, 100u, 100u}) {
    auto bundle = makeBundle(now(), padding);
    sizes.push_back(bundle.protoBuffer()->size());
    ASSERT_TRUE(database_->insertBundle(*bundle, false, nullptr));
  }
  auto oversized = database_->queryBundlesWithCountLimit(10, 1000, nullptr);
  ASSERT_TRUE(oversized);
  ASSERT_EQ(oversized->size(), 1u);
  EXPECT_EQ(oversized->front().serializedSize, sizes[0]);

  auto limit = static_cast<std::int64_t>(sizes[0] + sizes[1]);
  EXPECT_EQ(database_->queryBundlesWithCountLimit(10, limit, nullptr)->size(), 2u);
  EXPECT_EQ(database_->queryBundlesWithCountLimit(10, limit + 1000, nullptr)->size(), 3u);
  EXPECT_EQ(database_->queryBundlesWithCountLimit(1, limit + 1000, nullptr)->size(), 1u);
}

TEST_F(APMDatabaseTest, ABundleLeftOutOfAFullBatchIsReadAgainAsTheRowNowHoldsIt) {
  double end = std::floor(now());
  ASSERT_TRUE(database_->insertBundle(*makeBundle(end - 3, 100), false, nullptr));  // row 1
  ASSERT_TRUE(database_->insertBundle(*makeBundle(end - 2, 100), false, nullptr));  // row 2
  auto first = database_->queryBundlesWithCountLimit(10, 1, nullptr);
  ASSERT_TRUE(first);
  ASSERT_EQ(first->size(), 1u);  // row 2 was read, left out, and is held

  // Row 2 gets other contents under the same row id.
  ASSERT_TRUE(database_->deleteBundlesWithRowIDs({2}, nullptr));
  auto replacement = makeBundle(end - 1, 300);
  ASSERT_EQ(database_->insertBundle(*replacement, false, nullptr), 2);
  ASSERT_TRUE(database_->deleteBundlesWithRowIDs({1}, nullptr));
  auto second = database_->queryBundlesWithCountLimit(10, 1, nullptr);
  ASSERT_TRUE(second);
  ASSERT_EQ(second->size(), 1u);
  EXPECT_EQ((*second)[0].rowID, 2);
  EXPECT_EQ((*second)[0].bundle->bundle_end_timestamp_millis, static_cast<std::int64_t>((end - 1) * 1000));
  EXPECT_EQ((*second)[0].serializedSize, replacement.protoBuffer()->size());

  // Unchanged rows come back as a fresh read gives them, retry counts read anew.
  ASSERT_TRUE(database_->insertBundle(*makeBundle(end, 100), false, nullptr));  // row 3
  ASSERT_EQ(database_->queryBundlesWithCountLimit(10, 1, nullptr)->size(), 1u);
  ASSERT_TRUE(database_->incrementRetryCounterForBundlesWithIDs({3}, nullptr));
  ASSERT_TRUE(database_->deleteBundlesWithRowIDs({2}, nullptr));
  auto third = database_->queryBundlesWithCountLimit(10, 1 << 20, nullptr);
  ASSERT_TRUE(third);
  ASSERT_EQ(third->size(), 1u);
  EXPECT_EQ((*third)[0].rowID, 3);
  EXPECT_EQ((*third)[0].retryCount, 1);
  EXPECT_EQ(*(*third)[0].bundle.protoBuffer(), *makeBundle(end, 100).protoBuffer());
}

TEST_F(APMDatabaseTest, BundlesThatDoNotInflateOrParseAreLeftOut) {
  ASSERT_TRUE(database_->insertBundle(*makeBundle(now()), false, nullptr));
  ASSERT_TRUE(store().upsertRecord({{"data", kit::Data{1, 2, 3}}, {"bundle_end_timestamp", 1.0}},
                                   "queue", nullptr));
  auto notAMessage = APMGzipData(kit::Data{0xff, 0xff, 0xff}, nullptr);
  ASSERT_TRUE(store().upsertRecord({{"data", *notAMessage}, {"bundle_end_timestamp", 1.0}}, "queue",
                                   nullptr));
  ASSERT_TRUE(database_->insertBundle(*makeBundle(now()), false, nullptr));

  auto bundles = database_->queryBundlesWithCountLimit(10, 1 << 20, nullptr);
  ASSERT_TRUE(bundles);
  ASSERT_EQ(bundles->size(), 2u);
  EXPECT_EQ((*bundles)[0].rowID, 1);
  EXPECT_EQ((*bundles)[1].rowID, 4);
  EXPECT_TRUE(monitor_.contains("Cannot decompress an empty bundle data"));
  EXPECT_TRUE(monitor_.contains("Unable to parse bundle from decompressed data"));
}

TEST_F(APMDatabaseTest, StaleDataIsJudgedByAbsoluteAge) {
  double t = now();
  kit::Data metadata{1};
  for (auto [fingerprint, seconds] : {std::pair{1, t}, {2, t - 29 * kDay}, {3, t + 29 * kDay}}) {
    ASSERT_TRUE(database_->insertIfNotExistsRawEventMetadata(fingerprint, metadata, nullptr));
    ASSERT_TRUE(database_->insertRawEvent(*makeEvent("e", seconds), fingerprint, false, nullptr));
    ASSERT_TRUE(database_->insertBundle(*makeBundle(seconds), false, nullptr));
  }
  EXPECT_TRUE(database_->maybeDeleteStaleData(nullptr));
  EXPECT_EQ(rows("raw_events"), 1);
  EXPECT_EQ(rows("raw_events_metadata"), 1);
  EXPECT_EQ(rows("queue"), 1);
  EXPECT_EQ(config_->lastDeleteStaleBundlesTimestamp(), t);
  // Within the interval the pass does not run again.
  env_.advance(3600);
  EXPECT_FALSE(database_->maybeDeleteStaleData(nullptr));

  // A clock set one year forward makes every row stale.
  env_.setNow(t + 365 * kDay);
  EXPECT_TRUE(database_->maybeDeleteStaleData(nullptr));
  EXPECT_EQ(rows("raw_events"), 0);
  EXPECT_EQ(rows("raw_events_metadata"), 0);
  EXPECT_EQ(rows("queue"), 0);

  platform::Error error;
  EXPECT_FALSE(database_->deleteStaleRawEventsDataOlderThanMaxAge(-1, &error));
  EXPECT_EQ(error.localizedDescription,
            "Cannot delete stale raw events given negative time period");
  EXPECT_FALSE(database_->deleteStaleBundlesOlderThanMaxAge(-1, &error));
  EXPECT_EQ(error.localizedDescription, "Cannot delete stale bundles after negative time period");
}

TEST_F(APMDatabaseTest, DailyCountsStartFromZeroOnANewDayWithoutAWrite) {
  config_->setMidnightOffset(-3600);  // the measurement day begins at 23:00 UTC
  auto today = database_->dailyCounts(nullptr);
  ASSERT_TRUE(today);
  EXPECT_EQ(today->day, static_cast<int>(std::floor((now() + 3600) / kDay)));
  APMDailyCounts counts = *today;
  counts.allEventsCount = 7;
  counts.errorEventsCount = 2;
  counts.realtimeCount = 1;
  ASSERT_TRUE(database_->updateDailyCounts(counts, nullptr));
  EXPECT_EQ(database_->dailyCounts(nullptr), counts);

  env_.advance(22 * 3600);  // 22:00 UTC: still the same measurement day
  EXPECT_EQ(database_->dailyCounts(nullptr), counts);
  env_.advance(3600);  // 23:00 UTC: a new day
  auto next = database_->dailyCounts(nullptr);
  ASSERT_TRUE(next);
  EXPECT_EQ(next->day, counts.day + 1);
  EXPECT_EQ(next->allEventsCount, 0);
  EXPECT_EQ(next->errorEventsCount, 0);
  EXPECT_EQ(store().numberForQuery("SELECT daily_events_count FROM app_metadata", {}, nullptr),
            kit::Value(7));
}

TEST_F(APMDatabaseTest, RawEventsComeBackInRowOrderWithTheirNames) {
  double t = now();
  ASSERT_TRUE(database_->insertIfNotExistsRawEventMetadata(11, {1}, nullptr));
  ASSERT_TRUE(database_->insertIfNotExistsRawEventMetadata(22, {2}, nullptr));
  auto none = database_->nextMetadataFingerprintToProcess(nullptr);
  ASSERT_TRUE(none);
  EXPECT_FALSE(*none);
  ASSERT_TRUE(database_->insertRawEvent(*makeEvent("_s", t), 22, false, nullptr));
  ASSERT_TRUE(database_->insertRawEvent(*makeEvent("a", t + 1), 11, true, nullptr));
  ASSERT_TRUE(database_->insertRawEvent(*makeEvent("b", t + 2.5), 11, false, nullptr));
  ASSERT_TRUE(database_->insertRawEvent(*makeEvent("c", t + 3), 11, false, nullptr));

  EXPECT_EQ(database_->nextMetadataFingerprintToProcess(nullptr).value(), 22);
  EXPECT_EQ(database_->queryLatestRawEventTime(nullptr), t + 3);
  EXPECT_EQ(database_->containsRealtimeRawEventsWithError(nullptr), true);
  // The stored event carries no name; the name column holds it.
  auto stored =
      store().recordsForQuery("SELECT data FROM raw_events WHERE name = 'b'", {}, nullptr);
  auto storedEvent = APMPBMessage<APMPBEvent>::parseFromData(*stored->front().at("data").asData());
  EXPECT_EQ((*storedEvent)->name, nullptr);

  auto group = database_->rawEventsWithMetadataFingerprint(
      11, nullptr, [](const APMRawEventData& raw, bool* stop) {
        *stop = APMPBString(raw.event->name) == "b";
        return true;
      });
  ASSERT_TRUE(group);
  ASSERT_EQ(group->size(), 2u);
  EXPECT_EQ(APMPBString((*group)[0].event->name), "a");
  EXPECT_TRUE((*group)[0].isRealtime);
  EXPECT_EQ((*group)[1].event->timestamp_millis, static_cast<std::int64_t>((t + 2.5) * 1000));
  EXPECT_EQ((*group)[1].rowID, 3);

  EXPECT_EQ(database_->deleteRawEventsOverAbsoluteLimit(3), 2);  // keeps the newest 2
  EXPECT_EQ(database_->containsRawEventWithMetadataFingerprint(22, nullptr), false);
  EXPECT_EQ(database_->deleteUnusedRawEventsMetadata(nullptr), 1);
  ASSERT_TRUE(database_->deleteRawEventsWithMaxRowID(4, nullptr));
  EXPECT_EQ(database_->isRawEventsTableEmpty(nullptr), true);
}

TEST_F(APMDatabaseTest, UserAttributesKeepTheirValuesAndOrigins) {
  ASSERT_TRUE(
      database_->updateUserAttribute({"app", "_ltv_USD", APMValue::fromInt64(-5), 10}, nullptr));
  ASSERT_TRUE(
      database_->updateUserAttribute({"auto", "_ltv_EUR", APMValue::fromDouble(2.5), 20}, nullptr));
  ASSERT_TRUE(database_->updateUserAttribute(
      {"app", "level", APMValue::fromString("gold \u00e9"), 5}, nullptr));
  auto level = database_->queryUserAttributeWithName("level", nullptr);
  ASSERT_TRUE(level && *level);
  EXPECT_EQ((*level)->value, APMValue::fromString("gold \u00e9"));
  EXPECT_TRUE((*level)->isPublic());
  auto lifetime = database_->queryUserAttributesWithNamePrefix("_ltv_", nullptr);
  ASSERT_TRUE(lifetime);
  ASSERT_EQ(lifetime->size(), 2u);
  EXPECT_EQ((*lifetime)[0].name, "_ltv_EUR");  // newest first
  EXPECT_EQ((*lifetime)[1].value, APMValue::fromInt64(-5));
  EXPECT_EQ(database_->countPublicUserAttributes(nullptr), 1);
  EXPECT_EQ(database_->countUserAttributesWithOrigin("app", nullptr), 2);
  EXPECT_EQ(database_->containsUserAttributeWithName("_ltv_EUR", nullptr), true);
}

TEST_F(APMDatabaseTest, ConditionalPropertiesAreFoundByTheirClocks) {
  double t = now();
  auto property = [&](const char* name, bool active, double created, const char* trigger) {
    APMConditionalProperty p;
    p.name = name;
    p.origin = "app";
    p.value = APMValue::fromString("v");
    p.creationTimestamp = created;
    p.active = active;
    p.triggerTimeout = 60;
    p.triggeredTimestamp = active ? created : 0;
    p.timeToLive = 120;
    if (trigger) p.triggerEventName = trigger;
    return p;
  };
  ASSERT_TRUE(
      database_->updateConditionalProperty(property("waiting", false, t - 30, "buy"), nullptr));
  ASSERT_TRUE(
      database_->updateConditionalProperty(property("late", false, t - 90, "buy"), nullptr));
  ASSERT_TRUE(
      database_->updateConditionalProperty(property("expired", true, t - 200, nullptr), nullptr));
  auto names = [](const std::optional<std::vector<APMConditionalProperty>>& found) {
    std::vector<std::string> out;
    for (const auto& p : found.value()) out.push_back(p.name);
    return out;
  };
  EXPECT_EQ(names(database_->queryTimedOutConditionalProperties(t, nullptr)),
            std::vector<std::string>{"late"});
  EXPECT_EQ(names(database_->queryExpiredConditionalProperties(t, nullptr)),
            std::vector<std::string>{"expired"});
  EXPECT_EQ(names(database_->queryTriggeredConditionalProperties("buy", t, nullptr)),
            std::vector<std::string>{"waiting"});
  EXPECT_EQ(names(database_->queryConditionalProperties("la", std::nullopt, nullptr)),
            std::vector<std::string>{"late"});
  EXPECT_EQ(database_->queryConditionalProperties(std::nullopt, std::nullopt, nullptr)->size(), 3u);
  EXPECT_TRUE(database_->queryConditionalProperties("w", "auto", nullptr)->empty());
}

TEST_F(APMDatabaseTest, AudienceFiltersAreFoundAndDeletedByTheirIDs) {
  ASSERT_TRUE(database_->insertEventFilter({1, 1, "purchase", {1}, true}, nullptr));
  ASSERT_TRUE(database_->insertEventFilter({1, 2, "purchase", {2}, false}, nullptr));
  ASSERT_TRUE(database_->insertPropertyFilter({2, 1, "level", {3}, true}, nullptr));
  EXPECT_EQ(database_->queryAllAudienceIDs(nullptr), (std::vector<std::int64_t>{1, 2}));
  EXPECT_EQ(database_->querySessionScopedFilterIDs(nullptr),
            (std::vector<std::pair<std::int64_t, std::int64_t>>{{1, 1}, {2, 1}}));
  EXPECT_EQ(database_->queryEventFiltersWithEventName("purchase", nullptr)->size(), 2u);
  EXPECT_EQ(database_->deleteAudienceFiltersWithIDs({{1, 1}, {2, 1}}, nullptr), 2);
  EXPECT_EQ(database_->queryAllAudienceIDs(nullptr), (std::vector<std::int64_t>{1}));

  ASSERT_TRUE(database_->updateFilterResult({1, kit::Data{9}, std::nullopt}, nullptr));
  ASSERT_TRUE(database_->updateFilterResult({5, kit::Data{8}, kit::Data{7}}, nullptr));
  EXPECT_EQ(database_->deleteFilterResultsWithAudienceIDs({5, 6}, nullptr), 1);
  auto results = database_->queryAllFilterResults(nullptr);
  ASSERT_TRUE(results);
  ASSERT_EQ(results->size(), 1u);
  EXPECT_FALSE(results->front().previousResults);
}

TEST_F(APMDatabaseTest, ResetStartsOverWithAnEmptyDatabase) {
  ASSERT_TRUE(database_->insertBundle(*makeBundle(now()), false, nullptr));
  ASSERT_TRUE(database_->reset(nullptr));
  EXPECT_EQ(rows("queue"), 0);
  EXPECT_EQ(rows("app_metadata"), 1);
}

// A file that cannot be deleted must not be reopened with its old data.
TEST_F(APMDatabaseTest, AResetThatCannotDeleteTheFileLeavesTheStoreClosed) {
  ASSERT_TRUE(database_->insertBundle(*makeBundle(now()), false, nullptr));
  // A non-empty folder where the journal would be cannot be removed, not even by root.
  std::filesystem::create_directories(path_ + "-journal/keep");
  platform::Error error;
  EXPECT_FALSE(database_->reset(&error));
  EXPECT_TRUE(monitor_.contains("Failed to delete database data"));
  EXPECT_FALSE(store().isOpen());
  EXPECT_FALSE(database_->isQueuedBundleTableEmpty(nullptr));
}

TEST_F(APMDatabaseTest, AFailedTransactionRollsBackAndSaysWhy) {
  ASSERT_TRUE(database_->insertBundle(*makeBundle(now()), false, nullptr));
  platform::Error error;
  EXPECT_FALSE(database_->performTransaction(
      [&] { return store().executeSQL("DELETE FROM queue", {}, nullptr) && false; }, &error));
  EXPECT_EQ(rows("queue"), 1);
  EXPECT_TRUE(database_->performTransaction(
      [&] { return store().executeSQL("DELETE FROM queue", {}, nullptr); }, nullptr));
  EXPECT_EQ(database_->isQueuedBundleTableEmpty(nullptr), true);
  // A transaction inside a transaction fails to begin.
  EXPECT_TRUE(database_->performTransaction(
      [&] { return !database_->performTransaction([] { return true; }, nullptr); }, nullptr));
  const APMMonitorEntry* failed = nullptr;
  for (const auto& entry : monitor_.entries()) {
    if (entry.message.rfind("Transaction failed. ", 0) == 0) failed = &entry;
  }
  EXPECT_NE(failed, nullptr);
}

TEST_F(APMDatabaseTest, EventAggregatesCountPublicNamesAndClearSessionCounts) {
  auto aggregates = [](const char* name, std::int64_t session) {
    return *APMEventAggregates::create(name, 5, 2, session, 100);
  };
  // "_" is the escaped wildcard: "x_y" and "%" are public names, "_vs" is not.
  for (const char* name : {"_vs", "x_y", "%", "purchase"}) {
    ASSERT_TRUE(database_->updateEventAggregates(aggregates(name, 3), nullptr)) << name;
  }
  EXPECT_EQ(database_->countPublicEventNames(nullptr), 3);
  ASSERT_TRUE(database_->clearCurrentSessionCounts(nullptr));
  auto all = database_->queryAllEventAggregates(nullptr);
  ASSERT_TRUE(all);
  ASSERT_EQ(all->size(), 4u);
  for (const auto& a : *all) {
    EXPECT_EQ(a.currentSessionCount, 0) << a.name;
    EXPECT_EQ(a.lifetimeCount, 5) << a.name;
  }
}

TEST_F(APMDatabaseTest, RemoteConfigAndMainEventParamsRoundTrip) {
  EXPECT_EQ(database_->queryRemoteConfigData(nullptr), kit::Data{});
  EXPECT_EQ(database_->queryRemoteConfigTimestamp(nullptr), 0.0);
  ASSERT_TRUE(database_->updateRemoteConfig(kit::Data{1, 2, 3}, 50, nullptr));
  ASSERT_TRUE(database_->updateRemoteConfigSuccessfulTimestamp(70, nullptr));
  EXPECT_EQ(database_->queryRemoteConfigData(nullptr), (kit::Data{1, 2, 3}));
  EXPECT_EQ(database_->queryRemoteConfigTimestamp(nullptr), 70.0);

  ASSERT_TRUE(database_->updateMainEventParams({7, 2, kit::Data{9}}, nullptr));
  ASSERT_TRUE(database_->updateMainEventParams({7, 1, kit::Data{8}}, nullptr));  // replaces
  auto found = database_->queryMainEventParamsWithEventID(7, nullptr);
  ASSERT_TRUE(found && *found);
  EXPECT_EQ((*found)->childrenToProcess, 1);
  EXPECT_EQ((*found)->mainEvent, kit::Data{8});
  ASSERT_TRUE(database_->deleteMainEventParamsWithEventID(7, nullptr));
  found = database_->queryMainEventParamsWithEventID(7, nullptr);
  ASSERT_TRUE(found);
  EXPECT_FALSE(*found);
}

TEST_F(APMDatabaseTest, RawEventHeadersAreKeptOncePerFingerprint) {
  auto header = makeBundle(now());
  ASSERT_TRUE(database_->insertIfNotExistsRawEventMetadata(42, *header.protoBuffer(), nullptr));
  APMPBSetString(&header->app_id, "other");
  ASSERT_TRUE(database_->insertIfNotExistsRawEventMetadata(42, *header.protoBuffer(), nullptr));
  auto found = database_->queryRawEventsMetadataWithFingerprint(42, nullptr);
  ASSERT_TRUE(found && *found);
  EXPECT_EQ(APMPBString((**found)->app_id), "com.example.app");  // the first one stays
  ASSERT_TRUE(database_->deleteRawEventMetadataWithMetadataFingerprint(42, nullptr));
  found = database_->queryRawEventsMetadataWithFingerprint(42, nullptr);
  ASSERT_TRUE(found);
  EXPECT_FALSE(*found);
}

// The write path reads counts, properties, aggregates, header fingerprints and row ids from
// copies; whatever a rolled-back transaction wrote or read must not outlive it in them.
TEST_F(APMDatabaseTest, ReadsFollowTheFileAfterARolledBackTransaction) {
  auto counts = *database_->dailyCounts(nullptr);
  counts.allEventsCount = 4;
  ASSERT_TRUE(database_->updateDailyCounts(counts, nullptr));
  ASSERT_TRUE(database_->updateUserAttribute({"app", "kept", APMValue::fromInt64(1), 1}, nullptr));
  ASSERT_TRUE(database_->insertRawEvent(*makeEvent("e", now()), 5, false, nullptr));
  ASSERT_EQ(database_->rawEventsRowIDSpan(nullptr), 1);

  EXPECT_FALSE(database_->performTransaction(
      [&] {
        APMDailyCounts more = counts;
        more.allEventsCount = 9;
        return database_->updateDailyCounts(more, nullptr) &&
               database_->dailyCounts(nullptr)->allEventsCount == 9 &&
               database_->updateUserAttribute({"app", "gone", APMValue::fromInt64(2), 2},
                                              nullptr) &&
               database_->queryAllUserAttributes(nullptr)->size() == 2 &&
               database_->updateEventAggregates(*APMEventAggregates::create("gone", 1, 1, 1, 3),
                                                nullptr) &&
               database_->queryEventAggregatesWithName("gone", nullptr)->has_value() &&
               database_->insertIfNotExistsRawEventMetadata(77, {1}, nullptr) &&
               database_->insertRawEvent(*makeEvent("gone", now()), 77, false, nullptr) &&
               database_->rawEventsRowIDSpan(nullptr) == 2 && false;
      },
      nullptr));

  EXPECT_EQ(database_->dailyCounts(nullptr)->allEventsCount, 4);
  auto attributes = database_->queryAllUserAttributes(nullptr);
  ASSERT_TRUE(attributes);
  ASSERT_EQ(attributes->size(), 1u);
  EXPECT_EQ((*attributes)[0].name, "kept");
  auto gone = database_->queryEventAggregatesWithName("gone", nullptr);
  ASSERT_TRUE(gone);
  EXPECT_FALSE(*gone);
  EXPECT_EQ(database_->rawEventsRowIDSpan(nullptr), 1);
  // The header is written again, since the file never kept it.
  ASSERT_TRUE(database_->insertIfNotExistsRawEventMetadata(77, {2}, nullptr));
  auto header = store().recordsForQuery(
      "SELECT metadata FROM raw_events_metadata WHERE metadata_fingerprint = ?", {77}, nullptr);
  ASSERT_TRUE(header);
  ASSERT_EQ(header->size(), 1u);
  EXPECT_EQ(header->front().at("metadata"), kit::Value(kit::Data{2}));
}

// A name counts as stored (and so escapes the table limit) only while the file holds it.
TEST_F(APMDatabaseTest, ANameWhoseWriteWasRolledBackStillNeedsRoom) {
  fill("events (name, lifetime_count, current_bundle_count, last_fire_timestamp)", 999,
       "'n' || i, 1, 1, 0");
  auto aggregates = [](const char* name) { return *APMEventAggregates::create(name, 1, 1, 1, 5); };
  EXPECT_FALSE(database_->performTransaction(
      [&] { return database_->updateEventAggregates(aggregates("x"), nullptr) && false; },
      nullptr));
  ASSERT_TRUE(database_->updateEventAggregates(aggregates("y"), nullptr));
  platform::Error error;
  EXPECT_FALSE(database_->updateEventAggregates(aggregates("x"), &error));
  EXPECT_EQ(error.localizedDescription, "Failed to insert data type. Table is full");
  EXPECT_TRUE(database_->updateEventAggregates(aggregates("y"), nullptr));
  EXPECT_EQ(rows("events"), 1000);
}

TEST_F(APMDatabaseTest, TheRowIDSpanAndEmptinessFollowInsertsAndEveryKindOfDelete) {
  auto sqlSpan = [&] {
    return store()
        .numberForQuery(
            "SELECT (SELECT max(rowid) FROM raw_events) - (SELECT min(rowid) FROM raw_events) + 1",
            {}, nullptr)
        ->numberAsInteger()
        .value_or(0);
  };
  EXPECT_EQ(database_->rawEventsRowIDSpan(nullptr), 0);
  EXPECT_EQ(database_->isRawEventsTableEmpty(nullptr), true);
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(database_->insertRawEvent(*makeEvent("e", now()), 1, false, nullptr));
  }
  EXPECT_EQ(database_->rawEventsRowIDSpan(nullptr), 4);
  EXPECT_EQ(database_->isRawEventsTableEmpty(nullptr), false);
  ASSERT_TRUE(database_->deleteRawEventsWithMaxRowID(2, nullptr));
  EXPECT_EQ(database_->rawEventsRowIDSpan(nullptr), sqlSpan());
  EXPECT_EQ(database_->rawEventsRowIDSpan(nullptr), 2);
  ASSERT_TRUE(database_->insertRawEvent(*makeEvent("e", now()), 1, false, nullptr));
  EXPECT_EQ(database_->rawEventsRowIDSpan(nullptr), 3);
  EXPECT_EQ(database_->deleteRawEventsOverAbsoluteLimit(2, nullptr), 2);
  EXPECT_EQ(database_->rawEventsRowIDSpan(nullptr), sqlSpan());
  env_.advance(400 * kDay);
  EXPECT_EQ(database_->deleteStaleRawEventsDataOlderThanMaxAge(kDay, nullptr), 1);
  EXPECT_EQ(database_->rawEventsRowIDSpan(nullptr), 0);
  EXPECT_EQ(database_->isRawEventsTableEmpty(nullptr), true);
}

TEST_F(APMDatabaseTest, BundlesAreDeletedByRowID) {
  EXPECT_EQ(database_->isQueuedBundleTableEmpty(nullptr), true);
  auto a = database_->insertBundle(*makeBundle(now()), false, nullptr);
  auto b = database_->insertBundle(*makeBundle(now()), false, nullptr);
  ASSERT_TRUE(a && b);
  EXPECT_EQ(database_->isQueuedBundleTableEmpty(nullptr), false);
  ASSERT_TRUE(database_->deleteBundlesWithRowIDs({*a, 9999}, nullptr));
  auto left = database_->queryBundlesWithCountLimit(10, 1 << 20, nullptr);
  ASSERT_TRUE(left);
  ASSERT_EQ(left->size(), 1u);
  EXPECT_EQ(left->front().rowID, *b);
}

TEST_F(APMDatabaseTest, UserAttributesAndConditionalPropertiesStopAtAThousandNames) {
  fill("user_attributes (name, set_timestamp, value, origin)", 1000, "'u' || i, 0, X'01', 'app'");
  fill("conditional_properties (name, origin, value, creation_timestamp, active, trigger_timeout, "
       "triggered_timestamp, time_to_live)",
       1000, "'c' || i, 'app', X'01', 0, 0, 0, 0, 0");
  EXPECT_FALSE(database_->updateUserAttribute({"app", "new", APMValue::fromInt64(1), 1}, nullptr));
  EXPECT_TRUE(database_->updateUserAttribute({"app", "u7", APMValue::fromInt64(1), 1}, nullptr));
  APMConditionalProperty property;
  property.name = "new";
  property.origin = "app";
  EXPECT_FALSE(database_->updateConditionalProperty(property, nullptr));
  property.name = "c7";
  EXPECT_TRUE(database_->updateConditionalProperty(property, nullptr));
  EXPECT_EQ(rows("user_attributes"), 1000);
  EXPECT_EQ(rows("conditional_properties"), 1000);
}

}  // namespace
