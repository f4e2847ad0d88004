#include "desktop/system/LaunchServices.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cctype>
#include <mutex>
#include <set>

#include "desktop/system/AppFolders.h"
#include "kit/Dispatch.h"

namespace desktop {

// ---- NotificationCenter ----

NotificationCenter::NotificationCenter(std::shared_ptr<PermissionStore> permissions)
    : permissions_(std::move(permissions)) {}

void NotificationCenter::setDelegate(std::weak_ptr<platform::UserNotificationCenterDelegate> delegate) {
  std::lock_guard lock(mu_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<platform::UserNotificationCenterDelegate> NotificationCenter::delegate() const {
  std::lock_guard lock(mu_);
  return delegate_.lock();
}

platform::AuthorizationStatus NotificationCenter::authorizationStatus() {
  return permissions_->status(PermissionKind::Notifications);
}

void NotificationCenter::requestAuthorizationWithOptions(
    unsigned, std::function<void(bool, std::optional<platform::Error>)> completion) {
  permissions_->request(PermissionKind::Notifications, [completion = std::move(completion)](platform::AuthorizationStatus s) {
    completion(s == platform::AuthorizationStatus::Authorized, std::nullopt);
  });
}

// ---- AppServices ----

void AppServices::configure() {
  std::lock_guard lock(mu_);
  configured_ = true;
}

bool AppServices::isConfigured() {
  std::lock_guard lock(mu_);
  return configured_;
}

// ---- Messaging ----

platform::Error noPushServiceError() {
  return platform::Error{"messaging", 1, "This computer has no push notification service, so there is no registration token."};
}

void Messaging::setDelegate(std::weak_ptr<platform::MessagingDelegate> delegate) {
  {
    std::lock_guard lock(mu_);
    delegate_ = delegate;
  }
  kit::mainQueue().async([this, delegate] {
    if (auto d = delegate.lock()) d->messagingDidReceiveRegistrationToken(*this, "");
  });
}

std::shared_ptr<platform::MessagingDelegate> Messaging::delegate() const {
  std::lock_guard lock(mu_);
  return delegate_.lock();
}

void Messaging::tokenWithCompletion(
    std::function<void(std::optional<std::string>, std::optional<platform::Error>)> completion) {
  kit::mainQueue().async([completion = std::move(completion)] { completion(std::nullopt, noPushServiceError()); });
}

// ---- SqlitePersistentStores ----

namespace {

std::string upper(const std::string& s) {
  std::string out;
  for (char c : s) out += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

// Records of each entity in a table of their own, "Z<ENTITY>" with the primary key Z_PK and
// one column "Z<ATTRIBUTE>" per attribute; tables are made on first use.
class SqliteObjectStore : public platform::ObjectStore {
 public:
  // Takes over `db`, which it closes.
  explicit SqliteObjectStore(sqlite3* db) : db_(db) {}
  ~SqliteObjectStore() override { sqlite3_close(db_); }

  std::optional<std::vector<platform::StoredObject>> fetch(const platform::EntityDescription& entity,
                                                           platform::Error* error) override {
    std::lock_guard lock(mu_);
    if (!ensureTable(entity, error)) return std::nullopt;
    std::string sql = "SELECT Z_PK";
    for (const auto& a : entity.attributes) sql += ", Z" + upper(a.name);
    sql += " FROM Z" + upper(entity.name) + " ORDER BY Z_PK";
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &st, nullptr) != SQLITE_OK) return fail(error);
    std::vector<platform::StoredObject> out;
    int rc;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
      platform::StoredObject o;
      o.pk = sqlite3_column_int64(st, 0);
      for (std::size_t i = 0; i < entity.attributes.size(); ++i) {
        const auto& a = entity.attributes[i];
        int col = static_cast<int>(i) + 1;
        if (sqlite3_column_type(st, col) == SQLITE_NULL) {
          o.values[a.name] = kit::Value();
        } else if (a.type == platform::EntityDescription::AttributeType::String) {
          auto* text = reinterpret_cast<const char*>(sqlite3_column_text(st, col));
          o.values[a.name] = kit::Value(std::string(text ? text : ""));
        } else if (a.type == platform::EntityDescription::AttributeType::Boolean) {
          o.values[a.name] = kit::Value(sqlite3_column_int64(st, col) != 0);
        } else {
          o.values[a.name] = kit::Value(static_cast<long long>(sqlite3_column_int64(st, col)));
        }
      }
      out.push_back(std::move(o));
    }
    sqlite3_finalize(st);
    if (rc != SQLITE_DONE) return fail(error);
    return out;
  }

  bool commit(std::vector<platform::StoreChange>& changes, platform::Error* error) override {
    std::lock_guard lock(mu_);
    for (const auto& c : changes) {
      if (!ensureTable(*c.entity, error)) return false;
    }
    if (sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK) {
      fail(error);
      return false;
    }
    for (auto& c : changes) {
      if (!apply(c)) {
        fail(error);
        sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
        return false;
      }
    }
    if (sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) {
      fail(error);
      sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
      return false;
    }
    return true;
  }

 private:
  std::nullopt_t fail(platform::Error* error) {
    if (error) *error = platform::Error{"NSCocoaErrorDomain", 134030, "An error occurred while saving.",
                                        {{"NSSQLiteErrorDomain", std::to_string(sqlite3_errcode(db_))},
                                         {"reason", sqlite3_errmsg(db_)}}};
    return std::nullopt;
  }

  bool ensureTable(const platform::EntityDescription& entity, platform::Error* error) {
    if (made_.count(entity.name)) return true;
    std::string sql = "CREATE TABLE IF NOT EXISTS Z" + upper(entity.name) + " (Z_PK INTEGER PRIMARY KEY AUTOINCREMENT";
    for (const auto& a : entity.attributes) {
      sql += ", Z" + upper(a.name) + (a.type == platform::EntityDescription::AttributeType::String ? " VARCHAR" : " INTEGER");
    }
    sql += ")";
    if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
      fail(error);
      return false;
    }
    made_.insert(entity.name);
    return true;
  }

  static void bind(sqlite3_stmt* st, int at, const kit::Value& v) {
    if (auto* s = v.asString()) {
      sqlite3_bind_text(st, at, s->c_str(), static_cast<int>(s->size()), SQLITE_TRANSIENT);
    } else if (auto i = v.numberAsInteger()) {
      sqlite3_bind_int64(st, at, *i);
    } else {
      sqlite3_bind_null(st, at);
    }
  }

  bool apply(platform::StoreChange& c) {
    const auto& e = *c.entity;
    std::string table = "Z" + upper(e.name);
    std::string sql;
    using Kind = platform::StoreChange::Kind;
    if (c.kind == Kind::Delete) {
      sql = "DELETE FROM " + table + " WHERE Z_PK = ?";
    } else if (c.kind == Kind::Update) {
      sql = "UPDATE " + table + " SET ";
      for (std::size_t i = 0; i < e.attributes.size(); ++i) sql += (i ? ", Z" : "Z") + upper(e.attributes[i].name) + " = ?";
      if (e.attributes.empty()) sql += "Z_PK = Z_PK";
      sql += " WHERE Z_PK = ?";
    } else {
      sql = "INSERT INTO " + table + " (Z_PK";
      for (const auto& a : e.attributes) sql += ", Z" + upper(a.name);
      sql += ") VALUES (NULL";
      for (std::size_t i = 0; i < e.attributes.size(); ++i) sql += ", ?";
      sql += ")";
    }
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &st, nullptr) != SQLITE_OK) return false;
    int at = 1;
    if (c.kind != Kind::Delete) {
      for (const auto& a : e.attributes) {
        auto it = c.object.values.find(a.name);
        bind(st, at++, it == c.object.values.end() ? kit::Value() : it->second);
      }
    }
    if (c.kind != Kind::Insert) sqlite3_bind_int64(st, at, c.object.pk);
    int rc = sqlite3_step(st);
    sqlite3_finalize(st);
    if (rc != SQLITE_DONE) return false;
    if (c.kind == Kind::Insert) c.object.pk = sqlite3_last_insert_rowid(db_);
    return true;
  }

  std::mutex mu_;
  sqlite3* db_;
  std::set<std::string> made_;
};

