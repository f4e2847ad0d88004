// SVAAudioVideoManager: the process-wide arbiter of the players' audio. A player asks it
// before it changes state and tells it afterwards; it keeps which players play and which of
// them are audible. Any thread.
#pragma once

#include <functional>
#include <mutex>
#include <set>

#include "kit/Dispatch.h"

namespace adclient {

class SVAVideoPlayer;

class SVAAudioVideoManager {
 public:
  virtual ~SVAAudioVideoManager() = default;

  // `player` is about to play (or pause) with its audio muted or not. `completionBlock` runs
  // later on `queue` once the change may go ahead. The manager does not keep `player`.
  virtual void playerWillChangeStateToPlaying(const SVAVideoPlayer* player, bool playing, bool muted,
                                              bool userInitiated, kit::Queue& queue,
                                              std::function<void()> completionBlock);
  // `player` now plays (or not) with its audio muted or not.
  virtual void playerDidChangeStateToPlaying(const SVAVideoPlayer* player, bool playing, bool muted,
                                             bool userInitiated);
  // `player` is going away: it neither plays nor sounds any more.
  virtual void playerWillDealloc(const SVAVideoPlayer* player);

  std::size_t playingPlayerCount() const;
  std::size_t audiblePlayerCount() const;

 private:
  mutable std::mutex mu_;
  std::set<const SVAVideoPlayer*> playing_;
  std::set<const SVAVideoPlayer*> audible_;
};

// The client's shared objects.
class SVAMobileAds {
 public:
  static SVAMobileAds& sharedInstance();
  // The shared manager; a plain SVAAudioVideoManager unless one was set.
  std::shared_ptr<SVAAudioVideoManager> audioVideoManager();
  void setAudioVideoManager(std::shared_ptr<SVAAudioVideoManager> manager);
  // "9.0.0".
  static const char* sdkVersion() { return "9.0.0"; }

  // The application's own volume for its ads (0..1, default 1) and whether they are muted.
  // Setting either posts "com.stuvop.mt.application-volume.changed" on the calling thread.
  // A volume outside 0..1 is clamped; NaN is ignored.
  double applicationVolume() const;
  bool applicationMuted() const;
  void setApplicationVolume(double volume);
  void setApplicationMuted(bool muted);

 private:
  mutable std::mutex mu_;
  std::shared_ptr<SVAAudioVideoManager> manager_;
  double applicationVolume_ = 1.0;
  bool applicationMuted_ = false;
};

}  // namespace adclient
