#include "ads/AppOpenAds.h"

#include <gtest/gtest.h>

#include "ads/AdConfig.h"
#include "kit/Console.h"
#include "kit/NavigationController.h"
#include "kit/Window.h"
#include "shared/PreferenceKeys.h"
#include "sim/World.h"

namespace {

const std::vector<std::string> kLaunchList = {"SplashVC", "FullPagePromoInhouseVC", "SVAFullScreenAdViewController",
                                              "FBAudienceNetwork"};

std::shared_ptr<kit::ViewController> screenNamed(const std::string& name) {
  auto vc = std::make_shared<kit::ViewController>();
  vc->setStoryboardOrigin(nullptr, name);
  return vc;
}

struct AppOpenAdsTest : ::testing::Test {
  sim::World world;
  kit::ConsoleCapture console;
  std::shared_ptr<kit::ViewController> home = screenNamed("HomeVC");
  std::shared_ptr<kit::NavigationController> nav = std::make_shared<kit::NavigationController>(home);
  std::shared_ptr<kit::Window> window = kit::make<kit::Window>();
  sim::AdsNetwork& network = world.platform.ads();

  void SetUp() override {
    window->setRootViewController(nav);
    window->makeKeyAndVisible();
    platform::application().addWindow(window);
  }
  void loadAnAd() {
    ads::EngineOpenAds::shared()->loadOpenAd(home);
    world.env.runUntilIdle();
    ASSERT_TRUE(ads::loadedOpenAd());
  }
  void show(std::shared_ptr<kit::ViewController> over, std::vector<std::string> list = kLaunchList) {
    ads::ShowEngineOpenAds::shared()->showOpenAd(std::move(over), ads::AdConfig::current().appOpenAdUnitID, list);
    world.env.runUntilIdle();
  }
};

TEST_F(AppOpenAdsTest, AnAdIsShownUntilItIsFourHoursOldThenReplacedUnshown) {
  loadAnAd();
  world.env.advance(4 * 3600 - 60);
  show(home);
  EXPECT_TRUE(network.isAdPresented());
  EXPECT_TRUE(console.contains("Ad ready"));
  network.closePresentedAd();
  world.env.runUntilIdle();
  EXPECT_TRUE(console.contains("adDidDismissFullScreenContent"));
  ASSERT_EQ(network.loadCount("appOpen"), 2);

  auto fresh = ads::loadedOpenAd();
  world.env.advance(4 * 3600);
  show(home);
  EXPECT_FALSE(network.isAdPresented());
  EXPECT_EQ(network.loadCount("appOpen"), 3);
  EXPECT_NE(ads::loadedOpenAd(), fresh);
  EXPECT_EQ(network.presentationCount(), 1);
}

TEST_F(AppOpenAdsTest, ExcludedScreensKeepTheAdAndLoadNothing) {
  loadAnAd();
  auto ad = ads::loadedOpenAd();
  show(screenNamed("SplashVC"));
  // A class whose name is part of an entry matches too: the entry is searched for the name.
  show(screenNamed("FullScreenAd"));
  show(screenNamed("Audience"));
  EXPECT_FALSE(network.isAdPresented());
  EXPECT_EQ(network.loadCount("appOpen"), 1);
  EXPECT_EQ(ads::loadedOpenAd(), ad);
  EXPECT_TRUE(console.contains("controlleritemCheck SplashVC  SplashVC"));
  // A longer name is not part of any entry.
  show(screenNamed("SplashVCSettings"));
  EXPECT_TRUE(network.isAdPresented());
}

TEST_F(AppOpenAdsTest, LoginStatusSuppressesOnlyWithANonEmptyList) {
  platform::preferences().setBool(true, shared::LOGIN_STATUS);
  loadAnAd();
  show(home);
  EXPECT_FALSE(network.isAdPresented());
  EXPECT_EQ(console.count("controlleritemCheck SplashVC  HomeVC"), 1);
  EXPECT_EQ(console.count("controlleritemCheck FullPagePromoInhouseVC  HomeVC"), 0);
  show(home, {});
  EXPECT_TRUE(network.isAdPresented());
}

TEST_F(AppOpenAdsTest, WithoutAnAdAShowLoadsAndAnEmptyIdentifierIsOnlyStored) {
  ads::ShowEngineOpenAds::shared()->showOpenAd(home, "", kLaunchList);
  world.env.runUntilIdle();
  EXPECT_EQ(network.loadCount("appOpen"), 0);
  EXPECT_EQ(ads::openAdUnitId(), "");
  EXPECT_EQ(console.lines().size(), 0u);

  show(home);
  EXPECT_EQ(ads::openAdUnitId(), ads::AdConfig::current().appOpenAdUnitID);
  EXPECT_EQ(network.loadCount("appOpen"), 1);
  EXPECT_FALSE(network.isAdPresented());
  ASSERT_TRUE(ads::loadedOpenAd());
  EXPECT_EQ(ads::EngineOpenAds::shared()->requestController, home);
}

TEST_F(AppOpenAdsTest, AFailedLoadLeavesTheSlotEmptyAndAFailedPresentationReloads) {
  network.queueOutcomes({sim::AdsNetwork::Outcome::Fail});
  ads::EngineOpenAds::shared()->loadOpenAd(home);
  world.env.runUntilIdle();
  EXPECT_FALSE(ads::loadedOpenAd());
  EXPECT_FALSE(ads::openAdLoadTime());
  EXPECT_TRUE(console.contains(
      "Failed to load app open ad: Error Domain=ads Code=1 \"Request Error: No ad to show.\""));

  loadAnAd();
  network.failNextPresentation();
  show(home);
  EXPECT_FALSE(network.isAdPresented());
  EXPECT_EQ(network.loadCount("appOpen"), 3);
  bool printed = false;
  for (const auto& line : console.lines()) {
    printed |= line.rfind("didFailToPresentFullScreenContentWithError Error Domain=ads", 0) == 0;
  }
  EXPECT_TRUE(printed);
}

TEST_F(AppOpenAdsTest, TopControllerFollowsNavigationOrPresentationAndNeedsAKeyWindow) {
  EXPECT_EQ(ads::topController(), home.get());
  auto modal = screenNamed("Alert");
  home->presentViewController(modal, false);
  world.env.runUntilIdle();
  EXPECT_EQ(ads::topController(), modal.get());

  auto plainRoot = screenNamed("Root");
  auto first = screenNamed("First");
  auto second = screenNamed("Second");
  window->setRootViewController(plainRoot);
  plainRoot->presentViewController(first, false);
  first->presentViewController(second, false);
  world.env.runUntilIdle();
  EXPECT_EQ(ads::topController(), second.get());

  window->setKeyWindow(false);
  EXPECT_EQ(ads::topController(), nullptr);
}

TEST_F(AppOpenAdsTest, ClassNamesComeFromTheStoryboardOrTheType) {
  EXPECT_EQ(ads::classNameOf(*home), "HomeVC");
  EXPECT_EQ(ads::classNameOf(*nav), "NavigationController");
  EXPECT_EQ(ads::describeController(home.get()).rfind("<HomeVC: 0x", 0), 0u);
  EXPECT_EQ(ads::describeController(nullptr), "nil");
}

TEST_F(AppOpenAdsTest, TheUnregisteredLifecycleHandlersPrintAndClear) {
  platform::preferences().setBool(true, shared::KEY_CONTROLLER_STATE_CHECK);
  ads::EngineOpenAds::shared()->appMovedToForeground();
  EXPECT_TRUE(console.contains("App is in Foreground"));
  EXPECT_TRUE(console.contains("true"));
  ads::EngineOpenAds::shared()->appMovedTobackground();
  EXPECT_FALSE(platform::preferences().boolForKey(shared::KEY_CONTROLLER_STATE_CHECK));
}

}  // namespace
