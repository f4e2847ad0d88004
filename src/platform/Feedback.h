// The platform's feedback services: the mail composer, the pasteboard, and the request for a
// store rating.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace platform {

// How a composed mail ended (the platform's values).
enum class MailComposeResult { Cancelled = 0, Saved = 1, Sent = 2, Failed = 3 };

struct MailMessage {
  std::vector<std::string> toRecipients;
  std::string subject;
  std::string body;
  bool isHTML = false;
};

class MailComposer {
 public:
  virtual ~MailComposer() = default;
  // Whether a mail can be composed here at all (an account, or a mail program). Main thread.
  virtual bool canSendMail() = 0;
  // Hands `message` to the person's mail program. `finished` runs once, on the main queue,
  // with how it ended. Main thread.
  virtual void compose(const MailMessage& message, std::function<void(MailComposeResult)> finished) = 0;
};

class Pasteboard {
 public:
  virtual ~Pasteboard() = default;
  // Replaces the pasteboard's content with `text`. Main thread.
  virtual void setString(const std::string& text) = 0;
  // The text on the pasteboard, or "" when it holds none. Main thread.
  virtual std::string string() = 0;
};

class StoreReview {
 public:
  virtual ~StoreReview() = default;
  // Asks the system to offer a rating of the app; it may decide to show nothing. Main thread.
  virtual void requestReview() = 0;
};

}  // namespace platform

namespace platform {

// A rating request answered by a dialog over the front-most screen of the key window: title
// "Rate Solvanta", the store link as its message, "Not Now" and "Rate" (which opens the link
// through the application). With no window nothing is shown. Main thread.
class ReviewDialog : public StoreReview {
 public:
  explicit ReviewDialog(std::string storeLink) : storeLink_(std::move(storeLink)) {}
  void requestReview() override;
  const std::string& storeLink() const { return storeLink_; }

 private:
  std::string storeLink_;
};

}  // namespace platform
