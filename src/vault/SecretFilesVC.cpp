#include "vault/SecretFilesVC.h"

#include <algorithm>
#include <cmath>

#include "ads/ADNetAdaptiveBannerAd.h"
#include "ads/Interstitial.h"
#include "kit/AlertController.h"
#include "kit/Console.h"
#include "kit/Dispatch.h"
#include "kit/Fatal.h"
#include "kit/GestureRecognizer.h"
#include "kit/NavigationController.h"
#include "kit/ProgressHUD.h"
#include "kit/Storyboard.h"
#include "kit/Toast.h"
#include "platform/Platform.h"
#include "shared/AssetImages.h"
#include "shared/CollectionViewFlowLayOut.h"
#include "shared/PhotoPermission.h"
#include "shared/PreferenceKeys.h"
#include "shared/ViewHelpers.h"
#include "shell/Feedback.h"
#include "vault/ImagePreviewVC.h"
#include "vault/SecretDataViewController.h"
#include "vault/SecurityQuestionVC.h"

namespace vault {

namespace {

kit::Storyboard& storyboardOf(kit::ViewController& vc) {
  if (!vc.storyboard()) kit::fatal("Unexpectedly found nil while unwrapping the storyboard of " + vc.storyboardIdentifier());
  return *vc.storyboard();
}

std::string describeError(const platform::Error& e) { return platform::describe(e); }

}  // namespace

// ---- SecretDataCell ----

void SecretDataCell::awakeFromNib() {
  auto thumb = kit::make<kit::ImageView>();
  thumb->setClipsToBounds(true);
  thumb->setContentMode(kit::ContentMode::ScaleAspectFill);
  thumb->setUserInteractionEnabled(true);
  auto press = std::make_shared<kit::LongPressGestureRecognizer>();
  press->setMinimumPressDuration(0.2);
  press->addTarget([this](kit::GestureRecognizer& g) {
    if (onLongPress) onLongPress(g.state());
  });
  thumb->addGestureRecognizer(press);
  contentView().addSubview(thumb);
  registerOutlet("thumbNailImage", thumb);
  auto check = kit::make<kit::ImageView>();
  check->setHidden(true);
  contentView().addSubview(check);
  registerOutlet("selectedImage", check);
  auto mark = kit::make<kit::View>();
  contentView().addSubview(mark);
  registerOutlet("itemTypeView", mark);
  auto play = kit::make<kit::ImageView>();
  play->setImage(kit::Image::named("play"));
  mark->addSubview(play);
  registerOutlet("playPauseImageView", play);
  auto audio = kit::make<kit::ImageView>();
  mark->addSubview(audio);
  registerOutlet("audioPlayImageView", audio);
}

void SecretDataCell::prepareForReuse() {
  loading_.clear();
  thumbNailImage->setImage(nullptr);
}

void SecretDataCell::loadImageFromURL(const std::string& fileUrl) {
  loading_ = fileUrl;
  std::weak_ptr<SecretDataCell> weak = std::static_pointer_cast<SecretDataCell>(shared_from_this());
  kit::globalQueue(kit::QoS::UserInitiated).async([weak, fileUrl] {
    auto path = platform::pathOfFileURL(fileUrl);
    kit::ImagePtr image = path ? platform::imageCodec().imageWithContentsOfFile(*path) : nullptr;
    kit::mainQueue().async([weak, fileUrl, image] {
      auto cell = weak.lock();
      if (cell && cell->loading_ == fileUrl && image) cell->thumbNailImage->setImage(image);
    });
  });
}

// ---- ImagePickerController ----

ImagePickerController::ImagePickerController() { setStoryboardOrigin(nullptr, "UIImagePickerController"); }

void ImagePickerController::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  addOutlet<kit::Label>("cameraLbl")->setText(std::string("Camera"));
}

void ImagePickerController::viewDidAppear(bool) {
  if (open_) return;
  open_ = true;
  std::weak_ptr<ImagePickerController> weak = sharedAs<ImagePickerController>();
  platform::camera().capture([weak](platform::CaptureResult result) {
    auto self = weak.lock();
    if (!self || !self->open_) return;
    self->open_ = false;
    if (self->didFinishPickingMediaWithInfo) self->didFinishPickingMediaWithInfo(*self, result);
  });
}

