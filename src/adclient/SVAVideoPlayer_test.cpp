// The video player on the simulated platform: coalescing of commands, the action gate and its
// timeout, the loaded-player limit, buffering after a stall, and what the script hears.
#include "adclient/SVAVideoPlayer.h"

#include <gtest/gtest.h>

#include <cmath>

#include "adclient/SVAAudioVideoManager.h"
#include "adclient/SVANotifications.h"
#include "adclient/SVASettings.h"
#include "kit/ApplicationNotifications.h"
#include "kit/Console.h"
#include "kit/NotificationCenter.h"
#include "sim/World.h"

namespace adclient {
namespace {

// Records what players ask; can hold completions back, as a manager stuck elsewhere would.
struct RecordingManager : SVAAudioVideoManager {
  struct Call {
    bool playing, muted, userInitiated;
  };
  std::vector<Call> will;
  bool hold = false;
  std::vector<std::function<void()>> held;
  int deallocs = 0;

  void playerWillChangeStateToPlaying(const SVAVideoPlayer* player, bool playing, bool muted, bool userInitiated,
                                      kit::Queue& queue, std::function<void()> completion) override {
    will.push_back({playing, muted, userInitiated});
    if (hold) held.push_back(std::move(completion));
    else SVAAudioVideoManager::playerWillChangeStateToPlaying(player, playing, muted, userInitiated, queue,
                                                              std::move(completion));
  }
  void playerWillDealloc(const SVAVideoPlayer* player) override {
    ++deallocs;
    SVAAudioVideoManager::playerWillDealloc(player);
  }
  void releaseHeld() {
    auto blocks = std::move(held);
    held.clear();
    for (auto& b : blocks) kit::mainQueue().async(std::move(b));
  }
};

constexpr const char* kURL = "file:///ads/clip.mp4";

struct VideoPlayerTest : ::testing::Test {
  sim::World world;
  std::shared_ptr<sim::AdScriptChannel> channel = std::make_shared<sim::AdScriptChannel>();
  std::shared_ptr<SVAWebAdView> view = std::make_shared<SVAWebAdView>(channel);
  std::shared_ptr<RecordingManager> manager = std::make_shared<RecordingManager>();
  std::shared_ptr<SVAEventContext> root = SVAEventContext::rootContext("ad");
  kit::ConsoleCapture console;

  VideoPlayerTest() { SVAMobileAds::sharedInstance().setAudioVideoManager(manager); }

