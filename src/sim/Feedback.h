// Scriptable feedback services: a mail composer whose outcome a test decides, a pasteboard in
// memory, and a rating request that shows the rating dialog or nothing.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Feedback.h"

namespace sim {

class MailComposer : public platform::MailComposer {
 public:
  // No mail account; the composer finishes at once as failed; or at once as sent.
  enum class Outcome { None, Fails, Sends };

  void setOutcome(Outcome outcome) { outcome_ = outcome; }
  bool canSendMail() override { return outcome_ != Outcome::None; }
  // Records the message and finishes on the main queue (failed or sent, as set; with no
  // account it finishes as failed too).
  void compose(const platform::MailMessage& message, std::function<void(platform::MailComposeResult)> finished) override;
  const std::vector<platform::MailMessage>& composed() const { return composed_; }

 private:
  Outcome outcome_ = Outcome::Sends;
  std::vector<platform::MailMessage> composed_;
};

class Pasteboard : public platform::Pasteboard {
 public:
  void setString(const std::string& text) override { text_ = text; }
  std::string string() override { return text_; }

 private:
  std::string text_;
};

class StoreReview : public platform::ReviewDialog {
 public:
  static constexpr const char* kStoreLink = "https://apps.example.com/solvanta";
  StoreReview() : platform::ReviewDialog(kStoreLink) {}
  // Whether a request shows the dialog (the system may decide not to).
  void setShows(bool shows) { shows_ = shows; }
  void requestReview() override;
  int requestCount() const { return requests_; }

 private:
  bool shows_ = true;
  int requests_ = 0;
};

}  // namespace sim
