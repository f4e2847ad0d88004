// Helpers for the store tests: a temporary folder, and raw SQLite access to build files in
// old shapes or damage them. Test code only.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <string>

// A fresh folder under the system's temporary directory, removed with everything in it.
class APMTemporaryFolder {
 public:
  APMTemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "apm_store_XXXXXX").string();
    if (!::mkdtemp(pattern.data())) ADD_FAILURE() << "mkdtemp failed";
    path_ = pattern;
  }
  ~APMTemporaryFolder() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  APMTemporaryFolder(const APMTemporaryFolder&) = delete;
  APMTemporaryFolder& operator=(const APMTemporaryFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Runs `sql` (any number of statements) on the database at `path`, outside any store.
inline void APMExecuteOnTestDatabase(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  char* message = nullptr;
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK)
      << (message ? message : "");
  sqlite3_free(message);
  sqlite3_close(db);
}

// A database of several pages: one table with `rows` rows of text.
inline void APMFillTestDatabase(const std::string& path, int rows) {
  APMExecuteOnTestDatabase(
      path,
      "CREATE TABLE filler (id INTEGER PRIMARY KEY, text TEXT NOT NULL);"
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
          std::to_string(rows) + ") INSERT INTO filler (text) SELECT printf('%0100d', i) FROM n;");
}
