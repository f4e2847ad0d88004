#include "measurement/events/APMMeasurement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cmath>
#include <limits>

#include "measurement/events/APMEventsTestSupport.h"
#include "platform/Platform.h"

namespace {

using ::testing::ElementsAre;

APMValue Int(std::int64_t v) { return APMValue::fromInt64(v); }
APMValue Str(const char* v) { return APMValue::fromString(v); }

TEST(APMFingerprintTest, LowSixtyFourBitsOfMD5AsSignedInteger) {
  EXPECT_EQ(apm_64LSBMD5({}), -1621285313438006658LL);
  EXPECT_EQ(apm_64LSBMD5({'a', 'b', 'c'}), -2984127896297046158LL);
}

TEST(APMEventTest, FlagsLiveInParametersAndOriginIsAlwaysThere) {
  auto e = APMEvent::create("app", "purchase", 10, 0, {{"value", Int(3)}});
  ASSERT_TRUE(e);
  EXPECT_EQ(*e->parameter("_o"), Str("app"));
  e->setConversion(true);
  e->setRealtime(true);
  EXPECT_EQ(*e->parameter("_c"), Int(1));
  EXPECT_EQ(*e->parameter("_r"), Int(1));
  e->setRealtime(false);
  EXPECT_EQ(e->parameter("_r"), nullptr);
  EXPECT_FALSE(APMEvent::create("", "x", 1, 0, {}));
  EXPECT_FALSE(APMEvent::create("app", "", 1, 0, {}));
}

TEST(APMEventTest, ProtoRoundTripKeepsArraysAndPreviousTime) {
  APMMonitorCapture monitor;
  auto e = APMEvent::create("app", "purchase", 20.5, 30,
                            {{"items", APMValue::fromArray({{{"item_id", Str("a")}},
                                                            {{"price", APMValue::fromDouble(2.5)}}})},
                             {"value", APMValue::fromDouble(9.99)}});
  ASSERT_TRUE(e);
  EXPECT_TRUE(monitor.contains("Event created with previous timestamp after current timestamp"));
  auto proto = e->protoEvent();
  EXPECT_EQ(proto->timestamp_millis, 20500);
  EXPECT_EQ(proto->previous_timestamp_millis, 30000);
  auto back = APMEvent::fromProto(*proto);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->parameters(), e->parameters());
  EXPECT_EQ(back->origin(), "app");
  EXPECT_EQ(back->previousTimestamp(), 30);
}

// raw_events keeps the event written straight from APMEvent; it must be the bytes the
// message serialiser makes of protoEvent() without its name, for every kind of value.
TEST(APMEventTest, DirectEncodingMatchesTheSerialisedMessage) {
  std::string embeddedNul("ab", 3);
  std::vector<std::optional<APMEvent>> events{
      APMEvent::create("app", "plain", 1735689600.123, 0,
                       {{"media_type", Str("photos")}, {"sections", Int(7)},
                        {"seconds", APMValue::fromDouble(1.5)}}),
      APMEvent::create("auto", "_e", -12.5, 3,
                       {{"empty", Str("")}, {"negative", Int(-1)},
                        {"nul", APMValue::fromString(embeddedNul)},
                        {"inf", APMValue::fromDouble(-INFINITY)},
                        {"big", Int(std::numeric_limits<std::int64_t>::min())}}),
      APMEvent::create("app", "purchase", 20.5, 30,
                       {{"items", APMValue::fromArray({{{"item_id", Str("a")},
                                                         {"price", APMValue::fromDouble(2.5)}},
                                                        {},
                                                        {{"quantity", Int(300)}}})},
                        {"none", APMValue::fromArray({})}}),
      // Lengths of one, two and three bytes in front of nested messages.
      APMEvent::create("app", "long", 5, 0,
                       {{"a", APMValue::fromString(std::string(200, 'x'))},
                        {"b", APMValue::fromString(std::string(20000, 'y'))},
                        {"items", APMValue::fromArray(std::vector<APMParameters>(
                                      300, {{"item_name", Str("thing")}}))}}),
  };
  for (const auto& e : events) {
    ASSERT_TRUE(e);
    auto proto = e->protoEvent();
    APMPBClearString(&proto->name);
    auto expected = proto.protoBuffer();
    ASSERT_TRUE(expected);
    kit::Data direct;
    ASSERT_TRUE(e->encodeWithoutName(&direct, nullptr)) << e->name();
    EXPECT_EQ(direct, *expected) << e->name();
  }
}

