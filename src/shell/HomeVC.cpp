#include "shell/HomeVC.h"

#include "ads/ADNetAdaptiveBannerAd.h"
#include "ads/Interstitial.h"
#include "kit/Console.h"
#include "kit/Fatal.h"
#include "kit/NavigationController.h"
#include "kit/Singleton.h"
#include "kit/Storyboard.h"
#include "media/DuplicatePhotoVC.h"
#include "platform/Platform.h"
#include "shared/PreferenceKeys.h"
#include "shell/SettingVc.h"
#include "vault/SecretSpaceVC.h"
#include "vault/SetPin.h"

namespace shell {

HomeVC::HomeVC() {
  registerAction("menuBtn:", [this](kit::Object* sender) { menuBtn(sender); });
  registerAction("photoBtn:", [this](kit::Object* sender) { photoBtn(sender); });
  registerAction("videoBtn:", [this](kit::Object* sender) { videoBtn(sender); });
  registerAction("secretBtn:", [this](kit::Object* sender) { secretBtn(sender); });
}

void HomeVC::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  addOutlet<kit::Label>("totalPhotoCount")->setText(std::string("Total 0 photos"));
  addOutlet<kit::Label>("totalVideoCount")->setText(std::string("Total 0 videos"));
  addOutlet<kit::Label>("totalContactCount")->setText(std::string("Contacts"));
  addOutlet<kit::Label>("usedSpace")->setText(std::string("-- GB"));
  addOutlet<kit::Label>("usedRam")->setText(std::string("-- GB"));
  addOutlet<kit::View>("adsView");
  registerOutlet("adsheightConstarint", std::make_shared<kit::LayoutConstraint>(0.0));
  for (auto [button, action] : {std::pair{"menuButton", "menuBtn:"}, std::pair{"photoButton", "photoBtn:"},
                                std::pair{"videoButton", "videoBtn:"}, std::pair{"secretButton", "secretBtn:"}}) {
    connect(*addOutlet<kit::Button>(button), action);
  }
  outlet<kit::Button>("menuButton").setImage(kit::Image::named("settings"), kit::kControlStateNormal);
}

void HomeVC::viewDidLoad() {
  auto& library = platform::photoLibrary();
  platform::FetchOptions plain;
  int photos = library.fetchAssetsWithMediaType(platform::MediaType::Image, &plain).count();
  totalPhotoCount->setText("Total " + std::to_string(photos) + " photos");
  showDiskFigures();
  int videos = library.fetchAssetsWithMediaType(platform::MediaType::Video, &plain).count();
  totalVideoCount->setText("Total " + std::to_string(videos) + " videos");
}

void HomeVC::showDiskFigures() {
  auto& files = platform::fileManager();
  std::vector<std::string> paths =
      files.searchPathForDirectoriesInDomains(platform::kDocumentDirectory, platform::kUserDomainMask, true);
  std::string path = paths.empty() ? "/" : paths.back();
  platform::Error error;
  std::optional<kit::Dictionary> attributes = files.attributesOfFileSystemForPath(path, &error);
  if (!attributes) {
    kit::print("Error retrieving disk space information.");
    return;
  }
  auto number = [&](const char* key) -> std::optional<long long> {
    auto it = attributes->find(key);
    if (it == attributes->end() || !it->second.isNumber()) return std::nullopt;
    return it->second.numberAsInteger();
  };
  std::optional<long long> total = number(platform::kFileSystemSize);
  std::optional<long long> free = number(platform::kFileSystemFreeSize);
  if (!total || !free) return;
  long long used = kit::checkedSubtract(*total, *free);
  usedSpace->setText(std::to_string(*free / 1000000000) + " GB");
  usedRam->setText(std::to_string(used / 1000000000) + " GB");
}

void HomeVC::viewWillAppear(bool) {
  ads::ADNetAdaptiveBannerAd::shared()->loadBanner(sharedAs<HomeVC>(), adsView.shared(), adsheightConstarint.shared());
}

namespace {
kit::Storyboard& storyboardOf(kit::ViewController& vc) {
  if (!vc.storyboard()) kit::fatal("Unexpectedly found nil while unwrapping the storyboard of " + vc.storyboardIdentifier());
  return *vc.storyboard();
}
}  // namespace

void HomeVC::openDuplicates(const std::string& type) {
  auto target = storyboardOf(*this).instantiate<media::DuplicatePhotoVC>("DuplicatePhotoVC");
  target->selectedtype = type;
  if (auto* nav = navigationController()) nav->pushViewController(target, false);
  ads::runPacedInterstitial(sharedAs<HomeVC>());
}

void HomeVC::photoBtn(kit::Object*) { openDuplicates("Photos"); }

void HomeVC::videoBtn(kit::Object*) { openDuplicates("Videos"); }

void HomeVC::secretBtn(kit::Object*) {
  auto& defaults = platform::preferences();
  auto& board = storyboardOf(*this);
  std::shared_ptr<kit::ViewController> target;
  if (!defaults.boolForKey(shared::SINGLE_TIME_CALL)) {
    target = board.instantiate<vault::SetPin>("SetPin");
  } else if (defaults.boolForKey(shared::IS_PIN_SET)) {
    auto pin = board.instantiate<vault::SetPin>("SetPin");
    pin->isFrom = "security";
    target = pin;
  } else {
    target = board.instantiate<vault::SecretSpaceVC>("SecretSpaceVC");
  }
  if (auto* nav = navigationController()) nav->pushViewController(target, true);
  ads::runPacedInterstitial(sharedAs<HomeVC>());
}

void HomeVC::menuBtn(kit::Object*) {
  auto target = storyboardOf(*this).instantiate<SettingVc>("SettingVc");
  target->setModalPresentationStyle(6);
  if (auto* nav = navigationController()) nav->pushViewController(target, false);
}

// ---- HomeHelper ----

std::shared_ptr<HomeHelper> HomeHelper::shared() { return kit::sharedInstance<HomeHelper>(); }

void HomeHelper::fetchGalleryAssets(const std::string& type,
                                    std::function<void(const std::vector<platform::AssetPtr>&)> completion) {
  imageArray.clear();
  auto self = shared();
  kit::globalQueue(kit::QoS::Background).async([self, type, completion] {
    kit::mainQueue().async([self, type, completion] {
      platform::ImageRequestOptions unused;
      unused.setSynchronous(true);
      unused.setDeliveryMode(1);
      platform::FetchOptions newestFirst;
      newestFirst.setSortDescriptors({{"creationDate", false}});
      platform::FetchResult result =
          type == "Images" ? platform::photoLibrary().fetchAssetsWithOptions(&newestFirst)
                           : platform::photoLibrary().fetchAssetsWithMediaType(platform::MediaType::Video, &newestFirst);
      if (result.count() == 0) {
        completion(self->imageArray);
        return;
      }
      for (int i = 0; i < result.count(); ++i) self->imageArray.push_back(result.objectAtIndex(i));
      completion(self->imageArray);
    });
  });
}

}  // namespace shell
