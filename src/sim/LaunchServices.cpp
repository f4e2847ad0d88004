#include "sim/LaunchServices.h"

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

namespace {

class MemoryContainer : public platform::PersistentContainer {
 public:
  MemoryContainer(std::string name, std::optional<platform::Error> failure)
      : name_(std::move(name)), failure_(std::move(failure)) {}
  const std::string& name() const override { return name_; }
  void loadPersistentStoresWithCompletionHandler(
      std::function<void(const platform::PersistentStoreDescription&, std::optional<platform::Error>)> completion)
      override {
    platform::PersistentStoreDescription description{"InMemory", "memory:///" + name_};
    loaded_ = !failure_;
    completion(description, failure_);
  }
  bool isLoaded() const override { return loaded_; }

 private:
  std::string name_;
  std::optional<platform::Error> failure_;
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
      name, it == failing_.end() ? std::nullopt : std::optional<platform::Error>(it->second));
}

}  // namespace sim
