#include "ads/LaunchAds.h"

#include "ads/AdConfig.h"
#include "ads/AppOpenAds.h"
#include "ads/Interstitial.h"
#include "kit/Console.h"
#include "kit/Dispatch.h"
#include "kit/Singleton.h"

namespace ads {
namespace {
struct LaunchButtonSlot {
  std::shared_ptr<kit::Button> button = std::make_shared<kit::Button>();
};
}  // namespace

std::shared_ptr<kit::Button>& launchCrossButton() { return kit::sharedInstance<LaunchButtonSlot>()->button; }

// ---- HandleLaunchPrompt ----

void HandleLaunchPrompt::loadFullAdsOnLaunch(Controller controller) {
  kit::print("ShoWFullads onlaunch");
  kit::print("loadFullAdsOnLaunch");
  FullAdsListener::shared()->fulladsdelegates = shared_from_this();
  scheduleRetry(std::move(controller));
}

void HandleLaunchPrompt::scheduleRetry(Controller controller) {
  kit::globalQueue(kit::QoS::Background).async([controller = std::move(controller)]() mutable {
    kit::mainQueue().async([controller = std::move(controller)]() mutable {
      kit::scheduledTimer(2.0, false, [controller](kit::Timer&) {
        AdsMobFullAds::shared()->showFullAds(controller, AdConfig::current().interstitialAdUnitID);
      });
    });
  });
}

void HandleLaunchPrompt::onFullAdsLoad() { kit::print("Show Full Adsqqqq"); }

void HandleLaunchPrompt::onFullAdsFailed(const std::string&, Controller controller) {
  kit::print("loadFullAdsOnLaunch");
  FullAdsListener::shared()->fulladsdelegates = shared_from_this();
  scheduleRetry(std::move(controller));
}

void HandleLaunchPrompt::onFullAdClosed(Controller controller) {
  kit::print("Full AdsClosedhhhh");
  AppFullAdsCloseListner::shared()->fulladsclosedelegates = shared_from_this();
  AppFullAdsCloseListner::shared()->onAppFullAdsClose(std::move(controller));
}

void HandleLaunchPrompt::onAppFullAdsClose(Controller controller) {
  kit::print("Full Ads Closedrrrryyyyyy", describeController(controller.get()));
  FullAdsCloseListener::shared()->onFullAdsCloseListener(std::move(controller));
}

// ---- HandleLaunchFullAds ----

std::shared_ptr<HandleLaunchFullAds> HandleLaunchFullAds::shared() { return kit::sharedInstance<HandleLaunchFullAds>(); }

void HandleLaunchFullAds::startLaunchAds(Controller controller, std::shared_ptr<kit::Button> crossButton) {
  launchCrossButton() = std::move(crossButton);
  std::make_shared<HandleLaunchPrompt>()->loadFullAdsOnLaunch(std::move(controller));
  AppFullAdsCloseListner::shared()->fulladsclosedelegates = shared();
}

void HandleLaunchFullAds::onAppFullAdsClose(Controller controller) {
  kit::print("Full Ads Closedrrrr");
  if (controller) controller->dismissViewControllerAnimated(true);
  kit::print("");
  if (auto button = launchCrossButton()) button->setHidden(true);
}

}  // namespace ads
