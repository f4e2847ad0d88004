// Scriptable fakes of the services the app's launch calls: the notification centre's
// permission, the cloud services and messaging token, and object stores held in memory.
// Callbacks go through the installed environment's queues.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Messaging.h"
#include "platform/PersistentContainer.h"
#include "platform/UserNotifications.h"

namespace sim {

class MemoryObjectStore;

class NotificationCenter : public platform::UserNotificationCenter {
 public:
  enum class Answer { Allow, Deny, Never };
  // How the person answers the question (Allow at first); Never leaves it waiting.
  void setAnswer(Answer answer);
  // Answers the waiting questions now (completions on a background queue).
  void answerPending(bool allow);
  int pendingRequests() const;
  int requestCount() const;
  unsigned lastOptions() const;

  void setDelegate(std::weak_ptr<platform::UserNotificationCenterDelegate> delegate) override;
  std::shared_ptr<platform::UserNotificationCenterDelegate> delegate() const override;
  platform::AuthorizationStatus authorizationStatus() override;
  void requestAuthorizationWithOptions(unsigned options,
                                       std::function<void(bool, std::optional<platform::Error>)> completion) override;

 private:
  void finish(std::function<void(bool, std::optional<platform::Error>)> completion, bool allow);
  mutable std::mutex mu_;
  Answer answer_ = Answer::Allow;
  platform::AuthorizationStatus status_ = platform::AuthorizationStatus::NotDetermined;
  std::weak_ptr<platform::UserNotificationCenterDelegate> delegate_;
  std::vector<std::function<void(bool, std::optional<platform::Error>)>> pending_;
  int requests_ = 0;
  unsigned lastOptions_ = 0;
};

class AppServices : public platform::AppServices {
 public:
  void configure() override { ++configureCount_; }
  bool isConfigured() override { return configureCount_ > 0; }
  int configureCount() const { return configureCount_; }

 private:
  int configureCount_ = 0;
};

class Messaging : public platform::Messaging {
 public:
  // What tokenWithCompletion answers: a token, an error, or (both unset) neither.
  void setToken(std::optional<std::string> token);
  void setTokenError(std::optional<platform::Error> error);
  // Tells the delegate a token arrived (as the service does on its own), now.
  void deliverRegistrationToken(const std::string& token);
  int tokenRequests() const { return tokenRequests_; }

  void setDelegate(std::weak_ptr<platform::MessagingDelegate> delegate) override { delegate_ = std::move(delegate); }
  std::shared_ptr<platform::MessagingDelegate> delegate() const override { return delegate_.lock(); }
  void tokenWithCompletion(
      std::function<void(std::optional<std::string>, std::optional<platform::Error>)> completion) override;

 private:
  std::weak_ptr<platform::MessagingDelegate> delegate_;
  std::optional<std::string> token_ = "sim-registration-token";
  std::optional<platform::Error> error_;
  int tokenRequests_ = 0;
};

// Stores in memory. A name can be made to fail its load (a corrupt store).
class PersistentStores : public platform::PersistentStores {
 public:
  void failLoad(const std::string& name, platform::Error error);
  // Saves to the store `name` fail (a full disk) while `fail` is true.
  void failSaves(const std::string& name, bool fail);
  // Names of the containers made so far, in order.
  std::vector<std::string> madeNames() const;
  std::shared_ptr<platform::PersistentContainer> containerWithName(const std::string& name) override;

 private:
  mutable std::mutex mu_;
  std::map<std::string, platform::Error> failing_;
  std::vector<std::string> made_;
  // The stores by name: a container made again finds what was saved before.
  std::map<std::string, std::shared_ptr<MemoryObjectStore>> stores_;
  std::shared_ptr<MemoryObjectStore> storeNamed(const std::string& name);  // under mu_
};

}  // namespace sim
