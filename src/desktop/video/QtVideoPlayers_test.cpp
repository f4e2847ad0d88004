#include "desktop/video/QtVideoPlayers.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QThread>

#include <cmath>
#include <functional>

#include "desktop/testing/DesktopTesting.h"
#include "samplegen/SampleMedia.h"

namespace desktop {
namespace {

// Qt's players need an application and its event loop; the tests pump it by hand. Offscreen,
// and with no sound device the players must still play their pictures.
void ensureApplication() {
  if (QCoreApplication::instance()) return;
  ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
  static int argc = 1;
  static char name[] = "desktop_tests";
  static char* argv[] = {name, nullptr};
  new QGuiApplication(argc, argv);  // lives as long as the process
}

// Runs Qt's events until `done` holds or `seconds` pass. True when it holds.
bool pumpUntil(const std::function<bool()>& done, double seconds = 10.0) {
  QElapsedTimer clock;
  clock.start();
  while (!done()) {
    if (clock.elapsed() > seconds * 1000.0) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    QThread::msleep(2);
  }
  return true;
}

struct Recorder : platform::PlayerObserver {
  int itemStatus = 0, rateChanges = 0, ranges = 0, ended = 0, firstFrames = 0, stalls = 0;
  std::function<void()> onFirstFrame;
  void playerItemStatusDidChange() override { ++itemStatus; }
  void playerRateDidChange() override { ++rateChanges; }
  void playerItemLoadedTimeRangesDidChange() override { ++ranges; }
  void playerItemDidPlayToEnd() override { ++ended; }
  void playerDidRenderFirstFrame() override {
    ++firstFrames;
    if (onFirstFrame) onFirstFrame();
  }
  void playerItemPlaybackStalled() override { ++stalls; }
};

struct QtVideoPlayersTest : ::testing::Test {
  void SetUp() override { ensureApplication(); }

  // A clip of `seconds` at 10 frames a second, 64x48.
  std::string clip(const std::string& name, double seconds) {
    samplegen::VideoOptions options;
    options.seconds = seconds;
    options.container = "mp4";
    std::string path = dir / name, error;
    EXPECT_TRUE(samplegen::writeVideo(path, options, &error)) << error;
    return path;
  }

  std::shared_ptr<platform::Player> playerWith(const std::shared_ptr<platform::PlayerItem>& item) {
    auto player = players.makePlayer();
    player->setObserver(recorder);
    player->replaceCurrentItemWithPlayerItem(item);
    return player;
  }

