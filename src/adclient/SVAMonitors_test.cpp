// The click and impression monitor with its two-tap confirmation, the visibility monitor, and
// the observer collection under them.
#include "adclient/SVAMonitors.h"

#include <gtest/gtest.h>

#include "adclient/SVANotifications.h"
#include "adclient/SVASettings.h"
#include "kit/NotificationCenter.h"
#include "sim/World.h"

namespace adclient {
namespace {

void post(const std::string& name, const void* object, kit::Dictionary info = {}) {
  kit::NotificationCenter::defaultCenter().postNotificationName(name, object, std::move(info));
}

struct ClickMonitorTest : ::testing::Test {
  sim::World world;
  std::shared_ptr<SVANativeAd> ad = std::make_shared<SVANativeAd>();
  std::shared_ptr<SVAEventContext> context = SVAEventContext::rootContext("native_ad");
  std::shared_ptr<kit::View> confirming = std::make_shared<kit::View>();
  std::shared_ptr<kit::View> other = std::make_shared<kit::View>();
  SVANativeAdClickAndImpressionMonitor monitor{ad, context, {"native_video", "unit-1"}, ad.get()};
  std::vector<std::string> adNotes;

  ClickMonitorTest() {
    ad->clickConfirmingView = confirming;
    ad->confirmationClickTimeInterval = 1.5;
    for (const char* name : {kSVAUnconfirmedClickCancelNotification, kSVAUnconfirmedClickReceiveNotification,
                             kSVAClickRecordNotification, kSVAImpressionRecordNotification}) {
      kit::NotificationCenter::defaultCenter().addObserver(
          this, name, ad.get(), [this](const kit::Notification& n) { adNotes.push_back(n.name); });
    }
  }
  ~ClickMonitorTest() override { kit::NotificationCenter::defaultCenter().removeObserver(this); }

