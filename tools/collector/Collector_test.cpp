#include "collector/Collector.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <thread>

#include "collector/UploadClient.h"
#include "desktop/threaded/ThreadedEnvironment.h"
#include "kit/Singleton.h"
#include "measurement/runtime/APMPProgramBuilder.h"
#include "measurement/consent/APMConsentSettingsUtil.h"
#include "measurement/consent/APMLaunchContext.h"
#include "measurement/experiments/APMEManager.h"
#include "measurement/store/APMStoreTestSupport.h"
#include "sim/Platform.h"

namespace collector {
namespace {

constexpr const char* kConfigText = R"(
version: 5
stuvop_app_id: "com.stuvop.solvanta"
settings { key: "measurement.upload.max_events_per_day" value: "777" }
settings { key: "measurement.upload.max_bundles" value: "2" }
)";

// The "seq" parameter of every logged event line, with how often each came.
std::map<std::int64_t, int> sequenceCounts(const std::vector<std::string>& lines) {
  std::map<std::int64_t, int> counts;
  for (const std::string& line : lines) {
    auto json = nlohmann::json::parse(line);
    if (json["params"].contains("seq")) ++counts[json["params"]["seq"].get<std::int64_t>()];
  }
  return counts;
}

TEST(CollectorFaultTest, FaultTextsAreStatusesSlowAnswersAndDrops) {
  int count = 0;
  auto f = parseFault("503:3", &count);
  ASSERT_TRUE(f);
  EXPECT_EQ(f->kind, Fault::Kind::Status);
  EXPECT_EQ(f->status, 503);
  EXPECT_EQ(count, 3);
  f = parseFault("slow:2.5", &count);
  ASSERT_TRUE(f);
  EXPECT_EQ(f->kind, Fault::Kind::Slow);
  EXPECT_DOUBLE_EQ(f->seconds, 2.5);
  EXPECT_EQ(count, 1);
  f = parseFault("drop:2", &count);
  ASSERT_TRUE(f);
  EXPECT_EQ(f->kind, Fault::Kind::Drop);
  EXPECT_EQ(count, 2);
  for (const char* bad : {"", "abc", "99", "600", "503:0", "503:x", "slow", "slow:-1", "500:1:2"}) {
    EXPECT_FALSE(parseFault(bad, &count)) << bad;
  }
}

class CollectorTest : public ::testing::Test {
 protected:
  CollectorTest() { kit::resetSingletonsForTesting(); }

  void startCollector(CollectorOptions options = {}) {
    if (options.logPath.empty()) options.logPath = folder_.path() + "/events.jsonl";
    collector_ = std::make_unique<Collector>(options);
    std::string error;
    ASSERT_TRUE(collector_->start(&error)) << error;
  }
  std::string writeConfig(const std::string& text) {
    std::string path = folder_.path() + "/config.txt";
    std::ofstream(path) << text;
    return path;
  }
  std::unique_ptr<UploadClient> client(const std::string& name = "client") {
    return std::make_unique<UploadClient>(
        UploadClientOptions{folder_.path() + "/" + name, collector_->host(), {}});
  }

