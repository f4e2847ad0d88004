#include "shell/HomeVC.h"

#include <gtest/gtest.h>

#include "ads/AdConfig.h"
#include "ads/Interstitial.h"
#include "kit/Console.h"
#include "kit/NavigationController.h"
#include "kit/Storyboard.h"
#include "kit/Window.h"
#include "media/DuplicatePhotoVC.h"
#include "shared/PreferenceKeys.h"
#include "shell/MainStoryboard.h"
#include "vault/SetPin.h"
#include "sim/World.h"

namespace {

constexpr double T0 = sim::Environment::kDefaultStart;

struct HomeVCTest : ::testing::Test {
  sim::World world;
  std::shared_ptr<shell::HomeVC> home;
  std::shared_ptr<kit::NavigationController> nav;
  std::shared_ptr<kit::Window> window = kit::make<kit::Window>();

  void SetUp() override { shell::registerMainStoryboard(); }
  void show() {
    home = kit::Storyboard::named("Main").instantiate<shell::HomeVC>("HomeVC");
    nav = std::make_shared<kit::NavigationController>(home);
    window->setRootViewController(nav);
    window->makeKeyAndVisible();
  }
  std::string text(kit::Outlet<kit::Label>& label) { return label->text().value_or("<none>"); }
};

TEST_F(HomeVCTest, CountsNeedNoPermissionCheckAndReadZeroWithoutAccess) {
  world.platform.photos().setAssets({sim::photo(T0), sim::video(T0, 3)});
  show();
  EXPECT_EQ(text(home->totalPhotoCount), "Total 0 photos");
  EXPECT_EQ(text(home->totalVideoCount), "Total 0 videos");
  EXPECT_EQ(world.platform.photos().authorizationRequestCount(), 0);
}

TEST_F(HomeVCTest, CountsWithAccessAreTakenOnceOnly) {
  world.platform.photos().setStatus(platform::AuthorizationStatus::Authorized);
  world.platform.photos().setAssets({sim::photo(T0), sim::photo(T0 + 1), sim::video(T0, 3)});
  show();
  EXPECT_EQ(text(home->totalPhotoCount), "Total 2 photos");
  EXPECT_EQ(text(home->totalVideoCount), "Total 1 videos");
  world.platform.photos().addAsset(sim::photo(T0 + 2));
  home->viewWillAppear(false);
  EXPECT_EQ(text(home->totalPhotoCount), "Total 2 photos");
}

TEST_F(HomeVCTest, DiskFiguresAreCrossedDecimalGigabytes) {
  world.platform.files().setFileSystem(128000000000LL, 63900000000LL);
  show();
  EXPECT_EQ(text(home->usedSpace), "63 GB");  // the free space
  EXPECT_EQ(text(home->usedRam), "64 GB");    // the space in use
  EXPECT_EQ(world.platform.files().lastAttributesPath(), "/sim/Documents");
}

TEST_F(HomeVCTest, DiskFigureEdges) {
  world.platform.files().setFileSystem(999999999, 999999999);
  world.platform.files().setDocumentsPath(std::nullopt);
  show();
  EXPECT_EQ(text(home->usedSpace), "0 GB");
  EXPECT_EQ(text(home->usedRam), "0 GB");
  EXPECT_EQ(world.platform.files().lastAttributesPath(), "/");
}

TEST_F(HomeVCTest, UnreadableOrOddAttributesLeaveTheLabels) {
  kit::ConsoleCapture console;
  world.platform.files().failAttributes(true);
  show();
  EXPECT_TRUE(console.contains("Error retrieving disk space information."));
  EXPECT_EQ(text(home->usedSpace), "-- GB");
  world.platform.files().failAttributes(false);
  world.platform.files().setAttributes({{platform::kFileSystemSize, 5000000000LL}, {platform::kFileSystemFreeSize, "lots"}});
  console.clear();
  show();
  EXPECT_EQ(text(home->usedRam), "-- GB");
  EXPECT_TRUE(console.lines().empty());
}

TEST_F(HomeVCTest, EveryAppearanceLoadsTheBanner) {
  show();
  world.env.runUntilIdle();
  home->performAction("photoBtn:");
  world.env.runUntilIdle();
  nav->popViewControllerAnimated(false);
  world.env.runUntilIdle();
  EXPECT_EQ(world.platform.ads().loadCount("banner"), 3);  // home, the scan screen, home again
  EXPECT_EQ(home->adsView->subviews().size(), 1u);
}

TEST_F(HomeVCTest, PhotoAndVideoButtonsPushTheScanScreenWithoutAnimation) {
  show();
  std::vector<bool> animated;
  int token = kit::ScreenEvents::addListener([&](const kit::ScreenEvent& e) {
    if (e.kind == kit::ScreenEvent::Push) animated.push_back(e.animated);
  });
  home->performAction("videoBtn:");
  kit::ScreenEvents::removeListener(token);
  auto* pushed = dynamic_cast<media::DuplicatePhotoVC*>(nav->topViewController());
  ASSERT_NE(pushed, nullptr);
  EXPECT_EQ(pushed->selectedtype, "Videos");
  EXPECT_EQ(animated, (std::vector<bool>{false}));
  EXPECT_EQ(platform::preferences().integerForKey(shared::FULLSERVICECOUNT), 1);
}

TEST_F(HomeVCTest, SecretButtonRoutesByTheTwoPreferences) {
  struct Row {
    bool singleTimeCall, pinSet;
    const char* target;
    const char* isFrom;
  };
  for (Row row : {Row{false, false, "SetPin", nullptr}, Row{false, true, "SetPin", nullptr}, Row{true, true, "SetPin", "security"},
                  Row{true, false, "SecretSpaceVC", nullptr}}) {
    platform::preferences().setBool(row.singleTimeCall, shared::SINGLE_TIME_CALL);
    platform::preferences().setBool(row.pinSet, shared::IS_PIN_SET);
    show();
    home->performAction("secretBtn:");
    kit::ViewController* top = nav->topViewController();
    EXPECT_EQ(top->storyboardIdentifier(), row.target);
    if (std::string(row.target) == "SetPin") {
      EXPECT_EQ(dynamic_cast<vault::SetPin&>(*top).isFrom,
                row.isFrom ? std::optional<std::string>(row.isFrom) : std::nullopt);
    }
  }
  EXPECT_EQ(platform::preferences().integerForKey(shared::FULLSERVICECOUNT), 0);  // the fourth showed (or tried)
}

TEST_F(HomeVCTest, MenuButtonPushesSettingsAndCountsNothing) {
  show();
  home->performAction("menuBtn:");
  EXPECT_EQ(nav->topViewController()->storyboardIdentifier(), "SettingVc");
  EXPECT_EQ(nav->topViewController()->modalPresentationStyle(), 6);
  EXPECT_EQ(platform::preferences().integerForKey(shared::FULLSERVICECOUNT), 0);
  EXPECT_TRUE(platform::preferences().objectForKey(shared::FULLSERVICECOUNT).isNull());
}

TEST_F(HomeVCTest, WithoutANavigationControllerThePushIsSkippedButTheActionCounts) {
  home = kit::Storyboard::named("Main").instantiate<shell::HomeVC>("HomeVC");
  home->loadViewIfNeeded();
  home->performAction("photoBtn:");
  EXPECT_EQ(platform::preferences().integerForKey(shared::FULLSERVICECOUNT), 1);
}

TEST_F(HomeVCTest, FourthCountedActionShowsAnInterstitialOverTheNewScreen) {
  show();
  ads::AdsMobInitFullAds::shared()->loadFullAds(home, ads::AdConfig::current().interstitialAdUnitID);
  world.env.runUntilIdle();
  for (int i = 0; i < 3; ++i) {
    home->performAction("photoBtn:");
    world.env.runUntilIdle();
    EXPECT_FALSE(world.platform.ads().isAdPresented()) << i;
    nav->popViewControllerAnimated(false);
  }
  home->performAction("photoBtn:");
  EXPECT_TRUE(world.platform.ads().isAdPresented());
  EXPECT_NE(dynamic_cast<media::DuplicatePhotoVC*>(nav->topViewController()), nullptr);
  EXPECT_EQ(nav->presentedViewController()->storyboardIdentifier(), "FullScreenAd");
}

TEST_F(HomeVCTest, FetchGalleryAssetsRunsLaterOnTheMainQueue) {
  world.platform.photos().setStatus(platform::AuthorizationStatus::Authorized);
  auto old = sim::photo(T0, "old"), video = sim::video(T0 + 10, 4, "video"), fresh = sim::photo(T0 + 20, "new");
  world.platform.photos().setAssets({old, video, fresh});
  auto helper = shell::HomeHelper::shared();
  std::vector<std::vector<std::string>> results;
  auto record = [&](const std::vector<platform::AssetPtr>& assets) {
    std::vector<std::string> ids;
    for (auto& a : assets) ids.push_back(a->localIdentifier());
    results.push_back(ids);
  };
  helper->fetchGalleryAssets("Images", record);
  world.env.runMain();
  EXPECT_TRUE(results.empty());  // it went by the background queue first
  helper->fetchGalleryAssets("Videos", record);  // empties the array while the first is queued
  world.env.runUntilIdle();
  ASSERT_EQ(results.size(), 2u);
  EXPECT_EQ(results[0], (std::vector<std::string>{"new", "video", "old"}));
  EXPECT_EQ(results[1], (std::vector<std::string>{"new", "video", "old", "video"}));
}

}  // namespace
