#include "vault/SecretDataViewController.h"

#include "ads/ADNetAdaptiveBannerAd.h"
#include "kit/Console.h"
#include "kit/Dispatch.h"
#include "kit/Fatal.h"
#include "kit/NavigationController.h"
#include "platform/Platform.h"
#include "shared/AssetImages.h"
#include "shared/CollectionViewFlowLayOut.h"
#include "shared/ViewHelpers.h"

namespace vault {

void GalleryCell::awakeFromNib() {
  for (const char* name : {"photoImageView", "checkmarkImageView"}) {
    auto image = kit::make<kit::ImageView>();
    contentView().addSubview(image);
    registerOutlet(name, image);
  }
}

SecretDataViewController::SecretDataViewController() {
  registerAction("btnPushBackPressed:", [this](kit::Object*) { btnPushBackPressed(); });
  registerAction("selectUnselectAll:", [this](kit::Object*) { selectUnselectAll(); });
  registerAction("addNewPressed:", [this](kit::Object*) { addNewPressed(); });
}

void SecretDataViewController::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  auto back = addOutlet<kit::Button>("pushBackbtn");
  back->setImage(kit::Image::named("back"), kit::kControlStateNormal);
  connect(*back, "btnPushBackPressed:");
  addOutlet<kit::Label>("lblScreenTitle");
  addOutlet<kit::Label>("lblItemCount");
  addOutlet<kit::Label>("imageSelectionlabel");
  auto all = addOutlet<kit::Button>("selectAllButton");
  all->setTitle(std::string("Select All"), kit::kControlStateNormal);
  connect(*all, "selectUnselectAll:");
  auto grid = addOutlet<kit::CollectionView>("galleryCollectionView");
  grid->setFrame(kit::Rect{{0, 120}, {view().frame().width(), view().frame().height() - 260}});
  grid->registerCell(GalleryCell::kReuseIdentifier, [] { return kit::make<GalleryCell>(); });
  auto import = addOutlet<kit::Button>("importBtn");
  import->setTitle(std::string("Import"), kit::kControlStateNormal);
  connect(*import, "addNewPressed:");
  addOutlet<kit::View>("adsView");
  registerOutlet("adHeightConstraint", std::make_shared<kit::LayoutConstraint>(0.0));
}

void SecretDataViewController::viewDidLoad() {
  lblScreenTitle->setText(std::string("Library"));
  auto self = sharedAs<SecretDataViewController>();
  galleryCollectionView->setCollectionViewLayout(std::make_shared<shared::CollectionViewFlowLayOut>());
  galleryCollectionView->setDataSource(self);
  galleryCollectionView->setDelegate(self);
  galleryCollectionView->setAllowsMultipleSelection(true);
  importBtn->setImage(kit::Image::named("plus_small"), kit::kControlStateNormal);
  selectAllButton->setCornerRadius(8.0);
  selectAllButton->setBorderWidth(1.0);
  selectAllButton->setBorderColor(shared::colorFromHex("#2485EF"));
  std::weak_ptr<SecretDataViewController> weak = self;
  if (shared::checkPhotoPermission()) {
    shell::HomeHelper::shared()->fetchGalleryAssets("Images", [weak](const std::vector<platform::AssetPtr>& assets) {
      if (auto vc = weak.lock()) vc->fill(assets);
    });
  } else {
    kit::print("count123 4 ", tempArray.size());
    shared::PhotosPermissionCallback::shared()->itemdelegates.store(self);
  }
}

void SecretDataViewController::permissionResult(bool granted, const std::string&) {
  if (!granted) return;
  std::weak_ptr<SecretDataViewController> weak = sharedAs<SecretDataViewController>();
  kit::mainQueue().async([weak] {
    shell::HomeHelper::shared()->fetchGalleryAssets("Images", [weak](const std::vector<platform::AssetPtr>& assets) {
      auto vc = weak.lock();
      if (!vc) return;
      vc->galleryImageArray = assets;
      kit::mainQueue().async([weak] {
        if (auto v = weak.lock()) v->galleryCollectionView->reloadData();
      });
    });
  });
}

void SecretDataViewController::fill(const std::vector<platform::AssetPtr>& assets) {
  galleryImageArray = assets;
  lblItemCount->setText("Total : " + std::to_string(assets.size()));
  tempArray.clear();
  for (const auto& asset : assets) tempArray.push_back(std::make_shared<SecretFile>(asset));
  std::weak_ptr<SecretDataViewController> weak = sharedAs<SecretDataViewController>();
  kit::mainQueue().async([weak] {
    auto vc = weak.lock();
    if (!vc) return;
    kit::print("count123 ", vc->tempArray.size());
    vc->galleryCollectionView->reloadData();
  });
}

void SecretDataViewController::viewWillAppear(bool) {
  imageSelectionArray.clear();
  auto selection = media::ImageVideoSelection::shared();
  selection->selectionArray.removeAll();
  selection->itemdelegates.store(sharedAs<SecretDataViewController>());
  ads::ADNetAdaptiveBannerAd::shared()->loadBanner(sharedAs<SecretDataViewController>(), adsView.shared(),
                                                   adHeightConstraint.shared());
}

int SecretDataViewController::numberOfItemsInSection(kit::CollectionView& view, int) {
  int n = static_cast<int>(tempArray.size());
  view.setHidden(n < 1);
  return n;
}