  desktop::ThreadedEnvironment env_;
  sim::Platform platform_;
  APMTemporaryFolder folder_;
  std::unique_ptr<Collector> collector_;
};

TEST_F(CollectorTest, TheConfigurationIsServedAppliedAndThenAnsweredNotModified) {
  CollectorOptions options;
  options.configPath = writeConfig(kConfigText);
  startCollector(options);
  auto c = client();
  c->log("first", {{"seq", APMValue::fromInt64(1)}});
  ASSERT_TRUE(c->drain(30));
  EXPECT_EQ(collector_->stats().configRequests, 1);
  c->measurement().scheduler().dispatchSyncOnWorkerQueueBlockID("test", [&] {
    EXPECT_EQ(c->measurement().remoteConfig().version(), 5);
    EXPECT_EQ(c->measurement().settings().maxEventsPerDay, 777);
    // Age the configuration: the next pass asks again, conditionally.
    ASSERT_TRUE(c->measurement().database()->updateRemoteConfigSuccessfulTimestamp(1, nullptr));
  });
  c->log("second", {{"seq", APMValue::fromInt64(2)}});
  ASSERT_TRUE(c->drain(30));
  EXPECT_EQ(collector_->stats().configRequests, 2);
  EXPECT_EQ(collector_->stats().notModified, 1);
  EXPECT_EQ(sequenceCounts(collector_->lines()), (std::map<std::int64_t, int>{{1, 1}, {2, 1}}));

  // A configuration that does not encode stops the collector from starting.
  CollectorOptions broken;
  broken.configPath = writeConfig("version: \"five\"");
  Collector bad(broken);
  std::string error;
  EXPECT_FALSE(bad.start(&error));
  EXPECT_NE(error.find("does not encode"), std::string::npos);
}

TEST_F(CollectorTest, EveryEventArrivesOnceAsOneJSONLine) {
  startCollector();
  auto c = client();
  for (int i = 0; i < 40; ++i) c->log("numbered", {{"seq", APMValue::fromInt64(i)}, {"kind", APMValue::fromString("x")}});
  ASSERT_TRUE(c->drain(30));
  auto counts = sequenceCounts(collector_->lines());
  ASSERT_EQ(counts.size(), 40u);
  for (auto& [seq, n] : counts) EXPECT_EQ(n, 1) << seq;
  std::ifstream log(folder_.path() + "/events.jsonl");
  std::string line;
  int logged = 0;
  while (std::getline(log, line)) {
    auto json = nlohmann::json::parse(line);
    if (json["name"] == "numbered") {
      ++logged;
      EXPECT_EQ(json["params"]["kind"], "x");
      EXPECT_EQ(json["app_id"], "com.stuvop.solvanta");
      EXPECT_FALSE(json["app_instance_id"].get<std::string>().empty());
    }
  }
  EXPECT_EQ(logged, 40);
  EXPECT_GT(collector_->stats().wireBytes, 0);
}

// The configuration carries an event-editing program: it renames a parameter of "screen"
// events and logs a copy of each; the collector receives the edited events.
TEST_F(CollectorTest, EventEditingProgramsFromTheConfigurationEditUploadedEvents) {
  auto event = [](const char* method, std::vector<APMPRuntimeValue> arguments) {
    return P::method(P::var("e"), method, std::move(arguments));
  };
  APMPRuntimeValue program = P::list({
      P::call("52", {P::str("register"), P::call("require", {P::str("internal.registerCallback")}),
                     P::str("logger"), P::call("require", {P::str("internal.eventLogger")})}),
      P::call("register",
              {P::num(1),
               P::function("", {"e"},
                           {P::call("22", {P::call("20", {event("getEventName", {}), P::str("screen")}),
                                           P::list({event("setParamValue", {P::str("screen_name"), event("getParamValue", {P::str("old_name")})}),
                                                    event("setParamValue", {P::str("old_name"), P::call("45")}),
                                                    P::method(P::var("logger"), "logEvent",
                                                              {P::str("screen_copy"), P::call("8", {P::str("seq"), event("getParamValue", {P::str("seq")})})})})})}),
               P::str("edit")}),
  });
  CollectorOptions options;
  options.configPath = writeConfig(std::string(kConfigText) +
                                   "settings { key: \"measurement.ees_feature_enabled\" value: \"1\" }\n" +
                                   P::programText(program));
  startCollector(options);
  auto c = client();
  // The first pass fetches the configuration; events after it are edited.
  c->log("first", {{"seq", APMValue::fromInt64(1)}});
  ASSERT_TRUE(c->drain(30));
  c->log("screen", {{"seq", APMValue::fromInt64(2)}, {"old_name", APMValue::fromString("home")}});
  c->log("tap", {{"seq", APMValue::fromInt64(3)}, {"old_name", APMValue::fromString("kept")}});
  ASSERT_TRUE(c->drain(30));
  std::map<std::string, nlohmann::json> byName;
  for (const std::string& line : collector_->lines()) {
    auto json = nlohmann::json::parse(line);
    byName[json["name"].get<std::string>()] = json;
  }
  ASSERT_TRUE(byName.count("screen"));
  EXPECT_EQ(byName["screen"]["params"]["screen_name"], "home");
  EXPECT_FALSE(byName["screen"]["params"].contains("old_name"));
  ASSERT_TRUE(byName.count("screen_copy"));
  EXPECT_EQ(byName["screen_copy"]["params"]["seq"], 2);
  ASSERT_TRUE(byName.count("tap"));
  EXPECT_EQ(byName["tap"]["params"]["old_name"], "kept");
  EXPECT_EQ(sequenceCounts(collector_->lines()), (std::map<std::int64_t, int>{{1, 1}, {2, 2}, {3, 1}}));
}

// The collector serves experiment snapshots: the client fetches them, activates its own at a
// quiet moment and reads its flags through the configuration; uploaded events then carry the
// experiment id.
TEST_F(CollectorTest, ExperimentSnapshotsAreFetchedActivatedAndReadAsSettings) {
  CollectorOptions options;
  options.experimentsPath = folder_.path() + "/experiments.txt";
  std::ofstream(options.experimentsPath) << R"(
snapshots {
  sdk_name: "app_measurement"
  experiments { experiment_id: 41 flags { name: "efficient_engagement_reporting_enabled" bool_value: true } }
}
snapshots { sdk_name: "someone_else" experiments { experiment_id: 42 flags { name: "x" int_value: 1 } } }
sdk_responses {
  sdk_name: "app_measurement" status: 2
  snapshot {
    sdk_name: "app_measurement"
    experiments { experiment_id: 43 flags { name: "persistent_config_in_application_support_enabled" int_value: 1 } }
  }
}
)";
  startCollector(options);
  auto c = client();
  auto manager = c->measurement().experimentManager();
  ASSERT_TRUE(manager);
  // Fetch now rather than ten seconds after the start.
  manager->taskManager().workerQueue().sync([&] { manager->taskManager().fetchExperimentsOnWorkerQueue(); });
  for (int i = 0; i < 1000 && manager->activatedSnapshotStatusOfSDKName("app_measurement") !=
                                 kAPMESnapshotStatusPending; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ASSERT_EQ(manager->activatedSnapshotStatusOfSDKName("app_measurement"), kAPMESnapshotStatusPending);
  EXPECT_EQ(collector_->stats().experimentRequests, 1);
  EXPECT_EQ(collector_->stats().snapshotsServed, 2);  // not the other SDK's
  auto settingsNow = [&] {
    std::pair<bool, bool> flags;
    c->measurement().scheduler().dispatchSyncOnWorkerQueueBlockID("test", [&] {
      APMRemoteConfig& config = c->measurement().remoteConfig();
      flags = {config.efficientEngagementReportingEnabled(),
               config.persistentConfigInApplicationSupportEnabled()};
    });
    return flags;
  };
  // The launched value applies at once; the pending snapshot waits for a quiet moment.
  EXPECT_EQ(settingsNow(), std::make_pair(false, true));
  c->uploadOnce(30);  // nothing bundled yet: a quiet moment
  EXPECT_EQ(manager->activatedSnapshotStatusOfSDKName("app_measurement"), kAPMESnapshotStatusActivated);
  EXPECT_EQ(settingsNow(), std::make_pair(true, true));
  EXPECT_EQ(manager->experimentIDs(), std::vector<std::int32_t>{41});

  c->log("after_activation", {});
  ASSERT_TRUE(c->drain(30));
  bool seen = false;
  for (const std::string& line : collector_->lines()) {
    auto json = nlohmann::json::parse(line);
    if (json["name"] != "after_activation") continue;
    seen = true;
    EXPECT_EQ(json["experiment_ids"], nlohmann::json::array({41}));
  }
  EXPECT_TRUE(seen);

  // A request that is no experiment request is refused.
  httplib::Client raw("127.0.0.1", collector_->port());
  auto answer = raw.Post("/sdk-exp", std::string("\xff\xff\xff"), "application/x-protobuf");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 400);
}

