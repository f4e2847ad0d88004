#include "vault/SetPin.h"

#include "ads/ADNetAdaptiveBannerAd.h"
#include "ads/Interstitial.h"
#include "kit/Console.h"
#include "kit/Fatal.h"
#include "kit/NavigationController.h"
#include "kit/Storyboard.h"
#include "kit/Toast.h"
#include "platform/Platform.h"
#include "shared/PreferenceKeys.h"
#include "shared/ViewHelpers.h"
#include "vault/SecretSpaceVC.h"
#include "vault/SecurityQuestionVC.h"

namespace vault {

namespace {

constexpr int kClearRow = 11;
const kit::Color kRed{1, 0, 0, 1};

kit::Storyboard& storyboardOf(kit::ViewController& vc) {
  if (!vc.storyboard()) kit::fatal("Unexpectedly found nil while unwrapping the storyboard of " + vc.storyboardIdentifier());
  return *vc.storyboard();
}

std::string optionalText(const std::optional<std::string>& value) {
  return value ? "Optional(\"" + *value + "\")" : "nil";
}

}  // namespace

std::size_t characterCount(const std::string& text) {
  std::size_t n = 0;
  for (unsigned char c : text) {
    if ((c & 0xC0) != 0x80) ++n;
  }
  return n;
}

NumberCell::NumberCell() {
  auto label = kit::make<kit::Label>();
  label->setTextAlignment(kit::TextAlignment::Center);
  label->setFontSize(28);
  contentView().addSubview(label);
  registerOutlet("numberCell", label);
}

const std::vector<std::string>& SetPin::numberList() {
  static const std::vector<std::string> keys = {"1", "2", "3", "4", "5", "6", "7", "8", "9", "", "0", "\u00D7"};
  return keys;
}

SetPin::SetPin() {
  registerAction("createPin", [this](kit::Object*) { createPinAction(); });
  registerAction("openSecretFolder", [this](kit::Object*) { openSecretFolder(); });
  registerAction("openSecuritypage", [this](kit::Object*) { openSecuritypage(); });
  registerAction("backBtn", [this](kit::Object*) { backBtn(); });
}

void SetPin::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  const double width = view().frame().width();
  connect(*addOutlet<kit::Button>("backButton"), "backBtn");
  outlet<kit::Button>("backButton").setImage(kit::Image::named("back"), kit::kControlStateNormal);
  auto lock = addOutlet<kit::Button>("lockBtn");
  lock->setImage(kit::Image::named("lock"), kit::kControlStateNormal);
  addOutlet<kit::Label>("pageTitle")->setText(std::string("Set Pin"));
  addOutlet<kit::Label>("passwordContent")->setText(std::string("Enter a 4 digit pin"));
  auto box = addOutlet<kit::View>("passwordView");
  box->setCornerRadius(10);
  for (const char* name : {"dot1", "dot2", "dot3", "dot4"}) {
    auto dot = addOutlet<kit::ImageView>(name, box.get());
    dot->setImage(kit::Image::named("dot"));
    dot->setTintColor(kit::Color::gray());
  }
  auto keypad = addOutlet<kit::CollectionView>("NumberCollectionView");
  keypad->setFrame(kit::Rect{{0, 0}, {width - 40, 360}});
  auto forgot = addOutlet<kit::Button>("forgotButton");
  forgot->setTitle(std::string("Forgot Pin?"), kit::kControlStateNormal);
  connect(*forgot, "openSecuritypage");
  addOutlet<kit::View>("adsView");
  registerOutlet("adHeightConstraint", std::make_shared<kit::LayoutConstraint>(0.0));

  // The first visit's welcome, over the keypad.
  auto welcome = addOutlet<kit::View>("firstTimeView");
  welcome->setBackgroundColor(kit::Color::white());
  addOutlet<kit::Label>("welcomeTitle", welcome.get())->setText(std::string("Secret Space"));
  addOutlet<kit::Label>("welcomeMessage", welcome.get())
      ->setText(std::string("Keep photos, videos and contacts out of sight behind a 4 digit pin."));
  auto create = addOutlet<kit::Button>("createPin", welcome.get());
  create->setTitle(std::string("Create Pin"), kit::kControlStateNormal);
  connect(*create, "createPin");
  auto skip = addOutlet<kit::Button>("skipButton", welcome.get());
  skip->setTitle(std::string("Open Without Pin"), kit::kControlStateNormal);
  connect(*skip, "openSecretFolder");
}

