#include "platform/Feedback.h"

#include "kit/AlertController.h"
#include "kit/NavigationController.h"
#include "platform/Platform.h"

namespace platform {

void ReviewDialog::requestReview() {
  auto window = application().keyWindow();
  if (!window || !window->rootViewController()) return;
  kit::ViewController* front = window->rootViewController().get();
  for (int guard = 0; front && guard < 64; ++guard) {
    if (front->presentedViewController()) {
      front = front->presentedViewController().get();
    } else if (auto* nav = dynamic_cast<kit::NavigationController*>(front); nav && nav->topViewController()) {
      front = nav->topViewController();
    } else {
      break;
    }
  }
  auto dialog = kit::AlertController::make(std::string("Rate Solvanta"), storeLink_, kit::AlertStyle::Alert);
  dialog->addAction(std::make_shared<kit::AlertAction>(std::string("Not Now"), kit::AlertActionStyle::Cancel));
  std::string link = storeLink_;
  dialog->addAction(std::make_shared<kit::AlertAction>(std::string("Rate"), kit::AlertActionStyle::Default,
                                                       [link](kit::AlertAction&) { application().openURL(link, {}, {}); }));
  front->presentViewController(dialog, true);
}

}  // namespace platform