void ImagePickerController::viewWillDisappear(bool) {
  if (open_) {
    open_ = false;
    platform::camera().cancel();
  }
}

// ---- SecretFilesVC ----

SecretFilesVC::SecretFilesVC() {
  registerAction("openChooser:", [this](kit::Object*) { openChooser(); });
  registerAction("closeDialog:", [this](kit::Object*) { closeDialog(); });
  registerAction("openCamera:", [this](kit::Object*) { openCamera(); });
  registerAction("openGallery:", [this](kit::Object*) { openGallery(); });
  registerAction("selectAllItem:", [this](kit::Object*) { toggleSelectAll(); });
  registerAction("deleteData:", [this](kit::Object*) { confirmDeleteFiles(); });
  registerAction("shareData:", [this](kit::Object*) { shareSelectedFiles(); });
  registerAction("closeBtn:", [this](kit::Object*) { closeBtn(); });
  registerAction("backBtn:", [this](kit::Object*) { backBtn(); });
  registerAction("openSecurityPage:", [this](kit::Object*) { openSecurityPage(); });
}

void SecretFilesVC::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  auto back = addOutlet<kit::Button>("backButton");
  back->setImage(kit::Image::named("back"), kit::kControlStateNormal);
  connect(*back, "backBtn:");
  addOutlet<kit::Label>("titleLbl")->setText(std::string("Secret Files"));
  auto security = addOutlet<kit::Button>("securityButton");
  security->setTitle(std::string("Security"), kit::kControlStateNormal);
  connect(*security, "openSecurityPage:");
  addOutlet<kit::Label>("totalLbl")->setText(std::string("Total : 0"));
  addOutlet<kit::Label>("selectedLbl")->setText(std::string("Selected : 0"));
  auto all = addOutlet<kit::Button>("selectAllBtn");
  all->setTitle(std::string("Select All"), kit::kControlStateNormal);
  connect(*all, "selectAllItem:");
  auto grid = addOutlet<kit::CollectionView>("galleryCollectionView");
  grid->setFrame(kit::Rect{{0, 120}, {view().frame().width(), view().frame().height() - 260}});
  grid->registerCell(SecretDataCell::kReuseIdentifier, [] { return kit::make<SecretDataCell>(); });
  addOutlet<kit::ImageView>("noFileImage")->setImage(kit::Image::named("nofile"));
  addOutlet<kit::Label>("nofileLbl")->setText(std::string("No Files Found"));
  addOutlet<kit::Label>("addNewLbl")->setText(std::string("Tap + to hide photos and videos"));
  auto add = addOutlet<kit::Button>("addNewBtn");
  add->setTitle(std::string("Add New"), kit::kControlStateNormal);
  connect(*add, "openChooser:");

  auto options = addOutlet<kit::View>("optionView");
  auto del = addOutlet<kit::Button>("deleteButton", options.get());
  del->setTitle(std::string("Delete"), kit::kControlStateNormal);
  connect(*del, "deleteData:");
  auto share = addOutlet<kit::Button>("shareButton", options.get());
  share->setTitle(std::string("Share"), kit::kControlStateNormal);
  connect(*share, "shareData:");
  auto close = addOutlet<kit::Button>("closeOptionButton", options.get());
  close->setImage(kit::Image::named("close"), kit::kControlStateNormal);
  connect(*close, "closeBtn:");

  auto chooser = addOutlet<kit::View>("customDialogView");
  chooser->setHidden(true);
  addOutlet<kit::Label>("chooserLbl", chooser.get())->setText(std::string("Add From"));
  auto camera = addOutlet<kit::Button>("cameraButton", chooser.get());
  camera->setTitle(std::string("Camera"), kit::kControlStateNormal);
  connect(*camera, "openCamera:");
  auto gallery = addOutlet<kit::Button>("galleryButton", chooser.get());
  gallery->setTitle(std::string("Gallery"), kit::kControlStateNormal);
  connect(*gallery, "openGallery:");
  auto dismiss = addOutlet<kit::Button>("closeDialogButton", chooser.get());
  dismiss->setImage(kit::Image::named("close"), kit::kControlStateNormal);
  connect(*dismiss, "closeDialog:");

  addOutlet<kit::View>("adsView");
  registerOutlet("adHeightConstraint", std::make_shared<kit::LayoutConstraint>(0.0));
}

