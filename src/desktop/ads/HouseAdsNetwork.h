// The ads network on the desktop: house ads. Every load is answered locally, after a set
// latency, with a creative from the lists it was given or with "no fill" at a set rate. It
// implements the whole network interface, so the app's ad flows run unchanged over it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/Views.h"
#include "platform/AdsNetwork.h"
#include "platform/FullScreenAd.h"

namespace desktop {

struct HouseAdsOptions {
  // Pictures shown by full-screen ads (interstitials, app-open ads) and by banners. A load of
  // a kind whose list is empty never fills.
  std::vector<kit::ImagePtr> interstitialCreatives;
  std::vector<kit::ImagePtr> bannerCreatives;
  // The app-open format's picture(s); empty: app-open ads use the interstitial pictures.
  std::vector<kit::ImagePtr> appOpenCreatives;
  // Share of loads that fill, 0..1 (values outside are clamped).
  double fillRate = 1.0;
  // Seconds on the kit's clock between a load and its answer.
  double latencySeconds = 0.5;
  // Seeds the draws of fill and creative, for repeatable runs; none: a random seed.
  std::optional<std::uint32_t> seed;
  // The title shown with a full-screen ad.
  std::string title = "Solvanta Pro";
  // Loads the video interstitial for an ad unit and answers `completion` on the main queue.
  // When set, an interstitial load that fills is answered by it, after the latency, instead
  // of with a picture; its errors are passed on.
  using VideoInterstitialLoader = std::function<void(
      const std::string& adUnitID,
      std::function<void(std::shared_ptr<platform::InterstitialAd>, std::optional<platform::Error>)> completion)>;
  VideoInterstitialLoader videoInterstitial;
};

// Draws fills and creatives and schedules answers; shared by a network and its banners, so a
// banner's request outlives the network. Defined with the network.
class HouseAdDealer;

// A banner of the house network. Main thread only, like every view.
class HouseBannerView : public platform::BannerView {
 public:
  HouseBannerView(platform::AdSize size, std::shared_ptr<HouseAdDealer> dealer);

  // Requests an ad. After the latency, on the main queue: when filled, the banner shows the
  // creative in a kit::ImageView subview covering its bounds (replacing the one shown
  // before) and tells its delegate bannerViewDidReceiveAd, then bannerViewDidRecordImpression;
  // otherwise it keeps what it showed and tells bannerViewDidFailToReceiveAdWithError. The
  // request keeps the banner alive until it is answered.
  void loadRequest(const platform::AdRequest& request) override;
  // The creative shown, null before the first fill.
  kit::ImagePtr creative() const;

 private:
  std::shared_ptr<HouseAdDealer> dealer_;
  std::shared_ptr<kit::ImageView> content_;
};

class HouseAdsNetwork : public platform::AdsNetwork {
 public:
  explicit HouseAdsNetwork(HouseAdsOptions options = {});
  ~HouseAdsNetwork() override;

  // Marks the network started; `completion` runs on the main queue, later.
  void startWithCompletionHandler(std::function<void()> completion) override;
  // Kept for testDeviceIdentifiers(); house ads are the same on every device.
  void setTestDeviceIdentifiers(std::vector<std::string> identifiers) override;
  // One adapter, the house's own, ready once started.
  std::map<std::string, platform::AdapterStatus> adapterStatusesByClassName() override;

  // Decide fill and creative now and answer on the main queue after the latency: a new
  // BasicInterstitialAd / BasicAppOpenAd (the shared presentation rules: it presents once,
  // as the "FullScreenAd" screen with a close button) or an error ("ads", code 1). With a
  // video interstitial loader, a filled interstitial is what the loader answers.
  void loadInterstitialWithAdUnitID(
      const std::string& adUnitID, const platform::AdRequest& request,
      std::function<void(std::shared_ptr<platform::InterstitialAd>, std::optional<platform::Error>)>
          completion) override;
  void loadAppOpenAdWithAdUnitID(
      const std::string& adUnitID, const platform::AdRequest& request,
      std::function<void(std::shared_ptr<platform::AppOpenAd>, std::optional<platform::Error>)>
          completion) override;

  // A new HouseBannerView of `size`.
  std::shared_ptr<platform::BannerView> bannerViewWithAdSize(platform::AdSize size) override;
  // `width` by a height that follows it (50 at 320 points, in proportion), kept within 50..90.
  platform::AdSize currentOrientationAnchoredAdaptiveBannerAdSizeWithWidth(double width) override;

  bool started() const;
  std::vector<std::string> testDeviceIdentifiers() const;

 private:
  std::shared_ptr<HouseAdDealer> dealer_;
};

// Creatives read from a folder: "interstitial-*" and "banner-*" files of PNG or JPEG content
// (".png", ".jpg", ".jpeg"), in name order, decoded at full size.
struct HouseAdCreatives {
  std::vector<kit::ImagePtr> interstitials;
  std::vector<kit::ImagePtr> banners;
  // One line for each file that could not be decoded, or for a folder that cannot be read.
  std::vector<std::string> problems;
};
HouseAdCreatives loadHouseAdCreatives(const std::string& folder);

}  // namespace desktop
