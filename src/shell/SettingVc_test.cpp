#include "shell/SettingVc.h"

#include <gtest/gtest.h>

#include "kit/AlertController.h"
#include "kit/Console.h"
#include "kit/NavigationController.h"
#include "kit/Storyboard.h"
#include "kit/Toast.h"
#include "kit/Window.h"
#include "shared/PreferenceKeys.h"
#include "shell/Feedback.h"
#include "shell/MainStoryboard.h"
#include "sim/World.h"
#include "vault/SetPin.h"

namespace shell {
namespace {

struct SettingVcTest : ::testing::Test {
  sim::World world;
  std::shared_ptr<kit::NavigationController> nav;
  std::shared_ptr<SettingVc> settings;
  std::shared_ptr<kit::Window> window = kit::make<kit::Window>();

  void SetUp() override {
    registerMainStoryboard();
    nav = std::make_shared<kit::NavigationController>(
        kit::Storyboard::named("Main").instantiateViewControllerWithIdentifier("HomeVC"));
    world.platform.application().addWindow(window);
    window->setRootViewController(nav);
    window->makeKeyAndVisible();
  }
  void TearDown() override { kit::ToastManager::shared().hideAllToasts(); }
  void show() {
    settings = kit::Storyboard::named("Main").instantiate<SettingVc>("SettingVc");
    nav->pushViewController(settings, false);
    world.env.runUntilIdle();
  }
  void tapRow(int row) {
    settings->tableView->userSelectRow({0, row});
    world.env.runUntilIdle();
  }
  SettingCell& cell(int row) { return dynamic_cast<SettingCell&>(*settings->tableView->cellForRowAtIndexPath({0, row})); }
  kit::AlertController* alert() { return dynamic_cast<kit::AlertController*>(nav->presentedViewController().get()); }
  long count() { return platform::preferences().integerForKey(shared::FULLSERVICECOUNT); }
};

TEST_F(SettingVcTest, SevenRowsAndOnlyTheFirstShowsTheSwitch) {
  platform::preferences().setBool(true, shared::IS_PIN_SET);
  show();
  ASSERT_EQ(settings->tableView->numberOfRowsInSection(0), 7);
  const char* titles[] = {"Use Passcode", "Change Password", "Rate US", "FeedBack", "Share App", "More App", "Exit"};
  for (int row = 0; row < 7; ++row) {
    EXPECT_EQ(cell(row).nameLbl->text(), titles[row]);
    EXPECT_EQ(cell(row).usePasscodeSwitch->isHidden(), row != 0);
    EXPECT_EQ(settings->tableView->heightForRow({0, row}), 70.0);
  }
  EXPECT_TRUE(cell(0).usePasscodeSwitch->isOn());
  tapRow(0);
  EXPECT_EQ(nav->topViewController(), settings.get());
  EXPECT_EQ(nav->presentedViewController(), nullptr);
}

TEST_F(SettingVcTest, EveryOpeningCountsAStepATenthOfASecondLater) {
  show();
  EXPECT_EQ(count(), 0);
  world.env.advance(0.1);
  EXPECT_EQ(count(), 1);
  for (int i = 0; i < 2; ++i) {
    settings->performAction("crossBtnAction:");
    show();
    world.env.advance(0.1);
  }
  EXPECT_EQ(count(), 3);
  settings->performAction("crossBtnAction:");
  show();
  world.env.advance(0.1);
  EXPECT_EQ(count(), 0);  // the fourth asks for an ad
  EXPECT_EQ(world.platform.ads().loadCount("interstitial"), 1);
}

TEST_F(SettingVcTest, TheSwitchAsksForANewPinOrForTheCurrentOne) {
  show();
  world.env.advance(0.1);
  ASSERT_TRUE(kit::toggle(*cell(0).usePasscodeSwitch));
  ASSERT_EQ(nav->topViewController()->storyboardIdentifier(), "SetPin");
  EXPECT_EQ(dynamic_cast<vault::SetPin&>(*nav->topViewController()).isFrom, "setpasscode");
  EXPECT_EQ(count(), 2);
  nav->popViewControllerAnimated(false);
  ASSERT_TRUE(kit::toggle(*cell(0).usePasscodeSwitch));
  EXPECT_EQ(dynamic_cast<vault::SetPin&>(*nav->topViewController()).isFrom, "reset");
}

TEST_F(SettingVcTest, ChangePasswordNeedsAPin) {
  show();
  world.env.advance(0.1);
  EXPECT_FALSE(settings->isLockOn);
  tapRow(1);
  EXPECT_EQ(settings->isLockOn, false);
  ASSERT_EQ(kit::ToastManager::shared().activeToasts().size(), 1u);
  EXPECT_EQ(kit::ToastManager::shared().activeToasts()[0].message, "Set Pin First");
  EXPECT_EQ(kit::ToastManager::shared().activeToasts()[0].position, kit::ToastPosition::Center);
  EXPECT_EQ(count(), 1);  // the toast counts nothing
  platform::preferences().setBool(true, shared::IS_PIN_SET);
  tapRow(1);
  EXPECT_EQ(dynamic_cast<vault::SetPin&>(*nav->topViewController()).isFrom, "changepasscode");
  EXPECT_EQ(count(), 2);
}

TEST_F(SettingVcTest, FeedbackMailAndItsThreeOutcomes) {
  world.platform.device().machine = "iPhone12,5";
  show();
  world.platform.mail().setOutcome(sim::MailComposer::Outcome::None);
  tapRow(3);
  ASSERT_NE(alert(), nullptr);
  EXPECT_EQ(alert()->alertTitle(), "Error");
  EXPECT_EQ(alert()->message(), "Unable to send email. Please check your email settings and try again.");
  alert()->chooseActionTitled("ok");
  EXPECT_TRUE(world.platform.mail().composed().empty());

  kit::ConsoleCapture console;
  world.platform.mail().setOutcome(sim::MailComposer::Outcome::Fails);
  tapRow(3);
  ASSERT_NE(alert(), nullptr);
  EXPECT_EQ(alert()->alertTitle(), "Failed");
  EXPECT_TRUE(console.contains("result 3"));
  ASSERT_EQ(world.platform.mail().composed().size(), 1u);
  const auto& mail = world.platform.mail().composed()[0];
  EXPECT_EQ(mail.toRecipients, std::vector<std::string>{AppLinks::current().supportAddress});
  EXPECT_EQ(mail.subject, "FeedBack");
  EXPECT_EQ(mail.body, "Solvanta <br>Device Brand: iPhone 11 Pro Max<br>DeviceName: Sim Phone <br>Device Version: 17.0");
  EXPECT_TRUE(mail.isHTML);
  alert()->chooseActionTitled("OK");

  world.platform.mail().setOutcome(sim::MailComposer::Outcome::Sends);
  tapRow(3);
  EXPECT_EQ(nav->presentedViewController(), nullptr);
  EXPECT_TRUE(console.contains("result 2"));
}

TEST_F(SettingVcTest, ModelNames) {
  EXPECT_EQ(deviceModelName("iPad8,7"), "iPad Pro (12.9-inch) (3rd generation)");
  EXPECT_EQ(deviceModelName("iPhone8,4"), "iPhone SE");
  EXPECT_EQ(deviceModelName("AudioAccessory1,1"), "HomePod");
  EXPECT_EQ(deviceModelName("iPhone15,2"), "iPhone15,2");
  EXPECT_EQ(deviceModelName("x86_64"), "x86_64");
  world.platform.device().machine = std::string("iPod7,1\0junk", 12);
  EXPECT_EQ(deviceModelName(), "iPod Touch 6");
}

TEST_F(SettingVcTest, ShareRateMoreAndExit) {
  show();
  tapRow(4);
  auto* sheet = dynamic_cast<ActivityViewController*>(nav->presentedViewController().get());
  ASSERT_NE(sheet, nullptr);
  const std::string text =
      "Hi, I'm using Image to Solvanta App to remove duplicate photo,videos and contact from phone.You can also download.";
  EXPECT_EQ(sheet->activityItems(), (std::vector<std::string>{text, AppLinks::current().storeLink}));
  sheet->chooseActionTitled("Copy");
  EXPECT_EQ(world.platform.pasteboard().string(), text + "\n" + AppLinks::current().storeLink);
  tapRow(4);
  alert()->chooseActionTitled("Mail");
  ASSERT_FALSE(world.platform.application().openedURLs().empty());
  EXPECT_EQ(world.platform.application().openedURLs().back().rfind("mailto:?subject=Solvanta&body=Hi%2C%20I%27m", 0), 0u);

  tapRow(2);
  EXPECT_EQ(world.platform.review().requestCount(), 1);
  ASSERT_NE(alert(), nullptr);
  EXPECT_EQ(alert()->alertTitle(), "Rate Solvanta");
  alert()->chooseActionTitled("Rate");
  EXPECT_EQ(world.platform.application().openedURLs().back(), sim::StoreReview::kStoreLink);
  world.platform.review().setShows(false);
  tapRow(2);
  EXPECT_EQ(alert(), nullptr);

  tapRow(5);
  EXPECT_EQ(world.platform.application().openedURLs().back(), AppLinks::current().promotionLink);

  int exitCode = -1;
  auto saved = SettingVc::exitHandler();
  SettingVc::exitHandler() = [&](int code) { exitCode = code; };
  tapRow(6);
  ASSERT_NE(alert(), nullptr);
  EXPECT_EQ(alert()->message(), "Are you sure you want to exit from app");
  alert()->chooseActionTitled("Cancel");
  EXPECT_EQ(exitCode, -1);
  EXPECT_EQ(nav->topViewController(), settings.get());
  tapRow(6);
  alert()->chooseActionTitled("Exit");
  EXPECT_EQ(exitCode, 0);
  SettingVc::exitHandler() = saved;
}

}  // namespace
}  // namespace shell
