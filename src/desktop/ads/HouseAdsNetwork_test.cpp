#include "desktop/ads/HouseAdsNetwork.h"

#include <gtest/gtest.h>

#include "desktop/testing/DesktopTesting.h"
#include "kit/NavigationController.h"
#include "kit/Window.h"
#include "sim/Environment.h"

namespace desktop {
namespace {

kit::ImagePtr picture(int width, int height) {
  return kit::Image::fromPixels(width, height,
                                std::vector<std::uint8_t>(static_cast<std::size_t>(width) * height * 4, 200));
}

class AdEvents : public platform::FullScreenContentDelegate {
 public:
  void adWillPresentFullScreenContent(platform::FullScreenPresentingAd&) override {
    events.push_back("willPresent");
  }
  void adDidFailToPresentFullScreenContentWithError(platform::FullScreenPresentingAd&,
                                                     const platform::Error&) override {
    events.push_back("failed");
  }
  void adDidDismissFullScreenContent(platform::FullScreenPresentingAd&) override {
    events.push_back("dismissed");
  }
  std::vector<std::string> events;
};

class BannerEvents : public platform::BannerViewDelegate {
 public:
  void bannerViewDidReceiveAd(platform::BannerView& banner) override {
    events.push_back("received");
    subviewsOnReceipt = banner.subviews().size();
  }
  void bannerViewDidFailToReceiveAdWithError(platform::BannerView&, const platform::Error& e) override {
    events.push_back("failed: " + e.localizedDescription);
  }
  std::vector<std::string> events;
  std::size_t subviewsOnReceipt = 0;
};

struct HouseAdsNetworkTest : ::testing::Test {
  sim::Environment env;
  std::vector<kit::ImagePtr> interstitials{picture(30, 40), picture(40, 30)};
  std::vector<kit::ImagePtr> banners{picture(320, 50)};

  HouseAdsOptions options(double fillRate, std::uint32_t seed = 1, double latency = 0.5) {
    HouseAdsOptions o;
    o.interstitialCreatives = interstitials;
    o.bannerCreatives = banners;
    o.fillRate = fillRate;
    o.latencySeconds = latency;
    o.seed = seed;
    return o;
  }