  std::shared_ptr<SVAVideoPlayer> makePlayer(const std::string& url = kURL, SVAVideoConfiguration config = {}) {
    auto player = SVAVideoPlayer::make(view, SVAPlayerItemProvider::withURL(url), view.get(), config, root);
    world.env.runUntilIdle();
    return player;
  }
  sim::Player& simPlayer(std::size_t index = 0) { return *world.platform.videoPlayers().players().at(index); }
  sim::PlayerItem& simItem(std::size_t index = 0) { return *world.platform.videoPlayers().items().at(index); }
};

TEST_F(VideoPlayerTest, NoItemMeansNoPlayer) {
  int creates = 0;
  kit::NotificationCenter::defaultCenter().addObserver(this, kSVAVideoPlayerCreateNotification, nullptr,
                                                       [&](const kit::Notification&) { ++creates; });
  EXPECT_EQ(SVAVideoPlayer::make(view, SVAPlayerItemProvider::withURL(""), view.get(), {}, root), nullptr);
  EXPECT_EQ(SVAVideoPlayer::make(view, nullptr, view.get(), {}, root), nullptr);
  EXPECT_EQ(console.count("PlayerItem must exist for loading video player."), 2);
  EXPECT_EQ(creates, 0);
  kit::NotificationCenter::defaultCenter().removeObserver(this);
}

TEST_F(VideoPlayerTest, LoadsItemCountsItAndReportsCacheFacts) {
  std::vector<kit::Notification> posted;
  for (const char* name : {kSVAVideoPlayerCreateNotification, kSVAVideoPlayerItemLoadNotification}) {
    kit::NotificationCenter::defaultCenter().addObserver(this, name, nullptr,
                                                         [&](const kit::Notification& n) { posted.push_back(n); });
  }
  auto first = makePlayer();
  auto second = makePlayer();
  kit::NotificationCenter::defaultCenter().removeObserver(this);
  ASSERT_EQ(posted.size(), 4u);
  EXPECT_EQ(posted[0].name, kSVAVideoPlayerCreateNotification);
  EXPECT_EQ(posted[0].userInfo.at("num_loaded_players"), kit::Value(0));
  EXPECT_EQ(posted[2].userInfo.at("num_loaded_players"), kit::Value(1));
  EXPECT_EQ(posted[0].object, first->context().get());
  EXPECT_EQ(first->context()->path(), "ad/video_player");
  EXPECT_EQ(SVAVideoPlayer::loadedPlayerCount(), 2);
  EXPECT_EQ(simPlayer(0).currentItem().get(), &simItem(0));
  auto messages = channel->messages();
  ASSERT_FALSE(messages.empty());
  EXPECT_EQ(messages[0].name, "onVcacheInfoEvent");
  EXPECT_EQ(messages[0].arguments, (kit::Dictionary{{"vcacheHit", false}, {"vcacheDownloaded", false}}));
  first.reset();
  EXPECT_EQ(SVAVideoPlayer::loadedPlayerCount(), 1);
}

TEST_F(VideoPlayerTest, OnlyTheLatestWishOfEachKindIsApplied) {
  auto player = makePlayer();
  player->playUserInitiated(false);
  player->setMuted(true, false);
  player->setVolume(0.3, false);
  player->pauseUserInitiated(true);
  player->setMuted(false, true);
  world.env.runUntilIdle();
  EXPECT_EQ(simPlayer().playCount(), 0);
  EXPECT_EQ(simPlayer().pauseCount(), 1);
  EXPECT_FALSE(simPlayer().isMuted());
  EXPECT_FLOAT_EQ(simPlayer().volume(), 0.3f);
  EXPECT_FALSE(player->isPlaying());
  EXPECT_EQ(player->appliedFlushCount(), 1);
  ASSERT_EQ(manager->will.size(), 1u);
  EXPECT_FALSE(manager->will[0].playing);
  EXPECT_TRUE(manager->will[0].userInitiated);

  // A mute or volume wish alone keeps the play state last applied.
  player->playUserInitiated(false);
  world.env.runUntilIdle();
  player->setMuted(true, false);
  world.env.runUntilIdle();
  ASSERT_EQ(manager->will.size(), 3u);
  EXPECT_TRUE(manager->will[2].playing);
  EXPECT_TRUE(manager->will[2].muted);
  EXPECT_EQ(simPlayer().playCount(), 1);
}

TEST_F(VideoPlayerTest, FlushesWithNothingScheduledOnlyPassTheGate) {
  auto player = makePlayer();
  for (int i = 0; i < 3; ++i) {
    player->flushPlayerAction();
    world.env.runUntilIdle();
    EXPECT_EQ(player->actionSemaphoreValue(), 1);
  }
  EXPECT_TRUE(manager->will.empty());
  EXPECT_EQ(simPlayer().playCount() + simPlayer().pauseCount(), 0);
  EXPECT_EQ(player->appliedFlushCount(), 0);
}

TEST_F(VideoPlayerTest, ZeroVolumeCountsAsMutedForTheManager) {
  auto player = makePlayer();
  player->setVolume(0.0, false);
  world.env.runUntilIdle();
  ASSERT_EQ(manager->will.size(), 1u);
  EXPECT_TRUE(manager->will[0].muted);
  EXPECT_FALSE(simPlayer().isMuted());
}

TEST_F(VideoPlayerTest, BadVolumesAreLoggedAndNeverReachThePlayerRaw) {
  auto player = makePlayer();
  player->setVolume(0.6, false);
  world.env.runUntilIdle();
  player->setVolume(-0.5, false);
  world.env.runUntilIdle();
  EXPECT_TRUE(console.contains("Video volume must be positive. -0.500000"));
  EXPECT_FLOAT_EQ(simPlayer().volume(), 0.0f);
  player->setVolume(7.0, false);
  world.env.runUntilIdle();
  EXPECT_FLOAT_EQ(simPlayer().volume(), 1.0f);
  player->setVolume(std::nan(""), false);
  world.env.runUntilIdle();
  EXPECT_TRUE(console.contains("Video volume must be positive. nan"));
  EXPECT_FLOAT_EQ(simPlayer().volume(), 1.0f);
}

TEST_F(VideoPlayerTest, AStuckActionTimesOutAndAFreshGateTakesOver) {
  auto player = makePlayer();
  manager->hold = true;
  player->playUserInitiated(true);
  world.env.runUntilIdle();
  ASSERT_EQ(manager->held.size(), 1u);
  EXPECT_EQ(player->actionSemaphoreValue(), 0);

  // The pause's flush waits for the gate on the clock, not on a thread.
  player->pauseUserInitiated(true);
  world.env.runUntilIdle();
  EXPECT_EQ(manager->held.size(), 1u);
  world.env.advance(4.9);
  EXPECT_EQ(console.count("Must not timeout waiting for player action to happen."), 0);
  world.env.advance(0.1);
  world.env.runUntilIdle();
  EXPECT_EQ(console.count("Must not timeout waiting for player action to happen."), 1);
  ASSERT_EQ(manager->held.size(), 2u);

  // Both complete late, in order; the gate that took over is the one given back.
  manager->hold = false;
  manager->releaseHeld();
  world.env.runUntilIdle();
  EXPECT_EQ(player->actionSemaphoreValue(), 1);
  EXPECT_FALSE(player->isPlaying());
  player->playUserInitiated(true);
  world.env.runUntilIdle();
  EXPECT_TRUE(player->isPlaying());
  EXPECT_EQ(console.count("Must not timeout waiting for player action to happen."), 1);
}

TEST_F(VideoPlayerTest, ASecondActionWaitsForTheFirstToBeApplied) {
  auto player = makePlayer();
  player->playUserInitiated(false);
  world.env.runBackgroundOnce();  // the wish
  world.env.runBackgroundOnce();  // its flush takes the gate
  player->pauseUserInitiated(false);
  world.env.runUntilIdle();
  // The pause's flush took the gate once the play was applied: both applied, in order.
  EXPECT_EQ(simPlayer().playCount(), 1);
  EXPECT_EQ(simPlayer().pauseCount(), 1);
  EXPECT_FALSE(player->isPlaying());
  EXPECT_EQ(console.count("Must not timeout waiting for player action to happen."), 0);
}

TEST_F(VideoPlayerTest, AReleasedPlayerNeverCallsBack) {
  auto player = makePlayer();
  simItem().becomeReady();
  int ticks = 0;
  player->addPeriodicTimeObserverForInterval(1.0, nullptr, [&](double) { ++ticks; }, nullptr);
  player->playUserInitiated(true);
  player->setVolume(0.2, true);
  world.env.runMainOnce();  // the time observer is in place; the commands wait
  channel->clear();
  std::weak_ptr<sim::Player> platformPlayer = world.platform.videoPlayers().players().at(0);
  player.reset();
  EXPECT_EQ(manager->deallocs, 1);
  EXPECT_EQ(SVAVideoPlayer::loadedPlayerCount(), 0);
  world.env.runUntilIdle();
  EXPECT_TRUE(platformPlayer.expired());
  EXPECT_EQ(ticks, 0);
  EXPECT_TRUE(manager->will.empty());
  EXPECT_TRUE(channel->messages().empty());
  view->setAdVisible(true);  // notifications for a player that is gone
  kit::NotificationCenter::defaultCenter().postNotificationName(kit::kApplicationDidBecomeActiveNotification);
  world.env.runUntilIdle();
}

TEST_F(VideoPlayerTest, HiddenPausedReadyPlayersGiveUpItemsAboveTheLimit) {
  SVASettings::sharedInstance().setValue("video_max_loaded_player", 1);
  auto a = makePlayer();
  auto b = makePlayer();
  simItem(0).becomeReady();
  ASSERT_TRUE(a->hasPostedCanPlayThrough());
  ASSERT_EQ(SVAVideoPlayer::loadedPlayerCount(), 2);
  view->setAdVisible(true);
  view->setAdVisible(false);
  world.env.runUntilIdle();
  // Only `a` is ready: it lets its item go; `b` has not played through and keeps its own.
  EXPECT_EQ(simPlayer(0).currentItem(), nullptr);
  EXPECT_NE(simPlayer(1).currentItem(), nullptr);
  EXPECT_EQ(SVAVideoPlayer::loadedPlayerCount(), 1);
  view->setAdVisible(true);
  world.env.runUntilIdle();
  EXPECT_EQ(simPlayer(0).currentItem().get(), &simItem(0));
  EXPECT_EQ(SVAVideoPlayer::loadedPlayerCount(), 2);

  // At the limit nothing is given up.
  b.reset();
  view->setAdVisible(false);
  world.env.runUntilIdle();
  EXPECT_NE(simPlayer(0).currentItem(), nullptr);
}

TEST_F(VideoPlayerTest, AMovingPlayerKeepsItsItemWhenHidden) {
  SVASettings::sharedInstance().setValue("video_max_loaded_player", 0);
  auto player = makePlayer();
  simItem().becomeReady();
  view->setAdVisible(true);
  player->playUserInitiated(true);
  world.env.runUntilIdle();
  ASSERT_GT(simPlayer().rate(), 0.0f);
  view->setAdVisible(false);
  world.env.runUntilIdle();
  EXPECT_NE(simPlayer().currentItem(), nullptr);
  // Pausing a hidden player above the limit lets the item go.
  player->pauseUserInitiated(true);
  world.env.runUntilIdle();
  EXPECT_EQ(simPlayer().currentItem(), nullptr);
  EXPECT_EQ(SVAVideoPlayer::loadedPlayerCount(), 0);
  // Play brings it back.
  player->playUserInitiated(true);
  world.env.runUntilIdle();
  EXPECT_NE(simPlayer().currentItem(), nullptr);
  EXPECT_EQ(SVAVideoPlayer::loadedPlayerCount(), 1);
}

TEST_F(VideoPlayerTest, TheScriptHearsTheLifeOfTheVideo) {
  auto player = makePlayer();
  bool started = false;
  player->addPlaybackStartObserver([&] { started = true; });
  simItem().becomeReady();
  player->playUserInitiated(true);
  world.env.runUntilIdle();
  EXPECT_TRUE(started);
  simPlayer().tick(0.3);
  simPlayer().tick(0.0);
  player->pauseUserInitiated(true);
  world.env.runUntilIdle();
  player->playUserInitiated(true);
  world.env.runUntilIdle();
  simPlayer().tick(100.0);
  world.env.runUntilIdle();
  EXPECT_TRUE(player->hasPlaybackEnded());
  EXPECT_EQ(channel->videoEvents(), (std::vector<std::string>{"canplaythrough", "play", "timeupdate", "pause", "play",
                                                              "timeupdate", "pause", "ended"}));
  player->seekToTime(0.0);
  EXPECT_FALSE(player->hasPlaybackEnded());
}

TEST_F(VideoPlayerTest, ARateChangeBeforeCanPlayThroughSaysNothing) {
  SVASettings::sharedInstance().setValue("player_observe_item_status", false);
  auto player = makePlayer();
  simItem().becomeReady();
  player->playUserInitiated(true);
  world.env.runUntilIdle();
  ASSERT_GT(simPlayer().rate(), 0.0f);
  EXPECT_FALSE(player->hasPostedCanPlayThrough());
  EXPECT_TRUE(channel->videoEvents().empty());
}

TEST_F(VideoPlayerTest, AVideoThatCannotBeReadReachesTheScriptAsAnError) {
  world.platform.videoPlayers().setFailure("file:///ads/missing.mp4",
                                           {"SolvantaMediaError", -11, "The file does not exist.", "", "ENOENT"});
  auto player = makePlayer("file:///ads/missing.mp4");
  ASSERT_NE(player, nullptr);
  player->playUserInitiated(true);
  world.env.runUntilIdle();
  auto messages = channel->messages();
  auto it = std::find_if(messages.begin(), messages.end(), [](const auto& m) { return m.name == "onVideoEvent"; });
  ASSERT_NE(it, messages.end());
  EXPECT_EQ(it->arguments, (kit::Dictionary{{"event", "error"},
                                            {"what", "playerItem/2"},
                                            {"errorDomain", "SolvantaMediaError"},
                                            {"errorCode", -11},
                                            {"errorDescription", "The file does not exist."},
                                            {"errorFailureReason", ""},
                                            {"underlyingError", "ENOENT"},
                                            {"videoURL", "file:///ads/missing.mp4"}}));
  EXPECT_FALSE(player->hasPostedCanPlayThrough());
  EXPECT_EQ(simPlayer().rate(), 0.0f);

  // A player failure is posted with its status and sent too.
  std::vector<kit::Dictionary> statuses;
  kit::NotificationCenter::defaultCenter().addObserver(
      this, kSVAVideoPlayerStatusUpdateNotification, player->context().get(),
      [&](const kit::Notification& n) { statuses.push_back(n.userInfo); });
  simPlayer().failPlayer({"SolvantaMediaError", 3, "Decoder gone.", "No decoder.", ""});
  world.env.runUntilIdle();
  kit::NotificationCenter::defaultCenter().removeObserver(this);
  ASSERT_EQ(statuses.size(), 1u);
  EXPECT_EQ(statuses[0], (kit::Dictionary{{"status", 2}, {"error", "Decoder gone."}}));
  EXPECT_EQ(channel->messages().back().arguments.at("what"), kit::Value("player/2"));
}

TEST_F(VideoPlayerTest, AfterAStallPlaybackWaitsForTheLargerBuffer) {
  auto player = makePlayer("file:///ads/clip.mp4", {2.0, 4.0});
  simItem().becomeReady();
  player->playUserInitiated(true);
  world.env.runUntilIdle();
  ASSERT_EQ(simPlayer().playCount(), 1);
  simItem().stall();
  EXPECT_EQ(simPlayer().rate(), 0.0f);
  simItem().setBufferedAhead(1.5);
  EXPECT_EQ(simPlayer().playCount(), 1);
  simItem().setBufferedAhead(2.0);
  EXPECT_EQ(simPlayer().playCount(), 2);
  EXPECT_GT(simPlayer().rate(), 0.0f);
  // Moving again: buffer reports are ignored.
  simItem().setBufferedAhead(10.0);
  EXPECT_EQ(simPlayer().playCount(), 2);

  simItem().stall();
  simItem().setBufferedAhead(3.0);
  EXPECT_EQ(simPlayer().playCount(), 2);
  // A range that does not hold the playhead counts as nothing buffered.
  simItem().setLoadedTimeRanges({{50.0, 20.0}});
  EXPECT_EQ(simPlayer().playCount(), 2);
  simItem().setBufferedAhead(4.5);
  EXPECT_EQ(simPlayer().playCount(), 3);

  // A video stalled forever never starts, and a pause ends the wait.
  simItem().stall();
  player->pauseUserInitiated(true);
  world.env.runUntilIdle();
  simItem().setBufferedAhead(30.0);
  EXPECT_EQ(simPlayer().playCount(), 3);
  EXPECT_EQ(simPlayer().rate(), 0.0f);
}

TEST_F(VideoPlayerTest, MomentaryPausesNestAndLeavingTheAppPauses) {
  auto player = makePlayer();
  simItem().becomeReady();
  player->playUserInitiated(true);
  world.env.runUntilIdle();
  float inner = -1, outer = -1;
  player->momentarilyPauseAndExecuteBlock([&] {
    player->momentarilyPauseAndExecuteBlock([&] { inner = simPlayer().rate(); });
    outer = simPlayer().rate();
  });
  EXPECT_EQ(inner, 0.0f);
  EXPECT_EQ(outer, 0.0f);
  EXPECT_GT(simPlayer().rate(), 0.0f);

  kit::NotificationCenter::defaultCenter().postNotificationName(kit::kApplicationWillResignActiveNotification);
  world.env.runUntilIdle();
  EXPECT_EQ(simPlayer().rate(), 0.0f);
  EXPECT_TRUE(player->isPlaying());
  kit::NotificationCenter::defaultCenter().postNotificationName(kit::kApplicationDidBecomeActiveNotification);
  world.env.runUntilIdle();
  EXPECT_GT(simPlayer().rate(), 0.0f);
}

TEST_F(VideoPlayerTest, TimeObserversRunOnTheirQueueUntilRemoved) {
  auto player = makePlayer();
  simItem().becomeReady();
  auto queue = kit::makeSerialQueue("observer");
  std::vector<double> times;
  long token = -1;
  player->addPeriodicTimeObserverForInterval(1.0, queue.get(), [&](double t) { times.push_back(t); },
                                             [&](long t) { token = t; });
  player->playUserInitiated(true);
  world.env.runUntilIdle();
  ASSERT_GE(token, 0);
  simPlayer().tick(1.5);
  EXPECT_TRUE(times.empty());  // waits for its queue
  world.env.runUntilIdle();
  EXPECT_EQ(times, std::vector<double>{1.5});
  player->removeTimeObserver(token);
  simPlayer().tick(1.5);
  world.env.runUntilIdle();
  EXPECT_EQ(times.size(), 1u);
}

}  // namespace
}  // namespace adclient
