#include "measurement/upload/APMRemoteConfig.h"

#include <charconv>
#include <cstring>
#include <cmath>
#include <utility>

#include "kit/Date.h"
#include "measurement/APMMonitor.h"
#include "measurement/events/APMEventNames.h"
#include "measurement/events/APMIdentity.h"
#include "measurement/experiments/APMEManager.h"
#include "measurement/runtime/APMPEventEditing.h"

namespace {

enum : int {
  kCodeEmptyKey = 7101,
  kCodeNotText = 7102,
  kCodeDefaultUpdate = 7103,
  kCodeEmptyConfig = 7104,
  kCodeWrongAppID = 7105,
  kCodeParsed = 7106,
  kCodeDefaultTimestamp = 7107,
  kCodeStoredConfig = 7108,
  kCodeEventEditingFailed = 7109,
  kCodeNewSnapshot = 7110,
  kCodeExperimentFetchFailed = 7111,
};

std::optional<double> parseNumber(const std::string& text);

// The setting keys that the experiment client's flags of the same meaning override.
constexpr std::pair<const char*, const char*> kExperimentFlags[] = {
    {"measurement.network.background_session_enabled", "network_background_session_enabled"},
    {"measurement.collection.efficient_engagement_reporting_enabled",
     "efficient_engagement_reporting_enabled"},
    {"measurement.collection.redundant_engagement_removal_enabled",
     "redundant_engagement_removal_enabled"},
    {"measurement.persistent_config_in_application_support_enabled",
     "persistent_config_in_application_support_enabled"},
};

// The measurement client hears of its snapshots and activates them itself, when there is no
// data to upload.
class MeasurementExperimentDelegate : public APMEClientDelegate {
 public:
  void clientDidReceiveNewSnapshot(APMEClient& client) override {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeNewSnapshot,
                    "Received a new experiment snapshot. It applies when no data waits. SDK name",
                    client.SDKName());
  }
  void clientDidReceiveFetchError(APMEClient& client, const platform::Error& error) override {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeExperimentFetchFailed,
                    "Experiment fetch failed. SDK name, error", client.SDKName(),
                    error.localizedDescription);
  }
  bool shouldFetchExperimentsForClient(APMEClient&) override { return true; }
};

// A flag value as a truth value: true at 1, as the flag settings are.
bool isTrue(const APMEFlagValue& value) {
  if (const bool* b = std::get_if<bool>(&value)) return *b;
  if (const auto* i = std::get_if<std::int64_t>(&value)) return *i == 1;
  if (const double* d = std::get_if<double>(&value)) return *d == 1;
  const std::string& text = std::get<std::string>(value);
  if (text == "true") return true;
  auto number = parseNumber(text);
  return number && *number == 1;
}

double now() { return kit::Date::now().timeIntervalSince1970; }

double millisToSeconds(double value) { return value / 1000.0; }

// The number a decimal text spells, with nothing else around it but blanks.
std::optional<double> parseNumber(const std::string& text) {
  std::size_t begin = text.find_first_not_of(" \t\n");
  std::size_t end = text.find_last_not_of(" \t\n");
  if (begin == std::string::npos) return std::nullopt;
  const char* first = text.data() + begin;
  const char* last = text.data() + end + 1;
  if (*first == '+') ++first;
  double value = 0;
  auto [ptr, ec] = std::from_chars(first, last, value);
  if (ec != std::errc() || ptr != last || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::string queryEscaped(const std::string& text) {
  static const char* kHex = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : text) {
    if (std::isalnum(c) || c == '-' || c == '_' || c == '.' || c == '~') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
  }
  return out;
}

}  // namespace

APMRemoteConfig& APMRemoteConfig::defaultInstance() {
  static APMRemoteConfig* instance = new APMRemoteConfig("", "", nullptr);
  return *instance;
}

APMRemoteConfig::~APMRemoteConfig() = default;