  // Whether each of `count` interstitial loads filled, once all are answered.
  std::vector<bool> fills(HouseAdsNetwork& network, int count) {
    std::vector<bool> filled;
    for (int i = 0; i < count; ++i) {
      network.loadInterstitialWithAdUnitID("unit", {}, [&](auto ad, auto error) {
        EXPECT_NE(ad == nullptr, !error.has_value());
        filled.push_back(ad != nullptr);
      });
    }
    env.advance(1.0);
    EXPECT_EQ(filled.size(), static_cast<std::size_t>(count));
    return filled;
  }
};

TEST_F(HouseAdsNetworkTest, LoadsAreAnsweredOnTheMainQueueAfterTheLatency) {
  HouseAdsNetwork network(options(1.0));
  bool started = false;
  network.startWithCompletionHandler([&] { started = true; });
  EXPECT_FALSE(started);
  EXPECT_TRUE(network.started());
  network.setTestDeviceIdentifiers({"device-1"});
  EXPECT_EQ(network.testDeviceIdentifiers(), std::vector<std::string>{"device-1"});

  std::shared_ptr<platform::InterstitialAd> interstitial;
  std::shared_ptr<platform::AppOpenAd> appOpen;
  network.loadInterstitialWithAdUnitID("inter-unit", {}, [&](auto ad, auto) { interstitial = ad; });
  network.loadAppOpenAdWithAdUnitID("open-unit", {}, [&](auto ad, auto) { appOpen = ad; });
  env.runUntilIdle();
  EXPECT_TRUE(started);
  EXPECT_FALSE(interstitial);
  env.advance(0.49);
  EXPECT_FALSE(interstitial);
  env.advance(0.01);
  ASSERT_TRUE(interstitial);
  ASSERT_TRUE(appOpen);
  EXPECT_EQ(interstitial->adUnitID(), "inter-unit");
  EXPECT_EQ(appOpen->adUnitID(), "open-unit");
  EXPECT_TRUE(std::dynamic_pointer_cast<platform::BasicAppOpenAd>(appOpen));
}

TEST_F(HouseAdsNetworkTest, FillFollowsTheRateAndTheSeed) {
  HouseAdsNetwork never(options(0.0)), always(options(1.0));
  EXPECT_EQ(fills(never, 20), std::vector<bool>(20, false));
  EXPECT_EQ(fills(always, 20), std::vector<bool>(20, true));

  HouseAdsNetwork half(options(0.5, 7)), sameSeed(options(0.5, 7)), otherSeed(options(0.5, 8));
  std::vector<bool> drawn = fills(half, 40);
  EXPECT_EQ(fills(sameSeed, 40), drawn);
  EXPECT_NE(fills(otherSeed, 40), drawn);
  auto filled = std::count(drawn.begin(), drawn.end(), true);
  EXPECT_GT(filled, 8);
  EXPECT_LT(filled, 32);

  HouseAdsOptions none = options(1.0);
  none.interstitialCreatives.clear();
  HouseAdsNetwork empty(none);
  EXPECT_EQ(fills(empty, 3), std::vector<bool>(3, false));
}

TEST_F(HouseAdsNetworkTest, AnInterstitialPresentsItsCreativeOnceAndReportsItsDismissal) {
  auto root = std::make_shared<kit::ViewController>();
  auto nav = std::make_shared<kit::NavigationController>(root);
  auto window = kit::make<kit::Window>();
  window->setRootViewController(nav);
  window->makeKeyAndVisible();
  HouseAdsNetwork network(options(1.0, 3, 0.0));
  std::shared_ptr<platform::InterstitialAd> ad;
  network.loadInterstitialWithAdUnitID("unit", {}, [&](auto loaded, auto) { ad = loaded; });
  env.runUntilIdle();
  ASSERT_TRUE(ad);
  auto events = std::make_shared<AdEvents>();
  ad->setFullScreenContentDelegate(events);

  ad->presentFromRootViewController(root.get());
  auto screen = std::dynamic_pointer_cast<platform::FullScreenAdScreen>(nav->presentedViewController());
  ASSERT_TRUE(screen);
  EXPECT_EQ(screen->storyboardIdentifier(), "FullScreenAd");
  auto shown = screen->outlet<kit::ImageView>("adImageView").image();
  EXPECT_TRUE(shown == interstitials[0] || shown == interstitials[1]);
  EXPECT_EQ(screen->outlet<kit::Label>("adTitleLabel").text(), "Solvanta Pro");

  ad->presentFromRootViewController(root.get());
  screen->performAction("closeButton:");
  env.runUntilIdle();
  EXPECT_FALSE(nav->presentedViewController());
  EXPECT_EQ(events->events, (std::vector<std::string>{"willPresent", "failed", "dismissed"}));
}

TEST_F(HouseAdsNetworkTest, AVideoLoaderAnswersFilledInterstitialsAfterTheLatencyAndPassesItsErrorsOn) {
  auto video = std::make_shared<platform::BasicInterstitialAd>("unit", picture(2, 2), "video");
  std::vector<std::string> asked;
  std::optional<platform::Error> videoError;
  HouseAdsOptions o = options(1.0, 1, 2.0);
  o.videoInterstitial = [&](const std::string& unit, auto completion) {
    asked.push_back(unit);
    if (videoError) completion(nullptr, videoError);
    else completion(video, std::nullopt);
  };
  HouseAdsNetwork network(o);
  std::vector<std::shared_ptr<platform::InterstitialAd>> ads;
  std::vector<std::string> errors;
  auto load = [&] {
    network.loadInterstitialWithAdUnitID("unit-1", {}, [&](auto ad, auto error) {
      ads.push_back(ad);
      errors.push_back(error ? error->localizedDescription : "");
    });
  };
  load();
  env.advance(1.9);
  EXPECT_TRUE(asked.empty()) << "the latency holds for videos too";
  env.advance(0.2);
  EXPECT_EQ(asked, std::vector<std::string>{"unit-1"});
  ASSERT_EQ(ads.size(), 1u);
  EXPECT_EQ(ads[0], video);

  videoError = platform::Error{"ads", 2, "The video did not load in time."};
  load();
  env.advance(2.0);
  ASSERT_EQ(ads.size(), 2u);
  EXPECT_EQ(ads[1], nullptr);
  EXPECT_EQ(errors[1], "The video did not load in time.");

  // No fill never asks for the video.
  o.fillRate = 0.0;
  HouseAdsNetwork empty(o);
  bool answered = false;
  empty.loadInterstitialWithAdUnitID("unit-2", {}, [&](auto ad, auto error) {
    answered = true;
    EXPECT_FALSE(ad);
    EXPECT_TRUE(error);
  });
  env.advance(2.0);
  EXPECT_TRUE(answered);
  EXPECT_EQ(asked.size(), 2u);
}

TEST_F(HouseAdsNetworkTest, ABannerShowsItsCreativeOnceFilled) {
  HouseAdsNetwork network(options(1.0));
  auto size = network.currentOrientationAnchoredAdaptiveBannerAdSizeWithWidth(390);
  auto banner = network.bannerViewWithAdSize(size);
  EXPECT_EQ(banner->frame().size, (kit::Size{390, 61}));
  auto events = std::make_shared<BannerEvents>();
  banner->setDelegate(events);
  banner->loadRequest({});
  // The request keeps the banner alive while it is in flight, then lets it go.
  std::weak_ptr<platform::BannerView> weak = banner;
  banner.reset();
  env.advance(0.4);
  ASSERT_FALSE(weak.expired());
  EXPECT_TRUE(events->events.empty());
  auto held = weak.lock();
  env.advance(0.1);
  EXPECT_EQ(events->events, std::vector<std::string>{"received"});
  EXPECT_EQ(events->subviewsOnReceipt, 1u);
  ASSERT_EQ(held->subviews().size(), 1u);
  auto* content = dynamic_cast<kit::ImageView*>(held->subviews()[0].get());
  ASSERT_TRUE(content);
  EXPECT_EQ(content->image(), banners[0]);
  EXPECT_EQ(content->frame(), held->bounds());
  EXPECT_EQ(static_cast<HouseBannerView&>(*held).creative(), banners[0]);

  // A second fill replaces the creative's view rather than stacking another.
  held->loadRequest({});
  env.advance(0.5);
  EXPECT_EQ(held->subviews().size(), 1u);
  held.reset();
  EXPECT_TRUE(weak.expired());
}

TEST_F(HouseAdsNetworkTest, AnUnfilledBannerTellsItsDelegateAndStaysEmpty) {
  HouseAdsNetwork network(options(0.0));
  auto banner = network.bannerViewWithAdSize({{320, 50}});
  auto events = std::make_shared<BannerEvents>();
  banner->setDelegate(events);
  banner->loadRequest({});
  env.advance(0.5);
  EXPECT_EQ(events->events, std::vector<std::string>{"failed: Request Error: No ad to show."});
  EXPECT_TRUE(banner->subviews().empty());
}

TEST_F(HouseAdsNetworkTest, TheAdaptiveHeightFollowsTheWidthWithinBounds) {
  HouseAdsNetwork network;
  for (auto [width, height] : {std::pair{200.0, 50.0}, {480.0, 75.0}, {1024.0, 90.0}}) {
    EXPECT_EQ(network.currentOrientationAnchoredAdaptiveBannerAdSizeWithWidth(width).size,
              (kit::Size{width, height}));
  }
}

TEST(HouseAdCreatives, LoadFromAFolderInNameOrder) {
  testing::TempDir dir;
  testing::writeBytes(dir / "interstitial-b.png", samplegen::encodeImage("PNG", 30, 20, 1));
  testing::writeBytes(dir / "interstitial-a.JPG", samplegen::encodeImage("JPEG", 40, 20, 2));
  testing::writeBytes(dir / "banner-1.png", samplegen::encodeImage("PNG", 64, 10, 3));
  testing::writeBytes(dir / "banner-broken.png", {0x89, 'P', 'N', 'G', 1, 2, 3});
  testing::writeBytes(dir / "other.png", samplegen::encodeImage("PNG", 8, 8, 4));
  testing::writeBytes(dir / "banner-notes.txt", {'h', 'i'});

  HouseAdCreatives creatives = loadHouseAdCreatives(dir.path());
  ASSERT_EQ(creatives.interstitials.size(), 2u);
  EXPECT_EQ(creatives.interstitials[0]->pixelWidth(), 40);
  EXPECT_EQ(creatives.interstitials[1]->pixelWidth(), 30);
  ASSERT_EQ(creatives.banners.size(), 1u);
  EXPECT_EQ(creatives.banners[0]->pixelHeight(), 10);
  ASSERT_EQ(creatives.problems.size(), 1u);
  EXPECT_NE(creatives.problems[0].find("banner-broken.png"), std::string::npos);

  HouseAdCreatives missing = loadHouseAdCreatives(dir / "nowhere");
  EXPECT_TRUE(missing.interstitials.empty() && missing.banners.empty());
  ASSERT_EQ(missing.problems.size(), 1u);
  EXPECT_NE(missing.problems[0].find("nowhere"), std::string::npos);
}

TEST(HouseAdCreatives, TheRepositorysCreativesLoad) {
  HouseAdCreatives creatives = loadHouseAdCreatives(SOLVANTA_ASSETS_DIR "/ads");
  EXPECT_TRUE(creatives.problems.empty()) << creatives.problems[0];
  EXPECT_FALSE(creatives.interstitials.empty());
  EXPECT_FALSE(creatives.banners.empty());
}

}  // namespace
}  // namespace desktop

