#include "ads/Interstitial.h"

#include "ads/AdConfig.h"
#include "kit/Console.h"
#include "kit/Singleton.h"
#include "platform/Platform.h"
#include "shared/FullAdsCount.h"

namespace ads {
namespace {
struct InterstitialSlot {
  std::shared_ptr<platform::InterstitialAd> ad;
};
}  // namespace

std::shared_ptr<platform::InterstitialAd>& loadedInterstitial() {
  return kit::sharedInstance<InterstitialSlot>()->ad;
}

// ---- AdsMobInitFullAds ----

std::shared_ptr<AdsMobInitFullAds> AdsMobInitFullAds::shared() { return kit::sharedInstance<AdsMobInitFullAds>(); }

void AdsMobInitFullAds::loadFullAds(Controller controller, const std::string& adUnitId) {
  if (adUnitId.empty()) return;
  contoller = std::move(controller);
  std::weak_ptr<AdsMobInitFullAds> weak = shared();
  platform::adsNetwork().loadInterstitialWithAdUnitID(
      adUnitId, platform::AdRequest{},
      [weak](std::shared_ptr<platform::InterstitialAd> ad, std::optional<platform::Error> error) {
        if (error) {
          kit::print("Failed to load interstitial ad with error: " + error->localizedDescription);
          return;
        }
        auto self = weak.lock();
        if (!ad || !self) return;
        loadedInterstitial() = ad;
        ad->setFullScreenContentDelegate(self);
      });
}

void AdsMobInitFullAds::adWillPresentFullScreenContent(platform::FullScreenPresentingAd&) {
  kit::print("Ad will present full screen content.");
}

void AdsMobInitFullAds::adDidFailToPresentFullScreenContentWithError(platform::FullScreenPresentingAd&,
                                                                     const platform::Error&) {}

void AdsMobInitFullAds::adDidDismissFullScreenContent(platform::FullScreenPresentingAd&) {
  platform::application().setStatusBarHidden(false);
  FullAdsListener::shared()->onFullAdClosed(contoller);
  loadFullAds(contoller, AdConfig::current().interstitialAdUnitID);
}

// ---- AdsMobFullAds ----

std::shared_ptr<AdsMobFullAds> AdsMobFullAds::shared() { return kit::sharedInstance<AdsMobFullAds>(); }

void AdsMobFullAds::showFullAds(Controller controller, const std::string& adUnitId) {
  const std::string builtIn = AdConfig::current().interstitialAdUnitID;
  if (adUnitId.empty()) {
    AdsMobInitFullAds::shared()->contoller = std::move(controller);
    AdsMobInitFullAds::shared()->loadFullAds(AdsMobInitFullAds::shared()->contoller, builtIn);
    return;
  }
  contoller = controller;
  if (auto ad = loadedInterstitial()) {
    kit::print("Present");
    ad->presentFromRootViewController(controller.get());
    FullAdsListener::shared()->onFullAdsLoad();
    return;
  }
  AdsMobInitFullAds::shared()->loadFullAds(controller, builtIn);
  FullAdsListener::shared()->onFullAdsFailed("Ad not Ready", controller);
}

void AdsMobFullAds::adWillPresentFullScreenContent(platform::FullScreenPresentingAd&) {
  kit::print("interstitialWillPresentScreen");
}

void AdsMobFullAds::adDidFailToPresentFullScreenContentWithError(platform::FullScreenPresentingAd&,
                                                                 const platform::Error& error) {
  kit::print("interstitial:didFailToReceiveAdWithError: " + error.localizedDescription);
}

void AdsMobFullAds::adDidDismissFullScreenContent(platform::FullScreenPresentingAd&) {
  kit::print("interstitialWillDismissScreen");
}

// ---- The paced interstitial ----

void runPacedInterstitial(Controller controller) {
  shared::SaveFullAdsCount(-1);
  if (shared::GetFullAdsCount() > 3) {
    shared::SaveFullAdsCount(0);
    AdsMobFullAds::shared()->showFullAds(std::move(controller), AdConfig::current().interstitialAdUnitID);
  }
}

}  // namespace ads