class SqliteContainer : public platform::PersistentContainer {
 public:
  SqliteContainer(std::string name, std::string folder) : name_(std::move(name)), folder_(std::move(folder)) {}
  // The database closes with its store, which the context keeps alive.
  ~SqliteContainer() override {
    if (db_ && !context_) sqlite3_close(db_);
  }
  const std::string& name() const override { return name_; }
  bool isLoaded() const override { return db_ != nullptr; }
  std::shared_ptr<platform::ManagedObjectContext> viewContext() override { return context_; }

  void loadPersistentStoresWithCompletionHandler(
      std::function<void(const platform::PersistentStoreDescription&, std::optional<platform::Error>)> completion)
      override {
    const std::string path = folder_ + "/" + name_ + ".sqlite";
    platform::PersistentStoreDescription description{"SQLite", "file://" + path};
    std::optional<platform::Error> error = open(path);
    completion(description, error);
  }

 private:
  platform::Error failure(const std::string& path, int code, const std::string& why) {
    return platform::Error{"NSCocoaErrorDomain", 256, "The file \xE2\x80\x9C" + name_ + ".sqlite\xE2\x80\x9D couldn\xE2\x80\x99t be opened.",
                           {{"NSFilePath", path}, {"NSSQLiteErrorDomain", std::to_string(code)}, {"reason", why}}};
  }

  std::optional<platform::Error> open(const std::string& path) {
    if (db_) return std::nullopt;
    std::string made;
    if (!makeDirectories(folder_, 0700, &made)) return failure(path, SQLITE_CANTOPEN, made);
    sqlite3* db = nullptr;
    int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
    if (rc != SQLITE_OK) {
      std::string why = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
      sqlite3_close(db);
      return failure(path, rc, why);
    }
    // Reading the schema finds a file that is not a database, or a damaged one, before
    // anything is written to it.
    char* message = nullptr;
    rc = sqlite3_exec(db, "SELECT count(*) FROM sqlite_master", nullptr, nullptr, &message);
    if (rc == SQLITE_OK) {
      rc = sqlite3_exec(db, "CREATE TABLE IF NOT EXISTS Z_METADATA (Z_VERSION INTEGER PRIMARY KEY, Z_NAME TEXT)",
                        nullptr, nullptr, &message);
    }
    if (rc != SQLITE_OK) {
      std::string why = message ? message : sqlite3_errstr(rc);
      sqlite3_free(message);
      sqlite3_close(db);
      return failure(path, rc, why);
    }
    db_ = db;
    context_ = std::make_shared<platform::ManagedObjectContext>(std::make_shared<SqliteObjectStore>(db_));
    return std::nullopt;
  }

  std::string name_;
  std::string folder_;
  sqlite3* db_ = nullptr;
  std::shared_ptr<platform::ManagedObjectContext> context_;
};

}  // namespace

SqlitePersistentStores::SqlitePersistentStores(std::string folder) : folder_(std::move(folder)) {}

std::shared_ptr<platform::PersistentContainer> SqlitePersistentStores::containerWithName(const std::string& name) {
  return std::make_shared<SqliteContainer>(name, folder_);
}

}  // namespace desktop
