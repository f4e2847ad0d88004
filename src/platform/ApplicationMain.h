// The platform's entry routine: what runs between the program's start and the first screen.
#pragma once

#include <memory>

#include "kit/Window.h"
#include "platform/Application.h"

namespace platform {

// Makes `delegate` the installed application's delegate, puts `initialController` into a new
// window of the screen's size and gives it to the delegate, tells the delegate launching
// has finished (no launch options), then makes the window key and visible (the first
// screen's view loads then). Returns the window. Main thread, once per process.
std::shared_ptr<kit::Window> applicationMain(std::shared_ptr<ApplicationDelegate> delegate,
                                             std::shared_ptr<kit::ViewController> initialController);

}  // namespace platform