  void tap(const std::shared_ptr<kit::View>& view, int clickType = 0, const char* asset = "headline") {
    post(kSVANativeAdUnapprovedClickNotification, ad.get(),
         {{"tapped_asset_name", asset},
          {"tapped_asset_view", SVAViewIdentity(view.get())},
          {"click_type", clickType},
          {"environment", kit::Dictionary{{"screen", "home"}}}});
    world.env.runUntilIdle();
  }
  void askForConfirmation() {
    post(kSVAUnconfirmedClickActionNotification, context.get(),
         {{"parameters", kit::Dictionary{{"timestamp", 1500.0}, {"asset_id", "a7"}, {"id", "click-9"}}}});
    world.env.runUntilIdle();
  }
  std::vector<std::string> kinds() const {
    std::vector<std::string> out;
    for (const auto& r : context->reports()) out.push_back(r.kind);
    return out;
  }
};

TEST_F(ClickMonitorTest, AnOrdinaryClickCarriesItsTenFacts) {
  ad->customClickGestureEligible = true;
  world.env.setNow(1700000000.25);
  tap(other);
  ASSERT_EQ(kinds(), std::vector<std::string>{"click"});
  const auto p = context->reports()[0].parameters;
  EXPECT_EQ(p.at("screen"), kit::Value("home"));
  EXPECT_EQ(p.at("ad"), kit::Value(kit::Dictionary{{"ad_type", "native_video"}, {"ad_unit_id", "unit-1"}}));
  EXPECT_EQ(p.at("click"), kit::Value(kit::Dictionary{{"template", "native_video"},
                                                      {"asset", "headline"},
                                                      {"sdk_version", "9.0.0"},
                                                      {"timestamp", 1700000000250LL},
                                                      {"custom_one_point_five_click_eligible", false},
                                                      {"view_aware_api_used", false},
                                                      {"custom_mute_requested", false},
                                                      {"custom_mute_enabled", false},
                                                      {"custom_click_gesture_eligible", true},
                                                      {"is_custom_click_gesture", false}}));
  // No asset name: dropped.
  post(kSVANativeAdUnapprovedClickNotification, ad.get(), {{"click_type", 1}});
  world.env.runUntilIdle();
  EXPECT_EQ(kinds().size(), 1u);
}

TEST_F(ClickMonitorTest, ATapOnTheConfirmingViewConfirmsInsteadOfClicking) {
  askForConfirmation();
  EXPECT_TRUE(ad->clickConfirmationRequired);
  EXPECT_DOUBLE_EQ(ad->unconfirmedClickTimestamp, 1.5);
  EXPECT_EQ(adNotes, std::vector<std::string>{kSVAUnconfirmedClickReceiveNotification});
  tap(confirming);
  ASSERT_EQ(kinds(), std::vector<std::string>{"one_point_five_click"});
  EXPECT_EQ(context->reports()[0].parameters, (kit::Dictionary{{"id", "click-9"}, {"time_interval", 1500.0}}));
  EXPECT_FALSE(ad->clickConfirmationRequired);
  // The confirmation is spent: a second tap there is an ordinary click.
  tap(confirming);
  EXPECT_EQ(kinds(), (std::vector<std::string>{"one_point_five_click", "click"}));
}

TEST_F(ClickMonitorTest, ATapElsewhereCancelsTheConfirmationAndClicks) {
  askForConfirmation();
  tap(other);
  EXPECT_EQ(kinds(), std::vector<std::string>{"click"});
  EXPECT_FALSE(ad->clickConfirmationRequired);
  EXPECT_EQ(adNotes.back(), kSVAUnconfirmedClickCancelNotification);
}

TEST_F(ClickMonitorTest, ACustomGestureNeverTakesTheConfirmationPath) {
  askForConfirmation();
  tap(confirming, 2);
  ASSERT_EQ(kinds(), std::vector<std::string>{"click"});
  EXPECT_TRUE(ad->clickConfirmationRequired);
  EXPECT_EQ(context->reports()[0].parameters.at("click").asDictionary()->at("is_custom_click_gesture"),
            kit::Value(true));
}

TEST_F(ClickMonitorTest, TwoTapsAtTheSameInstantConfirmOnce) {
  askForConfirmation();
  for (int i = 0; i < 2; ++i) {
    post(kSVANativeAdUnapprovedClickNotification, ad.get(),
         {{"tapped_asset_name", "headline"}, {"tapped_asset_view", SVAViewIdentity(confirming.get())}});
  }
  world.env.runUntilIdle();
  EXPECT_EQ(kinds(), (std::vector<std::string>{"one_point_five_click", "click"}));
}

TEST_F(ClickMonitorTest, AConfirmationWithNoIntervalHasNoTimeInterval) {
  post(kSVAUnconfirmedClickActionNotification, context.get(), {{"parameters", kit::Dictionary{}}});
  world.env.runUntilIdle();
  EXPECT_DOUBLE_EQ(ad->unconfirmedClickTimestamp, 0.0);
  post(kSVAAdConfirmationClickNotification, ad.get());
  world.env.runUntilIdle();
  ASSERT_EQ(kinds(), std::vector<std::string>{"one_point_five_click"});
  EXPECT_TRUE(context->reports()[0].parameters.empty());
  // Without a pending confirmation nothing is reported.
  post(kSVAAdConfirmationClickNotification, ad.get(), {{"time_interval", 2.0}});
  world.env.runUntilIdle();
  EXPECT_EQ(kinds().size(), 1u);
}

TEST_F(ClickMonitorTest, ImpressionsAndRecordedActions) {
  ad->headline = "Clean up";
  post(kSVAAdImpressionNotification, ad.get());
  post(kSVAAdImpressionNotification, ad.get(), {{"parameters", kit::Dictionary{{"slot", 3}}}});
  SVASettings::sharedInstance().setValue("native_view_signals_enabled", true);
  auto view = std::make_shared<kit::View>(kit::Rect{{0, 0}, {320, 50}});
  ad->adView = view;
  post(kSVAAdImpressionNotification, ad.get());
  post(kSVAClickRecordedActionNotification, context.get());
  post(kSVAImpressionRecordedActionNotification, context.get());
  world.env.runUntilIdle();
  auto reports = context->reports();
  ASSERT_EQ(reports.size(), 3u);
  EXPECT_EQ(reports[0].parameters.at("headline"), kit::Value("Clean up"));
  EXPECT_EQ(reports[1].parameters.count("headline"), 0u);
  EXPECT_EQ(reports[1].parameters.at("slot"), kit::Value(3));
  EXPECT_EQ(reports[2].parameters.at("view_signals"),
            kit::Value(kit::Dictionary{{"visible", true}, {"width", 320.0}, {"height", 50.0}}));
  EXPECT_EQ(adNotes, (std::vector<std::string>{kSVAClickRecordNotification, kSVAImpressionRecordNotification}));
}

TEST_F(ClickMonitorTest, NotificationsForAnAdThatIsGoneDoNothing) {
  askForConfirmation();
  post(kSVAAdImpressionNotification, ad.get());  // queued while the ad lives
  ad.reset();
  tap(confirming);
  post(kSVAClickRecordedActionNotification, context.get());
  askForConfirmation();
  world.env.runUntilIdle();
  EXPECT_TRUE(context->reports().empty());
  EXPECT_EQ(adNotes.size(), 1u);  // the receive of the first confirmation request
}

struct VisibilityMonitorTest : ::testing::Test {
  sim::World world;
  std::shared_ptr<sim::AdScriptChannel> channel = std::make_shared<sim::AdScriptChannel>();
  std::shared_ptr<SVAWebAdView> view = std::make_shared<SVAWebAdView>(channel);
  int presenter = 0;

