#include "platform/ApplicationMain.h"

#include "platform/Platform.h"

namespace platform {

std::shared_ptr<kit::Window> applicationMain(std::shared_ptr<ApplicationDelegate> delegate,
                                             std::shared_ptr<kit::ViewController> initialController) {
  auto& app = application();
  app.setDelegate(delegate);
  auto window = kit::make<kit::Window>(kit::Screen::mainBounds());
  window->setRootViewController(std::move(initialController));
  delegate->setWindow(window);
  app.addWindow(window);
  delegate->applicationDidFinishLaunchingWithOptions(app, kit::Dictionary{});
  window->makeKeyAndVisible();
  return window;
}

}  // namespace platform
