// The video player on real threads: bursts of commands from many threads while the main
// thread loads, stalls, hides and shows the video. Run under ThreadSanitizer in CI.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>
#include <vector>

#include "adclient/SVAAudioVideoManager.h"
#include "adclient/SVASettings.h"
#include "adclient/SVAVideoPlayer.h"
#include "desktop/threaded/ThreadedEnvironment.h"
#include "kit/Console.h"
#include "sim/Platform.h"

namespace adclient {
namespace {

constexpr double kTimeout = 240.0;

// Counts actions that start while another is still in flight.
struct GateCheckingManager : SVAAudioVideoManager {
  std::atomic<bool> inFlight{false};
  std::atomic<int> overlaps{0}, actions{0};
  void playerWillChangeStateToPlaying(const SVAVideoPlayer* player, bool playing, bool muted, bool userInitiated,
                                      kit::Queue& queue, std::function<void()> completion) override {
    if (inFlight.exchange(true)) ++overlaps;
    ++actions;
    SVAAudioVideoManager::playerWillChangeStateToPlaying(player, playing, muted, userInitiated, queue,
                                                         std::move(completion));
  }
  void playerDidChangeStateToPlaying(const SVAVideoPlayer* player, bool playing, bool muted,
                                     bool userInitiated) override {
    SVAAudioVideoManager::playerDidChangeStateToPlaying(player, playing, muted, userInitiated);
    inFlight = false;
  }
};

TEST(VideoPlayerStressTest, EightThreadsOfMixedCommandsWhileTheVideoLoadsStallsAndUnloads) {
  desktop::ThreadedEnvironment env;  // the default pool
  auto& loop = *env.standaloneLoop();
  sim::Platform platform;
  kit::ConsoleCapture console;
  SVASettings::sharedInstance().setValue("player_action_timeout_ms", kTimeout * 1000.0);
  SVASettings::sharedInstance().setValue("video_max_loaded_player", 0);
  auto manager = std::make_shared<GateCheckingManager>();
  SVAMobileAds::sharedInstance().setAudioVideoManager(manager);
  auto channel = std::make_shared<sim::AdScriptChannel>();
  auto view = std::make_shared<SVAWebAdView>(channel);

  std::shared_ptr<SVAVideoPlayer> player;
  std::shared_ptr<kit::Timer> script;
  std::atomic<bool> ready{false};
  kit::mainQueue().async([&] {
    player = SVAVideoPlayer::make(view, SVAPlayerItemProvider::withURL("file:///ads/clip.mp4"), view.get(), {},
                                  SVAEventContext::rootContext("ad"));
    ready = true;
  });
  ASSERT_TRUE(loop.runUntil([&] { return ready.load(); }, kTimeout));
  ASSERT_NE(player, nullptr);

  // The main thread's side: the item loads, stalls, rebuffers; the ad hides and shows, so a
  // paused ready player gives up its item and takes it back.
  int step = 0;
  script = kit::scheduledTimer(0.001, true, [&](kit::Timer&) {
    auto items = platform.videoPlayers().items();
    auto& item = *items.at(0);
    auto& simPlayer = *platform.videoPlayers().players().at(0);
    switch (step++ % 6) {
      case 0: item.becomeReady(); break;
      case 1: simPlayer.tick(0.3); break;
      case 2: item.stall(); break;
      case 3: item.setBufferedAhead(step % 4 ? 1.0 : 6.0); break;
      case 4: view->setAdVisible(false); break;
      case 5: view->setAdVisible(true); break;
    }
  });

  constexpr int kThreads = 8, kCommands = 100000;
  std::atomic<int> sent{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937 rng(static_cast<unsigned>(t) * 7919u + 1u);
      for (int i = 0; i < kCommands / kThreads; ++i) {
        switch (rng() % 4) {
          case 0: player->playUserInitiated(rng() % 2); break;
          case 1: player->pauseUserInitiated(rng() % 2); break;
          case 2: player->setMuted(rng() % 2, false); break;
          case 3: player->setVolume((rng() % 11) / 10.0, false); break;
        }
        ++sent;
      }
    });
  }
  ASSERT_TRUE(loop.runUntil([&] { return sent.load() == kCommands; }, kTimeout));
  for (auto& th : threads) th.join();

