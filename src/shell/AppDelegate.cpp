#include "shell/AppDelegate.h"

#include "ads/AdConfig.h"
#include "ads/AppOpenAds.h"
#include "kit/Console.h"
#include "kit/Dispatch.h"
#include "kit/Fatal.h"
#include "kit/Singleton.h"
#include "platform/ApplicationMain.h"
#include "platform/Platform.h"
#include "shared/PreferenceKeys.h"
#include "shared/ViewHelpers.h"
#include "shell/MainStoryboard.h"

namespace shell {
namespace {
struct LaunchState {
  std::vector<std::string> excluded;
  bool openAdRequestedOnce = false;
};
}  // namespace

std::vector<std::string>& exculdeStringArray() { return kit::sharedInstance<LaunchState>()->excluded; }
bool& openAdRequestedOnce() { return kit::sharedInstance<LaunchState>()->openAdRequestedOnce; }

bool AppDelegate::applicationDidFinishLaunchingWithOptions(platform::Application& application,
                                                           const kit::Dictionary&) {
  // 1. The ads network; once started, its test device.
  platform::adsNetwork().startWithCompletionHandler([] {
    auto& network = platform::adsNetwork();
    for (const auto& [className, status] : network.adapterStatusesByClassName()) {
      (void)className;
      (void)status;
    }
    network.setTestDeviceIdentifiers({ads::AdConfig::current().testDeviceIdentifier});
  });
  // 2. The cloud services.
  platform::appServices().configure();
  // 3, 4. Messaging and the notification centre report to this object.
  auto self = shared_from_this();
  platform::messaging().setDelegate(std::weak_ptr<platform::MessagingDelegate>(self));
  auto& center = platform::notificationCenter();
  center.setDelegate(std::weak_ptr<platform::UserNotificationCenterDelegate>(self));
  // 5. Permission for badge, sound and alert; the answer is only printed.
  center.requestAuthorizationWithOptions(
      platform::kAuthorizationOptionBadge | platform::kAuthorizationOptionSound | platform::kAuthorizationOptionAlert,
      [](bool granted, std::optional<platform::Error>) {
        kit::print(granted ? "Success" : "Permission for push notifications denied.");
      });
  // 6. Without waiting for that answer.
  application.registerForRemoteNotifications();
  // 7.
  platform::keyboardManager().setEnable(true);
  shared::forceLightInterfaceStyle();
  // 8.
  auto& excluded = exculdeStringArray();
  const char* entries[] = {"SplashVC", "FullPagePromoInhouseVC", "SVAFullScreenAdViewController", "FBAudienceNetwork"};
  for (std::size_t i = 0; i < 4; ++i) {
    excluded.insert(excluded.begin() + static_cast<std::ptrdiff_t>(std::min(i, excluded.size())), entries[i]);
  }
  return true;
}

void AppDelegate::applicationWillEnterForeground(platform::Application&) {
  auto& preferences = platform::preferences();
  preferences.setValue(kit::Value(true), shared::KEY_CONTROLLER_STATE_CHECK);
  kit::ViewController* top = ads::topController();
  if (!top) return;
  preferences.setInteger(preferences.integerForKey(shared::OPEN_ADS_COUNT) + 1, shared::OPEN_ADS_COUNT);
  auto controller = top->sharedAs<kit::ViewController>();
  kit::scheduledTimer(0.5, false, [controller](kit::Timer&) {
    auto& prefs = platform::preferences();
    (void)prefs.integerForKey(shared::OPEN_ADS_COUNT);
    prefs.setInteger(0, shared::OPEN_ADS_COUNT);
    auto& excluded = exculdeStringArray();
    if (excluded.size() >= 5) excluded.erase(excluded.begin() + 4);
    ads::ShowEngineOpenAds::shared()->showOpenAd(controller, ads::AdConfig::current().appOpenAdUnitID, excluded);
  });
}

void AppDelegate::applicationDidEnterBackground(platform::Application&) {
  platform::preferences().setValue(kit::Value(false), shared::KEY_CONTROLLER_STATE_CHECK);
  kit::ViewController* top = ads::topController();
  if (!top) return;
  if (!openAdRequestedOnce()) {
    openAdRequestedOnce() = true;
    ads::EngineOpenAds::shared()->loadOpenAd(top->sharedAs<kit::ViewController>());
  }
}

void AppDelegate::messagingDidReceiveRegistrationToken(platform::Messaging& messaging, const std::string&) {
  messaging.tokenWithCompletion([](std::optional<std::string> token, std::optional<platform::Error> error) {
    if (error) {
      kit::print("Error fetching OCM registration token: " + platform::describe(*error));
    } else if (token) {
      kit::print("OCM registration token: " + *token);
    }
  });
}

std::shared_ptr<platform::PersistentContainer> AppDelegate::persistentContainer() {
  if (persistentContainer_) return persistentContainer_;
  auto container = platform::persistentStores().containerWithName("ContactDataModel");
  container->loadPersistentStoresWithCompletionHandler(
      [](const platform::PersistentStoreDescription&, std::optional<platform::Error> error) {
        if (error) kit::fatal("Unresolved error " + platform::describe(*error) + ", " + platform::describeUserInfo(*error));
      });
  persistentContainer_ = container;
  return persistentContainer_;
}

std::shared_ptr<AppDelegate> sharedAppDelegate() {
  if (!platform::services().application) return nullptr;
  return std::dynamic_pointer_cast<AppDelegate>(platform::application().delegate());
}

std::shared_ptr<kit::Window> applicationMain() {
  registerMainStoryboard();
  return platform::applicationMain(std::make_shared<AppDelegate>(), instantiateInitialViewController());
}

}  // namespace shell
