// Reviewing results on the scan screen: rows, thumbnails, marks and the counters they drive.
#include <gtest/gtest.h>

#include "kit/NavigationController.h"
#include "kit/Window.h"
#include "media/DuplicatePhotoVC.h"
#include "media/ScanScreenFixture.h"
#include "sim/World.h"

namespace {

constexpr double T0 = sim::Environment::kDefaultStart;

struct ResultReviewTest : media::ScanScreenFixture {
  void SetUp() override {
    ScanScreenFixture::SetUp();
    world.env.setEagerMain(true);  // the main thread keeps up with the scan
    world.platform.photos().setStatus(platform::AuthorizationStatus::Authorized);
  }
  // Scans a library with sections of 3 and 2 members (and a single) to its results.
  void scanPhotos() {
    world.platform.photos().setAssets({sim::photo(T0), sim::photo(T0 + 1), sim::photo(T0 + 2), sim::photo(T0 + 60),
                                       sim::photo(T0 + 61), sim::photo(T0 + 500)});
    nav->pushViewController(screen, false);
    world.env.runUntilIdle();
    kit::tap(*screen->findBtn);
    world.env.runUntilIdle();
  }
  std::shared_ptr<media::PhotosTableViewCell> row(int r) {
    return std::dynamic_pointer_cast<media::PhotosTableViewCell>(screen->tableView->cellForRowAtIndexPath({0, r}));
  }
  std::shared_ptr<media::PhotosCollectionViewCell> thumb(int r, int item) {
    return std::dynamic_pointer_cast<media::PhotosCollectionViewCell>(row(r)->collectionView->cellForItemAtIndexPath({0, item}));
  }
  std::string count() { return screen->duplicatePhotoCount->text().value_or(""); }
  std::string clean() { return screen->cleanButton->currentTitle().value_or(""); }
  std::string selectAll() { return screen->totalSelectBtn->currentTitle().value_or(""); }
};

TEST_F(ResultReviewTest, FreshResultsKeepTheOldestOfEachSection) {
  scanPhotos();
  EXPECT_EQ(count(), "3");
  EXPECT_EQ(clean(), "Free up Space (3)");
  EXPECT_EQ(selectAll(), "Select All");
  ASSERT_TRUE(row(0));
  EXPECT_EQ(row(0)->headerCell->text(), "Selected: 2");
  EXPECT_FALSE(row(0)->crossSectionButton->isSelected());
  EXPECT_EQ(row(0)->collectionView->numberOfItemsInSection(0), 3);
  EXPECT_FALSE(thumb(0, 0)->checkButton->isSelected());
  EXPECT_TRUE(thumb(0, 1)->checkButton->isSelected());
  EXPECT_EQ(thumb(0, 1)->checkButton->currentImage()->name(), "check");
  EXPECT_TRUE(thumb(0, 2)->videoImage->isHidden());
  EXPECT_TRUE(thumb(0, 2)->photosCollectionView->image());  // the thumbnail came through the main queue
  EXPECT_DOUBLE_EQ(row(0)->collectionHeighContraint->constant(), 140.0);
}

TEST_F(ResultReviewTest, MarkingTheLastUnmarkedThumbnailsFlipsTheSectionAndTheTitle) {
  scanPhotos();
  row(0)->collectionView->userSelectItem({0, 0});
  EXPECT_EQ(row(0)->headerCell->text(), "Selected: 3");
  EXPECT_TRUE(row(0)->crossSectionButton->isSelected());
  EXPECT_EQ(count(), "4");
  EXPECT_EQ(selectAll(), "Select All");
  row(1)->collectionView->userSelectItem({0, 0});
  world.env.runUntilIdle();
  EXPECT_EQ(count(), "5");
  EXPECT_EQ(selectAll(), "Deselect All");
  row(1)->collectionView->userSelectItem({0, 1});  // and back
  EXPECT_EQ(row(1)->headerCell->text(), "Selected: 1");
  EXPECT_EQ(selectAll(), "Select All");
}

TEST_F(ResultReviewTest, SelectAllMarksKeptCopiesTooAndDeselectAllClearsEverything) {
  scanPhotos();
  kit::tap(*screen->totalSelectBtn);
  world.env.runUntilIdle();
  EXPECT_EQ(selectAll(), "Deselect All");
  EXPECT_EQ(count(), "5");
  EXPECT_TRUE(screen->sectionArray1()[0]->image[0]->isSelected);
  kit::tap(*screen->totalSelectBtn);
  world.env.runUntilIdle();
  EXPECT_EQ(selectAll(), "Select All");
  EXPECT_EQ(count(), "0");
  EXPECT_EQ(clean(), "Free up Space (0)");
}

TEST_F(ResultReviewTest, ASectionsOwnMarkClearsAFullSectionAndFillsAnyOther) {
  scanPhotos();
  kit::tap(*row(1)->crossSectionButton);
  EXPECT_EQ(row(1)->headerCell->text(), "Selected: 2");
  EXPECT_TRUE(screen->sectionArray1()[1]->image[0]->isSelected);
  kit::tap(*row(1)->crossSectionButton);
  EXPECT_EQ(row(1)->headerCell->text(), "Selected: 0");
  EXPECT_FALSE(screen->sectionArray1()[1]->image[1]->isSelected);
  kit::tap(*thumb(0, 0)->checkButton);  // wired, and does nothing
  EXPECT_FALSE(screen->sectionArray1()[0]->image[0]->isSelected);
}

TEST_F(ResultReviewTest, VideosUseTheirOwnWordingAndBadges) {
  world.platform.photos().setAssets({sim::video(T0, 9), sim::video(T0 + 5, 9), sim::video(T0 + 10, 3)});
  screen->selectedtype = "Videos";
  nav->pushViewController(screen, false);
  world.env.runUntilIdle();
  kit::tap(*screen->findBtn);
  world.env.runUntilIdle();
  EXPECT_EQ(clean(), "Free up space (1)");
  EXPECT_FALSE(thumb(0, 0)->videoImage->isHidden());
}

TEST_F(ResultReviewTest, ComingBackToAnEmptyTableBringsTheFindPromptBack) {
  world.platform.photos().setAssets({sim::photo(T0), sim::photo(T0 + 100)});
  nav->pushViewController(screen, false);
  world.env.runUntilIdle();
  kit::tap(*screen->findBtn);
  world.env.runUntilIdle();
  EXPECT_TRUE(screen->findPhotoView->isHidden());
  auto other = std::make_shared<kit::ViewController>();
  nav->pushViewController(other, false);
  nav->popViewControllerAnimated(false);
  world.env.runUntilIdle();
  EXPECT_FALSE(screen->findPhotoView->isHidden());
  EXPECT_EQ(screen->duplicatetext->text(), screen->duplicatePhotos);
}

}  // namespace
