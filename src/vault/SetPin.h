// SetPin: the one screen through which a PIN is created, changed, removed and entered: a
// twelve-key keypad, four dots and a title. What a key press means depends on `isFrom`, which
// the pushing screen sets before the push: the verify path compares the entry with the PIN in
// the preference store, the create path takes a PIN twice and stores it. The PIN is kept as
// plain text; there is no attempt counter. Main thread; every delayed step runs on the main
// queue and keeps the screen alive until it has run.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/Lists.h"
#include "kit/ViewController.h"
#include "kit/Views.h"

namespace vault {

// A key of the keypad; its label shows the key's text.
class NumberCell : public kit::CollectionViewCell {
 public:
  static constexpr const char* kReuseIdentifier = "NumberCell";
  NumberCell();
  kit::Outlet<kit::Label> numberCell{this, "numberCell"};
};

class SetPin : public kit::ViewController,
               public kit::CollectionViewDataSource,
               public kit::CollectionViewDelegate {
 public:
  SetPin();

  // The key labels in cell order: the digits 1 to 9, an empty key, 0 and "×" (which clears).
  static const std::vector<std::string>& numberList();

  std::optional<std::string> tempPassword;  // never used
  // The characters typed so far.
  std::string password;
  // Create path: the first entry, once it has four characters.
  std::optional<std::string> mainPassword;
  std::optional<int> counter;  // never used
  // The mode: absent, "newpass", "setpasscode" or "forgot_password" create a PIN; "security",
  // "reset" and "changepasscode" ask for the stored one; any other text ignores all keys but
  // the clearing of "×".
  std::optional<std::string> isFrom;

  kit::Outlet<kit::View> firstTimeView{this, "firstTimeView"};
  kit::Outlet<kit::Label> pageTitle{this, "pageTitle"};
  kit::Outlet<kit::Label> passwordContent{this, "passwordContent"};
  kit::Outlet<kit::ImageView> dot1{this, "dot1"};
  kit::Outlet<kit::ImageView> dot2{this, "dot2"};
  kit::Outlet<kit::ImageView> dot3{this, "dot3"};
  kit::Outlet<kit::ImageView> dot4{this, "dot4"};
  kit::Outlet<kit::View> passwordView{this, "passwordView"};
  kit::Outlet<kit::CollectionView> NumberCollectionView{this, "NumberCollectionView"};
  kit::Outlet<kit::Button> lockBtn{this, "lockBtn"};
  kit::Outlet<kit::Button> createPin{this, "createPin"};
  kit::Outlet<kit::LayoutConstraint> adHeightConstraint{this, "adHeightConstraint"};
  kit::Outlet<kit::View> adsView{this, "adsView"};

  void loadView() override;
  // Hides the first-time view when SINGLE_TIME_CALL is set and shows the mode's texts.
  void viewDidLoad() override;
  // Loads the banner.
  void viewWillAppear(bool animated) override;

  // Actions.
  // SINGLE_TIME_CALL := true; hides the first-time view.
  void createPinAction();
  // SINGLE_TIME_CALL := true; pushes the hub with no PIN asked; paced interstitial.
  void openSecretFolder();
  // Pushes the security question's checking job; paced interstitial.
  void openSecuritypage();
  // "newpass": pops. Anything else: pushes a new home screen (nothing is popped).
  void backBtn();

  // A key press: the press of the key at `row` of numberList().
  void didSelectItemAtIndexPath(kit::CollectionView& collectionView, kit::IndexPath indexPath) override;

  int numberOfItemsInSection(kit::CollectionView&, int) override;
  std::shared_ptr<kit::CollectionViewCell> cellForItemAtIndexPath(kit::CollectionView& collectionView,
                                                                  kit::IndexPath indexPath) override;
  std::optional<kit::Size> sizeForItemAtIndexPath(kit::CollectionView& collectionView, kit::IndexPath) override;

 private:
  void verifyPath(const std::string& mode, const std::string& stored, int row);
  void createPath(int row);
  // Paints the dots: `clear` greys all four; else `wrong` reddens all four; else lights the
  // dot at `index` (0 to 3) in the accent colour, leaving the others; another index prints
  // "nothing".
  void dotColor(int index, bool wrong, bool clear);
  void push(std::shared_ptr<kit::ViewController> target);
};

// The number of characters (Unicode scalar values) of UTF-8 `text`: "×" counts one.
std::size_t characterCount(const std::string& text);

}  // namespace vault
