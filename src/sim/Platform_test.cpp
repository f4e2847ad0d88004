#include "sim/Platform.h"

#include <gtest/gtest.h>

#include "kit/NavigationController.h"
#include "kit/Window.h"
#include "sim/Environment.h"

namespace {

struct SimPlatformTest : ::testing::Test {
  sim::Environment env;
  sim::Platform sim;
};

TEST_F(SimPlatformTest, FetchesNeedAccessAndSortByCreationDate) {
  sim.photos().setAssets({sim::photo(30, "c"), sim::photo(10, "a"), sim::video(20, 5, "v"), sim::photo(std::nullopt, "n")});
  platform::FetchOptions oldestFirst;
  oldestFirst.setSortDescriptors({{"creationDate", true}});
  EXPECT_EQ(platform::photoLibrary().fetchAssetsWithMediaType(platform::MediaType::Image, &oldestFirst).count(), 0);
  sim.photos().setStatus(platform::AuthorizationStatus::Authorized);
  auto photos = platform::photoLibrary().fetchAssetsWithMediaType(platform::MediaType::Image, &oldestFirst);
  ASSERT_EQ(photos.count(), 3);
  EXPECT_EQ(photos.objectAtIndex(0)->localIdentifier(), "n");
  EXPECT_EQ(photos.objectAtIndex(2)->localIdentifier(), "c");
  EXPECT_THROW(photos.objectAtIndex(3), kit::FatalError);
  platform::FetchOptions newestFirst;
  newestFirst.setSortDescriptors({{"creationDate", false}});
  auto all = platform::photoLibrary().fetchAssetsWithOptions(&newestFirst);
  EXPECT_EQ(all.objectAtIndex(0)->localIdentifier(), "c");
  EXPECT_EQ(all.objectAtIndex(1)->localIdentifier(), "v");
}

TEST_F(SimPlatformTest, LimitedAccessShowsOnlyTheSelection) {
  sim.photos().setAssets({sim::photo(1, "a"), sim::photo(2, "b")});
  sim.photos().setStatus(platform::AuthorizationStatus::Limited);
  sim.photos().setLimitedSelection({"b"});
  auto r = platform::photoLibrary().fetchAssetsWithOptions(nullptr);
  ASSERT_EQ(r.count(), 1);
  EXPECT_EQ(r.objectAtIndex(0)->localIdentifier(), "b");
}

TEST_F(SimPlatformTest, AuthorizationRequestIsAnsweredOnABackgroundQueue) {
  std::optional<platform::AuthorizationStatus> got;
  bool onMain = true;
  platform::photoLibrary().requestAuthorization([&](platform::AuthorizationStatus s) {
    got = s;
    onMain = kit::isMainThread();
  });
  env.runUntilIdle();
  EXPECT_FALSE(got);
  EXPECT_EQ(sim.photos().pendingAuthorizationRequests(), 1);
  sim.photos().answerAuthorization(platform::AuthorizationStatus::Authorized);
  env.runUntilIdle();
  EXPECT_EQ(got, platform::AuthorizationStatus::Authorized);
  EXPECT_FALSE(onMain);
}

TEST_F(SimPlatformTest, DeletionsSucceedOrFailAsTold) {
  auto a = sim::photo(1, "a"), b = sim::photo(2, "b");
  sim.photos().setAssets({a, b});
  std::vector<std::pair<bool, int>> results;
  auto remove = [&](platform::AssetPtr asset) {
    platform::photoLibrary().performChanges(
        [asset](platform::ChangeRequest& r) { r.deleteAssets({asset}); },
        [&](bool ok, std::optional<platform::Error> e) { results.push_back({ok, e ? e->code : 0}); });
  };
  sim.photos().setDeletionOutcome(sim::PhotoLibrary::DeletionOutcome::Decline);
  remove(a);
  env.runUntilIdle();
  sim.photos().setDeletionOutcome(sim::PhotoLibrary::DeletionOutcome::Succeed);
  remove(a);
  env.runUntilIdle();
  EXPECT_EQ(results, (std::vector<std::pair<bool, int>>{{false, 3072}, {true, 0}}));
  EXPECT_EQ(sim.photos().deletedIdentifiers(), (std::vector<std::string>{"a"}));
  EXPECT_EQ(sim.photos().allAssets().size(), 1u);
}

TEST_F(SimPlatformTest, ImageRequestsDeliverSynchronouslyOrLaterAndPossiblyTwice) {
  auto a = sim::photo(1, "a");
  platform::ImageRequestOptions sync;
  sync.setSynchronous(true);
  int calls = 0;
  platform::imageManager().requestImageForAsset(a, {200, 200}, 0, sync, [&](kit::ImagePtr img, const kit::Dictionary&) {
    ++calls;
    EXPECT_TRUE(img);
  });
  EXPECT_EQ(calls, 1);
  std::vector<bool> degraded;
  platform::ImageRequestOptions opportunistic;
  platform::imageManager().requestImageForAsset(a, {200, 200}, 0, opportunistic, [&](kit::ImagePtr, const kit::Dictionary& info) {
    degraded.push_back(*info.at(platform::kImageResultIsDegradedKey).asBool());
  });
  EXPECT_TRUE(degraded.empty());
  env.runMain();
  EXPECT_EQ(degraded, (std::vector<bool>{true, false}));
}

class AdDelegate : public platform::FullScreenContentDelegate {
 public:
  void adWillPresentFullScreenContent(platform::FullScreenPresentingAd&) override { events.push_back("willPresent"); }
  void adDidFailToPresentFullScreenContentWithError(platform::FullScreenPresentingAd&, const platform::Error&) override {
    events.push_back("failed");
  }
  void adDidDismissFullScreenContent(platform::FullScreenPresentingAd&) override { events.push_back("dismissed"); }
  std::vector<std::string> events;
};

TEST_F(SimPlatformTest, AnAdLoadsPresentsOnceAndCloses) {
  auto root = std::make_shared<kit::ViewController>();
  auto nav = std::make_shared<kit::NavigationController>(root);
  auto window = kit::make<kit::Window>();
  window->setRootViewController(nav);
  window->makeKeyAndVisible();
  sim.ads().queueOutcomes({sim::AdsNetwork::Outcome::Fail, sim::AdsNetwork::Outcome::Fill});
  std::vector<std::shared_ptr<platform::InterstitialAd>> ads;
  std::vector<bool> errors;
  for (int i = 0; i < 2; ++i) {
    platform::adsNetwork().loadInterstitialWithAdUnitID("unit", {}, [&](auto ad, auto error) {
      ads.push_back(ad);
      errors.push_back(error.has_value());
    });
  }
  EXPECT_TRUE(ads.empty());
  env.runMain();
  ASSERT_EQ(ads.size(), 2u);
  EXPECT_EQ(errors, (std::vector<bool>{true, false}));
  auto delegate = std::make_shared<AdDelegate>();
  ads[1]->setFullScreenContentDelegate(delegate);
  ads[1]->presentFromRootViewController(root.get());
  EXPECT_TRUE(sim.ads().isAdPresented());
  EXPECT_EQ(nav->presentedViewController()->storyboardIdentifier(), "FullScreenAd");
  EXPECT_TRUE(sim.ads().closePresentedAd());
  ads[1]->presentFromRootViewController(root.get());
  EXPECT_EQ(delegate->events, (std::vector<std::string>{"willPresent", "dismissed", "failed"}));
  EXPECT_EQ(sim.ads().loadCount("interstitial"), 2);
}

TEST_F(SimPlatformTest, InterstitialFormatsTakeTurnsAmongFillsAndTheLastStays) {
  sim.ads().setInterstitialFormats({sim::AdsNetwork::Format::Image, sim::AdsNetwork::Format::Video});
  sim.ads().queueOutcomes({sim::AdsNetwork::Outcome::Fail});
  std::vector<std::string> answers;
  auto load = [&] {
    platform::adsNetwork().loadInterstitialWithAdUnitID("unit", {}, [&](auto ad, auto error) {
      answers.push_back(error ? error->localizedDescription : ad->adUnitID());
    });
    env.runMain();
  };
  load();  // no fill: the formats wait for one
  load();  // a picture
  load();  // a video, with no loader
  EXPECT_EQ(answers, (std::vector<std::string>{"Request Error: No ad to show.", "unit",
                                               "Request Error: No video player for video ads."}));
  EXPECT_EQ(sim.ads().interstitials().size(), 1u);

  std::vector<std::string> asked;
  sim.ads().setVideoInterstitialLoader([&](const std::string& adUnitID, auto completion) {
    asked.push_back(adUnitID);
    completion(std::make_shared<platform::BasicInterstitialAd>(adUnitID + "-video", nullptr, "Video"), std::nullopt);
  });
  load();
  load();
  EXPECT_EQ(asked.size(), 2u);
  EXPECT_EQ(answers.back(), "unit-video");
  EXPECT_EQ(sim.ads().videoInterstitials().size(), 2u);
  EXPECT_EQ(sim.ads().interstitials().size(), 1u);
}

struct CountingPlayerObserver : platform::PlayerObserver {
  int ready = 0, ends = 0, frames = 0;
  std::shared_ptr<platform::Player> player;
  void playerItemStatusDidChange() override { ready += player->currentItem()->status() == platform::PlayerStatus::ReadyToPlay; }
  void playerItemDidPlayToEnd() override { ++ends; }
  void playerDidRenderFirstFrame() override { ++frames; }
};

TEST_F(SimPlatformTest, PlayersOnTheClockLoadPlayDrawAndEndByThemselves) {
  auto& players = sim.videoPlayers();
  // A player made before is scripted by hand: its item never loads by itself.
  auto scripted = players.makePlayer();
  scripted->replaceCurrentItemWithPlayerItem(players.makePlayerItemWithURL("clip.mp4"));
  players.setPlaysOnClock(true);
  players.setItemFacts(1.0, {1280, 720});
  auto player = players.makePlayer();
  auto observer = std::make_shared<CountingPlayerObserver>();
  observer->player = player;
  player->setObserver(observer);
  auto view = kit::make<kit::ImageView>();
  player->setVideoView(view);
  std::vector<double> times;
  player->addPeriodicTimeObserver(0.5, [&](double t) { times.push_back(t); });
  player->replaceCurrentItemWithPlayerItem(players.makePlayerItemWithURL("clip.mp4"));
  player->play();
  EXPECT_EQ(player->rate(), 0.0f) << "not before the item has loaded";
  env.runMain();
  EXPECT_EQ(scripted->currentItem()->status(), platform::PlayerStatus::Unknown);
  ASSERT_EQ(observer->ready, 1);
  ASSERT_EQ(player->currentItem()->loadedTimeRanges().size(), 1u);
  EXPECT_DOUBLE_EQ(player->currentItem()->loadedTimeRanges()[0].duration, 1.0);
  EXPECT_EQ(player->rate(), 1.0f);
  EXPECT_EQ(observer->frames, 1);
  auto first = view->image();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->size().width, 320);

