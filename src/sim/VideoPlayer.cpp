#include "sim/VideoPlayer.h"

#include <algorithm>
#include <cmath>

namespace sim {

// ---- PlayerItem ----

PlayerItem::PlayerItem(std::string url, double duration, kit::Size size)
    : url_(std::move(url)), duration_(duration), size_(size) {}

void PlayerItem::becomeReady() {
  status_ = platform::PlayerStatus::ReadyToPlay;
  if (player_) {
    player_->report(&platform::PlayerObserver::playerItemStatusDidChange);
    player_->updateRate();
  }
}

void PlayerItem::fail(platform::PlayerError error) {
  status_ = platform::PlayerStatus::Failed;
  error_ = std::move(error);
  ranges_.clear();
  if (player_) {
    player_->report(&platform::PlayerObserver::playerItemStatusDidChange);
    player_->updateRate();
  }
}

void PlayerItem::setBufferedAhead(double seconds) {
  setLoadedTimeRanges({{currentTime_, std::max(0.0, seconds)}});
}

void PlayerItem::setLoadedTimeRanges(std::vector<platform::TimeRange> ranges) {
  ranges_ = std::move(ranges);
  if (player_) player_->report(&platform::PlayerObserver::playerItemLoadedTimeRangesDidChange);
}

void PlayerItem::stall() {
  ranges_.clear();
  if (!player_) return;
  player_->waiting_ = true;
  player_->updateRate();
  player_->report(&platform::PlayerObserver::playerItemPlaybackStalled);
}

// ---- Player ----

Player::~Player() {
  if (item_) item_->player_ = nullptr;
}

void Player::report(void (platform::PlayerObserver::*event)()) {
  if (auto observer = observer_.lock()) ((*observer).*event)();
}

void Player::updateRate() {
  const bool moving = wantsToPlay_ && !waiting_ && item_ && item_->status_ == platform::PlayerStatus::ReadyToPlay &&
                      status_ == platform::PlayerStatus::ReadyToPlay &&
                      !(std::isfinite(item_->duration_) && item_->currentTime_ >= item_->duration_);
  const float rate = moving ? 1.0f : 0.0f;
  if (rate == rate_) return;
  rate_ = rate;
  report(&platform::PlayerObserver::playerRateDidChange);
  if (moving) report(&platform::PlayerObserver::playerDidRenderFirstFrame);
}

void Player::play() {
  ++playCount_;
  wantsToPlay_ = true;
  waiting_ = false;
  updateRate();
}

void Player::pause() {
  ++pauseCount_;
  wantsToPlay_ = false;
  updateRate();
}

void Player::setVolume(float volume) { volume_ = std::clamp(volume, 0.0f, 1.0f); }

void Player::replaceCurrentItemWithPlayerItem(std::shared_ptr<platform::PlayerItem> item) {
  ++replaceCount_;
  if (item_) item_->player_ = nullptr;
  item_ = std::dynamic_pointer_cast<PlayerItem>(item);
  if (item_) {
    item_->player_ = this;
    if (auto failure = item_->failOnAttach_) {
      item_->failOnAttach_.reset();
      item_->fail(*failure);
      return;
    }
  }
  updateRate();
}

void Player::seekToTime(double seconds) {
  if (!item_) return;
  item_->currentTime_ = std::max(0.0, seconds);
  updateRate();
}

long Player::addPeriodicTimeObserver(double interval, std::function<void(double)> block) {
  long token = nextToken_++;
  timeObservers_[token] = {interval, std::move(block)};
  return token;
}

void Player::removeTimeObserver(long token) { timeObservers_.erase(token); }

void Player::tick(double seconds) {
  if (!item_ || rate_ <= 0.0f) return;
  const double from = item_->currentTime_;
  double to = from + std::max(0.0, seconds);
  const bool ends = std::isfinite(item_->duration_) && to >= item_->duration_;
  if (ends) to = item_->duration_;
  item_->currentTime_ = to;
  // Observers may remove themselves: walk a copy of the tokens.
  std::vector<long> tokens;
  for (const auto& [token, observer] : timeObservers_) tokens.push_back(token);
  for (long token : tokens) {
    auto it = timeObservers_.find(token);
    if (it == timeObservers_.end() || !(it->second.interval > 0.0)) continue;
    if (std::floor(to / it->second.interval) > std::floor(from / it->second.interval)) {
      auto block = it->second.block;
      block(to);
    }
  }
  if (ends) {
    updateRate();
    report(&platform::PlayerObserver::playerItemDidPlayToEnd);
  }
}

void Player::failPlayer(platform::PlayerError error) {
  status_ = platform::PlayerStatus::Failed;
  error_ = std::move(error);
  report(&platform::PlayerObserver::playerStatusDidChange);
  updateRate();
}

// ---- VideoPlayers ----

std::shared_ptr<platform::Player> VideoPlayers::makePlayer() {
  auto player = std::make_shared<Player>();
  players_.push_back(player);
  return player;
}

std::shared_ptr<platform::PlayerItem> VideoPlayers::makePlayerItemWithURL(const std::string& url) {
  auto item = std::make_shared<PlayerItem>(url, duration_, size_);
  if (auto it = failures_.find(url); it != failures_.end()) item->failOnAttach_ = it->second;
  items_.push_back(item);
  return item;
}

void VideoPlayers::setFailure(const std::string& url, platform::PlayerError error) {
  failures_[url] = std::move(error);
}

void VideoPlayers::setItemFacts(double duration, kit::Size size) {
  duration_ = duration;
  size_ = size;
}

std::vector<std::shared_ptr<Player>> VideoPlayers::players() const {
  std::vector<std::shared_ptr<Player>> out;
  for (const auto& p : players_) out.push_back(p.lock());
  return out;
}

std::vector<std::shared_ptr<PlayerItem>> VideoPlayers::items() const {
  std::vector<std::shared_ptr<PlayerItem>> out;
  for (const auto& i : items_) out.push_back(i.lock());
  return out;
}

// ---- AdScriptChannel ----

void AdScriptChannel::postMessage(const std::string& name, const kit::Dictionary& arguments) {
  std::lock_guard lock(mu_);
  messages_.push_back({name, arguments});
}

std::vector<AdScriptChannel::Message> AdScriptChannel::messages() const {
  std::lock_guard lock(mu_);
  return messages_;
}

std::vector<std::string> AdScriptChannel::videoEvents() const {
  std::vector<std::string> out;
  for (const auto& m : messages()) {
    if (m.name != "onVideoEvent") continue;
    auto it = m.arguments.find("event");
    if (it != m.arguments.end() && it->second.asString()) out.push_back(*it->second.asString());
  }
  return out;
}

void AdScriptChannel::clear() {
  std::lock_guard lock(mu_);
  messages_.clear();
}

}  // namespace sim
