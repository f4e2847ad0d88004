#include "adclient/SVAMediaMonitors.h"

#include <algorithm>
#include <cmath>

#include "adclient/SVAAudioVideoManager.h"
#include "adclient/SVANotifications.h"
#include "kit/Console.h"
#include "kit/Dispatch.h"

namespace adclient {
namespace {

const kit::Value* find(const kit::Dictionary& d, const char* key) {
  auto it = d.find(key);
  return it == d.end() ? nullptr : &it->second;
}

bool truth(const kit::Dictionary& d, const char* key) {
  const kit::Value* v = find(d, key);
  return v && v->numberAsInteger().value_or(0) != 0;
}

}  // namespace

// ---- Signals ----

SVANativeAdSignalMonitor::SVANativeAdSignalMonitor(std::weak_ptr<SVANativeAd> ad, std::weak_ptr<SVAWebAdView> webAdView,
                                                   const SVAEventContext* context) {
  observers_.addObserverForName(kSVASignalsActionNotification, context, &kit::mainQueue(),
                                [ad, webAdView](const kit::Notification&) {
                                  auto nativeAd = ad.lock();
                                  auto view = webAdView.lock();
                                  if (nativeAd && view) view->fireSDKEvent("onNativeAdSignals", nativeAd->dictionaryRepresentation());
                                });
}

// ---- Video actions ----

SVAVideoActionMonitor::SVAVideoActionMonitor(std::weak_ptr<SVAVideoPlayer> player, const SVAEventContext* context) {
  observers_.addObserverForName(kSVAVideoActionNotification, context, &kit::mainQueue(),
                                [player](const kit::Notification& n) {
                                  auto p = player.lock();
                                  const kit::Value* action = find(n.userInfo, "action");
                                  const std::string* name = action ? action->asString() : nullptr;
                                  if (!p || !name) return;
                                  const bool user = truth(n.userInfo, "user_initiated");
                                  if (*name == "play") p->playUserInitiated(user);
                                  else if (*name == "pause") p->pauseUserInitiated(user);
                                  else if (*name == "mute") p->setMuted(true, user);
                                  else if (*name == "unmute") p->setMuted(false, user);
                                  else if (*name == "volume") {
                                    const kit::Value* v = find(n.userInfo, "volume");
                                    if (auto volume = v ? v->numberAsReal() : std::nullopt) p->setVolume(*volume, user);
                                  }
                                });
}

// ---- Animations ----

SVAAnimateViewActionMonitor::SVAAnimateViewActionMonitor(std::weak_ptr<kit::View> view, const SVAEventContext* context) {
  observers_.addObserverForName(kSVAAnimateActionNotification, context, &kit::mainQueue(),
                                [view](const kit::Notification& n) {
                                  auto v = view.lock();
                                  if (!v) return;
                                  if (const kit::Value* alpha = find(n.userInfo, "alpha")) {
                                    if (auto a = alpha->numberAsReal(); a && std::isfinite(*a))
                                      v->setAlpha(std::clamp(*a, 0.0, 1.0));
                                  }
                                  if (const kit::Value* hidden = find(n.userInfo, "hidden")) {
                                    if (auto h = hidden->numberAsInteger()) v->setHidden(*h != 0);
                                  }
                                });
}

// ---- Click protection ----

SVAClickProtection::SVAClickProtection(const kit::Dictionary& safeBrowsing, std::string debugDialogString)
    : protectionEnabled_(truth(safeBrowsing, "protection_enabled")), debugDialogString_(std::move(debugDialogString)) {}

bool SVAClickProtection::shouldAllowClickAt(double seconds) const {
  if (!protectionEnabled_) return true;
  if (appearedAt_ && seconds - *appearedAt_ >= kGuardInterval) return true;
  std::string line = appearedAt_ ? "Click protection: a tap too soon after the ad appeared was refused."
                                 : "Click protection: a tap on an ad not yet shown was refused.";
  if (!debugDialogString_.empty()) line += " " + debugDialogString_;
  kit::printLine(line);
  return false;
}

SVASwappableView::SVASwappableView(std::shared_ptr<kit::View> content) { swapContent(std::move(content)); }

void SVASwappableView::swapContent(std::shared_ptr<kit::View> content) {
  if (content_) content_->removeFromSuperview();
  content_ = std::move(content);
  if (!content_) return;
  content_->setFrame(kit::Rect{{0, 0}, frame().size});
  addSubview(content_);
}

bool SVASwappableView::tap() {
  if (protection_ && !protection_->shouldAllowClickAt(kit::uptime())) return false;
  kit::NotificationCenter::defaultCenter().postNotificationName(kSVAContentClickNotification, this, {});
  return true;
}

// ---- Expansion ----

SVAExpandActionMonitor::SVAExpandActionMonitor(const SVAEventContext* context,
                                               SVAExpandActionMonitorConfiguration configuration)
    : configuration_(std::move(configuration)) {
  observers_.addObserverForName(kSVAExpandActionNotification, context, &kit::mainQueue(),
                                [this, context](const kit::Notification&) {
                                  kit::NotificationCenter::defaultCenter().postNotificationName(
                                      kSVAExpandNotification, context,
                                      {{"app_store_parameters", configuration_.appStoreParameters}});
                                  if (configuration_.isAnalyticsLoggingEnabled) kit::printLine("Ad expanded");
                                });
}

// ---- Application volume ----

SVAApplicationVolumeMonitor::SVAApplicationVolumeMonitor(std::weak_ptr<SVAWebAdView> webAdView)
    : webAdView_(std::move(webAdView)) {
  observers_.addObserverForName(kSVAApplicationVolumeChangedNotification, nullptr, &kit::mainQueue(),
                                [this](const kit::Notification&) { reportCurrentAudioState(); });
}

void SVAApplicationVolumeMonitor::reportCurrentAudioState() {
  auto view = webAdView_.lock();
  if (!view) return;
  auto& ads = SVAMobileAds::sharedInstance();
  view->fireSDKEvent("onAudioStateChanged", {{"muted", ads.applicationMuted()}, {"volume", ads.applicationVolume()}});
}

// ---- Visibility ----

SVAViewVisibilityMonitor::SVAViewVisibilityMonitor(const void* visibilityMessageSource,
                                                   std::weak_ptr<SVAVideoPlayer> player)
    : player_(std::move(player)) {
  observers_.addObserverForName(kSVAViewVisibilityChangedNotification, visibilityMessageSource, &kit::mainQueue(),
                                [this](const kit::Notification& n) {
                                  visible_ = truth(n.userInfo, kSVAVisibleKey);
                                  if (auto p = player_.lock()) p->playerVisibilityDidChange(visible_);
                                });
}

SVAActiveViewMonitor::SVAActiveViewMonitor(std::string adFormat, kit::Dictionary configuration,
                                           const void* visibilityMessageSource, std::shared_ptr<SVAEventContext> context)
    : adFormat_(std::move(adFormat)), configuration_(std::move(configuration)), context_(std::move(context)) {
  observers_.addObserverForName(kSVAViewVisibilityChangedNotification, visibilityMessageSource, &kit::mainQueue(),
                                [this](const kit::Notification& n) {
                                  if (reported_ || !truth(n.userInfo, kSVAVisibleKey)) return;
                                  reported_ = true;
                                  kit::Dictionary parameters = configuration_;
                                  parameters["ad_format"] = adFormat_;
                                  parameters["active_view"] = true;
                                  context_->handleImpression(std::move(parameters), nullptr);
                                });
}

// ---- Loading ----

// GCC 12 at -O3 takes the optional errors handed to the completion for uninitialised.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

SVAAdLoadMonitor::SVAAdLoadMonitor(const SVAEventContext* playerContext, double timeoutSeconds, Completion completion)
    : completion_(std::move(completion)) {
  auto* main = &kit::mainQueue();
  std::weak_ptr<bool> alive = alive_;
  if (!playerContext) {
    main->async([this, alive] {
      if (!alive.expired()) finish(std::nullopt);
    });
    return;
  }
  observers_.addObserverForName(kSVAVideoPlayerMetadataNotification, playerContext, main,
                                [this](const kit::Notification&) { finish(std::nullopt); });
  observers_.addObserverForName(kSVAVideoPlayerStatusUpdateNotification, playerContext, main,
                                [this](const kit::Notification& n) {
                                  const kit::Value* status = find(n.userInfo, "status");
                                  if (!status || status->numberAsInteger().value_or(0) != 2) return;
                                  const kit::Value* error = find(n.userInfo, "error");
                                  const std::string* text = error ? error->asString() : nullptr;
                                  finish(platform::Error{"ads", 2, text && !text->empty() ? *text : "The video failed."});
                                });
  main->asyncAfter(timeoutSeconds, [this, alive] {
    if (!alive.expired()) finish(platform::Error{"ads", 2, "The video did not load in time."});
  });
}

void SVAAdLoadMonitor::finish(std::optional<platform::Error> error) {
  if (finished_) return;
  finished_ = true;
  if (completion_) completion_(std::move(error));
}

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

}  // namespace adclient
