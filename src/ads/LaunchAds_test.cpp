#include "ads/LaunchAds.h"

#include <gtest/gtest.h>

#include "ads/AdConfig.h"
#include "ads/Interstitial.h"
#include "kit/Console.h"
#include "kit/NavigationController.h"
#include "kit/Window.h"
#include "sim/World.h"

namespace {

class CloseRecorder : public ads::FullAdsCloseListenerProtocol {
 public:
  void onFullAdsCloseListener(ads::Controller c) override { closes.push_back(c); }
  std::vector<ads::Controller> closes;
};

struct LaunchAdsTest : ::testing::Test {
  sim::World world;
  kit::ConsoleCapture console;
  std::shared_ptr<kit::ViewController> screen = std::make_shared<kit::ViewController>();
  std::shared_ptr<kit::NavigationController> nav = std::make_shared<kit::NavigationController>(screen);
  std::shared_ptr<kit::Window> window = kit::make<kit::Window>();
  sim::AdsNetwork& network = world.platform.ads();
  std::shared_ptr<ads::HandleLaunchPrompt> prompt = std::make_shared<ads::HandleLaunchPrompt>();

  void SetUp() override {
    window->setRootViewController(nav);
    window->makeKeyAndVisible();
    platform::application().addWindow(window);
  }
};

TEST_F(LaunchAdsTest, AnAdReadyWhenTheRetryFiresIsShownOverTheController) {
  ads::AdsMobInitFullAds::shared()->loadFullAds(screen, ads::AdConfig::current().interstitialAdUnitID);
  prompt->loadFullAdsOnLaunch(screen);
  world.env.runUntilIdle();
  EXPECT_EQ(console.lines(), (std::vector<std::string>{"ShoWFullads onlaunch", "loadFullAdsOnLaunch"}));
  EXPECT_EQ(ads::FullAdsListener::shared()->fulladsdelegates, prompt);
  world.env.advance(1.9);
  EXPECT_FALSE(network.isAdPresented());
  world.env.advance(0.1);
  EXPECT_TRUE(network.isAdPresented());
  EXPECT_TRUE(console.contains("Show Full Adsqqqq"));
}

TEST_F(LaunchAdsTest, WithoutAnAdTheRetryGoesOnEveryTwoSecondsAndEachFailureStartsAChain) {
  network.setDefaultOutcome(sim::AdsNetwork::Outcome::Fail);
  prompt->loadFullAdsOnLaunch(screen);
  world.env.runUntilIdle();
  world.env.advance(10);
  EXPECT_EQ(network.loadCount("interstitial"), 5);
  EXPECT_EQ(console.count("loadFullAdsOnLaunch"), 6);
  // Another failed show elsewhere in the app: a second, independent chain.
  ads::AdsMobFullAds::shared()->showFullAds(screen, ads::AdConfig::current().interstitialAdUnitID);
  world.env.runUntilIdle();
  EXPECT_EQ(network.loadCount("interstitial"), 6);
  world.env.advance(10);
  EXPECT_EQ(network.loadCount("interstitial"), 16);
  EXPECT_EQ(ads::FullAdsListener::shared()->fulladsdelegates, prompt);
}

TEST_F(LaunchAdsTest, AnAdsClosePassesThroughThePromptToTheCloseListener) {
  auto recorder = std::make_shared<CloseRecorder>();
  ads::FullAdsCloseListener::shared()->fulladsdelegates = recorder;
  ads::AppFullAdsCloseListner::shared()->fulladsclosedelegates = ads::HandleLaunchFullAds::shared();
  ads::AdsMobInitFullAds::shared()->loadFullAds(screen, ads::AdConfig::current().interstitialAdUnitID);
  prompt->loadFullAdsOnLaunch(screen);
  world.env.runUntilIdle();
  world.env.advance(2);
  ASSERT_TRUE(network.isAdPresented());
  network.closePresentedAd();
  world.env.runUntilIdle();
  EXPECT_TRUE(console.contains("Full AdsClosedhhhh"));
  // The prompt took the close slot over before dispatching, so HandleLaunchFullAds is silent.
  EXPECT_FALSE(console.contains("Full Ads Closedrrrr"));
  EXPECT_EQ(ads::AppFullAdsCloseListner::shared()->fulladsclosedelegates, prompt);
  bool passed = false;
  for (const auto& line : console.lines()) passed |= line.rfind("Full Ads Closedrrrryyyyyy <", 0) == 0;
  EXPECT_TRUE(passed);
  ASSERT_EQ(recorder->closes.size(), 1u);
  EXPECT_EQ(recorder->closes[0], screen);
  // Closing loads the next ad at once.
  EXPECT_EQ(network.loadCount("interstitial"), 2);
}

TEST_F(LaunchAdsTest, HandleLaunchFullAdsKeepsTheButtonAndHidesItOnClose) {
  auto button = kit::make<kit::Button>();
  ads::HandleLaunchFullAds::shared()->startLaunchAds(screen, button);
  EXPECT_EQ(ads::launchCrossButton(), button);
  EXPECT_EQ(ads::AppFullAdsCloseListner::shared()->fulladsclosedelegates, ads::HandleLaunchFullAds::shared());
  EXPECT_NE(ads::FullAdsListener::shared()->fulladsdelegates, nullptr);

  auto modal = std::make_shared<kit::ViewController>();
  screen->presentViewController(modal, false);
  world.env.runUntilIdle();
  ads::HandleLaunchFullAds::shared()->onAppFullAdsClose(screen);
  world.env.runUntilIdle();
  EXPECT_TRUE(button->isHidden());
  EXPECT_EQ(screen->presentedViewController(), nullptr);
  EXPECT_TRUE(console.contains("Full Ads Closedrrrr"));
  EXPECT_TRUE(console.contains(""));
}

}  // namespace
