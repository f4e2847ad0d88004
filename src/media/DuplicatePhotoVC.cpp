#include "media/DuplicatePhotoVC.h"

#include "ads/ADNetAdaptiveBannerAd.h"
#include "kit/AlertController.h"
#include "kit/Console.h"
#include "kit/NavigationController.h"
#include "kit/NotificationCenter.h"
#include "kit/ProgressHUD.h"
#include "kit/Toast.h"
#include "media/Scan.h"
#include "platform/Platform.h"
#include "shared/CollectionViewFlowLayOut.h"
#include "shared/AssetImages.h"
#include "shared/ViewHelpers.h"

namespace media {

// ---- Cells ----

PhotosTableViewCell::~PhotosTableViewCell() {
  if (collectionViewObserver) {
    if (auto strip = std::dynamic_pointer_cast<kit::CollectionView>(findOutlet("collectionView"))) {
      strip->removeObserver(collectionViewObserver);
    }
  }
}

void PhotosTableViewCell::awakeFromNib() {
  auto header = kit::make<kit::Label>();
  contentView().addSubview(header);
  registerOutlet("headerCell", header);
  auto cross = kit::make<kit::Button>();
  contentView().addSubview(cross);
  registerOutlet("crossSectionButton", cross);
  auto remove = kit::make<kit::Button>();
  remove->setImage(kit::Image::named("delete"), kit::kControlStateNormal);
  contentView().addSubview(remove);
  registerOutlet("sectionDelete", remove);
  auto strip = kit::make<kit::CollectionView>();
  strip->setFrame(kit::makeRect(0, 0, kit::Screen::mainBounds().width(), 140));
  contentView().addSubview(strip);
  registerOutlet("collectionView", strip);
  registerOutlet("collectionHeighContraint", std::make_shared<kit::LayoutConstraint>(140.0));

  // The strip's content size decides its height. The observer goes with the strip, which the
  // cell owns, so the raw pointers never outlive what they point to.
  auto* self = this;
  kit::CollectionView* observed = strip.get();
  collectionViewObserver = strip->addObserver([self, observed](std::string_view property) {
    if (property != "contentSize") return;
    observed->invalidateIntrinsicContentSize();
    self->collectionHeighContraint->setConstant(140.0);
    self->layoutIfNeeded();
  });
  strip->setCollectionViewLayout(std::make_shared<shared::CollectionViewFlowLayOut>());
}

void PhotosTableViewCell::layoutSubviews() {
  kit::TableViewCell::layoutSubviews();
  layoutIfNeeded();
}

void PhotosCollectionViewCell::awakeFromNib() {
  auto image = kit::make<kit::ImageView>();
  image->setCornerRadius(10);
  image->setClipsToBounds(true);
  image->setContentMode(kit::ContentMode::ScaleAspectFill);
  contentView().addSubview(image);
  registerOutlet("photosCollectionView", image);
  auto badge = kit::make<kit::ImageView>();
  badge->setImage(kit::Image::named("video"));
  contentView().addSubview(badge);
  registerOutlet("videoImage", badge);
  auto check = kit::make<kit::Button>();
  contentView().addSubview(check);
  registerOutlet("checkButton", check);
}

// ---- DuplicatePhotoVC ----

DuplicatePhotoVC::DuplicatePhotoVC() {
  registerAction("findDuplicateBtn", [this](kit::Object*) { findDuplicateBtn(); });
  registerAction("allowButtonAction", [this](kit::Object*) { allowButtonAction(); });
  registerAction("backButtonAction", [this](kit::Object*) { backButtonAction(); });
  registerAction("okBtnBtnAction", [this](kit::Object*) { okBtnBtnAction(); });
  registerAction("selectAllBtnAction", [this](kit::Object*) { selectAllBtnAction(); });
  registerAction("selectButtonTappedWithSender:", [this](kit::Object* sender) { selectButtonTappedWithSender(sender); });
  registerAction("selectedButtonWithSender:", [this](kit::Object* sender) { selectedButtonWithSender(sender); });
  registerAction("cleanButtonAction", [this](kit::Object*) { cleanButtonAction(); });
  registerAction("deleteButtonAction", [this](kit::Object*) { deleteButtonAction(); });
  registerAction("cancelBtnAction", [this](kit::Object*) { cancelBtnAction(); });
  registerAction("popUpCancel", [this](kit::Object*) { popUpCancel(); });
  registerAction("deleteButtonTappedWithSender:", [this](kit::Object* sender) { deleteButtonTappedWithSender(sender); });
}

void DuplicatePhotoVC::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  view().setBackgroundColor(kit::Color::white());

