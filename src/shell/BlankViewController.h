// BlankViewController: the interlude between the splash and home. It starts the launch's ad
// (HandleLaunchPrompt), shows its close button after a 3-count on a 1-second timer, and opens
// HomeVC when the close button is tapped or when an ad closes while the splash or the
// interlude is on top. Main thread.
#pragma once

#include <memory>
#include <string>

#include "ads/FullAdsListeners.h"
#include "kit/Dispatch.h"
#include "kit/Outlets.h"
#include "kit/ViewController.h"
#include "kit/Views.h"

namespace shell {

class BlankViewController : public kit::ViewController,
                            public ads::AppFullAdsCloseProtocol,
                            public ads::FullAdsCloseListenerProtocol,
                            public ads::LaunchFullCallBackListenerProtocol {
 public:
  BlankViewController();

  std::string fulladstype;     // not used
  bool fulladstatus = false;   // not used
  std::string type;            // not used
  std::string value;           // not used
  std::shared_ptr<kit::Timer> fullAdTimer;
  int fullAdcounter = 3;
  bool isFirstTime = false;
  std::string service;         // not used
  kit::Outlet<kit::Button> crossButton{this, "crossButton"};

  void loadView() override;
  // Hides the close button, starts the countdown and the launch's ad; leaves the shared
  // HandleLaunchFullAds as the delegate of AppFullAdsCloseListner.
  void viewDidLoad() override;
  // Becomes the delegate of FullAdsCloseListener and LaunchFullCallBackListener.
  void viewWillAppear(bool animated) override;
  // One tick: counts down, or at 0 stops the timer and shows the close button.
  void updateTimer();
  void crosbuttonAction(kit::Object* sender);
  // Pushes a new HomeVC (no guard against a second push).
  void openHome();

  // With the splash or the interlude on top, opens home and hides the close button.
  void onFullAdsCloseListener(ads::Controller controller) override;
  void onAppFullAdsClose(ads::Controller controller) override;
  void onLaunchFullCallBack(bool status) override;
};

// The top controller as the interlude looks for it: the first key window's root, through
// navigation (visible), tab (selected) and presented controllers. Null with no key window.
kit::ViewController* currentTopViewController();

}  // namespace shell
