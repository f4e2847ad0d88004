#include "adclient/SVAHTMLMediaContent.h"

#include "adclient/SVAAudioVideoManager.h"

namespace adclient {

SVAHTMLMediaContent::SVAHTMLMediaContent(std::weak_ptr<SVANativeAd> nativeAd, std::shared_ptr<SVAWebAdView> webAdView,
                                         std::shared_ptr<SVAEventContext> context,
                                         SVAHTMLMediaContentConfiguration configuration, LoadCompletion completion)
    : nativeAd_(std::move(nativeAd)),
      webAdView_(std::move(webAdView)),
      context_(std::move(context)),
      configuration_(std::move(configuration)),
      completion_(std::move(completion)) {}

std::shared_ptr<SVAVideoPlayer> SVAHTMLMediaContent::videoPlayer() const {
  return videoController_ ? videoController_->weakPlayer().lock() : nullptr;
}

void SVAHTMLMediaContent::finishLoadingWithError(std::optional<platform::Error> error) {
  auto completion = std::move(completion_);
  completion_ = nullptr;
  if (completion) completion(std::move(error));
}

void SVAHTMLMediaContent::attachMonitors() {
  auto ad = nativeAd_.lock();
  if (!ad) {
    finishLoadingWithError(platform::Error{"ads", kNativeAdDeallocatedErrorCode, kNativeAdDeallocatedErrorText});
    return;
  }
  const void* visibilitySource = webAdView_->visibilityMessageSource();

  signalMonitor_ = std::make_unique<SVANativeAdSignalMonitor>(nativeAd_, webAdView_, context_.get());
  attached_.push_back("SVANativeAdSignalMonitor");

  std::shared_ptr<SVAVideoPlayer> player;
  if (configuration_.hasVideo) {
    player = SVAVideoPlayer::make(webAdView_, SVAPlayerItemProvider::withURL(configuration_.videoURL), visibilitySource,
                                  SVAVideoConfiguration{}, context_);
    if (!player) {
      finishLoadingWithError(platform::Error{"ads", 2, "PlayerItem must exist for loading video player."});
      return;
    }
    videoController_ = std::make_unique<SVAAdVideoController>(player);
    attached_.push_back("SVAAdVideoController");
    videoActionMonitor_ = std::make_unique<SVAVideoActionMonitor>(player, context_.get());
    attached_.push_back("SVAVideoActionMonitor");
  }

  animateMonitor_ = std::make_unique<SVAAnimateViewActionMonitor>(webAdView_, context_.get());
  attached_.push_back("SVAAnimateViewActionMonitor");

  swappableView_ = std::make_shared<SVASwappableView>(webAdView_);
  swappableView_->setClickProtection(
      std::make_shared<SVAClickProtection>(configuration_.safeBrowsing, configuration_.debugDialogString));
  attached_.push_back("SVASwappableView");
  attached_.push_back("SVAClickProtection");
  expandMonitor_ = std::make_unique<SVAExpandActionMonitor>(
      context_.get(), SVAExpandActionMonitorConfiguration{configuration_.appStoreParameters,
                                                          configuration_.isAnalyticsLoggingEnabled});
  attached_.push_back("SVAExpandActionMonitor");

  volumeMonitor_ = std::make_unique<SVAApplicationVolumeMonitor>(webAdView_);
  volumeMonitor_->reportCurrentAudioState();
  attached_.push_back("SVAApplicationVolumeMonitor");

  viewVisibilityMonitor_ = std::make_unique<SVAViewVisibilityMonitor>(visibilitySource, player);
  attached_.push_back("SVAViewVisibilityMonitor");

  if (configuration_.hasVideo) {
    activeViewMonitor_ = std::make_unique<SVAActiveViewMonitor>(
        "media_content", kit::Dictionary{{"html_media_content", std::int64_t{1}}}, visibilitySource, context_);
    attached_.push_back("SVAActiveViewMonitor");
  }

  adLoadMonitor_ = std::make_unique<SVAAdLoadMonitor>(
      player ? player->context().get() : nullptr, configuration_.loadTimeoutSeconds,
      [this](std::optional<platform::Error> error) { finishLoadingWithError(std::move(error)); });
  attached_.push_back("SVAAdLoadMonitor");
}

}  // namespace adclient