  auto heading = addOutlet<kit::Label>("headingLbl");
  heading->setText(std::string("Duplicates"));
  auto back = addOutlet<kit::Button>("backButton");
  back->setImage(kit::Image::named("back"), kit::kControlStateNormal);
  connect(*back, "backButtonAction");

  addOutlet<kit::TableView>("tableView");
  auto selectAll = addOutlet<kit::Button>("totalSelectBtn");
  selectAll->setTitle("Select All", kit::kControlStateNormal);
  connect(*selectAll, "selectAllBtnAction");
  addOutlet<kit::Label>("totalSelectedLbl")->setText(std::string("Selected"));
  addOutlet<kit::Label>("duplicatePhotoCount")->setText(std::string("0"));

  auto cleanBar = addOutlet<kit::View>("cleanButtonView");
  connect(*addOutlet<kit::Button>("cleanButton", cleanBar.get()), "cleanButtonAction");
  registerOutlet("cleanHeightConstraint", std::make_shared<kit::LayoutConstraint>(45.0));

  addOutlet<kit::ImageView>("noPhotoImageView");
  addOutlet<kit::Label>("duplicatetext");
  addOutlet<kit::Label>("noImageLabel")->setNumberOfLines(0);
  auto allow = addOutlet<kit::Button>("allowBtnOutlet");
  allow->setTitle("Allow Access", kit::kControlStateNormal);
  connect(*allow, "allowButtonAction");

  auto scanning = addOutlet<kit::View>("scanningView");
  addOutlet<kit::View>("animationImgView", scanning.get());
  addOutlet<kit::Label>("scanHeadLbl", scanning.get());
  addOutlet<kit::Label>("scanSubheadingLbl", scanning.get());
  addOutlet<kit::Label>("progressLbl", scanning.get());

  addOutlet<kit::View>("hideView")->setBackgroundColor(kit::Color{0, 0, 0, 0.4});
  auto find = addOutlet<kit::View>("findPhotoView");
  addOutlet<kit::Label>("cleanHeadLbl", find.get());
  addOutlet<kit::Label>("cleanSubheadingLbl", find.get())->setNumberOfLines(0);
  auto findButton = addOutlet<kit::Button>("findBtn", find.get());
  connect(*findButton, "findDuplicateBtn");

  auto popup = addOutlet<kit::View>("deletePopView");
  addOutlet<kit::View>("deleteImgView", popup.get());
  addOutlet<kit::Label>("deletePopTitle", popup.get())->setText(std::string("Delete the selected items?"));
  auto remove = addOutlet<kit::Button>("deleteButton", popup.get());
  remove->setTitle("Delete", kit::kControlStateNormal);
  connect(*remove, "deleteButtonAction");
  auto cancel = addOutlet<kit::Button>("cancelButton", popup.get());
  cancel->setTitle("Cancel", kit::kControlStateNormal);
  connect(*cancel, "cancelBtnAction");
  addOutlet<kit::Button>("deleteAll", popup.get());
  registerOutlet("popupHeightDeleteConstraint", std::make_shared<kit::LayoutConstraint>(200.0));
  registerOutlet("popupHeightConstraint", std::make_shared<kit::LayoutConstraint>(200.0));

  auto finished = addOutlet<kit::View>("adsView");
  addOutlet<kit::View>("animationImageView", finished.get());
  addOutlet<kit::Label>("cleanDataLbl", finished.get());
  auto ok = addOutlet<kit::Button>("okBtnOutlet", finished.get());
  ok->setTitle("OK", kit::kControlStateNormal);
  connect(*ok, "okBtnBtnAction");
  addOutlet<kit::View>("bannerAdsView");
  registerOutlet("bannerAdsViewHeight", std::make_shared<kit::LayoutConstraint>(0.0));

  tableView->registerCell(PhotosTableViewCell::kReuseIdentifier, [] { return kit::make<PhotosTableViewCell>(); });
}

void DuplicatePhotoVC::setupAnimation(kit::AnimationView& animation, const std::string& name, kit::View& holder) {
  animation.setAnimationName(name);
  animation.setContentMode(kit::ContentMode::ScaleToFill);
  animation.setLoopMode(kit::LoopMode::Loop);
  animation.setFrame(holder.bounds());
  holder.addSubview(std::static_pointer_cast<kit::View>(animation.shared_from_this()));
  animation.play();
}

