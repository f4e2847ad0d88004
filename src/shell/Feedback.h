// Sharing and feedback, available to every screen: the feedback mail and its composer, the
// share sheet, the promotion link, the device's model name, and the app's links (deployment
// values). Main thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/AlertController.h"
#include "kit/ViewController.h"
#include "kit/Views.h"
#include "platform/Feedback.h"

namespace shell {

// The app's store link, the promoted app's link and the support address. They come from one
// place, set at start-up by whoever runs the app; until then they hold clearly fake values.
struct AppLinks {
  std::string storeLink = "https://apps.example.com/solvanta";
  std::string promotionLink = "https://apps.example.com/promoted";
  std::string supportAddress = "support@example.com";

  // The values in force. Thread-safe.
  static AppLinks current();
  static void setCurrent(AppLinks links);
};

// The model's marketing name for the device's machine identifier, or the identifier itself
// when the table does not know it.
std::string deviceModelName();
// The same for a given identifier.
std::string deviceModelName(const std::string& identifier);

class MailComposeViewController;

// What every controller does when its composer finishes: prints "result" and the result's
// number, dismisses the composer and, for a failure, then shows the "Failed" alert.
void mailComposeControllerDidFinish(kit::ViewController& controller, MailComposeViewController& composer,
                                    platform::MailComposeResult result);

// The mail composer, presented over the screen that asked for it. On its first appearance it
// hands its message to the platform's mail composer and, when that finishes, tells its
// delegate.
class MailComposeViewController : public kit::ViewController {
 public:
  static bool canSendMail();

  void setMailComposeDelegate(std::weak_ptr<kit::ViewController> delegate) { delegate_ = std::move(delegate); }
  void setToRecipients(std::vector<std::string> recipients) { message_.toRecipients = std::move(recipients); }
  void setSubject(std::string subject) { message_.subject = std::move(subject); }
  void setMessageBody(std::string body, bool isHTML) {
    message_.body = std::move(body);
    message_.isHTML = isHTML;
  }
  const platform::MailMessage& message() const { return message_; }

  void loadView() override;
  void viewDidAppear(bool animated) override;

 private:
  std::weak_ptr<kit::ViewController> delegate_;
  platform::MailMessage message_;
  bool handedOver_ = false;
};

// Composes the feedback mail to the support address with `subject` and the device details,
// or shows the "Error" alert when no mail can be sent.
void sendFeedback(kit::ViewController& controller, const std::string& subject);

// The share sheet: the items as its message, with "Copy" (to the pasteboard), "Mail" (a new
// mail in the person's mail program) and "Cancel"; when every item is a file URL, first
// "Save to…" (a folder the person picks receives copies) and "Show in Folder" (the first
// file's folder in the file manager). Whatever is chosen, the completion handler
// runs after the sheet is gone.
class ActivityViewController : public kit::AlertController {
 public:
  using Completion = std::function<void(bool completed)>;
  explicit ActivityViewController(std::vector<std::string> activityItems);

  const std::vector<std::string>& activityItems() const { return items_; }
  Completion completionWithItemsHandler;
  // Where the sheet points when it shows as a pop-over.
  kit::View* popoverSourceView = nullptr;
  kit::Rect popoverSourceRect;

 private:
  std::vector<std::string> items_;
};

// Copies the files of `fileURLs` into `folder` under their own names (a taken name gets
// " 2", " 3", ...), printing what could not be saved and then "Saved N files to FOLDER".
// Returns how many were saved. Main thread.
int saveFilesToFolder(const std::vector<std::string>& fileURLs, const std::string& folder);

// Shows the share sheet with `message` then `url` over `controller`.
void shareApp(kit::ViewController& controller, const std::string& url, const std::string& message);

// Opens the promoted app's link; nothing checks that it opens.
void openPromotionLink();

// `text` escaped for a URL's query.
std::string percentEncoded(const std::string& text);

}  // namespace shell
