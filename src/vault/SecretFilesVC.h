// SecretFilesVC: the hidden files, a grid of whatever the "Cleaner" folder holds. New files
// come from the camera or from the gallery picker (SecretDataViewController); a long press on
// a row starts selection mode, with select-all, delete and share. A tap plays a movie or opens
// a photo. It serves the picker's SelectedImage and DeleteAlert. Main thread, but for the
// folder read and the delete loop, which run on a background queue and replace `list`.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/AtomicShared.h"
#include "kit/GestureRecognizer.h"
#include "kit/Lists.h"
#include "kit/ViewController.h"
#include "kit/Views.h"
#include "platform/Camera.h"
#include "vault/SecretFileStore.h"

namespace vault {

// Told by the picker to read the folder again.
class SelectedImage {
 public:
  virtual ~SelectedImage() = default;
  virtual void reloadFileList() = 0;
};

// Asked by the picker to offer the removal of `assets` from the library.
class DeleteAlert {
 public:
  virtual ~DeleteAlert() = default;
  virtual void showHideAlert(const std::vector<platform::AssetPtr>& assets) = 0;
};

// A row of the grid: the thumbnail, the selection mark, the video mark.
class SecretDataCell : public kit::CollectionViewCell {
 public:
  static constexpr const char* kReuseIdentifier = "SecretDataCell";
  kit::Outlet<kit::ImageView> thumbNailImage{this, "thumbNailImage"};
  kit::Outlet<kit::ImageView> selectedImage{this, "selectedImage"};
  kit::Outlet<kit::ImageView> playPauseImageView{this, "playPauseImageView"};
  kit::Outlet<kit::View> itemTypeView{this, "itemTypeView"};
  kit::Outlet<kit::ImageView> audioPlayImageView{this, "audioPlayImageView"};
  // What a long press on the thumbnail reports (set by the list for the row the cell shows).
  std::function<void(kit::GestureState)> onLongPress;
  void awakeFromNib() override;
  void prepareForReuse() override;
  // Loads the picture of the file `fileUrl` off the main queue and shows it, unless the cell
  // was handed another file meanwhile.
  void loadImageFromURL(const std::string& fileUrl);

 private:
  std::string loading_;
};

// The system's camera screen: on its first appearance it opens the camera and, when the
// person is done, tells its delegate on the main queue.
class ImagePickerController : public kit::ViewController {
 public:
  using Finished = std::function<void(ImagePickerController&, const platform::CaptureResult&)>;
  ImagePickerController();
  // Source type camera, editing off, both media types: fixed here.
  Finished didFinishPickingMediaWithInfo;
  void loadView() override;
  void viewDidAppear(bool animated) override;
  void viewWillDisappear(bool animated) override;

 private:
  bool open_ = false;
};

class SecretFilesVC : public kit::ViewController,
                      public kit::CollectionViewDataSource,
                      public kit::CollectionViewDelegate,
                      public SelectedImage,
                      public DeleteAlert {
 public:
  SecretFilesVC();

  std::optional<bool> isShow;
  // The last camera movie written; only ever written.
  std::optional<std::string> tempFile;
  int counter = 0;
  bool longPressStatus = false;
  bool isClicked = false;
  std::vector<FileRow> tempList;
  std::shared_ptr<ImagePickerController> imagePicker = kit::make<ImagePickerController>();
  // Only its count is printed.
  std::vector<platform::AssetPtr> imageSelectionArray;
  // The folder's contents at the last reading. Written on a background queue.
  kit::AtomicShared<const std::vector<std::string>> currentFileName;
  kit::ImagePtr selectedImages = kit::Image::empty();

  // The rows on show: a snapshot, replaced whole by whichever queue changes it.
  FileRows list() const { return *list_.load(); }
  void setList(FileRows rows) { list_.store(std::make_shared<const FileRows>(std::move(rows))); }

  kit::Outlet<kit::CollectionView> galleryCollectionView{this, "galleryCollectionView"};
  kit::Outlet<kit::ImageView> noFileImage{this, "noFileImage"};
  kit::Outlet<kit::Label> nofileLbl{this, "nofileLbl"};
  kit::Outlet<kit::Label> addNewLbl{this, "addNewLbl"};
  kit::Outlet<kit::Label> totalLbl{this, "totalLbl"};
  kit::Outlet<kit::Label> selectedLbl{this, "selectedLbl"};
  kit::Outlet<kit::Button> selectAllBtn{this, "selectAllBtn"};
  kit::Outlet<kit::Button> addNewBtn{this, "addNewBtn"};
  kit::Outlet<kit::View> optionView{this, "optionView"};
  kit::Outlet<kit::LayoutConstraint> adHeightConstraint{this, "adHeightConstraint"};
  kit::Outlet<kit::View> adsView{this, "adsView"};
  kit::Outlet<kit::View> customDialogView{this, "customDialogView"};

  void loadView() override;
  void viewDidLoad() override;
  void viewWillAppear(bool animated) override;
  void viewDidLayoutSubviews() override;

  // Actions, by their names with a colon.
  void openChooser();
  void closeDialog();
  void openCamera();
  void openGallery();
  void backBtn();
  void closeBtn();
  void openSecurityPage();

  // Shows the HUD, empties `list`, reads the folder on a background queue.
  void reloadFileList() override;
  // The "Hide Media?" alert for `assets`, over whatever the stack shows.
  void showHideAlert(const std::vector<platform::AssetPtr>& assets) override;

  void toggleSelectAll();
  void exitSelectionMode();
  void confirmDeleteFiles();
  void shareSelectedFiles();
  // The long press at `location` (collection coordinates), or on the row `row` when known.
  void longPressedWithLongPressGesture(kit::GestureState state, std::optional<kit::IndexPath> row);

  // Camera results.
  void saveCameraImage(const kit::ImagePtr& image);
  void saveCameraVideo(const std::string& url);

  int numberOfItemsInSection(kit::CollectionView&, int) override;
  std::shared_ptr<kit::CollectionViewCell> cellForItemAtIndexPath(kit::CollectionView& view,
                                                                  kit::IndexPath indexPath) override;
  bool shouldSelectItemAtIndexPath(kit::CollectionView&, kit::IndexPath) override;
  void didSelectItemAtIndexPath(kit::CollectionView& view, kit::IndexPath indexPath) override;
  void didDeselectItemAtIndexPath(kit::CollectionView& view, kit::IndexPath indexPath) override;

 private:
  void fetchStoredFiles();
  void refreshFileViews();
  void deleteSelectedFiles();
  void afterFileDeleted();
  void showNoFileViews(bool empty);
  void reloadGrid();
  void rowTapped(kit::IndexPath indexPath);
  void updateSelectAllTitle();
  std::optional<kit::IndexPath> itemAtPoint(kit::Point point);

  kit::AtomicShared<const FileRows> list_{std::make_shared<const FileRows>()};
};

}  // namespace vault
