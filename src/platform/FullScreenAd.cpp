#include "platform/FullScreenAd.h"

namespace platform {

FullScreenAdScreen::FullScreenAdScreen(kit::ImagePtr creative, std::string title,
                                       std::function<void()> onClose)
    : creative_(std::move(creative)), title_(std::move(title)), onClose_(std::move(onClose)) {
  registerAction("closeButton:", [this](kit::Object*) { close(); });
}

void FullScreenAdScreen::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  auto image = addOutlet<kit::ImageView>("adImageView");
  image->setImage(creative_);
  image->setContentMode(kit::ContentMode::ScaleAspectFit);
  auto title = addOutlet<kit::Label>("adTitleLabel");
  title->setText(title_);
  auto closeButton = addOutlet<kit::Button>("closeButton");
  closeButton->setTitle("Close", kit::kControlStateNormal);
  connect(*closeButton, "closeButton:");
}

void FullScreenAdScreen::close() {
  auto self = shared_from_this();
  auto onClose = onClose_;
  dismissViewControllerAnimated(true, [onClose] {
    if (onClose) onClose();
  });
}

}  // namespace platform
