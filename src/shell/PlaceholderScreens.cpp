#include "shell/PlaceholderScreens.h"

#include "kit/NavigationController.h"

namespace shell {

PlaceholderScreen::PlaceholderScreen(std::string title) : title_(std::move(title)) {
  registerAction("backButtonAction", [this](kit::Object*) {
    if (auto* nav = navigationController()) nav->popViewControllerAnimated(true);
  });
}

void PlaceholderScreen::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  setTitle(title_);
  addOutlet<kit::Label>("titleLbl")->setText(title_);
  addOutlet<kit::Label>("messageLbl")->setText(std::string("This part of Solvanta is on its way."));
  auto back = addOutlet<kit::Button>("backButton");
  back->setImage(kit::Image::named("back"), kit::kControlStateNormal);
  connect(*back, "backButtonAction");
}

}  // namespace shell
