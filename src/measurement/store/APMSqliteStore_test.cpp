#include "measurement/store/APMSqliteStore.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "measurement/store/APMStoreTestSupport.h"

namespace {

using ColumnInfo = APMSqliteStore::ColumnInfo;

class APMSqliteStoreTest : public ::testing::Test {
 protected:
  std::unique_ptr<APMSqliteStore> open(platform::Error* error = nullptr) {
    return APMSqliteStore::initWithDatabasePath(path_, error);
  }

  // The declared type of `column` in `table`.
  static std::string columnType(APMSqliteStore& store, const std::string& table,
                                const std::string& column) {
    auto info = store.columnInfoForTableWithName(table, nullptr);
    for (const auto& row : info.value()) {
      if (*row.at("name").asString() == column) return *row.at("type").asString();
    }
    return "";
  }

  APMTemporaryFolder folder_;
  std::string path_ = folder_.path() + "/Stuvop/Measurement/store.sql";
};

TEST_F(APMSqliteStoreTest, OpensInANewFolderInWriteAheadLogMode) {
  auto store = open();
  ASSERT_TRUE(store);
  EXPECT_TRUE(std::filesystem::exists(path_));
  auto mode = store->recordsForQuery("PRAGMA journal_mode", {}, nullptr);
  ASSERT_TRUE(mode);
  EXPECT_EQ(mode->front().at("journal_mode"), kit::Value("wal"));
  EXPECT_EQ(store->numberForQuery("PRAGMA synchronous", {}, nullptr), kit::Value(1));  // NORMAL
}

TEST_F(APMSqliteStoreTest, ClearsAMissingWritePermission) {
  { ASSERT_TRUE(open()); }
  ::chmod(path_.c_str(), 0444);
  auto store = open();
  ASSERT_TRUE(store);
  struct stat st {};
  ASSERT_EQ(::stat(path_.c_str(), &st), 0);
  EXPECT_TRUE(st.st_mode & S_IWUSR);
  EXPECT_TRUE(store->executeSQL("CREATE TABLE t (a INTEGER)", {}, nullptr));
}

TEST_F(APMSqliteStoreTest, FilesThatAreNotHealthyDatabasesFailValidation) {
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path());
  auto expectRefused = [this](const char* what) {
    platform::Error error;
    EXPECT_FALSE(open(&error)) << what;
    EXPECT_EQ(error.domain, "com.stuvop.smp.measurement.ErrorDomain") << what;
    EXPECT_EQ(error.code, 3) << what;
    EXPECT_TRUE(error.localizedDescription.starts_with(
        "Database operation \"validate database\" failed with sqlite code "))
        << what << ": " << error.localizedDescription;
  };

  { std::ofstream(path_) << "this is a plain text file, long enough to be read as a header......"; }
  expectRefused("not a database");

  // A real database, cut in half.
  std::filesystem::remove(path_);
  APMFillTestDatabase(path_, 400);
  std::filesystem::resize_file(path_, std::filesystem::file_size(path_) / 2);
  expectRefused("truncated");