  std::vector<std::string> reported() const {
    std::vector<std::string> out;
    for (const auto& m : channel->messages()) {
      EXPECT_EQ(m.name, "onAdVisibilityChanged");
      out.push_back(*m.arguments.at("visible").asString());
    }
    return out;
  }
};

TEST_F(VisibilityMonitorTest, FollowsTheVisibilitySourceAndRepeatsOnScriptLoad) {
  SVAViewVisibilityChangeMonitor monitor(view, view.get(), &presenter);
  view->setAdVisible(true);
  post(kSVAPresenterDismissNotification, &presenter);  // not listened to without the setting
  world.env.runUntilIdle();
  post(kSVAMRAIDLoadedActionNotification, view.get());
  view->setAdVisible(false);
  world.env.runUntilIdle();
  EXPECT_EQ(reported(), (std::vector<std::string>{"true", "true", "false"}));
}

TEST_F(VisibilityMonitorTest, FollowsThePresenterWhenSetTo) {
  SVASettings::sharedInstance().setValue("use_present_vis_report", true);
  auto monitor = std::make_unique<SVAViewVisibilityChangeMonitor>(view, view.get(), &presenter);
  view->setAdVisible(true);
  post(kSVAPresenterPresentNotification, &presenter);
  post(kSVAPresenterDismissNotification, &presenter);
  world.env.runUntilIdle();
  EXPECT_EQ(reported(), (std::vector<std::string>{"true", "false"}));
  // Without a presenter the setting falls back to the source; a monitor gone hears nothing.
  SVAViewVisibilityChangeMonitor fallback(view, view.get(), nullptr);
  post(kSVAPresenterPresentNotification, &presenter);
  monitor.reset();
  view->setAdVisible(true);
  world.env.runUntilIdle();
  EXPECT_EQ(reported(), (std::vector<std::string>{"true", "false", "true"}));
}

TEST(ObserverCollectionTest, DeliversOnItsQueueAndDropsWhatIsQueuedAfterRemoval) {
  sim::World world;
  int a = 0, b = 0, c = 0;
  int source = 0;
  {
    SVAObserverCollection observers;
    observers.addObserverForName("n", &source, &kit::mainQueue(), [&](const kit::Notification&) { ++a; });
    observers.addObserverForName("n", nullptr, nullptr, [&](const kit::Notification&) { ++b; });
    observers.addObserverForName("other", &source, nullptr, [&](const kit::Notification&) { ++c; });
    EXPECT_EQ(observers.count(), 3u);
    post("n", &source);
    EXPECT_EQ(a, 0);  // waits for the main queue
    EXPECT_EQ(b, 1);
    post("n", nullptr);  // not from the source: only the observer of everyone
    world.env.runUntilIdle();
    EXPECT_EQ(a, 1);
    EXPECT_EQ(b, 2);
    post("n", &source);  // queued, then the collection goes away
  }
  world.env.runUntilIdle();
  post("n", &source);
  EXPECT_EQ(a, 1);
  EXPECT_EQ(b, 3);
  EXPECT_EQ(c, 0);
  EXPECT_EQ(kit::NotificationCenter::defaultCenter().observerCount(), 0u);
}

}  // namespace
}  // namespace adclient