TEST_F(CollectorTest, AudiencesOfTheConfigurationComeBackEvaluated) {
  CollectorOptions options;
  options.configPath = writeConfig(R"(
version: 6
stuvop_app_id: "com.stuvop.solvanta"
audiences {
  audience_id: 31
  event_filters {
    filter_id: 1 event_name: "purchase"
    filters { param_name: "value" number_filter { comparison_type: 2 comparison_value: "100" } }
  }
  event_filters {
    filter_id: 2 event_name: "purchase"
    filters { param_name: "currency" string_filter { match_type: 6 expression_list: "EUR" expression_list: "USD" } }
  }
}
audiences { audience_id: 32 event_filters { filter_id: 1 event_name: "refund" } }
audiences { audience_id: 33 }
)");
  startCollector(options);
  auto c = client();
  // The first pass fetches the configuration; the audiences apply from then on.
  c->log("warm_up", {});
  ASSERT_TRUE(c->drain(30));
  c->log("purchase", {{"value", APMValue::fromInt64(250)}, {"currency", APMValue::fromString("GBP")}});
  ASSERT_TRUE(c->drain(30));
  std::optional<nlohmann::json> purchase;
  for (const std::string& line : collector_->lines()) {
    auto json = nlohmann::json::parse(line);
    if (json["name"] == "purchase") purchase = json;
  }
  ASSERT_TRUE(purchase);
  ASSERT_EQ((*purchase)["audiences"].size(), 1u) << purchase->dump();
  const auto& a = (*purchase)["audiences"][0];
  EXPECT_EQ(a["audience"], 31);
  EXPECT_EQ(a["evaluated"], nlohmann::json::array({1, 2}));
  EXPECT_EQ(a["true"], nlohmann::json::array({1}));
  // The audience without filters was refused; the one about refunds was stored, not met.
  c->measurement().scheduler().dispatchSyncOnWorkerQueueBlockID("test", [&] {
    auto ids = c->measurement().database()->queryAllAudienceIDs(nullptr);
    ASSERT_TRUE(ids);
    EXPECT_EQ(*ids, (std::vector<std::int64_t>{31, 32}));
  });
}

