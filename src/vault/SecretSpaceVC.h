// SecretSpaceVC: the room behind the lock. A looping animation, the hidden-files and
// hidden-contacts tiles, and the offers to set a PIN or a security answer. It checks nothing
// itself: the lock is the route that leads here. Main thread.
#pragma once

#include <memory>

#include "kit/ViewController.h"
#include "kit/Views.h"

namespace vault {

class SecretSpaceVC : public kit::ViewController {
 public:
  SecretSpaceVC();

  kit::Outlet<kit::View> secrectContactView{this, "secrectContactView"};
  kit::Outlet<kit::Button> showLockBtn{this, "showLockBtn"};
  kit::Outlet<kit::View> secretFiles{this, "secretFiles"};
  kit::Outlet<kit::View> secretSpaceView{this, "secretSpaceView"};
  kit::Outlet<kit::LayoutConstraint> adHeightConstraint{this, "adHeightConstraint"};
  kit::Outlet<kit::View> adsView{this, "adsView"};
  // The "vault" animation, made at load and added to secretSpaceView, looping.
  std::shared_ptr<kit::AnimationView> secretAnimationView;

  void loadView() override;
  // Hides the PIN offer when IS_PIN_SET is true (decided at load only); starts the animation.
  void viewDidLoad() override;
  // Loads the banner.
  void viewWillAppear(bool animated) override;

  // Actions; each but backBtn ends with the paced interstitial.
  void openSecretFolder();
  void openSecretContact();
  // The storing job of the security question.
  void openSecurityPage();
  // A new PIN screen in "newpass" mode.
  void setPasscode();
  // A new home screen on top of the stack; no interstitial.
  void backBtn();

 private:
  void push(std::shared_ptr<kit::ViewController> target, bool counted);
};

}  // namespace vault
