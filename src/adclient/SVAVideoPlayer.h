// SVAVideoPlayer: plays the video of an ad inside its web ad view, and tells the ad's script
// what happens ("onVideoEvent", "onVcacheInfoEvent").
//
// Commands (play, pause, mute, volume) come from any thread, often in bursts. Each stores the
// latest wish under the serial queue "com.stuvop.adnet.n.player-action" and queues one flush;
// flushes run one at a time, take whatever the wishes are by then, ask the shared audio-video
// manager, and apply them on the main queue. One action is in flight at a time: a flush waits
// for the one before it to be applied, for at most the action timeout, after which a fresh
// gate takes over so that one lost completion cannot block every later action. No wait holds
// a thread: a waiting flush is resumed by the action's completion or by its timeout's timer.
//
// Players of the process that hold a loaded item are counted; a hidden, paused, ready player
// gives its item up while the count is above the setting "video_max_loaded_player".
//
// Ownership: made and kept through shared_ptr by its owner; the platform player and item are
// its own. It holds the ad view and the manager weakly or not at all, and every queued block
// holds it weakly: once released it sends nothing and calls no one back.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "adclient/SVAEventContext.h"
#include "adclient/SVAObserverCollection.h"
#include "adclient/SVAWebAdView.h"
#include "kit/Dispatch.h"
#include "kit/Geometry.h"
#include "kit/Semaphore.h"
#include "platform/VideoPlayer.h"

namespace adclient {

// The video of an ad and what the video cache knows of it. Main thread.
class SVAPlayerItemProvider {
 public:
  SVAPlayerItemProvider(std::string videoURL, std::shared_ptr<platform::PlayerItem> item, bool vcacheHit = false,
                        bool vcacheUsed = false, bool vcacheDownloaded = false);
  // An item for `videoURL` from the installed video players; none for an empty URL.
  static std::shared_ptr<SVAPlayerItemProvider> withURL(std::string videoURL);

  std::shared_ptr<platform::PlayerItem> playerItem() const { return item_; }
  bool vcacheHit() const { return vcacheHit_; }
  bool vcacheUsed() const { return vcacheUsed_; }
  bool vcacheDownloaded() const { return vcacheDownloaded_; }
  const std::string& videoURL() const { return videoURL_; }

 private:
  std::string videoURL_;
  std::shared_ptr<platform::PlayerItem> item_;
  bool vcacheHit_, vcacheUsed_, vcacheDownloaded_;
};

// How much video must be buffered, in seconds, before a waiting player starts: at first, and
// after it has stalled once.
struct SVAVideoConfiguration {
  double bufferForPlaybackTimeInterval = 2.5;
  double bufferForPlaybackAfterRebufferTimeInterval = 5.0;
};

class SVAVideoPlayer : public std::enable_shared_from_this<SVAVideoPlayer> {
 public:
  // initWithAdView:playerItemProvider:visibilityMessageSource:videoConfiguration:parentContext:
  // Main thread. Null, after logging "PlayerItem must exist for loading video player.", when
  // the provider has no item. Otherwise the player observes the visibility notifications of
  // `visibilityMessageSource` (an identity, not kept) and the application's activity, posts
  // the create event and loads its item on a later main-queue turn.
  static std::shared_ptr<SVAVideoPlayer> make(std::shared_ptr<SVAWebAdView> adView,
                                              std::shared_ptr<SVAPlayerItemProvider> playerItemProvider,
                                              const void* visibilityMessageSource,
                                              SVAVideoConfiguration videoConfiguration,
                                              std::shared_ptr<SVAEventContext> parentContext);
  // Tells the manager playerWillDealloc and posts the deallocate event at once; the platform
  // player is let go on the main queue.
  ~SVAVideoPlayer();
  SVAVideoPlayer(const SVAVideoPlayer&) = delete;
  SVAVideoPlayer& operator=(const SVAVideoPlayer&) = delete;

