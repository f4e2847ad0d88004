// SVAVideoInterstitialAd: a full-screen ad whose creative is a video. Loading makes its web ad
// view, its media content with the monitors attached and its video player, and finishes when
// the video can play through. Presenting shows the "FullScreenAd" screen with the video's
// pictures in its image, marks the ad visible (the monitors report its visibility and, the
// first time, its impression) and plays; closing hides and pauses it. Main thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "adclient/SVAHTMLMediaContent.h"
#include "adclient/SVAMonitors.h"
#include "platform/AdsNetwork.h"
#include "platform/FullScreenAd.h"

namespace adclient {

class SVAVideoInterstitialAd : public platform::InterstitialAd,
                               public std::enable_shared_from_this<SVAVideoInterstitialAd> {
 public:
  using LoadCompletion = std::function<void(std::shared_ptr<SVAVideoInterstitialAd>, std::optional<platform::Error>)>;

  // Loads the video at `videoURL` for `adUnitID`; the script side of its web ad view is
  // `channel`. `completion` runs once on the main queue: with the ad once its video can play
  // through, or with the error of a video that is missing, does not decode or does not load
  // within `loadTimeoutSeconds`. The load keeps the ad alive until then.
  static void loadWithAdUnitID(std::string adUnitID, std::string videoURL, std::string title,
                               std::shared_ptr<platform::AdScriptChannel> channel, double loadTimeoutSeconds,
                               LoadCompletion completion);

  const std::string& adUnitID() const override { return adUnitID_; }
  void setFullScreenContentDelegate(std::weak_ptr<platform::FullScreenContentDelegate> d) override {
    delegate_ = std::move(d);
  }
  std::shared_ptr<platform::FullScreenContentDelegate> fullScreenContentDelegate() const override {
    return delegate_.lock();
  }
  // Presents once over `root`, as every full-screen ad does; a second presentation, or one
  // with no root, reports adDidFailToPresentFullScreenContentWithError.
  void presentFromRootViewController(kit::ViewController* root) override;
  // Closes a presented ad as the user would.
  void close();

  bool isPresented() const { return screen_ != nullptr; }
  const std::shared_ptr<SVAWebAdView>& webAdView() const { return webAdView_; }
  const SVAHTMLMediaContent& content() const { return *content_; }
  std::shared_ptr<SVAVideoPlayer> videoPlayer() const { return content_->videoPlayer(); }
  // The ad's root context: its reports.
  const std::shared_ptr<SVAEventContext>& context() const { return context_; }

  SVAVideoInterstitialAd(std::string adUnitID, std::string title, std::shared_ptr<platform::AdScriptChannel> channel);

 private:
  void dismissed();

  std::string adUnitID_;
  std::string title_;
  std::weak_ptr<platform::FullScreenContentDelegate> delegate_;
  std::shared_ptr<SVANativeAd> nativeAd_;
  std::shared_ptr<SVAWebAdView> webAdView_;
  std::shared_ptr<SVAEventContext> context_;
  std::unique_ptr<SVAHTMLMediaContent> content_;
  std::unique_ptr<SVAViewVisibilityChangeMonitor> visibilityChangeMonitor_;
  std::shared_ptr<platform::FullScreenAdScreen> screen_;
  bool used_ = false;
};

}  // namespace adclient