TEST_F(CollectorTest, EachConsentSourceReachesTheServer) {
  startCollector();
  auto c = client();
  auto signalOf = [&](const std::string& name) {
    c->log(name, {});
    EXPECT_TRUE(c->drain(30));
    std::string signal = "(none)";
    for (const std::string& line : collector_->lines()) {
      auto json = nlohmann::json::parse(line);
      if (json["name"] == name) signal = json["consent_signals"].get<std::string>();
    }
    return signal;
  };
  auto& consent = APMConsentSettingsUtil::sharedInstance();
  auto refresh = [&] {
    c->measurement().scheduler().dispatchSyncOnWorkerQueueBlockID(
        "test", [&] { c->measurement().refreshConsentOnWorkerQueue(); });
  };
  // Nothing set (100).
  EXPECT_EQ(signalOf("unset"), "G1--");
  // The application (30).
  ASSERT_TRUE(consent.setConsent({{"ad_storage", "granted"}, {"analytics_storage", "granted"}}).accepted);
  refresh();
  EXPECT_EQ(signalOf("app"), "G111");
  // Another party (10) wins over the application.
  ASSERT_TRUE(consent.setConsent({{"ad_storage", "denied"}}, kAPMConsentSettings3PKey).accepted);
  refresh();
  EXPECT_EQ(signalOf("third_party"), "G101");
  EXPECT_FALSE(consent.setConsent({{"ad_storage", "granted"}}).accepted);
  // Persisted settings after a restart (20 for the other party's).
  c.reset();
  kit::resetSingletonsForTesting();
  c = client();
  EXPECT_LE(APMConsentSettingsUtil::sharedInstance().consentSource(), kAPMConsentSourcePersisted3P);
  EXPECT_EQ(signalOf("restarted"), "G101");
  // Analytics denied: events still arrive, without the instance identifier.
  ASSERT_TRUE(APMConsentSettingsUtil::sharedInstance()
                  .setConsent({{"analytics_storage", "denied"}}, kAPMConsentSettings3PKey)
                  .accepted);
  c->measurement().scheduler().dispatchSyncOnWorkerQueueBlockID(
      "test", [&] { c->measurement().refreshConsentOnWorkerQueue(); });
  EXPECT_EQ(signalOf("denied"), "G100");
  for (const std::string& line : collector_->lines()) {
    auto json = nlohmann::json::parse(line);
    if (json["name"] == "denied") {
      EXPECT_EQ(json["app_instance_id"], "");
    }
  }
}

