// sim::VideoPlayers: scriptable players and items. A test makes an item ready or failed,
// buffers it, stalls it and moves its playhead; the player reports each change to its
// observer at once, on the calling thread (the main thread, as every call of a player is),
// and counts what it was asked to do. Players made "on the clock" play by themselves instead,
// as a scripted run needs: see VideoPlayers::setPlaysOnClock.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/AdScriptChannel.h"
#include "platform/VideoPlayer.h"

namespace sim {

class Player;

class PlayerItem : public platform::PlayerItem {
 public:
  PlayerItem(std::string url, double duration, kit::Size size);

  // --- platform::PlayerItem ---
  const std::string& url() const override { return url_; }
  platform::PlayerStatus status() const override { return status_; }
  std::optional<platform::PlayerError> error() const override { return error_; }
  std::vector<platform::TimeRange> loadedTimeRanges() const override { return ranges_; }
  double currentTime() const override { return currentTime_; }
  double duration() const override { return duration_; }
  kit::Size presentationSize() const override { return size_; }

  // --- Scripting (each change is reported to the player that has the item) ---
  void becomeReady();
  void fail(platform::PlayerError error);
  // Buffered video from the playhead on: one range [currentTime, currentTime + seconds].
  void setBufferedAhead(double seconds);
  void setLoadedTimeRanges(std::vector<platform::TimeRange> ranges);
  // The playhead ran out of video: the player stops moving and reports a stall.
  void stall();

 private:
  friend class Player;
  friend class VideoPlayers;
  std::string url_;
  platform::PlayerStatus status_ = platform::PlayerStatus::Unknown;
  std::optional<platform::PlayerError> error_;
  std::vector<platform::TimeRange> ranges_;
  double currentTime_ = 0.0;
  double duration_;
  kit::Size size_;
  Player* player_ = nullptr;  // the player that has this item, if any
  std::optional<platform::PlayerError> failOnAttach_;
};

class Player : public platform::Player, public std::enable_shared_from_this<Player> {
 public:
  // `onClock`: see VideoPlayers::setPlaysOnClock.
  explicit Player(bool onClock = false) : onClock_(onClock) {}
  ~Player() override;

  // --- platform::Player ---
  platform::PlayerStatus status() const override { return status_; }
  std::optional<platform::PlayerError> error() const override { return error_; }
  float rate() const override { return rate_; }
  void play() override;
  void pause() override;
  bool isMuted() const override { return muted_; }
  void setMuted(bool muted) override { muted_ = muted; }
  float volume() const override { return volume_; }
  void setVolume(float volume) override;
  std::shared_ptr<platform::PlayerItem> currentItem() const override { return item_; }
  void replaceCurrentItemWithPlayerItem(std::shared_ptr<platform::PlayerItem> item) override;
  void seekToTime(double seconds) override;
  long addPeriodicTimeObserver(double interval, std::function<void(double)> block) override;
  void removeTimeObserver(long token) override;
  void setObserver(std::weak_ptr<platform::PlayerObserver> observer) override { observer_ = std::move(observer); }
  // A player on the clock draws its pictures there; others ignore it.
  void setVideoView(std::weak_ptr<kit::ImageView> view) override;

  // --- Scripting ---
  // Moves the playhead by `seconds` of playback when the player moves, firing the periodic
  // observers at each whole interval passed, and the end of the item.
  void tick(double seconds);
  void failPlayer(platform::PlayerError error);

  // --- What it was asked ---
  int playCount() const { return playCount_; }
  int pauseCount() const { return pauseCount_; }
  int replaceCount() const { return replaceCount_; }
  // Whether play was the last of play and pause.
  bool wantsToPlay() const { return wantsToPlay_; }
  std::size_t timeObserverCount() const { return timeObservers_.size(); }

 private:
  friend class PlayerItem;
  void updateRate();
  void report(void (platform::PlayerObserver::*event)());
  // On the clock: the next tick while the player moves, and the picture of the playhead.
  void scheduleTick();
  void drawPicture();

  platform::PlayerStatus status_ = platform::PlayerStatus::ReadyToPlay;
  std::optional<platform::PlayerError> error_;
  float rate_ = 0.0f;
  bool wantsToPlay_ = false;
  bool waiting_ = false;  // stalled until asked to play again
  bool muted_ = false;
  float volume_ = 1.0f;
  std::shared_ptr<PlayerItem> item_;
  std::weak_ptr<platform::PlayerObserver> observer_;
  struct TimeObserver {
    double interval;
    std::function<void(double)> block;
  };
  std::map<long, TimeObserver> timeObservers_;
  long nextToken_ = 1;
  int playCount_ = 0, pauseCount_ = 0, replaceCount_ = 0;
  bool onClock_;
  bool tickScheduled_ = false;
  std::weak_ptr<kit::ImageView> videoView_;
};

class VideoPlayers : public platform::VideoPlayers {
 public:
  std::shared_ptr<platform::Player> makePlayer() override;
  std::shared_ptr<platform::PlayerItem> makePlayerItemWithURL(const std::string& url) override;

  // Items made for `url` fail as soon as a player has them, with this error.
  void setFailure(const std::string& url, platform::PlayerError error);
  // Duration and size of the items made next (default 15 s, 1280x720).
  void setItemFacts(double duration, kit::Size size);
  // With true, players made from now on play by themselves on the environment's clock: an
  // item they take becomes ready and wholly buffered on a later main-queue turn, a moving
  // player's playhead advances with the clock (its periodic observers and its end fire as
  // time passes), and the pictures, a frame with the playhead's progress, go to the video
  // view. False at first.
  void setPlaysOnClock(bool onClock);
  // Seconds of the clock between two moves of a playhead on the clock.
  static constexpr double kClockTick = 0.25;
  // Every player and item made so far, oldest first (null once released).
  std::vector<std::shared_ptr<Player>> players() const;
  std::vector<std::shared_ptr<PlayerItem>> items() const;

 private:
  std::map<std::string, platform::PlayerError> failures_;
  double duration_ = 15.0;
  kit::Size size_{1280, 720};
  bool onClock_ = false;
  std::vector<std::weak_ptr<Player>> players_;
  std::vector<std::weak_ptr<PlayerItem>> items_;
};

// The script side of an ad view: keeps every message, in order. Any thread.
class AdScriptChannel : public platform::AdScriptChannel {
 public:
  struct Message {
    std::string name;
    kit::Dictionary arguments;
  };
  void postMessage(const std::string& name, const kit::Dictionary& arguments) override;
  std::vector<Message> messages() const;
  // The "event" texts of the "onVideoEvent" messages, in order.
  std::vector<std::string> videoEvents() const;
  void clear();

 private:
  mutable std::mutex mu_;
  std::vector<Message> messages_;
};

}  // namespace sim
