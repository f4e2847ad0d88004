#include "desktop/library/MetadataIndex.h"

#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>

namespace desktop {
namespace {

// Bump when the table's layout or the meaning of a column changes: older files start afresh.
constexpr int kLayoutVersion = 1;

const char* const kCreate =
    "CREATE TABLE IF NOT EXISTS media ("
    " device INTEGER NOT NULL, inode INTEGER NOT NULL,"
    " size INTEGER NOT NULL, mtime_ns INTEGER NOT NULL,"
    " type INTEGER NOT NULL, format TEXT NOT NULL,"
    " time_base INTEGER NOT NULL, capture REAL NOT NULL, duration REAL NOT NULL,"
    " width INTEGER NOT NULL, height INTEGER NOT NULL, problem TEXT NOT NULL,"
    " PRIMARY KEY (device, inode)) WITHOUT ROWID";

// Owns one prepared statement.
class Statement {
 public:
  Statement(sqlite3* db, const char* sql) { sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr); }
  ~Statement() { sqlite3_finalize(stmt_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  sqlite3_stmt* get() const { return stmt_; }
  explicit operator bool() const { return stmt_ != nullptr; }

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

bool exec(sqlite3* db, const char* sql, std::string* error) {
  char* message = nullptr;
  if (sqlite3_exec(db, sql, nullptr, nullptr, &message) == SQLITE_OK) return true;
  if (error) *error = message ? message : sqlite3_errmsg(db);
  sqlite3_free(message);
  return false;
}

std::int64_t asColumn(std::uint64_t v) { return static_cast<std::int64_t>(v); }

std::string text(sqlite3_stmt* stmt, int column) {
  const unsigned char* t = sqlite3_column_text(stmt, column);
  return t ? reinterpret_cast<const char*>(t) : "";
}

// Opens `path` and prepares it; false (with the connection closed) when it cannot be used.
bool prepare(const std::string& path, sqlite3** out, std::string* error) {
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(
      path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    if (error) *error = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
    sqlite3_close(db);
    return false;
  }
  sqlite3_busy_timeout(db, 5000);
  int version = -1;
  {
    Statement stmt(db, "PRAGMA user_version");
    if (stmt && sqlite3_step(stmt.get()) == SQLITE_ROW) version = sqlite3_column_int(stmt.get(), 0);
  }
  bool ok = version >= 0 && exec(db, "PRAGMA journal_mode=WAL", error) &&
            exec(db, "PRAGMA synchronous=NORMAL", error);
  if (ok && version != kLayoutVersion) {
    ok = exec(db, "DROP TABLE IF EXISTS media", error) && exec(db, kCreate, error) &&
         exec(db, ("PRAGMA user_version=" + std::to_string(kLayoutVersion)).c_str(), error);
  }
  if (ok) {
    Statement check(db, "SELECT count(*) FROM media");
    ok = check && sqlite3_step(check.get()) == SQLITE_ROW;
    if (!ok && error) *error = sqlite3_errmsg(db);
  }
  if (!ok) {
    if (error && error->empty()) *error = sqlite3_errmsg(db);
    sqlite3_close(db);
    return false;
  }
  *out = db;
  return true;
}

}  // namespace

std::unique_ptr<MetadataIndex> MetadataIndex::open(const std::string& path, std::string* error) {
  sqlite3* db = nullptr;
  std::string first;
  if (prepare(path, &db, &first))
    return std::unique_ptr<MetadataIndex>(new MetadataIndex(db, path));
  // A damaged file: it is only a cache, so start a new one.
  for (const char* suffix : {"", "-wal", "-shm"}) ::unlink((path + suffix).c_str());
  if (prepare(path, &db, error)) return std::unique_ptr<MetadataIndex>(new MetadataIndex(db, path));
  if (error) *error = first + "; " + *error;
  return nullptr;
}

MetadataIndex::~MetadataIndex() { sqlite3_close(db_); }

IndexEntries MetadataIndex::loadAll(std::string* error) {
  IndexEntries entries;
  Statement stmt(db_,
                 "SELECT device, inode, size, mtime_ns, type, format, time_base, capture, duration,"
                 " width, height, problem FROM media");
  if (!stmt) {
    if (error) *error = sqlite3_errmsg(db_);
    return entries;
  }
  int rc;
  while ((rc = sqlite3_step(stmt.get())) == SQLITE_ROW) {
    sqlite3_stmt* s = stmt.get();
    FileId id{static_cast<std::uint64_t>(sqlite3_column_int64(s, 0)),
              static_cast<std::uint64_t>(sqlite3_column_int64(s, 1))};
    IndexEntry entry;
    entry.size = sqlite3_column_int64(s, 2);
    entry.mtimeNs = sqlite3_column_int64(s, 3);
    entry.info.type = static_cast<platform::MediaType>(sqlite3_column_int(s, 4));
    entry.info.format = text(s, 5);
    entry.info.timeBase = static_cast<TimeBase>(sqlite3_column_int(s, 6));
    entry.info.captureTime = sqlite3_column_double(s, 7);
    entry.info.duration = sqlite3_column_double(s, 8);
    entry.info.width = sqlite3_column_int(s, 9);
    entry.info.height = sqlite3_column_int(s, 10);
    entry.info.problem = text(s, 11);
    entries.emplace(id, std::move(entry));
  }
  if (rc != SQLITE_DONE && error) *error = sqlite3_errmsg(db_);
  return entries;
}

bool MetadataIndex::update(const std::vector<std::pair<FileId, IndexEntry>>& changed,
                           const std::vector<FileId>& removed, std::string* error) {
  if (changed.empty() && removed.empty()) return true;
  if (!exec(db_, "BEGIN IMMEDIATE", error)) return false;
  bool ok = true;
  {
    Statement put(
        db_,
        "INSERT OR REPLACE INTO media (device, inode, size, mtime_ns, type, format, time_base,"
        " capture, duration, width, height, problem) VALUES (?,?,?,?,?,?,?,?,?,?,?,?)");
    Statement drop(db_, "DELETE FROM media WHERE device = ? AND inode = ?");
    ok = put && drop;
    for (const auto& [id, entry] : changed) {
      if (!ok) break;
      sqlite3_stmt* s = put.get();
      sqlite3_bind_int64(s, 1, asColumn(id.device));
      sqlite3_bind_int64(s, 2, asColumn(id.inode));
      sqlite3_bind_int64(s, 3, entry.size);
      sqlite3_bind_int64(s, 4, entry.mtimeNs);
      sqlite3_bind_int(s, 5, static_cast<int>(entry.info.type));
      sqlite3_bind_text(s, 6, entry.info.format.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_int(s, 7, static_cast<int>(entry.info.timeBase));
      sqlite3_bind_double(s, 8, entry.info.captureTime);
      sqlite3_bind_double(s, 9, entry.info.duration);
      sqlite3_bind_int(s, 10, entry.info.width);
      sqlite3_bind_int(s, 11, entry.info.height);
      sqlite3_bind_text(s, 12, entry.info.problem.c_str(), -1, SQLITE_TRANSIENT);
      ok = sqlite3_step(s) == SQLITE_DONE;
      sqlite3_reset(s);
    }
    for (const FileId& id : removed) {
      if (!ok) break;
      sqlite3_stmt* s = drop.get();
      sqlite3_bind_int64(s, 1, asColumn(id.device));
      sqlite3_bind_int64(s, 2, asColumn(id.inode));
      ok = sqlite3_step(s) == SQLITE_DONE;
      sqlite3_reset(s);
    }
    if (!ok && error) *error = sqlite3_errmsg(db_);
  }
  if (!ok) {
    exec(db_, "ROLLBACK", nullptr);
    return false;
  }
  return exec(db_, "COMMIT", error);
}

std::string indexPathFor(const std::string& cacheFolder, const std::string& root) {
  std::uint64_t hash = 14695981039346656037ULL;  // FNV-1a
  for (unsigned char c : root) hash = (hash ^ c) * 1099511628211ULL;
  char name[64];
  std::snprintf(name, sizeof name, "/library-%016llx.sqlite",
                static_cast<unsigned long long>(hash));
  return cacheFolder + name;
}

}  // namespace desktop