TEST_F(CollectorTest, TheDeferredDeepLinkComesFromTheCollectorAndIsReported) {
  CollectorOptions options;
  options.deferredDeepLink = "solvanta://open?utm_source=ddl&utm_medium=install&sbraid=Z9";
  options.deferredDeepLinkParameters = R"({"_cc": 1, "creative": "banner-3"})";
  startCollector(options);
  APMLaunchContext::setInfoDictionary({{"STUVOP_ANALYTICS_DEFERRED_DEEP_LINK_ENABLED", true}});
  platform_.advertisingIdentity().set("AAAA-2222", std::nullopt, 3);
  auto c = client();  // starts, and asks
  std::optional<nlohmann::json> campaign;
  for (int attempt = 0; attempt < 100 && !campaign; ++attempt) {
    ASSERT_TRUE(c->drain(30));
    for (const std::string& line : collector_->lines()) {
      auto json = nlohmann::json::parse(line);
      if (json["name"] == "_cmp") campaign = json;
    }
    if (!campaign) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ASSERT_TRUE(campaign);
  EXPECT_EQ((*campaign)["params"]["source"], "ddl");
  EXPECT_EQ((*campaign)["params"]["medium"], "install");
  EXPECT_EQ((*campaign)["params"]["creative"], "banner-3");
  // Asked after the first open was reported: too late to travel with it.
  EXPECT_EQ((*campaign)["params"]["_cmpx"], 1);
  EXPECT_EQ(collector_->stats().deepLinkRequests, 1);
  // A later start does not ask again.
  c.reset();
  kit::resetSingletonsForTesting();
  APMLaunchContext::setInfoDictionary({{"STUVOP_ANALYTICS_DEFERRED_DEEP_LINK_ENABLED", true}});
  c = client();
  ASSERT_TRUE(c->drain(30));
  EXPECT_EQ(collector_->stats().deepLinkRequests, 1);
}

TEST_F(CollectorTest, FaultsKeepTheBundlesUntilTheServerAccepts) {
  startCollector();
  auto c = client();
  // A first pass without faults fetches the configuration, so that the faults meet uploads.
  c->log("warm_up", {});
  ASSERT_TRUE(c->drain(30));
  for (int status : {500, 503, 429, 413, 400}) collector_->inject({Fault::Kind::Status, status, 0}, 1);
  collector_->inject({Fault::Kind::Drop, 0, 0}, 1);
  collector_->inject({Fault::Kind::Slow, 0, 0.3}, 1);
  for (int i = 0; i < 10; ++i) c->log("numbered", {{"seq", APMValue::fromInt64(i)}});
  // Each failed pass (six statuses and drops; the slow answer is still a success) accepts
  // nothing and deletes nothing.
  std::size_t accepted = collector_->lines().size();
  for (int pass = 0; pass < 6; ++pass) {
    c->uploadOnce(30);
    EXPECT_EQ(collector_->lines().size(), accepted) << pass;
    EXPECT_GT(c->waiting(), 0) << pass;
  }
  ASSERT_TRUE(c->drain(60));
  EXPECT_EQ(collector_->stats().faults, 7);
  auto counts = sequenceCounts(collector_->lines());
  EXPECT_EQ(counts.size(), 10u);
  for (auto& [seq, n] : counts) EXPECT_EQ(n, 1) << seq;

  // A body that is no batch is refused.
  httplib::Client raw("127.0.0.1", collector_->port());
  auto answer = raw.Post("/a", "not a batch", "application/x-protobuf");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 400);
  EXPECT_EQ(collector_->stats().badBatches, 1);
  // The control endpoint injects faults too.
  ASSERT_TRUE(raw.Post("/control/fail?status=503&count=2"));
  EXPECT_EQ(raw.Post("/a", "x", "text/plain")->status, 503);
  EXPECT_EQ(raw.Post("/control/fail?status=abc")->status, 400);
  ASSERT_TRUE(raw.Post("/control/clear"));
  EXPECT_EQ(raw.Post("/a", "x", "text/plain")->status, 400);
}

