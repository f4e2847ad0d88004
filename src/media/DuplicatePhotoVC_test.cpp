#include "media/DuplicatePhotoVC.h"
#include "media/ScanScreenFixture.h"

#include <gtest/gtest.h>

#include <set>

#include "kit/Console.h"
#include "kit/NavigationController.h"
#include "kit/Window.h"
#include "shared/ViewHelpers.h"
#include "sim/World.h"

namespace {

constexpr double T0 = sim::Environment::kDefaultStart;
using Panels = std::set<std::string>;

struct DuplicatePhotoVCTest : media::ScanScreenFixture {
  void open(platform::AuthorizationStatus status, std::string type = "Photos") {
    world.platform.photos().setStatus(status);
    screen->selectedtype = std::move(type);
    nav->pushViewController(screen, false);
  }
  void photosAt(std::vector<double> offsets) {
    std::vector<std::shared_ptr<const platform::Asset>> assets;
    for (double o : offsets) assets.push_back(sim::photo(T0 + o));
    world.platform.photos().setAssets(assets);
  }
  // The panels of the state table that are shown now.
  Panels shown() {
    Panels out;
    for (const char* name : {"findPhotoView", "hideView", "allowBtnOutlet", "noImageLabel", "duplicatetext",
                             "noPhotoImageView", "scanningView", "tableView", "totalSelectBtn", "totalSelectedLbl",
                             "duplicatePhotoCount", "cleanButtonView", "cleanButton"}) {
      if (!screen->outlet<kit::View>(name).isHidden()) out.insert(name);
    }
    return out;
  }
  std::string text(const char* label) { return screen->outlet<kit::Label>(label).text().value_or("<none>"); }
};

TEST_F(DuplicatePhotoVCTest, FirstRunAsksThenShowsTheFindPromptOnConsent) {
  open(platform::AuthorizationStatus::NotDetermined);
  EXPECT_EQ(shown(), (Panels{"allowBtnOutlet", "noImageLabel", "duplicatetext", "noPhotoImageView", "tableView",
                             "cleanButton"}));
  EXPECT_EQ(text("duplicatetext"), "Permission Needed");
  world.env.runUntilIdle();
  // The system prompt is up (the row pass of the empty table asked a second time).
  EXPECT_GE(world.platform.photos().pendingAuthorizationRequests(), 1);
  EXPECT_EQ(text("noImageLabel"), "Please allow us permission to scan all photos and videos present in the device");
  world.platform.photos().answerAuthorization(platform::AuthorizationStatus::Authorized);
  world.env.runUntilIdle();
  EXPECT_EQ(shown(), (Panels{"findPhotoView", "hideView"}));
  EXPECT_EQ(text("cleanHeadLbl"), "Let's Begin");
  EXPECT_EQ(screen->findBtn->currentTitle(), "Find Duplicate Photos");
  EXPECT_TRUE(platform::application().isIdleTimerDisabled());
}

// What the screen sets at load that no state shows until later: the disabled clean button's
// first title, the scanning texts, the counters' frame and the video wording.
TEST_F(DuplicatePhotoVCTest, LoadPreparesTheHiddenPanels) {
  open(platform::AuthorizationStatus::Authorized, "Videos");
  world.env.runUntilIdle();
  EXPECT_EQ(screen->cleanButton->currentTitle(), "Finding Duplicates..");
  EXPECT_FALSE(screen->cleanButton->isEnabled());
  EXPECT_EQ(text("scanHeadLbl"), "Scanning....please wait");
  EXPECT_EQ(text("scanSubheadingLbl"), "We are onto it, please be patient.");
  EXPECT_EQ(screen->totalSelectBtn->cornerRadius(), 10);
  EXPECT_EQ(screen->totalSelectBtn->borderColor(), shared::colorFromHex("#2485EF"));
  EXPECT_EQ(screen->cleanHeightConstraint->constant(), 0);
  for (const char* hidden : {"scanningView", "deletePopView", "cleanButtonView", "totalSelectedLbl",
                             "duplicatePhotoCount", "adsView", "noImageLabel", "duplicatetext"}) {
    EXPECT_TRUE(screen->outlet<kit::View>(hidden).isHidden()) << hidden;
  }
  EXPECT_EQ(text("cleanSubheadingLbl"),
            "This feature will go through your gallery to pick duplicate Videos. Don't worry it won't delete "
            "before your confirmation.");
  EXPECT_EQ(screen->findBtn->currentTitle(), "Find Duplicate Videos");
}

// A row follows its strip's content size: a change invalidates the strip's intrinsic size and
// puts the height back to 140; a layout that leaves the size alone does neither.
TEST_F(DuplicatePhotoVCTest, ARowFollowsItsStripsContentSize) {
  auto row = kit::make<media::PhotosTableViewCell>();
  row->awakeFromNib();
  kit::CollectionView& strip = *row->collectionView;
  int invalidations = 0;
  strip.addObserver([&](std::string_view p) { invalidations += p == "intrinsicContentSize"; });
  struct Three : kit::CollectionViewDataSource {
    int numberOfItemsInSection(kit::CollectionView&, int) override { return n; }
    std::shared_ptr<kit::CollectionViewCell> cellForItemAtIndexPath(kit::CollectionView& c, kit::IndexPath p) override {
      return c.dequeueReusableCellWithReuseIdentifier("item", p);
    }
    int n = 3;
  };
  auto source = std::make_shared<Three>();
  strip.setDataSource(source);
  strip.registerCell("item", [] { return kit::make<kit::CollectionViewCell>(); });
  row->collectionHeighContraint->setConstant(10);
  strip.reloadData();
  strip.layoutIfNeeded();
  EXPECT_EQ(invalidations, 1);
  EXPECT_EQ(row->collectionHeighContraint->constant(), 140);

  row->collectionHeighContraint->setConstant(10);
  strip.reloadData();
  strip.layoutIfNeeded();
  EXPECT_EQ(invalidations, 1);
  EXPECT_EQ(row->collectionHeighContraint->constant(), 10);

  source->n = 30;
  strip.reloadData();
  strip.layoutIfNeeded();
  EXPECT_EQ(invalidations, 2);
  EXPECT_EQ(row->collectionHeighContraint->constant(), 140);
}

TEST_F(DuplicatePhotoVCTest, LimitedAccessStaysInPermissionNeededAndOpensSettings) {
  open(platform::AuthorizationStatus::Limited);
  world.env.runUntilIdle();
  Panels permission = shown();
  EXPECT_TRUE(permission.count("allowBtnOutlet"));
  EXPECT_FALSE(permission.count("findPhotoView"));
  EXPECT_TRUE(kit::tap(*screen->allowBtnOutlet));
  world.env.runUntilIdle();
  EXPECT_EQ(world.platform.application().openedURLs(), (std::vector<std::string>{"app-settings:"}));
  EXPECT_EQ(shown(), permission);
}

TEST_F(DuplicatePhotoVCTest, AllowButtonWithAccessGrantedMeanwhileShowsTheFindPrompt) {
  open(platform::AuthorizationStatus::Denied);
  world.env.runUntilIdle();
  world.platform.photos().setStatus(platform::AuthorizationStatus::Authorized);
  kit::tap(*screen->allowBtnOutlet);
  world.env.runUntilIdle();
  EXPECT_TRUE(shown().count("findPhotoView"));
  EXPECT_FALSE(shown().count("allowBtnOutlet"));
  EXPECT_TRUE(world.platform.application().openedURLs().empty());
}

TEST_F(DuplicatePhotoVCTest, AnEmptyLibraryShowsNoAssets) {
  open(platform::AuthorizationStatus::Authorized);
  world.env.runUntilIdle();
  EXPECT_EQ(shown(), (Panels{"findPhotoView", "hideView"}));
  EXPECT_TRUE(kit::tap(*screen->findBtn));
  EXPECT_TRUE(shown().count("scanningView"));
  world.env.runUntilIdle();
  EXPECT_EQ(shown(), (Panels{"noImageLabel", "noPhotoImageView"}));
  EXPECT_EQ(text("noImageLabel"), screen->noImageFoundText);
  EXPECT_EQ(text("headingLbl"), "Duplicate Photo");
}

TEST_F(DuplicatePhotoVCTest, ScanningCountsProgressAndOneAssetNeverLeavesIt) {
  photosAt({0});
  open(platform::AuthorizationStatus::Authorized);
  world.env.runUntilIdle();
  kit::ConsoleCapture console;
  kit::tap(*screen->findBtn);
  world.env.runUntilIdle();
  EXPECT_TRUE(shown().count("scanningView"));
  EXPECT_EQ(text("progressLbl"), "0/1");
  EXPECT_TRUE(console.contains("progress0"));
}

TEST_F(DuplicatePhotoVCTest, NoDuplicatesShowsTheMessageUnderTheTableAndBar) {
  photosAt({0, 60, 120});
  open(platform::AuthorizationStatus::Authorized);
  world.env.runUntilIdle();
  kit::tap(*screen->findBtn);
  world.env.runUntilIdle();
  EXPECT_EQ(shown(), (Panels{"noImageLabel", "duplicatetext", "noPhotoImageView", "tableView", "cleanButtonView"}));
  EXPECT_EQ(text("progressLbl"), "2/3");
  EXPECT_TRUE(screen->cleanButton->isEnabled());
}

TEST_F(DuplicatePhotoVCTest, ResultsShowTheCountersAndTheCleanTitle) {
  world.env.setEagerMain(true);  // the main thread keeps up with the scan
  photosAt({0, 1, 2, 60, 61, 300});
  open(platform::AuthorizationStatus::Authorized);
  world.env.runUntilIdle();
  kit::tap(*screen->findBtn);
  world.env.runUntilIdle();
  EXPECT_EQ(shown(), (Panels{"tableView", "totalSelectBtn", "totalSelectedLbl", "duplicatePhotoCount",
                             "cleanButtonView", "cleanButton"}));
  EXPECT_EQ(text("duplicatePhotoCount"), "3");
  EXPECT_EQ(screen->cleanButton->currentTitle(), "Free up Space (3)");
  EXPECT_EQ(screen->tableView->numberOfRowsInSection(0), 2);
  EXPECT_EQ(screen->totalImageCount.load(), 5);  // the row pass counts every member
  EXPECT_DOUBLE_EQ(screen->cleanHeightConstraint->constant(), 45);
}

TEST_F(DuplicatePhotoVCTest, TheLateLastSectionFillsTheTableButLeavesTheCountersHidden) {
  photosAt({0, 100, 200, 201});
  open(platform::AuthorizationStatus::Authorized);
  world.env.runUntilIdle();
  kit::tap(*screen->findBtn);
  world.env.runUntilIdle();
  EXPECT_EQ(shown(), (Panels{"tableView", "cleanButtonView", "cleanButton"}));
  EXPECT_EQ(screen->sectionArray1().size(), 1u);
  EXPECT_EQ(screen->cleanButton->currentTitle(), "Free up Space (1)");
}

TEST_F(DuplicatePhotoVCTest, LeavingDuringAScanLeavesTheScanReportingToTheOldScreen) {
  world.env.setEagerMain(true);
  photosAt({0, 1, 50});
  open(platform::AuthorizationStatus::Authorized);
  world.env.runUntilIdle();
  kit::tap(*screen->findBtn);
  screen->performAction("backButtonAction");
  EXPECT_EQ(nav->topViewController(), home.get());
  std::weak_ptr<media::DuplicatePhotoVC> old = screen;
  screen.reset();
  world.env.runUntilIdle();
  auto alive = old.lock();
  ASSERT_TRUE(alive);  // the slots keep it
  EXPECT_EQ(alive->sectionArray1().size(), 1u);
  EXPECT_FALSE(alive->isOnScreen());
}

TEST_F(DuplicatePhotoVCTest, AnyOtherTypeTakesTheVideoPath) {
  world.platform.photos().setAssets({sim::video(T0, 5), sim::video(T0 + 100, 5), sim::photo(T0), sim::photo(T0 + 1)});
  open(platform::AuthorizationStatus::Authorized, "videos");
  world.env.runUntilIdle();
  EXPECT_EQ(screen->findBtn->currentTitle(), "Find Duplicate Videos");
  EXPECT_EQ(text("cleanSubheadingLbl"),
            "This feature will go through your gallery to pick duplicate Videos. Don't worry it won't delete before "
            "your confirmation.");
  std::string progressBefore = text("progressLbl");
  kit::tap(*screen->findBtn);
  world.env.runUntilIdle();
  EXPECT_EQ(text("progressLbl"), progressBefore);
  EXPECT_EQ(screen->videoSectionArray().size(), 1u);
  EXPECT_EQ(screen->cleanButton->currentTitle(), "Free up space (1)");
  EXPECT_TRUE(shown().count("totalSelectBtn"));  // the video list was assigned before the finished event
}

TEST_F(DuplicatePhotoVCTest, TheFinishedEventCountsTheListOfItsOwnKind) {
  // A photo scan reporting to a screen of the video type: the photo list decides.
  open(platform::AuthorizationStatus::Authorized, "Videos");
  world.env.runUntilIdle();
  std::vector<std::shared_ptr<media::ImageSets>> members;
  for (int i = 0; i < 2; ++i) {
    members.push_back(std::make_shared<media::ImageSets>(0, sim::photo(T0 + i), "01-01-24", "2024:01:01 00:00:00", 0.0));
  }
  screen->setSectionArray1(media::PhotoSections{std::make_shared<media::PhotoSectionItem>("01-01-24", members, false, 1, 2)});
  screen->photoScanFinished();
  world.env.runUntilIdle();
  EXPECT_TRUE(shown().count("totalSelectBtn"));
  EXPECT_TRUE(shown().count("duplicatePhotoCount"));
  // And a video scan's finish reads the (empty) video list, whatever the photo list holds.
  screen->videoScanFinished();
  world.env.runUntilIdle();
  EXPECT_FALSE(shown().count("totalSelectBtn"));
}

TEST_F(DuplicatePhotoVCTest, EveryAppearanceTakesTheSlotsAndLoadsTheBanner) {
  open(platform::AuthorizationStatus::Authorized);
  world.env.runUntilIdle();
  EXPECT_EQ(media::PhotosCallBack::shared()->itemdelegates.load().get(),
            static_cast<media::PhotosCallBackDelegate*>(screen.get()));
  EXPECT_EQ(world.platform.ads().loadCount("banner"), 1);
  EXPECT_EQ(screen->bannerAdsView->subviews().size(), 1u);
  EXPECT_EQ(screen->animationView->animationName(), "scan");
  EXPECT_TRUE(screen->animationView->isAnimationPlaying());
  EXPECT_EQ(screen->cancelButton->borderColor(), kit::Color::rgb(0x52, 0x52, 0x52));
}

}  // namespace