namespace desktop {
namespace {

TEST_F(HouseAdsNetworkTest, TheAppOpenFormatShowsItsOwnCreativeFullScreenWithAClose) {
  auto creative = picture(39, 84);
  HouseAdsOptions o = options(1.0);
  o.appOpenCreatives = {creative};
  HouseAdsNetwork network(o);
  EXPECT_TRUE(network.adapterStatusesByClassName().empty());
  network.startWithCompletionHandler(nullptr);
  ASSERT_EQ(network.adapterStatusesByClassName().size(), 1u);
  EXPECT_EQ(network.adapterStatusesByClassName().begin()->second.state, platform::AdapterStatus::Ready);

  std::shared_ptr<platform::AppOpenAd> appOpen;
  network.loadAppOpenAdWithAdUnitID("open-unit", {}, [&](auto ad, auto) { appOpen = ad; });
  env.advance(0.5);
  ASSERT_TRUE(appOpen);
  auto home = std::make_shared<kit::ViewController>();
  auto window = kit::make<kit::Window>();
  window->setRootViewController(std::make_shared<kit::NavigationController>(home));
  window->makeKeyAndVisible();
  appOpen->presentFromRootViewController(home.get());
  env.runUntilIdle();
  auto* screen = window->rootViewController()->presentedViewController().get();
  ASSERT_TRUE(screen);
  EXPECT_EQ(screen->outlet<kit::ImageView>("adImageView").image(), creative);
  EXPECT_EQ(screen->outlet<kit::Button>("closeButton").isHidden(), false);
}

}  // namespace
}  // namespace desktop
