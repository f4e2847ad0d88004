#include "vault/SecretSpaceVC.h"

#include "ads/ADNetAdaptiveBannerAd.h"
#include "ads/Interstitial.h"
#include "kit/Fatal.h"
#include "kit/GestureRecognizer.h"
#include "kit/NavigationController.h"
#include "kit/Storyboard.h"
#include "platform/Platform.h"
#include "shared/PreferenceKeys.h"
#include "vault/SecurityQuestionVC.h"
#include "vault/SetPin.h"

namespace vault {

namespace {

kit::Storyboard& storyboardOf(kit::ViewController& vc) {
  if (!vc.storyboard()) kit::fatal("Unexpectedly found nil while unwrapping the storyboard of " + vc.storyboardIdentifier());
  return *vc.storyboard();
}

}  // namespace

SecretSpaceVC::SecretSpaceVC() {
  registerAction("openSecretFolder", [this](kit::Object*) { openSecretFolder(); });
  registerAction("openSecretContact", [this](kit::Object*) { openSecretContact(); });
  registerAction("openSecurityPage", [this](kit::Object*) { openSecurityPage(); });
  registerAction("setPasscode", [this](kit::Object*) { setPasscode(); });
  registerAction("backBtn", [this](kit::Object*) { backBtn(); });
}

void SecretSpaceVC::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  auto back = addOutlet<kit::Button>("backButton");
  back->setImage(kit::Image::named("back"), kit::kControlStateNormal);
  connect(*back, "backBtn");
  addOutlet<kit::Label>("titleLbl")->setText(std::string("Secret Space"));
  auto stage = addOutlet<kit::View>("secretSpaceView");
  stage->setFrame(kit::Rect{{0, 0}, {view().frame().width(), 260}});
  // The two tiles open their stores on a tap.
  auto tile = [this](const char* name, const char* label, const char* caption, const char* image, const char* action) {
    auto v = addOutlet<kit::View>(name);
    auto icon = addOutlet<kit::ImageView>(std::string(name) + "Icon", v.get());
    icon->setImage(kit::Image::named(image));
    addOutlet<kit::Label>(label, v.get())->setText(std::string(caption));
    auto tap = std::make_shared<kit::TapGestureRecognizer>();
    std::string a = action;
    tap->addTarget([this, a](kit::GestureRecognizer&) { performAction(a); });
    v->addGestureRecognizer(tap);
  };
  tile("secretFiles", "secretFilesLbl", "Secret Files", "photos", "openSecretFolder");
  tile("secrectContactView", "secretContactLbl", "Secret Contacts", "contacts", "openSecretContact");
  auto lock = addOutlet<kit::Button>("showLockBtn");
  lock->setTitle(std::string("Set Pin"), kit::kControlStateNormal);
  connect(*lock, "setPasscode");
  auto question = addOutlet<kit::Button>("securityButton");
  question->setTitle(std::string("Security Question"), kit::kControlStateNormal);
  connect(*question, "openSecurityPage");
  addOutlet<kit::View>("adsView");
  registerOutlet("adHeightConstraint", std::make_shared<kit::LayoutConstraint>(0.0));
}

void SecretSpaceVC::viewDidLoad() {
  showLockBtn->setHidden(platform::preferences().boolForKey(shared::IS_PIN_SET));
  secretAnimationView = kit::make<kit::AnimationView>("vault");
  secretAnimationView->setContentMode(kit::ContentMode::ScaleAspectFit);
  secretAnimationView->setFrame(secretSpaceView->bounds());
  secretAnimationView->setLoopMode(kit::LoopMode::Loop);
  secretAnimationView->setAnimationSpeed(1.0);
  secretAnimationView->play();
  secretSpaceView->addSubview(secretAnimationView);
}

void SecretSpaceVC::viewWillAppear(bool) {
  ads::ADNetAdaptiveBannerAd::shared()->loadBanner(sharedAs<SecretSpaceVC>(), adsView.shared(), adHeightConstraint.shared());
}

void SecretSpaceVC::push(std::shared_ptr<kit::ViewController> target, bool counted) {
  if (auto* nav = navigationController()) nav->pushViewController(std::move(target), true);
  if (counted) ads::runPacedInterstitial(sharedAs<SecretSpaceVC>());
}

void SecretSpaceVC::openSecretFolder() {
  push(storyboardOf(*this).instantiateViewControllerWithIdentifier("SecretFilesVC"), true);
}

void SecretSpaceVC::openSecretContact() {
  push(storyboardOf(*this).instantiateViewControllerWithIdentifier("SecretContactVC"), true);
}

void SecretSpaceVC::openSecurityPage() {
  auto target = storyboardOf(*this).instantiate<SecurityQuestionVC>("SecurityQuestionVC");
  target->isFrom.reset();
  target->forgotpassword.reset();
  push(target, true);
}

void SecretSpaceVC::setPasscode() {
  auto target = storyboardOf(*this).instantiate<SetPin>("SetPin");
  target->isFrom = "newpass";
  push(target, true);
}

void SecretSpaceVC::backBtn() { push(storyboardOf(*this).instantiateViewControllerWithIdentifier("HomeVC"), false); }

}  // namespace vault
