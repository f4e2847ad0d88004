#include "ads/ADNetAdaptiveBannerAd.h"

#include "ads/AdConfig.h"
#include "kit/Dispatch.h"
#include "kit/Singleton.h"
#include "platform/Platform.h"

namespace ads {
namespace {
struct BannerGlobals {
  std::shared_ptr<kit::View> slotView = std::make_shared<kit::View>();
  std::shared_ptr<kit::LayoutConstraint> heightConstraint = std::make_shared<kit::LayoutConstraint>();
};
}  // namespace

std::shared_ptr<kit::View>& bannerSlotView() { return kit::sharedInstance<BannerGlobals>()->slotView; }

std::shared_ptr<kit::LayoutConstraint>& bannerHeightConstraint() {
  return kit::sharedInstance<BannerGlobals>()->heightConstraint;
}

std::shared_ptr<ADNetAdaptiveBannerAd> ADNetAdaptiveBannerAd::shared() {
  return kit::sharedInstance<ADNetAdaptiveBannerAd>();
}

ADNetAdaptiveBannerAd::ADNetAdaptiveBannerAd() : bannerViewAdUnitID(AdConfig::current().bannerAdUnitID) {}

void ADNetAdaptiveBannerAd::loadBanner(std::shared_ptr<kit::ViewController> controller,
                                       std::shared_ptr<kit::View> adsView,
                                       std::shared_ptr<kit::LayoutConstraint> heightConstraint) {
  std::weak_ptr<ADNetAdaptiveBannerAd> weak = shared();
  kit::mainQueue().async([weak, controller, adsView, heightConstraint] {
    auto self = weak.lock();
    if (!self) return;
    if (self->adaptiveBannerViewAd) self->adaptiveBannerViewAd->removeFromSuperview();
    double width = kit::Screen::mainBounds().width();
    platform::AdSize size = platform::adsNetwork().currentOrientationAnchoredAdaptiveBannerAdSizeWithWidth(width);
    auto banner = platform::adsNetwork().bannerViewWithAdSize(size);
    self->adaptiveBannerViewAd = banner;
    banner->setAdUnitID(AdConfig::current().bannerAdUnitID);
    banner->setDelegate(self);
    banner->setRootViewController(controller);
    bannerHeightConstraint() = heightConstraint;
    adsView->addSubview(banner);
    banner->loadRequest(platform::AdRequest{});
  });
}

void ADNetAdaptiveBannerAd::bannerViewDidReceiveAd(platform::BannerView& bannerView) {
  bannerView.setHidden(false);
  bannerSlotView()->setHidden(false);
  bannerHeightConstraint()->setConstant(bannerView.frame().height());
}

}  // namespace ads
