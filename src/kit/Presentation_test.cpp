// Presented controllers, alerts, toasts, the progress HUD and notifications.
#include <gtest/gtest.h>

#include "kit/AlertController.h"
#include "kit/Console.h"
#include "kit/NavigationController.h"
#include "kit/NotificationCenter.h"
#include "kit/ProgressHUD.h"
#include "kit/Toast.h"
#include "kit/Window.h"
#include "sim/Environment.h"

namespace {

struct PresentationTest : ::testing::Test {
  sim::Environment env;
  std::shared_ptr<kit::ViewController> home = std::make_shared<kit::ViewController>();
  std::shared_ptr<kit::ViewController> top = std::make_shared<kit::ViewController>();
  std::shared_ptr<kit::NavigationController> nav = std::make_shared<kit::NavigationController>(home);
  std::shared_ptr<kit::Window> window = kit::make<kit::Window>();
  void SetUp() override {
    window->setRootViewController(nav);
    window->makeKeyAndVisible();
    nav->pushViewController(top, false);
  }
};

TEST_F(PresentationTest, AControllerDeepInTheStackPresentsOverTheRoot) {
  auto modal = std::make_shared<kit::ViewController>();
  home->presentViewController(modal, true);
  EXPECT_EQ(nav->presentedViewController(), modal);
  EXPECT_EQ(modal->presentingViewController(), nav.get());
  EXPECT_TRUE(modal->isOnScreen());
  EXPECT_EQ(nav->visibleViewController(), modal.get());
  modal->dismissViewControllerAnimated(true);
  EXPECT_EQ(nav->presentedViewController(), nullptr);
  EXPECT_FALSE(modal->isOnScreen());
}

TEST_F(PresentationTest, PresentingOverAPresentationIsRefusedWithAWarning) {
  kit::ConsoleCapture console;
  auto first = std::make_shared<kit::ViewController>();
  auto second = std::make_shared<kit::ViewController>();
  bool completed = false;
  top->presentViewController(first, false);
  top->presentViewController(second, false, [&] { completed = true; });
  EXPECT_EQ(nav->presentedViewController(), first);
  EXPECT_FALSE(completed);
  ASSERT_EQ(console.lines().size(), 1u);
  EXPECT_NE(console.lines()[0].find("already presenting"), std::string::npos);
}

TEST_F(PresentationTest, ChoosingAnAlertActionDismissesBeforeTheHandler) {
  auto alert = kit::AlertController::make("Title", "Message", kit::AlertStyle::Alert);
  bool presentedDuringHandler = true;
  std::string chosen;
  alert->addAction(std::make_shared<kit::AlertAction>("Cancel", kit::AlertActionStyle::Cancel));
  alert->addAction(std::make_shared<kit::AlertAction>("Delete", kit::AlertActionStyle::Destructive,
                                                      [&](kit::AlertAction& a) {
                                                        chosen = *a.title();
                                                        presentedDuringHandler = nav->presentedViewController() != nullptr;
                                                      }));
  top->presentViewController(alert, true);
  EXPECT_FALSE(alert->chooseActionTitled("Missing"));
  EXPECT_TRUE(alert->chooseActionTitled("Delete"));
  EXPECT_EQ(chosen, "Delete");
  EXPECT_FALSE(presentedDuringHandler);
}

TEST_F(PresentationTest, ToastsUseTheSharedDefaultsAndExpire) {
  auto& toasts = kit::ToastManager::shared();
  toasts.duration = 2.0;
  kit::makeToast(top->view(), "Saved");
  ASSERT_EQ(toasts.activeToasts().size(), 1u);
  EXPECT_EQ(toasts.activeToasts()[0].position, kit::ToastPosition::Bottom);
  EXPECT_EQ(toasts.activeToasts()[0].message, "Saved");
  env.advance(1.9);
  EXPECT_EQ(toasts.activeToasts().size(), 1u);
  env.advance(0.1);
  EXPECT_TRUE(toasts.activeToasts().empty());
}

TEST_F(PresentationTest, QueuedToastsShowOneAfterAnother) {
  auto& toasts = kit::ToastManager::shared();
  toasts.isQueueEnabled = true;
  bool tapped = false;
  int first = toasts.makeToast(top->view(), "one", 1.0, std::nullopt, std::nullopt, std::nullopt,
                               [&](bool didTap) { tapped = didTap; });
  toasts.makeToast(top->view(), "two", 1.0);
  EXPECT_EQ(toasts.activeToasts().size(), 1u);
  EXPECT_EQ(toasts.queuedCount(), 1u);
  EXPECT_TRUE(toasts.tapToast(first));
  EXPECT_TRUE(tapped);
  ASSERT_EQ(toasts.activeToasts().size(), 1u);
  EXPECT_EQ(toasts.activeToasts()[0].message, "two");
}

TEST_F(PresentationTest, SuccessHudDismissesItselfActivityHudWaits) {
  auto& hud = kit::ProgressHUD::shared();
  hud.show("Deleting");
  env.advance(5);
  EXPECT_TRUE(hud.isVisible());
  hud.showSuccess();
  env.advance(1.0);
  EXPECT_FALSE(hud.isVisible());
  bool done = false;
  hud.dismiss([&] { done = true; });
  EXPECT_TRUE(done);
}

TEST(NotificationCenterTest, DeliversByNameAndSenderUntilRemoved) {
  sim::Environment env;
  auto& center = kit::NotificationCenter::defaultCenter();
  int a = 0, b = 0;
  int sender = 0, observerA = 0, observerB = 0;
  center.addObserver(&observerA, "ping", nullptr, [&](const kit::Notification&) { ++a; });
  center.addObserver(&observerB, "ping", &sender, [&](const kit::Notification& n) {
    ++b;
    EXPECT_EQ(n.userInfo.at("k"), kit::Value(1));
  });
  center.postNotificationName("ping", nullptr, {{"k", 1}});
  center.postNotificationName("ping", &sender, {{"k", 1}});
  center.removeObserver(&observerA);
  center.postNotificationName("ping", &sender, {{"k", 1}});
  EXPECT_EQ(a, 2);
  EXPECT_EQ(b, 2);
}

}  // namespace
