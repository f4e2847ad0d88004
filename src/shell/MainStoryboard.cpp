#include "shell/MainStoryboard.h"

#include "kit/Storyboard.h"
#include "media/DuplicatePhotoVC.h"
#include "shell/HomeVC.h"
#include "shell/PlaceholderScreens.h"

namespace shell {

void registerMainStoryboard() {
  auto& main = kit::Storyboard::named("Main");
  main.registerScene("HomeVC", [] { return std::make_shared<HomeVC>(); });
  main.registerScene("DuplicatePhotoVC", [] { return std::make_shared<media::DuplicatePhotoVC>(); });
  main.registerScene("SetPin", [] { return std::make_shared<SetPin>(); });
  main.registerScene("SecretSpaceVC", [] { return std::make_shared<SecretSpaceVC>(); });
  main.registerScene("SettingVc", [] { return std::make_shared<SettingVc>(); });
}

}  // namespace shell
