// The start as a whole: AppDelegate's launch and lifecycle steps, the splash and the interlude.
#include <gtest/gtest.h>

#include "ads/AdConfig.h"
#include "ads/AppOpenAds.h"
#include "ads/FullAdsListeners.h"
#include "ads/Interstitial.h"
#include "kit/Console.h"
#include "kit/Fatal.h"
#include "kit/NavigationController.h"
#include "kit/Window.h"
#include "shared/PreferenceKeys.h"
#include "shell/AppDelegate.h"
#include "shell/BlankViewController.h"
#include "shell/HomeVC.h"
#include "shell/SplashVC.h"
#include "sim/World.h"

namespace {

struct LaunchTest : ::testing::Test {
  sim::World world;
  kit::ConsoleCapture console;
  sim::AdsNetwork& network = world.platform.ads();
  std::shared_ptr<kit::Window> window;

  void start() {
    window = shell::applicationMain();
    world.env.runUntilIdle();
  }
  kit::NavigationController& nav() { return dynamic_cast<kit::NavigationController&>(*window->rootViewController()); }
  std::string top() { return ads::classNameOf(*nav().visibleViewController()); }
  shell::AppDelegate& delegate() { return *shell::sharedAppDelegate(); }
  void background() {
    platform::application().enterBackground();
    world.env.runUntilIdle();
  }
  void foreground() {
    platform::application().enterForeground();
    world.env.runUntilIdle();
  }
  std::int64_t openAdsCount() { return platform::preferences().integerForKey(shared::OPEN_ADS_COUNT); }
};

TEST_F(LaunchTest, LaunchStartsEveryServiceFillsTheListAndRequestsNoAd) {
  start();
  EXPECT_EQ(top(), "SplashVC");
  EXPECT_EQ(window, delegate().window());
  EXPECT_TRUE(network.started());
  EXPECT_EQ(network.testDeviceIdentifiers(), std::vector<std::string>{ads::AdConfig::current().testDeviceIdentifier});
  EXPECT_EQ(world.platform.appServices().configureCount(), 1);
  EXPECT_NE(world.platform.messaging().delegate(), nullptr);
  EXPECT_NE(world.platform.notifications().delegate(), nullptr);
  EXPECT_EQ(world.platform.notifications().lastOptions(), 7u);
  EXPECT_TRUE(platform::application().isRegisteredForRemoteNotifications());
  EXPECT_TRUE(world.platform.keyboard().isEnabled());
  EXPECT_EQ(shell::exculdeStringArray(), (std::vector<std::string>{"SplashVC", "FullPagePromoInhouseVC",
                                                                   "SVAFullScreenAdViewController", "FBAudienceNetwork"}));
  EXPECT_TRUE(console.contains("Success"));
  EXPECT_EQ(network.loads().size(), 0u);
  EXPECT_FALSE(shell::openAdRequestedOnce());
}

TEST_F(LaunchTest, ADeniedNotificationPermissionIsOnlyPrinted) {
  world.platform.notifications().setAnswer(sim::NotificationCenter::Answer::Deny);
  start();
  EXPECT_TRUE(console.contains("Permission for push notifications denied."));
  EXPECT_EQ(top(), "SplashVC");
}

TEST_F(LaunchTest, TheRegistrationTokenIsFetchedAgainAndPrinted) {
  start();
  auto& messaging = world.platform.messaging();
  messaging.deliverRegistrationToken("ignored");
  world.env.runUntilIdle();
  EXPECT_TRUE(console.contains("OCM registration token: sim-registration-token"));
  messaging.setTokenError(platform::Error{"messaging", 3, "No push service."});
  messaging.deliverRegistrationToken("ignored");
  world.env.runUntilIdle();
  EXPECT_TRUE(console.contains("Error fetching OCM registration token: Error Domain=messaging Code=3 \"No push service.\""));
  messaging.setTokenError(std::nullopt);
  messaging.setToken(std::nullopt);
  auto before = console.lines().size();
  messaging.deliverRegistrationToken("ignored");
  world.env.runUntilIdle();
  EXPECT_EQ(console.lines().size(), before);
  EXPECT_EQ(messaging.tokenRequests(), 3);
}

TEST_F(LaunchTest, TheSplashHandsOverOnItsSeventhTickAndAsksForAnInterstitial) {
  start();
  world.env.advance(6.9);
  EXPECT_EQ(top(), "SplashVC");
  for (const char* n : {"6", "5", "4", "3", "2", "1"}) EXPECT_EQ(console.count(n), 1) << n;
  EXPECT_EQ(console.count("0"), 0);
  EXPECT_EQ(network.loadCount("interstitial"), 0);
  world.env.advance(0.1);
  EXPECT_EQ(top(), "BlankViewController");
  EXPECT_EQ(console.count("0"), 1);
  // The splash's own show found no ad and loaded one; its controller was the splash.
  EXPECT_EQ(network.loadCount("interstitial"), 1);
  EXPECT_EQ(ads::AdsMobFullAds::shared()->contoller.get(), nav().viewControllers().front().get());
  // The splash timer is spent.
  world.env.advance(5);
  EXPECT_EQ(console.count("0"), 1);
}

TEST_F(LaunchTest, WithoutAnyAdTheCloseButtonAloneLeadsHome) {
  network.setDefaultOutcome("interstitial", sim::AdsNetwork::Outcome::Fail);
  start();
  world.env.advance(7);
  auto blank = std::dynamic_pointer_cast<shell::BlankViewController>(nav().viewControllers().back());
  ASSERT_TRUE(blank);
  world.env.advance(3.9);
  EXPECT_TRUE(blank->crossButton->isHidden());
  world.env.advance(0.1);
  EXPECT_FALSE(blank->crossButton->isHidden());
  EXPECT_EQ(top(), "BlankViewController");
  // Two retry chains (the interlude's and the splash's failed show): two loads every 2 s.
  EXPECT_EQ(network.loadCount("interstitial"), 5);
  blank->performAction("crosbuttonAction:");
  world.env.runUntilIdle();
  EXPECT_EQ(top(), "HomeVC");
  // A later close of an ad over home moves nobody.
  blank->onFullAdsCloseListener(blank);
  EXPECT_EQ(nav().viewControllers().size(), 3u);
}

TEST_F(LaunchTest, AnAdReadyTwoSecondsIntoTheInterludeComesUpAndItsCloseOpensHome) {
  start();
  world.env.advance(9);
  EXPECT_TRUE(network.isAdPresented());
  EXPECT_EQ(top(), "FullScreenAd");
  network.closePresentedAd();
  world.env.runUntilIdle();
  EXPECT_EQ(top(), "HomeVC");
  EXPECT_EQ(nav().viewControllers().size(), 3u);
  bool printed = false;
  for (const auto& line : console.lines()) printed |= line.rfind("The current top view controller is: <BlankViewController", 0) == 0;
  EXPECT_TRUE(printed);
}

TEST_F(LaunchTest, AForegroundWithoutAKeyWindowOnlySetsTheStateKey) {
  start();
  window->setKeyWindow(false);
  background();
  std::size_t pending = world.env.pendingCount();
  foreground();
  EXPECT_TRUE(platform::preferences().boolForKey(shared::KEY_CONTROLLER_STATE_CHECK));
  EXPECT_EQ(openAdsCount(), 0);
  EXPECT_EQ(world.env.pendingCount(), pending);
  EXPECT_FALSE(shell::openAdRequestedOnce());
}

TEST_F(LaunchTest, TwoForegroundsWithinHalfASecondGiveTwoTimersAndTwoShows) {
  start();
  background();
  EXPECT_FALSE(platform::preferences().boolForKey(shared::KEY_CONTROLLER_STATE_CHECK));
  foreground();
  background();
  foreground();
  EXPECT_EQ(openAdsCount(), 2);
  EXPECT_EQ(network.loadCount("appOpen"), 1);
  world.env.advance(0.5);
  EXPECT_EQ(openAdsCount(), 0);
  int shows = 0;
  for (const auto& line : console.lines()) shows += line.rfind("exculdeStringArray ", 0) == 0;
  EXPECT_EQ(shows, 2);
  EXPECT_EQ(shell::exculdeStringArray().size(), 4u);
}

TEST_F(LaunchTest, TheFifthEntryRuleRemovesOnlyFromALongerList) {
  start();
  shell::exculdeStringArray().push_back("Fifth");
  shell::exculdeStringArray().push_back("Sixth");
  background();
  foreground();
  world.env.advance(0.5);
  EXPECT_EQ(shell::exculdeStringArray(), (std::vector<std::string>{"SplashVC", "FullPagePromoInhouseVC",
                                                                   "SVAFullScreenAdViewController", "FBAudienceNetwork",
                                                                   "Sixth"}));
}

TEST_F(LaunchTest, OnlyTheFirstTripToTheBackgroundLoads) {
  start();
  background();
  foreground();
  background();
  foreground();
  background();
  EXPECT_EQ(network.loadCount("appOpen"), 1);
  EXPECT_EQ(ads::EngineOpenAds::shared()->requestController.get(), nav().viewControllers().front().get());
}

TEST_F(LaunchTest, ThePersistentContainerNeedsNoLaunchAndIsKept) {
  shell::AppDelegate standalone;
  auto container = standalone.persistentContainer();
  ASSERT_TRUE(container);
  EXPECT_EQ(container->name(), "ContactDataModel");
  EXPECT_TRUE(container->isLoaded());
  EXPECT_EQ(standalone.persistentContainer(), container);
  EXPECT_EQ(world.platform.stores().madeNames().size(), 1u);
}

TEST_F(LaunchTest, AStoreThatCannotLoadEndsTheProcessWithTheWholeError) {
  auto previous = kit::setFatalHandler(kit::throwingFatalHandler);
  world.platform.stores().failLoad("ContactDataModel",
                                   platform::Error{"store", 11, "The file is not a database.", {{"path", "/x.sqlite"}}});
  shell::AppDelegate standalone;
  try {
    standalone.persistentContainer();
    ADD_FAILURE() << "no fatal error";
  } catch (const kit::FatalError& e) {
    EXPECT_EQ(std::string(e.what()),
              "Unresolved error Error Domain=store Code=11 \"The file is not a database.\" UserInfo=[\"path\": "
              "\"/x.sqlite\"], [\"path\": \"/x.sqlite\"]");
  }
  kit::setFatalHandler(previous);
}

}  // namespace
