// The adaptive banner: one shared object serving every screen's banner slot, holding one
// banner at a time. Main thread.
#pragma once

#include <memory>
#include <string>

#include "kit/ViewController.h"
#include "kit/Views.h"
#include "platform/AdsNetwork.h"

namespace ads {

class ADNetAdaptiveBannerAd : public platform::BannerViewDelegate {
 public:
  static std::shared_ptr<ADNetAdaptiveBannerAd> shared();

  bool isRemoved = false;  // not read
  std::shared_ptr<platform::BannerView> adaptiveBannerViewAd;
  std::string bannerViewAdUnitID;  // not read: loads use the built-in identifier
  int intervalCounter = 0;         // not used
  int rewardAmountBackup = 1;      // not used

  ADNetAdaptiveBannerAd();

  // Returns at once; on the main queue, later: takes the old banner out of its slot, makes a
  // new one of the anchored adaptive size for the screen's width, remembers `heightConstraint`
  // as the one to open, puts the banner into `adsView` and requests an ad.
  void loadBanner(std::shared_ptr<kit::ViewController> controller, std::shared_ptr<kit::View> adsView,
                  std::shared_ptr<kit::LayoutConstraint> heightConstraint);

  // Shows the banner and opens the remembered constraint to the banner's frame height.
  void bannerViewDidReceiveAd(platform::BannerView& bannerView) override;
};

// A view in no hierarchy, shown when an ad arrives (to no visible effect).
std::shared_ptr<kit::View>& bannerSlotView();
// The height constraint of the latest load.
std::shared_ptr<kit::LayoutConstraint>& bannerHeightConstraint();

}  // namespace ads