  // A real database whose second page is overwritten with garbage.
  std::filesystem::remove(path_);
  APMFillTestDatabase(path_, 400);
  {
    std::fstream file(path_, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(4096);
    std::string garbage(64, '\x7f');
    file.write(garbage.data(), static_cast<std::streamsize>(garbage.size()));
  }
  expectRefused("corrupt page");
}

TEST_F(APMSqliteStoreTest, RefusesSeveralStatementsEmptyParametersAndUnbindableValues) {
  auto store = open();
  ASSERT_TRUE(store);
  platform::Error error;
  EXPECT_FALSE(store->recordsForQuery("SELECT 1; SELECT 2", {}, &error));
  EXPECT_EQ(error.localizedDescription, "Query contained more than one SQL statement.");
  EXPECT_EQ(error.code, 1);
  EXPECT_FALSE(store->numberForQuery("SELECT ?", {}, &error));
  EXPECT_EQ(error.localizedDescription, "Received empty parameters");
  EXPECT_FALSE(store->numberForQuery("SELECT ?", {kit::Value(kit::Array{})}, &error));
  EXPECT_EQ(error.localizedDescription,
            "Failed to bind parameter of unexpected type to update statement");
  // A value beyond the last placeholder is SQLite's range error; a missing one binds NULL.
  EXPECT_FALSE(store->numberForQuery("SELECT ?", {1, 2}, &error));
  EXPECT_NE(error.localizedDescription.find("Database operation \"bind values\" failed with sqlite code 25"),
            std::string::npos)
      << error.localizedDescription;
  EXPECT_EQ(store->numberForQuery("SELECT ? IS NULL AND ? = 4", {kit::Value(), 4}, nullptr), kit::Value(1));
  EXPECT_EQ(store->numberForQuery("SELECT ?2 IS NULL", {kit::Value()}, nullptr), kit::Value(1));
  EXPECT_FALSE(store->numberForQuery("SELECT 'text'", {}, &error));
  EXPECT_EQ(error.localizedDescription, "Found result that was not numeric");
  EXPECT_FALSE(store->executeSQL("SELEKT 1", {}, &error));
  EXPECT_EQ(error.localizedDescription,
            "Database operation \"prepare statement\" failed with sqlite code 1 and error message "
            "\"near \"SELEKT\": syntax error\"");
  // The refusals leave the store usable.
  EXPECT_EQ(store->numberForQuery("SELECT ?", {7}, nullptr), kit::Value(7));
}

TEST_F(APMSqliteStoreTest, WritesAndReadsRecords) {
  auto store = open();
  ASSERT_TRUE(store);
  ASSERT_TRUE(store->ensureTableWithName(
      "t",
      {{"name", "TEXT NOT NULL PRIMARY KEY"}, {"n", "INTEGER NOT NULL"}, {"r", "REAL NOT NULL"}},
      {{"blob", "BLOB"}}, {}, nullptr));
  for (const char* name : {"a", "b", "c"}) {
    ASSERT_TRUE(store->upsertRecord({{"name", name}, {"n", 1}, {"r", 0.5}, {"blob", kit::Data{}}},
                                    "t", nullptr));
  }
  // Replacing a key keeps one row.
  ASSERT_TRUE(store->upsertRecord({{"name", "a"}, {"n", 5}, {"r", 1.5}}, "t", nullptr));
  EXPECT_EQ(store->rowCountForTableWithName("t", nullptr), 3);
  EXPECT_EQ(store->rowCountForTableWithName("t", "n", 5, nullptr), 1);
  // The replacement wrote no blob: NULL, where the others hold an empty blob.
  EXPECT_EQ(store->rowCountForTableWithName("t", "blob", kit::Data{}, nullptr), 2);

  ASSERT_TRUE(store->updateRecord({{"r", 2.5}}, "t", "name", "b", nullptr));
  ASSERT_TRUE(store->increaseColumn("n", 10, "t", "name IN (?, ?)", {"b", "c"}, nullptr));
  ASSERT_TRUE(store->updateAllRecordsInTableWithName("t", "blob", kit::Data{1, 2}, nullptr));
  auto rows = store->recordsForQuery("SELECT * FROM t ORDER BY name", {}, nullptr);
  ASSERT_TRUE(rows);
  ASSERT_EQ(rows->size(), 3u);
  EXPECT_EQ((*rows)[0].at("n"), kit::Value(5));
  EXPECT_EQ((*rows)[1].at("r"), kit::Value(2.5));
  EXPECT_EQ((*rows)[1].at("n"), kit::Value(11));
  EXPECT_EQ((*rows)[2].at("blob"), kit::Value(kit::Data{1, 2}));

  platform::Error error;
  EXPECT_FALSE(store->increaseColumn("missing", 1, "t", "1", {}, &error));
  EXPECT_EQ(error.localizedDescription, "Invalid column or table name");
  EXPECT_FALSE(store->increaseColumn("r", 1, "t", "1", {}, &error));
  EXPECT_EQ(error.localizedDescription, "Column type is not integer.");
  EXPECT_FALSE(store->upsertRecord({{"name", kit::Value(kit::Dictionary{})}}, "t", &error));
  EXPECT_EQ(error.localizedDescription, "Record has value of unexpected type");
  EXPECT_FALSE(store->updateRecord({{"n", kit::Value(kit::Array{})}}, "t", "name", "a", &error));
  EXPECT_EQ(error.localizedDescription, "Record has value of unexpected type (update)");
  EXPECT_FALSE(store->upsertRecord({{"n", 1}}, "", &error));
  EXPECT_EQ(error.localizedDescription, "Received empty table name for upsert");

  EXPECT_EQ(store->deleteRecordsFromTableWithName("t", "n > ?", {4}, nullptr), 3);
  EXPECT_EQ(store->rowCountForTableWithName("t", nullptr), 0);
}

TEST_F(APMSqliteStoreTest, FilterStopsEarlyAndMarksAQueryWhollyFilteredOut) {
  auto store = open();
  ASSERT_TRUE(store);
  ASSERT_TRUE(store->executeSQL("CREATE TABLE t (n INTEGER)", {}, nullptr));
  for (int i = 1; i <= 5; ++i) ASSERT_TRUE(store->upsertRecord({{"n", i}}, "t", nullptr));

  int seen = 0;
  auto kept = store->recordsForQuery("SELECT n FROM t ORDER BY n", {}, nullptr,
                                     [&seen](const APMSqliteStore::Record& r, bool* stop) {
                                       ++seen;
                                       *stop = r.at("n") == kit::Value(3);
                                       return r.at("n") != kit::Value(2);
                                     });
  ASSERT_TRUE(kept);
  EXPECT_EQ(seen, 3);
  EXPECT_EQ(kept->size(), 2u);

  platform::Error error;
  auto none = store->recordsForQuery("SELECT n FROM t", {}, &error,
                                     [](const APMSqliteStore::Record&, bool*) { return false; });
  ASSERT_TRUE(none);
  EXPECT_TRUE(none->empty());
  EXPECT_EQ(error.localizedDescription, "Database contains records that were all filtered out");
}

TEST_F(APMSqliteStoreTest, ACachedQueryCanRunInsideItsOwnFilter) {
  auto store = open();
  ASSERT_TRUE(store);
  ASSERT_TRUE(store->executeSQL("CREATE TABLE t (n INTEGER)", {}, nullptr));
  for (int i = 1; i <= 3; ++i) ASSERT_TRUE(store->upsertRecord({{"n", i}}, "t", nullptr));
  const std::string query = "SELECT n FROM t WHERE n >= ? ORDER BY n";
  std::vector<std::size_t> innerCounts;
  auto outer =
      store->recordsForQuery(query, {1}, nullptr, [&](const APMSqliteStore::Record& r, bool*) {
        auto inner = store->recordsForQuery(query, {r.at("n")}, nullptr);
        innerCounts.push_back(inner ? inner->size() : 99);
        return true;
      });
  ASSERT_TRUE(outer);
  EXPECT_EQ(outer->size(), 3u);
  EXPECT_EQ(innerCounts, (std::vector<std::size_t>{3, 2, 1}));
}

TEST_F(APMSqliteStoreTest, TransactionsCommitRollBackAndPassExceptionsOn) {
  auto store = open();
  ASSERT_TRUE(store);
  ASSERT_TRUE(store->executeSQL("CREATE TABLE t (n INTEGER)", {}, nullptr));
  auto insert = [&](int n) { return store->upsertRecord({{"n", n}}, "t", nullptr); };

  EXPECT_TRUE(store->performTransactionWithError(nullptr, [&] { return insert(1); }));
  EXPECT_FALSE(store->performTransactionWithError(nullptr, [&] { return insert(2) && false; }));
  EXPECT_THROW(store->performTransactionWithError(nullptr,
                                                  [&]() -> bool {
                                                    insert(3);
                                                    throw std::runtime_error("block failed");
                                                  }),
               std::runtime_error);
  EXPECT_TRUE(store->performTransactionWithError(nullptr, [&] { return insert(4); }));
  auto rows = store->recordsForQuery("SELECT n FROM t ORDER BY n", {}, nullptr);
  ASSERT_TRUE(rows);
  ASSERT_EQ(rows->size(), 2u);
  EXPECT_EQ((*rows)[0].at("n"), kit::Value(1));
  EXPECT_EQ((*rows)[1].at("n"), kit::Value(4));
}

TEST_F(APMSqliteStoreTest, ANewTableIsCreatedIntegerAndMigratedToReal) {
  auto store = open();
  ASSERT_TRUE(store);
  ColumnInfo elementary = {{"name", "TEXT NOT NULL"}, {"timestamp", "INTEGER NOT NULL"}};
  ColumnInfo addOn = {{"is_realtime", "INTEGER"}};
  ColumnInfo modify = {{"timestamp", "REAL NOT NULL"}};
  ASSERT_TRUE(store->ensureTableWithName("raw", elementary, addOn, modify, nullptr));
  EXPECT_EQ(columnType(*store, "raw", "timestamp"), "REAL");
  EXPECT_EQ(store->columnsForTableWithName("raw", nullptr),
            (std::vector<std::string>{"name", "timestamp", "is_realtime"}));
  EXPECT_EQ(store->tableExists("raw_old", nullptr), false);
  // A second ensure finds nothing to migrate and keeps the rows.
  ASSERT_TRUE(store->upsertRecord({{"name", "e"}, {"timestamp", 1.25}}, "raw", nullptr));
  ASSERT_TRUE(store->ensureTableWithName("raw", elementary, addOn, modify, nullptr));
  EXPECT_EQ(store->numberForQuery("SELECT timestamp FROM raw", {}, nullptr), kit::Value(1.25));
}

TEST_F(APMSqliteStoreTest, OldShapedTablesAreMigratedAndValidated) {
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path());
  APMExecuteOnTestDatabase(path_,
                           "CREATE TABLE raw (name TEXT NOT NULL, timestamp INTEGER NOT NULL);"
                           "INSERT INTO raw VALUES ('old', 1700000000);"
                           "CREATE TABLE q (data BLOB NOT NULL, note TEXT);"
                           "INSERT INTO q VALUES (x'01', 'kept');"
                           "CREATE TABLE strict (a INTEGER NOT NULL, extra TEXT NOT NULL);"
                           "CREATE TABLE partial (a INTEGER NOT NULL);");
  auto store = open();
  ASSERT_TRUE(store);

