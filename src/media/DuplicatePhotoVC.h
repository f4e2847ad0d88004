// DuplicatePhotoVC: the screen behind both the duplicate-photos and the duplicate-videos flow:
// permission, the find prompt, scanning with progress, and the results or the empty message.
// It listens to both scans and to the permission check through the process-wide slots, which
// keep it alive after it has left the navigation stack.
//
// Runs on the main queue, except the listener operations, which the scans call on their
// background thread; those hop to the main queue as stated per operation.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/AtomicShared.h"
#include "kit/Lists.h"
#include "kit/ViewController.h"
#include "kit/Views.h"
#include "media/MarkTally.h"
#include "media/PhotosCallBack.h"
#include "media/VideosCallBackListner.h"
#include "shared/PhotoPermission.h"

namespace media {

// One table row: a section's strip of thumbnails, with the section's own check mark and
// delete button.
class PhotosTableViewCell : public kit::TableViewCell {
 public:
  static constexpr const char* kReuseIdentifier = "PhotosTableViewCell";
  ~PhotosTableViewCell() override;

  kit::Outlet<kit::LayoutConstraint> collectionHeighContraint{this, "collectionHeighContraint"};
  kit::Outlet<kit::Button> crossSectionButton{this, "crossSectionButton"};
  kit::Outlet<kit::Button> sectionDelete{this, "sectionDelete"};
  kit::Outlet<kit::Label> headerCell{this, "headerCell"};
  kit::Outlet<kit::CollectionView> collectionView{this, "collectionView"};
  // The observation of the strip's content size (a token of the strip's observers; 0 for
  // none).
  int collectionViewObserver = 0;
  // Read by nobody.
  std::vector<std::shared_ptr<ImageSets>> collectionSubArray;

