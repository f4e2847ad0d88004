#include "shell/SplashVC.h"

#include "ads/AdConfig.h"
#include "ads/Interstitial.h"
#include "kit/Console.h"
#include "kit/NavigationController.h"
#include "kit/Storyboard.h"
#include "shell/BlankViewController.h"

namespace shell {

SplashVC::SplashVC() {
  splashCounter = 6;
  registerAction("letgGOButtonAction:", [this](kit::Object* sender) { letgGOButtonAction(sender); });
}

void SplashVC::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  addOutlet<kit::Label>("appNameLbl")->setText(std::string("Solvanta"));
}

void SplashVC::viewDidLoad() {
  splashCounter = 6;
  std::weak_ptr<SplashVC> weak = sharedAs<SplashVC>();
  splashTimer = kit::scheduledTimer(1.0, true, [weak](kit::Timer&) {
    if (auto self = weak.lock()) self->updateTimer();
  });
}

void SplashVC::updateTimer() {
  kit::print(splashCounter);
  if (splashCounter != 0) {
    splashCounter -= 1;
    return;
  }
  if (splashTimer) splashTimer->invalidate();
  splashTimer.reset();
  handOver();
}

void SplashVC::handOver() {
  auto self = sharedAs<SplashVC>();
  auto blank = kit::Storyboard::named("Main").instantiate<BlankViewController>("BlankViewController");
  if (auto* nav = navigationController()) nav->pushViewController(blank, true);
  ads::AdsMobFullAds::shared()->showFullAds(self, ads::AdConfig::current().interstitialAdUnitID);
}

void SplashVC::letgGOButtonAction(kit::Object*) {}

}  // namespace shell
