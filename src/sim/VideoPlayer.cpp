#include "sim/VideoPlayer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "kit/Dispatch.h"

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
  if (moving) {
    if (onClock_) {
      drawPicture();
      scheduleTick();
    }
    report(&platform::PlayerObserver::playerDidRenderFirstFrame);
  }
}

void Player::scheduleTick() {
  if (tickScheduled_) return;
  tickScheduled_ = true;
  std::weak_ptr<Player> weak = weak_from_this();
  kit::mainQueue().asyncAfter(VideoPlayers::kClockTick, [weak] {
    auto self = weak.lock();
    if (!self) return;
    self->tickScheduled_ = false;
    if (!(self->rate_ > 0.0f)) return;
    self->tick(VideoPlayers::kClockTick);
    self->drawPicture();
    if (self->rate_ > 0.0f) self->scheduleTick();
  });
}

void Player::setVideoView(std::weak_ptr<kit::ImageView> view) {
  videoView_ = std::move(view);
  if (onClock_ && rate_ > 0.0f) drawPicture();
}

void Player::drawPicture() {
  auto view = videoView_.lock();
  if (!view || !item_) return;
  // A 16:9 frame: a blue field whose shade follows the playhead, and a progress bar.
  constexpr int kWidth = 320, kHeight = 180, kBarTop = 164, kBarBottom = 172;
  const double progress =
      std::isfinite(item_->duration_) && item_->duration_ > 0 ? std::clamp(item_->currentTime_ / item_->duration_, 0.0, 1.0) : 0.0;
  std::vector<std::uint8_t> rgba(static_cast<std::size_t>(kWidth) * kHeight * 4);
  const int filled = static_cast<int>(progress * kWidth);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      std::uint8_t* px = &rgba[(static_cast<std::size_t>(y) * kWidth + x) * 4];
      const bool bar = y >= kBarTop && y < kBarBottom;
      if (bar) {
        const std::uint8_t v = x < filled ? 0xF0 : 0x50;
        px[0] = v;
        px[1] = v;
        px[2] = v;
      } else {
        px[0] = static_cast<std::uint8_t>(0x20 + 0x60 * progress);
        px[1] = static_cast<std::uint8_t>(0x60 + y / 3);
        px[2] = static_cast<std::uint8_t>(0xC0 + x / 8);
      }
      px[3] = 0xFF;
    }
  }
  view->setImage(kit::Image::fromPixels(kWidth, kHeight, std::move(rgba)));
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
    if (onClock_ && item_->status_ == platform::PlayerStatus::Unknown) {
      // The file loads: the whole video is at hand on the next turn.
      std::weak_ptr<PlayerItem> loading = item_;
      kit::mainQueue().async([loading] {
        auto loaded = loading.lock();
        if (!loaded || loaded->status_ != platform::PlayerStatus::Unknown) return;
        loaded->setLoadedTimeRanges({{0.0, std::isfinite(loaded->duration_) ? loaded->duration_ : 0.0}});
        loaded->becomeReady();
      });
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
  auto player = std::make_shared<Player>(onClock_);
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

void VideoPlayers::setPlaysOnClock(bool onClock) { onClock_ = onClock; }

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
