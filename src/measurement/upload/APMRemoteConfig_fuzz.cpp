// libFuzzer target: a configuration body from the server, parsed and applied, and every
// setting read from it.
#include <cstddef>
#include <cstdint>
#include <span>

#include "measurement/upload/APMRemoteConfig.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto parsed = APMPBMessage<APMPBMeasurementConfig>::parseFromData(std::span(data, size));
  if (!parsed) return 0;
  // The configuration's own id, so that the settings apply.
  auto config = APMRemoteConfig::initWithAppID(std::string(APMPBString((*parsed)->stuvop_app_id)),
                                               "", nullptr);
  config->parseRemoteConfigFromMeasurementConfig(**parsed);
  APMMeasurementSettings settings;
  APMDatabaseLimits limits;
  config->applyToSettings(settings, limits);
#define APM_FUZZ_READ(name, key, kind, def, max, min) (void)config->name();
  APM_REMOTE_CONFIG_SETTINGS(APM_FUZZ_READ)
#undef APM_FUZZ_READ
  (void)config->uploadURL("https://collect.example");
  (void)config->samplingRateForEvent("_vs");
  return 0;
}
