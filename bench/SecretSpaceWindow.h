// The secret space's hub at the root of a navigation controller in a visible window, as the
// app shows it, for the benchmarks that push the screen they measure onto it.
#pragma once

#include <memory>

#include "kit/NavigationController.h"
#include "kit/Storyboard.h"
#include "kit/View.h"
#include "kit/Window.h"
#include "shell/MainStoryboard.h"

namespace bench {

struct SecretSpaceWindow {
  SecretSpaceWindow()
      : board((shell::registerMainStoryboard(), kit::Storyboard::named("Main"))),
        nav(std::make_shared<kit::NavigationController>(board.instantiateViewControllerWithIdentifier("SecretSpaceVC"))),
        window(kit::make<kit::Window>()) {
    window->setRootViewController(nav);
    window->makeKeyAndVisible();
  }

  kit::Storyboard& board;
  std::shared_ptr<kit::NavigationController> nav;
  std::shared_ptr<kit::Window> window;
};

}  // namespace bench