  // The old INTEGER column moves to REAL with its rows, and gains the add-on column.
  ASSERT_TRUE(store->ensureTableWithName(
      "raw", {{"name", "TEXT NOT NULL"}, {"timestamp", "INTEGER NOT NULL"}},
      {{"is_realtime", "INTEGER"}}, {{"timestamp", "REAL NOT NULL"}}, nullptr));
  EXPECT_EQ(columnType(*store, "raw", "timestamp"), "REAL");
  auto raw = store->recordsForQuery("SELECT * FROM raw", {}, nullptr);
  ASSERT_TRUE(raw);
  ASSERT_EQ(raw->size(), 1u);
  EXPECT_EQ(raw->front().at("timestamp"), kit::Value(1700000000.0));
  EXPECT_EQ(raw->front().at("is_realtime"), kit::Value());

  // An unknown nullable column stays; a missing add-on is added and reads NULL.
  ASSERT_TRUE(store->ensureTableWithName("q", {{"data", "BLOB NOT NULL"}},
                                         {{"retry_count", "INTEGER"}}, {}, nullptr));
  EXPECT_EQ(store->recordsForQuery("SELECT note, retry_count FROM q", {}, nullptr)->front(),
            (APMSqliteStore::Record{{"note", "kept"}, {"retry_count", kit::Value()}}));

