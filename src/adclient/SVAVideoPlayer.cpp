#include "adclient/SVAVideoPlayer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "adclient/SVAAudioVideoManager.h"
#include "adclient/SVANotifications.h"
#include "adclient/SVASettings.h"
#include "kit/ApplicationNotifications.h"
#include "kit/Console.h"
#include "kit/Singleton.h"
#include "platform/Platform.h"

namespace adclient {
namespace {

std::atomic<long>& loadedPlayers() {
  static std::atomic<long> count{0};
  static const bool registered = [] {
    kit::registerSingletonReset([] { count.store(0); });
    return true;
  }();
  (void)registered;
  return count;
}

constexpr double kTimeUpdateInterval = 0.25;

}  // namespace

// Forwards the platform player's observations that are switched on.
class SVAVideoPlayer::Observation : public platform::PlayerObserver {
 public:
  explicit Observation(std::weak_ptr<SVAVideoPlayer> owner) : owner_(std::move(owner)) {}
  void playerStatusDidChange() override {
    if (auto p = owner_.lock(); p && p->isObservingPlayer_) p->handlePlayerStatusChange();
  }
  void playerRateDidChange() override {
    if (auto p = owner_.lock(); p && p->isObservingPlayerRate_) p->notifyVideoRateChanged();
  }
  void playerItemStatusDidChange() override {
    if (auto p = owner_.lock(); p && p->isObservingPlayerItem_) p->handlePlayerItemStatusChange();
  }
  void playerItemLoadedTimeRangesDidChange() override {
    if (auto p = owner_.lock()) p->handlePlayerItemDurationLoadUpdate();
  }
  void playerItemDidPlayToEnd() override {
    if (auto p = owner_.lock()) p->itemDidPlayToEnd();
  }
  void playerItemPlaybackStalled() override {
    if (auto p = owner_.lock()) p->handlePlaybackStalled();
  }

