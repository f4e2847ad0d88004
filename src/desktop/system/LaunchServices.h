// The launch's services on Linux: notification permission kept in the permission store and
// asked through the window's dialog; the cloud services' configuration; messaging, which has
// no push service here and says so; the persistent object stores, SQLite files under the
// app's Application Support folder.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "desktop/system/PermissionStore.h"
#include "platform/Messaging.h"
#include "platform/PersistentContainer.h"
#include "platform/UserNotifications.h"

namespace desktop {

class NotificationCenter : public platform::UserNotificationCenter {
 public:
  explicit NotificationCenter(std::shared_ptr<PermissionStore> permissions);
  void setDelegate(std::weak_ptr<platform::UserNotificationCenterDelegate> delegate) override;
  std::shared_ptr<platform::UserNotificationCenterDelegate> delegate() const override;
  platform::AuthorizationStatus authorizationStatus() override;
  // Asks once through the permission store (its prompt, on its queue); `completion` runs on a
  // global queue with whether the answer was yes.
  void requestAuthorizationWithOptions(unsigned options,
                                       std::function<void(bool, std::optional<platform::Error>)> completion) override;

 private:
  std::shared_ptr<PermissionStore> permissions_;
  mutable std::mutex mu_;
  std::weak_ptr<platform::UserNotificationCenterDelegate> delegate_;
};

class AppServices : public platform::AppServices {
 public:
  void configure() override;
  bool isConfigured() override;

 private:
  std::mutex mu_;
  bool configured_ = false;
};

// The error a token request gets: there is no push service on the desktop.
platform::Error noPushServiceError();

class Messaging : public platform::Messaging {
 public:
  // Setting a delegate reports, on the main queue, that the token changed (there is none).
  void setDelegate(std::weak_ptr<platform::MessagingDelegate> delegate) override;
  std::shared_ptr<platform::MessagingDelegate> delegate() const override;
  // Always noPushServiceError(), on the main queue.
  void tokenWithCompletion(
      std::function<void(std::optional<std::string>, std::optional<platform::Error>)> completion) override;

 private:
  mutable std::mutex mu_;
  std::weak_ptr<platform::MessagingDelegate> delegate_;
};

// Containers whose store is "<folder>/<name>.sqlite".
class SqlitePersistentStores : public platform::PersistentStores {
 public:
  explicit SqlitePersistentStores(std::string folder);
  std::shared_ptr<platform::PersistentContainer> containerWithName(const std::string& name) override;

 private:
  std::string folder_;
};

}  // namespace desktop