std::unique_ptr<APMRemoteConfig> APMRemoteConfig::initWithAppID(
    const std::string& appID, const std::string& adnetAppID, APMDatabase* database,
    std::shared_ptr<APMEManager> experimentManager, const std::string& diversionKey) {
  std::unique_ptr<APMRemoteConfig> config(new APMRemoteConfig(appID, adnetAppID, database));
  if (experimentManager) {
    config->experimentDelegate_ = std::make_shared<MeasurementExperimentDelegate>();
    APMESDKProperty property;
    property.name = kExperimentSDKName;
    property.version = kAPMLibraryVersion;
    property.appID = appID;
    property.diversionKey = diversionKey;
    property.delegate = config->experimentDelegate_;
    APMEManager::Flags defaults;
    for (const auto& [key, flag] : kExperimentFlags) defaults[flag] = false;
    if (experimentManager->registerSDKProperty(&property, defaults)) {
      config->experimentManager_ = std::move(experimentManager);
    }
  }
  if (!database) return config;
  platform::Error error;
  auto data = database->queryRemoteConfigData(&error);
  if (data && !data->empty()) {
    auto parsed = APMPBMessage<APMPBMeasurementConfig>::parseFromData(*data, &error);
    if (parsed) {
      config->parseRemoteConfigFromMeasurementConfig(**parsed);
    } else {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeStoredConfig,
                      "Stored configuration is invalid. Using default values",
                      error.localizedDescription);
    }
  }
  return config;
}

bool APMRemoteConfig::updateMeasurementConfig(const APMPBMeasurementConfig& config,
                                              platform::Error* error) {
  if (!database_) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeDefaultUpdate,
                    "Cannot update the default measurement configuration");
    if (error) *error = {"APMRemoteConfig", 1, "Cannot update the default measurement configuration"};
    return false;
  }
  kit::Data bytes;
  if (!APMPBEncode(APMPBMessage<APMPBMeasurementConfig>::fields(), &config, &bytes, error)) {
    return false;
  }
  if (!database_->updateRemoteConfig(bytes, now(), error)) return false;
  parseRemoteConfigFromMeasurementConfig(config);
  return true;
}

bool APMRemoteConfig::parseRemoteConfigFromMeasurementConfig(const APMPBMeasurementConfig& config) {
  if (config.settings_count == 0) {
    APMMonitor::log(kAPMMonitorLevelNotice, kCodeEmptyConfig,
                    "Cannot parse empty measurement config. Using default values");
  }
  if (APMPBString(config.stuvop_app_id) != appID_) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeWrongAppID,
                    "Configuration does not have valid Stuvop App ID.",
                    std::string(APMPBString(config.stuvop_app_id)), appID_);
    return false;
  }
  std::lock_guard lock(mu_);
  cache_.clear();
  for (const APMPBSetting& setting : APMPBItems(config.settings, config.settings_count)) {
    std::string key(APMPBString(setting.key));
    if (key.empty()) continue;
    cache_[key] = std::string(APMPBString(setting.value));
  }
  eventConfigs_.clear();
  for (const APMPBEventConfig& e : APMPBItems(config.event_config, config.event_config_count)) {
    std::string name(APMPBString(e.name));
    if (name.empty()) continue;
    APMEventConfig value{e.has_blocked && e.blocked,
                         e.has_custom_conversion && e.custom_conversion,
                         e.has_sampling_rate ? e.sampling_rate : 0};
    eventConfigs_[name] = value;
    if (auto internal = APMInternalEventName(name)) eventConfigs_[*internal] = value;
  }
  dataControls_.clear();
  for (const APMPBDataControl& d : APMPBItems(config.data_controls, config.data_controls_count)) {
    if (d.name) dataControls_.emplace_back(d.name);
  }
  version_ = config.has_version ? config.version : -1;
  uploadSubDomain_ = std::string(APMPBString(config.upload_sub_domain));
  eventEditing_ = loadEventEditing(config);
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeParsed, "Successfully parsed a configuration. Version",
                  static_cast<long long>(version_));
  return true;
}

