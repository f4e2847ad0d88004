// Screens that are not built yet: a plain page under each identifier,
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

// The secret space's two stores, reached from its hub.
class SecretFilesVC : public PlaceholderScreen {
 public:
  SecretFilesVC() : PlaceholderScreen("Secret Files") {}
};

}  // namespace shell
