#include "adclient/SVANativeAd.h"

namespace adclient {

void SVANativeAd::resetUnconfirmedClick() {
  clickConfirmationRequired = false;
  unconfirmedClickIdentifier.clear();
  unconfirmedClickTimestamp = 0.0;
}

kit::Dictionary SVANativeAd::dictionaryRepresentation() const {
  return {{"headline", headline},
          {"custom_one_point_five_click_eligible", customOnePointFiveClickEligible},
          {"view_aware_api_used", viewAwareAPIUsed}};
}

}  // namespace adclient
