// The monitors a media ad carries while it is shown: each listens to a few named notifications
// of its ad, its view or its context, and turns them into script events, player commands or
// reports. Every monitor is made and used on the main thread, holds what it watches weakly,
// and stops listening when it goes away.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "adclient/SVAEventContext.h"
#include "adclient/SVANativeAd.h"
#include "adclient/SVAObserverCollection.h"
#include "adclient/SVAVideoPlayer.h"
#include "adclient/SVAWebAdView.h"
#include "platform/Types.h"

namespace adclient {

// Actions an ad's script asks for, posted with the ad's context as the object. Their user
// information is the action's parameters.
inline constexpr const char* kSVASignalsActionNotification = "com.stuvop.ad.action.received.signals";
inline constexpr const char* kSVAVideoActionNotification = "com.stuvop.ad.action.received.video";
inline constexpr const char* kSVAAnimateActionNotification = "com.stuvop.ad.action.received.animate";
inline constexpr const char* kSVAExpandActionNotification = "com.stuvop.ad.action.received.expand";
// A tap on an ad's content (the swappable view is the object).
inline constexpr const char* kSVAContentClickNotification = "com.stuvop.mt.content.click.did";
// The monitors' own reports.
inline constexpr const char* kSVAExpandNotification = "com.stuvop.mt.ad.expand.did";
inline constexpr const char* kSVAApplicationVolumeChangedNotification = "com.stuvop.mt.application-volume.changed";

// Answers the script's request for the native ad's signals ("onNativeAdSignals" with the ad's
// headline and capabilities). A request after the ad has gone is not answered.
class SVANativeAdSignalMonitor {
 public:
  SVANativeAdSignalMonitor(std::weak_ptr<SVANativeAd> ad, std::weak_ptr<SVAWebAdView> webAdView,
                           const SVAEventContext* context);

 private:
  SVAObserverCollection observers_;
};

// Keeps an ad's video player for as long as the ad is shown.
class SVAAdVideoController {
 public:
  explicit SVAAdVideoController(std::shared_ptr<SVAVideoPlayer> player) : player_(std::move(player)) {}
  SVAVideoPlayer* player() const { return player_.get(); }
  std::weak_ptr<SVAVideoPlayer> weakPlayer() const { return player_; }

 private:
  std::shared_ptr<SVAVideoPlayer> player_;
};

// Turns the script's video actions into player commands: "action" is "play", "pause", "mute",
// "unmute" or "volume" (with "volume", 0..1); "user_initiated" (default false) goes with it.
// Other actions are ignored.
class SVAVideoActionMonitor {
 public:
  SVAVideoActionMonitor(std::weak_ptr<SVAVideoPlayer> player, const SVAEventContext* context);

 private:
  SVAObserverCollection observers_;
};

// Applies the script's view animations to the ad's view: "alpha" (0..1) and "hidden".
class SVAAnimateViewActionMonitor {
 public:
  SVAAnimateViewActionMonitor(std::weak_ptr<kit::View> view, const SVAEventContext* context);

 private:
  SVAObserverCollection observers_;
};

// Keeps taps that come too soon from counting as clicks: while protection is enabled, a tap
// within kGuardInterval seconds of the content becoming visible is refused, and the debug
// dialog string (when there is one) is printed with the refusal.
class SVAClickProtection {
 public:
  static constexpr double kGuardInterval = 1.0;
  // `safeBrowsing`'s "protection_enabled" (default false) turns the protection on.
  SVAClickProtection(const kit::Dictionary& safeBrowsing, std::string debugDialogString);
  bool protectionEnabled() const { return protectionEnabled_; }
  // The content became visible at `seconds` (kit clock).
  void contentDidAppear(double seconds) { appearedAt_ = seconds; }
  // Whether a tap at `seconds` may count as a click. Prints "Click protection: ..." when not.
  bool shouldAllowClickAt(double seconds) const;

