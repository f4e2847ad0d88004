// SecretDataViewController: the whole photo library as a grid to pick from. The import writes
// a 100 by 100 still of each picked item into the hidden folder (videos too), then asks the
// file list, through DeleteAlert, to offer the removal of the picked items from the library.
// Main thread; the library is fetched on a background queue.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kit/Lists.h"
#include "kit/ViewController.h"
#include "kit/Views.h"
#include "media/ImageVideoSelection.h"
#include "shared/PhotoPermission.h"
#include "shell/HomeVC.h"
#include "vault/SecretFileStore.h"
#include "vault/SecretFilesVC.h"

namespace vault {

class GalleryCell : public kit::CollectionViewCell {
 public:
  static constexpr const char* kReuseIdentifier = "GalleryCell";
  kit::Outlet<kit::ImageView> photoImageView{this, "photoImageView"};
  kit::Outlet<kit::ImageView> checkmarkImageView{this, "checkmarkImageView"};
  void awakeFromNib() override;
};

class SecretDataViewController : public kit::ViewController,
                                 public kit::CollectionViewDataSource,
                                 public kit::CollectionViewDelegate,
                                 public shared::PhotosPermissionCallbackDelegate,
                                 public media::ImageVideoSelectionDelegate {
 public:
  SecretDataViewController();

  int count = 0;
  std::vector<platform::AssetPtr> galleryImageArray;
  // Emptied on appearing; read by nothing.
  std::vector<platform::AssetPtr> imageSelectionArray;
  // What the grid shows.
  std::vector<std::shared_ptr<SecretFile>> tempArray;
  bool longPressStatus = false;
  std::shared_ptr<shell::HomeVM> dashboardVM = std::make_shared<shell::HomeVM>();
  std::weak_ptr<SelectedImage> delegate;
  std::weak_ptr<DeleteAlert> delegateDelete;
  bool isPressed = false;

  kit::Outlet<kit::Button> pushBackbtn{this, "pushBackbtn"};
  kit::Outlet<kit::Button> selectAllButton{this, "selectAllButton"};
  kit::Outlet<kit::Button> importBtn{this, "importBtn"};
  kit::Outlet<kit::Label> lblItemCount{this, "lblItemCount"};
  kit::Outlet<kit::Label> lblScreenTitle{this, "lblScreenTitle"};
  kit::Outlet<kit::CollectionView> galleryCollectionView{this, "galleryCollectionView"};
  kit::Outlet<kit::LayoutConstraint> adHeightConstraint{this, "adHeightConstraint"};
  kit::Outlet<kit::View> adsView{this, "adsView"};
  kit::Outlet<kit::Label> imageSelectionlabel{this, "imageSelectionlabel"};

  void loadView() override;
  void viewDidLoad() override;
  void viewWillAppear(bool animated) override;

  // Actions.
  void btnPushBackPressed();
  void selectUnselectAll();
  // Copies, asks once per selected item, pops. Fatal without both delegates.
  void addNewPressed();

  void permissionResult(bool granted, const std::string& permissionName) override;

  int numberOfItemsInSection(kit::CollectionView&, int) override;
  std::shared_ptr<kit::CollectionViewCell> cellForItemAtIndexPath(kit::CollectionView& view,
                                                                  kit::IndexPath indexPath) override;
  void didSelectItemAtIndexPath(kit::CollectionView& view, kit::IndexPath indexPath) override;
  void didDeselectItemAtIndexPath(kit::CollectionView& view, kit::IndexPath indexPath) override;

 private:
  void fill(const std::vector<platform::AssetPtr>& assets);
  void toggle(kit::IndexPath indexPath);
  void copySelected();
};

}  // namespace vault
