#include "adclient/SVAAudioVideoManager.h"

#include <algorithm>
#include <cmath>

#include "kit/NotificationCenter.h"

#include "kit/Singleton.h"

namespace adclient {

void SVAAudioVideoManager::playerWillChangeStateToPlaying(const SVAVideoPlayer*, bool, bool, bool,
                                                          kit::Queue& queue, std::function<void()> completionBlock) {
  queue.async(std::move(completionBlock));
}

void SVAAudioVideoManager::playerDidChangeStateToPlaying(const SVAVideoPlayer* player, bool playing, bool muted,
                                                         bool) {
  std::lock_guard lock(mu_);
  if (playing) playing_.insert(player);
  else playing_.erase(player);
  if (playing && !muted) audible_.insert(player);
  else audible_.erase(player);
}

void SVAAudioVideoManager::playerWillDealloc(const SVAVideoPlayer* player) {
  std::lock_guard lock(mu_);
  playing_.erase(player);
  audible_.erase(player);
}

std::size_t SVAAudioVideoManager::playingPlayerCount() const {
  std::lock_guard lock(mu_);
  return playing_.size();
}

std::size_t SVAAudioVideoManager::audiblePlayerCount() const {
  std::lock_guard lock(mu_);
  return audible_.size();
}

SVAMobileAds& SVAMobileAds::sharedInstance() { return *kit::sharedInstance<SVAMobileAds>(); }

std::shared_ptr<SVAAudioVideoManager> SVAMobileAds::audioVideoManager() {
  std::lock_guard lock(mu_);
  if (!manager_) manager_ = std::make_shared<SVAAudioVideoManager>();
  return manager_;
}

void SVAMobileAds::setAudioVideoManager(std::shared_ptr<SVAAudioVideoManager> manager) {
  std::lock_guard lock(mu_);
  manager_ = std::move(manager);
}

double SVAMobileAds::applicationVolume() const {
  std::lock_guard lock(mu_);
  return applicationVolume_;
}

bool SVAMobileAds::applicationMuted() const {
  std::lock_guard lock(mu_);
  return applicationMuted_;
}

void SVAMobileAds::setApplicationVolume(double volume) {
  if (std::isnan(volume)) return;
  {
    std::lock_guard lock(mu_);
    applicationVolume_ = std::clamp(volume, 0.0, 1.0);
  }
  kit::NotificationCenter::defaultCenter().postNotificationName("com.stuvop.mt.application-volume.changed", this, {});
}

void SVAMobileAds::setApplicationMuted(bool muted) {
  {
    std::lock_guard lock(mu_);
    applicationMuted_ = muted;
  }
  kit::NotificationCenter::defaultCenter().postNotificationName("com.stuvop.mt.application-volume.changed", this, {});
}

}  // namespace adclient