  // --- Commands: any thread; the latest wish of each kind wins. ---
  void playUserInitiated(bool userInitiated);
  void pauseUserInitiated(bool userInitiated);
  void setMuted(bool muted, bool userInitiated);
  // A volume below 0 (or NaN) is logged as "Video volume must be positive. %f"; the player
  // applies volumes clamped to 0..1 and leaves its volume alone for NaN.
  void setVolume(double volume, bool userInitiated);

  // --- Main thread ---
  void seekToTime(double seconds);
  // The video's pixel size; zero before it is known.
  kit::Size videoSize() const;
  // Runs `block` with the video paused for its duration (nested calls pause once).
  void momentarilyPauseAndExecuteBlock(const std::function<void()>& block);
  // Calls `block` with the playhead every `interval` seconds of playback, on `queue` (null:
  // the main queue). `completionBlock` (optional) gets the token for removeTimeObserver, on
  // the main queue. Any thread.
  void addPeriodicTimeObserverForInterval(double interval, kit::Queue* queue, std::function<void(double)> block,
                                          std::function<void(long)> completionBlock);
  void removeTimeObserver(long token);
  // Runs `block` once, on the main queue, when the video next starts moving. Any thread.
  void addPlaybackStartObserver(std::function<void()> block);
  void playerVisibilityDidChange(bool visible);
  void optimizePlayerResources();
  void reattachPlayersCurrentItem();

  // --- Any thread ---
  bool hasPostedCanPlayThrough() const { return canPlayThroughPosted_.load(); }
  bool hasPlaybackEnded() const { return hasPlaybackEnded_.load(); }
  std::shared_ptr<SVAEventContext> context() const { return context_; }
  // Whether the last applied play wish was play.
  bool isPlaying() const { return playing_.load(); }
  // Players of the process holding a loaded item.
  static long loadedPlayerCount();
  // Flushes that applied at least one wish, since this player was made.
  std::int64_t appliedFlushCount() const { return appliedFlushes_.load(); }

  // The flush an operation runs: waits for the action before it, takes the wishes and applies
  // them. The wait blocks no thread: the flush goes on, on the action operation queue, once
  // the gate opens or its timeout passes. Runs on the action operation queue; exposed for
  // tests.
  void flushPlayerAction();
  // Units of the current action gate (1 when no action is in flight).
  long actionSemaphoreValue() const;
  // The platform player. Main thread.
  platform::Player& player() const { return *player_; }

  // The error event sent to the script for a failed or unknown status of "player" or
  // "playerItem".
  kit::Dictionary playerStatusWithName(const std::string& name, platform::PlayerStatus status,
                                       const std::optional<platform::PlayerError>& error) const;

  SVAVideoPlayer(std::shared_ptr<SVAWebAdView> adView, std::shared_ptr<SVAPlayerItemProvider> provider,
                 SVAVideoConfiguration configuration, std::shared_ptr<SVAEventContext> parentContext);

 private:
  class Observation;
  friend class Observation;

