// The contact screen's passes below what a flow sees: the same-name groups it writes and
// shows nowhere, the list that grows with each appearance, the hand-over's records, and the
// group cell that no screen hosts.
#include <gtest/gtest.h>

#include "contacts/ContactVC.h"
#include "contacts/HeaderCell.h"
#include "kit/AlertController.h"
#include "kit/Console.h"
#include "kit/NavigationController.h"
#include "kit/ProgressHUD.h"
#include "kit/Storyboard.h"
#include "kit/Toast.h"
#include "kit/Window.h"
#include "shell/MainStoryboard.h"
#include "sim/World.h"
#include "vault/ContactDataDetail.h"

namespace contacts {
namespace {

struct ContactVCTest : ::testing::Test {
  sim::World world;
  std::shared_ptr<kit::NavigationController> nav;
  std::shared_ptr<kit::Window> window = kit::make<kit::Window>();

  void SetUp() override {
    shell::registerMainStoryboard();
    world.platform.contacts().setStatus(platform::AuthorizationStatus::Authorized);
    nav = std::make_shared<kit::NavigationController>(
        kit::Storyboard::named("Main").instantiateViewControllerWithIdentifier("SecretContactVC"));
    window->setRootViewController(nav);
    window->makeKeyAndVisible();
    world.env.runUntilIdle();
  }
  void TearDown() override {
    kit::ToastManager::shared().hideAllToasts();
    kit::ProgressHUD::shared().dismiss();
  }