void DuplicatePhotoVC::viewDidLoad() {
  auto self = sharedAs<DuplicatePhotoVC>();
  tableView->setDelegate(self);
  tableView->setDataSource(self);
  tableView->setSeparatorStyle(0);

  noImageLabel->setHidden(true);
  duplicatetext->setHidden(true);
  noPhotoImageView->setHidden(true);

  kit::mainQueue().async([self] { self->reloadSections(); });

  platform::application().setIdleTimerDisabled(true);

  cleanButton->setEnabled(false);
  cleanButton->setTitle("Finding Duplicates..", kit::kControlStateNormal);

  scanningView->setHidden(true);
  deletePopView->setHidden(true);
  cleanButtonView->setHidden(true);
  cleanHeightConstraint->setConstant(0);
  totalSelectedLbl->setHidden(true);
  duplicatePhotoCount->setHidden(true);
  adsView->setHidden(true);

  scanHeadLbl->setText(std::string("Scanning....please wait"));
  scanSubheadingLbl->setText(std::string("We are onto it, please be patient."));

  totalSelectBtn->setCornerRadius(10);
  totalSelectBtn->setBorderWidth(1);
  totalSelectBtn->setBorderColor(shared::colorFromHex("#2485EF"));

  kit::mainQueue().async([self] { self->setupAnimation(*self->animationView, "scan", *self->animationImgView); });
  setupAnimation(*animationSecondView, "clean", *animationImageView);
  setupAnimation(*animationThirdView, "delete", *deleteImgView);

  if (shared::checkPhotoPermission()) {
    findPhotoView->setHidden(false);
    hideView->setHidden(false);
    allowBtnOutlet->setHidden(true);
  } else {
    cleanButtonView->setHidden(true);
    cleanHeightConstraint->setConstant(0);
    findPhotoView->setHidden(true);
    hideView->setHidden(true);
    duplicatetext->setHidden(false);
    noImageLabel->setHidden(false);
    noPhotoImageView->setHidden(false);
    totalSelectBtn->setHidden(true);
    totalSelectedLbl->setHidden(true);
    duplicatePhotoCount->setHidden(true);
    showPermissionText();
    allowBtnOutlet->setHidden(false);
  }
}

void DuplicatePhotoVC::viewWillAppear(bool) {
  auto self = sharedAs<DuplicatePhotoVC>();
  PhotosCallBack::shared()->itemdelegates.store(self);
  shared::PhotosPermissionCallback::shared()->itemdelegates.store(self);
  VideosCallBackListner::shared()->itemdelegates.store(self);

  kit::mainQueue().async([self] { self->reloadSections(); });

  cancelButton->setBorderColor(shared::colorFromHex("525252"));
  cancelButton->setBorderWidth(1);

  ads::ADNetAdaptiveBannerAd::shared()->loadBanner(self, bannerAdsView.shared(), bannerAdsViewHeight.shared());

  cleanHeadLbl->setText(std::string("Let's Begin"));
  if (isPhotos()) {
    cleanSubheadingLbl->setText(std::string(
        "This feature will go through your gallery to pick duplicate photos. Don't worry it won't delete "
        "before your confirmation"));
    findBtn->setTitle("Find Duplicate Photos", kit::kControlStateNormal);
  } else {
    cleanSubheadingLbl->setText(std::string(
        "This feature will go through your gallery to pick duplicate Videos. Don't worry it won't delete "
        "before your confirmation."));
    findBtn->setTitle("Find Duplicate Videos", kit::kControlStateNormal);
  }
}

void DuplicatePhotoVC::viewDidAppear(bool) { kit::NotificationCenter::defaultCenter().removeObserver(this); }

void DuplicatePhotoVC::reloadSections() {
  auto self = sharedAs<DuplicatePhotoVC>();
  kit::mainQueue().async([self] { self->tableView->reloadData(); });
}

// ---- Actions ----

void DuplicatePhotoVC::findDuplicateBtn() {
  findPhotoView->setHidden(true);
  scanningView->setHidden(false);
  hideView->setHidden(true);
  int type = isPhotos() ? 1 : 2;
  dateFromDayString("");
  dateFromDayString("");
  startScan(type);
}

void DuplicatePhotoVC::allowButtonAction() {
  if (shared::checkPhotoPermission()) {
    findPhotoView->setHidden(false);
    hideView->setHidden(false);
    allowBtnOutlet->setHidden(true);
    noImageLabel->setHidden(true);
    duplicatetext->setHidden(true);
    noPhotoImageView->setHidden(true);
    return;
  }
  std::string url = platform::kOpenSettingsURLString;
  if (url.empty()) return;
  platform::application().openURL(url, {}, nullptr);
}

void DuplicatePhotoVC::backButtonAction() {
  if (auto* nav = navigationController()) nav->popViewControllerAnimated(false);
}

void DuplicatePhotoVC::okBtnBtnAction() {
  if (auto* nav = navigationController()) nav->popViewControllerAnimated(false);
}

// ---- Named screen changes ----

void DuplicatePhotoVC::showFindPrompt() {
  findPhotoView->setHidden(false);
  hideView->setHidden(false);
  allowBtnOutlet->setHidden(true);
  noImageLabel->setHidden(true);
  duplicatetext->setHidden(true);
  noPhotoImageView->setHidden(true);
}

