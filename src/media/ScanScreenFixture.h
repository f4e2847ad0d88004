// A test fixture: the simulated world with a window whose navigation stack holds a plain
// root, and a scan screen ready to be pushed onto it.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "kit/NavigationController.h"
#include "kit/Window.h"
#include "media/DuplicatePhotoVC.h"
#include "sim/World.h"

namespace media {

struct ScanScreenFixture : ::testing::Test {
  sim::World world;
  std::shared_ptr<kit::ViewController> home = std::make_shared<kit::ViewController>();
  std::shared_ptr<kit::NavigationController> nav = std::make_shared<kit::NavigationController>(home);
  std::shared_ptr<kit::Window> window = kit::make<kit::Window>();
  std::shared_ptr<DuplicatePhotoVC> screen = std::make_shared<DuplicatePhotoVC>();

  void SetUp() override {
    window->setRootViewController(nav);
    window->makeKeyAndVisible();
  }
};

}  // namespace media
