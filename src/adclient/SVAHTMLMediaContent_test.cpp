// The monitors a media ad carries, on the simulated platform: the order they go on in, how the
// content's loading ends, and what each turns its notifications into.
#include "adclient/SVAHTMLMediaContent.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "adclient/SVAAudioVideoManager.h"
#include "adclient/SVANotifications.h"
#include "kit/Console.h"
#include "kit/NotificationCenter.h"
#include "sim/World.h"

namespace adclient {
namespace {

constexpr const char* kURL = "file:///ads/house.mp4";

// Captured lines that hold `text`.
int linesContaining(const kit::ConsoleCapture& console, const std::string& text) {
  int n = 0;
  for (const auto& line : console.lines()) n += line.find(text) != std::string::npos;
  return n;
}

struct MediaContentTest : ::testing::Test {
  sim::World world;
  std::shared_ptr<sim::AdScriptChannel> channel = std::make_shared<sim::AdScriptChannel>();
  std::shared_ptr<SVAWebAdView> view = std::make_shared<SVAWebAdView>(channel);
  std::shared_ptr<SVANativeAd> ad = std::make_shared<SVANativeAd>();
  std::shared_ptr<SVAEventContext> context = SVAEventContext::rootContext("ad");
  kit::ConsoleCapture console;
  std::vector<std::optional<platform::Error>> loads;

