// App-open ads: one ad in a global slot, loaded on the first trip to the background and after
// each close, shown on a return to the foreground unless it is 4 hours old or the top screen
// is on the excluded list. Main thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ads/FullAdsListeners.h"
#include "kit/Date.h"
#include "platform/AdsNetwork.h"

namespace ads {

// The loaded ad: emptied by every load at once, filled by a successful one.
std::shared_ptr<platform::AppOpenAd>& loadedOpenAd();
// When the ad in the slot was loaded.
std::optional<kit::Date>& openAdLoadTime();
// The identifier given to the last show; stored and not read again.
std::string& openAdUnitId();

// The controller's class name, as the class describes itself (without namespace): a screen
// from a storyboard is named by its identifier, which is its class name.
std::string classNameOf(const kit::ViewController& controller);
// "<ClassName: 0x...>".
std::string describeController(const kit::ViewController* controller);

// The top-most controller of the key window: a navigation root gives its visible controller;
// any other root is followed through its presented controllers. Null with no key window or
// no root.
kit::ViewController* topController();

// Whether an ad must stay off `controller`: true when an entry of `excluded` contains the
// controller's class name, or (after the first entry that does not) when LOGIN_STATUS is
// true. An empty list excludes nothing. Prints each comparison.
bool controlleritemCheck(const std::vector<std::string>& excluded, const kit::ViewController& controller);

// The loader, and the full-screen content delegate of every loaded app-open ad.
class EngineOpenAds : public platform::FullScreenContentDelegate {
 public:
  static std::shared_ptr<EngineOpenAds> shared();

  bool status = false;  // written, never read
  // The controller of the last load.
  Controller requestController = std::make_shared<kit::ViewController>();
  Controller currentController = std::make_shared<kit::ViewController>();  // not used

  // Empties the slot, remembers `controller`, and requests an ad with the built-in
  // identifier. A failure is printed and leaves the slot empty; a success fills it, notes the
  // load time and makes this object the ad's delegate.
  void loadOpenAd(Controller controller);

  // Each prints and loads the next ad against requestController.
  void adDidFailToPresentFullScreenContentWithError(platform::FullScreenPresentingAd& ad,
                                                    const platform::Error& error) override;
  void adDidDismissFullScreenContent(platform::FullScreenPresentingAd& ad) override;

  // Registered with nothing, so never called by the app.
  void appMovedToForeground();
  void appMovedTobackground();
};

// The presenter.
class ShowEngineOpenAds {
 public:
  static std::shared_ptr<ShowEngineOpenAds> shared();

  // The controller of the last show.
  Controller contoller = std::make_shared<kit::ViewController>();

  // Shows the loaded ad over `controller` when it is under 4 hours old and the controller is
  // not excluded; with no ad or a stale one, loads one instead (a stale one is not shown). An
  // excluded controller keeps the ad for the next return. An empty `adUnitId` is stored and
  // nothing else happens.
  void showOpenAd(Controller controller, const std::string& adUnitId, const std::vector<std::string>& excludedControllers);
};

}  // namespace ads
