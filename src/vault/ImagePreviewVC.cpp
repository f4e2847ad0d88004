#include "vault/ImagePreviewVC.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "ads/ADNetAdaptiveBannerAd.h"
#include "kit/AlertController.h"
#include "kit/Console.h"
#include "kit/Dispatch.h"
#include "kit/Fatal.h"
#include "kit/NavigationController.h"
#include "kit/Toast.h"
#include "platform/Platform.h"
#include "shared/PreferenceKeys.h"
#include "shared/ViewHelpers.h"
#include "shell/Feedback.h"

namespace vault {

// ---- ImagePreviewVC ----

ImagePreviewVC::ImagePreviewVC() {
  registerAction("backButtonAction:", [this](kit::Object*) {
    if (auto* nav = navigationController()) nav->popViewControllerAnimated(true);
  });
  registerAction("openDialog:", [this](kit::Object*) { actionDialog->setHidden(false); });
  registerAction("closeDialog:", [this](kit::Object*) { actionDialog->setHidden(true); });
  registerAction("shareImg:", [this](kit::Object*) { shareImageFile(); });
  registerAction("deleteImg:", [this](kit::Object*) { deleteImageFile(); });
}

void ImagePreviewVC::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  auto back = addOutlet<kit::Button>("backButton");
  back->setImage(kit::Image::named("back"), kit::kControlStateNormal);
  connect(*back, "backButtonAction:");
  auto more = addOutlet<kit::Button>("moreButton");
  more->setTitle(std::string("More"), kit::kControlStateNormal);
  connect(*more, "openDialog:");
  addOutlet<kit::ImageView>("imageView")->setContentMode(kit::ContentMode::ScaleAspectFit);
  auto dialog = addOutlet<kit::View>("actionDialog");
  dialog->setHidden(true);
  auto share = addOutlet<kit::Button>("shareButton", dialog.get());
  share->setTitle(std::string("Share"), kit::kControlStateNormal);
  connect(*share, "shareImg:");
  auto del = addOutlet<kit::Button>("deleteButton", dialog.get());
  del->setTitle(std::string("Delete"), kit::kControlStateNormal);
  connect(*del, "deleteImg:");
  auto close = addOutlet<kit::Button>("closeDialogButton", dialog.get());
  close->setImage(kit::Image::named("close"), kit::kControlStateNormal);
  connect(*close, "closeDialog:");
  addOutlet<kit::View>("adsView");
  registerOutlet("adsViewHeightConstraint", std::make_shared<kit::LayoutConstraint>(0.0));
}

namespace {

// The path of `imageUrl` and the picture in that file; a missing URL or a file that is no
// image ends the process.
std::pair<std::string, kit::ImagePtr> imageOfFile(const std::optional<std::string>& imageUrl) {
  if (!imageUrl) kit::fatal("Unexpectedly found nil while unwrapping imageUrl");
  auto path = platform::pathOfFileURL(*imageUrl).value_or(*imageUrl);
  auto image = platform::imageCodec().imageWithContentsOfFile(path);
  if (!image) kit::fatal("Unexpectedly found nil while unwrapping the image of " + path);
  return {path, image};
}

}  // namespace

void ImagePreviewVC::viewDidLoad() { imageView->setImage(imageOfFile(imageUrl).second); }

void ImagePreviewVC::viewWillAppear(bool) {
  ads::ADNetAdaptiveBannerAd::shared()->loadBanner(sharedAs<ImagePreviewVC>(), adsView.shared(),
                                                   adsViewHeightConstraint.shared());
}

void ImagePreviewVC::viewDidLayoutSubviews() {
  shared::roundCorners(*actionDialog, kit::kRectCornerTopLeft | kit::kRectCornerTopRight, 20.0);
}

void ImagePreviewVC::shareImageFile() {
  std::string item = imageUrl ? platform::pathOfFileURL(*imageUrl).value_or(*imageUrl) : std::string();
  auto sheet = std::make_shared<shell::ActivityViewController>(std::vector<std::string>{item});
  sheet->completionWithItemsHandler = [](bool) {};
  kit::View& v = view();
  sheet->popoverSourceView = &v;
  sheet->popoverSourceRect = kit::Rect{{v.frame().width() / 2, v.bounds().origin.y}, {0, 0}};
  presentViewController(sheet, true);
}

void ImagePreviewVC::deleteImageFile() {
  if (!imageUrl) kit::fatal("Unexpectedly found nil while unwrapping imageUrl");
  platform::Error error;
  auto path = platform::pathOfFileURL(*imageUrl).value_or(*imageUrl);
  if (!platform::fileManager().removeItemAtPath(path, &error)) {
    kit::print("Error deleting image: ", platform::describe(error));
    return;
  }
  kit::ToastManager::shared().makeToast(view(), std::string("File Deleted Successfully"));
  if (auto* nav = navigationController()) nav->popViewControllerAnimated(true);
}

// ---- PreviewVC ----

