#include "shell/SettingVc.h"

#include <cstdlib>

#include "ads/ADNetAdaptiveBannerAd.h"
#include "ads/Interstitial.h"
#include "kit/AlertController.h"
#include "kit/Fatal.h"
#include "kit/NavigationController.h"
#include "kit/Storyboard.h"
#include "kit/Toast.h"
#include "platform/Platform.h"
#include "shared/PreferenceKeys.h"
#include "shell/Feedback.h"
#include "vault/SetPin.h"

namespace shell {

namespace {

const char* const kShareMessage =
    "Hi, I'm using Image to Solvanta App to remove duplicate photo,videos and contact from phone.You can also download.";

kit::Storyboard& storyboardOf(kit::ViewController& vc) {
  if (!vc.storyboard()) kit::fatal("Unexpectedly found nil while unwrapping the storyboard of " + vc.storyboardIdentifier());
  return *vc.storyboard();
}

}  // namespace

SettingCell::SettingCell() {
  auto icon = kit::make<kit::ImageView>();
  auto label = kit::make<kit::Label>();
  auto toggle = kit::make<kit::Switch>();
  for (const auto& v : {std::static_pointer_cast<kit::View>(icon), std::static_pointer_cast<kit::View>(label),
                        std::static_pointer_cast<kit::View>(toggle)}) {
    contentView().addSubview(v);
  }
  registerOutlet("nameIcon", icon);
  registerOutlet("nameLbl", label);
  registerOutlet("usePasscodeSwitch", toggle);
}

void SettingCell::awakeFromNib() { usePasscodeSwitch->setOn(platform::preferences().boolForKey(shared::IS_PIN_SET)); }

std::function<void(int)>& SettingVc::exitHandler() {
  static std::function<void(int)> handler = [](int code) { std::exit(code); };
  return handler;
}

SettingVc::SettingVc()
    : arrLbl{"Use Passcode", "Change Password", "Rate US", "FeedBack", "Share App", "More App", "Exit"},
      arrImage{"usepass", "pass", "rate", "feedback", "shareapp", "more", "exit"} {
  registerAction("crossBtnAction:", [this](kit::Object*) { crossBtnAction(); });
  registerAction("connectedWithSender:", [this](kit::Object* sender) {
    if (auto* sw = dynamic_cast<kit::Switch*>(sender)) connectedWithSender(*sw);
  });
}

void SettingVc::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  auto cross = addOutlet<kit::Button>("crossButton");
  cross->setImage(kit::Image::named("back"), kit::kControlStateNormal);
  connect(*cross, "crossBtnAction:");
  addOutlet<kit::Label>("titleLbl")->setText(std::string("Settings"));
  addOutlet<kit::TableView>("tableView");
  addOutlet<kit::View>("adsView");
  registerOutlet("adsViewHeightConstraint", std::make_shared<kit::LayoutConstraint>(0.0));
}

void SettingVc::viewDidLoad() {
  auto self = sharedAs<SettingVc>();
  tableView->registerCell(SettingCell::kReuseIdentifier, [] { return kit::make<SettingCell>(); });
  tableView->setDataSource(std::static_pointer_cast<kit::TableViewDataSource>(self));
  tableView->setDelegate(std::static_pointer_cast<kit::TableViewDelegate>(self));
  tableView->setVisibleRange(0, static_cast<int>(arrLbl.size()));
  tableView->reloadData();
}

void SettingVc::viewWillAppear(bool) {
  auto self = sharedAs<SettingVc>();
  ads::ADNetAdaptiveBannerAd::shared()->loadBanner(self, adsView.shared(), adsViewHeightConstraint.shared());
  kit::mainQueue().asyncAfter(0.1, [self] { ads::runPacedInterstitial(self); });
}

int SettingVc::numberOfRowsInSection(kit::TableView&, int) { return static_cast<int>(arrLbl.size()); }

std::shared_ptr<kit::TableViewCell> SettingVc::cellForRowAtIndexPath(kit::TableView& table, kit::IndexPath indexPath) {
  auto cell = std::dynamic_pointer_cast<SettingCell>(
      table.dequeueReusableCellWithIdentifier(SettingCell::kReuseIdentifier, indexPath));
  if (!cell) kit::fatal("Could not cast the settings row to SettingCell");
  const auto row = static_cast<std::size_t>(indexPath.row);
  cell->nameLbl->setText(arrLbl[row]);
  cell->nameIcon->setImage(kit::Image::named(arrImage[row]));
  auto* sw = &*cell->usePasscodeSwitch;
  std::weak_ptr<SettingVc> weak = sharedAs<SettingVc>();
  sw->addTarget(
      this, "connectedWithSender:",
      [weak, sw](kit::Object*) {
        if (auto self = weak.lock()) self->connectedWithSender(*sw);
      },
      kit::kControlEventValueChanged);
  sw->setHidden(indexPath.row != 0);
  return cell;
}

void SettingVc::didSelectRowAtIndexPath(kit::TableView&, kit::IndexPath indexPath) {
  switch (indexPath.row) {
    case 1:
      changePassword();
      break;
    case 2:
      platform::storeReview().requestReview();
      break;
    case 3:
      sendFeedback(*this, "FeedBack");
      break;
    case 4:
      shareApp(*this, AppLinks::current().storeLink, kShareMessage);
      break;
    case 5:
      openPromotionLink();
      break;
    case 6:
      showExitAlert();
      break;
    default:
      break;  // the first row's switch acts instead
  }
}

void SettingVc::crossBtnAction() {
  if (auto* nav = navigationController()) nav->popViewControllerAnimated(true);
}

void SettingVc::connectedWithSender(kit::Switch& sender) {
  auto target = storyboardOf(*this).instantiate<vault::SetPin>("SetPin");
  target->isFrom = sender.isOn() ? "setpasscode" : "reset";
  if (auto* nav = navigationController()) nav->pushViewController(target, true);
  ads::runPacedInterstitial(sharedAs<SettingVc>());
}

void SettingVc::changePassword() {
  isLockOn = platform::preferences().boolForKey(shared::IS_PIN_SET);
  if (*isLockOn) {
    auto target = storyboardOf(*this).instantiate<vault::SetPin>("SetPin");
    target->isFrom = "changepasscode";
    if (auto* nav = navigationController()) nav->pushViewController(target, true);
    ads::runPacedInterstitial(sharedAs<SettingVc>());
    return;
  }
  kit::ToastManager::shared().makeToast(view(), std::string("Set Pin First"), std::nullopt, kit::ToastPosition::Center);
}

void SettingVc::showExitAlert() {
  auto alert = kit::AlertController::make(std::string("Alert!"), std::string("Are you sure you want to exit from app"),
                                          kit::AlertStyle::Alert);
  std::weak_ptr<SettingVc> weak = sharedAs<SettingVc>();
  alert->addAction(std::make_shared<kit::AlertAction>(std::string("Cancel"), kit::AlertActionStyle::Default,
                                                      [weak](kit::AlertAction&) {
                                                        if (auto self = weak.lock()) self->dismissViewControllerAnimated(true);
                                                      }));
  alert->addAction(std::make_shared<kit::AlertAction>(std::string("Exit"), kit::AlertActionStyle::Default,
                                                      [](kit::AlertAction&) { exitHandler()(0); }));
  presentViewController(alert, true);
}

}  // namespace shell