void SetPin::viewDidLoad() {
  auto& defaults = platform::preferences();
  firstTimeView->setHidden(defaults.boolForKey(shared::SINGLE_TIME_CALL));
  const std::string mode = isFrom.value_or("");
  if (mode == "security") {
    pageTitle->setText(std::string("Enter Pin"));
    passwordContent->setText(std::string("Enter pin to access secret folder"));
    lockBtn->setHidden(true);
  } else if (mode == "reset") {
    pageTitle->setText(std::string("Enter Pin"));
    lockBtn->setHidden(false);
  } else if (mode == "changepasscode") {
    pageTitle->setText(std::string("Enter Pin"));
    passwordContent->setText(std::string("Confirm your pin"));
    lockBtn->setHidden(false);
  } else if (mode == "forgot_password") {
    pageTitle->setText(std::string("Set Pin"));
    lockBtn->setHidden(true);
  }
  auto self = sharedAs<SetPin>();
  NumberCollectionView->registerCell(NumberCell::kReuseIdentifier, [] { return kit::make<NumberCell>(); });
  NumberCollectionView->setDataSource(std::static_pointer_cast<kit::CollectionViewDataSource>(self));
  NumberCollectionView->setDelegate(std::static_pointer_cast<kit::CollectionViewDelegate>(self));
  NumberCollectionView->setVisibleRange(0, static_cast<int>(numberList().size()));
  NumberCollectionView->reloadData();
}

void SetPin::viewWillAppear(bool) {
  ads::ADNetAdaptiveBannerAd::shared()->loadBanner(sharedAs<SetPin>(), adsView.shared(), adHeightConstraint.shared());
}

int SetPin::numberOfItemsInSection(kit::CollectionView&, int) { return static_cast<int>(numberList().size()); }

std::shared_ptr<kit::CollectionViewCell> SetPin::cellForItemAtIndexPath(kit::CollectionView& collectionView,
                                                                        kit::IndexPath indexPath) {
  auto cell = std::dynamic_pointer_cast<NumberCell>(
      collectionView.dequeueReusableCellWithReuseIdentifier(NumberCell::kReuseIdentifier, indexPath));
  if (!cell) kit::fatal("Could not cast the keypad's cell to NumberCell");
  cell->numberCell->setText(numberList()[static_cast<std::size_t>(indexPath.item())]);
  return cell;
}

std::optional<kit::Size> SetPin::sizeForItemAtIndexPath(kit::CollectionView& collectionView, kit::IndexPath) {
  const double width = collectionView.frame().width();
  return kit::Size{(width - 10) / 3.5, (width - 10) / 5.6};
}

void SetPin::didSelectItemAtIndexPath(kit::CollectionView&, kit::IndexPath indexPath) {
  const int row = indexPath.item();
  if (row < 0 || row >= static_cast<int>(numberList().size())) return;
  if (!isFrom) {
    createPath(row);
  } else {
    std::optional<std::string> stored = platform::preferences().stringForKey(shared::SAVE_PIN);
    kit::print("pass1 ", optionalText(stored));
    const std::string& mode = *isFrom;
    if (mode == "security" || mode == "reset" || mode == "changepasscode") {
      if (!stored) kit::fatal("Unexpectedly found nil while unwrapping an Optional value (the stored pin)");
      verifyPath(mode, *stored, row);
    } else if (mode == "newpass" || mode == "setpasscode" || mode == "forgot_password") {
      createPath(row);
    }
  }
  if (row == kClearRow) {
    password.clear();
    dotColor(0, false, true);
  }
}

void SetPin::verifyPath(const std::string& mode, const std::string& stored, int row) {
  if (characterCount(password) >= 4) return;
  dotColor(static_cast<int>(characterCount(password)), false, false);
  password += numberList()[static_cast<std::size_t>(row)];
  passwordView->setBorderWidth(2.0);
  passwordView->setBorderColor(shared::colorFromHex("#2485EF"));
  kit::print("valueofisfrom ", optionalText(isFrom));
  auto self = sharedAs<SetPin>();
  if (password == stored) {
    if (mode == "security") {
      kit::mainQueue().asyncAfter(0.5, [self] {
        self->push(storyboardOf(*self).instantiate<SecretSpaceVC>("SecretSpaceVC"));
        ads::runPacedInterstitial(self);
      });
    } else if (mode == "reset") {
      auto& defaults = platform::preferences();
      defaults.setBool(false, shared::IS_PIN_SET);
      defaults.setURL(std::nullopt, shared::SAVE_PIN);
      push(storyboardOf(*this).instantiateViewControllerWithIdentifier("SettingVc"));
      ads::runPacedInterstitial(self);
    } else if (mode == "changepasscode") {
      push(storyboardOf(*this).instantiate<SetPin>("SetPin"));
      ads::runPacedInterstitial(self);
    }
    return;
  }
  if (characterCount(password) != 4) return;
  kit::makeToast(view(), "Wrong Pin");
  passwordView->setBorderWidth(2.0);
  passwordView->setBorderColor(kRed);
  dotColor(0, true, false);
  kit::mainQueue().asyncAfter(1.0, [self] {
    self->password.clear();
    self->passwordView->setBorderWidth(0.0);
    self->dotColor(0, false, true);
  });
  // The shake: each view jumps 20 points right and springs back to where it belongs.
  for (kit::View* shaken : {static_cast<kit::View*>(&*passwordView), static_cast<kit::View*>(&*lockBtn)}) {
    shaken->setTransform(kit::AffineTransform{1, 0, 0, 1, 20, 0});
    kit::View::animateWithSpring(0.4, 0, 0.2, 1.0,
                                 [shaken] { shaken->setTransform(kit::AffineTransform::identity()); });
  }
}

