// ContactVC: the address book as a list, from which the user picks contacts to hide. Two
// passes read the book each time the screen loads and appears (the list, appended to and never
// rebuilt, and the same-name groups, which nothing shows); a long press enters selection
// mode, import saves the ticked rows as hidden contacts, removes them from the book (on "Yes")
// and opens the hidden-contacts list. Main thread, but for the reads and the removal, which
// run on background queues.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "contacts/ContactModel.h"
#include "kit/AtomicShared.h"
#include "kit/Controls.h"
#include "kit/GestureRecognizer.h"
#include "kit/Lists.h"
#include "kit/Views.h"
#include "platform/ContactStore.h"
#include "platform/PersistentContainer.h"
#include "vault/SecretContactVC.h"

namespace contacts {

using ContactRows = std::vector<std::shared_ptr<ContactModel>>;
using ContactGroups = std::vector<std::vector<platform::ContactPtr>>;

// A row of the list: picture, name, number, info mark and check mark. No logic of its own.
class ContactCell : public kit::TableViewCell {
 public:
  static constexpr const char* kReuseIdentifier = "ContactCell";
  kit::Outlet<kit::ImageView> contactImg{this, "contactImg"};
  kit::Outlet<kit::ImageView> infoImg{this, "infoImg"};
  kit::Outlet<kit::ImageView> statusImg{this, "statusImg"};
  kit::Outlet<kit::Label> name{this, "name"};
  kit::Outlet<kit::Label> contactNumber{this, "contactNumber"};
  void awakeFromNib() override;
};

// The contact card (the platform's contact view controller): the fields of `contact` that
// `displayedPropertyKeys` names, read only. A close button dismisses it.
class ContactViewController : public kit::ViewController {
 public:
  // Known to flows and the window as "ContactViewController", though no storyboard makes it.
  explicit ContactViewController(platform::Contact shown) : contact(std::move(shown)) {
    setStoryboardOrigin(nullptr, "ContactViewController");
  }
  const platform::Contact contact;
  bool allowsActions = false;
  bool editing = false;
  bool allowsEditing = true;
  std::vector<std::string> displayedPropertyKeys;
  void loadView() override;
};

class ContactVC : public vault::ContactPicker,
                  public kit::TableViewDataSource,
                  public kit::TableViewDelegate,
                  public kit::SearchBarDelegate {
 public:
  ContactVC();

  // --- Filled by the two passes ---
  // Every contact read so far; appended to, never emptied. Main thread.
  ContactRows contactList;
  // What the table shows; absent until viewDidLoad. The removal reads it from a background
  // queue.
  kit::AtomicShared<const ContactRows> filteredData;
  // Same-name groups; written on a background queue, read by nobody.
  kit::AtomicShared<const ContactGroups> duplicateData{std::make_shared<const ContactGroups>()};
  // Never filled.
  ContactRows duplicateNew;
  std::vector<std::string> tempNameList, tempNumberList;
  ContactRows tempList;

  // --- The rest of the screen ---
  const std::shared_ptr<platform::ManagedObjectContext> context;
  bool longPressStatus = false;
  std::shared_ptr<kit::AnimationView> contactAnimation;

  kit::Outlet<kit::TableView> contactTable{this, "contactTable"};
  kit::Outlet<kit::SearchBar> searchBar{this, "searchBar"};
  kit::Outlet<kit::Button> backbtn{this, "backbtn"};
  kit::Outlet<kit::Button> importDuplicateContact{this, "importDuplicateContact"};
  kit::Outlet<kit::Button> impotBtn{this, "impotBtn"};
  kit::Outlet<kit::View> secretContactMainView{this, "secretContactMainView"};
  kit::Outlet<kit::View> contactAnimationView{this, "contactAnimationView"};
  kit::Outlet<kit::View> duplicateContactView{this, "duplicateContactView"};
  kit::Outlet<kit::View> allContactView{this, "allContactView"};
  kit::Outlet<kit::View> noDataView{this, "noDataView"};
  kit::Outlet<kit::Label> totalCount{this, "totalCount"};
  kit::Outlet<kit::LayoutConstraint> adHeightConstraint{this, "adHeightConstraint"};
  kit::Outlet<kit::LayoutConstraint> btnHeightConstraint{this, "btnHeightConstraint"};
  kit::Outlet<kit::View> adsView{this, "adsView"};

  void loadView() override;
  // Delegates, keyboard tap, search colours, both passes, the mode of isFrom, the animation.
  void viewDidLoad() override;
  // Both passes again, the banner.
  void viewWillAppear(bool animated) override;
  void viewDidAppear(bool animated) override;
  // Prints "back btn pressed" when taken off the stack.
  void didMoveToParentViewController(kit::ViewController* parent) override;

  // Shows the HUD; on a background queue asks for access and reads every contact; on the main
  // queue appends a row per contact and reloads after each. Access refused: the permission
  // alert.
  void loadContacts();
  // Shows the HUD; asks for access; on a background queue reads every contact again and
  // writes the groups of two or more that share a full name (with a given name) to
  // duplicateData, dismissing the HUD once per group.
  void findDuplicates();

  // Actions.
  void openContact();
  void longPressedWithLongPressGesture(kit::LongPressGestureRecognizer& gesture);
  void backPress();
  void closeBtn();
  void importContact();

  // Table and search.
  int numberOfRowsInSection(kit::TableView& tableView, int section) override;
  std::shared_ptr<kit::TableViewCell> cellForRowAtIndexPath(kit::TableView& tableView, kit::IndexPath indexPath) override;
  std::optional<double> heightForRowAtIndexPath(kit::TableView&, kit::IndexPath) override { return 80.0; }
  void didSelectRowAtIndexPath(kit::TableView& tableView, kit::IndexPath indexPath) override;
  void searchBarTextDidChange(kit::SearchBar& searchBar, const std::string& searchText) override;

  // The six keys both passes fetch, in order.
  static std::vector<std::string> keysToFetch();

 private:
  std::shared_ptr<const ContactRows> rows() const;
  void showPermissionAlert();
  // Saves every ticked row as a hidden contact, one save each (a failed save is dropped).
  void saveSelectedRows();
  // On a background queue: deletes each ticked row from the book by name; a toast for each
  // unticked row; then hides the import button when nothing is shown.
  void removeSelectedFromBook();
  void openSecretContacts();
};

}  // namespace contacts
