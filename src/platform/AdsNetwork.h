// The ads network as the app uses it: interstitial and app-open ads that load, present over a
// controller and report through a full-screen content delegate; banner views that load into a
// slot and report through a banner delegate; the adaptive banner size.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/Geometry.h"
#include "kit/ViewController.h"
#include "platform/Types.h"

namespace platform {

// A plain ad request.
struct AdRequest {};

// The state of one adapter (one source of ads) once the network has started.
struct AdapterStatus {
  enum State { NotReady = 0, Ready = 1 };
  State state = NotReady;
  std::string description;
  double latency = 0;  // seconds its start took
};

struct AdSize {
  kit::Size size;
};

class FullScreenPresentingAd;

// Events of a full-screen ad; every callback runs on the main queue.
class FullScreenContentDelegate {
 public:
  virtual ~FullScreenContentDelegate() = default;
  virtual void adWillPresentFullScreenContent(FullScreenPresentingAd&) {}
  virtual void adDidFailToPresentFullScreenContentWithError(FullScreenPresentingAd&, const Error&) {}
  virtual void adDidDismissFullScreenContent(FullScreenPresentingAd&) {}
  virtual void adDidRecordImpression(FullScreenPresentingAd&) {}
  virtual void adDidRecordClick(FullScreenPresentingAd&) {}
};

class FullScreenPresentingAd {
 public:
  virtual ~FullScreenPresentingAd() = default;
  virtual const std::string& adUnitID() const = 0;
  // The delegate is held weakly, as the network does.
  virtual void setFullScreenContentDelegate(std::weak_ptr<FullScreenContentDelegate> delegate) = 0;
  virtual std::shared_ptr<FullScreenContentDelegate> fullScreenContentDelegate() const = 0;
  // Presents the ad over `rootViewController`. An ad presents once; presenting it again, or
  // a presentation that fails, reports adDidFailToPresentFullScreenContentWithError.
  virtual void presentFromRootViewController(kit::ViewController* rootViewController) = 0;
};

class InterstitialAd : public FullScreenPresentingAd {};
class AppOpenAd : public FullScreenPresentingAd {};

class BannerView;

// Events of a banner; every callback runs on the main queue.
class BannerViewDelegate {
 public:
  virtual ~BannerViewDelegate() = default;
  virtual void bannerViewDidReceiveAd(BannerView&) {}
  virtual void bannerViewDidFailToReceiveAdWithError(BannerView&, const Error&) {}
  virtual void bannerViewDidRecordImpression(BannerView&) {}
};

// A banner: a view that shows an ad once loadRequest has filled it.
class BannerView : public kit::View {
 public:
  explicit BannerView(AdSize size) : adSize_(size) {
    setFrame(kit::Rect{{0, 0}, size.size});
  }
  const AdSize& adSize() const { return adSize_; }
  const std::string& adUnitID() const { return adUnitID_; }
  void setAdUnitID(std::string id) { adUnitID_ = std::move(id); }
  void setDelegate(std::weak_ptr<BannerViewDelegate> d) { delegate_ = std::move(d); }
  std::shared_ptr<BannerViewDelegate> delegate() const { return delegate_.lock(); }
  void setRootViewController(std::weak_ptr<kit::ViewController> vc) { root_ = std::move(vc); }
  std::shared_ptr<kit::ViewController> rootViewController() const { return root_.lock(); }
  // Requests an ad; the delegate hears of the result later, on the main queue.
  virtual void loadRequest(const AdRequest& request) = 0;

 private:
  AdSize adSize_;
  std::string adUnitID_;
  std::weak_ptr<BannerViewDelegate> delegate_;
  std::weak_ptr<kit::ViewController> root_;
};

class AdsNetwork {
 public:
  virtual ~AdsNetwork() = default;

  // Starts the network; `completion` runs on the main queue when it is ready.
  virtual void startWithCompletionHandler(std::function<void()> completion) = 0;
  virtual void setTestDeviceIdentifiers(std::vector<std::string> identifiers) = 0;
  // The adapters' states by their class names; empty before the start has completed.
  virtual std::map<std::string, AdapterStatus> adapterStatusesByClassName() { return {}; }

  // Loads an interstitial for `adUnitID`; the completion runs on the main queue, later, with
  // the ad or an error.
  virtual void loadInterstitialWithAdUnitID(
      const std::string& adUnitID, const AdRequest& request,
      std::function<void(std::shared_ptr<InterstitialAd>, std::optional<Error>)> completion) = 0;
  // Loads an app-open ad, likewise.
  virtual void loadAppOpenAdWithAdUnitID(
      const std::string& adUnitID, const AdRequest& request,
      std::function<void(std::shared_ptr<AppOpenAd>, std::optional<Error>)> completion) = 0;

  // A new banner view of `size` (initWithAdSize:).
  virtual std::shared_ptr<BannerView> bannerViewWithAdSize(AdSize size) = 0;
  // The anchored adaptive banner size for `width` in the current orientation.
  virtual AdSize currentOrientationAnchoredAdaptiveBannerAdSizeWithWidth(double width) = 0;
};

}  // namespace platform
