// The ads client's video player under a burst: 10,000 mixed commands from 4 threads, timed
// from the first command until the last wish is applied and no work is left, on the threaded
// runtime with the simulated platform's player. The reference, in the same run, applies each
// command on its own: 10,000 main-queue tasks from the same threads, no coalescing. Prints how
// many flushes applied the burst (medians of the repetitions).
//
// Then the desktop player (Qt Multimedia, offscreen) on the house ads' video creative: the
// time from `play` until its first picture reaches the player's video view, each round with a
// fresh player and item. The reference, in the same run, decodes the clip's first frame
// straight from the file with FFmpeg, as the thumbnails do.
//
//   cmake --preset release && cmake --build --preset release --target player_bench
//   build/release/bench/player_bench
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QThread>

#include "adclient/SVAAudioVideoManager.h"
#include "adclient/SVAVideoPlayer.h"
#include "desktop/media/MediaDecoding.h"
#include "desktop/threaded/ThreadedEnvironment.h"
#include "desktop/video/QtVideoPlayers.h"
#include "sim/Platform.h"

namespace {

constexpr int kThreads = 4, kCommands = 10000;
constexpr double kTimeout = 120.0;

std::vector<double> gBurstMs, gReferenceMs, gFlushes, gFirstFrameMs, gDecodeFirstFrameMs;

const char* kHouseVideo = SOLVANTA_ASSETS_DIR "/ads/video-interstitial.mp4";

double median(std::vector<double> v) {
  if (v.empty()) return 0.0;
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

// One command of thread `t`, step `i`: play, pause, mute or a volume.
template <class Apply>
void sendBurst(Apply apply) {
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kCommands / kThreads; ++i) apply((t + i) % 4, ((t * 31 + i) % 11) / 10.0);
    });
  }
  for (auto& th : threads) th.join();
}

void BM_CoalescedBurst(benchmark::State& state) {
  for (auto _ : state) {
    desktop::ThreadedEnvironment env;
    auto& loop = *env.standaloneLoop();
    sim::Platform platform;
    auto view = std::make_shared<adclient::SVAWebAdView>(std::make_shared<sim::AdScriptChannel>());
    auto player = adclient::SVAVideoPlayer::make(view, adclient::SVAPlayerItemProvider::withURL("file:///ads/clip.mp4"),
                                                 view.get(), {}, nullptr);
    loop.runUntil([&] { return env.isBackgroundIdle(); }, kTimeout);
    const auto start = std::chrono::steady_clock::now();
    std::atomic<bool> sent{false};
    std::thread sender([&] {
      sendBurst([&](int kind, double volume) {
        switch (kind) {
          case 0: player->playUserInitiated(false); break;
          case 1: player->pauseUserInitiated(false); break;
          case 2: player->setMuted(volume > 0.5, false); break;
          default: player->setVolume(volume, false); break;
        }
      });
      sent = true;
    });
    // Applied: every command sent, no flush queued, and the last action's completion has run.
    loop.runUntil([&] { return sent.load() && env.isBackgroundIdle() && player->actionSemaphoreValue() == 1; },
                  kTimeout);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    sender.join();
    gBurstMs.push_back(ms);
    gFlushes.push_back(static_cast<double>(player->appliedFlushCount()));
    state.SetIterationTime(ms / 1000.0);
    player.reset();
    loop.runUntil([&] { return env.isBackgroundIdle(); }, kTimeout);
  }
}
BENCHMARK(BM_CoalescedBurst)->Iterations(7)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_ReferenceOneTaskPerCommand(benchmark::State& state) {
  for (auto _ : state) {
    desktop::ThreadedEnvironment env;
    auto& loop = *env.standaloneLoop();
    sim::Platform platform;
    auto simPlayer = platform.videoPlayers().makePlayer();
    std::atomic<int> applied{0};
    const auto start = std::chrono::steady_clock::now();
    std::thread sender([&] {
      sendBurst([&](int kind, double volume) {
        kit::mainQueue().async([&, kind, volume] {
          switch (kind) {
            case 0: simPlayer->play(); break;
            case 1: simPlayer->pause(); break;
            case 2: simPlayer->setMuted(volume > 0.5); break;
            default: simPlayer->setVolume(static_cast<float>(volume)); break;
          }
          ++applied;
        });
      });
    });
    loop.runUntil([&] { return applied.load() == kCommands; }, kTimeout);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    sender.join();
    gReferenceMs.push_back(ms);
    state.SetIterationTime(ms / 1000.0);
  }
}
BENCHMARK(BM_ReferenceOneTaskPerCommand)->Iterations(7)->UseManualTime()->Unit(benchmark::kMillisecond);

struct FirstFrame : platform::PlayerObserver {
  bool shown = false;
  bool failed = false;
  std::shared_ptr<platform::PlayerItem> item;
  void playerDidRenderFirstFrame() override { shown = true; }
  void playerItemStatusDidChange() override { failed = item && item->status() == platform::PlayerStatus::Failed; }
};

void BM_PlayToFirstFrame(benchmark::State& state) {
  desktop::QtVideoPlayers players;
  for (auto _ : state) {
    auto observer = std::make_shared<FirstFrame>();
    auto view = std::make_shared<kit::ImageView>();
    view->setFrame(kit::makeRect(0, 0, 390, 585));
    auto player = players.makePlayer();
    observer->item = players.makePlayerItemWithURL(kHouseVideo);
    player->setObserver(observer);
    player->setVideoView(view);
    player->replaceCurrentItemWithPlayerItem(observer->item);
    QElapsedTimer clock;
    clock.start();
    player->play();
    while (!observer->shown && !observer->failed && clock.elapsed() < kTimeout * 1000) {
      QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
      if (!observer->shown) QThread::usleep(200);
    }
    const double ms = static_cast<double>(clock.nsecsElapsed()) / 1e6;
    if (!observer->shown || !view->image()) {
      state.SkipWithError("the house video showed no picture");
      break;
    }
    gFirstFrameMs.push_back(ms);
    state.SetIterationTime(ms / 1000.0);
    player.reset();
    // Let the released player's Qt objects go before the next round.
    for (int i = 0; i < 20; ++i) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
  }
}
BENCHMARK(BM_PlayToFirstFrame)->Iterations(10)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_ReferenceDecodeFirstFrame(benchmark::State& state) {
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    std::string error;
    auto image = desktop::decodeVideoFrame(kHouseVideo, 0.0, kit::Size{390, 585}, 0, &error);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    if (!image) {
      state.SkipWithError(error.c_str());
      break;
    }
    gDecodeFirstFrameMs.push_back(ms);
    state.SetIterationTime(ms / 1000.0);
  }
}
BENCHMARK(BM_ReferenceDecodeFirstFrame)->Iterations(10)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
  QGuiApplication qt(argc, argv);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::printf("\nfigure: burst_flushes %.0f\n", median(gFlushes));
  std::printf("figure: burst_10k_ms %.1f ms\n", median(gBurstMs));
  std::printf("figure: reference_one_task_per_command_10k_ms %.1f ms\n", median(gReferenceMs));
  std::printf("figure: play_to_first_frame_ms %.1f ms\n", median(gFirstFrameMs));
  std::printf("figure: reference_decode_first_frame_ms %.1f ms\n", median(gDecodeFirstFrameMs));
  return 0;
}
