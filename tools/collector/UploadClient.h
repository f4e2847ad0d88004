// UploadClient: a measurement client on real threads that sends to a collection host over
// libcurl, for end-to-end runs (the collector's tests, the kill test's child, the upload
// benchmark). It installs its own services over whatever platform is installed: a preference
// store in a JSON file of `folder` (so that a restarted process keeps its timestamps) and the
// libcurl network. The caller owns the threaded environment and the installed platform, both
// of which must outlive the client.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "measurement/events/APMMeasurement.h"

namespace desktop {
class CurlNetwork;
}

namespace collector {

struct UploadClientOptions {
  // Holds the database ("measurement.sql") and the preferences ("preferences.json").
  std::string folder;
  std::string host;
  APMMeasurementSettings settings;
};

class UploadClient {
 public:
  explicit UploadClient(UploadClientOptions options);
  ~UploadClient();

  // Logs one application event and returns once its row is committed (or refused).
  void log(const std::string& name, const APMParameters& parameters);
  // Logs `count` events from the calling thread through the worker queue and waits for the
  // last. Names "bench_event" with three short parameters.
  void logMany(std::int64_t count);
  // Runs passes until nothing waits (raw events and bundles) or `seconds` have gone by;
  // returns whether nothing waits. A pass that met a failure is run again.
  bool drain(double seconds);
  // Starts one pass and waits until its requests are over.
  void uploadOnce(double seconds);
  // Raw events and bundles still stored.
  std::int64_t waiting();
  APMMeasurement& measurement() { return *measurement_; }

 private:
  bool requestPending();
  std::shared_ptr<APMMeasurement> measurement_;
  std::shared_ptr<desktop::CurlNetwork> network_;
};

}  // namespace collector