void SecretFilesVC::viewDidLoad() {
  optionView->setHidden(true);
  selectAllBtn->setHidden(true);
  auto self = sharedAs<SecretFilesVC>();
  galleryCollectionView->setCollectionViewLayout(std::make_shared<shared::CollectionViewFlowLayOut>());
  galleryCollectionView->setDataSource(self);
  galleryCollectionView->setDelegate(self);
  auto press = std::make_shared<kit::LongPressGestureRecognizer>();
  press->setMinimumPressDuration(0.2);
  std::weak_ptr<SecretFilesVC> weak = self;
  press->addTarget([weak](kit::GestureRecognizer& g) {
    if (auto vc = weak.lock()) vc->longPressedWithLongPressGesture(g.state(), vc->itemAtPoint(g.locationInView()));
  });
  galleryCollectionView->addGestureRecognizer(press);
  if (shared::checkPhotoPermission()) kit::print("running");
  addNewBtn->setImage(kit::Image::named("plus_small"), kit::kControlStateNormal);
  selectAllBtn->setCornerRadius(8.0);
  selectAllBtn->setBorderWidth(1.0);
  selectAllBtn->setBorderColor(shared::colorFromHex("#2485EF"));
}

void SecretFilesVC::viewWillAppear(bool) {
  kit::print("imageSelectionArray", imageSelectionArray.size());
  ads::ADNetAdaptiveBannerAd::shared()->loadBanner(sharedAs<SecretFilesVC>(), adsView.shared(), adHeightConstraint.shared());
  reloadFileList();
  galleryCollectionView->setUserInteractionEnabled(true);
  reloadGrid();
}

void SecretFilesVC::viewDidLayoutSubviews() {
  shared::roundCorners(*customDialogView, kit::kRectCornerTopLeft | kit::kRectCornerTopRight, 20.0);
  shared::roundCorners(*optionView, kit::kRectCornerTopLeft | kit::kRectCornerTopRight, 20.0);
}

void SecretFilesVC::reloadGrid() {
  std::weak_ptr<SecretFilesVC> weak = sharedAs<SecretFilesVC>();
  kit::mainQueue().async([weak] {
    if (auto vc = weak.lock()) vc->galleryCollectionView->reloadData();
  });
}

// ---- Reading the folder ----

void SecretFilesVC::reloadFileList() {
  kit::ProgressHUD::shared().show();
  setList({});
  std::weak_ptr<SecretFilesVC> weak = sharedAs<SecretFilesVC>();
  kit::globalQueue(kit::QoS::Background).async([weak] {
    if (auto vc = weak.lock()) vc->fetchStoredFiles();
  });
  reloadGrid();
}

void SecretFilesVC::fetchStoredFiles() {
  auto documents = documentsDirectory();
  if (!documents) kit::fatal("Unexpectedly found nil while unwrapping the Documents folder");
  std::string folder = cleanerFolder(*documents);
  bool isDirectory = false;
  if (platform::fileManager().fileExistsAtPath(folder, &isDirectory)) {
    kit::mainQueue().async([] { kit::ProgressHUD::shared().dismiss(); });
    platform::Error error;
    auto names = platform::fileManager().contentsOfDirectoryAtPath(folder, &error);
    if (!names) kit::fatal("Fatal error: 'try!' expression unexpectedly raised an error: " + describeError(error));
    currentFileName.store(std::make_shared<const std::vector<std::string>>(*names));
    kit::print("filecount ", names->size());
    FileRows rows = list();
    for (const auto& name : *names) {
      std::string url = platform::fileURLWithPath(folder + "/" + name);
      rows.append(std::make_shared<FileSelectionModel>(url, url));
    }
    setList(rows);
  }
  std::weak_ptr<SecretFilesVC> weak = sharedAs<SecretFilesVC>();
  kit::mainQueue().async([weak] {
    if (auto vc = weak.lock()) vc->refreshFileViews();
  });
}

void SecretFilesVC::showNoFileViews(bool empty) {
  noFileImage->setHidden(!empty);
  nofileLbl->setHidden(!empty);
  addNewLbl->setHidden(!empty);
  galleryCollectionView->setHidden(empty);
}

