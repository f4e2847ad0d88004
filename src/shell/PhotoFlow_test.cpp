// The road of one scan, from the home screen to the results.
#include <gtest/gtest.h>

#include "ads/AdConfig.h"
#include "ads/Interstitial.h"
#include "kit/NavigationController.h"
#include "kit/Storyboard.h"
#include "kit/Window.h"
#include "media/DuplicatePhotoVC.h"
#include "shell/HomeVC.h"
#include "shell/MainStoryboard.h"
#include "sim/World.h"

namespace {

constexpr double T0 = sim::Environment::kDefaultStart;

TEST(PhotoFlowTest, FromHomeToResultsWithAnInterstitialOnTheFourthAction) {
  sim::World world;
  world.env.setEagerMain(true);  // an idle main thread keeps up with the scan
  // Bursts: 3 + 2 + 4 photos, and singles between them.
  std::vector<std::shared_ptr<const platform::Asset>> library;
  for (double t : {0.0, 2.0, 4.0, 100.0, 300.0, 301.0, 900.0, 1500.0, 1503.0, 1504.0, 1507.0, 4000.0}) {
    library.push_back(sim::photo(T0 + t));
  }
  world.platform.photos().setAssets(library);
  shell::registerMainStoryboard();
  auto home = kit::Storyboard::named("Main").instantiate<shell::HomeVC>("HomeVC");
  auto nav = std::make_shared<kit::NavigationController>(home);
  auto window = kit::make<kit::Window>();
  window->setRootViewController(nav);
  window->makeKeyAndVisible();
  world.env.runUntilIdle();
  ads::AdsMobInitFullAds::shared()->loadFullAds(home, ads::AdConfig::current().interstitialAdUnitID);
  world.env.runUntilIdle();

  ASSERT_TRUE(kit::tap(home->outlet<kit::Button>("photoButton")));
  auto screen = std::dynamic_pointer_cast<media::DuplicatePhotoVC>(nav->viewControllers().back());
  ASSERT_TRUE(screen);
  world.env.runUntilIdle();
  EXPECT_FALSE(screen->allowBtnOutlet->isHidden());  // permission needed, the system prompt is up
  world.platform.photos().answerAuthorization(platform::AuthorizationStatus::Authorized);
  world.env.runUntilIdle();
  ASSERT_FALSE(screen->findPhotoView->isHidden());
  ASSERT_TRUE(kit::tap(*screen->findBtn));
  world.env.runUntilIdle();

  // Results: the table, the counters and the clean bar.
  EXPECT_FALSE(screen->tableView->isHidden());
  EXPECT_FALSE(screen->totalSelectBtn->isHidden());
  EXPECT_FALSE(screen->duplicatePhotoCount->isHidden());
  EXPECT_FALSE(screen->cleanButtonView->isHidden());
  EXPECT_TRUE(screen->scanningView->isHidden());
  EXPECT_EQ(screen->sectionArray1().size(), 3u);
  EXPECT_EQ(screen->duplicatePhotoCount->text(), "6");  // 2 + 1 + 3 marked, the oldest of each kept
  EXPECT_EQ(screen->cleanButton->currentTitle(), "Free up Space (6)");
  EXPECT_FALSE(world.platform.ads().isAdPresented());

  // Three more counted actions from home: the fourth shows an interstitial.
  for (int i = 0; i < 3; ++i) {
    screen->performAction("backButtonAction");
    home->performAction(i < 2 ? "videoBtn:" : "photoBtn:");
    world.env.runUntilIdle();
  }
  EXPECT_TRUE(world.platform.ads().isAdPresented());
}

}  // namespace
