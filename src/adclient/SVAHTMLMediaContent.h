// SVAHTMLMediaContent: the media of an ad shown in a web ad view (a picture or a video), and
// the monitors that watch it while it is shown. attachMonitors puts them on in a fixed order
// and finishes the content's loading through its completion.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "adclient/SVAMediaMonitors.h"
#include "kit/Views.h"

namespace adclient {

struct SVAHTMLMediaContentConfiguration {
  // A video ad plays `videoURL` (a file path or URL) through an SVAVideoPlayer.
  bool hasVideo = false;
  std::string videoURL;
  // "protection_enabled" turns the click protection on.
  kit::Dictionary safeBrowsing;
  std::string debugDialogString;
  kit::Dictionary appStoreParameters;
  bool isAnalyticsLoggingEnabled = false;
  // Seconds a video may take to become playable.
  double loadTimeoutSeconds = 10.0;
};

class SVAHTMLMediaContent {
 public:
  // Code and text of the error a load finishes with when the native ad went away first.
  static constexpr long kNativeAdDeallocatedErrorCode = 19;
  static constexpr const char* kNativeAdDeallocatedErrorText = "Native ad was deallocated while loading media content.";

  using LoadCompletion = std::function<void(std::optional<platform::Error>)>;

  // Main thread. Holds the native ad weakly; keeps the web ad view and the context. The
  // completion runs once, on the main queue or inside attachMonitors, and is let go then.
  SVAHTMLMediaContent(std::weak_ptr<SVANativeAd> nativeAd, std::shared_ptr<SVAWebAdView> webAdView,
                      std::shared_ptr<SVAEventContext> context, SVAHTMLMediaContentConfiguration configuration,
                      LoadCompletion completion);
  SVAHTMLMediaContent(const SVAHTMLMediaContent&) = delete;
  SVAHTMLMediaContent& operator=(const SVAHTMLMediaContent&) = delete;

  // Main thread. With the native ad gone: finishes loading with error 19 and attaches
  // nothing. Otherwise attaches, in this order: SVANativeAdSignalMonitor; for a video, the
  // SVAAdVideoController (kept) with its SVAVideoActionMonitor; SVAAnimateViewActionMonitor;
  // an SVASwappableView with SVAClickProtection, and SVAExpandActionMonitor;
  // SVAApplicationVolumeMonitor, which reports the audio state at once;
  // SVAViewVisibilityMonitor (kept); for a video, SVAActiveViewMonitor ("media_content",
  // "html_media_content" 1); last SVAAdLoadMonitor (kept), which finishes the loading. A
  // video whose player cannot be made finishes loading with error 2 after the signal monitor.
  void attachMonitors();

  // The monitors' class names, in the order they were attached.
  const std::vector<std::string>& attachedMonitors() const { return attached_; }
  // The video player, null for a picture or before attachMonitors.
  std::shared_ptr<SVAVideoPlayer> videoPlayer() const;
  const std::shared_ptr<SVASwappableView>& swappableView() const { return swappableView_; }
  const SVAViewVisibilityMonitor* viewVisibilityMonitor() const { return viewVisibilityMonitor_.get(); }
  const SVAActiveViewMonitor* activeViewMonitor() const { return activeViewMonitor_.get(); }
  bool loadFinished() const { return !completion_; }

 private:
  void finishLoadingWithError(std::optional<platform::Error> error);

  std::weak_ptr<SVANativeAd> nativeAd_;
  std::shared_ptr<SVAWebAdView> webAdView_;
  std::shared_ptr<SVAEventContext> context_;
  SVAHTMLMediaContentConfiguration configuration_;
  LoadCompletion completion_;
  std::vector<std::string> attached_;

  std::unique_ptr<SVANativeAdSignalMonitor> signalMonitor_;
  std::unique_ptr<SVAAdVideoController> videoController_;
  std::unique_ptr<SVAVideoActionMonitor> videoActionMonitor_;
  std::unique_ptr<SVAAnimateViewActionMonitor> animateMonitor_;
  std::shared_ptr<SVASwappableView> swappableView_;
  std::unique_ptr<SVAExpandActionMonitor> expandMonitor_;
  std::unique_ptr<SVAApplicationVolumeMonitor> volumeMonitor_;
  std::unique_ptr<SVAViewVisibilityMonitor> viewVisibilityMonitor_;
  std::unique_ptr<SVAActiveViewMonitor> activeViewMonitor_;
  std::unique_ptr<SVAAdLoadMonitor> adLoadMonitor_;
};

}  // namespace adclient
