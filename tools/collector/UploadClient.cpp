#include "collector/UploadClient.h"

#include <chrono>
#include <filesystem>
#include <thread>

#include "desktop/network/CurlNetwork.h"
#include "desktop/system/JsonPreferenceStore.h"
#include "kit/Date.h"
#include "platform/Platform.h"

namespace collector {

UploadClient::UploadClient(UploadClientOptions options) {
  std::filesystem::create_directories(options.folder);
  platform::Services services = platform::services();
  services.preferences =
      std::make_shared<desktop::JsonPreferenceStore>(options.folder + "/preferences.json");
  network_ = std::make_shared<desktop::CurlNetwork>(options.host, nullptr);
  services.network = network_;
  platform::install(services);
  APMMeasurementOptions m;
  m.databasePath = options.folder + "/measurement.sql";
  m.settings = options.settings;
  measurement_ = std::make_shared<APMMeasurement>(std::move(m));
  measurement_->scheduler().dispatchSyncOnWorkerQueueBlockID(
      "UploadClient:start", [this] { measurement_->startMeasurementOnWorkerQueue(); });
}

UploadClient::~UploadClient() {
  // Let the worker finish what it holds before the client goes.
  measurement_->scheduler().dispatchSyncOnWorkerQueueBlockID("UploadClient:stop",
                                                             [this] { measurement_->alarm().cancel(); });
}

void UploadClient::log(const std::string& name, const APMParameters& parameters) {
  auto event = APMEvent::create("app", name, kit::Date::now().timeIntervalSince1970, 0, parameters);
  if (!event) return;
  measurement_->scheduler().dispatchSyncOnWorkerQueueBlockID(
      "UploadClient:log", [&] { measurement_->logEventOnWorkerQueue(*event, false); });
}

void UploadClient::logMany(std::int64_t count) {
  for (std::int64_t i = 0; i < count; ++i) {
    auto event = APMEvent::create("app", "bench_event", kit::Date::now().timeIntervalSince1970, 0,
                                  {{"item", APMValue::fromString("sku-" + std::to_string(i % 97))},
                                   {"level", APMValue::fromInt64(i % 10)},
                                   {"mode", APMValue::fromString(i % 2 ? "fast" : "slow")}});
    if (!event) continue;
    measurement_->logEvent(std::move(*event));
  }
  measurement_->scheduler().dispatchSyncOnWorkerQueueBlockID("UploadClient:logMany", [] {});
}

bool UploadClient::requestPending() {
  bool pending = false;
  measurement_->scheduler().dispatchSyncOnWorkerQueueBlockID(
      "UploadClient:pending", [&] { pending = measurement_->isNetworkRequestPending(); });
  return pending;
}

void UploadClient::uploadOnce(double seconds) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  measurement_->scheduler().dispatchSyncOnWorkerQueueBlockID("UploadClient:upload",
                                                             [this] { measurement_->uploadData(); });
  // A finished request may start the next one at once (more data, or the configuration
  // first): wait until the chain is over.
  int quiet = 0;
  while (std::chrono::steady_clock::now() < deadline && quiet < 3) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    quiet = requestPending() || network_->hasUploadInProgress() ? 0 : quiet + 1;
  }
}

std::int64_t UploadClient::waiting() {
  std::int64_t n = 0;
  measurement_->scheduler().dispatchSyncOnWorkerQueueBlockID("UploadClient:waiting", [&] {
    auto value = measurement_->database()->store().numberForQuery(
        "SELECT (SELECT COUNT(*) FROM raw_events) + (SELECT COUNT(*) FROM queue)", {}, nullptr);
    n = value ? value->numberAsInteger().value_or(-1) : -1;
  });
  return n;
}

bool UploadClient::drain(double seconds) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < deadline) {
    if (waiting() == 0) return true;
    uploadOnce(std::chrono::duration<double>(deadline - std::chrono::steady_clock::now()).count());
  }
  return waiting() == 0;
}

}  // namespace collector