  platform::Error error;
  EXPECT_FALSE(store->ensureTableWithName("strict", {{"a", "INTEGER NOT NULL"}}, {}, {}, &error));
  EXPECT_EQ(error.localizedDescription, "Table contains unknown non-optional columns");
  EXPECT_FALSE(store->ensureTableWithName(
      "partial", {{"a", "INTEGER NOT NULL"}, {"b", "INTEGER NOT NULL"}}, {}, {}, &error));
  EXPECT_EQ(error.localizedDescription, "Table is missing required columns");
}

TEST_F(APMSqliteStoreTest, AFullDiskFailsTheWriteAndKeepsWhatWasCommitted) {
  auto store = open();
  ASSERT_TRUE(store);
  ASSERT_TRUE(store->executeSQL("CREATE TABLE t (data BLOB NOT NULL)", {}, nullptr));
  ASSERT_TRUE(store->upsertRecord({{"data", kit::Data(100, 1)}}, "t", nullptr));
  auto pages = store->numberForQuery("PRAGMA page_count", {}, nullptr);
  ASSERT_TRUE(pages);
  ASSERT_TRUE(store->recordsForQuery(
      "PRAGMA max_page_count = " + std::to_string(*pages->asInteger()), {}, nullptr));

  platform::Error error;
  EXPECT_FALSE(store->performTransactionWithError(&error, [&] {
    return store->upsertRecord({{"data", kit::Data(100, 2)}}, "t", &error) &&
           store->upsertRecord({{"data", kit::Data(64 * 1024, 3)}}, "t", &error);
  }));
  EXPECT_NE(error.localizedDescription.find("sqlite code 13"), std::string::npos)
      << error.localizedDescription;
  EXPECT_EQ(store->rowCountForTableWithName("t", nullptr), 1);

  // Once there is room again, writes go through.
  ASSERT_TRUE(store->recordsForQuery("PRAGMA max_page_count = 100000", {}, nullptr));
  EXPECT_TRUE(store->upsertRecord({{"data", kit::Data(64 * 1024, 3)}}, "t", nullptr));
  EXPECT_EQ(store->rowCountForTableWithName("t", nullptr), 2);
}

TEST_F(APMSqliteStoreTest, AClosedStoreFailsWithCodeTwo) {
  auto store = open();
  ASSERT_TRUE(store);
  EXPECT_TRUE(store->closeAndDeleteDatabase());
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_FALSE(store->isOpen());
  platform::Error error;
  EXPECT_FALSE(store->recordsForQuery("SELECT 1", {}, &error));
  EXPECT_EQ(error.code, 2);
  EXPECT_EQ(error.localizedDescription, "Prepare SQL failed. Database not open.");
  EXPECT_FALSE(store->rowCountForTableWithName("t", &error));
  EXPECT_EQ(error.localizedDescription, "Row count failed. Database not open.");
}

}  // namespace
