#include "desktop/system/LaunchServices.h"

#include <sqlite3.h>
#include <sys/stat.h>

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

class SqliteContainer : public platform::PersistentContainer {
 public:
  SqliteContainer(std::string name, std::string folder) : name_(std::move(name)), folder_(std::move(folder)) {}
  ~SqliteContainer() override {
    if (db_) sqlite3_close(db_);
  }
  const std::string& name() const override { return name_; }
  bool isLoaded() const override { return db_ != nullptr; }

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
    return std::nullopt;
  }

  std::string name_;
  std::string folder_;
  sqlite3* db_ = nullptr;
};

}  // namespace

SqlitePersistentStores::SqlitePersistentStores(std::string folder) : folder_(std::move(folder)) {}

std::shared_ptr<platform::PersistentContainer> SqlitePersistentStores::containerWithName(const std::string& name) {
  return std::make_shared<SqliteContainer>(name, folder_);
}

}  // namespace desktop