 private:
  bool protectionEnabled_;
  std::string debugDialogString_;
  std::optional<double> appearedAt_;
};

// The view the ad's content lives in; its content can be swapped for another (an expanded
// ad) without the monitors noticing. A tap on it posts kSVAContentClickNotification when the
// click protection lets it through.
class SVASwappableView : public kit::View {
 public:
  explicit SVASwappableView(std::shared_ptr<kit::View> content);
  // Replaces the content view, keeping this view's frame.
  void swapContent(std::shared_ptr<kit::View> content);
  const std::shared_ptr<kit::View>& content() const { return content_; }
  void setClickProtection(std::shared_ptr<SVAClickProtection> protection) { protection_ = std::move(protection); }
  const std::shared_ptr<SVAClickProtection>& clickProtection() const { return protection_; }
  // A tap on the content at the kit clock's now. True when it counts as a click.
  bool tap();

 private:
  std::shared_ptr<kit::View> content_;
  std::shared_ptr<SVAClickProtection> protection_;
};

struct SVAExpandActionMonitorConfiguration {
  kit::Dictionary appStoreParameters;
  bool isAnalyticsLoggingEnabled = false;
};

// Answers the script's expand action: posts kSVAExpandNotification with the ad's
// "app_store_parameters" (the context is the object), and prints "Ad expanded" when analytics
// logging is on.
class SVAExpandActionMonitor {
 public:
  SVAExpandActionMonitor(const SVAEventContext* context, SVAExpandActionMonitorConfiguration configuration);

 private:
  SVAObserverCollection observers_;
  SVAExpandActionMonitorConfiguration configuration_;
};

// Tells the ad's script the application's audio state ("onAudioStateChanged" with "muted" and
// "volume"), now and whenever SVAMobileAds' application volume changes.
class SVAApplicationVolumeMonitor {
 public:
  explicit SVAApplicationVolumeMonitor(std::weak_ptr<SVAWebAdView> webAdView);
  void reportCurrentAudioState();

 private:
  SVAObserverCollection observers_;
  std::weak_ptr<SVAWebAdView> webAdView_;
};

// Follows the visibility of the ad's view and hands it to the video player (which gives its
// item up while hidden, when too many players are loaded).
class SVAViewVisibilityMonitor {
 public:
  SVAViewVisibilityMonitor(const void* visibilityMessageSource, std::weak_ptr<SVAVideoPlayer> player);
  bool visible() const { return visible_; }

 private:
  SVAObserverCollection observers_;
  std::weak_ptr<SVAVideoPlayer> player_;
  bool visible_ = false;
};

// Measures whether the ad was actually seen: the first time its view becomes visible it sends
// one impression report through the context, with "ad_format", "active_view" true and the
// configuration's entries. Later visibility changes report nothing.
class SVAActiveViewMonitor {
 public:
  SVAActiveViewMonitor(std::string adFormat, kit::Dictionary configuration, const void* visibilityMessageSource,
                       std::shared_ptr<SVAEventContext> context);
  bool reported() const { return reported_; }

 private:
  SVAObserverCollection observers_;
  std::string adFormat_;
  kit::Dictionary configuration_;
  std::shared_ptr<SVAEventContext> context_;
  bool reported_ = false;
};

// Finishes the content's loading once: for a video, with no error when the player posts its
// metadata (it can play through), with the player's error when its status turns failed, and
// with "The video did not load in time." when neither happened within the timeout (a video
// that is missing or does not decode); for other content, on the next main-queue turn. The
// completion runs on the main queue; a monitor gone by then calls nothing.
class SVAAdLoadMonitor {
 public:
  using Completion = std::function<void(std::optional<platform::Error>)>;
  // `playerContext` is the video player's context, or null for content without video.
  SVAAdLoadMonitor(const SVAEventContext* playerContext, double timeoutSeconds, Completion completion);
  bool finished() const { return finished_; }

 private:
  void finish(std::optional<platform::Error> error);
  SVAObserverCollection observers_;
  Completion completion_;
  bool finished_ = false;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace adclient
