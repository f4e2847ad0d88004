#include "desktop/video/QtVideoPlayers.h"

#include <QAudioOutput>
#include <QCoreApplication>
#include <QImage>
#include <QMediaMetaData>
#include <QMediaPlayer>
#include <QTimer>
#include <QUrl>
#include <QVideoFrame>
#include <QVideoSink>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>

#include "desktop/media/MediaDecoding.h"

namespace desktop {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

QUrl toQUrl(const std::string& url) {
  const QString text = QString::fromStdString(url);
  if (text.startsWith("file:", Qt::CaseInsensitive) || text.startsWith("http:", Qt::CaseInsensitive) ||
      text.startsWith("https:", Qt::CaseInsensitive)) {
    return QUrl(text);
  }
  return QUrl::fromLocalFile(text);
}

class QtPlayer;

class QtPlayerItem : public platform::PlayerItem {
 public:
  explicit QtPlayerItem(std::string url) : url_(std::move(url)), source_(toQUrl(url_)) {}

  const std::string& url() const override { return url_; }
  platform::PlayerStatus status() const override { return status_; }
  std::optional<platform::PlayerError> error() const override { return error_; }
  std::vector<platform::TimeRange> loadedTimeRanges() const override {
    if (!(buffered_ > 0.0)) return {};
    return {platform::TimeRange{0.0, buffered_}};
  }
  double currentTime() const override { return currentTime_; }
  double duration() const override { return duration_; }
  kit::Size presentationSize() const override { return size_; }

 private:
  friend class QtPlayer;
  std::string url_;
  QUrl source_;
  platform::PlayerStatus status_ = platform::PlayerStatus::Unknown;
  std::optional<platform::PlayerError> error_;
  double buffered_ = 0.0;  // seconds from the start
  double currentTime_ = 0.0;
  double duration_ = kNaN;
  kit::Size size_{0, 0};
};

class QtPlayer : public platform::Player {
 public:
  QtPlayer() {
    if (!QCoreApplication::instance()) {
      status_ = platform::PlayerStatus::Failed;
      error_ = platform::PlayerError{"media", 1, "Videos play only inside the window.", "", ""};
      return;
    }
    media_ = new QMediaPlayer;
    audio_ = new QAudioOutput;
    sink_ = new QVideoSink;
    media_->setAudioOutput(audio_);
    media_->setVideoSink(sink_);
    if (!media_->isAvailable()) {
      status_ = platform::PlayerStatus::Failed;
      error_ = platform::PlayerError{"media", 1, "No media backend is available.", "", ""};
    }
    // Signals of the decoding threads arrive as queued calls, which a disconnection does not
    // take back: each handler first checks that this player is still there.
    std::weak_ptr<bool> alive = alive_;
    QObject::connect(media_, &QMediaPlayer::mediaStatusChanged, media_,
                     [this, alive](QMediaPlayer::MediaStatus status) {
                       if (!alive.expired()) onMediaStatus(status);
                     });
    QObject::connect(media_, &QMediaPlayer::errorOccurred, media_,
                     [this, alive](QMediaPlayer::Error error, const QString& text) {
                       if (!alive.expired() && error != QMediaPlayer::NoError)
                         failItem(static_cast<long>(error), text.toStdString());
                     });
    QObject::connect(media_, &QMediaPlayer::playbackStateChanged, media_, [this, alive] {
      if (!alive.expired()) (void)updateRate();
    });
    QObject::connect(media_, &QMediaPlayer::positionChanged, media_, [this, alive](qint64 ms) {
      if (!alive.expired() && item_) item_->currentTime_ = static_cast<double>(ms) / 1000.0;
    });
    QObject::connect(media_, &QMediaPlayer::durationChanged, media_, [this, alive](qint64 ms) {
      if (!alive.expired() && item_ && ms > 0) item_->duration_ = static_cast<double>(ms) / 1000.0;
    });
    QObject::connect(sink_, &QVideoSink::videoFrameChanged, sink_, [this, alive](const QVideoFrame& frame) {
      if (!alive.expired()) onFrame(frame);
    });
  }

  // The Qt objects may be in the middle of emitting the signal whose handler let this player
  // go: they are cut off now and deleted on a later turn of the event loop.
  ~QtPlayer() override {
    alive_.reset();
    for (auto& [token, timer] : timers_) dispose(timer);
    if (item_) item_->currentTime_ = currentSeconds();
    if (media_) {
      QObject::disconnect(media_, nullptr, nullptr, nullptr);
      QObject::disconnect(sink_, nullptr, nullptr, nullptr);
      media_->stop();
      dispose(media_);
      dispose(sink_);
      dispose(audio_);
    }
  }

