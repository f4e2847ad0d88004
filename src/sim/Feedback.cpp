#include "sim/Feedback.h"

#include "kit/Dispatch.h"

namespace sim {

void MailComposer::compose(const platform::MailMessage& message,
                           std::function<void(platform::MailComposeResult)> finished) {
  composed_.push_back(message);
  const auto result = outcome_ == Outcome::Sends ? platform::MailComposeResult::Sent : platform::MailComposeResult::Failed;
  kit::mainQueue().async([finished = std::move(finished), result] {
    if (finished) finished(result);
  });
}

void StoreReview::requestReview() {
  ++requests_;
  if (shows_) platform::ReviewDialog::requestReview();
}

}  // namespace sim