void DuplicatePhotoVC::showPermissionText() {
  duplicatetext->setText(std::string("Permission Needed"));
  noImageLabel->setText(std::string(
      "Allow this feature to access all photos in your gallery in order to find all duplicate photos hidden "
      "inside your iPhone."));
  noPhotoImageView->setImage(kit::Image::named("permission"));
}

void DuplicatePhotoVC::showNoAssets(const std::string& text, const std::string& title) {
  cleanButtonView->setHidden(true);
  cleanHeightConstraint->setConstant(0);
  cleanButton->setHidden(true);
  noImageLabel->setText(text);
  duplicatetext->setText(title);
  noPhotoImageView->setHidden(false);
  tableView->setHidden(true);
  scanningView->setHidden(true);
  totalSelectBtn->setHidden(true);
  totalSelectedLbl->setHidden(true);
  duplicatePhotoCount->setHidden(true);
  noImageLabel->setHidden(false);
  allowBtnOutlet->setHidden(true);
}

void DuplicatePhotoVC::showNoDuplicates() {
  noImageLabel->setHidden(false);
  duplicatetext->setHidden(false);
  noPhotoImageView->setHidden(false);
  totalSelectBtn->setHidden(true);
  totalSelectedLbl->setHidden(true);
  duplicatePhotoCount->setHidden(true);
}

void DuplicatePhotoVC::showResultCounters() {
  totalSelectBtn->setHidden(false);
  totalSelectedLbl->setHidden(false);
  duplicatePhotoCount->setHidden(false);
}

void DuplicatePhotoVC::showResultPanels() {
  cleanButton->setEnabled(true);
  tableView->setHidden(false);
  cleanButtonView->setHidden(false);
  cleanHeightConstraint->setConstant(45);
  scanningView->setHidden(true);
}

// ---- Listener operations ----

void DuplicatePhotoVC::permissionResult(bool granted, const std::string&) {
  auto self = sharedAs<DuplicatePhotoVC>();
  kit::mainQueue().async([self, granted] {
    if (granted) self->showFindPrompt();
    else self->showPermissionText();
  });
}

void DuplicatePhotoVC::totalPhotosCount(std::int64_t count) {
  totalImageCount = count;
  auto self = sharedAs<DuplicatePhotoVC>();
  if (count == 0) kit::mainQueue().async([self] { self->headingLbl->setText(std::string("Duplicate Photo")); });
  if (count <= 0) {
    kit::mainQueue().async([self] { self->showNoAssets(self->noImageFoundText, self->duplicatePhotos); });
  }
}

void DuplicatePhotoVC::totalVideosCount(std::int64_t count) {
  auto self = sharedAs<DuplicatePhotoVC>();
  if (count == 0) kit::mainQueue().async([self] { self->headingLbl->setText(std::string("Duplicate Video")); });
  if (count <= 0) {
    kit::mainQueue().async([self] { self->showNoAssets(self->noVideoFoundText, self->duplicateVideos); });
  }
}

void DuplicatePhotoVC::photoScanProgress(std::int64_t index) {
  kit::printLine("progress" + std::to_string(index));
  auto self = sharedAs<DuplicatePhotoVC>();
  kit::mainQueue().async([self, index] {
    self->progressLbl->setText(std::to_string(index) + "/" + std::to_string(self->totalImageCount.load()));
  });
}

namespace {

// Asks the image manager to prepare the thumbnails of the sections after the first `prepared`
// (they come one by one, and rows show them soon after); `prepared` moves to the end.
template <class Sections>
void prepareThumbnails(const Sections& sections, std::atomic<std::size_t>& prepared) {
  std::size_t from = prepared.load();
  if (from > sections.size()) from = 0;  // a new list
  std::vector<platform::AssetPtr> assets;
  for (std::size_t i = from; i < sections.size(); ++i) {
    for (const auto& member : sections[i]->image) assets.push_back(member->imagePath);
  }
  prepared = sections.size();
  if (!assets.empty()) {
    platform::imageManager().startCachingImagesForAssets(assets, shared::kThumbnailSize,
                                                         platform::kImageContentModeAspectFit);
  }
}

}  // namespace

void DuplicatePhotoVC::photoSectionsChanged(const PhotoSections& sections) {
  prepareThumbnails(sections, photoSectionsPrepared_);
  std::weak_ptr<DuplicatePhotoVC> weak = sharedAs<DuplicatePhotoVC>();
  kit::mainQueue().async([weak, sections] {
    if (auto self = weak.lock()) {
      self->setSectionArray1(sections);
      self->reloadSections();
    }
  });
}

