// The notification centre of the platform: the delegate that hears about notifications, and
// the person's permission to show them (badge, sound, alert).
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/Types.h"

namespace platform {

// Options of an authorisation request (the platform's bits).
enum AuthorizationOptions : unsigned {
  kAuthorizationOptionBadge = 1,
  kAuthorizationOptionSound = 2,
  kAuthorizationOptionAlert = 4,
};

// Hears about notifications arriving; the app sets one and handles nothing, so it has no
// operations of its own here.
class UserNotificationCenterDelegate {
 public:
  virtual ~UserNotificationCenterDelegate() = default;
};

class UserNotificationCenter {
 public:
  virtual ~UserNotificationCenter() = default;

  // The delegate is held weakly, as the platform does. Main thread.
  virtual void setDelegate(std::weak_ptr<UserNotificationCenterDelegate> delegate) = 0;
  virtual std::shared_ptr<UserNotificationCenterDelegate> delegate() const = 0;

  // The permission as recorded: NotDetermined until the person has answered once.
  virtual AuthorizationStatus authorizationStatus() = 0;
  // Asks the person once (later requests get the recorded answer without asking). `completion`
  // runs on a background queue with whether notifications are allowed, and an error when the
  // question could not be asked.
  virtual void requestAuthorizationWithOptions(unsigned options,
                                               std::function<void(bool granted, std::optional<Error>)> completion) = 0;
};

}  // namespace platform
