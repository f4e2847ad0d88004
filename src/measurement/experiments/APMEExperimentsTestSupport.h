// The experiment client's test fixture: a simulated environment and platform with a
// collection host, a manager over a database in a temporary folder, a captured monitor, and
// builders of server answers. Test code only.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "measurement/APMGzip.h"
#include "measurement/APMMonitor.h"
#include "measurement/experiments/APMEManager.h"
#include "measurement/store/APMStoreTestSupport.h"
#include "sim/Environment.h"
#include "sim/Platform.h"

inline constexpr const char* kAPMETestHost = "https://collect.test";

// One snapshot of an answer: an SDK, an experiment id and one flag.
struct APMETestSnapshot {
  std::string sdk;
  std::int32_t experimentID;
  std::string flag;
  APMEFlagValue value;
};

// Fills the empty message `out` with `s`.
inline void APMEFillSnapshot(APMPBSnapshot& out, const APMETestSnapshot& s) {
  APMESnapshot model;
  model.SDKName = s.sdk;
  model.experiments.push_back({s.experimentID, {{s.flag, s.value}}});
  auto bytes = model.snapshotProto(nullptr);
  ASSERT_TRUE(bytes);
  ASSERT_TRUE(APMPBDecode(APMPBMessage<APMPBSnapshot>::fields(), bytes->data(), bytes->size(),
                          &out, nullptr));
}

// The gzipped answer with `pending` as snapshots and `launched` as launched SDK responses.
inline kit::Data APMEAnswerBody(const std::vector<APMETestSnapshot>& pending,
                                const std::vector<APMETestSnapshot>& launched = {}) {
  APMPBMessage<APMPBExperimentResponse> response;
  for (const auto& s : pending) {
    APMEFillSnapshot(APMPBAppend(&response->snapshots, &response->snapshots_count), s);
  }
  for (const auto& s : launched) {
    APMPBSdkResponse& r = APMPBAppend(&response->sdk_responses, &response->sdk_responses_count);
    APMPBSetString(&r.sdk_name, s.sdk);
    r.has_status = true;
    r.status = kAPMESdkResponseStatusLaunched;
    r.has_snapshot = true;
    APMEFillSnapshot(r.snapshot, s);
  }
  auto bytes = response.protoBuffer();
  return *APMGzipData(*bytes, nullptr);
}

inline sim::NetworkAnswer APMEAnswer(const std::vector<APMETestSnapshot>& pending,
                                     const std::vector<APMETestSnapshot>& launched = {}) {
  sim::NetworkAnswer answer = sim::answer(200);
  answer.body = APMEAnswerBody(pending, launched);
  return answer;
}

// Records what a delegate hears.
class APMETestDelegate : public APMEClientDelegate {
 public:
  void clientDidReceiveNewSnapshot(APMEClient& client) override { received.push_back(client.SDKName()); }
  void clientDidReceiveFetchError(APMEClient&, const platform::Error& error) override {
    errors.push_back(error.localizedDescription);
    codes.push_back(error.code);
  }
  bool shouldFetchExperimentsForClient(APMEClient&) override { return fetch; }

  std::vector<std::string> received;
  std::vector<std::string> errors;
  std::vector<int> codes;
  bool fetch = true;
};

class APMEExperimentsTest : public ::testing::Test {
 protected:
  APMEExperimentsTest() {
    platform_.network().setHost(kAPMETestHost);
    manager_ = make();
  }
  std::shared_ptr<APMEManager> make() {
    APMEManagerOptions options;
    options.databasePath = folder_.path() + "/" + APMEDatabase::kDatabaseName;
    return APMEManager::create(options);
  }
  // Ends the process's manager and starts a new one over the same files, `seconds` later.
  void restart(double seconds = 0) {
    manager_.reset();
    env_.advance(seconds);
    manager_ = make();
  }
  APMESDKProperty property(const std::string& name,
                           std::shared_ptr<APMEClientDelegate> delegate = nullptr) {
    APMESDKProperty p;
    p.name = name;
    p.version = 3;
    p.appID = "app-1";
    p.diversionKey = "div";
    p.customProperties = {{"k", "v"}};
    p.delegate = delegate;
    return p;
  }
  std::vector<sim::NetworkRequest> fetches() {
    std::vector<sim::NetworkRequest> out;
    for (auto& r : platform_.network().requests()) {
      if (r.url == std::string(kAPMETestHost) + "/sdk-exp") out.push_back(r);
    }
    return out;
  }

  sim::Environment env_;
  sim::Platform platform_;
  APMTemporaryFolder folder_;
  APMMonitorCapture monitor_;
  std::shared_ptr<APMEManager> manager_;
};