using APMWritePathTest = APMEventsTest;

TEST_F(APMWritePathTest, AnEventBecomesOneRowWithASharedHeaderAndZeroAggregates) {
  log(event("level_up", {{"level", Int(3)}}));
  log(event("level_up", {{"level", Int(4)}}));
  auto rows = rawRows();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].event.name(), "level_up");
  EXPECT_EQ(*rows[1].event.parameter("level"), Int(4));
  EXPECT_EQ(rows[0].fingerprint, rows[1].fingerprint);
  EXPECT_EQ(count("SELECT count(1) FROM raw_events_metadata"), 1);
  EXPECT_EQ(count("SELECT lifetime_count + current_bundle_count FROM events WHERE name = 'level_up'"), 0);
  APMDailyCounts counts = dailyCounts();
  EXPECT_EQ(counts.allEventsCount, 2);
  EXPECT_EQ(counts.publicEventsCount, 2);
  EXPECT_TRUE(monitor_.contains("Event logged. Event name, event params"));
  // The measurement folders are private.
  struct stat st {};
  ASSERT_EQ(::stat((folder_.path() + "/Stuvop/Measurement").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
}

TEST_F(APMWritePathTest, AChangedUserPropertyMakesANewHeader) {
  log(event("a"));
  onWorker([&] { m().setUserAttributeOnWorkerQueue("fav", Str("red"), "app", env_.now()); });
  log(event("b"));
  onWorker([&] { m().setUserAttributeOnWorkerQueue("fav", std::nullopt, "app", env_.now()); });
  log(event("c"));
  auto rows = rawRows();
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_NE(rows[0].fingerprint, rows[1].fingerprint);
  EXPECT_EQ(rows[0].fingerprint, rows[2].fingerprint);
  EXPECT_EQ(count("SELECT count(1) FROM raw_events_metadata"), 2);
}

TEST_F(APMWritePathTest, SafelistDropsOthersAndMarksItsOwn) {
  m().settings().safelistedEvents = {"kept"};
  log(event("kept"));
  log(event("other"));
  auto rows = rawRows();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(*rows[0].event.parameter("sa_safelisted"), Int(1));
  const APMMonitorEntry* dropped =
      monitor_.find("Event dropped. Reason: not in allowlist. Event name, origin");
  ASSERT_TRUE(dropped);
  EXPECT_THAT(dropped->context, ElementsAre("other", "app"));
}

TEST_F(APMWritePathTest, BlocklistByEventConfigAndByGlobalFlags) {
  m().settings().eventConfigs["blocked_one"].blocked = true;
  m().settings().blocklistInternal = true;
  log(event("blocked_one"));
  log(event("_internal", {}, "auto"));
  log(event("fine"));
  EXPECT_EQ(rawEventNames(), std::vector<std::string>{"fine"});
  EXPECT_EQ(monitor_.count("Rejected event. Event name"), 2);
}

TEST_F(APMWritePathTest, DroppedEventsStayCountedButAllEventsTellsStoredOnes) {
  m().settings().maxEventsPerDay = 2;
  for (int i = 0; i < 4; ++i) log(event("e"));
  EXPECT_EQ(rawEventNames().size(), 2u);
  EXPECT_EQ(dailyCounts().allEventsCount, 4);  // the first check keeps them counted

  auto fresh = make();
  measurement_ = fresh;
  openDatabase();
  APMDailyCounts before = dailyCounts();
  m().settings().maxPublicEventsPerDay = before.publicEventsCount + 1;
  log(event("p1"));
  log(event("p2"));  // over the public limit: dropped, and an `_err` 16 follows
  auto names = rawEventNames();
  EXPECT_EQ(std::count(names.begin(), names.end(), "p2"), 0);
  auto errors = rawEventsNamed("_err");
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(*errors[0].parameter("_err"), Int(16));
  EXPECT_EQ(*errors[0].parameter("_ev"), Str("p2"));
  APMDailyCounts after = dailyCounts();
  EXPECT_EQ(after.publicEventsCount - before.publicEventsCount, 2);
  EXPECT_EQ(after.allEventsCount - before.allEventsCount, 2);  // p1 and the `_err`
  EXPECT_EQ(after.errorEventsCount - before.errorEventsCount, 1);
}

TEST_F(APMWritePathTest, LimitMessagesOnlyAtEveryThousandthExcessEvent) {
  openDatabase();
  m().settings().maxErrorEventsPerDay = 1000;
  APMEvent error = event("_err", {{"_err", Int(4)}}, "auto");
  onWorker([&] {
    APMDailyCounts counts;
    counts.allEventsCount = 5;
    counts.errorEventsCount = 1000;  // the first event over the limit
    EXPECT_FALSE(m().shouldProcessEvent(error, counts, false));
    EXPECT_EQ(counts.errorEventsCount, 1001);
    EXPECT_EQ(counts.allEventsCount, 5);
    counts.errorEventsCount = 1999;  // the 1000th over
    EXPECT_FALSE(m().shouldProcessEvent(error, counts, false));
    EXPECT_FALSE(monitor_.contains("Too many error events logged. Error code, limit"));
    EXPECT_FALSE(m().shouldProcessEvent(error, counts, false));  // the 1001st over
  });
  const APMMonitorEntry* entry = monitor_.find("Too many error events logged. Error code, limit");
  ASSERT_TRUE(entry);
  EXPECT_THAT(entry->context, ElementsAre("4", "1000"));
}

TEST_F(APMWritePathTest, ANewDayStartsFromZero) {
  m().settings().maxEventsPerDay = 1;
  log(event("a"));
  log(event("b"));
  env_.advance(86400);
  log(event("c"));
  EXPECT_EQ(rawEventNames(), (std::vector<std::string>{"a", "c"}));
  EXPECT_EQ(dailyCounts().allEventsCount, 1);
}

TEST_F(APMWritePathTest, RealtimeCandidatesUpToTheDailyLimitAndDebugMode) {
  m().settings().maxRealtimeEventCountPerDay = 1;
  log(event("purchase", {{"value", Int(1)}, {"currency", Str("EUR")}}));  // a fixed conversion
  log(event("rt", {{"_r", Int(1)}}));                                    // over the limit
  log(event("_f", {{"_c", Int(1)}}, "auto"));                            // exempt
  auto rows = rawRows();
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_TRUE(rows[0].isRealtime);
  EXPECT_EQ(*rows[0].event.parameter("_c"), Int(1));
  EXPECT_FALSE(rows[1].isRealtime);
  EXPECT_EQ(rows[1].event.parameter("_r"), nullptr);
  EXPECT_TRUE(rows[2].isRealtime);
  EXPECT_TRUE(monitor_.contains(
      "Too many real-time events. Event is no longer real-time. Event name, parameters"));
  EXPECT_EQ(dailyCounts().realtimeCount, 1);

  m().settings().debugMode = true;
  log(event("anything"));
  auto debug = rawEventsNamed("anything");
  ASSERT_EQ(debug.size(), 1u);
  EXPECT_EQ(*debug[0].parameter("_dbg"), Int(1));
  EXPECT_EQ(*debug[0].parameter("_r"), Int(1));
}

TEST_F(APMWritePathTest, PublicNameCardinalityLimitSparesInternalNames) {
  m().settings().maxEventNameCardinality = 2;
  log(event("one"));
  log(event("two"));
  log(event("three"));
  log(event("one"));
  log(event("_internal", {}, "auto"));
  auto names = rawEventNames();
  EXPECT_EQ(std::count(names.begin(), names.end(), "three"), 0);
  EXPECT_EQ(std::count(names.begin(), names.end(), "one"), 2);
  EXPECT_EQ(std::count(names.begin(), names.end(), "_internal"), 1);
  auto errors = rawEventsNamed("_err");
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(*errors[0].parameter("_err"), Int(8));
  EXPECT_TRUE(monitor_.contains("Cannot set event. Reached limit on set events. Name"));
}

TEST_F(APMWritePathTest, HeaderFieldsAndConsentGates) {
  platform_.advertisingIdentity().set(std::string("AD-ID"), std::string("VENDOR-ID"), 3);
  openDatabase();
  auto bytesOf = [&](const std::string& consent) {
    m().settings().consentSignals = consent;
    APMPBMessage<APMPBMeasurementBundle> header;
    onWorker([&] { header = m().createRawEventMetadataWithUserAttributes({}); });
    return header;
  };
  auto allowed = bytesOf("");
  EXPECT_EQ(APMPBString(allowed->platform), "ios");
  EXPECT_EQ(APMPBString(allowed->app_id), "com.stuvop.solvanta");
  EXPECT_EQ(APMPBString(allowed->resettable_device_id), "AD-ID");
  EXPECT_EQ(allowed->vendor_device_id, nullptr);
  EXPECT_FALSE(allowed->limited_ad_tracking);
  EXPECT_EQ(allowed->tracking_authorization_status, 3u);
  EXPECT_EQ(APMPBString(allowed->os_version), "17.0");
  EXPECT_EQ(APMPBString(allowed->user_language), "en-us");
  EXPECT_EQ(APMPBString(allowed->app_instance_id).size(), 32u);
  auto adsDenied = bytesOf("G101");
  EXPECT_EQ(adsDenied->resettable_device_id, nullptr);
  EXPECT_EQ(APMPBString(adsDenied->vendor_device_id), "VENDOR-ID");
  auto analyticsDenied = bytesOf("G110");
  EXPECT_EQ(analyticsDenied->resettable_device_id, nullptr);
  EXPECT_EQ(analyticsDenied->app_instance_id, nullptr);
  auto bothDenied = bytesOf("G100");
  EXPECT_EQ(bothDenied->resettable_device_id, nullptr);
  EXPECT_EQ(bothDenied->vendor_device_id, nullptr);
  EXPECT_EQ(bothDenied->app_instance_id, nullptr);
  // Without an advertising identity (the desktop) the vendor identifier stands in.
  platform_.advertisingIdentity().set(std::nullopt, std::string("VENDOR-ID"), std::nullopt);
  auto none = bytesOf("");
  EXPECT_EQ(APMPBString(none->vendor_device_id), "VENDOR-ID");
  EXPECT_TRUE(none->limited_ad_tracking);
  EXPECT_FALSE(none->has_tracking_authorization_status);
}

TEST_F(APMWritePathTest, LifetimeValuePerCurrencyKeepsTheNewestCurrencies) {
  m().settings().maxTrackedCurrencies = 2;
  auto ltv = [&](const char* name) {
    std::optional<APMValue> value;
    onWorker([&] {
      auto found = m().database()->queryUserAttributeWithName(name, nullptr);
      if (found && *found) value = (*found)->value;
    });
    return value;
  };
  log(event("purchase", {{"value", APMValue::fromDouble(9.99)}, {"currency", Str("EUR")}}));
  env_.advance(1);
  log(event("refund", {{"value", Int(2)}, {"currency", Str("EUR")}}));
  EXPECT_EQ(ltv("_ltv_EUR"), Int(7990000));
  env_.advance(1);
  log(event("purchase", {{"value", Int(1)}, {"currency", Str("USD")}}));
  env_.advance(1);
  log(event("purchase", {{"value", Int(1)}, {"currency", Str("GBP")}}));
  EXPECT_EQ(ltv("_ltv_EUR"), std::nullopt);  // the oldest of three
  EXPECT_EQ(ltv("_ltv_GBP"), Int(1000000));
  log(event("purchase", {{"value", Int(1)}, {"currency", Str("E1")}}));
  EXPECT_TRUE(monitor_.contains("Cannot record transaction with invalid currency code"));
  // The purchases themselves are all stored.
  EXPECT_EQ(rawEventsNamed("purchase").size(), 4u);
}

TEST_F(APMWritePathTest, StoredEventsAreCappedNewestFirst) {
  m().settings().maxEventsStored = 3;
  for (const char* name : {"e1", "e2", "e3", "e4", "e5"}) log(event(name));
  EXPECT_EQ(rawEventNames(), (std::vector<std::string>{"e3", "e4", "e5"}));
  EXPECT_EQ(monitor_.count("Data loss. Too many events stored on disk. Deleted count"), 2);
}

TEST_F(APMWritePathTest, ADatabaseLockedByAnotherProcessLosesTheEventAndRecovers) {
  log(event("before"));
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open((folder_.path() + "/Stuvop/Measurement/test.sql").c_str(), &other),
            SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  log(event("during"));
  ASSERT_EQ(sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(other);
  log(event("after"));
  EXPECT_EQ(rawEventNames(), (std::vector<std::string>{"before", "after"}));
  bool reported = false;
  for (const auto& entry : monitor_.entries()) {
    reported |= entry.message.rfind("Transaction failed.", 0) == 0;
  }
  EXPECT_TRUE(reported);
}

TEST_F(APMWritePathTest, TheClockGoingBackwardsStoresEventsAndStartsTheDayAgain) {
  log(event("today"));
  env_.setNow(env_.now() - 3 * 86400);
  log(event("earlier"));
  auto rows = rawRows();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_LT(rows[1].event.timestamp(), rows[0].event.timestamp());
  EXPECT_EQ(dailyCounts().allEventsCount, 1);  // the earlier day's own count
}

TEST_F(APMWritePathTest, ARepeatedSubscriptionIsDropped) {
  APMParameters subscription{{"_did", Str("sub-1")}, {"product_id", Str("pro")}};
  log(event("_iap", subscription, "auto"));
  log(event("_iap", subscription, "auto"));
  EXPECT_EQ(rawEventsNamed("_iap").size(), 1u);
  EXPECT_TRUE(monitor_.contains(
      "Event dropped. Reason: Subscription purchase is a duplicate. Product ID"));
}

using APMSessionTest = APMEventsTest;

TEST_F(APMSessionTest, BecomingActiveAfterTheTimeoutStartsASession) {
  openDatabase();
  m().sessionReporter().handleAppDidBecomeActive();
  env_.runUntilIdle();
  auto starts = rawEventsNamed("_s");
  ASSERT_EQ(starts.size(), 1u);
  EXPECT_EQ(*starts[0].parameter("_sid"), Int(static_cast<std::int64_t>(env_.now())));
  EXPECT_EQ(*starts[0].parameter("_sno"), Int(1));

  m().sessionReporter().handleAppWillResignActiveWithScreen({});
  env_.runUntilIdle();
  env_.advance(1800);
  m().sessionReporter().handleAppDidBecomeActive();
  env_.runUntilIdle();
  EXPECT_EQ(rawEventsNamed("_s").size(), 1u);  // |now - last| = 1800 is not over the timeout

  m().sessionReporter().handleAppWillResignActiveWithScreen({});
  env_.runUntilIdle();
  env_.advance(1801);
  m().sessionReporter().handleAppDidBecomeActive();
  env_.runUntilIdle();
  starts = rawEventsNamed("_s");
  ASSERT_EQ(starts.size(), 2u);
  EXPECT_EQ(*starts[1].parameter("_sno"), Int(2));
  onWorker([&] {
    auto sno = m().database()->queryUserAttributeWithName("_sno", nullptr);
    ASSERT_TRUE(sno && *sno);
    EXPECT_EQ((*sno)->value, Int(2));
  });
}

TEST_F(APMSessionTest, EngagementOnResignAndExtendSession) {
  openDatabase();
  m().sessionReporter().handleAppDidBecomeActive();
  env_.runUntilIdle();
  env_.advance(12.5);
  m().sessionReporter().handleAppWillResignActiveWithScreen({});
  env_.runUntilIdle();
  auto engagement = rawEventsNamed("_e");
  ASSERT_EQ(engagement.size(), 1u);
  EXPECT_EQ(*engagement[0].parameter("_et"), Int(12500));
  EXPECT_EQ(rawEventsNamed("_ab").size(), 1u);

  // In the background, only extend_session = 1 restarts an expired session.
  env_.advance(4000);
  log(event("bg", {{"extend_session", Int(2)}}));
  EXPECT_TRUE(monitor_.contains(
      "extend_session is a reserved parameter. To extend or start a session in the background, "
      "set an event parameter"));
  EXPECT_EQ(rawEventsNamed("_s").size(), 1u);
  log(event("bg", {{"extend_session", Int(1)}}));
  auto rows = rawRows();
  ASSERT_GE(rows.size(), 2u);
  EXPECT_EQ(rows[rows.size() - 2].event.name(), "bg");
  EXPECT_EQ(rows.back().event.name(), "_s");  // written after the event that caused it
  onWorker([&] { m().sessionReporter().setSessionTimeoutInterval(-5); });
  EXPECT_TRUE(
      monitor_.contains("Received negative timeout session duration. Setting to 0.0 instead."));
}

TEST_F(APMSessionTest, EngagementTimerAndTheHourCap) {
  openDatabase();
  m().settings().sessionEventUserEngagementInterval = 3600;
  m().sessionReporter().handleAppDidBecomeActive();
  env_.runUntilIdle();
  env_.advance(3600);
  auto engagement = rawEventsNamed("_e");
  ASSERT_EQ(engagement.size(), 1u);
  EXPECT_EQ(*engagement[0].parameter("_et"), Int(3600000));
  env_.advance(5000);  // one more firing at 7200, then 1400 s pending
  m().sessionReporter().handleAppWillResignActiveWithScreen({});
  env_.runUntilIdle();
  engagement = rawEventsNamed("_e");
  ASSERT_EQ(engagement.size(), 3u);
  EXPECT_EQ(*engagement[2].parameter("_et"), Int(1400000));
}

using APMStartTest = APMEventsTest;

TEST_F(APMStartTest, FirstOpenThenUpdatesOnLaterStarts) {
  env_.setNow(1735693200.5);  // 01:00:00.5
  m().start();
  env_.runUntilIdle();
  auto rows = rawRows();
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[0].event.name(), "_f");
  EXPECT_EQ(*rows[0].event.parameter("_pfo"), Int(0));
  EXPECT_EQ(rows[1].event.name(), "_s");
  EXPECT_EQ(rows[2].event.name(), "_e");
  EXPECT_EQ(*rows[2].event.parameter("_fr"), Int(1));
  EXPECT_EQ(platform_.keychain().stringForKey("com.stuvop.app.measurement", "_pfo", nullptr), "1");
  onWorker([&] {
    auto fot = m().database()->queryUserAttributeWithName("_fot", nullptr);
    ASSERT_TRUE(fot && *fot);
    EXPECT_EQ((*fot)->value, Int(1735696800000));  // rounded up to 02:00
  });

  // The same data, a new process, a new app version and system version.
  measurement_.reset();
  APMMeasurementOptions options;
  options.databasePath = folder_.path() + "/Stuvop/Measurement/test.sql";
  options.appInfo.appVersion = "0.2.0";
  measurement_ = std::make_shared<APMMeasurement>(options);
  platform::DeviceFactsSnapshot facts = platform_.deviceFacts().facts();
  facts.osVersion = "18.1";
  platform_.deviceFacts().setFacts(facts);
  m().start();
  env_.runUntilIdle();
  EXPECT_TRUE(rawEventsNamed("_f").size() == 1u);
  auto update = rawEventsNamed("_au");
  ASSERT_EQ(update.size(), 1u);
  EXPECT_EQ(*update[0].parameter("_pv"), Str("0.1.0"));
  auto os = rawEventsNamed("_ou");
  ASSERT_EQ(os.size(), 1u);
  EXPECT_EQ(*os[0].parameter("_po"), Str("17.0"));
}

TEST_F(APMStartTest, AnUnopenableDatabaseRecordsNothingAndSaysSo) {
  APMMeasurementOptions options;
  options.databasePath = "/proc/no/such/place.sql";
  measurement_ = std::make_shared<APMMeasurement>(options);
  m().start();
  env_.runUntilIdle();
  log(event("e"));
  EXPECT_TRUE(monitor_.contains("Failed to initialize database"));
  EXPECT_EQ(m().database(), nullptr);
}

}  // namespace