  testing::TempDir dir;
  QtVideoPlayers players;
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
};

TEST_F(QtVideoPlayersTest, PlaysARealClipToItsEndShowingItsPictures) {
  auto item = players.makePlayerItemWithURL(clip("ad.mp4", 1.0));
  auto player = playerWith(item);
  ASSERT_EQ(player->status(), platform::PlayerStatus::ReadyToPlay) << player->error()->localizedDescription;
  auto view = std::make_shared<kit::ImageView>();
  view->setFrame(kit::makeRect(0, 0, 32, 32));
  player->setVideoView(view);
  std::vector<double> ticks;
  long token = player->addPeriodicTimeObserver(0.1, [&](double t) { ticks.push_back(t); });

  ASSERT_TRUE(pumpUntil([&] { return item->status() != platform::PlayerStatus::Unknown; }));
  ASSERT_EQ(item->status(), platform::PlayerStatus::ReadyToPlay) << item->error()->localizedDescription;
  EXPECT_NEAR(item->duration(), 1.0, 0.05);
  EXPECT_EQ(item->presentationSize().width, 64);
  EXPECT_EQ(item->presentationSize().height, 48);
  ASSERT_EQ(item->loadedTimeRanges().size(), 1u);
  EXPECT_NEAR(item->loadedTimeRanges()[0].duration, item->duration(), 1e-9);
  EXPECT_EQ(recorder->ranges, 1);
  EXPECT_EQ(player->rate(), 0.0f) << "nothing plays before play";

  player->play();
  ASSERT_TRUE(pumpUntil([&] { return recorder->firstFrames > 0 && player->rate() > 0.0f; }));
  ASSERT_TRUE(view->image());
  // Fitted into the 32x32 view, keeping 4:3.
  EXPECT_EQ(view->image()->pixelWidth(), 32);
  EXPECT_EQ(view->image()->pixelHeight(), 24);

  ASSERT_TRUE(pumpUntil([&] { return recorder->ended > 0; }));
  EXPECT_EQ(player->rate(), 0.0f);
  EXPECT_EQ(recorder->firstFrames, 1);
  EXPECT_NEAR(item->currentTime(), 1.0, 0.15);
  ASSERT_FALSE(ticks.empty());
  EXPECT_TRUE(std::is_sorted(ticks.begin(), ticks.end()));
  player->removeTimeObserver(token);
}

TEST_F(QtVideoPlayersTest, MissingAndUndecodableVideosFailTheirItemNotThePlayer) {
  std::string garbage = dir / "garbage.mp4";
  testing::writeBytes(garbage, std::vector<std::uint8_t>(4096, 0x5A));
  for (const std::string& path : {dir / "missing.mp4", garbage}) {
    recorder = std::make_shared<Recorder>();
    auto item = players.makePlayerItemWithURL(path);
    auto player = playerWith(item);
    player->play();
    ASSERT_TRUE(pumpUntil([&] { return item->status() != platform::PlayerStatus::Unknown; })) << path;
    EXPECT_EQ(item->status(), platform::PlayerStatus::Failed) << path;
    ASSERT_TRUE(item->error()) << path;
    EXPECT_EQ(item->error()->domain, "media");
    EXPECT_FALSE(item->error()->localizedDescription.empty());
    EXPECT_EQ(player->status(), platform::PlayerStatus::ReadyToPlay);
    EXPECT_EQ(player->rate(), 0.0f);
    EXPECT_EQ(recorder->itemStatus, 1) << "the failure is told once";
  }
}

TEST_F(QtVideoPlayersTest, VolumeStaysWithinZeroToOneAndIgnoresNaN) {
  auto player = players.makePlayer();
  EXPECT_EQ(player->volume(), 1.0f);
  EXPECT_FALSE(player->isMuted());
  player->setVolume(0.25f);
  EXPECT_EQ(player->volume(), 0.25f);
  player->setVolume(std::nanf(""));
  EXPECT_EQ(player->volume(), 0.25f);
  player->setVolume(3.0f);
  EXPECT_EQ(player->volume(), 1.0f);
  player->setVolume(-1.0f);
  EXPECT_EQ(player->volume(), 0.0f);
  player->setMuted(true);
  EXPECT_TRUE(player->isMuted());
}

TEST_F(QtVideoPlayersTest, AnItemPutBackAfterBeingTakenAwayLoadsAndPlaysAgain) {
  auto item = players.makePlayerItemWithURL(clip("ad.mp4", 2.0));
  auto player = playerWith(item);
  player->play();
  ASSERT_TRUE(pumpUntil([&] { return recorder->firstFrames == 1; }));
  player->replaceCurrentItemWithPlayerItem(nullptr);
  EXPECT_EQ(player->currentItem(), nullptr);
  EXPECT_EQ(player->rate(), 0.0f);
  player->replaceCurrentItemWithPlayerItem(item);
  // The player kept its wish to play.
  ASSERT_TRUE(pumpUntil([&] { return recorder->firstFrames == 2 && player->rate() > 0.0f; }));
  EXPECT_EQ(item->status(), platform::PlayerStatus::ReadyToPlay);
}

TEST_F(QtVideoPlayersTest, APlayerReleasedFromItsOwnCallbackSendsNothingMore) {
  auto item = players.makePlayerItemWithURL(clip("ad.mp4", 1.0));
  auto player = playerWith(item);
  long ticks = 0;
  player->addPeriodicTimeObserver(0.05, [&](double) { ++ticks; });
  recorder->onFirstFrame = [&] { player.reset(); };
  player->play();
  ASSERT_TRUE(pumpUntil([&] { return player == nullptr; }));
  const Recorder seen = *recorder;
  const long ticksSeen = ticks;
  pumpUntil([] { return false; }, 1.5);
  EXPECT_EQ(recorder->firstFrames, seen.firstFrames);
  EXPECT_EQ(recorder->rateChanges, seen.rateChanges);
  EXPECT_EQ(recorder->ended, 0);
  EXPECT_EQ(ticks, ticksSeen);
}

}  // namespace
}  // namespace desktop

