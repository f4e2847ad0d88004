// The video interstitial on the simulated platform: it loads when its video can play through,
// presents once, and its script hears its visibility while the context reports its impression.
#include "adclient/SVAVideoInterstitialAd.h"

#include <gtest/gtest.h>

#include "adclient/SVAScriptMessageLog.h"
#include "kit/Console.h"
#include "kit/NavigationController.h"
#include "kit/Window.h"
#include "sim/World.h"

namespace adclient {
namespace {

struct Events : platform::FullScreenContentDelegate {
  std::vector<std::string> events;
  void adWillPresentFullScreenContent(platform::FullScreenPresentingAd&) override { events.push_back("willPresent"); }
  void adDidFailToPresentFullScreenContentWithError(platform::FullScreenPresentingAd&, const platform::Error&) override {
    events.push_back("failed");
  }
  void adDidDismissFullScreenContent(platform::FullScreenPresentingAd&) override { events.push_back("dismissed"); }
  void adDidRecordImpression(platform::FullScreenPresentingAd&) override { events.push_back("impression"); }
};

struct VideoInterstitialTest : ::testing::Test {
  sim::World world;
  std::shared_ptr<SVAScriptMessageLog> log = std::make_shared<SVAScriptMessageLog>(64);
  kit::ConsoleCapture console;
  std::shared_ptr<SVAVideoInterstitialAd> ad;
  std::optional<platform::Error> error;
  int completions = 0;

  void load(const std::string& url) {
    SVAVideoInterstitialAd::loadWithAdUnitID("unit", url, "Solvanta Pro", log, 5.0, [this](auto loaded, auto e) {
      ++completions;
      ad = loaded;
      error = e;
    });
    world.env.runUntilIdle();
  }
  sim::PlayerItem& simItem() { return *world.platform.videoPlayers().items().at(0); }
};

TEST_F(VideoInterstitialTest, PlaysWhenShownAndReportsVisibilityAndOneImpression) {
  load("file:///ads/house.mp4");
  EXPECT_EQ(completions, 0) << "not before the video can play through";
  simItem().becomeReady();
  world.env.runUntilIdle();
  ASSERT_EQ(completions, 1);
  ASSERT_TRUE(ad) << error->localizedDescription;

  auto root = std::make_shared<kit::ViewController>();
  auto nav = std::make_shared<kit::NavigationController>(root);
  auto window = kit::make<kit::Window>();
  window->setRootViewController(nav);
  window->makeKeyAndVisible();
  auto events = std::make_shared<Events>();
  ad->setFullScreenContentDelegate(events);
  ad->presentFromRootViewController(root.get());
  world.env.runUntilIdle();
  auto screen = nav->presentedViewController();
  ASSERT_TRUE(screen);
  EXPECT_EQ(screen->storyboardIdentifier(), "FullScreenAd");
  EXPECT_TRUE(ad->videoPlayer()->isPlaying());
  EXPECT_GT(world.platform.videoPlayers().players().at(0)->rate(), 0.0f);
  EXPECT_EQ(log->videoEvents(), (std::vector<std::string>{"canplaythrough", "play"}));

  ad->presentFromRootViewController(root.get());
  ad->close();
  world.env.runUntilIdle();
  EXPECT_FALSE(nav->presentedViewController());
  EXPECT_FALSE(ad->videoPlayer()->isPlaying());
  EXPECT_EQ(events->events, (std::vector<std::string>{"willPresent", "impression", "failed", "dismissed"}));

  std::vector<std::string> visibility;
  for (const auto& m : log->messagesNamed("onAdVisibilityChanged")) visibility.push_back(*m.arguments.at("visible").asString());
  EXPECT_EQ(visibility, (std::vector<std::string>{"true", "false"}));
  auto reports = ad->context()->reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].kind, "impression");
  EXPECT_TRUE(console.contains("Ad script: onAdVisibilityChanged {\"visible\":\"true\"}"));
}

TEST_F(VideoInterstitialTest, AVideoThatDoesNotDecodeFailsTheLoadAndLetsTheAdGo) {
  world.platform.videoPlayers().setFailure("file:///ads/broken.mp4", {"media", 4, "does not decode", "", ""});
  load("file:///ads/broken.mp4");
  EXPECT_EQ(completions, 0);
  world.env.advance(5.0);
  world.env.runUntilIdle();
  ASSERT_EQ(completions, 1);
  EXPECT_FALSE(ad);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->localizedDescription, "The video did not load in time.");
  // The ad and its player are gone once the load is over.
  EXPECT_EQ(world.platform.videoPlayers().players().at(0), nullptr);
}

TEST(ScriptMessageLogTest, KeepsTheNewestMessagesAndReadsThemBack) {
  kit::ConsoleCapture console;
  SVAScriptMessageLog log(2);
  log.postMessage("onVideoEvent", {{"event", "play"}});
  log.postMessage("onAdVisibilityChanged", {{"visible", "true"}});
  log.postMessage("onVideoEvent", {{"what", "no event"}});
  log.postMessage("onVideoEvent", {{"event", "ended"}});
  EXPECT_EQ(log.droppedCount(), 2u);
  ASSERT_EQ(log.messages().size(), 2u);
  EXPECT_EQ(log.videoEvents(), std::vector<std::string>{"ended"});
  EXPECT_TRUE(log.messagesNamed("onAdVisibilityChanged").empty());
  EXPECT_EQ(console.lines().size(), 4u);
  EXPECT_EQ(console.lines()[0], "Ad script: onVideoEvent {\"event\":\"play\"}");
}

}  // namespace
}  // namespace adclient