std::shared_ptr<kit::CollectionViewCell> SecretDataViewController::cellForItemAtIndexPath(kit::CollectionView& view,
                                                                                          kit::IndexPath indexPath) {
  auto cell = std::static_pointer_cast<GalleryCell>(
      view.dequeueReusableCellWithReuseIdentifier(GalleryCell::kReuseIdentifier, indexPath));
  const auto& item = tempArray.at(static_cast<std::size_t>(indexPath.item()));
  auto name = shared::fileNameOfAsset(item->fileName);
  std::string ext = name ? pathExtension(*name) : std::string();
  if (name && (ext == "MOV" || ext == "MP4")) {
    cell->photoImageView->setImage(shared::thumbnailForAsset(item->fileName));
  } else {
    cell->photoImageView->setImage(shared::fullImageForAsset(item->fileName));
  }
  cell->setCornerRadius(12.0);
  cell->setClipsToBounds(true);
  cell->checkmarkImageView->setImage(kit::Image::named(item->isSelected ? "check" : "uncheck"));
  return cell;
}

void SecretDataViewController::toggle(kit::IndexPath indexPath) {
  if (indexPath.item() >= static_cast<int>(tempArray.size())) return;
  auto& item = tempArray[static_cast<std::size_t>(indexPath.item())];
  item->isSelected = !item->isSelected;
  count += item->isSelected ? 1 : -1;
  imageSelectionlabel->setText("Selected :  " + std::to_string(count));
  galleryCollectionView->reloadData();
}

void SecretDataViewController::didSelectItemAtIndexPath(kit::CollectionView&, kit::IndexPath indexPath) { toggle(indexPath); }

void SecretDataViewController::didDeselectItemAtIndexPath(kit::CollectionView&, kit::IndexPath indexPath) {
  toggle(indexPath);
}

void SecretDataViewController::btnPushBackPressed() {
  if (auto* nav = navigationController()) nav->popViewControllerAnimated(true);
}

void SecretDataViewController::selectUnselectAll() {
  if (!isPressed) {
    kit::print("called");
    isPressed = true;
    for (auto& item : tempArray) item->isSelected = true;
    count = static_cast<int>(tempArray.size());
    imageSelectionlabel->setText("Seleted :  " + std::to_string(count));
    selectAllButton->setTitle(std::string("Deselect All"), kit::kControlStateNormal);
  } else {
    kit::print("called1");
    isPressed = false;
    for (auto& item : tempArray) item->isSelected = false;
    count = 0;
    selectAllButton->setTitle(std::string("Select All"), kit::kControlStateNormal);
    imageSelectionlabel->setText(std::string("Seleted :  0"));
  }
  galleryCollectionView->reloadData();
}

void SecretDataViewController::addNewPressed() {
  auto reload = delegate.lock();
  auto removal = delegateDelete.lock();
  if (!reload || !removal) kit::fatal("Unexpectedly found nil while unwrapping the delegate of the import");
  copySelected();
  std::vector<platform::AssetPtr> assets;
  for (const auto& item : tempArray) {
    if (!item->isSelected) continue;
    assets.push_back(item->fileName);
    removal->showHideAlert(assets);
  }
  if (auto* nav = navigationController()) nav->popViewControllerAnimated(false);
}

// For each selected item: a new name joins the names of this step, and every name not yet on
// disk gets a still of this item's asset. A name whose still was not there in time is thus
// filled by a later item. A name already on disk is passed over without asking for an image.
void SecretDataViewController::copySelected() {
  auto& files = platform::fileManager();
  std::vector<std::string> names;
  for (const auto& item : tempArray) {
    if (!item->isSelected) continue;
    auto documents = documentsDirectory();
    if (!documents) {
      kit::print("error:", "The Documents folder could not be found.");
      continue;
    }
    kit::print("documentsDirectory", platform::fileURLWithPath(*documents + "/"));
    std::string folder = cleanerFolder(*documents);
    platform::Error error;
    if (!ensureFolder(folder, &error)) {
      kit::print("error:", platform::describe(error));
      continue;
    }
    auto fileName = shared::fileNameOfAsset(item->fileName);
    std::optional<std::string> ext;
    if (fileName) ext = pathExtension(*fileName);
    names.push_back(importName(describeSecretFile(item.get()), currentSeconds(), ext));
    bool failed = false;
    for (const auto& name : names) {
      std::string path = folder + "/" + name;
      if (files.fileExistsAtPath(path)) continue;
      auto kept = std::make_shared<kit::ImagePtr>(kit::Image::empty());
      platform::cachingImageManager().requestImageForAsset(
          item->fileName, kit::Size{100.0, 100.0}, platform::kImageContentModeAspectFit, platform::ImageRequestOptions{},
          [kept](kit::ImagePtr image, const kit::Dictionary&) {
            if (!image) kit::fatal("Unexpectedly found nil while unwrapping the image of an asset");
            *kept = std::move(image);
          });
      auto data = platform::imageCodec().jpegData(*kept, 1.0);
      if (!data) continue;
      if (!files.writeData(*data, path, &error)) {
        kit::print("error:", platform::describe(error));
        failed = true;
        break;
      }
    }
    if (failed) continue;
    if (auto reload = delegate.lock()) reload->reloadFileList();
  }
}

}  // namespace vault
