// SecretContactVC: the list of hidden contacts, read from the object store "ContactDataModel".
// Search by name, a long press to select, select all, delete (final, with no question), and
// the way to the address book to hide more. Main thread, but for the delete loop, which runs on
// a background queue against the main context, as the app always did.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/AtomicShared.h"
#include "kit/Controls.h"
#include "kit/GestureRecognizer.h"
#include "kit/Lists.h"
#include "kit/ViewController.h"
#include "kit/Views.h"
#include "platform/PersistentContainer.h"
#include "vault/ContactDataDetail.h"

namespace vault {

// A row of a contacts list: name, number, picture and check mark. No logic of its own.
class DuplicateContactCell : public kit::TableViewCell {
 public:
  static constexpr const char* kReuseIdentifier = "DuplicateContactCell";
  kit::Outlet<kit::Label> cnName{this, "cnName"};
  kit::Outlet<kit::Label> cnNumber{this, "cnNumber"};
  kit::Outlet<kit::ImageView> cnImg{this, "cnImg"};
  kit::Outlet<kit::ImageView> statusImg{this, "statusImg"};
  void awakeFromNib() override;
};

// The screen that picks address-book contacts to hide (the storyboard's "ContactVC"). Its
// mode text, set by whoever pushes it.
class ContactPicker : public kit::ViewController {
 public:
  std::optional<std::string> isFrom;
};

using ContactRecords = std::vector<std::shared_ptr<ContactDataDetail>>;

class SecretContactVC : public kit::ViewController,
                        public kit::TableViewDataSource,
                        public kit::TableViewDelegate,
                        public kit::SearchBarDelegate {
 public:
  SecretContactVC();

  // Taken at creation: the main context of the store.
  const std::shared_ptr<platform::ManagedObjectContext> context;
  // Made and never used.
  const std::shared_ptr<kit::Object> secrectContactData = std::make_shared<kit::Object>();
  // All records, as of the last fetch. Main thread.
  ContactRecords contactList;
  // Never read or written after creation.
  std::optional<std::vector<std::string>> contactName, contactNumber;
  // What the table shows; absent until the first fetch. Read and changed from the delete loop.
  kit::AtomicShared<const ContactRecords> filteredData;
  // Set true by the address-book screen; read by nobody.
  std::optional<bool> isFrom;
  int selectionCount = 0;
  bool longPressStatus = false;
  bool isPressed = false;
  // The older form of the store, read at load from CONTACT_DATA_NAME and CONTACT_DATA_NUMBER
  // (absent unless lists of texts) and never used.
  std::optional<std::vector<std::string>> tempListName, tempListNumber;

  kit::Outlet<kit::View> noDataView{this, "noDataView"};
  kit::Outlet<kit::SearchBar> searchContact{this, "searchContact"};
  kit::Outlet<kit::TableView> duplicateContactTable{this, "duplicateContactTable"};
  kit::Outlet<kit::View> navView{this, "navView"};
  kit::Outlet<kit::Label> totalCount{this, "totalCount"};
  kit::Outlet<kit::Button> deleteContactButton{this, "deleteContactButton"};
  kit::Outlet<kit::Button> selectAllStatus{this, "selectAllStatus"};
  kit::Outlet<kit::View> addNew{this, "addNew"};
  kit::Outlet<kit::LayoutConstraint> adHeightConstraint{this, "adHeightConstraint"};
  kit::Outlet<kit::View> adsView{this, "adsView"};
  kit::Outlet<kit::Button> addNewBtn{this, "addNewBtn"};
  kit::Outlet<kit::LayoutConstraint> addNewBtnHeightConstraint{this, "addNewBtnHeightConstraint"};

  void loadView() override;
  // Delegates, the old lists, the first fetch, the hidden selection bars, the long press.
  void viewDidLoad() override;
  // The banner; hides the search bar when scrolling.
  void viewWillAppear(bool animated) override;
  void viewDidAppear(bool animated) override;

  // Actions.
  // Pushes the address-book screen with isFrom "duplicate".
  void openContactPage();
  // In selection mode leaves it; otherwise pushes a new SecretSpaceVC.
  void closebtn();
  void selectAllData();
  void deleteContact();

  // Reads every record into contactList and filteredData (a search in force is dropped), the
  // count, the empty view; prints "error" and keeps the lists when the fetch fails.
  void fetchContacts();
  // Leaves selection mode, clearing the flags of the rows on show.
  void exitContactSelection();
  // Prints "working"; on a background queue deletes every selected record of contactList as
  // it stood, one save each, then refreshes on the main queue.
  void deleteSelectedContacts();
  void longPressedWithLongPressGesture(kit::LongPressGestureRecognizer& gesture);

  // Table and search.
  int numberOfRowsInSection(kit::TableView& tableView, int section) override;
  std::shared_ptr<kit::TableViewCell> cellForRowAtIndexPath(kit::TableView& tableView, kit::IndexPath indexPath) override;
  std::optional<double> heightForRowAtIndexPath(kit::TableView&, kit::IndexPath) override { return 90.0; }
  void didSelectRowAtIndexPath(kit::TableView& tableView, kit::IndexPath indexPath) override;
  void searchBarTextDidChange(kit::SearchBar& searchBar, const std::string& searchText) override;

 private:
  // "Selected Contacts : N" in selection mode, else "Total contact :  N".
  void writeCount(int count);
  // The rows on show; a fatal error while absent.
  std::shared_ptr<const ContactRecords> rows() const;
};

}  // namespace vault
