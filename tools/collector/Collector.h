// Collector: a local collection server for the measurement client, for end-to-end tests, the
// benchmark and trying the app against a server of our own. It binds to 127.0.0.1 only.
//
//   GET  /config/app/<id>   the configuration file's message (304 when "If-None-Match" names
//                           its ETag; 404 when there is no configuration file)
//   POST /a                 a batch (inflated by the server when gzip-compressed); each event
//                           becomes one JSON line of the log, with its bundle's consent signal,
//                           audience results and experiment ids; 400 when the body is no batch
//
// The configuration file may define audiences (`audiences { audience_id: 1 event_filters
// { filter_id: 1 event_name: "purchase" } }`); the client evaluates them and each event line
// shows them as "audiences": [{"audience", "true": [filter ids], "evaluated", "changed"}].
//   POST /sdk-exp           an experiment request (inflated when gzip-compressed): answers the
//                           experiments file's snapshots and SDK responses for the SDKs it
//                           names, as a gzipped experiment response (an empty one without a
//                           file); 400 when the body is no request
//   GET  /adserve/conversion/app/deeplink   the deferred deep link: {"deeplink", "timestamp"}
//                           with the configured link, an empty 200 without one
//   POST /control/fail?status=S&count=N    answer S to the next N requests
//   POST /control/slow?seconds=T&count=N   answer the next N requests T seconds late
//   POST /control/drop?count=N             drop the connection of the next N requests
//   POST /control/clear                    forget every injected fault
//   GET  /control/stats                    counters as JSON
//
// Faults apply to /config and /a alike, in the order they were injected. A slow answer still
// accepts the batch before it waits; a dropped connection accepts nothing.
//
// Thread-safe: the server answers on its own threads.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kit/Value.h"

namespace httplib {
class Server;
}

namespace collector {

struct Fault {
  enum class Kind { Status, Slow, Drop };
  Kind kind = Kind::Status;
  int status = 500;
  double seconds = 0;
};

// "500", "503:3" (status and count), "slow:2.5:1", "drop:2"; nothing when malformed. The
// count (default 1) is returned through `count`.
std::optional<Fault> parseFault(const std::string& text, int* count);

struct CollectorOptions {
  int port = 0;  // 0: any free port
  // The configuration served, as protobuf text of the measurement configuration; empty: none.
  std::string configPath;
  // Where event lines are appended; empty: kept in memory only.
  std::string logPath;
  // Each request without an injected fault meets a random one with this probability (0..1),
  // drawn from `randomFaults` (the kill test).
  double randomFaultProbability = 0;
  std::vector<Fault> randomFaults;
  std::uint64_t seed = 1;
  // The link the deferred deep-link request answers with; empty: an empty answer.
  std::string deferredDeepLink;
  // A JSON object the answer carries as "ddp" beside the link, e.g. {"_cc": 1}; empty: none.
  std::string deferredDeepLinkParameters;
  // The experiment snapshots served, as protobuf text of the experiment response
  // (`snapshots { sdk_name: "app_measurement" experiments { experiment_id: 7 flags { name:
  // "f" bool_value: true } } }`); empty: none.
  std::string experimentsPath;
};

struct CollectorStats {
  std::int64_t configRequests = 0;
  std::int64_t notModified = 0;
  std::int64_t uploads = 0;
  std::int64_t batchesAccepted = 0;
  std::int64_t bundles = 0;
  std::int64_t events = 0;
  std::int64_t faults = 0;
  std::int64_t badBatches = 0;
  std::int64_t wireBytes = 0;  // bytes of POST bodies as they came (compressed)
  std::int64_t deepLinkRequests = 0;
  std::int64_t experimentRequests = 0;
  std::int64_t snapshotsServed = 0;
};

// The bytes of `text` (protobuf text format) encoded as the configuration message, by the
// protobuf compiler against the project's own message definitions. Nothing, with `error`,
// when it does not encode.
std::optional<kit::Data> encodeConfigText(const std::string& text, std::string* error);
// The same for any message `type` ("apm.ExperimentResponse") of the .proto file `protoFile`.
std::optional<kit::Data> encodeProtoText(const std::string& text, const std::string& type,
                                         const std::string& protoFile, std::string* error);

class Collector {
 public:
  explicit Collector(CollectorOptions options);
  ~Collector();
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

  // Reads the configuration, binds and starts answering; false with `error` on failure.
  bool start(std::string* error);
  // Stops answering and joins the server's threads.
  void stop();
  int port() const { return port_; }
  std::string host() const { return "http://127.0.0.1:" + std::to_string(port_); }

  void inject(const Fault& fault, int count);
  void clearFaults();
  // Stops (or resumes) the random faults.
  void setRandomFaultProbability(double probability);
  CollectorStats stats() const;
  // Every event line logged so far (also kept when there is no log file).
  std::vector<std::string> lines() const;
  // The stats as a JSON object text.
  std::string statsJSON() const;
  // Called with each event line as it is logged (tests); on a server thread.
  void setLineObserver(std::function<void(const std::string&)> observer);

 private:
  std::optional<Fault> nextFault();
  // The gzipped answer to an experiment request; 400 in `status` when `body` is no request.
  kit::Data experimentAnswer(const std::string& body, int* status);
  void logBatch(const std::string& body, std::int64_t wireBytes, int* status);

  CollectorOptions options_;
  std::unique_ptr<httplib::Server> server_;
  std::thread thread_;
  int port_ = 0;
  kit::Data config_;
  std::string configETag_;
  bool hasConfig_ = false;
  kit::Data experiments_;
  mutable std::mutex mu_;
  std::deque<Fault> faults_;
  std::mt19937_64 random_;
  CollectorStats stats_;
  std::vector<std::string> lines_;
  std::FILE* log_ = nullptr;
  std::function<void(const std::string&)> observer_;
};

}  // namespace collector
