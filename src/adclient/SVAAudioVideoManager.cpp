#include "adclient/SVAAudioVideoManager.h"

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

}  // namespace adclient
