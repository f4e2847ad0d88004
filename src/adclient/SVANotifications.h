// The named notifications of the mobile ads client, and the keys of their user information.
#pragma once

namespace adclient {

// Posted by an ad view's visibility source; "visible" holds the new truth value.
inline constexpr const char* kSVAViewVisibilityChangedNotification = "com.stuvop.mt.view.visibility.changed";
inline constexpr const char* kSVAVisibleKey = "visible";

// Video player events, posted through its event context (the context is the object).
inline constexpr const char* kSVAVideoPlayerCreateNotification = "com.stuvop.video-player.create.did";
inline constexpr const char* kSVAVideoPlayerItemLoadNotification = "com.stuvop.video-player.player-item-load.did";
inline constexpr const char* kSVAVideoPlayerStatusUpdateNotification = "com.stuvop.video-player.status.update.did";
inline constexpr const char* kSVAVideoPlayerMetadataNotification = "com.stuvop.video-player.metadata.available";
inline constexpr const char* kSVAVideoPlayerPlayProgressNotification = "com.stuvop.video-player.play.progress";
inline constexpr const char* kSVAVideoPlayerDeallocateNotification = "com.stuvop.video-player.deallocate.did";

// Native ad events (the ad is the object).
inline constexpr const char* kSVANativeAdUnapprovedClickNotification = "com.stuvop.native-ad.unapproved-click.did";
inline constexpr const char* kSVAAdImpressionNotification = "com.stuvop.ad.impression.did";
inline constexpr const char* kSVAAdConfirmationClickNotification = "com.stuvop.ad.confirmation-click.did";
// Actions the ad's context received (the context is the object).
inline constexpr const char* kSVAClickRecordedActionNotification = "com.stuvop.ad.action.received.clickRecorded";
inline constexpr const char* kSVAImpressionRecordedActionNotification =
    "com.stuvop.ad.action.received.impressionRecorded";
inline constexpr const char* kSVAUnconfirmedClickActionNotification =
    "com.stuvop.ad.action.received.unconfirmedClick";
inline constexpr const char* kSVAMRAIDLoadedActionNotification = "com.stuvop.ad.action.received.mraidLoaded";
// Reports of the monitors (the ad is the object).
inline constexpr const char* kSVAClickRecordNotification = "com.stuvop.mt.ad.click.record.did";
inline constexpr const char* kSVAImpressionRecordNotification = "com.stuvop.mt.ad.impression.record.did";
inline constexpr const char* kSVAUnconfirmedClickCancelNotification = "com.stuvop.mt.ad.unconfirmed-click.cancel.did";
inline constexpr const char* kSVAUnconfirmedClickReceiveNotification =
    "com.stuvop.mt.ad.unconfirmed-click.receive.did";
// A presenter put its ad on screen or took it away (the presenter is the object).
inline constexpr const char* kSVAPresenterPresentNotification = "com.stuvop.mt.presenter.present.did";
inline constexpr const char* kSVAPresenterDismissNotification = "com.stuvop.mt.presenter.dismiss.did";

}  // namespace adclient