void DuplicatePhotoVC::setSectionArray1(PhotoSections sections) {
  photoSections_.store(std::make_shared<const PhotoSections>(std::move(sections)));
}

void DuplicatePhotoVC::setVideoSectionArray(VideoSections sections) {
  prepareThumbnails(sections, videoSectionsPrepared_);
  videoSections_.store(std::make_shared<const VideoSections>(std::move(sections)));
}

void DuplicatePhotoVC::photoScanFinished() { scanFinished(/*photos=*/true); }

void DuplicatePhotoVC::videoScanFinished() { scanFinished(/*photos=*/false); }

// Both finished events: the count of the event's own list (sectionArray1 for photos,
// videoSectionArray for videos, whatever the screen's type) is read here, on the scan's
// thread, so sections still queued for the main thread are not in it.
void DuplicatePhotoVC::scanFinished(bool photos) {
  auto self = sharedAs<DuplicatePhotoVC>();
  kit::mainQueue().async([] { kit::ProgressHUD::shared().dismiss(); });
  std::size_t count = photos ? photoSections_.load()->size() : videoSections_.load()->size();
  kit::mainQueue().async([self, count] {
    if (count == 0) self->showNoDuplicates();
    else self->showResultCounters();
  });
  kit::mainQueue().async([self] { self->showResultPanels(); });
}

std::size_t DuplicatePhotoVC::sectionCount() const {
  return isPhotos() ? photoSections_.load()->size() : videoSections_.load()->size();
}

// ---- Table ----

namespace {

// The walk of the row pass over `sections`: the running count of marked members goes into the
// counter and the clean button's title after each section, and every member that is not the
// best photo is listed. Only the last section's writes can be seen (nothing runs between them),
// so the counts come from `tally` and are written once. Returns the number listed.
template <class Sections, class Tally>
std::size_t countMarks(const Sections& sections, Tally& tally, bool isAutoSelect, kit::Label& count,
                       kit::Button& clean, const char* titlePrefix) {
  auto sums = tally.sums(sections);
  if (!sections.empty()) {
    count.setText(std::to_string(sums.selected));
    clean.setTitle(std::string(titlePrefix) + std::to_string(sums.selected) + ")", kit::kControlStateNormal);
  }
  return isAutoSelect ? sums.listed : 0;
}

}  // namespace

int DuplicatePhotoVC::numberOfRowsInSection(kit::TableView&, int) {
  const bool photos = isPhotos();
  auto photoSections = photoSections_.load();
  auto videoSections = videoSections_.load();
  std::size_t count = photos ? photoSections->size() : videoSections->size();
  if (count > 0) {
    cleanButton->setHidden(false);
    noImageLabel->setHidden(true);
    duplicatetext->setHidden(true);
    noPhotoImageView->setHidden(true);
    std::size_t listed = photos ? countMarks(*photoSections, photoTally_, isAutoSelect, *duplicatePhotoCount,
                                             *cleanButton, "Free up Space (")
                                : countMarks(*videoSections, videoTally_, isAutoSelect, *duplicatePhotoCount,
                                             *cleanButton, "Free up space (");
    totalImageCount = static_cast<std::int64_t>(listed);
    totalPhotoSize = 0.0f;
    return static_cast<int>(count);
  }

  bool access = shared::checkPhotoPermission();
  if (access) {
    noImageLabel->setText(photos ? noImageFoundText : noVideoFoundText);
    duplicatetext->setText(photos ? duplicatePhotos : duplicateVideos);
  } else {
    duplicatetext->setText(std::string("Permission Needed"));
    noImageLabel->setText(std::string(
        photos ? "Please allow us permission to scan all photos and videos present in the device"
               : "Allow this feature to access all photos in your gallery in order to find all duplicate photos "
                 "hidden inside your iPhone."));
    noPhotoImageView->setImage(kit::Image::named("permission"));
  }
  cleanButtonView->setHidden(true);
  cleanHeightConstraint->setConstant(0);
  cleanButton->setHidden(true);
  headingLbl->setText(std::string(photos ? "Duplicate Photo" : "Duplicate Video"));
  scanningView->setHidden(true);
  tableView->setHidden(true);
  totalSelectBtn->setHidden(true);
  if (access) {
    totalSelectedLbl->setHidden(true);
    duplicatePhotoCount->setHidden(true);
  }
  return 0;
}

namespace {

// The member `item` of the section at `row`; out of range is a fatal error.
template <class Sections>
const auto& memberAt(const Sections& sections, std::size_t row, long item) {
  const auto& members = sections[row]->image;
  if (item < 0 || static_cast<std::size_t>(item) >= members.size()) {
    kit::fatal("member " + std::to_string(item) + " out of range of " + std::to_string(members.size()));
  }
  return members[static_cast<std::size_t>(item)];
}

template <class Members>
std::size_t countSelected(const Members& members) {
  std::size_t n = 0;
  for (const auto& m : members) n += m->isSelected ? 1 : 0;
  return n;
}

void setCheck(kit::Button& button, bool checked) {
  button.setSelected(checked);
  button.setImage(kit::Image::named(checked ? "check" : "uncheck"), kit::kControlStateNormal);
}

}  // namespace