  // Builds the row, gives the strip a CollectionViewFlowLayOut and starts observing the
  // strip's content size: each change invalidates the strip's intrinsic size, sets its height
  // to 140 and lays the cell out.
  void awakeFromNib() override;
  // The base layout, then layoutIfNeeded.
  void layoutSubviews() override;
};

// One thumbnail of a strip, with its check mark and, for a video, a badge.
class PhotosCollectionViewCell : public kit::CollectionViewCell {
 public:
  static constexpr const char* kReuseIdentifier = "PhotosCollectionViewCell";
  kit::Outlet<kit::Button> checkButton{this, "checkButton"};
  // An image view, in spite of its name.
  kit::Outlet<kit::ImageView> photosCollectionView{this, "photosCollectionView"};
  kit::Outlet<kit::ImageView> videoImage{this, "videoImage"};
  // Builds the cell; the image has corner radius 10 and clips to its bounds.
  void awakeFromNib() override;
};

class DuplicatePhotoVC : public kit::ViewController,
                         public kit::TableViewDataSource,
                         public kit::TableViewDelegate,
                         public kit::CollectionViewDataSource,
                         public kit::CollectionViewDelegate,
                         public PhotosCallBackDelegate,
                         public VideosCallBackDelegate,
                         public shared::PhotosPermissionCallbackDelegate {
 public:
  DuplicatePhotoVC();

  // --- Fields ---
  // Only "Photos" means the photo path; any other text the video path.
  std::string selectedtype = "Photos";
  // The progress label's denominator; written by the scan's thread.
  std::atomic<std::int64_t> totalImageCount{0};
  // Set to 0 by the row pass; nothing adds to it, so no size is ever shown.
  float totalPhotoSize = 0.0f;
  // "%.2f" of totalPhotoSize after a deletion ("0.00"); read by nothing.
  std::optional<std::string> clearedDatainMb;
  // Read by nothing.
  std::int64_t totalSelectedSize = 0;
  std::vector<float> sizeList;
  std::vector<platform::AssetPtr> imageArray;
  std::vector<std::shared_ptr<ImageSets>> duplicateImage;
  // The assets the clean road deletes: appended to and never cleared. Appended on the main
  // queue, read by the platform's change block on its own queue.
  std::vector<platform::AssetPtr> selectedArray() const { return *selected_.load(); }
  // Always true.
  bool isAutoSelect = true;
  // Members of the row configured last (its photos or its videos).
  std::vector<std::shared_ptr<ImageSets>> collectionArray;
  std::vector<std::shared_ptr<VideoSets>> collectionVideoArray;
  // Declared and never used.
  bool scrollViewReachedBottom = false;
  int numbeOfItemsInRow = 2;
  int counter = 0;

  const std::string noImageFoundText = "We have thoroughly checked your gallery and did not find any duplicate photos.";
  const std::string noVideoFoundText = "We have thoroughly checked your gallery and did not find any duplicate Videos. ";
  const std::string duplicatePhotos = "No Duplicate Photos Found";
  const std::string duplicateVideos = "No Duplicate Videos Found";

  std::shared_ptr<kit::AnimationView> animationView = kit::make<kit::AnimationView>();
  std::shared_ptr<kit::AnimationView> animationSecondView = kit::make<kit::AnimationView>();
  std::shared_ptr<kit::AnimationView> animationThirdView = kit::make<kit::AnimationView>();

  // The screen's sections. Photo sections are assigned on the main queue, video sections on
  // the scan's thread; both are read on either.
  PhotoSections sectionArray1() const { return *photoSections_.load(); }
  VideoSections videoSectionArray() const { return *videoSections_.load(); }

  // --- Outlets ---
  kit::Outlet<kit::View> findPhotoView{this, "findPhotoView"};
  kit::Outlet<kit::Label> cleanHeadLbl{this, "cleanHeadLbl"};
  kit::Outlet<kit::Label> cleanSubheadingLbl{this, "cleanSubheadingLbl"};
  kit::Outlet<kit::Button> findBtn{this, "findBtn"};
  kit::Outlet<kit::View> hideView{this, "hideView"};
  kit::Outlet<kit::Button> allowBtnOutlet{this, "allowBtnOutlet"};
  kit::Outlet<kit::Label> noImageLabel{this, "noImageLabel"};
  kit::Outlet<kit::Label> duplicatetext{this, "duplicatetext"};
  kit::Outlet<kit::ImageView> noPhotoImageView{this, "noPhotoImageView"};
  kit::Outlet<kit::View> scanningView{this, "scanningView"};
  kit::Outlet<kit::Label> scanHeadLbl{this, "scanHeadLbl"};
  kit::Outlet<kit::Label> scanSubheadingLbl{this, "scanSubheadingLbl"};
  kit::Outlet<kit::Label> progressLbl{this, "progressLbl"};
  kit::Outlet<kit::View> animationImgView{this, "animationImgView"};
  kit::Outlet<kit::TableView> tableView{this, "tableView"};
  kit::Outlet<kit::Button> totalSelectBtn{this, "totalSelectBtn"};
  kit::Outlet<kit::Label> totalSelectedLbl{this, "totalSelectedLbl"};
  kit::Outlet<kit::Label> duplicatePhotoCount{this, "duplicatePhotoCount"};
  kit::Outlet<kit::View> cleanButtonView{this, "cleanButtonView"};
  kit::Outlet<kit::Button> cleanButton{this, "cleanButton"};
  kit::Outlet<kit::LayoutConstraint> cleanHeightConstraint{this, "cleanHeightConstraint"};
  kit::Outlet<kit::Label> headingLbl{this, "headingLbl"};
  // The confirmation popup.
  kit::Outlet<kit::View> deletePopView{this, "deletePopView"};
  kit::Outlet<kit::View> deleteImgView{this, "deleteImgView"};
  kit::Outlet<kit::Button> deleteButton{this, "deleteButton"};
  kit::Outlet<kit::Button> cancelButton{this, "cancelButton"};
  kit::Outlet<kit::Button> deleteAll{this, "deleteAll"};
  kit::Outlet<kit::LayoutConstraint> popupHeightDeleteConstraint{this, "popupHeightDeleteConstraint"};
  kit::Outlet<kit::LayoutConstraint> popupHeightConstraint{this, "popupHeightConstraint"};
  // The finished popup, whatever its name says.
  kit::Outlet<kit::View> adsView{this, "adsView"};
  kit::Outlet<kit::View> animationImageView{this, "animationImageView"};
  kit::Outlet<kit::Label> cleanDataLbl{this, "cleanDataLbl"};
  kit::Outlet<kit::Button> okBtnOutlet{this, "okBtnOutlet"};
  kit::Outlet<kit::View> bannerAdsView{this, "bannerAdsView"};
  kit::Outlet<kit::LayoutConstraint> bannerAdsViewHeight{this, "bannerAdsViewHeight"};

  // --- Lifecycle ---
  void loadView() override;
  void viewDidLoad() override;
  void viewWillAppear(bool animated) override;
  void viewDidAppear(bool animated) override;

  // --- Actions ---
  void findDuplicateBtn();
  void allowButtonAction();
  void backButtonAction();
  void okBtnBtnAction();
  // Marks every member of every section, or clears every mark when the button reads
  // "Deselect All"; then reloads the table.
  void selectAllBtnAction();
  // A section's own check mark: clears a fully marked section, marks any other one whole.
  void selectButtonTappedWithSender(kit::Object* sender);
  // The thumbnail's check button: wired, and does nothing (marks change by tapping the
  // thumbnail).
  void selectedButtonWithSender(kit::Object* sender);
  // Titles the select-all button from a fresh count of all marks.
  void refreshSelectAllTitle();

  // --- Deletion ---
  // The clean bar: refuses a title with "(0)" (a toast), else opens the confirmation popup.
  void cleanButtonAction();
  // The popup's delete: deletes every marked member of every section through the platform
  // (which asks the user first) and, on success, ends on the finished popup.
  void deleteButtonAction();
  // The popup's cancel: back to the results.
  void cancelBtnAction();
  void popUpCancel();
  // A row's delete button (photos only): asks, then deletes the section's marked members and,
  // on success, takes the whole section off the list and rescans a second later.
  void deleteButtonTappedWithSender(kit::Object* sender);
  // Dismisses what is presented and starts the photo scan again.
  void popBack();

  // Queues reloadData of the table on the main queue.
  void reloadSections() override;

  // --- Listener operations (called on the scans' thread) ---
  void permissionResult(bool granted, const std::string& permissionName) override;
  void totalPhotosCount(std::int64_t count) override;
  void photoScanProgress(std::int64_t index) override;
  void photoSectionsChanged(const PhotoSections& sections) override;
  void photoScanFinished() override;
  void setSectionArray1(PhotoSections sections) override;
  void totalVideosCount(std::int64_t count) override;
  void setVideoSectionArray(VideoSections sections) override;
  void videoScanFinished() override;

  // --- Table ---
  int numberOfSectionsInTableView(kit::TableView&) override { return 1; }
  // The row pass: recounts the marks and drives the counters and panels on every reload, and
  // returns the number of sections.
  int numberOfRowsInSection(kit::TableView& tableView, int section) override;
  std::shared_ptr<kit::TableViewCell> cellForRowAtIndexPath(kit::TableView& tableView,
                                                            kit::IndexPath indexPath) override;
  std::optional<double> heightForRowAtIndexPath(kit::TableView&, kit::IndexPath) override { return 180.0; }

  // --- The strips (tag: the table row, so the section) ---
  int numberOfItemsInSection(kit::CollectionView& strip, int section) override;
  std::shared_ptr<kit::CollectionViewCell> cellForItemAtIndexPath(kit::CollectionView& strip,
                                                                  kit::IndexPath indexPath) override;
  // A tap on a thumbnail flips its member's mark and reloads its row. Always true.
  bool shouldSelectItemAtIndexPath(kit::CollectionView& strip, kit::IndexPath indexPath) override;

  // --- Named screen changes ---
  void showFindPrompt();
  void showPermissionText();
  void showNoAssets(const std::string& text, const std::string& title);
  void showNoDuplicates();
  void showResultCounters();
  void showResultPanels();

 private:
  bool isPhotos() const { return selectedtype == "Photos"; }
  // The sections of the current type, as (count, member lists).
  std::size_t sectionCount() const;
  void scanFinished(bool photos);
  void setupAnimation(kit::AnimationView& animation, const std::string& name, kit::View& holder);

  void finishCleaning();
  void deleteSection(std::size_t row);

  kit::AtomicShared<const std::vector<platform::AssetPtr>> selected_{
      std::make_shared<const std::vector<platform::AssetPtr>>()};
  // The rescan timer; the run loop owns it (and, through it, this screen) until it fires.
  std::weak_ptr<kit::Timer> popBackTimer_;
  kit::AtomicShared<const PhotoSections> photoSections_{std::make_shared<const PhotoSections>()};
  kit::AtomicShared<const VideoSections> videoSections_{std::make_shared<const VideoSections>()};
  // Sections whose thumbnails the image manager was asked to prepare. The scan's thread.
  std::atomic<std::size_t> photoSectionsPrepared_{0};
  std::atomic<std::size_t> videoSectionsPrepared_{0};
  // The counts of the row pass and of refreshSelectAllTitle, kept between reloads. Main queue.
  MarkTally<PhotoSections> photoTally_;
  MarkTally<VideoSections> videoTally_;
};

}  // namespace media