std::shared_ptr<APMPEventEditing> APMRemoteConfig::loadEventEditing(
    const APMPBMeasurementConfig& config) {
  if (config.dynamic_event_editing_count == 0) return nullptr;
  auto editing = std::make_shared<APMPEventEditing>();
  // The settings as programs read them through internal.remoteConfig getValue(key).
  std::map<std::string, std::string> values;
  for (const auto& [key, cached] : cache_) {
    if (const auto* text = std::get_if<std::string>(&cached)) values[key] = *text;
  }
  editing->setModuleCreator(
      [values](APMPRuntime&) {
        auto* module = new APMPMapValue();
        APMPRuntimeValue value(module);
        module->set("getValue", APMPMake<APMPNativeFunctionValue>(
                                    "getValue", [values](APMPEvaluator&, const APMPRuntimeValue* arguments,
                                                         std::size_t count) -> APMPRuntimeValue {
                                      if (count < 1) return {};
                                      auto found = values.find(arguments[0].stringValue());
                                      if (found == values.end()) return {};
                                      return APMPRuntimeValue::string(found->second);
                                    }));
        return value;
      },
      "internal.remoteConfig");
  editing->setModuleCreator(
      [](APMPRuntime&) {
        auto* module = new APMPMapValue();
        APMPRuntimeValue value(module);
        APMAppInfo app;
        module->set("app_version", APMPRuntimeValue::string(app.appVersion));
        module->set("package_name", APMPRuntimeValue::string(app.bundleIdentifier));
        return value;
      },
      "internal.appMetadata");
  for (const APMPBProgram& program :
       APMPBItems(config.dynamic_event_editing, config.dynamic_event_editing_count)) {
    platform::Error error;
    if (!editing->loadProgram(program, &error)) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeEventEditingFailed,
                      "Failed to initiate event editing instance", error.localizedDescription);
      return nullptr;
    }
  }
  return editing;
}

std::shared_ptr<APMPEventEditing> APMRemoteConfig::eventEditing() const {
  std::lock_guard lock(mu_);
  return eventEditing_;
}

bool APMRemoteConfig::isExpired() {
  if (!database_) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeDefaultTimestamp,
                    "Cannot fetch the last update timestamp from the default configuration");
    return false;
  }
  return std::fabs(now() - lastRemoteConfigUpdateTimestamp()) >= remoteConfigCacheTimeInterval();
}

std::int64_t APMRemoteConfig::version() const {
  std::lock_guard lock(mu_);
  return version_;
}

double APMRemoteConfig::lastRemoteConfigUpdateTimestamp() {
  if (!database_) return 0;
  auto timestamp = database_->queryRemoteConfigTimestamp(nullptr);
  return timestamp.value_or(0);
}

std::string APMRemoteConfig::uploadURL(const std::string& host) const {
  if (host.empty()) return {};
  std::string subDomain;
  {
    std::lock_guard lock(mu_);
    subDomain = uploadSubDomain_;
  }
  if (subDomain.empty()) return host + "/a";
  std::size_t scheme = host.find("://");
  if (scheme == std::string::npos) return subDomain + "." + host + "/a";
  return host.substr(0, scheme + 3) + subDomain + "." + host.substr(scheme + 3) + "/a";
}

std::string APMRemoteConfig::remoteConfigURLWithAppInstanceID(const std::string& host,
                                                              const std::string& appInstanceID,
                                                              const std::string& platform,
                                                              std::int64_t sdkVersion,
                                                              std::int64_t runtimeVersion) const {
  return host + "/config/app/" + queryEscaped(appID_) + "?app_instance_id=" +
         queryEscaped(appInstanceID) + "&platform=" + queryEscaped(platform) +
         "&smp_version=" + std::to_string(sdkVersion) +
         "&runtime_version=" + std::to_string(runtimeVersion);
}

std::vector<std::string> APMRemoteConfig::dataControls() const {
  std::lock_guard lock(mu_);
  return dataControls_;
}