  std::shared_ptr<ContactVC> open() {
    auto vc = kit::Storyboard::named("Main").instantiate<ContactVC>("ContactVC");
    vc->isFrom = "duplicate";
    nav->pushViewController(vc, false);
    world.env.runUntilIdle();
    return vc;
  }
  std::vector<std::string> groupNames(const ContactVC& vc) {
    std::vector<std::string> out;
    for (const auto& g : *vc.duplicateData.load()) {
      std::string names;
      for (const auto& c : g) names += (names.empty() ? "" : "|") + *platform::stringFromContact(*c);
      out.push_back(names);
    }
    std::sort(out.begin(), out.end());
    return out;
  }
};

TEST_F(ContactVCTest, GroupsAreExactFullNamesWithAGivenName) {
  world.platform.contacts().setContacts({
      sim::contact("Ann", "Lee"), sim::contact("Ann", "Lee"), sim::contact("Ann ", "Lee"),  // two blanks
      sim::contact("ann", "lee"),                                                         // case counts
      sim::contact("", "Berg"), sim::contact("", "Berg"),                                 // family only
      sim::contact("", "", {}, "Acme"), sim::contact("", "", {}, "Acme"),                 // organisation only
      sim::contact("", ""), sim::contact("", ""),                                         // no name
      sim::contact("Bo", "Ek", {"1"}), sim::contact("Bo", "Ek", {"2"}), sim::contact("Bo", "Ek", {"3"}),
  });
  auto vc = open();
  EXPECT_EQ(groupNames(*vc), (std::vector<std::string>{"Ann Lee|Ann Lee", "Bo Ek|Bo Ek|Bo Ek"}));
  // Members keep the store's order.
  const auto& groups = *vc->duplicateData.load();
  for (const auto& g : groups) {
    if (g.size() == 3) {
      EXPECT_EQ(g[2]->phoneNumbers[0].stringValue, "3");
    }
  }
  EXPECT_FALSE(kit::ProgressHUD::shared().isVisible());
}

TEST_F(ContactVCTest, NoRepeatedNameLeavesTheHudUpAndNoGroups) {
  world.platform.contacts().setContacts({sim::contact("Ann", "Lee"), sim::contact("Bo", "Ek")});
  auto vc = open();
  EXPECT_TRUE(vc->duplicateData.load()->empty());
  EXPECT_TRUE(kit::ProgressHUD::shared().isVisible());
}

TEST_F(ContactVCTest, EachAppearanceAppendsTheBookAgain) {
  world.platform.contacts().setContacts({sim::contact("Ann", "Lee", {"1", "2", "3"}), sim::contact("Bo", "")});
  auto vc = open();
  ASSERT_EQ(vc->contactList.size(), 4u);
  EXPECT_EQ(vc->contactList[0]->contactNumber, "1");
  EXPECT_EQ(vc->contactList[1]->contactNumber, "");
  EXPECT_EQ(vc->contactList[0]->contactImg, "dp");
  EXPECT_EQ(vc->contactList[0]->infoImg, "info");
  // Another screen on top and back: one more copy of each.
  nav->pushViewController(kit::Storyboard::named("Main").instantiateViewControllerWithIdentifier("SecretSpaceVC"), false);
  world.env.runUntilIdle();
  nav->popViewControllerAnimated(false);
  world.env.runUntilIdle();
  EXPECT_EQ(vc->contactList.size(), 6u);
  EXPECT_EQ(vc->totalCount->text(), "Total Contacts : 6");
  EXPECT_EQ(world.platform.contacts().lastKeys(), ContactVC::keysToFetch());
}

TEST_F(ContactVCTest, AnEnumerationErrorKeepsWhatWasRead) {
  kit::ConsoleCapture console;
  world.platform.contacts().setContacts({sim::contact("Ann", "Lee"), sim::contact("Bo", "Ek")});
  world.platform.contacts().failEnumerationAfter(1);
  auto vc = open();
  EXPECT_TRUE(console.contains("Fetch contact error: Error Domain=CNErrorDomain Code=2 \"The address book could not be read.\""));
  EXPECT_EQ(vc->contactList.size(), 2u);  // one contact, read twice
}

TEST_F(ContactVCTest, ALongPressOutsideTheRowsChangesNothing) {
  kit::ConsoleCapture console;
  world.platform.contacts().setContacts({sim::contact("Ann", "Lee")});
  auto vc = open();
  auto press = std::dynamic_pointer_cast<kit::LongPressGestureRecognizer>(vc->contactTable->gestureRecognizers().at(0));
  ASSERT_TRUE(press);
  EXPECT_DOUBLE_EQ(press->minimumPressDuration(), 0.2);
  press->recognize(kit::GestureState::Began, {10, 500});
  EXPECT_TRUE(console.contains("Long press on table view, not row."));
  EXPECT_FALSE(vc->longPressStatus);
  press->recognize(kit::GestureState::Began, {10, 10});
  EXPECT_TRUE(vc->longPressStatus);
  press->recognize(kit::GestureState::Cancelled, {10, 10});
  EXPECT_FALSE(vc->longPressStatus);
}

TEST_F(ContactVCTest, ASearchKeepsTheTicksOfTheSameRows) {
  world.platform.contacts().setContacts({sim::contact("Ann", "Lee"), sim::contact("Bo", "Ek")});
  auto vc = open();
  vc->contactList[1]->isSelected = true;
  vc->searchBar->userSetText("bo");
  world.env.runUntilIdle();
  auto shown = vc->filteredData.load();
  ASSERT_EQ(shown->size(), 2u);
  EXPECT_TRUE((*shown)[0]->isSelected);
  EXPECT_EQ((*shown)[0], vc->contactList[1]);
  vc->backPress();
  EXPECT_TRUE(vc->contactList[1]->isSelected);  // not in selection mode: back pops instead
}

TEST_F(ContactVCTest, TheHandOverWritesNameAndNumberRecords) {
  world.platform.contacts().setContacts({sim::contact("Ann", "Lee", {"+1 555"}), sim::contact("", "")});
  auto vc = open();
  vc->contactList[0]->isSelected = true;
  vc->contactList[1]->isSelected = true;  // "No Name"
  vc->importContact();
  auto alert = std::dynamic_pointer_cast<kit::AlertController>(nav->presentedViewController());
  ASSERT_TRUE(alert);
  alert->chooseActionTitled("Yes");
  world.env.runUntilIdle();
  platform::Error error;
  auto records = vault::contactDataContext()->executeFetchRequest(vault::ContactDataDetail::entity(), &error);
  ASSERT_TRUE(records);
  ASSERT_EQ(records->size(), 2u);
  auto first = std::static_pointer_cast<vault::ContactDataDetail>((*records)[0]);
  EXPECT_EQ(first->contactName(), "Ann Lee");
  EXPECT_EQ(first->contactNumber(), "+1 555");
  EXPECT_FALSE(first->isSelected());
  EXPECT_EQ(std::static_pointer_cast<vault::ContactDataDetail>((*records)[1])->contactName(), "No Name");
  // "No Name" matches no card by name, so only Ann Lee left the book.
  EXPECT_EQ(world.platform.contacts().contacts().size(), 1u);
  EXPECT_EQ(nav->topViewController()->storyboardIdentifier(), "SecretContactVC");
}

// ---- HeaderCell ----

struct HeaderCellTest : ContactVCTest {
  std::shared_ptr<HeaderCell> cell = kit::make<HeaderCell>();
  void SetUp() override {
    ContactVCTest::SetUp();
    cell->awakeFromNib();
  }
};

TEST_F(HeaderCellTest, CaptionCountsTheGroup) {
  cell->setSelected(false, false);
  EXPECT_EQ(cell->contactFound->text(), " 0 Duplicate contacts found ");
  cell->listData = {sim::contact("Ann", "Lee"), sim::contact("Ann", "Lee"), sim::contact("Ann", "Lee")};
  cell->setSelected(true, false);
  EXPECT_EQ(cell->contactFound->text(), " 3 Duplicate contacts found ");
  EXPECT_EQ(cell->selectAll->borderWidth(), 1.0);
}

TEST_F(HeaderCellTest, SelectAllTakesOverTheSharedSelectionAndTogglesBack) {
  world.platform.contacts().setContacts({sim::contact("Ann", "Lee"), sim::contact("Ann", "Lee"), sim::contact("Bo", "Ek")});
  auto book = world.platform.contacts().contacts();
  auto other = kit::make<HeaderCell>();
  other->awakeFromNib();
  other->listData = {book[2]};
  other->selectItemsWithSender(nullptr);
  cell->listData = {book[0], book[1]};
  cell->selectItemsWithSender(nullptr);
  EXPECT_EQ(cell->selectAll->title(kit::kControlStateNormal), "Unselect All");
  ASSERT_EQ(selectedDuplicateContacts().size(), 2u);  // the other group's tick is gone
  cell->selectItemsWithSender(nullptr);
  EXPECT_EQ(cell->selectAll->title(kit::kControlStateNormal), "Select All");
  EXPECT_TRUE(selectedDuplicateContacts().empty());
  cell->didSelectRowAtIndexPath(*cell->tblView, {0, 1});
  ASSERT_EQ(selectedDuplicateContacts().size(), 1u);
  EXPECT_TRUE(platform::isEqualContact(selectedDuplicateContacts()[0], book[1]));
}

TEST_F(HeaderCellTest, DeleteAsksThenDeletesByGivenNameAndPops) {
  kit::ConsoleCapture console;
  world.platform.contacts().setContacts({sim::contact("Ann", "Lee"), sim::contact("Ann", "Berg")});
  auto book = world.platform.contacts().contacts();
  auto host = open();
  cell->viewController = host;
  cell->listData = {book[1]};
  cell->tblView->reloadData();
  cell->tblView->layoutIfNeeded();
  auto row = std::dynamic_pointer_cast<MergeContactCell>(cell->tblView->cellForRowAtIndexPath({0, 0}));
  ASSERT_TRUE(row);
  EXPECT_EQ(row->nameLbl->text(), "Ann Berg");
  EXPECT_EQ(row->contactLbl->text(), std::nullopt);
  cell->deleteButtonWithSender(row->deleteBtn.shared().get());
  auto alert = std::dynamic_pointer_cast<kit::AlertController>(nav->presentedViewController());
  ASSERT_TRUE(alert);
  EXPECT_EQ(alert->message(), "Are you sure you want to delete contact ");
  alert->chooseActionTitled("Yes");
  world.env.runUntilIdle();
  // "Ann" finds Ann Lee first: the store's first match goes, not the row's contact.
  auto left = world.platform.contacts().contacts();
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left[0]->familyName, "Berg");
  EXPECT_NE(nav->topViewController(), host.get());
}

}  // namespace
}  // namespace contacts
