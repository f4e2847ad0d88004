#include "ads/FullAdsListeners.h"

#include "ads/AdConfig.h"
#include "ads/Interstitial.h"
#include "kit/Console.h"
#include "kit/Singleton.h"

namespace ads {

std::shared_ptr<FullAdsListener> FullAdsListener::shared() { return kit::sharedInstance<FullAdsListener>(); }

void FullAdsListener::onFullAdsLoad() {
  if (auto d = fulladsdelegates) d->onFullAdsLoad();
}

void FullAdsListener::onFullAdsFailed(const std::string& message, Controller controller) {
  if (auto d = fulladsdelegates) d->onFullAdsFailed(message, std::move(controller));
}

void FullAdsListener::onFullAdClosed(Controller controller) {
  if (auto d = fulladsdelegates) d->onFullAdClosed(std::move(controller));
}

std::shared_ptr<FullAdsCloseListener> FullAdsCloseListener::shared() {
  return kit::sharedInstance<FullAdsCloseListener>();
}

void FullAdsCloseListener::onFullAdsCloseListener(Controller controller) {
  if (auto d = fulladsdelegates) d->onFullAdsCloseListener(std::move(controller));
}

std::shared_ptr<AppFullAdsCloseListner> AppFullAdsCloseListner::shared() {
  return kit::sharedInstance<AppFullAdsCloseListner>();
}

void AppFullAdsCloseListner::onAppFullAdsClose(Controller controller) {
  if (auto d = fulladsclosedelegates) d->onAppFullAdsClose(std::move(controller));
}

std::shared_ptr<LaunchFullCallBackListener> LaunchFullCallBackListener::shared() {
  return kit::sharedInstance<LaunchFullCallBackListener>();
}

void LaunchFullCallBackListener::onLaunchFullCallBack(bool status) {
  if (auto d = fulladsdelegates) d->onLaunchFullCallBack(status);
}

void ShowFullAds::onFullAdsLoad() { kit::print("erroe"); }

void ShowFullAds::onFullAdsFailed(const std::string&, Controller controller) {
  AdsMobInitFullAds::shared()->loadFullAds(std::move(controller), AdConfig::current().interstitialAdUnitID);
}

void ShowFullAds::onFullAdClosed(Controller) { kit::print("onFullAdClosed"); }

void ShowForceFullAds::install() { FullAdsListener::shared()->fulladsdelegates = std::make_shared<ShowForceFullAds>(); }

void ShowForceFullAds::onFullAdsLoad() {
  kit::print("SendingDataVC showfull ads forceFullAds onFullAdsLoad ");
  kit::print("Show Force Full Ads");
}

void ShowForceFullAds::onFullAdsFailed(const std::string&, Controller controller) {
  AdsMobFullAds::shared()->showFullAds(std::move(controller), AdConfig::current().interstitialAdUnitID);
}

void ShowForceFullAds::onFullAdClosed(Controller) {
  kit::print("Full Ads Closedssssss");
  kit::print("SendingDataVC showfull ads forceFullAds onFullAdClosed ");
}

}  // namespace ads