std::optional<APMEventConfig> APMRemoteConfig::eventConfigWithName(const std::string& name) const {
  std::lock_guard lock(mu_);
  auto it = eventConfigs_.find(name);
  if (it == eventConfigs_.end()) return std::nullopt;
  return it->second;
}

bool APMRemoteConfig::isEventBlocklisted(const std::string& name) const {
  auto config = eventConfigWithName(name);
  return config && config->blocked;
}

bool APMRemoteConfig::isEventCustomConversion(const std::string& name) const {
  auto config = eventConfigWithName(name);
  return config && config->customConversion;
}

bool APMRemoteConfig::eventHasSamplingRate(const std::string& name) const {
  return samplingRateForEvent(name) > 1;
}

std::int64_t APMRemoteConfig::samplingRateForEvent(const std::string& name) const {
  auto config = eventConfigWithName(name);
  if (config && config->samplingRate >= 2 && config->samplingRate <= 65535) {
    return config->samplingRate;
  }
  return 1;
}

std::optional<double> APMRemoteConfig::numberFromCacheWithKey(const std::string& key,
                                                              double defaultValue, double maxValue,
                                                              double minValue,
                                                              const Conversion& block) {
  if (key.empty()) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeEmptyKey,
                    "Cannot get setting with empty key from cache");
    return std::nullopt;
  }
  std::lock_guard lock(mu_);
  auto it = cache_.find(key);
  if (it == cache_.end()) {
    cache_[key] = defaultValue;
    return defaultValue;
  }
  if (const double* number = std::get_if<double>(&it->second)) return *number;
  auto parsed = parseNumber(std::get<std::string>(it->second));
  double value = defaultValue;
  if (parsed) {
    value = block ? block(*parsed) : *parsed;
    if (value < minValue || value > maxValue) value = defaultValue;
  }
  it->second = value;
  return value;
}

double APMRemoteConfig::timeIntervalInSecondsFromCacheWithKey(const std::string& key,
                                                              double defaultValue, double maxValue,
                                                              double minValue) {
  return numberFromCacheWithKey(key, defaultValue, maxValue, minValue, millisToSeconds)
      .value_or(defaultValue);
}

int APMRemoteConfig::intValueFromCacheWithKey(const std::string& key, int defaultValue,
                                              int maxValue, int minValue) {
  return static_cast<int>(
      numberFromCacheWithKey(key, defaultValue, maxValue, minValue).value_or(defaultValue));
}

std::int64_t APMRemoteConfig::int64ValueFromCacheWithKey(const std::string& key,
                                                         std::int64_t defaultValue,
                                                         std::int64_t maxValue,
                                                         std::int64_t minValue) {
  return static_cast<std::int64_t>(
      numberFromCacheWithKey(key, static_cast<double>(defaultValue), static_cast<double>(maxValue),
                             static_cast<double>(minValue))
          .value_or(static_cast<double>(defaultValue)));
}

#define APM_READ_Int(key, def, max, min) int64ValueFromCacheWithKey(key, def, max, min)
#define APM_READ_Seconds(key, def, max, min) timeIntervalInSecondsFromCacheWithKey(key, def, max, min)
#define APM_READ_Flag(key, def, max, min) flagValueFromCacheWithKey(key, def, max, min)

#define APM_REMOTE_CONFIG_DEFINE(name, key, kind, def, max, min) \
  APMRemoteConfigKind##kind APMRemoteConfig::name() { return APM_READ_##kind(key, def, max, min); }
APM_REMOTE_CONFIG_SETTINGS(APM_REMOTE_CONFIG_DEFINE)
#undef APM_REMOTE_CONFIG_DEFINE

#define APM_REMOTE_CONFIG_DEFINE_LIMIT(name, key, kind, def, max, min) \
  APMRemoteConfigKind##kind APMRemoteConfig::name() {                  \
    if (!configurableLimitsEnabled()) return def;                      \
    return APM_READ_##kind(key, def, max, min);                        \
  }