  void start(const void* visibilityMessageSource);
  void schedule(std::optional<bool> play, std::optional<bool> mute, std::optional<double> volume,
                bool userInitiated);
  // Queues one flush on the action operation queue: at once when none runs, else after the
  // ones before it have finished. Any thread.
  void addFlushOperation();
  void runNextOperation();
  // The running flush is over (it handed its action on, or had nothing to do).
  void operationFinished();
  // The flush an operation runs; `done` (optional) runs once it is over.
  void flushPlayerAction(std::function<void()> done);
  // Takes a unit of `semaphore` for the caller and runs `then(true)`: at once, on the calling
  // thread, when a unit is free; else on the action operation queue when one is given back.
  // `then(false)` runs there instead when the action timeout passes first. One flush waits at
  // a time.
  void waitForActionGate(std::shared_ptr<kit::Semaphore> semaphore, std::function<void(bool)> then);
  void actionGateTimedOut(std::uint64_t id);
  // Gives a unit of `semaphore` back, and hands it to the flush waiting for it. Any thread.
  void signalActionGate(const std::shared_ptr<kit::Semaphore>& semaphore);
  // With the gate taken: takes the wishes under the action lock queue, reads the player on the
  // main queue and applies them on a global queue; with no wish it gives the gate back.
  void takeWishesAndApply(std::shared_ptr<kit::Semaphore> semaphore, std::function<void()> done);
  void flushPlayerActionPlaying(std::optional<bool> playing, double volume, bool muted, bool userInitiated,
                                std::shared_ptr<kit::Semaphore> semaphore);
  void asyncLoadPlayer();
  void startObserving();
  void handlePlayerStatusChange();
  void handlePlayerItemStatusChange();
  void handlePlayerItemDurationLoadUpdate();
  void handlePlaybackStalled();
  void handleTimeUpdate(double seconds);
  void notifyVideoPlayerWithNewStatus(platform::PlayerStatus status);
  void notifyVideoPlayerWithNewItemStatus(platform::PlayerStatus status);
  void notifyVideoRateChanged();
  void itemDidPlayToEnd();
  void sendVideoEvent(kit::Dictionary event);
  void attachItem();
  void detachItem();

  // Fields, in their declared order; main-thread ones unless said otherwise.
  std::weak_ptr<SVAWebAdView> adView_;  // any thread
  std::shared_ptr<SVAPlayerItemProvider> playerItemProvider_;
  SVAVideoConfiguration videoConfiguration_;
  SVAObserverCollection observers_;
  std::unique_ptr<SVAObserverCollection> didActivateObservers_, willDeactivateObservers_;
  double playerActionTimeoutInterval_;  // set once
  std::shared_ptr<SVAEventContext> context_;  // set once
  bool appActive_ = true;
  bool vcacheHit_;
  std::shared_ptr<platform::Player> player_;
  std::shared_ptr<platform::PlayerItem> playerItem_;
  std::vector<long> periodicTimeObservers_;
  std::atomic<bool> playing_{false};  // written on main, read by flushes
  bool isVisible_ = false;
  bool hasPlaybackStalledAtLeastOnce_ = false;
  bool isObservingPlayer_ = false, isObservingPlayerRate_ = false, isObservingPlayerItem_ = false,
       isObservingPlayerItemLoadedTimeRanges_ = false;
  bool loaded_ = false;
  int numberOfBlocksMomentarilyPausedPlayer_ = 0;
  std::string lastPlayerTimeIntervalString_;
  std::vector<std::function<void()>> playbackStartObservers_;
  std::shared_ptr<kit::Queue> actionLockQueue_;
  std::shared_ptr<kit::Queue> actionOperationQueue_;
  // The latest wish; guarded by actionLockQueue_.
  std::optional<bool> scheduledPlay_, scheduledMute_;
  std::optional<double> scheduledVolume_;
  bool scheduledActionUserInitiated_ = false;
  mutable std::mutex semaphoreMu_;  // guards the pointer (flushes replace it) and the waiter
  std::shared_ptr<kit::Semaphore> actionSemaphore_;
  // The flush waiting for a unit of `semaphore`, and the timer of its timeout.
  struct GateWaiter {
    std::shared_ptr<kit::Semaphore> semaphore;
    std::function<void(bool)> then;
    std::shared_ptr<kit::Timer> timer;
    std::uint64_t id = 0;
  };
  std::optional<GateWaiter> gateWaiter_;
  std::uint64_t gateWaits_ = 0;
  // The operation queue's count: whether a flush runs, and how many wait behind it.
  std::mutex operationsMu_;
  bool operationRunning_ = false;
  int pendingOperations_ = 0;
  std::atomic<bool> canPlayThroughPosted_{false}, hasPlaybackEnded_{false};
  std::vector<std::shared_ptr<platform::PlayerObserver>> keyValueObserverControllers_;

  std::atomic<bool> itemAttached_{false};  // counted among the loaded players
  std::atomic<std::int64_t> appliedFlushes_{0};
  long timeUpdateToken_ = -1;
};

}  // namespace adclient
