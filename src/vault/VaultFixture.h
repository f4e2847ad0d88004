// The fixture of the secret space's screen tests: a simulated world, the storyboard, and a
// window whose navigation stack starts at the home screen.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "kit/NavigationController.h"
#include "kit/Storyboard.h"
#include "kit/Toast.h"
#include "kit/Window.h"
#include "platform/Platform.h"
#include "shell/MainStoryboard.h"
#include "sim/World.h"
#include "vault/SetPin.h"

namespace vault {

struct VaultFixture : ::testing::Test {
  sim::World world;
  std::shared_ptr<kit::NavigationController> nav;
  std::shared_ptr<kit::Window> window = kit::make<kit::Window>();

  void SetUp() override {
    shell::registerMainStoryboard();
    nav = std::make_shared<kit::NavigationController>(
        kit::Storyboard::named("Main").instantiateViewControllerWithIdentifier("HomeVC"));
    window->setRootViewController(nav);
    window->makeKeyAndVisible();
  }
  void TearDown() override { kit::ToastManager::shared().hideAllToasts(); }

  platform::PreferenceStore& defaults() { return platform::preferences(); }
  kit::ViewController* top() { return nav->topViewController(); }
  std::string topIdentifier() { return top()->storyboardIdentifier(); }

  std::shared_ptr<SetPin> showPin(std::optional<std::string> mode) {
    auto pin = kit::Storyboard::named("Main").instantiate<SetPin>("SetPin");
    pin->isFrom = std::move(mode);
    nav->pushViewController(pin, false);
    world.env.runUntilIdle();
    return pin;
  }
  // Presses the keys of `keys`, one character per key: a digit, " " for the empty key, "x"
  // for the clearing key.
  void press(SetPin& pin, const std::string& keys) {
    for (char c : keys) {
      int row = c == ' ' ? 9 : c == 'x' ? 11 : c == '0' ? 10 : c - '1';
      pin.NumberCollectionView->userSelectItem({0, row});
      world.env.runMain();
    }
  }
  std::vector<std::string> toasts() {
    std::vector<std::string> out;
    for (const auto& t : kit::ToastManager::shared().activeToasts()) out.push_back(t.message.value_or(""));
    return out;
  }
};

}  // namespace vault
