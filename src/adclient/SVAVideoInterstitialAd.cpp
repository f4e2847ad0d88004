#include "adclient/SVAVideoInterstitialAd.h"

#include "kit/Dispatch.h"

namespace adclient {

SVAVideoInterstitialAd::SVAVideoInterstitialAd(std::string adUnitID, std::string title,
                                               std::shared_ptr<platform::AdScriptChannel> channel)
    : adUnitID_(std::move(adUnitID)),
      title_(std::move(title)),
      nativeAd_(std::make_shared<SVANativeAd>()),
      webAdView_(std::make_shared<SVAWebAdView>(std::move(channel))),
      context_(SVAEventContext::rootContext("video_interstitial")) {
  nativeAd_->headline = title_;
  nativeAd_->adView = webAdView_;
}

void SVAVideoInterstitialAd::loadWithAdUnitID(std::string adUnitID, std::string videoURL, std::string title,
                                              std::shared_ptr<platform::AdScriptChannel> channel,
                                              double loadTimeoutSeconds, LoadCompletion completion) {
  auto ad = std::make_shared<SVAVideoInterstitialAd>(std::move(adUnitID), std::move(title), std::move(channel));
  SVAHTMLMediaContentConfiguration configuration;
  configuration.hasVideo = true;
  configuration.videoURL = std::move(videoURL);
  configuration.loadTimeoutSeconds = loadTimeoutSeconds;
  // The content's completion holds the ad until the load is over; the content lets it go
  // then, which ends the cycle.
  ad->content_ = std::make_unique<SVAHTMLMediaContent>(
      ad->nativeAd_, ad->webAdView_, ad->context_, std::move(configuration),
      [ad, completion = std::move(completion)](std::optional<platform::Error> error) {
        kit::mainQueue().async([ad, completion, error] {
          if (error) completion(nullptr, error);
          else completion(ad, std::nullopt);
        });
      });
  ad->visibilityChangeMonitor_ =
      std::make_unique<SVAViewVisibilityChangeMonitor>(ad->webAdView_, ad->webAdView_->visibilityMessageSource(), nullptr);
  ad->content_->attachMonitors();
}

void SVAVideoInterstitialAd::presentFromRootViewController(kit::ViewController* root) {
  auto self = shared_from_this();
  std::string refusal;
  if (used_) refusal = "Ad has already been used to present content.";
  else if (!root) refusal = "No root view controller to present from.";
  if (!refusal.empty()) {
    if (auto d = delegate_.lock()) d->adDidFailToPresentFullScreenContentWithError(*this, platform::Error{"ads", 18, refusal});
    return;
  }
  used_ = true;
  if (auto d = delegate_.lock()) d->adWillPresentFullScreenContent(*this);
  std::weak_ptr<SVAVideoInterstitialAd> weak = self;
  screen_ = std::make_shared<platform::FullScreenAdScreen>(nullptr, title_, [weak] {
    if (auto ad = weak.lock()) ad->dismissed();
  });
  screen_->setStoryboardOrigin(nullptr, "FullScreenAd");
  root->presentViewController(screen_, true);
  auto picture = std::dynamic_pointer_cast<kit::ImageView>(screen_->findOutlet("adImageView"));
  if (auto player = videoPlayer()) {
    if (picture) player->player().setVideoView(picture);
    player->playUserInitiated(false);
  }
  webAdView_->setAdVisible(true);
  if (auto d = delegate_.lock()) d->adDidRecordImpression(*this);
}

void SVAVideoInterstitialAd::close() {
  if (screen_) screen_->close();
}

void SVAVideoInterstitialAd::dismissed() {
  auto self = shared_from_this();
  screen_.reset();
  webAdView_->setAdVisible(false);
  if (auto player = videoPlayer()) player->pauseUserInitiated(false);
  if (auto d = delegate_.lock()) d->adDidDismissFullScreenContent(*this);
}

}  // namespace adclient
