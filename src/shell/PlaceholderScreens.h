// Screens that HomeVC opens and that are not built yet: a plain page under each identifier,
// with the fields their openers set. Each will be replaced by the real screen of that name.
#pragma once

#include <string>

#include "kit/ViewController.h"
#include "kit/Views.h"

namespace shell {

// A plain page with a title and a back button.
class PlaceholderScreen : public kit::ViewController {
 public:
  explicit PlaceholderScreen(std::string title);
  void loadView() override;

 private:
  std::string title_;
};

class SetPin : public PlaceholderScreen {
 public:
  SetPin() : PlaceholderScreen("Set PIN") {}
  // The mode text its opener sets ("security" to ask for the PIN).
  std::string isFrom;
};

class SecretSpaceVC : public PlaceholderScreen {
 public:
  SecretSpaceVC() : PlaceholderScreen("Secret Space") {}
};

class SettingVc : public PlaceholderScreen {
 public:
  SettingVc() : PlaceholderScreen("Settings") {}
};

}  // namespace shell
