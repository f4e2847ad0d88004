// SVANativeAd: what the client keeps of a native ad for its reports: the click confirmation
// state, the ad's capabilities, and the view it is shown in. Main thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "kit/Value.h"
#include "kit/View.h"

namespace adclient {

// The identity of a view in a notification's user information ("tapped_asset_view").
inline kit::Value SVAViewIdentity(const kit::View* view) {
  return static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(view));
}

// What the ad server said about an ad; copied by those who keep it.
struct SVAAdConfiguration {
  std::string adType;
  std::string adUnitID;
  kit::Dictionary dictionary() const { return {{"ad_type", adType}, {"ad_unit_id", adUnitID}}; }
};

class SVANativeAd {
 public:
  // Pending confirmation: set by an unconfirmed-click action, cleared by resetUnconfirmedClick.
  bool clickConfirmationRequired = false;
  std::weak_ptr<kit::View> clickConfirmingView;
  double confirmationClickTimeInterval = 0.0;  // seconds
  std::string unconfirmedClickIdentifier;       // empty: none
  double unconfirmedClickTimestamp = 0.0;       // seconds
  void resetUnconfirmedClick();

  bool customOnePointFiveClickEligible = false;
  bool viewAwareAPIUsed = false;
  bool customMuteRequested = false;
  bool customMuteEnabled = false;
  bool customClickGestureEligible = false;

  std::string headline;
  // The view the ad is shown in, if any.
  std::weak_ptr<kit::View> adView;

  // The ad as report parameters: headline and capabilities.
  kit::Dictionary dictionaryRepresentation() const;
};

}  // namespace adclient
