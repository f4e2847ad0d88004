// Deleting from the scan screen: the clean road over all sections and the row road over one.
#include <gtest/gtest.h>

#include "kit/AlertController.h"
#include "kit/ProgressHUD.h"
#include "kit/Toast.h"
#include "media/ScanScreenFixture.h"

namespace {

constexpr double T0 = sim::Environment::kDefaultStart;
using Ids = std::vector<std::string>;

struct DeletionTest : media::ScanScreenFixture {
  void SetUp() override {
    ScanScreenFixture::SetUp();
    world.env.setEagerMain(true);  // the main thread keeps up with the scan
    world.platform.photos().setStatus(platform::AuthorizationStatus::Authorized);
  }
  // Sections [a0 a1 a2] and [b0 b1], a single c, scanned to their results.
  void scan(std::string type = "Photos") {
    world.platform.photos().setAssets({sim::photo(T0, "a0"), sim::photo(T0 + 1, "a1"), sim::photo(T0 + 2, "a2"),
                                       sim::photo(T0 + 60, "b0"), sim::photo(T0 + 61, "b1"), sim::photo(T0 + 500, "c")});
    screen->selectedtype = std::move(type);
    nav->pushViewController(screen, false);
    world.env.runUntilIdle();
    kit::tap(*screen->findBtn);
    world.env.runUntilIdle();
  }
  std::vector<std::string> toasts() {
    std::vector<std::string> out;
    for (const auto& t : kit::ToastManager::shared().activeToasts()) out.push_back(t.message.value_or(""));
    return out;
  }
  std::shared_ptr<kit::AlertController> alert() {
    return std::dynamic_pointer_cast<kit::AlertController>(nav->presentedViewController());
  }
  std::shared_ptr<kit::Button> rowDelete(int row) {
    auto cell = std::dynamic_pointer_cast<media::PhotosTableViewCell>(screen->tableView->cellForRowAtIndexPath({0, row}));
    return cell->sectionDelete.shared();
  }
};

TEST_F(DeletionTest, ATitleWithZeroIsRefusedWithAToast) {
  scan();
  kit::tap(*screen->totalSelectBtn);  // Deselect All...
  kit::tap(*screen->totalSelectBtn);  // ...is "Select All" first; twice clears every mark
  world.env.runUntilIdle();
  ASSERT_EQ(screen->cleanButton->currentTitle(), "Free up Space (0)");
  kit::tap(*screen->cleanButton);
  EXPECT_EQ(toasts(), (std::vector<std::string>{"Please select an item"}));
  EXPECT_TRUE(screen->deletePopView->isHidden());
}

TEST_F(DeletionTest, TheCleanRoadDeletesEveryMarkedMemberAndEndsOnTheFinishedPopup) {
  scan();
  kit::tap(*screen->cleanButton);  // "Free up Space (3)"
  EXPECT_FALSE(screen->deletePopView->isHidden());
  EXPECT_FALSE(screen->hideView->isHidden());
  kit::tap(*screen->deleteButton);
  world.env.runUntilIdle();
  EXPECT_EQ(world.platform.photos().deletedIdentifiers(), (Ids{"a1", "a2", "b1"}));
  EXPECT_EQ(screen->cleanDataLbl->text(), "Congratulations! We are done.");
  EXPECT_EQ(screen->clearedDatainMb, "0.00");
  EXPECT_FALSE(screen->adsView->isHidden());
  EXPECT_TRUE(screen->tableView->isHidden());
  EXPECT_TRUE(screen->cleanButtonView->isHidden());
  EXPECT_TRUE(screen->sectionArray1().empty());
  kit::tap(*screen->okBtnOutlet);
  EXPECT_EQ(nav->topViewController(), home.get());
}

TEST_F(DeletionTest, ARefusalChangesNothingAndARetryAsksForTheAssetsTwice) {
  scan();
  world.platform.photos().setDeletionOutcome(sim::PhotoLibrary::DeletionOutcome::Decline);
  kit::tap(*screen->cleanButton);
  kit::tap(*screen->deleteButton);
  world.env.runUntilIdle();
  EXPECT_EQ(screen->sectionArray1().size(), 2u);
  EXPECT_TRUE(screen->adsView->isHidden());
  EXPECT_EQ(screen->selectedArray().size(), 3u);
  world.platform.photos().setDeletionOutcome(sim::PhotoLibrary::DeletionOutcome::Succeed);
  kit::tap(*screen->cleanButton);
  kit::tap(*screen->deleteButton);
  world.env.runUntilIdle();
  EXPECT_EQ(screen->selectedArray().size(), 6u);
  EXPECT_EQ(world.platform.photos().deletedIdentifiers(), (Ids{"a1", "a2", "b1"}));
}

TEST_F(DeletionTest, CancelGoesBackToTheResults) {
  scan();
  kit::tap(*screen->cleanButton);
  kit::tap(*screen->cancelButton);
  EXPECT_TRUE(screen->deletePopView->isHidden());
  EXPECT_TRUE(screen->hideView->isHidden());
  EXPECT_FALSE(screen->cleanButtonView->isHidden());
  EXPECT_TRUE(world.platform.photos().deletedIdentifiers().empty());

  // popUpCancel, by its name as a tap recogniser would send it, only shows the clean button.
  screen->cleanButton->setHidden(true);
  ASSERT_TRUE(screen->performAction("popUpCancel", nullptr));
  EXPECT_FALSE(screen->cleanButton->isHidden());
  EXPECT_TRUE(screen->deletePopView->isHidden());
}

// After the clean road the list is empty but the hidden table was not reloaded: a row's
// bin then finds its row and answers with the manager's default toast, and the toast of a
// row deletion keeps its own position and duration whatever the defaults say.
TEST_F(DeletionTest, RowToastsOnAnEmptyListAndAfterADeletion) {
  scan();
  auto staleBin = rowDelete(0);
  kit::tap(*screen->cleanButton);
  kit::tap(*screen->deleteButton);
  world.env.runUntilIdle();
  ASSERT_TRUE(screen->sectionArray1().empty());
  auto& manager = kit::ToastManager::shared();
  manager.duration = 7.0;
  manager.position = kit::ToastPosition::Top;
  screen->deleteButtonTappedWithSender(staleBin.get());
  ASSERT_EQ(toasts(), (std::vector<std::string>{"No Duplicate Photos Deleted"}));
  EXPECT_EQ(manager.activeToasts().back().duration, 7.0);
  EXPECT_EQ(manager.activeToasts().back().position, kit::ToastPosition::Top);
  EXPECT_FALSE(alert());
  world.env.advance(8.0);

  auto fresh = std::make_shared<media::DuplicatePhotoVC>();
  nav->popViewControllerAnimated(false);
  screen = fresh;
  world.platform.photos().setAssets({});
  scan();
  kit::tap(*rowDelete(0));
  alert()->chooseActionTitled("Yes");
  world.env.runUntilIdle();
  ASSERT_EQ(toasts(), (std::vector<std::string>{"Deleted Successfully"}));
  EXPECT_EQ(manager.activeToasts().back().duration, 3.0);
  EXPECT_EQ(manager.activeToasts().back().position, kit::ToastPosition::Bottom);
  manager.duration = 3.0;
  manager.position = kit::ToastPosition::Bottom;
}

// The row is the one under the button's corner, not the cell the button belongs to.
TEST_F(DeletionTest, ARowBinFindsItsRowByItsPlace) {
  scan();
  auto bin = rowDelete(0);
  bin->setFrame(kit::makeRect(0, screen->tableView->rectForRowAtIndexPath({0, 1}).origin.y, 20, 20));
  kit::tap(*bin);
  ASSERT_TRUE(alert());
  EXPECT_EQ(alert()->message(), "Are you sure you want to delete 1 Media. You will not be able to restore them in the future.");
  alert()->chooseActionTitled("No");
  bin->setFrame(kit::makeRect(0, -1, 20, 20));  // above the first row: no row, no question
  kit::tap(*bin);
  EXPECT_FALSE(alert());
}

TEST_F(DeletionTest, ARowDeletionAsksThenTakesTheWholeSectionOffAndRescans) {
  scan();
  kit::tap(*rowDelete(0));
  ASSERT_TRUE(alert());
  EXPECT_EQ(alert()->alertTitle(), "Delete Duplicate Media");
  EXPECT_EQ(alert()->message(), "Are you sure you want to delete 2 Media. You will not be able to restore them in the future.");
  alert()->chooseActionTitled("Yes");
  world.env.runUntilIdle();
  EXPECT_EQ(world.platform.photos().deletedIdentifiers(), (Ids{"a1", "a2"}));
  ASSERT_EQ(screen->sectionArray1().size(), 1u);  // a0 left the list with its section
  EXPECT_EQ(screen->sectionArray1()[0]->image[0]->imagePath->localIdentifier(), "b0");
  EXPECT_EQ(toasts(), (std::vector<std::string>{"Deleted Successfully"}));
  world.env.advance(1.0);  // popBack: the HUD, then a fresh scan, which dismisses it
  EXPECT_FALSE(kit::ProgressHUD::shared().isVisible());
  EXPECT_EQ(screen->sectionArray1().size(), 1u);  // b0 b1 again; a0 stands alone now
}

TEST_F(DeletionTest, TheRescanTimerKeepsItsScreenAliveWhenAnotherTakesTheSlots) {
  scan();
  kit::tap(*rowDelete(0));
  alert()->chooseActionTitled("Yes");
  world.env.runUntilIdle();
  // Within the second: back, and another scan screen takes the slots; nothing else holds the
  // first one.
  nav->popViewControllerAnimated(false);
  auto other = std::make_shared<media::DuplicatePhotoVC>();
  nav->pushViewController(other, false);
  world.env.runUntilIdle();
  std::weak_ptr<media::DuplicatePhotoVC> first = screen;
  screen.reset();
  EXPECT_FALSE(first.expired());  // the timer holds it
  world.env.advance(1.0);
  // popBack ran on the first screen: its rescan reports to the screen in the slots.
  EXPECT_EQ(other->sectionArray1().size(), 1u);
  world.env.runUntilIdle();
  EXPECT_TRUE(first.expired());  // let go once fired
}

TEST_F(DeletionTest, ARowWithNothingMarkedOrAVideoRowDoesNothing) {
  scan();
  auto mark = [&] {
    return std::dynamic_pointer_cast<media::PhotosTableViewCell>(screen->tableView->cellForRowAtIndexPath({0, 1}))
        ->crossSectionButton.shared();
  };
  kit::tap(*mark());  // the whole section marked...
  kit::tap(*mark());  // ...then cleared
  kit::tap(*rowDelete(1));  // its section has no mark left
  EXPECT_FALSE(alert());
  EXPECT_TRUE(toasts().empty());
  screen->selectedtype = "Videos";
  kit::tap(*rowDelete(0));
  EXPECT_FALSE(alert());
}

TEST_F(DeletionTest, TheVideoPathUsesTheCleanRoadWithItsOwnWords) {
  world.platform.photos().setAssets({sim::video(T0, 9, "v0"), sim::video(T0 + 5, 9, "v1")});
  screen->selectedtype = "Videos";
  nav->pushViewController(screen, false);
  world.env.runUntilIdle();
  kit::tap(*screen->findBtn);
  world.env.runUntilIdle();
  kit::tap(*screen->cleanButton);
  kit::tap(*screen->deleteButton);
  world.env.runUntilIdle();
  EXPECT_EQ(world.platform.photos().deletedIdentifiers(), (Ids{"v1"}));
  EXPECT_TRUE(screen->videoSectionArray().empty());
  // With nothing left, the clean action kills its button, and the popup's action refuses.
  screen->performAction("cleanButtonAction");
  EXPECT_FALSE(screen->cleanButton->isUserInteractionEnabled());
  screen->performAction("deleteButtonAction");
  EXPECT_EQ(toasts(), (std::vector<std::string>{"No Duplicate Video Found"}));
}

}  // namespace
