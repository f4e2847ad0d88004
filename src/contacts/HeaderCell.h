// HeaderCell: one group of same-named contacts, with a table of its own (a MergeContactCell
// per contact), a select-all toggle and a delete button per row. A finished component that no
// screen hosts yet: whoever does sets listData and viewController. Main thread, but for the
// deletion, which runs on a background queue.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kit/Controls.h"
#include "kit/Lists.h"
#include "kit/ViewController.h"
#include "kit/Views.h"
#include "platform/ContactStore.h"

namespace contacts {

// The contacts ticked in any group, shared by every HeaderCell (compared as the same card).
// Main thread.
std::vector<platform::ContactPtr>& selectedDuplicateContacts();

// A contact of a group: name, number, check mark and delete button. No logic of its own.
class MergeContactCell : public kit::TableViewCell {
 public:
  static constexpr const char* kReuseIdentifier = "MergeContactCell";
  kit::Outlet<kit::Label> nameLbl{this, "nameLbl"};
  kit::Outlet<kit::Label> contactLbl{this, "contactLbl"};
  kit::Outlet<kit::ImageView> selectedImg{this, "selectedImg"};
  kit::Outlet<kit::Button> deleteBtn{this, "deleteBtn"};
  void awakeFromNib() override;
};

class HeaderCell : public kit::TableViewCell, public kit::TableViewDataSource, public kit::TableViewDelegate {
 public:
  static constexpr const char* kReuseIdentifier = "HeaderCell";

  kit::Outlet<kit::Label> nameLbl{this, "nameLbl"};
  kit::Outlet<kit::Label> contactLbl{this, "contactLbl"};
  kit::Outlet<kit::Button> editBtn{this, "editBtn"};
  kit::Outlet<kit::Label> contactFound{this, "contactFound"};
  kit::Outlet<kit::Button> selectAll{this, "selectAll"};
  kit::Outlet<kit::TableView> tblView{this, "tblView"};
  bool isPressed = false;
  // For alerts and navigation; not owned.
  std::weak_ptr<kit::ViewController> viewController;
  // Not used.
  std::string numberList, nameList;
  // The group.
  std::vector<platform::ContactPtr> listData;

  int numberOfRowsInSection(kit::TableView& tableView, int section) override;
  std::shared_ptr<kit::TableViewCell> cellForRowAtIndexPath(kit::TableView& tableView, kit::IndexPath indexPath) override;
  // Ticks or unticks the row's contact in the shared selection.
  void didSelectRowAtIndexPath(kit::TableView& tableView, kit::IndexPath indexPath) override;
  std::optional<double> heightForRowAtIndexPath(kit::TableView&, kit::IndexPath) override { return 80.0; }

  // Builds the views, wires the inner table, borders selectAll, and empties the shared
  // selection.
  void awakeFromNib() override;
  // Writes the caption " N Duplicate contacts found ".
  void setSelected(bool selected, bool animated);
  // The select-all toggle: all of this group (dropping every other group's ticks), or none.
  void selectItemsWithSender(kit::Object* sender);
  // Asks "Are you sure you want to delete contact " on viewController; "Yes" deletes by the
  // given name on a background queue and pops viewController at once.
  void deleteButtonWithSender(kit::Object* sender);
};

}  // namespace contacts
