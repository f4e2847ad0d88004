// Feedback on Linux: mail through the desktop's handler of mailto: links, the window system's
// clipboard, and a rating dialog that opens the store link.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "desktop/system/Application.h"
#include "platform/Feedback.h"

namespace desktop {

// The desktop's handler of mailto: links (a .desktop file name), or nothing. Blocks.
using MailHandlerQuery = std::function<std::optional<std::string>()>;

// Asks `xdg-mime query default x-scheme-handler/mailto`; nothing when it fails or says
// nothing. Blocks until the program exits; any thread.
std::optional<std::string> queryMailHandler();

// The mailto: URL of `message`: recipients, subject and body escaped; an HTML body's "<br>"
// become line breaks (a mail program takes a mailto: body as plain text).
std::string mailtoURL(const platform::MailMessage& message);

class MailComposer : public platform::MailComposer {
 public:
  // Null arguments: queryMailHandler and runProgram.
  explicit MailComposer(MailHandlerQuery query = nullptr, Application::Launcher launcher = nullptr);
  // True when the desktop names a handler of mailto: links (asked each time). Main thread.
  bool canSendMail() override;
  // Opens the message's mailto: URL with xdg-open on a global queue; finishes on the main
  // queue as sent when the hand-over succeeded, else as failed.
  void compose(const platform::MailMessage& message, std::function<void(platform::MailComposeResult)> finished) override;

 private:
  MailHandlerQuery query_;
  Application::Launcher launcher_;
};

// The window system's clipboard while a GUI runs; a text kept in memory otherwise. Main thread.
class Pasteboard : public platform::Pasteboard {
 public:
  void setString(const std::string& text) override;
  std::string string() override;

 private:
  std::string text_;
};

}  // namespace desktop