// The at-least-once promise under SIGKILL: a child logs and uploads under random faults and
// is killed at random moments; every event it committed reaches the collector at least
// once. Rounds: $SOLVANTA_KILL_ROUNDS (default 8; the full run uses 100).
TEST_F(CollectorTest, NoCommittedEventIsLostWhenTheClientIsKilled) {
  CollectorOptions options;
  options.randomFaultProbability = 0.3;
  options.randomFaults = {{Fault::Kind::Status, 500, 0}, {Fault::Kind::Status, 503, 0},
                          {Fault::Kind::Status, 429, 0}, {Fault::Kind::Drop, 0, 0},
                          {Fault::Kind::Slow, 0, 0.15}};
  options.seed = 2024;
  startCollector(options);
  const char* env = std::getenv("SOLVANTA_KILL_ROUNDS");
  int rounds = env ? std::atoi(env) : 8;
  std::string folder = folder_.path() + "/child";
  std::string committedPath = folder_.path() + "/committed.txt";
  std::mt19937 random(7);
  std::string host = collector_->host();
  auto spawn = [&](long long start, bool drain) {
    // Everything the child needs is made before the fork: it only calls execv.
    std::string first = std::to_string(start);
    const char* args[] = {COLLECTOR_KILL_CHILD, folder.c_str(), host.c_str(),
                          committedPath.c_str(), first.c_str(), "200",
                          drain ? "--drain" : nullptr, nullptr};
    pid_t pid = ::fork();
    if (pid == 0) {
      ::execv(COLLECTOR_KILL_CHILD, const_cast<char* const*>(args));
      ::_exit(127);
    }
    return pid;
  };
  int killed = 0;
  for (int round = 0; round < rounds; ++round) {
    std::error_code ec;
    auto before = std::filesystem::file_size(committedPath, ec);
    if (ec) before = 0;
    pid_t pid = spawn(round * 1000LL, false);
    ASSERT_GT(pid, 0);
    // On a loaded machine the child may take seconds to start: the random moment is counted
    // from its first committed event (or 20 s at most), so that each round kills a client at
    // work rather than one still loading.
    for (int waited = 0; waited < 2000; ++waited) {
      auto now = std::filesystem::file_size(committedPath, ec);
      if (!ec && now > before) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(std::uniform_int_distribution<int>(30, 700)(random)));
    if (::kill(pid, SIGKILL) == 0) ++killed;
    int status = 0;
    ::waitpid(pid, &status, 0);
  }
  collector_->setRandomFaultProbability(0);
  pid_t pid = spawn(0, true);
  int status = 0;
  ::waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the last run left data waiting";

  std::set<std::int64_t> committed;
  std::ifstream file(committedPath);
  for (std::string line; std::getline(file, line);) committed.insert(std::stoll(line));
  auto counts = sequenceCounts(collector_->lines());
  std::int64_t lost = 0, duplicated = 0;
  for (std::int64_t seq : committed) {
    if (!counts.count(seq)) ++lost;
  }
  for (auto& [seq, n] : counts) duplicated += n - 1;
  std::printf("kill test: %d rounds, %d killed, %zu committed, %lld lost, %lld duplicated, "
              "%lld faults injected\n",
              rounds, killed, committed.size(), static_cast<long long>(lost),
              static_cast<long long>(duplicated),
              static_cast<long long>(collector_->stats().faults));
  RecordProperty("lost", static_cast<int>(lost));
  RecordProperty("duplicated", static_cast<int>(duplicated));
  EXPECT_GT(committed.size(), 0u);
  EXPECT_EQ(lost, 0);
}

}  // namespace
}  // namespace collector
