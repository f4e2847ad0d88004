#include "ads/Interstitial.h"

#include <gtest/gtest.h>

#include "ads/AdConfig.h"
#include "kit/Console.h"
#include "kit/NavigationController.h"
#include "kit/Window.h"
#include "shared/FullAdsCount.h"
#include "shared/PreferenceKeys.h"
#include "sim/World.h"

namespace {

class Recorder : public ads::FullAdsListenerProtocol {
 public:
  void onFullAdsLoad() override { events.push_back("load"); }
  void onFullAdsFailed(const std::string& message, ads::Controller c) override {
    events.push_back("failed " + message);
    failedWith = c;
  }
  void onFullAdClosed(ads::Controller c) override {
    events.push_back("closed");
    closedWith = c;
  }
  std::vector<std::string> events;
  ads::Controller failedWith, closedWith;
};

struct InterstitialTest : ::testing::Test {
  sim::World world;
  std::shared_ptr<kit::ViewController> home = std::make_shared<kit::ViewController>();
  std::shared_ptr<kit::NavigationController> nav = std::make_shared<kit::NavigationController>(home);
  std::shared_ptr<kit::Window> window = kit::make<kit::Window>();
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
  sim::AdsNetwork& network = world.platform.ads();

  void SetUp() override {
    window->setRootViewController(nav);
    window->makeKeyAndVisible();
    ads::FullAdsListener::shared()->fulladsdelegates = recorder;
  }
  void loadAnAd() {
    ads::AdsMobInitFullAds::shared()->loadFullAds(home, ads::AdConfig::current().interstitialAdUnitID);
    world.env.runUntilIdle();
    ASSERT_TRUE(ads::loadedInterstitial());
  }
  std::int64_t counter() { return platform::preferences().integerForKey(shared::FULLSERVICECOUNT); }
};

TEST_F(InterstitialTest, AFreshInstallShowsOnTheFourthCountedAction) {
  loadAnAd();
  for (int i = 1; i <= 3; ++i) {
    ads::runPacedInterstitial(home);
    EXPECT_EQ(counter(), i);
  }
  EXPECT_EQ(network.presentationCount(), 0);
  ads::runPacedInterstitial(home);
  EXPECT_EQ(counter(), 0);
  EXPECT_EQ(network.presentationCount(), 1);
  EXPECT_TRUE(network.isAdPresented());
  EXPECT_EQ(recorder->events, (std::vector<std::string>{"load"}));
}

TEST_F(InterstitialTest, APersistedCountNearOrAboveTheThresholdShowsNext) {
  loadAnAd();
  platform::preferences().setInteger(3, shared::FULLSERVICECOUNT);
  ads::runPacedInterstitial(home);
  EXPECT_EQ(network.presentationCount(), 1);
  network.closePresentedAd();
  world.env.runUntilIdle();
  platform::preferences().setInteger(7, shared::FULLSERVICECOUNT);
  ads::runPacedInterstitial(home);
  EXPECT_EQ(network.presentationCount(), 2);
  EXPECT_EQ(counter(), 0);
}

TEST_F(InterstitialTest, NoAdLoadedResetsTheCountRequestsALoadAndReportsNotReady) {
  kit::ConsoleCapture console;
  platform::preferences().setInteger(3, shared::FULLSERVICECOUNT);
  ads::runPacedInterstitial(home);
  EXPECT_EQ(counter(), 0);
  EXPECT_EQ(network.loadCount("interstitial"), 1);
  EXPECT_EQ(recorder->events, (std::vector<std::string>{"failed Ad not Ready"}));
  EXPECT_EQ(recorder->failedWith, home);
  world.env.runUntilIdle();
  EXPECT_TRUE(ads::loadedInterstitial());
  EXPECT_FALSE(console.contains("Present"));
}

TEST_F(InterstitialTest, ADirectShowLeavesTheCounterAlone) {
  loadAnAd();
  platform::preferences().setInteger(2, shared::FULLSERVICECOUNT);
  ads::AdsMobFullAds::shared()->showFullAds(home, ads::AdConfig::current().interstitialAdUnitID);
  EXPECT_EQ(network.presentationCount(), 1);
  EXPECT_EQ(counter(), 2);
}

TEST_F(InterstitialTest, AnEmptyUnitOnlyLoadsAndTellsNobody) {
  ads::AdsMobFullAds::shared()->showFullAds(home, "");
  EXPECT_EQ(network.loadCount("interstitial"), 1);
  EXPECT_EQ(ads::AdsMobInitFullAds::shared()->contoller, home);
  EXPECT_TRUE(recorder->events.empty());
}

TEST_F(InterstitialTest, ACloseShowsTheStatusBarReportsAndLoadsExactlyOnce) {
  auto other = std::make_shared<kit::ViewController>();
  ads::AdsMobInitFullAds::shared()->loadFullAds(other, ads::AdConfig::current().interstitialAdUnitID);
  world.env.runUntilIdle();
  ads::AdsMobFullAds::shared()->showFullAds(home, ads::AdConfig::current().interstitialAdUnitID);
  platform::application().setStatusBarHidden(true);
  int before = network.loadCount("interstitial");
  network.closePresentedAd();
  EXPECT_EQ(network.loadCount("interstitial"), before + 1);
  EXPECT_FALSE(platform::application().isStatusBarHidden());
  EXPECT_EQ(recorder->closedWith, other);  // the controller of the last load, not of the show
  world.env.runUntilIdle();
  EXPECT_EQ(network.loadCount("interstitial"), before + 1);
}

TEST_F(InterstitialTest, ASpentAdShownAgainFailsQuietly) {
  network.setLatency(5.0);
  ads::AdsMobInitFullAds::shared()->loadFullAds(home, ads::AdConfig::current().interstitialAdUnitID);
  world.env.advance(5.0);
  auto spent = ads::loadedInterstitial();
  ads::AdsMobFullAds::shared()->showFullAds(home, ads::AdConfig::current().interstitialAdUnitID);
  network.closePresentedAd();  // the reload is under way for 5 seconds
  ads::AdsMobFullAds::shared()->showFullAds(home, ads::AdConfig::current().interstitialAdUnitID);
  EXPECT_EQ(ads::loadedInterstitial(), spent);
  EXPECT_FALSE(network.isAdPresented());
  EXPECT_EQ(recorder->events, (std::vector<std::string>{"load", "closed", "load"}));
  world.env.advance(5.0);
  EXPECT_NE(ads::loadedInterstitial(), spent);
}

TEST_F(InterstitialTest, AFailedLoadIsPrintedAndKeepsTheSlot) {
  kit::ConsoleCapture console;
  loadAnAd();
  auto kept = ads::loadedInterstitial();
  network.queueOutcomes({sim::AdsNetwork::Outcome::Fail});
  ads::AdsMobInitFullAds::shared()->loadFullAds(home, "unit");
  world.env.runUntilIdle();
  EXPECT_EQ(ads::loadedInterstitial(), kept);
  EXPECT_TRUE(console.contains("Failed to load interstitial ad with error: Request Error: No ad to show."));
}

TEST_F(InterstitialTest, NormalListenerReloadsOnFailureForcedOneShowsAgain) {
  kit::ConsoleCapture console;
  ads::FullAdsListener::shared()->fulladsdelegates = std::make_shared<ads::ShowFullAds>();
  ads::AdsMobFullAds::shared()->showFullAds(home, "unit");  // empty slot: a load, then the listener's
  EXPECT_EQ(network.loadCount("interstitial"), 2);
  EXPECT_FALSE(network.isAdPresented());
  world.env.runUntilIdle();
  ads::ShowForceFullAds::install();
  ads::FullAdsListener::shared()->onFullAdsFailed("Ad not Ready", home);
  EXPECT_TRUE(network.isAdPresented());
  EXPECT_TRUE(console.contains("Show Force Full Ads"));
}

}  // namespace