void SecretFilesVC::refreshFileViews() {
  kit::ProgressHUD::shared().dismiss();
  FileRows rows = list();
  totalLbl->setText("Total : " + std::to_string(rows.size()));
  if (!rows.empty()) platform::preferences().setInteger(static_cast<long>(rows.size()), shared::VAULT_ITEM_COUNT);
  showNoFileViews(rows.empty());
  reloadGrid();
}

// ---- The grid ----

int SecretFilesVC::numberOfItemsInSection(kit::CollectionView&, int) { return static_cast<int>(list().size()); }

std::shared_ptr<kit::CollectionViewCell> SecretFilesVC::cellForItemAtIndexPath(kit::CollectionView& view,
                                                                               kit::IndexPath indexPath) {
  auto cell = std::static_pointer_cast<SecretDataCell>(
      view.dequeueReusableCellWithReuseIdentifier(SecretDataCell::kReuseIdentifier, indexPath));
  FileRows rows = list();
  if (indexPath.item() >= static_cast<int>(rows.size())) kit::fatal("Fatal error: Index out of range");
  const FileRow& row = rows[static_cast<std::size_t>(indexPath.item())];
  auto path = platform::pathOfFileURL(row->fileUrl).value_or(row->fileUrl);
  if (isCameraVideoPath(path)) {
    if (auto frame = shared::thumbnailForVideoURL(row->fileUrl)) cell->thumbNailImage->setImage(frame);
  } else {
    cell->loadImageFromURL(row->fileUrl);
  }
  cell->itemTypeView->setHidden(!isVideoType(row->type));
  std::weak_ptr<SecretFilesVC> weak = sharedAs<SecretFilesVC>();
  cell->onLongPress = [weak, indexPath](kit::GestureState state) {
    if (auto vc = weak.lock()) vc->longPressedWithLongPressGesture(state, indexPath);
  };
  if (longPressStatus) {
    cell->selectedImage->setHidden(false);
    cell->selectedImage->setImage(kit::Image::named(row->isSelected ? "check" : "uncheck"));
  } else {
    cell->selectedImage->setHidden(true);
  }
  return cell;
}

void SecretFilesVC::updateSelectAllTitle() {
  selectAllBtn->setTitle(std::string(tempList.size() != list().size() ? "Select All" : "Deselect All"),
                         kit::kControlStateNormal);
}

bool SecretFilesVC::shouldSelectItemAtIndexPath(kit::CollectionView&, kit::IndexPath) {
  updateSelectAllTitle();
  return true;
}

void SecretFilesVC::didSelectItemAtIndexPath(kit::CollectionView&, kit::IndexPath indexPath) { rowTapped(indexPath); }

void SecretFilesVC::didDeselectItemAtIndexPath(kit::CollectionView&, kit::IndexPath indexPath) { rowTapped(indexPath); }

void SecretFilesVC::rowTapped(kit::IndexPath indexPath) {
  FileRows rows = list();
  if (indexPath.item() >= static_cast<int>(rows.size())) return;
  FileRow row = rows[static_cast<std::size_t>(indexPath.item())];
  if (!longPressStatus) {
    if (isVideoType(row->type)) {
      auto self = sharedAs<SecretFilesVC>();
      kit::mainQueue().async([self, row] {
        auto player = kit::make<AVPlayerViewController>(row->fileUrl);
        self->presentViewController(player, true, [player] { player->play(); });
      });
    } else {
      auto preview = storyboardOf(*this).instantiate<ImagePreviewVC>("ImagePreviewVC");
      preview->imageUrl = row->fileUrl;
      if (auto* nav = navigationController()) nav->pushViewController(preview, true);
      ads::runPacedInterstitial(sharedAs<SecretFilesVC>());
    }
    return;
  }
  if (!row->isSelected) {
    ++counter;
    row->isSelected = true;
    tempList.push_back(row);
  } else {
    row->isSelected = false;
    --counter;
    auto it = std::find(tempList.begin(), tempList.end(), row);
    if (it != tempList.end()) tempList.erase(it);
  }
  selectedLbl->setText("Selected : " + std::to_string(counter));
  galleryCollectionView->reloadData();
}