std::shared_ptr<kit::TableViewCell> DuplicatePhotoVC::cellForRowAtIndexPath(kit::TableView& table,
                                                                          kit::IndexPath indexPath) {
  auto cell = table.dequeueReusableCellWithIdentifier(PhotosTableViewCell::kReuseIdentifier, indexPath);
  auto row = std::dynamic_pointer_cast<PhotosTableViewCell>(cell);
  if (!row) kit::fatal("Could not cast value of type TableViewCell to PhotosTableViewCell");
  auto configure = [&](const auto& sections, auto& scratch) {
    if (indexPath.row < 0 || static_cast<std::size_t>(indexPath.row) >= sections.size()) return;
    const auto& members = sections[static_cast<std::size_t>(indexPath.row)]->image;
    std::size_t n = countSelected(members);
    row->headerCell->setText("Selected: " + std::to_string(n));
    kit::CollectionView& strip = *row->collectionView;
    auto self = sharedAs<DuplicatePhotoVC>();
    strip.setDataSource(std::static_pointer_cast<kit::CollectionViewDataSource>(self));
    strip.setDelegate(std::static_pointer_cast<kit::CollectionViewDelegate>(self));
    strip.setTag(indexPath.row);
    setCheck(*row->crossSectionButton, n == members.size());
    strip.registerCell(PhotosCollectionViewCell::kReuseIdentifier, [] { return kit::make<PhotosCollectionViewCell>(); });
    strip.setAllowsMultipleSelection(true);
    connect(*row->sectionDelete, "deleteButtonTappedWithSender:");
    connect(*row->crossSectionButton, "selectButtonTappedWithSender:");
    scratch = members;
    strip.reloadData();
    strip.layoutIfNeeded();
  };
  if (isPhotos()) configure(*photoSections_.load(), collectionArray);
  else configure(*videoSections_.load(), collectionVideoArray);
  return cell;
}

int DuplicatePhotoVC::numberOfItemsInSection(kit::CollectionView& strip, int) {
  auto count = [&](const auto& sections) { return static_cast<int>(sections[static_cast<std::size_t>(strip.tag())]->image.size()); };
  return isPhotos() ? count(*photoSections_.load()) : count(*videoSections_.load());
}

std::shared_ptr<kit::CollectionViewCell> DuplicatePhotoVC::cellForItemAtIndexPath(kit::CollectionView& strip,
                                                                                kit::IndexPath indexPath) {
  auto cell = strip.dequeueReusableCellWithReuseIdentifier(PhotosCollectionViewCell::kReuseIdentifier, indexPath);
  auto thumb = std::dynamic_pointer_cast<PhotosCollectionViewCell>(cell);
  if (!thumb) kit::fatal("Could not cast value of type CollectionViewCell to PhotosCollectionViewCell");
  const bool photos = isPhotos();
  const std::size_t scratchSize = photos ? collectionArray.size() : collectionVideoArray.size();
  const long item = indexPath.item();
  if (item < 0 || static_cast<std::size_t>(item) >= scratchSize) return cell;

  // The thumbnail comes later, in a block that finds its member in the sections (not in the
  // scratch list) and waits for the image.
  auto self = sharedAs<DuplicatePhotoVC>();
  const std::size_t row = static_cast<std::size_t>(strip.tag());
  kit::mainQueue().async([self, thumb, row, item, photos] {
    platform::AssetPtr asset = photos ? memberAt(*self->photoSections_.load(), row, item)->imagePath
                                      : memberAt(*self->videoSections_.load(), row, item)->imagePath;
    thumb->photosCollectionView->setImage(shared::thumbnailForAsset(asset));
  });
  thumb->videoImage->setHidden(photos);
  refreshSelectAllTitle();
  connect(*thumb->checkButton, "selectedButtonWithSender:");
  if (isAutoSelect && scratchSize > 0) {
    bool selected = photos ? collectionArray[static_cast<std::size_t>(item)]->isSelected.load()
                           : collectionVideoArray[static_cast<std::size_t>(item)]->isSelected.load();
    setCheck(*thumb->checkButton, selected);
  }
  return cell;
}