void SetPin::createPath(int row) {
  kit::print("password 2");
  auto& defaults = platform::preferences();
  std::optional<std::string> title = defaults.stringForKey(shared::CHANGE_TITLE);
  if (!title) {
    pageTitle->setText(std::string("Set Pin"));
  } else if (*title == "Confirm password") {
    pageTitle->setText(std::string("Confirm Password"));
  }
  auto self = sharedAs<SetPin>();
  if (characterCount(password) < 4) {
    passwordView->setBorderWidth(2.0);
    passwordView->setBorderColor(shared::colorFromHex("#2485EF"));
    dotColor(static_cast<int>(characterCount(password)), false, false);
    const bool firstEntry = !mainPassword.has_value();
    password += numberList()[static_cast<std::size_t>(row)];
    if (firstEntry) {
      if (characterCount(password) == 4) mainPassword = password;
    } else if (password == *mainPassword) {
      defaults.setObject(kit::Value(password), shared::SAVE_PIN);
      defaults.setObject(kit::Value(std::string()), shared::CHANGE_TITLE);
      kit::mainQueue().asyncAfter(0.2, [self] {
        auto target = storyboardOf(*self).instantiate<SecurityQuestionVC>("SecurityQuestionVC");
        target->isFrom = "setpin";
        self->push(target);
        ads::runPacedInterstitial(self);
      });
    }
  }
  if (characterCount(password) == 4) {
    pageTitle->setText(std::string("Confirm Pin"));
    defaults.setObject(kit::Value(std::string("Confirm Pin")), shared::CHANGE_TITLE);
    kit::mainQueue().asyncAfter(0.2, [self] {
      self->password.clear();
      self->dotColor(0, false, true);
    });
  }
}

void SetPin::dotColor(int index, bool wrong, bool clear) {
  kit::ImageView* dots[] = {&*dot1, &*dot2, &*dot3, &*dot4};
  auto paint = [](kit::ImageView* dot, kit::Color tint) {
    dot->setImage(kit::Image::named("dot"));
    dot->setTintColor(tint);
  };
  if (clear) {
    for (auto* dot : dots) paint(dot, kit::Color::gray());
  } else if (wrong) {
    for (auto* dot : dots) paint(dot, kRed);
  } else if (index >= 0 && index < 4) {
    paint(dots[index], shared::colorFromHex("#2485EF"));
  } else {
    kit::print("nothing");
  }
}

void SetPin::push(std::shared_ptr<kit::ViewController> target) {
  if (auto* nav = navigationController()) nav->pushViewController(std::move(target), true);
}

void SetPin::createPinAction() {
  platform::preferences().setBool(true, shared::SINGLE_TIME_CALL);
  firstTimeView->setHidden(true);
}

void SetPin::openSecretFolder() {
  platform::preferences().setBool(true, shared::SINGLE_TIME_CALL);
  push(storyboardOf(*this).instantiate<SecretSpaceVC>("SecretSpaceVC"));
  ads::runPacedInterstitial(sharedAs<SetPin>());
}

void SetPin::openSecuritypage() {
  auto target = storyboardOf(*this).instantiate<SecurityQuestionVC>("SecurityQuestionVC");
  target->forgotpassword = "forgotpassword";
  target->isFrom.reset();
  push(target);
  ads::runPacedInterstitial(sharedAs<SetPin>());
}

void SetPin::backBtn() {
  if (isFrom && *isFrom == "newpass") {
    if (auto* nav = navigationController()) nav->popViewControllerAnimated(true);
    return;
  }
  push(storyboardOf(*this).instantiateViewControllerWithIdentifier("HomeVC"));
}

}  // namespace vault