  std::unique_ptr<SVAHTMLMediaContent> content(bool video, SVAHTMLMediaContentConfiguration config = {}) {
    config.hasVideo = video;
    if (video && config.videoURL.empty()) config.videoURL = kURL;
    return std::make_unique<SVAHTMLMediaContent>(ad, view, context, config,
                                                 [this](std::optional<platform::Error> e) { loads.push_back(e); });
  }
  sim::PlayerItem& simItem() { return *world.platform.videoPlayers().items().at(0); }
  void post(const char* name, kit::Dictionary info = {}) {
    kit::NotificationCenter::defaultCenter().postNotificationName(name, context.get(), std::move(info));
    world.env.runUntilIdle();
  }
  std::vector<sim::AdScriptChannel::Message> messagesNamed(const std::string& name) const {
    std::vector<sim::AdScriptChannel::Message> found;
    for (auto& m : channel->messages())
      if (m.name == name) found.push_back(m);
    return found;
  }
};

TEST_F(MediaContentTest, AVideoGetsEveryMonitorInOrderAndLoadsWhenItCanPlayThrough) {
  auto media = content(true);
  media->attachMonitors();
  EXPECT_EQ(media->attachedMonitors(),
            (std::vector<std::string>{"SVANativeAdSignalMonitor", "SVAAdVideoController", "SVAVideoActionMonitor",
                                      "SVAAnimateViewActionMonitor", "SVASwappableView", "SVAClickProtection",
                                      "SVAExpandActionMonitor", "SVAApplicationVolumeMonitor",
                                      "SVAViewVisibilityMonitor", "SVAActiveViewMonitor", "SVAAdLoadMonitor"}));
  ASSERT_TRUE(media->videoPlayer());
  world.env.runUntilIdle();
  // The audio state goes to the script at once.
  auto audio = messagesNamed("onAudioStateChanged");
  ASSERT_EQ(audio.size(), 1u);
  EXPECT_EQ(audio[0].arguments.at("muted"), kit::Value(false));
  EXPECT_EQ(audio[0].arguments.at("volume"), kit::Value(1.0));
  EXPECT_TRUE(loads.empty()) << "not before the video can play through";

  simItem().becomeReady();
  world.env.runUntilIdle();
  ASSERT_EQ(loads.size(), 1u);
  EXPECT_FALSE(loads[0]);
  EXPECT_TRUE(media->loadFinished());
  // A later status change does not finish it again.
  simItem().fail({"media", 3, "gone", "", ""});
  world.env.runUntilIdle();
  EXPECT_EQ(loads.size(), 1u);
}

TEST_F(MediaContentTest, APictureHasNoVideoMonitorsAndLoadsOnTheNextTurn) {
  auto media = content(false);
  media->attachMonitors();
  EXPECT_EQ(media->attachedMonitors(),
            (std::vector<std::string>{"SVANativeAdSignalMonitor", "SVAAnimateViewActionMonitor", "SVASwappableView",
                                      "SVAClickProtection", "SVAExpandActionMonitor", "SVAApplicationVolumeMonitor",
                                      "SVAViewVisibilityMonitor", "SVAAdLoadMonitor"}));
  EXPECT_FALSE(media->videoPlayer());
  EXPECT_TRUE(loads.empty());
  world.env.runUntilIdle();
  ASSERT_EQ(loads.size(), 1u);
  EXPECT_FALSE(loads[0]);
}

TEST_F(MediaContentTest, LoadingFailsForAGoneAdAMissingVideoAndAVideoThatNeverLoads) {
  {
    auto media = content(true);
    ad.reset();
    media->attachMonitors();
    ASSERT_EQ(loads.size(), 1u);
    ASSERT_TRUE(loads[0]);
    EXPECT_EQ(loads[0]->code, 19);
    EXPECT_EQ(loads[0]->localizedDescription, "Native ad was deallocated while loading media content.");
    EXPECT_TRUE(media->attachedMonitors().empty());
  }
  ad = std::make_shared<SVANativeAd>();
  loads.clear();
  {
    auto media = std::make_unique<SVAHTMLMediaContent>(
        ad, view, context, SVAHTMLMediaContentConfiguration{true, "", {}, "", {}, false, 10.0},
        [this](std::optional<platform::Error> e) { loads.push_back(e); });
    media->attachMonitors();
    ASSERT_EQ(loads.size(), 1u);
    ASSERT_TRUE(loads[0]);
    EXPECT_EQ(loads[0]->code, 2);
  }
  loads.clear();
  {
    world.platform.videoPlayers().setFailure("file:///ads/broken.mp4", {"media", 4, "does not decode", "", ""});
    SVAHTMLMediaContentConfiguration config;
    config.videoURL = "file:///ads/broken.mp4";
    config.loadTimeoutSeconds = 3.0;
    auto media = content(true, config);
    media->attachMonitors();
    world.env.runUntilIdle();
    EXPECT_TRUE(loads.empty());
    // The script hears of the failure; the load ends at its timeout.
    auto events = channel->videoEvents();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(std::count(events.begin(), events.end(), "error"), static_cast<long>(events.size()));
    world.env.advance(3.0);
    ASSERT_EQ(loads.size(), 1u);
    ASSERT_TRUE(loads[0]);
    EXPECT_EQ(loads[0]->localizedDescription, "The video did not load in time.");
  }
}

TEST_F(MediaContentTest, TheFirstTimeTheAdIsSeenGivesOneImpressionAndTheVideoFollowsVisibility) {
  auto media = content(true);
  media->attachMonitors();
  world.env.runUntilIdle();
  simItem().becomeReady();
  world.env.runUntilIdle();
  EXPECT_TRUE(context->reports().empty());

  view->setAdVisible(true);
  world.env.runUntilIdle();
  EXPECT_TRUE(media->viewVisibilityMonitor()->visible());
  view->setAdVisible(false);
  world.env.runUntilIdle();
  EXPECT_FALSE(media->viewVisibilityMonitor()->visible());
  view->setAdVisible(true);
  world.env.runUntilIdle();

  auto reports = context->reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].kind, "impression");
  EXPECT_EQ(reports[0].parameters.at("ad_format"), kit::Value("media_content"));
  EXPECT_EQ(reports[0].parameters.at("html_media_content"), kit::Value(std::int64_t{1}));
  EXPECT_EQ(reports[0].parameters.at("active_view"), kit::Value(true));
  EXPECT_EQ(linesContaining(console, "Ad report: impression ad "), 1);
}

