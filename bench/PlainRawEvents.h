// The reference the measurement benchmarks compare with: raw events written by plain SQLite
// into tables of the client's shape, with the client's pragmas (write-ahead log, normal
// synchronisation) and one exclusive transaction per event.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>

#include "kit/Value.h"

namespace bench {

class PlainRawEvents {
 public:
  // Creates the database at `path` (its folder must exist).
  explicit PlainRawEvents(const std::string& path) {
    sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
                    nullptr);
    ready_ = exec("PRAGMA journal_mode=WAL") && exec("PRAGMA synchronous=NORMAL") &&
             exec("CREATE TABLE raw_events_metadata (metadata_fingerprint INTEGER NOT NULL PRIMARY KEY, "
                  "metadata BLOB NOT NULL)") &&
             exec("CREATE TABLE raw_events (name TEXT NOT NULL, timestamp REAL NOT NULL, "
                  "metadata_fingerprint INTEGER NOT NULL, data BLOB NOT NULL, is_realtime INTEGER)") &&
             prepare("BEGIN EXCLUSIVE TRANSACTION", &begin_) && prepare("END TRANSACTION", &commit_) &&
             prepare("INSERT OR IGNORE INTO raw_events_metadata (metadata_fingerprint, metadata) VALUES (?, ?)",
                     &header_) &&
             prepare("INSERT INTO raw_events (name, timestamp, metadata_fingerprint, data, is_realtime) "
                     "VALUES (?, ?, ?, ?, ?)",
                     &row_);
  }
  ~PlainRawEvents() {
    for (sqlite3_stmt* s : {begin_, commit_, header_, row_}) sqlite3_finalize(s);
    sqlite3_close(db_);
  }
  PlainRawEvents(const PlainRawEvents&) = delete;
  PlainRawEvents& operator=(const PlainRawEvents&) = delete;

  // Writes the header (unless its fingerprint is there) and the event row in one transaction.
  bool write(const char* name, double timestamp, std::int64_t fingerprint, const kit::Data& metadata,
             const kit::Data& data) {
    if (!ready_) return false;
    sqlite3_bind_int64(header_, 1, fingerprint);
    sqlite3_bind_blob(header_, 2, metadata.data(), static_cast<int>(metadata.size()), SQLITE_STATIC);
    sqlite3_bind_text(row_, 1, name, -1, SQLITE_STATIC);
    sqlite3_bind_double(row_, 2, timestamp);
    sqlite3_bind_int64(row_, 3, fingerprint);
    sqlite3_bind_blob(row_, 4, data.data(), static_cast<int>(data.size()), SQLITE_STATIC);
    sqlite3_bind_int(row_, 5, 0);
    return step(begin_) && step(header_) && step(row_) && step(commit_);
  }
  // SQLite's last error message.
  const char* error() const { return sqlite3_errmsg(db_); }

 private:
  bool exec(const char* sql) { return sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK; }
  bool prepare(const char* sql, sqlite3_stmt** statement) {
    return sqlite3_prepare_v2(db_, sql, -1, statement, nullptr) == SQLITE_OK;
  }
  static bool step(sqlite3_stmt* s) {
    int rc = sqlite3_step(s);
    sqlite3_reset(s);
    return rc == SQLITE_DONE;
  }

  sqlite3* db_ = nullptr;
  sqlite3_stmt* begin_ = nullptr;
  sqlite3_stmt* commit_ = nullptr;
  sqlite3_stmt* header_ = nullptr;
  sqlite3_stmt* row_ = nullptr;
  bool ready_ = false;
};

}  // namespace bench