PreviewVC::PreviewVC() {
  registerAction("backButtonAction:", [this](kit::Object*) {
    if (auto* nav = navigationController()) nav->popViewControllerAnimated(true);
  });
  registerAction("deleteButtonAction:", [this](kit::Object*) { deleteButtonAction(); });
}

void PreviewVC::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  auto back = addOutlet<kit::Button>("backButton");
  back->setImage(kit::Image::named("back"), kit::kControlStateNormal);
  connect(*back, "backButtonAction:");
  addOutlet<kit::Label>("imageLabel")->setText(std::string("Image"));
  addOutlet<kit::ImageView>("imageView")->setContentMode(kit::ContentMode::ScaleAspectFit);
  auto del = addOutlet<kit::Button>("deleteButton");
  del->setTitle(std::string("Delete"), kit::kControlStateNormal);
  connect(*del, "deleteButtonAction:");
  addOutlet<kit::View>("adsView");
  registerOutlet("adsViewHeightConstraint", std::make_shared<kit::LayoutConstraint>(0.0));
}

void PreviewVC::viewDidLoad() {
  auto [path, image] = imageOfFile(imageUrl);
  imageView->setImage(image);
  if (!imageLabel->text()) kit::fatal("Unexpectedly found nil while unwrapping imageLabel.text");
  // The last component of the path, as the URL names it.
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  imageLabel->setText(path.substr(path.find_last_of('/') + 1));
}

void PreviewVC::deleteButtonAction() {
  auto alert = kit::AlertController::make(std::string("Alert!"), std::string("Are you sure you want to delete"),
                                          kit::AlertStyle::Alert);
  std::weak_ptr<PreviewVC> weak = sharedAs<PreviewVC>();
  alert->addAction(std::make_shared<kit::AlertAction>(std::string("No"), kit::AlertActionStyle::Default,
                                                      [weak](kit::AlertAction&) {
                                                        if (auto vc = weak.lock()) vc->dismissViewControllerAnimated(true);
                                                      }));
  alert->addAction(std::make_shared<kit::AlertAction>(
      std::string("Yes"), kit::AlertActionStyle::Default, [weak](kit::AlertAction&) {
        auto vc = weak.lock();
        if (!vc) return;
        platform::AssetPtr asset = vc->selectedImage;
        platform::photoLibrary().performChanges(
            [asset](platform::ChangeRequest& request) { request.deleteAssets({asset}); },
            [weak](bool success, std::optional<platform::Error>) {
              kit::print("Finished deleting asset.", success ? "true" : "false");
              if (!success) return;
              kit::mainQueue().async([weak] {
                auto self = weak.lock();
                if (self && self->navigationController()) self->navigationController()->popViewControllerAnimated(false);
                platform::preferences().setBool(true, shared::CHECK_STATUS);
              });
            });
      }));
  presentViewController(alert, true);
}

// ---- AVPlayerViewController ----

AVPlayerViewController::AVPlayerViewController(std::string url) : url_(std::move(url)) {
  setStoryboardOrigin(nullptr, "AVPlayerViewController");
  registerAction("togglePlay", [this](kit::Object*) { togglePlay(); });
  registerAction("seekBack", [this](kit::Object*) { seekBy(-10); });
  registerAction("seekForward", [this](kit::Object*) { seekBy(10); });
  registerAction("close", [this](kit::Object*) { close(); });
}

void AVPlayerViewController::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  auto done = addOutlet<kit::Button>("closeButton");
  done->setTitle(std::string("Done"), kit::kControlStateNormal);
  connect(*done, "close");
  auto back = addOutlet<kit::Button>("seekBackButton");
  back->setTitle(std::string("-10"), kit::kControlStateNormal);
  connect(*back, "seekBack");
  auto toggle = addOutlet<kit::Button>("playPauseButton");
  connect(*toggle, "togglePlay");
  auto forward = addOutlet<kit::Button>("seekForwardButton");
  forward->setTitle(std::string("+10"), kit::kControlStateNormal);
  connect(*forward, "seekForward");
  addOutlet<kit::Label>("timeLbl");
  auto url = addOutlet<kit::Label>("urlLbl");
  url->setText(url_);
  url->setHidden(true);
  showState();
}

void AVPlayerViewController::showState() {
  playPauseButton->setTitle(std::string(playing_ ? "Pause" : "Play"), kit::kControlStateNormal);
  int t = static_cast<int>(position_);
  char text[32];
  std::snprintf(text, sizeof text, "%d:%02d", t / 60, t % 60);
  timeLbl->setText(std::string(text));
}

void AVPlayerViewController::play() {
  loadViewIfNeeded();
  playing_ = true;
  showState();
}

void AVPlayerViewController::togglePlay() {
  playing_ = !playing_;
  showState();
}

void AVPlayerViewController::seekBy(double seconds) {
  position_ = std::max(0.0, position_ + seconds);
  showState();
}

void AVPlayerViewController::setPosition(double seconds) {
  if (std::isnan(seconds) || seconds < 0) return;
  position_ = seconds;
  showState();
}

void AVPlayerViewController::close() {
  playing_ = false;
  showState();
  dismissViewControllerAnimated(true);
}

}  // namespace vault
