#include "shell/BlankViewController.h"

#include "ads/AppOpenAds.h"
#include "ads/LaunchAds.h"
#include "kit/Console.h"
#include "kit/NavigationController.h"
#include "kit/Storyboard.h"
#include "platform/Platform.h"
#include "shell/HomeVC.h"
#include "shell/SplashVC.h"

namespace shell {

BlankViewController::BlankViewController() {
  registerAction("crosbuttonAction:", [this](kit::Object* sender) { crosbuttonAction(sender); });
}

void BlankViewController::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  auto button = addOutlet<kit::Button>("crossButton");
  button->setTitle(std::string("\xE2\x9C\x95"), kit::kControlStateNormal);
  connect(*button, "crosbuttonAction:");
}

void BlankViewController::viewDidLoad() {
  auto self = sharedAs<BlankViewController>();
  crossButton->setHidden(true);
  ads::AppFullAdsCloseListner::shared()->fulladsclosedelegates = self;
  fullAdcounter = 3;
  std::weak_ptr<BlankViewController> weak = self;
  fullAdTimer = kit::scheduledTimer(1.0, true, [weak](kit::Timer&) {
    if (auto s = weak.lock()) s->updateTimer();
  });
  ads::launchCrossButton() = crossButton.shared();
  std::make_shared<ads::HandleLaunchPrompt>()->loadFullAdsOnLaunch(self);
  ads::AppFullAdsCloseListner::shared()->fulladsclosedelegates = ads::HandleLaunchFullAds::shared();
}

void BlankViewController::viewWillAppear(bool) {
  auto self = sharedAs<BlankViewController>();
  ads::FullAdsCloseListener::shared()->fulladsdelegates = self;
  ads::LaunchFullCallBackListener::shared()->fulladsdelegates = self;
}

void BlankViewController::updateTimer() {
  if (fullAdcounter != 0) {
    fullAdcounter -= 1;
    return;
  }
  if (fullAdTimer) {
    fullAdTimer->invalidate();
    fullAdTimer.reset();
    crossButton->setHidden(false);
  }
}

void BlankViewController::crosbuttonAction(kit::Object*) { openHome(); }

void BlankViewController::openHome() {
  auto home = kit::Storyboard::named("Main").instantiate<HomeVC>("HomeVC");
  if (auto* nav = navigationController()) nav->pushViewController(home, true);
}

kit::ViewController* currentTopViewController() {
  std::shared_ptr<kit::Window> key;
  for (const auto& w : platform::application().windows()) {
    if (w->isKeyWindow()) {
      key = w;
      break;
    }
  }
  if (!key || !key->rootViewController()) return nullptr;
  kit::ViewController* top = key->rootViewController().get();
  for (;;) {
    if (auto* nav = dynamic_cast<kit::NavigationController*>(top); nav && nav->visibleViewController() &&
                                                                   nav->visibleViewController() != top) {
      top = nav->visibleViewController();
    } else if (top->presentedViewController()) {
      top = top->presentedViewController().get();
    } else {
      return top;
    }
  }
}

void BlankViewController::onFullAdsCloseListener(ads::Controller) {
  kit::ViewController* top = currentTopViewController();
  if (!top) return;
  kit::print("The current top view controller is: " + ads::describeController(top));
  if (dynamic_cast<SplashVC*>(top) || dynamic_cast<BlankViewController*>(top)) {
    openHome();
    crossButton->setHidden(true);
  }
}

void BlankViewController::onAppFullAdsClose(ads::Controller) {
  openHome();
  crossButton->setHidden(true);
}

void BlankViewController::onLaunchFullCallBack(bool status) {
  if (status && !isFirstTime) {
    openHome();
    isFirstTime = true;
  }
}

}  // namespace shell
