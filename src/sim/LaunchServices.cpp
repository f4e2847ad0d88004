#include "sim/LaunchServices.h"

#include <algorithm>

#include "kit/Dispatch.h"

namespace sim {

// ---- NotificationCenter ----

void NotificationCenter::setAnswer(Answer answer) {
  std::lock_guard lock(mu_);
  answer_ = answer;
}

int NotificationCenter::pendingRequests() const {
  std::lock_guard lock(mu_);
  return static_cast<int>(pending_.size());
}

int NotificationCenter::requestCount() const {
  std::lock_guard lock(mu_);
  return requests_;
}

unsigned NotificationCenter::lastOptions() const {
  std::lock_guard lock(mu_);
  return lastOptions_;
}

void NotificationCenter::setDelegate(std::weak_ptr<platform::UserNotificationCenterDelegate> delegate) {
  std::lock_guard lock(mu_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<platform::UserNotificationCenterDelegate> NotificationCenter::delegate() const {
  std::lock_guard lock(mu_);
  return delegate_.lock();
}

platform::AuthorizationStatus NotificationCenter::authorizationStatus() {
  std::lock_guard lock(mu_);
  return status_;
}

void NotificationCenter::finish(std::function<void(bool, std::optional<platform::Error>)> completion, bool allow) {
  kit::globalQueue(kit::QoS::Default).async([completion = std::move(completion), allow] { completion(allow, std::nullopt); });
}

void NotificationCenter::requestAuthorizationWithOptions(
    unsigned options, std::function<void(bool, std::optional<platform::Error>)> completion) {
  std::unique_lock lock(mu_);
  ++requests_;
  lastOptions_ = options;
  if (status_ != platform::AuthorizationStatus::NotDetermined) {
    bool allowed = status_ == platform::AuthorizationStatus::Authorized;
    lock.unlock();
    finish(std::move(completion), allowed);
    return;
  }
  if (answer_ == Answer::Never) {
    pending_.push_back(std::move(completion));
    return;
  }
  bool allow = answer_ == Answer::Allow;
  status_ = allow ? platform::AuthorizationStatus::Authorized : platform::AuthorizationStatus::Denied;
  lock.unlock();
  finish(std::move(completion), allow);
}

void NotificationCenter::answerPending(bool allow) {
  std::vector<std::function<void(bool, std::optional<platform::Error>)>> waiting;
  {
    std::lock_guard lock(mu_);
    waiting.swap(pending_);
    if (!waiting.empty()) {
      status_ = allow ? platform::AuthorizationStatus::Authorized : platform::AuthorizationStatus::Denied;
    }
  }
  for (auto& c : waiting) finish(std::move(c), allow);
}

// ---- Messaging ----

void Messaging::setToken(std::optional<std::string> token) { token_ = std::move(token); }

void Messaging::setTokenError(std::optional<platform::Error> error) { error_ = std::move(error); }

void Messaging::deliverRegistrationToken(const std::string& token) {
  if (auto d = delegate_.lock()) d->messagingDidReceiveRegistrationToken(*this, token);
}

void Messaging::tokenWithCompletion(
    std::function<void(std::optional<std::string>, std::optional<platform::Error>)> completion) {
  ++tokenRequests_;
  auto token = error_ ? std::nullopt : token_;
  auto error = error_;
  kit::mainQueue().async([completion = std::move(completion), token, error] { completion(token, error); });
}

// ---- PersistentStores ----

// Records in memory, by entity; a commit applies all its changes or (when failing) none.
class MemoryObjectStore : public platform::ObjectStore {
 public:
  std::optional<std::vector<platform::StoredObject>> fetch(const platform::EntityDescription& entity,
                                                           platform::Error*) override {
    std::lock_guard lock(mu_);
    return records_[entity.name];
  }
  bool commit(std::vector<platform::StoreChange>& changes, platform::Error* error) override {
    std::lock_guard lock(mu_);
    if (failSaves_) {
      if (error) *error = platform::Error{"NSCocoaErrorDomain", 640, "The disk is full."};
      return false;
    }
    for (auto& change : changes) {
      auto& list = records_[change.entity->name];
      auto at = std::find_if(list.begin(), list.end(), [&](const auto& r) { return r.pk == change.object.pk; });
      switch (change.kind) {
        case platform::StoreChange::Kind::Insert:
          change.object.pk = nextPk_++;
          list.push_back(change.object);
          break;
        case platform::StoreChange::Kind::Update:
          if (at != list.end()) *at = change.object;
          break;
        case platform::StoreChange::Kind::Delete:
          if (at != list.end()) list.erase(at);
          break;
      }
    }
    return true;
  }
  void setFailSaves(bool fail) {
    std::lock_guard lock(mu_);
    failSaves_ = fail;
  }

 private:
  std::mutex mu_;
  std::map<std::string, std::vector<platform::StoredObject>> records_;
  std::int64_t nextPk_ = 1;
  bool failSaves_ = false;
};

namespace {

class MemoryContainer : public platform::PersistentContainer {
 public:
  MemoryContainer(std::string name, std::optional<platform::Error> failure, std::shared_ptr<MemoryObjectStore> store)
      : name_(std::move(name)), failure_(std::move(failure)), store_(std::move(store)) {}
  const std::string& name() const override { return name_; }
  void loadPersistentStoresWithCompletionHandler(
      std::function<void(const platform::PersistentStoreDescription&, std::optional<platform::Error>)> completion)
      override {
    platform::PersistentStoreDescription description{"InMemory", "memory:///" + name_};
    loaded_ = !failure_;
    if (loaded_ && !context_) context_ = std::make_shared<platform::ManagedObjectContext>(store_);
    completion(description, failure_);
  }
  bool isLoaded() const override { return loaded_; }
  std::shared_ptr<platform::ManagedObjectContext> viewContext() override { return context_; }

 private:
  std::string name_;
  std::optional<platform::Error> failure_;
  std::shared_ptr<MemoryObjectStore> store_;
  std::shared_ptr<platform::ManagedObjectContext> context_;
  bool loaded_ = false;
};

}  // namespace

void PersistentStores::failLoad(const std::string& name, platform::Error error) {
  std::lock_guard lock(mu_);
  failing_[name] = std::move(error);
}

std::vector<std::string> PersistentStores::madeNames() const {
  std::lock_guard lock(mu_);
  return made_;
}

std::shared_ptr<platform::PersistentContainer> PersistentStores::containerWithName(const std::string& name) {
  std::lock_guard lock(mu_);
  made_.push_back(name);
  auto it = failing_.find(name);
  return std::make_shared<MemoryContainer>(
      name, it == failing_.end() ? std::nullopt : std::optional<platform::Error>(it->second), storeNamed(name));
}

std::shared_ptr<MemoryObjectStore> PersistentStores::storeNamed(const std::string& name) {
  auto& store = stores_[name];
  if (!store) store = std::make_shared<MemoryObjectStore>();
  return store;
}

void PersistentStores::failSaves(const std::string& name, bool fail) {
  std::lock_guard lock(mu_);
  storeNamed(name)->setFailSaves(fail);
}

}  // namespace sim
