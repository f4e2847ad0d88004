// The settings the event pipeline reads: limits, switches and the per-event configuration.
// Every field starts at its built-in default; the configuration fetch replaces them with the
// server's values (already checked against their bounds) as they arrive. A plain value that
// the worker queue owns.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

// What the configuration says about one event name.
class APMPEventEditing;

struct APMEventConfig {
  bool blocked = false;
  bool customConversion = false;
  // 0 when the name has no sampling rate.
  std::int64_t samplingRate = 0;
};

struct APMMeasurementSettings {
  // Collection switches.
  bool analyticsEnabled = true;
  bool sessionReportingEnabled = true;
  bool debugMode = false;

  // Daily limits (per measurement day).
  std::int64_t maxEventsPerDay = 100000;           // 0 to 1000000
  std::int64_t maxErrorEventsPerDay = 1000;
  std::int64_t maxPublicEventsPerDay = 50000;
  std::int64_t maxRealtimeEventCountPerDay = 10;   // 0 to 10
  std::int64_t maxConversionsPerDay = 10000;
  // Stored names and properties.
  std::int64_t maxEventNameCardinality = 500;      // 500 to 2000
  std::int64_t maxPublicUserProperties = 25;       // 25 to 100
  std::int64_t maxUserPropertiesPerOrigin = 25;
  std::int64_t maxPublicEventParams = 25;          // 25 to 100
  std::int64_t maxEventsStored = 100000;
  std::int64_t maxTrackedCurrencies = 4;           // 1 to 100

  // Bundling.
  std::int64_t uploadMaxEventsPerBundle = 1000;    // 1 to 1000000
  std::int64_t uploadMaxSizeLimitBytes = 65536;    // 0 to 10485760
  std::int64_t maxBundlesCreatedPerIteration = 100;  // 1 to 10000

  // Sessions and engagement, seconds.
  double sessionDefaultTimeoutInterval = 1800;
  double sessionEventUserEngagementInterval = 3600;
  bool appBackgroundedEventEnabled = true;
  bool redundantEngagementRemovalEnabled = false;
  bool efficientEngagementReportingEnabled = false;

  // Safelist and blocklist.
  std::vector<std::string> safelistedEvents;
  bool blocklistPublic = false;
  bool blocklistInternal = false;
  std::map<std::string, APMEventConfig> eventConfigs;

  // Sampling.
  bool isEventSamplingEnabled = false;
  std::int64_t analyticsAccountTimeZoneOffsetMinutes = 0;

  // Bundle metadata.
  std::int64_t configVersion = -1;  // written into bundles when 0 or more
  std::vector<std::uint32_t> experimentIDs;
  std::string consentSignals;
  bool registrationWithAdNetworkEnabled = true;

  // Event editing: the configuration's programs, run on every event when enabled.
  bool eesFeatureEnabled = false;
  std::shared_ptr<APMPEventEditing> eventEditing;

  // The configuration of `name`, or nothing.
  const APMEventConfig* eventConfig(const std::string& name) const {
    auto it = eventConfigs.find(name);
    return it == eventConfigs.end() ? nullptr : &it->second;
  }
  bool isEventCustomConversion(const std::string& name) const {
    const APMEventConfig* config = eventConfig(name);
    return config && config->customConversion;
  }
};
