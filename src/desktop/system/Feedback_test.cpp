#include "desktop/system/Feedback.h"

#include <gtest/gtest.h>

#include "sim/Environment.h"

namespace desktop {
namespace {

TEST(DesktopFeedbackTest, MailtoURLsEscapeEverythingAndTurnHtmlBreaksIntoLines) {
  platform::MailMessage message;
  message.toRecipients = {"help@example.org", "a b@x.org"};
  message.subject = "FeedBack & more";
  message.body = "Solvanta <br>Device Brand: x86_64<br>Ünïcode";
  message.isHTML = true;
  EXPECT_EQ(mailtoURL(message),
            "mailto:help@example.org,a%20b@x.org?subject=FeedBack%20%26%20more&body=Solvanta%20%0ADevice%20Brand%3A%20"
            "x86_64%0A%C3%9Cn%C3%AFcode");
  message.isHTML = false;
  EXPECT_NE(mailtoURL(message).find("%3Cbr%3E"), std::string::npos);
}

TEST(DesktopFeedbackTest, MailNeedsAHandlerAndReportsTheHandOver) {
  sim::Environment env;
  std::optional<std::string> handler;
  std::vector<std::vector<std::string>> launched;
  bool opens = true;
  MailComposer mail([&] { return handler; },
                    [&](const std::vector<std::string>& argv) {
                      launched.push_back(argv);
                      return opens;
                    });
  EXPECT_FALSE(mail.canSendMail());
  handler = "thunderbird.desktop";
  EXPECT_TRUE(mail.canSendMail());

  platform::MailMessage message;
  message.toRecipients = {"help@example.org"};
  std::vector<platform::MailComposeResult> results;
  auto record = [&](platform::MailComposeResult r) { results.push_back(r); };
  mail.compose(message, record);
  EXPECT_TRUE(results.empty());  // the hand-over runs off the main queue
  env.runUntilIdle();
  opens = false;
  mail.compose(message, record);
  env.runUntilIdle();
  ASSERT_EQ(launched.size(), 2u);
  EXPECT_EQ(launched[0], (std::vector<std::string>{"xdg-open", "mailto:help@example.org?subject=&body="}));
  EXPECT_EQ(results, (std::vector<platform::MailComposeResult>{platform::MailComposeResult::Sent,
                                                                 platform::MailComposeResult::Failed}));
}

TEST(DesktopFeedbackTest, WithoutAWindowSystemThePasteboardIsKeptInMemory) {
  Pasteboard board;
  EXPECT_EQ(board.string(), "");
  board.setString("Hi\nhttps://apps.example.com");
  EXPECT_EQ(board.string(), "Hi\nhttps://apps.example.com");
}

}  // namespace
}  // namespace desktop