std::optional<kit::IndexPath> SecretFilesVC::itemAtPoint(kit::Point point) {
  auto& grid = *galleryCollectionView;
  kit::Size item = grid.collectionViewLayout() ? grid.collectionViewLayout()->itemSize() : kit::Size{100, 100};
  double spacing = grid.collectionViewLayout() ? grid.collectionViewLayout()->minimumInteritemSpacing() : 0;
  if (item.width <= 0 || item.height <= 0 || point.x < 0 || point.y < 0) return std::nullopt;
  int columns = std::max(1, static_cast<int>(std::floor((grid.frame().width() + spacing) / (item.width + spacing))));
  int column = static_cast<int>(point.x / (item.width + spacing));
  int line = static_cast<int>(point.y / (item.height + spacing));
  if (column >= columns) return std::nullopt;
  long index = static_cast<long>(grid.visibleFirst()) + static_cast<long>(line) * columns + column;
  if (index >= static_cast<long>(list().size())) return std::nullopt;
  return kit::IndexPath{0, static_cast<int>(index)};
}

void SecretFilesVC::longPressedWithLongPressGesture(kit::GestureState state, std::optional<kit::IndexPath> row) {
  if (!row) {
    kit::print("Long press on table view, not row.");
    return;
  }
  if (state == kit::GestureState::Began) {
    kit::print("Long press on row, at ", row->item());
    if (longPressStatus) return;
    longPressStatus = true;
    addNewBtn->setHidden(true);
    selectAllBtn->setHidden(false);
    optionView->setHidden(false);
    galleryCollectionView->reloadData();
  } else if (state == kit::GestureState::Cancelled) {
    longPressStatus = false;
  }
}

// ---- Selection mode ----

void SecretFilesVC::toggleSelectAll() {
  isClicked = !isClicked;
  FileRows rows = list();
  if (isClicked) {
    for (const auto& row : rows) {
      row->isSelected = true;
      auto it = std::find(tempList.begin(), tempList.end(), row);
      if (it != tempList.end()) tempList.erase(it);
    }
    counter = static_cast<int>(rows.size());
    selectedLbl->setText("Selected : " + std::to_string(rows.size()));
    selectAllBtn->setTitle(std::string("Deselect All"), kit::kControlStateNormal);
  } else {
    for (const auto& row : rows) {
      row->isSelected = false;
      tempList.push_back(row);
    }
    counter = 0;
    selectedLbl->setText(std::string("Selected : 0"));
    selectAllBtn->setTitle(std::string("Select All"), kit::kControlStateNormal);
  }
  galleryCollectionView->reloadData();
}

void SecretFilesVC::exitSelectionMode() {
  selectAllBtn->setHidden(true);
  longPressStatus = false;
  optionView->setHidden(true);
  addNewBtn->setHidden(false);
  FileRows rows = list();
  for (const auto& row : rows) row->isSelected = false;
  counter = 0;
  selectedLbl->setText(std::string("Selected : 0"));
  selectAllBtn->setTitle(std::string("Select All"), kit::kControlStateNormal);
  totalLbl->setText("Total : " + std::to_string(rows.size()));
  galleryCollectionView->reloadData();
}

void SecretFilesVC::closeBtn() {
  optionView->setHidden(true);
  exitSelectionMode();
}

void SecretFilesVC::backBtn() {
  if (longPressStatus) {
    exitSelectionMode();
  } else if (auto* nav = navigationController()) {
    nav->popViewControllerAnimated(true);
  }
}

void SecretFilesVC::confirmDeleteFiles() {
  if (counter == 0) {
    kit::ToastManager::shared().makeToast(view(), std::string("Please select item first"), std::nullopt,
                                          kit::ToastPosition::Center);
    return;
  }
  auto alert = kit::AlertController::make(std::string(""), std::string("These files will be deleted from your secret Library"),
                                          kit::AlertStyle::Alert);
  std::weak_ptr<SecretFilesVC> weak = sharedAs<SecretFilesVC>();
  alert->addAction(std::make_shared<kit::AlertAction>(std::string("Delete"), kit::AlertActionStyle::Default,
                                                      [weak](kit::AlertAction&) {
                                                        kit::globalQueue(kit::QoS::Background).async([weak] {
                                                          if (auto vc = weak.lock()) vc->deleteSelectedFiles();
                                                        });
                                                      }));
  alert->addAction(std::make_shared<kit::AlertAction>(std::string("Cancel"), kit::AlertActionStyle::Cancel,
                                                      [weak](kit::AlertAction&) {
                                                        if (auto vc = weak.lock()) vc->exitSelectionMode();
                                                      }));
  presentViewController(alert, true);
}