  env.advance(0.6);
  EXPECT_DOUBLE_EQ(player->currentItem()->currentTime(), 0.5);
  EXPECT_NE(view->image(), first) << "the picture follows the playhead";
  player->pause();
  env.advance(2.0);
  EXPECT_DOUBLE_EQ(player->currentItem()->currentTime(), 0.5) << "a paused player stays put";
  player->play();
  env.advance(2.0);
  EXPECT_DOUBLE_EQ(player->currentItem()->currentTime(), 1.0);
  EXPECT_EQ(observer->ends, 1);
  EXPECT_EQ(player->rate(), 0.0f);
  EXPECT_EQ(times, (std::vector<double>{0.5, 1.0}));
}

TEST_F(SimPlatformTest, PreferencesFollowThePlatformsConversions) {
  auto& p = platform::preferences();
  EXPECT_FALSE(p.boolForKey("missing"));
  EXPECT_EQ(p.integerForKey("missing"), 0);
  EXPECT_FALSE(p.stringForKey("missing"));
  p.setObject(kit::Value("YES"), "flag");
  EXPECT_TRUE(p.boolForKey("flag"));
  p.setInteger(42, "n");
  EXPECT_EQ(p.stringForKey("n"), "42");
  p.setObject(kit::Value("17 apples"), "s");
  EXPECT_EQ(p.integerForKey("s"), 17);
  p.setURL(std::nullopt, "s");
  EXPECT_TRUE(p.objectForKey("s").isNull());
}

}  // namespace
