// The launch's ad: HandleLaunchPrompt tries to show an interstitial 2 seconds after it is
// asked, and again 2 seconds after every failed show in the whole app, for the life of the
// process (it stays the delegate of FullAdsListener); its close passes on to whoever listens
// on FullAdsCloseListener. Main thread.
#pragma once

#include <memory>
#include <string>

#include "ads/FullAdsListeners.h"
#include "kit/Controls.h"

namespace ads {

// The interlude's close button (at first a fresh button, replaced by the interlude's).
std::shared_ptr<kit::Button>& launchCrossButton();

// One per interlude; kept alive by the listener slots it installs itself in.
class HandleLaunchPrompt : public FullAdsListenerProtocol,
                           public AppFullAdsCloseProtocol,
                           public std::enable_shared_from_this<HandleLaunchPrompt> {
 public:
  // Prints, becomes the delegate of FullAdsListener and schedules a retry for `controller`.
  void loadFullAdsOnLaunch(Controller controller);

  void onFullAdsLoad() override;
  // Becomes the delegate again and schedules another retry.
  void onFullAdsFailed(const std::string& message, Controller controller) override;
  // Becomes the delegate of AppFullAdsCloseListner and dispatches the close to itself.
  void onFullAdClosed(Controller controller) override;
  // Passes the close on to the delegate of FullAdsCloseListener.
  void onAppFullAdsClose(Controller controller) override;

 private:
  // Through a background queue back to the main queue, then a 2-second one-shot timer that
  // shows the interstitial over `controller` (held until it fires).
  void scheduleRetry(Controller controller);
};

class HandleLaunchFullAds : public AppFullAdsCloseProtocol {
 public:
  static std::shared_ptr<HandleLaunchFullAds> shared();

  std::string value;  // not used
  std::string type;   // not used

  // Keeps `crossButton`, starts a HandleLaunchPrompt for `controller` and becomes the
  // delegate of AppFullAdsCloseListner. Called by nobody.
  void startLaunchAds(Controller controller, std::shared_ptr<kit::Button> crossButton);
  // Dismisses what `controller` presents and hides the launch's close button.
  void onAppFullAdsClose(Controller controller) override;
};

}  // namespace ads