void SecretFilesVC::deleteSelectedFiles() {
  const FileRows start = list();
  std::weak_ptr<SecretFilesVC> weak = sharedAs<SecretFilesVC>();
  for (const auto& row : start) {
    if (!row->isSelected) continue;
    platform::Error error;
    auto path = platform::pathOfFileURL(row->fileUrl).value_or(row->fileUrl);
    if (!platform::fileManager().removeItemAtPath(path, &error)) kit::print("Could not delete file: ", describeError(error));
    FileRows now = list();
    for (std::size_t i = 0; i < now.size(); ++i) {
      if (now[i] == row) {
        now.removeAt(i);
        break;
      }
    }
    setList(now);
    platform::preferences().setInteger(static_cast<long>(now.size()), shared::VAULT_ITEM_COUNT);
    kit::mainQueue().async([weak] {
      if (auto vc = weak.lock()) vc->afterFileDeleted();
    });
  }
}

void SecretFilesVC::afterFileDeleted() {
  kit::ToastManager::shared().makeToast(view(), std::string("Deleted Successfully"));
  exitSelectionMode();
  reloadGrid();
  showNoFileViews(list().empty());
}

void SecretFilesVC::shareSelectedFiles() {
  std::vector<std::string> urls;
  for (const auto& row : list()) {
    if (!row->isSelected) continue;
    kit::print("image_Data", row->fileUrl);
    urls.push_back(row->fileUrl);
  }
  if (urls.empty()) {
    kit::ToastManager::shared().makeToast(view(), std::string("Please select  item first"), std::nullopt,
                                          kit::ToastPosition::Center);
    return;
  }
  auto sheet = std::make_shared<shell::ActivityViewController>(urls);
  sheet->completionWithItemsHandler = [](bool) {};
  kit::View& v = view();
  sheet->popoverSourceView = &v;
  sheet->popoverSourceRect = kit::Rect{{v.bounds().origin.x + v.frame().width() / 2, v.bounds().origin.y}, {0, 0}};
  presentViewController(sheet, true);
  exitSelectionMode();
}

// ---- Adding files ----

void SecretFilesVC::openChooser() {
  galleryCollectionView->setUserInteractionEnabled(false);
  customDialogView->setHidden(false);
}

void SecretFilesVC::closeDialog() {
  galleryCollectionView->setUserInteractionEnabled(true);
  customDialogView->setHidden(true);
}

void SecretFilesVC::openGallery() {
  customDialogView->setHidden(true);
  auto picker = storyboardOf(*this).instantiate<SecretDataViewController>("SecretDataViewController");
  auto self = sharedAs<SecretFilesVC>();
  picker->delegate = self;
  picker->delegateDelete = self;
  if (auto* nav = navigationController()) nav->pushViewController(picker, false);
  ads::runPacedInterstitial(self);
}

void SecretFilesVC::openSecurityPage() {
  auto target = storyboardOf(*this).instantiate<SecurityQuestionVC>("SecurityQuestionVC");
  target->isFrom.reset();
  target->forgotpassword.reset();
  if (auto* nav = navigationController()) nav->pushViewController(target, true);
  ads::runPacedInterstitial(sharedAs<SecretFilesVC>());
}