bool DuplicatePhotoVC::shouldSelectItemAtIndexPath(kit::CollectionView& strip, kit::IndexPath indexPath) {
  const bool photos = isPhotos();
  const std::size_t row = static_cast<std::size_t>(strip.tag());
  auto flip = [&](const auto& sections, std::size_t scratchSize) {
    const auto& member = memberAt(sections, row, indexPath.item());
    if (indexPath.item() < 0 || static_cast<std::size_t>(indexPath.item()) >= scratchSize) return;
    member->isSelected = !member->isSelected;
    tableView->reloadRowsAtIndexPaths({{0, strip.tag()}});
  };
  if (photos) flip(*photoSections_.load(), collectionArray.size());
  else flip(*videoSections_.load(), collectionVideoArray.size());
  return true;
}

void DuplicatePhotoVC::refreshSelectAllTitle() {
  auto sums = isPhotos() ? photoTally_.sums(*photoSections_.load()) : videoTally_.sums(*videoSections_.load());
  const std::size_t all = sums.members, selected = sums.selected;
  if (all != selected) {
    totalSelectBtn->setTitle("Select All", kit::kControlStateNormal);
    return;
  }
  cleanButtonView->setHidden(false);
  cleanHeightConstraint->setConstant(45);
  totalSelectBtn->setTitle("Deselect All", kit::kControlStateNormal);
}

void DuplicatePhotoVC::selectAllBtnAction() {
  bool clear = totalSelectBtn->title(kit::kControlStateNormal) == "Deselect All";
  totalSelectBtn->setTitle(clear ? "Select All" : "Deselect All", kit::kControlStateNormal);
  auto mark = [clear](const auto& sections) {
    for (const auto& section : sections) {
      for (const auto& member : section->image) member->isSelected = !clear;
    }
  };
  if (isPhotos()) mark(*photoSections_.load());
  else mark(*videoSections_.load());
  tableView->reloadData();
}

void DuplicatePhotoVC::selectButtonTappedWithSender(kit::Object* sender) {
  auto* button = dynamic_cast<kit::View*>(sender);
  if (!button || !button->superview()) return;
  auto* row = dynamic_cast<PhotosTableViewCell*>(button->superview()->superview());
  if (!row) return;
  if (!tableView->indexPathForCell(*row)) return;
  const bool clear = row->crossSectionButton->isSelected();
  const std::size_t section = static_cast<std::size_t>(row->collectionView->tag());
  auto mark = [&](const auto& sections) {
    for (const auto& member : sections[section]->image) member->isSelected = !clear;
  };
  if (isPhotos()) mark(*photoSections_.load());
  else mark(*videoSections_.load());
  tableView->reloadRowsAtIndexPaths({{0, row->collectionView->tag()}});
}

void DuplicatePhotoVC::selectedButtonWithSender(kit::Object*) {}

// ---- Deletion ----

namespace {

std::string twoDecimals(float value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", static_cast<double>(value));
  return text;
}

}  // namespace

void DuplicatePhotoVC::cleanButtonAction() {
  std::optional<std::string> title = cleanButton->currentTitle();
  if (title && title->find("(0)") != std::string::npos) {
    kit::makeToast(view(), "Please select an item");
    return;
  }
  popupHeightDeleteConstraint->setConstant(200);
  if (sectionCount() > 0) {
    hideView->setHidden(false);
    deletePopView->setHidden(false);
  } else {
    cleanButton->setUserInteractionEnabled(false);
  }
}

void DuplicatePhotoVC::cancelBtnAction() {
  cleanButtonView->setHidden(false);
  cleanHeightConstraint->setConstant(45);
  hideView->setHidden(true);
  deletePopView->setHidden(true);
}

void DuplicatePhotoVC::popUpCancel() { cleanButton->setHidden(false); }

void DuplicatePhotoVC::deleteButtonAction() {
  hideView->setHidden(true);
  deletePopView->setHidden(true);
  popupHeightConstraint->setConstant(200);
  const bool photos = isPhotos();
  if (sectionCount() == 0) {
    kit::makeToast(view(), photos ? "No Duplicate Photos Found" : "No Duplicate Video Found");
    cleanButtonView->setHidden(true);
    cleanHeightConstraint->setConstant(0);
    cleanButton->setHidden(true);
    return;
  }
  auto collect = [this](const auto& sections) {
    selected_.update([&](const std::shared_ptr<const std::vector<platform::AssetPtr>>& old) {
      auto next = std::make_shared<std::vector<platform::AssetPtr>>(*old);
      for (const auto& section : sections) {
        if (countSelected(section->image) == 0) continue;
        for (const auto& member : section->image) {
          if (member->isSelected) next->push_back(member->imagePath);
        }
      }
      return std::shared_ptr<const std::vector<platform::AssetPtr>>(std::move(next));
    });
  };
  if (photos) collect(*photoSections_.load());
  else collect(*videoSections_.load());

  auto self = sharedAs<DuplicatePhotoVC>();
  platform::photoLibrary().performChanges(
      [self](platform::ChangeRequest& request) { request.deleteAssets(*self->selected_.load()); },
      [self](bool success, std::optional<platform::Error>) {
        if (!success) return;
        kit::mainQueue().async([self] { self->finishCleaning(); });
      });
}

