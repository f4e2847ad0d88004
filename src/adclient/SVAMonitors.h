// The monitors that turn an ad's notifications into reports. Each holds the ad weakly: a
// notification that comes after the ad has gone does nothing.
#pragma once

#include <memory>

#include "adclient/SVAEventContext.h"
#include "adclient/SVANativeAd.h"
#include "adclient/SVAObserverCollection.h"
#include "adclient/SVAWebAdView.h"

namespace adclient {

// Reports a native ad's clicks and impressions through its context, and runs the two-tap
// click confirmation. Every handler runs on the main queue. Observes notifications posted with
// the ad (SVANativeAd*) or its context (SVAEventContext*) as the object.
class SVANativeAdClickAndImpressionMonitor {
 public:
  // Main thread; the monitor keeps the context and a copy of the configuration.
  SVANativeAdClickAndImpressionMonitor(std::weak_ptr<SVANativeAd> ad, std::shared_ptr<SVAEventContext> nativeAdContext,
                                       SVAAdConfiguration adConfiguration, const void* adIdentity);
  // Main thread.
  void handleClick(const kit::Notification& note);
  void handleImpression(const kit::Notification& note);
  void handleClickRecordedAction();
  void handleImpressionRecordedAction();
  void handleUnconfirmedClickAction(const kit::Notification& note);
  // Reports a one-point-five click when a confirmation is pending, with "time_interval" in
  // milliseconds when `interval` (seconds) is above 0, then clears the pending confirmation.
  void handleConfirmationClick(double interval);

 private:
  SVAObserverCollection observers_;
  std::weak_ptr<SVANativeAd> nativeAd_;
  std::shared_ptr<SVAEventContext> nativeAdContext_;
  SVAAdConfiguration adConfiguration_;
  const void* adIdentity_;
};

// Tells the ad's script when its view becomes visible or hidden ("onAdVisibilityChanged").
class SVAViewVisibilityChangeMonitor {
 public:
  // Main thread. With the setting "use_present_vis_report" and a `presenter`, visibility
  // follows the presenter's present and dismiss notifications; otherwise the visibility
  // notifications of `visibilityMessageSource`. Identities are not kept.
  SVAViewVisibilityChangeMonitor(std::weak_ptr<SVAWebAdView> webAdView, const void* visibilityMessageSource,
                                 const void* presenter);
  // Sends "onAdVisibilityChanged" with "visible" "true" or "false". Main thread.
  void updateVisibility();
  bool isVisible() const { return visible_; }

 private:
  SVAObserverCollection observers_;
  std::weak_ptr<SVAWebAdView> webAdView_;
  bool visible_ = false;
};

}  // namespace adclient