  platform::PlayerStatus status() const override { return status_; }
  std::optional<platform::PlayerError> error() const override { return error_; }
  float rate() const override { return rate_; }

  void play() override {
    wantsToPlay_ = true;
    if (media_ && item_ && item_->status_ != platform::PlayerStatus::Failed) media_->play();
    (void)updateRate();
  }

  void pause() override {
    wantsToPlay_ = false;
    if (media_) media_->pause();
    (void)updateRate();
  }

  bool isMuted() const override { return muted_; }
  void setMuted(bool muted) override {
    muted_ = muted;
    if (audio_) audio_->setMuted(muted);
  }
  float volume() const override { return volume_; }
  void setVolume(float volume) override {
    if (std::isnan(volume)) return;
    volume_ = std::clamp(volume, 0.0f, 1.0f);
    if (audio_) audio_->setVolume(volume_);
  }

  std::shared_ptr<platform::PlayerItem> currentItem() const override { return item_; }

  void replaceCurrentItemWithPlayerItem(std::shared_ptr<platform::PlayerItem> item) override {
    if (item_) item_->currentTime_ = currentSeconds();
    item_ = std::dynamic_pointer_cast<QtPlayerItem>(item);
    firstFrameShown_ = false;
    if (!media_) {
      if (item_) failItem(1, error_ ? error_->localizedDescription : "No media backend is available.");
      return;
    }
    pendingSeekSeconds_ = item_ ? item_->currentTime_ : 0.0;
    media_->setSource(item_ ? item_->source_ : QUrl());
    if (item_ && wantsToPlay_) media_->play();
    (void)updateRate();
  }

  void seekToTime(double seconds) override {
    if (!item_ || !std::isfinite(seconds)) return;
    seconds = std::max(0.0, seconds);
    item_->currentTime_ = seconds;
    if (media_) media_->setPosition(static_cast<qint64>(std::llround(seconds * 1000.0)));
  }

  long addPeriodicTimeObserver(double interval, std::function<void(double)> block) override {
    const long token = nextToken_++;
    if (!media_ || !(interval > 0.0)) return token;
    auto* timer = new QTimer;
    timer->setInterval(static_cast<int>(std::clamp(interval * 1000.0, 1.0, 1e9)));
    std::weak_ptr<bool> alive = alive_;
    QObject::connect(timer, &QTimer::timeout, timer, [this, alive, block = std::move(block)] {
      if (!alive.expired() && rate_ > 0.0f && item_) block(currentSeconds());
    });
    timer->start();
    timers_[token] = timer;
    return token;
  }

  void removeTimeObserver(long token) override {
    auto it = timers_.find(token);
    if (it == timers_.end()) return;
    dispose(it->second);
    timers_.erase(it);
  }

  void setObserver(std::weak_ptr<platform::PlayerObserver> observer) override { observer_ = std::move(observer); }
  void setVideoView(std::weak_ptr<kit::ImageView> view) override { view_ = std::move(view); }

 private:
  template <class T>
  static void dispose(T*& object) {
    if (!object) return;
    QObject::disconnect(object, nullptr, nullptr, nullptr);
    object->deleteLater();
    object = nullptr;
  }

  double currentSeconds() const {
    return media_ ? static_cast<double>(media_->position()) / 1000.0 : (item_ ? item_->currentTime_ : 0.0);
  }

  // Tells the observer. False when the observer let this player go meanwhile: the caller
  // must then return without touching any member.
  [[nodiscard]] bool report(void (platform::PlayerObserver::*event)()) {
    std::weak_ptr<bool> alive = alive_;
    if (auto observer = observer_.lock()) ((*observer).*event)();
    return !alive.expired();
  }

  void onMediaStatus(QMediaPlayer::MediaStatus status) {
    if (!item_) return;
    switch (status) {
      case QMediaPlayer::LoadedMedia:
      case QMediaPlayer::BufferingMedia:
      case QMediaPlayer::BufferedMedia:
      case QMediaPlayer::EndOfMedia:
        if (!becomeReady()) return;
        break;
      case QMediaPlayer::InvalidMedia:
        failItem(static_cast<long>(media_->error()), media_->errorString().isEmpty()
                                                         ? std::string("The video cannot be played.")
                                                         : media_->errorString().toStdString());
        return;
      case QMediaPlayer::StalledMedia:
        if (updateRate()) (void)report(&platform::PlayerObserver::playerItemPlaybackStalled);
        return;
      default:
        break;
    }
    if (status == QMediaPlayer::EndOfMedia) {
      if (std::isfinite(item_->duration_)) item_->currentTime_ = item_->duration_;
      wantsToPlay_ = false;
      if (updateRate()) (void)report(&platform::PlayerObserver::playerItemDidPlayToEnd);
      return;
    }
    (void)updateRate();
  }