void DuplicatePhotoVC::finishCleaning() {
  tableView->setHidden(true);
  totalSelectBtn->setHidden(true);
  totalSelectedLbl->setHidden(true);
  duplicatePhotoCount->setHidden(true);
  if (isPhotos()) setSectionArray1({});
  else setVideoSectionArray({});
  cleanButtonView->setHidden(true);
  cleanHeightConstraint->setConstant(0);
  clearedDatainMb = twoDecimals(totalPhotoSize);
  cleanDataLbl->setText(std::string("Congratulations! We are done."));
  hideView->setHidden(false);
  adsView->setHidden(false);
  cleanButtonView->setHidden(true);
  cleanHeightConstraint->setConstant(0);
}

void DuplicatePhotoVC::deleteButtonTappedWithSender(kit::Object* sender) {
  if (!isPhotos()) return;
  // The row under the button's top-left corner.
  auto* button = dynamic_cast<kit::View*>(sender);
  if (!button) return;
  std::optional<kit::IndexPath> path =
      tableView->indexPathForRowAtPoint(button->convertPoint({0, 0}, &*tableView));
  if (!path) return;
  PhotoSections sections = sectionArray1();
  if (sections.empty()) {
    kit::makeToast(view(), "No Duplicate Photos Deleted");
    return;
  }
  const std::size_t row = static_cast<std::size_t>(path->row);
  std::size_t n = countSelected(sections[row]->image);
  if (n == 0) return;
  auto alert = kit::AlertController::make(
      "Delete Duplicate Media",
      "Are you sure you want to delete " + std::to_string(n) + " " +
          "Media. You will not be able to restore them in the future.",
      kit::AlertStyle::Alert);
  std::weak_ptr<kit::AlertController> weakAlert = alert;
  alert->addAction(std::make_shared<kit::AlertAction>("No", kit::AlertActionStyle::Default, [weakAlert](kit::AlertAction&) {
    if (auto a = weakAlert.lock()) a->dismissViewControllerAnimated(true);
  }));
  auto self = sharedAs<DuplicatePhotoVC>();
  alert->addAction(std::make_shared<kit::AlertAction>("Yes", kit::AlertActionStyle::Default,
                                                      [self, row](kit::AlertAction&) { self->deleteSection(row); }));
  presentViewController(alert, true);
}

void DuplicatePhotoVC::deleteSection(std::size_t row) {
  std::vector<platform::AssetPtr> assets;
  for (const auto& member : sectionArray1()[row]->image) {
    if (isAutoSelect && !member->isBestPhoto && member->isSelected) assets.push_back(member->imagePath);
  }
  auto self = sharedAs<DuplicatePhotoVC>();
  platform::photoLibrary().performChanges(
      [assets](platform::ChangeRequest& request) { request.deleteAssets(assets); },
      [self, row](bool success, std::optional<platform::Error>) {
        if (!success) return;
        kit::mainQueue().async([self, row] {
          // The whole section leaves the list, its kept members too.
          PhotoSections remaining = self->sectionArray1();
          remaining.removeAt(row);
          self->setSectionArray1(std::move(remaining));
          self->reloadSections();
          kit::ToastManager::shared().makeToast(self->view(), std::string("Deleted Successfully"), 3.0,
                                                kit::ToastPosition::Bottom);
          // The timer keeps its target alive until it fires, as the platform's timers do, so
          // the rescan comes even when another screen has taken the slots meanwhile.
          auto target = std::make_shared<std::shared_ptr<DuplicatePhotoVC>>(self);
          self->popBackTimer_ = kit::scheduledTimer(1.0, false, [target](kit::Timer&) {
            std::shared_ptr<DuplicatePhotoVC> screen = std::move(*target);
            if (screen) screen->popBack();
          });
          self->clearedDatainMb = twoDecimals(self->totalPhotoSize);
        });
      });
}

void DuplicatePhotoVC::popBack() {
  dismissViewControllerAnimated(false);
  kit::mainQueue().async([] { kit::ProgressHUD::shared().show(); });
  dateFromDayString("");
  dateFromDayString("");
  startScan(1);
  if (sectionArray1().empty()) {
    auto self = sharedAs<DuplicatePhotoVC>();
    kit::mainQueue().async([self] {
      self->noImageLabel->setHidden(false);
      self->duplicatetext->setHidden(false);
      self->noPhotoImageView->setHidden(false);
    });
  }
}

}  // namespace media