  // The last wishes, after every other command.
  player->playUserInitiated(false);
  player->setMuted(true, true);
  player->setVolume(0.25, true);
  player->pauseUserInitiated(true);
  ASSERT_TRUE(loop.runUntil([&] { return env.isBackgroundIdle() && !manager->inFlight.load(); }, kTimeout));
  script->invalidate();

  std::atomic<bool> checked{false};
  kit::mainQueue().async([&] {
    auto& simPlayer = *platform.videoPlayers().players().at(0);
    EXPECT_FALSE(player->isPlaying());
    EXPECT_FALSE(simPlayer.wantsToPlay());
    EXPECT_TRUE(simPlayer.isMuted());
    EXPECT_FLOAT_EQ(simPlayer.volume(), 0.25f);
    player.reset();
    checked = true;
  });
  ASSERT_TRUE(loop.runUntil([&] { return checked.load() && env.isBackgroundIdle(); }, kTimeout));

  EXPECT_EQ(manager->overlaps.load(), 0);
  EXPECT_EQ(console.count("Must not timeout waiting for player action to happen."), 0);
  // Bursts coalesce: far fewer actions than commands, and at least the last one.
  EXPECT_GT(manager->actions.load(), 0);
  EXPECT_LT(manager->actions.load(), kCommands);
  EXPECT_EQ(SVAVideoPlayer::loadedPlayerCount(), 0);
}

// A flush waits for the action before it without holding a thread, so a single worker carries
// every queue an action goes through (the wish, the flush, the application) with no timeout.
TEST(VideoPlayerStressTest, OneWorkerCarriesEveryActionWithoutATimeout) {
  desktop::ThreadedEnvironment env{nullptr, 1};
  auto& loop = *env.standaloneLoop();
  sim::Platform platform;
  kit::ConsoleCapture console;
  SVASettings::sharedInstance().setValue("player_action_timeout_ms", kTimeout * 1000.0);
  auto manager = std::make_shared<GateCheckingManager>();
  SVAMobileAds::sharedInstance().setAudioVideoManager(manager);
  auto channel = std::make_shared<sim::AdScriptChannel>();
  auto view = std::make_shared<SVAWebAdView>(channel);

  std::shared_ptr<SVAVideoPlayer> player;
  std::atomic<bool> ready{false};
  kit::mainQueue().async([&] {
    player = SVAVideoPlayer::make(view, SVAPlayerItemProvider::withURL("file:///ads/clip.mp4"), view.get(), {},
                                  SVAEventContext::rootContext("ad"));
    ready = true;
  });
  ASSERT_TRUE(loop.runUntil([&] { return ready.load(); }, 10.0));
  ASSERT_NE(player, nullptr);

  // Commands in small bursts, so that many arrive while an action is in flight.
  std::atomic<bool> sent{false};
  std::thread sender([&] {
    for (int i = 0; i < 2000; ++i) {
      if (i % 2) player->pauseUserInitiated(false);
      else player->playUserInitiated(false);
      if (i % 20 == 0) std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    player->setVolume(0.5, true);
    player->playUserInitiated(true);
    sent = true;
  });
  // Far less than the action timeout: a flush that held the only worker would wait for it.
  // The predicate runs on the loop's thread, the main one.
  auto& simPlayer = *platform.videoPlayers().players().at(0);
  const bool settled = loop.runUntil(
      [&] {
        return sent.load() && env.isBackgroundIdle() && !manager->inFlight.load() && simPlayer.volume() == 0.5f &&
               simPlayer.wantsToPlay();
      },
      60.0);
  sender.join();
  ASSERT_TRUE(settled);

  std::atomic<bool> checked{false};
  kit::mainQueue().async([&] {
    EXPECT_TRUE(player->isPlaying());
    player.reset();
    checked = true;
  });
  ASSERT_TRUE(loop.runUntil([&] { return checked.load() && env.isBackgroundIdle(); }, 10.0));
  EXPECT_EQ(manager->overlaps.load(), 0);
  EXPECT_GT(manager->actions.load(), 1);
  EXPECT_EQ(console.count("Must not timeout waiting for player action to happen."), 0);
}

}  // namespace
}  // namespace adclient
