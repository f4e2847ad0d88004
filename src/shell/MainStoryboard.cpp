#include "shell/MainStoryboard.h"

#include "kit/Storyboard.h"
#include "contacts/ContactVC.h"
#include "media/DuplicatePhotoVC.h"
#include "kit/NavigationController.h"
#include "shell/BlankViewController.h"
#include "shell/HomeVC.h"
#include "shell/SplashVC.h"
#include "shell/SettingVc.h"
#include "vault/ImagePreviewVC.h"
#include "vault/SecretDataViewController.h"
#include "vault/SecretFilesVC.h"
#include "vault/SecretContactVC.h"
#include "vault/SecretSpaceVC.h"
#include "vault/SecurityQuestionVC.h"
#include "vault/SetPin.h"

namespace shell {

void registerMainStoryboard() {
  auto& main = kit::Storyboard::named("Main");
  main.registerScene("SplashVC", [] { return std::make_shared<SplashVC>(); });
  main.registerScene("BlankViewController", [] { return std::make_shared<BlankViewController>(); });
  main.registerScene("HomeVC", [] { return std::make_shared<HomeVC>(); });
  main.registerScene("DuplicatePhotoVC", [] { return std::make_shared<media::DuplicatePhotoVC>(); });
  main.registerScene("SetPin", [] { return std::make_shared<vault::SetPin>(); });
  main.registerScene("SecurityQuestionVC", [] { return std::make_shared<vault::SecurityQuestionVC>(); });
  main.registerScene("SecretSpaceVC", [] { return std::make_shared<vault::SecretSpaceVC>(); });
  main.registerScene("SecretFilesVC", [] { return std::make_shared<vault::SecretFilesVC>(); });
  main.registerScene("SecretDataViewController", [] { return std::make_shared<vault::SecretDataViewController>(); });
  main.registerScene("ImagePreviewVC", [] { return std::make_shared<vault::ImagePreviewVC>(); });
  main.registerScene("PreviewVC", [] { return std::make_shared<vault::PreviewVC>(); });
  main.registerScene("SecretContactVC", [] { return std::make_shared<vault::SecretContactVC>(); });
  main.registerScene("ContactVC", [] { return std::make_shared<contacts::ContactVC>(); });
  main.registerScene("SettingVc", [] { return std::make_shared<SettingVc>(); });
}

std::shared_ptr<kit::ViewController> instantiateInitialViewController() {
  return std::make_shared<kit::NavigationController>(
      kit::Storyboard::named("Main").instantiateViewControllerWithIdentifier("SplashVC"));
}

}  // namespace shell
