// The video player service: players that play one item at a time, items made from a URL, and
// the events a player's owner observes. Every call and every event is on the main queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/Geometry.h"
#include "kit/Views.h"
#include "platform/Types.h"

namespace platform {

// Status of a player or of an item (the platform's values).
enum class PlayerStatus : long { Unknown = 0, ReadyToPlay = 1, Failed = 2 };

// A span of the item's timeline, in seconds.
struct TimeRange {
  double start = 0.0;
  double duration = 0.0;
};

// An error of a player or an item, with what the platform tells of it.
struct PlayerError {
  std::string domain;
  long code = 0;
  std::string localizedDescription;
  std::string localizedFailureReason;
  // Description of the error underneath, empty when there is none.
  std::string underlyingErrorDescription;
};

// One video to play. Main thread.
class PlayerItem {
 public:
  virtual ~PlayerItem() = default;
  virtual const std::string& url() const = 0;
  virtual PlayerStatus status() const = 0;
  virtual std::optional<PlayerError> error() const = 0;
  // Buffered spans, earliest first; empty while nothing is buffered.
  virtual std::vector<TimeRange> loadedTimeRanges() const = 0;
  // The playhead in seconds; NaN while it is not known.
  virtual double currentTime() const = 0;
  // Seconds; NaN while not known.
  virtual double duration() const = 0;
  // Pixel size of the video; zero while not known.
  virtual kit::Size presentationSize() const = 0;
};

// What a player tells its observer, on the main queue. Each reports that the value named
// changed; the observer reads the new value from the player or its item.
class PlayerObserver {
 public:
  virtual ~PlayerObserver() = default;
  virtual void playerStatusDidChange() {}
  virtual void playerRateDidChange() {}
  virtual void playerItemStatusDidChange() {}
  virtual void playerItemLoadedTimeRangesDidChange() {}
  virtual void playerItemDidPlayToEnd() {}
  // The playhead ran out of buffered video while playing.
  virtual void playerItemPlaybackStalled() {}
  // The first picture of the current item is on screen.
  virtual void playerDidRenderFirstFrame() {}
};

// One player. Main thread; the owner keeps it alive.
class Player {
 public:
  virtual ~Player() = default;
  virtual PlayerStatus status() const = 0;
  virtual std::optional<PlayerError> error() const = 0;
  // 0.0 when paused or waiting for video, 1.0 when playing.
  virtual float rate() const = 0;
  virtual void play() = 0;
  virtual void pause() = 0;
  virtual bool isMuted() const = 0;
  virtual void setMuted(bool muted) = 0;
  // 0.0 ... 1.0.
  virtual float volume() const = 0;
  virtual void setVolume(float volume) = 0;
  virtual std::shared_ptr<PlayerItem> currentItem() const = 0;
  // Replaces the item (null: none); the player keeps its rate.
  virtual void replaceCurrentItemWithPlayerItem(std::shared_ptr<PlayerItem> item) = 0;
  virtual void seekToTime(double seconds) = 0;
  // Calls `block` with the playhead every `interval` seconds of playback; returns a token for
  // removeTimeObserver.
  virtual long addPeriodicTimeObserver(double interval, std::function<void(double)> block) = 0;
  virtual void removeTimeObserver(long token) = 0;
  // The one observer, held weakly.
  virtual void setObserver(std::weak_ptr<PlayerObserver> observer) = 0;
  // Where the picture goes: each new picture of the current item is set on `view` (held
  // weakly), scaled to fit the view's frame. A player that draws no pictures ignores it.
  virtual void setVideoView(std::weak_ptr<kit::ImageView> view) { (void)view; }
};

class VideoPlayers {
 public:
  virtual ~VideoPlayers() = default;
  virtual std::shared_ptr<Player> makePlayer() = 0;
  // An item for `url` (a file path or URL); it loads once a player has it.
  virtual std::shared_ptr<PlayerItem> makePlayerItemWithURL(const std::string& url) = 0;
};

}  // namespace platform
