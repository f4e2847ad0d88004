// SettingVc: the settings table of seven rows: the passcode switch, change password, rating,
// feedback mail, sharing, the promoted app and exit. Every appearance loads the banner and,
// a tenth of a second later, counts one paced interstitial step. Main thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/Controls.h"
#include "kit/Lists.h"
#include "kit/ViewController.h"
#include "kit/Views.h"

namespace shell {

// A row: its title, its icon and, on the first row only, the passcode switch.
class SettingCell : public kit::TableViewCell {
 public:
  static constexpr const char* kReuseIdentifier = "SettingCell";
  SettingCell();
  // The switch shows IS_PIN_SET as it is when the cell is made.
  void awakeFromNib() override;

  kit::Outlet<kit::Label> nameLbl{this, "nameLbl"};
  kit::Outlet<kit::ImageView> nameIcon{this, "nameIcon"};
  kit::Outlet<kit::Switch> usePasscodeSwitch{this, "usePasscodeSwitch"};
};

class SettingVc : public kit::ViewController, public kit::TableViewDataSource, public kit::TableViewDelegate {
 public:
  SettingVc();

  // The rows' titles and images.
  std::vector<std::string> arrLbl;
  std::vector<std::string> arrImage;
  // The last read of IS_PIN_SET (by the change-password row); nothing until then.
  std::optional<bool> isLockOn;

  kit::Outlet<kit::View> adsView{this, "adsView"};
  kit::Outlet<kit::LayoutConstraint> adsViewHeightConstraint{this, "adsViewHeightConstraint"};
  kit::Outlet<kit::TableView> tableView{this, "tableView"};

  // How the Exit action ends the process (std::exit; tests replace it).
  static std::function<void(int)>& exitHandler();

  void loadView() override;
  void viewDidLoad() override;
  void viewWillAppear(bool animated) override;

  // Pops the navigation controller.
  void crossBtnAction();
  // The passcode switch: on asks for a new PIN ("setpasscode"), off for the current one
  // ("reset"); pushes the PIN screen and counts a paced interstitial.
  void connectedWithSender(kit::Switch& sender);

  int numberOfRowsInSection(kit::TableView&, int) override;
  std::shared_ptr<kit::TableViewCell> cellForRowAtIndexPath(kit::TableView& table, kit::IndexPath indexPath) override;
  std::optional<double> heightForRowAtIndexPath(kit::TableView&, kit::IndexPath) override { return 70.0; }
  void didSelectRowAtIndexPath(kit::TableView& table, kit::IndexPath indexPath) override;

 private:
  void changePassword();
  void showExitAlert();
};

}  // namespace shell
