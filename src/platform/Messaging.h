// The app's cloud services: their one-time configuration, and the messaging service that
// hands out a push registration token.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/Types.h"

namespace platform {

// The app's cloud services as a whole: configured once at launch; services that need it
// (measurement) look at whether it happened.
class AppServices {
 public:
  virtual ~AppServices() = default;
  // Records that the services are configured. A second call changes nothing. Main thread.
  virtual void configure() = 0;
  virtual bool isConfigured() = 0;
};

class Messaging;

class MessagingDelegate {
 public:
  virtual ~MessagingDelegate() = default;
  // A (new) registration token is known; `token` is empty where there is none. Main thread.
  virtual void messagingDidReceiveRegistrationToken(Messaging& messaging, const std::string& token) = 0;
};

class Messaging {
 public:
  virtual ~Messaging() = default;
  // The delegate is held weakly. Setting one may make the service report a token to it
  // later, on the main queue. Main thread.
  virtual void setDelegate(std::weak_ptr<MessagingDelegate> delegate) = 0;
  virtual std::shared_ptr<MessagingDelegate> delegate() const = 0;
  // Fetches the current token; `completion` runs on the main queue with the token or an
  // error (or, on an odd platform, with neither).
  virtual void tokenWithCompletion(
      std::function<void(std::optional<std::string> token, std::optional<Error> error)> completion) = 0;
};

}  // namespace platform
