#include "adclient/SVAMonitors.h"

#include <cstdint>

#include "adclient/SVAAudioVideoManager.h"
#include "adclient/SVANotifications.h"
#include "adclient/SVASettings.h"
#include "kit/Dispatch.h"

namespace adclient {
namespace {

const kit::Value* find(const kit::Dictionary& d, const char* key) {
  auto it = d.find(key);
  return it == d.end() ? nullptr : &it->second;
}

}  // namespace

SVANativeAdClickAndImpressionMonitor::SVANativeAdClickAndImpressionMonitor(
    std::weak_ptr<SVANativeAd> ad, std::shared_ptr<SVAEventContext> nativeAdContext, SVAAdConfiguration adConfiguration,
    const void* adIdentity)
    : nativeAd_(std::move(ad)),
      nativeAdContext_(std::move(nativeAdContext)),
      adConfiguration_(std::move(adConfiguration)),
      adIdentity_(adIdentity) {
  auto* main = &kit::mainQueue();
  const void* context = nativeAdContext_.get();
  observers_.addObserverForName(kSVANativeAdUnapprovedClickNotification, adIdentity_, main,
                                [this](const kit::Notification& n) { handleClick(n); });
  observers_.addObserverForName(kSVAAdImpressionNotification, adIdentity_, main,
                                [this](const kit::Notification& n) { handleImpression(n); });
  observers_.addObserverForName(kSVAClickRecordedActionNotification, context, main,
                                [this](const kit::Notification&) { handleClickRecordedAction(); });
  observers_.addObserverForName(kSVAImpressionRecordedActionNotification, context, main,
                                [this](const kit::Notification&) { handleImpressionRecordedAction(); });
  observers_.addObserverForName(kSVAUnconfirmedClickActionNotification, context, main,
                                [this](const kit::Notification& n) { handleUnconfirmedClickAction(n); });
  observers_.addObserverForName(kSVAAdConfirmationClickNotification, adIdentity_, main,
                                [this](const kit::Notification& n) {
                                  const kit::Value* interval = find(n.userInfo, "time_interval");
                                  handleConfirmationClick(interval ? interval->numberAsReal().value_or(0.0) : 0.0);
                                });
}

void SVANativeAdClickAndImpressionMonitor::handleClick(const kit::Notification& note) {
  auto ad = nativeAd_.lock();
  if (!ad) return;
  const kit::Value* name = find(note.userInfo, "tapped_asset_name");
  if (!name || !name->asString() || name->asString()->empty()) return;
  const kit::Value* tapped = find(note.userInfo, "tapped_asset_view");
  const kit::Value* type = find(note.userInfo, "click_type");
  const std::int64_t clickType = type ? type->numberAsInteger().value_or(0) : 0;
  if (ad->clickConfirmationRequired && tapped && !tapped->isNull() && clickType != 2) {
    auto confirming = ad->clickConfirmingView.lock();
    if (confirming && *tapped == SVAViewIdentity(confirming.get())) {
      handleConfirmationClick(ad->confirmationClickTimeInterval);
      return;
    }
    ad->resetUnconfirmedClick();
    kit::NotificationCenter::defaultCenter().postNotificationName(kSVAUnconfirmedClickCancelNotification, adIdentity_);
  }
  kit::Dictionary parameters;
  if (const kit::Value* env = find(note.userInfo, "environment"); env && env->asDictionary())
    parameters = *env->asDictionary();
  parameters["ad"] = adConfiguration_.dictionary();
  parameters["click"] = kit::Dictionary{
      {"template", adConfiguration_.adType},
      {"asset", *name->asString()},
      {"sdk_version", SVAMobileAds::sdkVersion()},
      {"timestamp", static_cast<std::int64_t>(kit::Environment::current().now() * 1000.0)},
      {"custom_one_point_five_click_eligible", ad->customOnePointFiveClickEligible},
      {"view_aware_api_used", ad->viewAwareAPIUsed},
      {"custom_mute_requested", ad->customMuteRequested},
      {"custom_mute_enabled", ad->customMuteEnabled},
      {"custom_click_gesture_eligible", ad->customClickGestureEligible},
      {"is_custom_click_gesture", clickType == 2},
  };
  nativeAdContext_->handleClick(std::move(parameters), nullptr);
}

void SVANativeAdClickAndImpressionMonitor::handleImpression(const kit::Notification& note) {
  auto ad = nativeAd_.lock();
  if (!ad) return;
  kit::Dictionary parameters;
  if (const kit::Value* p = find(note.userInfo, "parameters"); p && p->asDictionary()) parameters = *p->asDictionary();
  else parameters = ad->dictionaryRepresentation();
  parameters["ad"] = adConfiguration_.dictionary();
  if (SVASettings::sharedInstance().boolForKey("native_view_signals_enabled")) {
    if (auto view = ad->adView.lock()) {
      const auto frame = view->frame();
      parameters["view_signals"] = kit::Dictionary{
          {"visible", !view->isHidden()}, {"width", frame.size.width}, {"height", frame.size.height}};
    }
  }
  nativeAdContext_->handleImpression(std::move(parameters), nullptr);
}

void SVANativeAdClickAndImpressionMonitor::handleClickRecordedAction() {
  if (nativeAd_.expired()) return;
  kit::NotificationCenter::defaultCenter().postNotificationName(kSVAClickRecordNotification, adIdentity_);
}

void SVANativeAdClickAndImpressionMonitor::handleImpressionRecordedAction() {
  if (nativeAd_.expired()) return;
  kit::NotificationCenter::defaultCenter().postNotificationName(kSVAImpressionRecordNotification, adIdentity_);
}

void SVANativeAdClickAndImpressionMonitor::handleUnconfirmedClickAction(const kit::Notification& note) {
  auto ad = nativeAd_.lock();
  if (!ad) return;
  kit::Dictionary parameters;
  if (const kit::Value* p = find(note.userInfo, "parameters"); p && p->asDictionary()) parameters = *p->asDictionary();
  const kit::Value* timestamp = find(parameters, "timestamp");
  const double milliseconds = timestamp ? timestamp->numberAsReal().value_or(0.0) : 0.0;
  ad->clickConfirmationRequired = true;
  ad->unconfirmedClickTimestamp = milliseconds / 1000.0;
  const kit::Value* id = find(parameters, "id");
  ad->unconfirmedClickIdentifier = id && id->asString() ? *id->asString() : std::string();
  kit::Dictionary info;
  if (const kit::Value* asset = find(parameters, "asset_id"); asset && !asset->isNull()) info["asset_id"] = *asset;
  kit::NotificationCenter::defaultCenter().postNotificationName(kSVAUnconfirmedClickReceiveNotification, adIdentity_,
                                                                std::move(info));
}

void SVANativeAdClickAndImpressionMonitor::handleConfirmationClick(double interval) {
  auto ad = nativeAd_.lock();
  if (!ad || !ad->clickConfirmationRequired) return;
  kit::Dictionary parameters;
  if (!ad->unconfirmedClickIdentifier.empty()) parameters["id"] = ad->unconfirmedClickIdentifier;
  if (interval > 0.0) parameters["time_interval"] = interval * 1000.0;
  nativeAdContext_->handleOnePointFiveClick(std::move(parameters));
  ad->resetUnconfirmedClick();
}

// ---- Visibility ----

SVAViewVisibilityChangeMonitor::SVAViewVisibilityChangeMonitor(std::weak_ptr<SVAWebAdView> webAdView,
                                                               const void* visibilityMessageSource,
                                                               const void* presenter)
    : webAdView_(std::move(webAdView)) {
  auto* main = &kit::mainQueue();
  if (SVASettings::sharedInstance().boolForKey("use_present_vis_report") && presenter) {
    observers_.addObserverForName(kSVAPresenterPresentNotification, presenter, main, [this](const kit::Notification&) {
      visible_ = true;
      updateVisibility();
    });
    observers_.addObserverForName(kSVAPresenterDismissNotification, presenter, main, [this](const kit::Notification&) {
      visible_ = false;
      updateVisibility();
    });
  } else {
    observers_.addObserverForName(kSVAViewVisibilityChangedNotification, visibilityMessageSource, main,
                                  [this](const kit::Notification& n) {
                                    const kit::Value* v = find(n.userInfo, kSVAVisibleKey);
                                    visible_ = v && v->numberAsInteger().value_or(0) != 0;
                                    updateVisibility();
                                  });
  }
  if (auto view = webAdView_.lock()) {
    observers_.addObserverForName(kSVAMRAIDLoadedActionNotification, view.get(), main,
                                  [this](const kit::Notification&) { updateVisibility(); });
  }
}

void SVAViewVisibilityChangeMonitor::updateVisibility() {
  if (auto view = webAdView_.lock()) view->fireSDKEvent("onAdVisibilityChanged", {{"visible", visible_ ? "true" : "false"}});
}

}  // namespace adclient