  // False when the player was let go meanwhile.
  bool becomeReady() {
    if (item_->status_ != platform::PlayerStatus::Unknown) return true;
    if (media_->duration() > 0) item_->duration_ = static_cast<double>(media_->duration()) / 1000.0;
    const QSize size = media_->metaData().value(QMediaMetaData::Resolution).toSize();
    if (size.isValid() && !size.isEmpty()) item_->size_ = kit::Size{double(size.width()), double(size.height())};
    // A local file is all there from the start.
    item_->buffered_ = std::isfinite(item_->duration_) ? item_->duration_ : 0.0;
    item_->status_ = platform::PlayerStatus::ReadyToPlay;
    if (pendingSeekSeconds_ > 0.0) media_->setPosition(static_cast<qint64>(std::llround(pendingSeekSeconds_ * 1000.0)));
    pendingSeekSeconds_ = 0.0;
    auto keep = item_;
    if (!report(&platform::PlayerObserver::playerItemStatusDidChange)) return false;
    if (item_ != keep) return true;
    return report(&platform::PlayerObserver::playerItemLoadedTimeRangesDidChange);
  }

  void failItem(long code, std::string text) {
    if (!item_ || item_->status_ == platform::PlayerStatus::Failed) return;
    item_->status_ = platform::PlayerStatus::Failed;
    item_->error_ = platform::PlayerError{"media", code, std::move(text), "The video could not be opened or decoded.", ""};
    if (updateRate()) (void)report(&platform::PlayerObserver::playerItemStatusDidChange);
  }

  // False when the player was let go meanwhile.
  bool updateRate() {
    bool moving = false;
    if (media_ && item_ && wantsToPlay_ && item_->status_ == platform::PlayerStatus::ReadyToPlay &&
        media_->playbackState() == QMediaPlayer::PlayingState) {
      const auto status = media_->mediaStatus();
      moving = status != QMediaPlayer::StalledMedia && status != QMediaPlayer::LoadingMedia &&
               status != QMediaPlayer::EndOfMedia;
    }
    const float rate = moving ? 1.0f : 0.0f;
    if (rate == rate_) return true;
    rate_ = rate;
    return report(&platform::PlayerObserver::playerRateDidChange);
  }

  void onFrame(const QVideoFrame& frame) {
    if (!frame.isValid() || !item_) return;
    if (!(item_->size_.width > 0)) item_->size_ = kit::Size{double(frame.width()), double(frame.height())};
    if (auto view = view_.lock()) {
      const QImage image = frame.toImage();
      if (!image.isNull()) {
        const PixelSize size = scaledPixelSize({image.width(), image.height()}, view->frame().size, 0);
        view->setImage(scaledTo(image, size));
      }
    }
    if (!firstFrameShown_) {
      firstFrameShown_ = true;
      (void)report(&platform::PlayerObserver::playerDidRenderFirstFrame);
    }
  }

  QMediaPlayer* media_ = nullptr;
  QAudioOutput* audio_ = nullptr;
  QVideoSink* sink_ = nullptr;
  std::shared_ptr<QtPlayerItem> item_;
  platform::PlayerStatus status_ = platform::PlayerStatus::ReadyToPlay;
  std::optional<platform::PlayerError> error_;
  float rate_ = 0.0f;
  bool wantsToPlay_ = false;
  bool muted_ = false;
  float volume_ = 1.0f;
  bool firstFrameShown_ = false;
  double pendingSeekSeconds_ = 0.0;
  std::weak_ptr<platform::PlayerObserver> observer_;
  std::weak_ptr<kit::ImageView> view_;
  std::map<long, QTimer*> timers_;
  long nextToken_ = 1;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace

std::string chooseMediaBackend() {
  const char* chosen = std::getenv("QT_MEDIA_BACKEND");
  if (chosen && *chosen) return chosen;
  ::setenv("QT_MEDIA_BACKEND", "ffmpeg", 1);
  return "ffmpeg";
}

std::shared_ptr<platform::Player> QtVideoPlayers::makePlayer() {
  chooseMediaBackend();
  return std::make_shared<QtPlayer>();
}

std::shared_ptr<platform::PlayerItem> QtVideoPlayers::makePlayerItemWithURL(const std::string& url) {
  return std::make_shared<QtPlayerItem>(url);
}

}  // namespace desktop
