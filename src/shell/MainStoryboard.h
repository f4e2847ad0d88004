// The storyboard "Main": every screen of the app under an identifier equal to its class name.
#pragma once

#include <memory>

#include "kit/ViewController.h"

namespace shell {

// Registers the screens built so far (and the plain pages standing in for the others).
// Main thread; call once at start-up (again is harmless).
void registerMainStoryboard();

// The storyboard's initial controller: a navigation controller whose root is a new SplashVC.
std::shared_ptr<kit::ViewController> instantiateInitialViewController();

}  // namespace shell