 private:
  std::weak_ptr<SVAVideoPlayer> owner_;
};

// ---- Provider ----

SVAPlayerItemProvider::SVAPlayerItemProvider(std::string videoURL, std::shared_ptr<platform::PlayerItem> item,
                                             bool vcacheHit, bool vcacheUsed, bool vcacheDownloaded)
    : videoURL_(std::move(videoURL)),
      item_(std::move(item)),
      vcacheHit_(vcacheHit),
      vcacheUsed_(vcacheUsed),
      vcacheDownloaded_(vcacheDownloaded) {}

std::shared_ptr<SVAPlayerItemProvider> SVAPlayerItemProvider::withURL(std::string videoURL) {
  std::shared_ptr<platform::PlayerItem> item;
  if (!videoURL.empty()) item = platform::videoPlayers().makePlayerItemWithURL(videoURL);
  return std::make_shared<SVAPlayerItemProvider>(std::move(videoURL), std::move(item));
}

// ---- Construction and release ----

SVAVideoPlayer::SVAVideoPlayer(std::shared_ptr<SVAWebAdView> adView, std::shared_ptr<SVAPlayerItemProvider> provider,
                               SVAVideoConfiguration configuration, std::shared_ptr<SVAEventContext> parentContext)
    : adView_(adView),
      playerItemProvider_(std::move(provider)),
      videoConfiguration_(configuration),
      playerActionTimeoutInterval_(SVASettings::sharedInstance().doubleForKey("player_action_timeout_ms") / 1000.0),
      context_(parentContext ? parentContext->childContextWithComponent("video_player")
                             : SVAEventContext::rootContext("video_player")),
      vcacheHit_(playerItemProvider_ && playerItemProvider_->vcacheHit()),
      player_(platform::videoPlayers().makePlayer()),
      actionLockQueue_(kit::makeSerialQueue("com.stuvop.adnet.n.player-action")),
      actionOperationQueue_(kit::makeSerialQueue("com.stuvop.adnet.n.player-action-operations")),
      actionSemaphore_(std::make_shared<kit::Semaphore>(1)) {}

std::shared_ptr<SVAVideoPlayer> SVAVideoPlayer::make(std::shared_ptr<SVAWebAdView> adView,
                                                     std::shared_ptr<SVAPlayerItemProvider> playerItemProvider,
                                                     const void* visibilityMessageSource,
                                                     SVAVideoConfiguration videoConfiguration,
                                                     std::shared_ptr<SVAEventContext> parentContext) {
  if (!playerItemProvider || !playerItemProvider->playerItem()) {
    kit::NSLog("PlayerItem must exist for loading video player.");
    return nullptr;
  }
  auto player = std::make_shared<SVAVideoPlayer>(std::move(adView), std::move(playerItemProvider),
                                                 videoConfiguration, std::move(parentContext));
  player->start(visibilityMessageSource);
  return player;
}

void SVAVideoPlayer::start(const void* visibilityMessageSource) {
  std::weak_ptr<SVAVideoPlayer> weak = weak_from_this();
  playerItem_ = playerItemProvider_->playerItem();
  auto observation = std::make_shared<Observation>(weak);
  keyValueObserverControllers_.push_back(observation);
  player_->setObserver(observation);

  observers_.addObserverForName(kSVAViewVisibilityChangedNotification, visibilityMessageSource, &kit::mainQueue(),
                                [weak](const kit::Notification& note) {
                                  auto self = weak.lock();
                                  if (!self) return;
                                  auto it = note.userInfo.find(kSVAVisibleKey);
                                  bool visible = it != note.userInfo.end() &&
                                                 it->second.numberAsInteger().value_or(0) != 0;
                                  self->playerVisibilityDidChange(visible);
                                });
  didActivateObservers_ = std::make_unique<SVAObserverCollection>();
  didActivateObservers_->addObserverForName(kit::kApplicationDidBecomeActiveNotification, nullptr,
                                            &kit::mainQueue(), [weak](const kit::Notification&) {
                                              auto self = weak.lock();
                                              if (!self) return;
                                              self->appActive_ = true;
                                              if (self->playing_ && self->numberOfBlocksMomentarilyPausedPlayer_ == 0)
                                                self->player_->play();
                                            });
  willDeactivateObservers_ = std::make_unique<SVAObserverCollection>();
  willDeactivateObservers_->addObserverForName(kit::kApplicationWillResignActiveNotification, nullptr,
                                               &kit::mainQueue(), [weak](const kit::Notification&) {
                                                 auto self = weak.lock();
                                                 if (!self) return;
                                                 self->appActive_ = false;
                                                 if (self->player_->rate() > 0.0f) self->player_->pause();
                                               });
  context_->postNotification(kSVAVideoPlayerCreateNotification,
                             {{"num_loaded_players", static_cast<std::int64_t>(loadedPlayers().load())}});
  asyncLoadPlayer();
}

SVAVideoPlayer::~SVAVideoPlayer() {
  observers_.removeAllObservers();
  if (didActivateObservers_) didActivateObservers_->removeAllObservers();
  if (willDeactivateObservers_) willDeactivateObservers_->removeAllObservers();
  if (itemAttached_.exchange(false)) loadedPlayers().fetch_sub(1);
  if (auto manager = SVAMobileAds::sharedInstance().audioVideoManager()) manager->playerWillDealloc(this);
  context_->postNotification(kSVAVideoPlayerDeallocateNotification);
  // The platform player is a main-thread object: stop its observations and let it go there.
  auto release = [player = std::move(player_), tokens = std::move(periodicTimeObservers_),
                  timeUpdate = timeUpdateToken_]() mutable {
    if (!player) return;
    player->setObserver({});
    for (long token : tokens) player->removeTimeObserver(token);
    if (timeUpdate >= 0) player->removeTimeObserver(timeUpdate);
    player->pause();
    player.reset();
  };
  if (kit::Environment::isInstalled() && !kit::isMainThread()) kit::mainQueue().async(std::move(release));
  else release();
}

long SVAVideoPlayer::loadedPlayerCount() { return loadedPlayers().load(); }

// ---- Loading and the loaded-player limit ----

void SVAVideoPlayer::asyncLoadPlayer() {
  std::weak_ptr<SVAVideoPlayer> weak = weak_from_this();
  kit::mainQueue().async([weak] {
    auto self = weak.lock();
    if (!self || self->loaded_) return;
    const bool observeFirst = SVASettings::sharedInstance().boolForKey("player_observe_before_association");
    if (observeFirst) self->startObserving();
    self->attachItem();
    if (!observeFirst) self->startObserving();
    self->loaded_ = true;
    self->context_->postNotification(kSVAVideoPlayerItemLoadNotification,
                                     {{"videoURL", self->playerItemProvider_->videoURL()}});
    if (SVASettings::sharedInstance().boolForKey("enable_video_metrics_csi")) {
      if (auto view = self->adView_.lock()) {
        view->asyncEvaluateFunction("onVcacheInfoEvent",
                                    {{"vcacheHit", self->vcacheHit_},
                                     {"vcacheDownloaded", self->playerItemProvider_->vcacheDownloaded()}});
      }
    }
    self->timeUpdateToken_ = self->player_->addPeriodicTimeObserver(kTimeUpdateInterval, [weak](double t) {
      if (auto p = weak.lock()) p->handleTimeUpdate(t);
    });
    // An item that was ready before it was observed.
    if (self->isObservingPlayerItem_ && self->playerItem_->status() != platform::PlayerStatus::Unknown)
      self->handlePlayerItemStatusChange();
  });
}

void SVAVideoPlayer::startObserving() {
  isObservingPlayer_ = true;
  isObservingPlayerRate_ = true;
  isObservingPlayerItem_ = SVASettings::sharedInstance().boolForKey("player_observe_item_status");
}

void SVAVideoPlayer::attachItem() {
  if (player_->currentItem()) return;
  if (!itemAttached_.exchange(true)) loadedPlayers().fetch_add(1);
  player_->replaceCurrentItemWithPlayerItem(playerItem_);
}

void SVAVideoPlayer::detachItem() {
  if (!player_->currentItem()) return;
  player_->replaceCurrentItemWithPlayerItem(nullptr);
  if (itemAttached_.exchange(false)) loadedPlayers().fetch_sub(1);
}

void SVAVideoPlayer::playerVisibilityDidChange(bool visible) {
  if (visible == isVisible_) return;
  isVisible_ = visible;
  optimizePlayerResources();
}

void SVAVideoPlayer::optimizePlayerResources() {
  if (!isVisible_ && hasPostedCanPlayThrough() && !(player_->rate() > 0.0f)) {
    const auto limit = SVASettings::sharedInstance().integerForKey("video_max_loaded_player");
    if (loadedPlayers().load() > limit && player_->currentItem()) detachItem();
    return;
  }
  reattachPlayersCurrentItem();
}

void SVAVideoPlayer::reattachPlayersCurrentItem() { attachItem(); }

// ---- Commands ----

void SVAVideoPlayer::playUserInitiated(bool userInitiated) { schedule(true, std::nullopt, std::nullopt, userInitiated); }

void SVAVideoPlayer::pauseUserInitiated(bool userInitiated) {
  schedule(false, std::nullopt, std::nullopt, userInitiated);
}

void SVAVideoPlayer::setMuted(bool muted, bool userInitiated) {
  schedule(std::nullopt, muted, std::nullopt, userInitiated);
}

void SVAVideoPlayer::setVolume(double volume, bool userInitiated) {
  if (!(volume >= 0.0)) {
    char buf[96];
    std::snprintf(buf, sizeof buf, "Video volume must be positive. %f", volume);
    kit::NSLog(buf);
  }
  schedule(std::nullopt, std::nullopt, volume, userInitiated);
}

void SVAVideoPlayer::schedule(std::optional<bool> play, std::optional<bool> mute, std::optional<double> volume,
                              bool userInitiated) {
  std::weak_ptr<SVAVideoPlayer> weak = weak_from_this();
  actionLockQueue_->async([weak, play, mute, volume, userInitiated] {
    auto self = weak.lock();
    if (!self) return;
    if (play) self->scheduledPlay_ = play;
    if (mute) self->scheduledMute_ = mute;
    if (volume) self->scheduledVolume_ = volume;
    self->scheduledActionUserInitiated_ = userInitiated;
    self->addFlushOperation();
  });
}

// ---- The operation queue: one flush at a time, none of them holding a thread ----

void SVAVideoPlayer::addFlushOperation() {
  {
    std::lock_guard lock(operationsMu_);
    if (operationRunning_) {
      ++pendingOperations_;
      return;
    }
    operationRunning_ = true;
  }
  runNextOperation();
}

void SVAVideoPlayer::runNextOperation() {
  std::weak_ptr<SVAVideoPlayer> weak = weak_from_this();
  actionOperationQueue_->async([weak] {
    auto self = weak.lock();
    if (!self) return;
    self->flushPlayerAction([weak] {
      if (auto p = weak.lock()) p->operationFinished();
    });
  });
}

void SVAVideoPlayer::operationFinished() {
  {
    std::lock_guard lock(operationsMu_);
    if (pendingOperations_ == 0) {
      operationRunning_ = false;
      return;
    }
    --pendingOperations_;
  }
  runNextOperation();
}

// ---- The action gate ----

long SVAVideoPlayer::actionSemaphoreValue() const {
  std::lock_guard lock(semaphoreMu_);
  return actionSemaphore_->value();
}

void SVAVideoPlayer::waitForActionGate(std::shared_ptr<kit::Semaphore> semaphore, std::function<void(bool)> then) {
  std::uint64_t id = 0;
  {
    std::lock_guard lock(semaphoreMu_);
    if (!semaphore->wait(0.0)) {
      id = ++gateWaits_;
      gateWaiter_ = GateWaiter{semaphore, std::move(then), nullptr, id};
    }
  }
  if (id == 0) {
    then(true);
    return;
  }
  // The timeout is a main-run-loop timer, which occupies no worker while it waits.
  std::weak_ptr<SVAVideoPlayer> weak = weak_from_this();
  auto timer = kit::scheduledTimer(std::max(0.0, playerActionTimeoutInterval_), false, [weak, id](kit::Timer&) {
    if (auto self = weak.lock()) self->actionGateTimedOut(id);
  });
  std::lock_guard lock(semaphoreMu_);
  if (gateWaiter_ && gateWaiter_->id == id) gateWaiter_->timer = timer;
  else timer->invalidate();
}

void SVAVideoPlayer::actionGateTimedOut(std::uint64_t id) {
  std::function<void(bool)> then;
  {
    std::lock_guard lock(semaphoreMu_);
    if (!gateWaiter_ || gateWaiter_->id != id) return;
    then = std::move(gateWaiter_->then);
    gateWaiter_.reset();
  }
  actionOperationQueue_->async([then = std::move(then)] { then(false); });
}

void SVAVideoPlayer::signalActionGate(const std::shared_ptr<kit::Semaphore>& semaphore) {
  semaphore->signal();
  std::function<void(bool)> then;
  std::shared_ptr<kit::Timer> timer;
  {
    std::lock_guard lock(semaphoreMu_);
    if (!gateWaiter_ || gateWaiter_->semaphore != semaphore || !semaphore->wait(0.0)) return;
    then = std::move(gateWaiter_->then);
    timer = std::move(gateWaiter_->timer);
    gateWaiter_.reset();
  }
  if (timer) timer->invalidate();
  actionOperationQueue_->async([then = std::move(then)] { then(true); });
}

// ---- Flushes ----

void SVAVideoPlayer::flushPlayerAction() { flushPlayerAction(nullptr); }

void SVAVideoPlayer::flushPlayerAction(std::function<void()> done) {
  std::shared_ptr<kit::Semaphore> semaphore;
  {
    std::lock_guard lock(semaphoreMu_);
    semaphore = actionSemaphore_;
  }
  std::weak_ptr<SVAVideoPlayer> weak = weak_from_this();
  waitForActionGate(semaphore, [weak, semaphore, done](bool took) {
    auto self = weak.lock();
    if (!self) return;
    if (took) {
      self->takeWishesAndApply(semaphore, done);
      return;
    }
    kit::NSLog("Must not timeout waiting for player action to happen.");
    auto fresh = std::make_shared<kit::Semaphore>(1);
    {
      std::lock_guard lock(self->semaphoreMu_);
      self->actionSemaphore_ = fresh;
    }
    self->waitForActionGate(fresh, [weak, fresh, done](bool tookFresh) {
      auto owner = weak.lock();
      if (!owner) return;
      if (tookFresh) owner->takeWishesAndApply(fresh, done);
      else if (done) done();
    });
  });
}

void SVAVideoPlayer::takeWishesAndApply(std::shared_ptr<kit::Semaphore> semaphore, std::function<void()> done) {
  std::weak_ptr<SVAVideoPlayer> weak = weak_from_this();
  actionLockQueue_->async([weak, semaphore, done] {
    auto self = weak.lock();
    if (!self) return;
    std::optional<bool> play = self->scheduledPlay_, mute = self->scheduledMute_;
    std::optional<double> volume = self->scheduledVolume_;
    const bool userInitiated = self->scheduledActionUserInitiated_;
    self->scheduledPlay_.reset();
    self->scheduledVolume_.reset();
    self->scheduledMute_.reset();
    if (!play && !volume && !mute) {
      self->signalActionGate(semaphore);
      if (done) done();
      return;
    }
    kit::mainQueue().async([weak, semaphore, done, play, mute, volume, userInitiated] {
      auto onMain = weak.lock();
      if (!onMain) return;
      bool muted = onMain->player_->isMuted();
      double appliedVolume = onMain->player_->volume();
      if (mute) muted = *mute;
      if (volume && !std::isnan(*volume)) appliedVolume = std::clamp(*volume, 0.0, 1.0);
      kit::globalQueue(kit::QoS::UserInitiated).async([weak, play, appliedVolume, muted, userInitiated, semaphore] {
        auto applier = weak.lock();
        if (!applier) {
          semaphore->signal();
          return;
        }
        applier->flushPlayerActionPlaying(play, appliedVolume, muted, userInitiated, semaphore);
      });
      if (done) done();
    });
  });
}

void SVAVideoPlayer::flushPlayerActionPlaying(std::optional<bool> play, double volume, bool muted,
                                              bool userInitiated, std::shared_ptr<kit::Semaphore> semaphore) {
  const bool playing = play.value_or(playing_.load());
  const bool mutedForManager = muted || volume == 0.0;
  auto manager = SVAMobileAds::sharedInstance().audioVideoManager();
  std::weak_ptr<SVAVideoPlayer> weak = weak_from_this();
  std::weak_ptr<SVAAudioVideoManager> weakManager = manager;
  manager->playerWillChangeStateToPlaying(
      this, playing, mutedForManager, userInitiated, kit::mainQueue(),
      [weak, weakManager, play, volume, muted, mutedForManager, userInitiated, semaphore] {
        auto self = weak.lock();
        if (!self) {
          semaphore->signal();
          return;
        }
        if (play) {
          self->playing_ = *play;
          if (*play) {
            self->reattachPlayersCurrentItem();
            if (self->numberOfBlocksMomentarilyPausedPlayer_ == 0) self->player_->play();
          } else {
            self->player_->pause();
            self->optimizePlayerResources();
          }
        }
        self->player_->setMuted(muted);
        self->player_->setVolume(static_cast<float>(volume));
        if (auto m = weakManager.lock())
          m->playerDidChangeStateToPlaying(self.get(), self->playing_.load(), mutedForManager, userInitiated);
        self->appliedFlushes_.fetch_add(1);
        self->signalActionGate(semaphore);
      });
}

// ---- Main-thread operations ----

void SVAVideoPlayer::seekToTime(double seconds) {
  hasPlaybackEnded_ = false;
  player_->seekToTime(seconds);
}

kit::Size SVAVideoPlayer::videoSize() const { return playerItem_ ? playerItem_->presentationSize() : kit::Size{}; }

void SVAVideoPlayer::momentarilyPauseAndExecuteBlock(const std::function<void()>& block) {
  if (numberOfBlocksMomentarilyPausedPlayer_++ == 0 && player_->rate() > 0.0f) player_->pause();
  if (block) block();
  if (--numberOfBlocksMomentarilyPausedPlayer_ == 0 && playing_ && appActive_) player_->play();
}

void SVAVideoPlayer::addPeriodicTimeObserverForInterval(double interval, kit::Queue* queue,
                                                        std::function<void(double)> block,
                                                        std::function<void(long)> completionBlock) {
  std::weak_ptr<SVAVideoPlayer> weak = weak_from_this();
  kit::mainQueue().async([weak, interval, queue, block = std::move(block), completionBlock = std::move(completionBlock)] {
    auto self = weak.lock();
    if (!self) return;
    auto shared = std::make_shared<std::function<void(double)>>(block);
    long token = self->player_->addPeriodicTimeObserver(interval, [weak, queue, shared](double t) {
      kit::Queue& target = queue ? *queue : kit::mainQueue();
      target.async([weak, shared, t] {
        if (weak.lock()) (*shared)(t);
      });
    });
    self->periodicTimeObservers_.push_back(token);
    if (completionBlock) completionBlock(token);
  });
}

void SVAVideoPlayer::removeTimeObserver(long token) {
  std::erase(periodicTimeObservers_, token);
  player_->removeTimeObserver(token);
}

void SVAVideoPlayer::addPlaybackStartObserver(std::function<void()> block) {
  std::weak_ptr<SVAVideoPlayer> weak = weak_from_this();
  kit::mainQueue().async([weak, block = std::move(block)] {
    if (auto self = weak.lock()) self->playbackStartObservers_.push_back(block);
  });
}

// ---- Observations ----

void SVAVideoPlayer::handlePlayerStatusChange() { notifyVideoPlayerWithNewStatus(player_->status()); }

void SVAVideoPlayer::handlePlayerItemStatusChange() {
  const auto status = playerItem_->status();
  if (status == platform::PlayerStatus::ReadyToPlay && !canPlayThroughPosted_.exchange(true)) {
    kit::Dictionary metadata;
    for (const auto& key : SVASettings::sharedInstance().arrayForKey("video_assets_async_load_keys")) {
      if (auto name = key.asString(); name && *name == "duration") {
        const double d = playerItem_->duration();
        if (std::isfinite(d)) metadata["duration"] = d;
      } else if (name && *name == "tracks") {
        const auto size = playerItem_->presentationSize();
        metadata["width"] = size.width;
        metadata["height"] = size.height;
      }
    }
    context_->postNotification(kSVAVideoPlayerMetadataNotification, metadata);
    sendVideoEvent({{"event", "canplaythrough"}});
  }
  notifyVideoPlayerWithNewItemStatus(status);
}

void SVAVideoPlayer::notifyVideoPlayerWithNewStatus(platform::PlayerStatus status) {
  auto error = player_->error();
  context_->postNotification(kSVAVideoPlayerStatusUpdateNotification,
                             {{"status", static_cast<std::int64_t>(status)},
                              {"error", error ? error->localizedDescription : std::string()}});
  if (status == platform::PlayerStatus::Unknown || status == platform::PlayerStatus::Failed)
    sendVideoEvent(playerStatusWithName("player", status, error));
}

void SVAVideoPlayer::notifyVideoPlayerWithNewItemStatus(platform::PlayerStatus status) {
  if (status == platform::PlayerStatus::Unknown || status == platform::PlayerStatus::Failed)
    sendVideoEvent(playerStatusWithName("playerItem", status, playerItem_->error()));
}

void SVAVideoPlayer::notifyVideoRateChanged() {
  const float rate = player_->rate();
  if (rate > 0.0f && !playbackStartObservers_.empty()) {
    auto observers = std::move(playbackStartObservers_);
    playbackStartObservers_.clear();
    for (auto& block : observers) block();
  }
  if (!hasPostedCanPlayThrough()) return;
  sendVideoEvent({{"event", rate != 0.0f ? "play" : "pause"}});
}

void SVAVideoPlayer::handlePlaybackStalled() {
  isObservingPlayerItemLoadedTimeRanges_ = true;
  handlePlayerItemDurationLoadUpdate();
}

void SVAVideoPlayer::handlePlayerItemDurationLoadUpdate() {
  if (!(playing_ && !(player_->rate() > 0.0f))) {
    isObservingPlayerItemLoadedTimeRanges_ = false;
    return;
  }
  if (!isObservingPlayerItemLoadedTimeRanges_) return;
  auto item = player_->currentItem();
  if (!item) return;
  double buffered = 0.0;
  const auto ranges = item->loadedTimeRanges();
  const double now = item->currentTime();
  if (!ranges.empty()) {
    const auto& range = ranges.front();
    const bool valid = std::isfinite(range.start) && std::isfinite(range.duration) && std::isfinite(now);
    if (valid && range.duration != 0.0 && now >= range.start && now <= range.start + range.duration)
      buffered = range.start + range.duration - now;
  }
  const double need = hasPlaybackStalledAtLeastOnce_ ? videoConfiguration_.bufferForPlaybackAfterRebufferTimeInterval
                                                     : videoConfiguration_.bufferForPlaybackTimeInterval;
  if (buffered >= need) {
    hasPlaybackStalledAtLeastOnce_ = true;
    player_->play();
  }
}

void SVAVideoPlayer::handleTimeUpdate(double seconds) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.3f", seconds);
  if (lastPlayerTimeIntervalString_ == buf) return;
  lastPlayerTimeIntervalString_ = buf;
  context_->postNotification(kSVAVideoPlayerPlayProgressNotification, {{"time", seconds}});
  sendVideoEvent({{"event", "timeupdate"}, {"currentTime", seconds}});
}

void SVAVideoPlayer::itemDidPlayToEnd() {
  hasPlaybackEnded_ = true;
  sendVideoEvent({{"event", "ended"}});
}

void SVAVideoPlayer::sendVideoEvent(kit::Dictionary event) {
  if (auto view = adView_.lock()) view->asyncEvaluateFunction("onVideoEvent", std::move(event));
}

kit::Dictionary SVAVideoPlayer::playerStatusWithName(const std::string& name, platform::PlayerStatus status,
                                                     const std::optional<platform::PlayerError>& error) const {
  char what[160];
  std::snprintf(what, sizeof what, "%s/%ld", name.c_str(), static_cast<long>(status));
  return {
      {"event", "error"},
      {"what", std::string(what)},
      {"errorDomain", error ? error->domain : std::string()},
      {"errorCode", static_cast<std::int64_t>(error ? error->code : 0)},
      {"errorDescription", error ? error->localizedDescription : std::string()},
      {"errorFailureReason", error ? error->localizedFailureReason : std::string()},
      {"underlyingError", error ? error->underlyingErrorDescription : std::string()},
      {"videoURL", playerItemProvider_->videoURL()},
  };
}

}  // namespace adclient
