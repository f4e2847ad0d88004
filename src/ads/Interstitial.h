// Interstitials: one global slot filled by each successful load, a loader that is the
// delegate of every loaded ad, a presenter, and the paced interstitial that counted actions
// end with. Main thread.
#pragma once

#include <memory>
#include <string>

#include "ads/FullAdsListeners.h"
#include "platform/AdsNetwork.h"

namespace ads {

// The one slot: empty until the first load completes, then the latest loaded ad, never
// cleared (a shown ad stays until a later load replaces it).
std::shared_ptr<platform::InterstitialAd>& loadedInterstitial();

// The loader, and the full-screen content delegate of every loaded ad.
class AdsMobInitFullAds : public platform::FullScreenContentDelegate {
 public:
  static std::shared_ptr<AdsMobInitFullAds> shared();

  // Read by nobody.
  bool cache = false;
  // The controller of the last load (at first a fresh empty one).
  Controller contoller = std::make_shared<kit::ViewController>();

  // Requests an ad for `adUnitId` (nothing for an empty one). A failure is printed and leaves
  // the slot as it was; a success fills the slot and makes this object the ad's delegate.
  void loadFullAds(Controller controller, const std::string& adUnitId);

  void adWillPresentFullScreenContent(platform::FullScreenPresentingAd& ad) override;
  void adDidFailToPresentFullScreenContentWithError(platform::FullScreenPresentingAd& ad,
                                                    const platform::Error& error) override;
  // Shows the status bar, tells the FullAdsListener's delegate, and loads the next ad with the
  // controller of the last load.
  void adDidDismissFullScreenContent(platform::FullScreenPresentingAd& ad) override;
};

// The presenter.
class AdsMobFullAds : public platform::FullScreenContentDelegate {
 public:
  static std::shared_ptr<AdsMobFullAds> shared();

  // The controller of the last show (at first a fresh empty one).
  Controller contoller = std::make_shared<kit::ViewController>();

  // Presents the ad in the slot over `controller` and reports onFullAdsLoad; with the slot
  // empty, starts a load and reports onFullAdsFailed("Ad not Ready"). An empty `adUnitId`
  // only starts a load with the built-in identifier.
  void showFullAds(Controller controller, const std::string& adUnitId);

  // Never installed as a delegate; kept with their texts.
  void adWillPresentFullScreenContent(platform::FullScreenPresentingAd& ad) override;
  void adDidFailToPresentFullScreenContentWithError(platform::FullScreenPresentingAd& ad,
                                                    const platform::Error& error) override;
  void adDidDismissFullScreenContent(platform::FullScreenPresentingAd& ad) override;
};

// The three steps a counted action ends with, after the action itself: count one step; from
// a count above 3, reset the count to 0 and show an interstitial over `controller`.
void runPacedInterstitial(Controller controller);

}  // namespace ads