TEST_F(MediaContentTest, TheScriptsActionsReachThePlayerTheViewAndTheExpansion) {
  SVAHTMLMediaContentConfiguration config;
  config.appStoreParameters = {{"id", "solvanta"}};
  config.isAnalyticsLoggingEnabled = true;
  auto media = content(true, config);
  media->attachMonitors();
  world.env.runUntilIdle();
  simItem().becomeReady();
  world.env.runUntilIdle();
  auto player = media->videoPlayer();

  post(kSVAVideoActionNotification, {{"action", "play"}, {"user_initiated", true}});
  EXPECT_TRUE(player->isPlaying());
  post(kSVAVideoActionNotification, {{"action", "volume"}, {"volume", 0.25}});
  EXPECT_FLOAT_EQ(player->player().volume(), 0.25f);
  post(kSVAVideoActionNotification, {{"action", "mute"}});
  EXPECT_TRUE(player->player().isMuted());
  post(kSVAVideoActionNotification, {{"action", "rewind"}});
  post(kSVAVideoActionNotification, {{"action", "pause"}});
  EXPECT_FALSE(player->isPlaying());

  post(kSVAAnimateActionNotification, {{"alpha", 2.0}, {"hidden", true}});
  EXPECT_EQ(view->alpha(), 1.0);
  EXPECT_TRUE(view->isHidden());
  post(kSVAAnimateActionNotification, {{"alpha", 0.5}, {"hidden", false}});
  EXPECT_EQ(view->alpha(), 0.5);
  EXPECT_FALSE(view->isHidden());

  int expansions = 0;
  kit::NotificationCenter::defaultCenter().addObserver(this, kSVAExpandNotification, context.get(),
                                                       [&](const kit::Notification& n) {
                                                         ++expansions;
                                                         EXPECT_EQ(n.userInfo.at("app_store_parameters"),
                                                                   kit::Value(kit::Dictionary{{"id", "solvanta"}}));
                                                       });
  post(kSVAExpandActionNotification);
  EXPECT_EQ(expansions, 1);
  EXPECT_EQ(console.count("Ad expanded"), 1);
  kit::NotificationCenter::defaultCenter().removeObserver(this);

  ad->headline = "House";
  post(kSVASignalsActionNotification);
  auto signals = messagesNamed("onNativeAdSignals");
  ASSERT_EQ(signals.size(), 1u);
  EXPECT_EQ(signals[0].arguments, ad->dictionaryRepresentation());
}

TEST_F(MediaContentTest, TheApplicationsVolumeIsToldAgainWhenItChanges) {
  auto media = content(false);
  media->attachMonitors();
  SVAMobileAds::sharedInstance().setApplicationVolume(1.7);
  SVAMobileAds::sharedInstance().setApplicationMuted(true);
  SVAMobileAds::sharedInstance().setApplicationVolume(std::nan(""));
  world.env.runUntilIdle();
  auto audio = messagesNamed("onAudioStateChanged");
  ASSERT_EQ(audio.size(), 3u);
  EXPECT_EQ(audio.back().arguments.at("muted"), kit::Value(true));
  EXPECT_EQ(audio.back().arguments.at("volume"), kit::Value(1.0));
  SVAMobileAds::sharedInstance().setApplicationMuted(false);
}

TEST_F(MediaContentTest, ClickProtectionRefusesTapsBeforeAndJustAfterTheAdAppears) {
  SVAHTMLMediaContentConfiguration config;
  config.safeBrowsing = {{"protection_enabled", true}};
  config.debugDialogString = "[debug]";
  auto media = content(false, config);
  media->attachMonitors();
  auto& swappable = *media->swappableView();
  int clicks = 0;
  kit::NotificationCenter::defaultCenter().addObserver(this, kSVAContentClickNotification, &swappable,
                                                       [&](const kit::Notification&) { ++clicks; });
  EXPECT_FALSE(swappable.tap());
  swappable.clickProtection()->contentDidAppear(kit::uptime());
  world.env.advance(0.5);
  EXPECT_FALSE(swappable.tap());
  world.env.advance(0.5);
  EXPECT_TRUE(swappable.tap());
  EXPECT_EQ(clicks, 1);
  EXPECT_EQ(linesContaining(console, "Click protection: a tap on an ad not yet shown was refused. [debug]"), 1);
  EXPECT_EQ(linesContaining(console, "Click protection: a tap too soon after the ad appeared was refused. [debug]"), 1);
  kit::NotificationCenter::defaultCenter().removeObserver(this);

  SVAClickProtection off({{"protection_enabled", false}}, "");
  EXPECT_TRUE(off.shouldAllowClickAt(0.0));
  // The content swaps without the monitors noticing.
  auto other = std::make_shared<kit::View>();
  swappable.swapContent(other);
  EXPECT_EQ(swappable.content(), other);
  EXPECT_EQ(view->superview(), nullptr);
}

}  // namespace
}  // namespace adclient