void SecretFilesVC::openCamera() {
  customDialogView->setHidden(true);
  if (!platform::camera().isSourceTypeAvailable()) {
    auto alert = kit::AlertController::make(std::string("Warning"), std::string("You don't have camera"), kit::AlertStyle::Alert);
    alert->addAction(std::make_shared<kit::AlertAction>(std::string("OK"), kit::AlertActionStyle::Default));
    presentViewController(alert, true);
    return;
  }
  std::weak_ptr<SecretFilesVC> weak = sharedAs<SecretFilesVC>();
  imagePicker->didFinishPickingMediaWithInfo = [weak](ImagePickerController& picker,
                                                      const platform::CaptureResult& info) {
    auto vc = weak.lock();
    if (!vc) return;
    kit::ImagePtr image = info.originalImage;
    if (image) vc->selectedImages = image;
    std::optional<std::string> url = info.mediaURL;
    picker.dismissViewControllerAnimated(false, [weak, image, url] {
      auto self = weak.lock();
      if (!self) return;
      // This screen shows again as the camera goes, and its grid takes taps again.
      self->galleryCollectionView->setUserInteractionEnabled(true);
      if (image) {
        self->saveCameraImage(image);
      } else if (url) {
        kit::print("one");
        self->saveCameraVideo(*url);
      }
    });
  };
  presentViewController(imagePicker, true);
}

void SecretFilesVC::saveCameraImage(const kit::ImagePtr& image) {
  auto documents = documentsDirectory();
  if (!documents) {
    kit::print("error:", "The Documents folder could not be found.");
    return;
  }
  kit::print("documentsDirectory", platform::fileURLWithPath(*documents + "/"));
  std::string folder = cleanerFolder(*documents);
  platform::Error error;
  if (!ensureFolder(folder, &error)) {
    kit::print("error:", describeError(error));
    return;
  }
  std::string path = folder + "/" + cameraImageName(currentSeconds());
  auto data = platform::imageCodec().jpegData(image, 1.0);
  if (data && !platform::fileManager().fileExistsAtPath(path)) {
    if (!platform::fileManager().writeData(*data, path, &error)) {
      kit::print("error:", describeError(error));
      return;
    }
  }
  reloadFileList();
}

void SecretFilesVC::saveCameraVideo(const std::string& url) {
  platform::Error error;
  auto source = platform::pathOfFileURL(url).value_or(url);
  auto data = platform::fileManager().contentsAtPath(source, &error);
  if (!data) kit::fatal("Fatal error: 'try!' expression unexpectedly raised an error: " + describeError(error));
  auto documents = documentsDirectory();
  if (!documents) {
    kit::print("Unable to reach the documents folder");
    return;
  }
  std::string folder = cleanerFolder(*documents);
  std::string path = folder + "/" + cameraVideoName(currentSeconds());
  if (!ensureFolder(folder, &error) || !platform::fileManager().writeData(*data, path, &error)) {
    kit::print("could not save data");
    return;
  }
  tempFile = platform::fileURLWithPath(path);
  reloadFileList();
  galleryCollectionView->reloadData();
}

// ---- Removal from the library ----

void SecretFilesVC::showHideAlert(const std::vector<platform::AssetPtr>& assets) {
  auto alert = kit::AlertController::make(
      std::string("Hide Media?"),
      std::string("Your Images or videos will be removed from the Phone Gallery & will be saved in Secret Folder. "
                  "Hidden images or videos may get permanently deleted if you uninstall the app. Are you sure you "
                  "want to remove the images or videos from your phone gallery?"),
      kit::AlertStyle::Alert);
  std::weak_ptr<SecretFilesVC> weak = sharedAs<SecretFilesVC>();
  alert->addAction(std::make_shared<kit::AlertAction>(
      std::string("Remove"), kit::AlertActionStyle::Default, [weak, assets](kit::AlertAction&) {
        platform::photoLibrary().performChanges(
            [assets](platform::ChangeRequest& request) { request.deleteAssets(assets); },
            [weak](bool success, std::optional<platform::Error> error) {
              if (success) kit::print("Success");
              else kit::print(error ? describeError(*error) : std::string("nil"));
              kit::mainQueue().async([weak] {
                auto vc = weak.lock();
                if (vc && vc->navigationController()) vc->navigationController()->popViewControllerAnimated(false);
              });
            });
        if (auto vc = weak.lock()) vc->dismissViewControllerAnimated(false);
      }));
  alert->addAction(std::make_shared<kit::AlertAction>(
      std::string("Cancel"), kit::AlertActionStyle::Default, [weak](kit::AlertAction&) {
        auto vc = weak.lock();
        if (!vc) return;
        vc->dismissViewControllerAnimated(false, [weak] {
          auto self = weak.lock();
          if (self && self->navigationController()) self->navigationController()->popViewControllerAnimated(true);
        });
      }));
  presentViewController(alert, true);
}

}  // namespace vault