APM_REMOTE_CONFIG_CONFIGURABLE_LIMITS(APM_REMOTE_CONFIG_DEFINE_LIMIT)
#undef APM_REMOTE_CONFIG_DEFINE_LIMIT

std::optional<bool> APMRemoteConfig::experimentFlagForSettingKey(const char* key) {
  if (!experimentManager_) return std::nullopt;
  for (const auto& [settingKey, flag] : kExperimentFlags) {
    if (std::strcmp(key, settingKey) != 0) continue;
    APMEFlagSource source = APMEFlagSource::Default;
    auto value = experimentManager_->flagValueForFlagName(flag, kExperimentSDKName, &source);
    if (!value || source == APMEFlagSource::Default) return std::nullopt;
    return isTrue(*value);
  }
  return std::nullopt;
}

bool APMRemoteConfig::flagValueFromCacheWithKey(const char* key, std::int64_t defaultValue,
                                                std::int64_t maxValue, std::int64_t minValue) {
  if (auto experiment = experimentFlagForSettingKey(key)) return *experiment;
  return int64ValueFromCacheWithKey(key, defaultValue, maxValue, minValue) == 1;
}

bool APMRemoteConfig::activateNewSnapshot() {
  if (!experimentManager_ ||
      experimentManager_->activatedSnapshotStatusOfSDKName(kExperimentSDKName) !=
          kAPMESnapshotStatusPending) {
    return false;
  }
  platform::Error error;
  return experimentManager_->activateSnapshotOfSDK(kExperimentSDKName, &error);
}

std::vector<std::uint32_t> APMRemoteConfig::experimentIDs() {
  std::vector<std::uint32_t> ids;
  if (!experimentManager_) return ids;
  for (std::int32_t id : experimentManager_->experimentIDs()) ids.push_back(static_cast<std::uint32_t>(id));
  return ids;
}

void APMRemoteConfig::applyToSettings(APMMeasurementSettings& s, APMDatabaseLimits& limits) {
  s.maxEventsPerDay = maxEventsPerDay();
  s.maxErrorEventsPerDay = maxErrorEventsPerDay();
  s.maxPublicEventsPerDay = maxPublicEventsPerDay();
  s.maxRealtimeEventCountPerDay = maxRealtimeEventCountPerDay();
  s.maxConversionsPerDay = maxConversionsPerDay();
  s.maxEventNameCardinality = maxEventNameCardinality();
  s.maxPublicUserProperties = maxPublicUserProperties();
  s.maxPublicEventParams = maxPublicEventParams();
  s.maxEventsStored = maxEventsStored();
  s.maxTrackedCurrencies = maxTrackedCurrencies();
  s.uploadMaxEventsPerBundle = uploadMaxEventsPerBundle();
  s.uploadMaxSizeLimitBytes = uploadMaxSizeLimitBytes();
  s.maxBundlesCreatedPerIteration = maxBundlesCreatedPerIteration();
  s.sessionDefaultTimeoutInterval = sessionDefaultTimeoutInterval();
  s.sessionEventUserEngagementInterval = sessionEventUserEngagementInterval();
  s.appBackgroundedEventEnabled = appBackgroundedEventEnabled();
  s.redundantEngagementRemovalEnabled = redundantEngagementRemovalEnabled();
  s.efficientEngagementReportingEnabled = efficientEngagementReportingEnabled();
  s.blocklistPublic = blocklistPublic();
  s.blocklistInternal = blocklistInternal();
  s.isEventSamplingEnabled = isEventSamplingEnabled();
  s.analyticsAccountTimeZoneOffsetMinutes = analyticsAccountTimeZoneOffsetMinutes();
  s.configVersion = version();
  {
    std::lock_guard lock(mu_);
    s.eventConfigs = eventConfigs_;
  }
  s.eesFeatureEnabled = eesFeatureEnabled();
  s.eventEditing = eventEditing();
  s.experimentIDs = experimentIDs();
  limits.maxQueueTime = maxQueueTime();
  limits.databaseDeleteStaleBundlesInterval = databaseDeleteStaleBundlesInterval();
}
