#include "ads/AppOpenAds.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <typeinfo>

#include "ads/AdConfig.h"
#include "kit/Console.h"
#include "kit/Fatal.h"
#include "kit/NavigationController.h"
#include "kit/Singleton.h"
#include "platform/Platform.h"
#include "shared/PreferenceKeys.h"

namespace ads {
namespace {
struct OpenAdSlot {
  std::shared_ptr<platform::AppOpenAd> ad;
  std::optional<kit::Date> loadTime;
  std::string unitId;
};

std::string listDescription(const std::vector<std::string>& items) {
  std::string s = "[";
  for (std::size_t i = 0; i < items.size(); ++i) s += (i ? ", \"" : "\"") + items[i] + "\"";
  return s + "]";
}
}  // namespace

std::shared_ptr<platform::AppOpenAd>& loadedOpenAd() { return kit::sharedInstance<OpenAdSlot>()->ad; }
std::optional<kit::Date>& openAdLoadTime() { return kit::sharedInstance<OpenAdSlot>()->loadTime; }
std::string& openAdUnitId() { return kit::sharedInstance<OpenAdSlot>()->unitId; }

std::string classNameOf(const kit::ViewController& controller) {
  if (!controller.storyboardIdentifier().empty()) return controller.storyboardIdentifier();
  const char* mangled = typeid(controller).name();
  int status = 0;
  char* demangled = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
  std::string name = status == 0 && demangled ? demangled : mangled;
  std::free(demangled);
  auto colon = name.rfind("::");
  return colon == std::string::npos ? name : name.substr(colon + 2);
}

std::string describeController(const kit::ViewController* controller) {
  if (!controller) return "nil";
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(controller));
  return "<" + classNameOf(*controller) + ": " + address + ">";
}

kit::ViewController* topController() {
  auto window = platform::application().keyWindow();
  if (!window || !window->rootViewController()) return nullptr;
  kit::ViewController* root = window->rootViewController().get();
  if (auto* nav = dynamic_cast<kit::NavigationController*>(root)) return nav->visibleViewController();
  while (root->presentedViewController()) root = root->presentedViewController().get();
  return root;
}

bool controlleritemCheck(const std::vector<std::string>& excluded, const kit::ViewController& controller) {
  if (excluded.empty()) return false;
  for (const auto& entry : excluded) {
    kit::print("controlleritemCheck", entry, "", classNameOf(controller));
    if (entry.find(classNameOf(controller)) != std::string::npos) return true;
    if (platform::preferences().boolForKey(shared::LOGIN_STATUS)) return true;
  }
  return false;
}

// ---- EngineOpenAds ----

std::shared_ptr<EngineOpenAds> EngineOpenAds::shared() { return kit::sharedInstance<EngineOpenAds>(); }

void EngineOpenAds::loadOpenAd(Controller controller) {
  loadedOpenAd().reset();
  requestController = std::move(controller);
  std::weak_ptr<EngineOpenAds> weak = shared();
  platform::adsNetwork().loadAppOpenAdWithAdUnitID(
      AdConfig::current().appOpenAdUnitID, platform::AdRequest{},
      [weak](std::shared_ptr<platform::AppOpenAd> ad, std::optional<platform::Error> error) {
        if (error) {
          kit::print("Failed to load app open ad: " + platform::describe(*error));
          return;
        }
        auto self = weak.lock();
        if (!ad || !self) return;
        loadedOpenAd() = ad;
        openAdLoadTime() = kit::Date::now();
        ad->setFullScreenContentDelegate(self);
      });
}

void EngineOpenAds::adDidFailToPresentFullScreenContentWithError(platform::FullScreenPresentingAd&,
                                                                 const platform::Error& error) {
  kit::print("didFailToPresentFullScreenContentWithError " + platform::describe(error));
  loadOpenAd(requestController);
}

void EngineOpenAds::adDidDismissFullScreenContent(platform::FullScreenPresentingAd&) {
  kit::print("adDidDismissFullScreenContent");
  loadOpenAd(requestController);
}

void EngineOpenAds::appMovedToForeground() {
  kit::print("App is in Foreground");
  kit::print(platform::preferences().boolForKey(shared::KEY_CONTROLLER_STATE_CHECK));
}

void EngineOpenAds::appMovedTobackground() {
  platform::preferences().setBool(false, shared::KEY_CONTROLLER_STATE_CHECK);
  status = false;
}

// ---- ShowEngineOpenAds ----

std::shared_ptr<ShowEngineOpenAds> ShowEngineOpenAds::shared() { return kit::sharedInstance<ShowEngineOpenAds>(); }

void ShowEngineOpenAds::showOpenAd(Controller controller, const std::string& adUnitId,
                                   const std::vector<std::string>& excludedControllers) {
  openAdUnitId() = adUnitId;
  if (adUnitId.empty()) return;
  contoller = std::move(controller);
  kit::print("exculdeStringArray", listDescription(excludedControllers), classNameOf(*contoller),
             describeController(contoller.get()));
  auto ad = loadedOpenAd();
  if (!ad) {
    EngineOpenAds::shared()->loadOpenAd(contoller);
    return;
  }
  if (!openAdLoadTime()) kit::fatal("Unexpectedly found nil while unwrapping an Optional value");
  double hours = kit::Date::now().timeIntervalSinceDate(*openAdLoadTime()) / 3600.0;
  if (hours >= 4.0) {
    EngineOpenAds::shared()->loadOpenAd(contoller);
    return;
  }
  if (controlleritemCheck(excludedControllers, *contoller)) return;
  ad->presentFromRootViewController(contoller.get());
  kit::print("Ad ready");
}

}  // namespace ads
