#include "ads/ADNetAdaptiveBannerAd.h"

#include <gtest/gtest.h>

#include "sim/World.h"

namespace {

struct BannerTest : ::testing::Test {
  sim::World world;
  std::shared_ptr<kit::ViewController> screen = std::make_shared<kit::ViewController>();
  std::shared_ptr<kit::View> slot = kit::make<kit::View>();
  std::shared_ptr<kit::LayoutConstraint> height = std::make_shared<kit::LayoutConstraint>(0);
  ads::ADNetAdaptiveBannerAd& banner = *ads::ADNetAdaptiveBannerAd::shared();

  void load(std::shared_ptr<kit::View> view, std::shared_ptr<kit::LayoutConstraint> constraint) {
    banner.loadBanner(screen, std::move(view), std::move(constraint));
  }
};

TEST_F(BannerTest, LoadingWaitsForTheMainQueueThenOpensTheSlotToTheAdsHeight) {
  world.platform.ads().setBannerHeight(57);
  load(slot, height);
  EXPECT_TRUE(slot->subviews().empty());
  world.env.runMainOnce();  // the queued load
  ASSERT_EQ(slot->subviews().size(), 1u);
  EXPECT_DOUBLE_EQ(height->constant(), 0);
  world.env.runMain();  // the ad arrives
  EXPECT_DOUBLE_EQ(height->constant(), 57);
  EXPECT_FALSE(banner.adaptiveBannerViewAd->isHidden());
  EXPECT_EQ(banner.adaptiveBannerViewAd->rootViewController(), screen);
  EXPECT_DOUBLE_EQ(banner.adaptiveBannerViewAd->adSize().size.width, kit::Screen::mainBounds().width());
}

TEST_F(BannerTest, ASecondLoadRemovesTheFirstBannerBeforeItsRequest) {
  load(slot, height);
  world.env.runUntilIdle();
  auto first = banner.adaptiveBannerViewAd;
  load(slot, height);
  world.env.runMainOnce();
  EXPECT_EQ(first->superview(), nullptr);
  ASSERT_EQ(slot->subviews().size(), 1u);
  EXPECT_NE(slot->subviews()[0], first);
  EXPECT_EQ(world.platform.ads().loadCount("banner"), 2);
}

TEST_F(BannerTest, AFailedLoadLeavesTheHeight) {
  height->setConstant(33);
  world.platform.ads().queueOutcomes({sim::AdsNetwork::Outcome::Fail});
  load(slot, height);
  world.env.runUntilIdle();
  EXPECT_DOUBLE_EQ(height->constant(), 33);
}

TEST_F(BannerTest, ALateArrivalOpensTheNewerScreensSlot) {
  auto otherSlot = kit::make<kit::View>();
  auto otherHeight = std::make_shared<kit::LayoutConstraint>(0);
  world.platform.ads().queueOutcomes({sim::AdsNetwork::Outcome::Fill, sim::AdsNetwork::Outcome::Fail});
  load(slot, height);
  load(otherSlot, otherHeight);
  world.env.runMainOnce();  // first load: its request goes out
  world.env.runMainOnce();  // second load replaces the remembered constraint
  world.env.runMain();      // the first banner's ad arrives; the second's request fails
  EXPECT_DOUBLE_EQ(height->constant(), 0);
  EXPECT_DOUBLE_EQ(otherHeight->constant(), 50);
}

}  // namespace
