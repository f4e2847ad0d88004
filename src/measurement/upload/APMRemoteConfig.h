// APMRemoteConfig: the measurement configuration the server sends, as typed settings with
// built-in defaults and bounds, per-event configurations, data controls and the upload region.
//
// A setting is read by key with a default, a maximum and a minimum. The cache holds the
// server's texts until first read; a read parses the text once, converts it ("seconds"
// settings arrive in milliseconds and are divided by 1000), and keeps the default when the
// text does not parse or the value lies outside the bounds. The result replaces the text, so
// every later read is one lookup.
//
// Four flag settings consult the experiment client first: the measurement client registers
// there as "app_measurement" with the flags network_background_session_enabled,
// efficient_engagement_reporting_enabled, redundant_engagement_removal_enabled and
// persistent_config_in_application_support_enabled (each false by default), and a value from
// an activated or launched snapshot wins over the server's setting.
//
// Threading: built and updated on the measurement worker queue; the accessors may be called
// from any thread (the cache has its own lock). The database, when given, is borrowed and
// must outlive the configuration.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "measurement/events/APMMeasurementSettings.h"
#include "measurement/proto/APMPB.h"
#include "measurement/store/APMDatabase.h"

class APMEManager;
class APMEClientDelegate;

// Every setting: (accessor, key, kind, default, maximum, minimum). Kinds: Int (a whole
// number), Seconds (milliseconds on the wire, seconds here), Flag (true at 1).
#define APM_REMOTE_CONFIG_SETTINGS(X)                                                         \
  X(maxAudienceCount, "measurement.audience.max_count", Int, 50, 500, 0)                      \
  X(maxFiltersPerAudience, "measurement.audience.filter_max_count_per_audience", Int, 10, 100, 0) \
  X(maxParametersPerFilter, "measurement.audience.parameter_max_count_filter", Int, 25, 250, 0) \
  X(maxFilterResultCount, "measurement.audience.filter_result_max_count", Int, 200, 2000, 0)  \
  X(maxTrackedCurrencies, "measurement.lifetimevalue.max_currency_tracked", Int, 4, 100, 1)   \
  X(maxEventsStored, "measurement.store.max_stored_events_per_app", Int, 100000, 1000000, 0)  \
  X(monitoringSamplePeriod, "measurement.monitoring.sample_period_millis", Seconds, 86400, 604800, 0) \
  X(databaseDeleteStaleBundlesInterval, "measurement.upload.stale_data_deletion_interval", Seconds, 86400, 604800, 3600) \
  X(adIDCacheTime, "measurement.ad_id_cache_time", Seconds, 1, 86400, 0)                      \
  X(gateIDFAOnATTMASEnabled, "measurement.attmas_gate", Flag, 0, 1, 0)                        \
  X(configurableLimitsEnabled, "measurement.upload.configurable_limits_enabled", Flag, 1, 1, 0) \
  X(maxBundlesCreatedPerIteration, "measurement.upload.max_bundles_created_per_iteration", Int, 100, 10000, 1) \
  X(maxConversionsPerDay, "measurement.upload.max_conversions_per_day", Int, 10000, 1000000, 0) \
  X(maxErrorEventsPerDay, "measurement.upload.max_error_events_per_day", Int, 1000, 1000000, 0) \
  X(maxEventsPerDay, "measurement.upload.max_events_per_day", Int, 100000, 1000000, 0)        \
  X(maxPublicEventsPerDay, "measurement.upload.max_public_events_per_day", Int, 50000, 1000000, 0) \
  X(maxQueueTime, "measurement.upload.max_queue_time", Seconds, 2419200, 7862400, 604800)     \
  X(uploadMaxBundlesLimit, "measurement.upload.max_bundles", Int, 100, 10000, 1)              \
  X(uploadMaxEventsPerBundle, "measurement.upload.max_events_per_bundle", Int, 1000, 1000000, 1) \
  X(uploadMaxSizeLimitBytes, "measurement.upload.max_batch_size", Int, 65536, 10485760, 0)    \
  X(uploadingBackoffInterval, "measurement.upload.backoff_period", Seconds, 43200, 604800, 3600) \
  X(uploadingDebugModeInterval, "measurement.upload.debug_upload_interval", Seconds, 1, 15, 1) \
  X(uploadingInterval, "measurement.upload.interval", Seconds, 3600, 86400, 15)               \
  X(uploadingInitialDelayInterval, "measurement.upload.initial_upload_delay_time", Seconds, 15, 86400, 1) \
  X(maxRealtimeEventCountPerDay, "measurement.upload.max_realtime_events_per_day", Int, 10, 10, 0) \
  X(uploadingRetryInterval, "measurement.upload.retry_time", Seconds, 1800, 86400, 60)        \
  X(uploadingRetryCount, "measurement.upload.retry_count", Int, 6, 24, 1)                     \
  X(uploadingRealTimeInterval, "measurement.upload.realtime_upload_interval", Seconds, 10, 15, 10) \
  X(blocklistInternal, "measurement.upload.blacklist_internal", Flag, 0, 1, 0)                \
  X(blocklistPublic, "measurement.upload.blacklist_public", Flag, 0, 1, 0)                    \
  X(isEventSamplingEnabled, "measurement.event_sampling_enabled", Flag, 0, 1, 0)              \
  X(analyticsAccountTimeZoneOffsetMinutes, "measurement.account.time_zone_offset_minutes", Int, 0, 900, -900) \
  X(checksumEnabled, "measurement.quality.checksum", Flag, 0, 1, 0)                           \
  X(appBackgroundedEventEnabled, "measurement.lifecycle.app_backgrounded_tracking", Flag, 1, 1, 0) \
  X(appInBackgroundParameterEnabled, "measurement.lifecycle.app_in_background_parameter", Flag, 1, 1, 0) \
  X(lastAdvertisingIDResetFeatureEnabled, "measurement.last_advertising_id_reset_feature_enabled", Flag, 1, 1, 0) \
  X(eesFeatureEnabled, "measurement.ees_feature_enabled", Flag, 1, 1, 0)                      \
  X(isDeferredDeepLinkEnabled, "measurement.ddl.enabled", Flag, 1, 1, 0)                      \
  X(maxDeferredDeepLinkRetryCount, "measurement.ddl.retry_count", Int, 5, 10, 0)              \
  X(attributionCacheTTLInterval, "measurement.attribution.cache.ttl", Seconds, 604800, 2592000, 86400) \
  X(isNetworkBackgroundSessionEnabled, "measurement.network.background_session_enabled", Flag, 0, 1, 0) \
  X(networkTimeout, "measurement.network.network_timeout", Seconds, 60, 3600, 30)             \
  X(remoteConfigCacheTimeInterval, "measurement.config.cache_time", Seconds, 3600, 86400, 60) \
  X(sessionDefaultMinimumInterval, "measurement.session.default_minimum_interval", Seconds, 10, 86400, 0) \
  X(sessionDefaultTimeoutInterval, "measurement.session.default_timeout_interval", Seconds, 1800, 86400, 0) \
  X(sessionEventUserEngagementInterval, "measurement.session.event_user_engagement_interval", Seconds, 3600, 86400, 0) \
  X(efficientEngagementReportingEnabled, "measurement.collection.efficient_engagement_reporting_enabled", Flag, 0, 1, 0) \
  X(redundantEngagementRemovalEnabled, "measurement.collection.redundant_engagement_removal_enabled", Flag, 0, 1, 0) \
  X(isConsentSettingsEnabled, "measurement.api.consent_settings", Flag, 1, 1, 0)              \
  X(isConsentSettings3PEnabled, "measurement.api.consent_settings_3p", Flag, 1, 1, 0)         \
  X(persistentConfigInApplicationSupportEnabled, "measurement.persistent_config_in_application_support_enabled", Flag, 0, 1, 0)

// The three limits that follow the server only while configurableLimitsEnabled is on; off,
// they keep their defaults.
#define APM_REMOTE_CONFIG_CONFIGURABLE_LIMITS(X)                                             \
  X(maxPublicUserProperties, "measurement.upload.max_public_user_properties", Int, 25, 100, 25) \
  X(maxEventNameCardinality, "measurement.upload.max_event_name_cardinality", Int, 500, 2000, 500) \
  X(maxPublicEventParams, "measurement.upload.max_public_event_params", Int, 25, 100, 25)

using APMRemoteConfigKindInt = std::int64_t;
using APMRemoteConfigKindSeconds = double;
using APMRemoteConfigKindFlag = bool;

class APMRemoteConfig {
 public:
  // Converts a parsed number before the bounds are checked.
  using Conversion = std::function<double(double)>;

  // The instance without a database: defaults only, never expired, refusing updates.
  static APMRemoteConfig& defaultInstance();

  // The experiment client's name of the measurement client.
  static constexpr const char* kExperimentSDKName = "app_measurement";

  // A configuration for the application `appID` (and AdNet id `adnetAppID`) kept in
  // `database`; the stored configuration, if any, is applied at once. With
  // `experimentManager` (started), registers "app_measurement" there with `diversionKey`.
  static std::unique_ptr<APMRemoteConfig> initWithAppID(
      const std::string& appID, const std::string& adnetAppID, APMDatabase* database,
      std::shared_ptr<APMEManager> experimentManager = nullptr,
      const std::string& diversionKey = "");
  ~APMRemoteConfig();

  // Activates the pending snapshot of "app_measurement", if one waits. Returns whether one
  // was activated. Called when there is no data to upload.
  bool activateNewSnapshot();
  // The experiment ids of the activated snapshots (tag 45 of a bundle); empty without an
  // experiment client.
  std::vector<std::uint32_t> experimentIDs();
  // A flag setting's value from the experiment client: nothing unless `key` is one of the
  // four flag settings and an activated or launched snapshot sets it.
  std::optional<bool> experimentFlagForSettingKey(const char* key);

  // Stores `config` (its audiences already taken out) with now as its time and applies it.
  // Refuses on the default instance ("Cannot update the default measurement configuration")
  // and when the database write fails.
  bool updateMeasurementConfig(const APMPBMeasurementConfig& config, platform::Error* error);
  // Applies `config` to the cache and tables (see the file's head); an id that is not the
  // client's changes nothing. Returns whether it applied.
  bool parseRemoteConfigFromMeasurementConfig(const APMPBMeasurementConfig& config);

  // |now - lastRemoteConfigUpdateTimestamp| >= remoteConfigCacheTimeInterval; never on the
  // default instance.
  bool isExpired();
  // The applied configuration's version; -1 when none or absent.
  std::int64_t version() const;
  // When the configuration was last confirmed fresh, seconds since 1970; 0 when never.
  double lastRemoteConfigUpdateTimestamp();
  // "<scheme>://<sub-domain>.<host>/a" with the configuration's region, else "<host>/a".
  // Empty when `host` is empty.
  std::string uploadURL(const std::string& host) const;
  // "<host>/config/app/<app id>?app_instance_id=..&platform=..&smp_version=..&runtime_version=.."
  std::string remoteConfigURLWithAppInstanceID(const std::string& host,
                                               const std::string& appInstanceID,
                                               const std::string& platform,
                                               std::int64_t sdkVersion,
                                               std::int64_t runtimeVersion) const;
  // Names withheld from bundles.
  std::vector<std::string> dataControls() const;
  const std::string& appID() const { return appID_; }

  std::optional<APMEventConfig> eventConfigWithName(const std::string& name) const;
  bool isEventBlocklisted(const std::string& name) const;
  bool isEventCustomConversion(const std::string& name) const;
  bool eventHasSamplingRate(const std::string& name) const;
  // The event's rate when it lies from 2 to 65535, else 1.
  std::int64_t samplingRateForEvent(const std::string& name) const;

  // The cached number of `key` (see the file's head); nothing for an empty key ("Cannot get
  // setting with empty key from cache").
  std::optional<double> numberFromCacheWithKey(const std::string& key, double defaultValue,
                                               double maxValue, double minValue,
                                               const Conversion& block = nullptr);
  double timeIntervalInSecondsFromCacheWithKey(const std::string& key, double defaultValue,
                                               double maxValue, double minValue);
  int intValueFromCacheWithKey(const std::string& key, int defaultValue, int maxValue,
                               int minValue);
  std::int64_t int64ValueFromCacheWithKey(const std::string& key, std::int64_t defaultValue,
                                          std::int64_t maxValue, std::int64_t minValue);

#define APM_REMOTE_CONFIG_DECLARE(name, key, kind, def, max, min) APMRemoteConfigKind##kind name();
  APM_REMOTE_CONFIG_SETTINGS(APM_REMOTE_CONFIG_DECLARE)
  APM_REMOTE_CONFIG_CONFIGURABLE_LIMITS(APM_REMOTE_CONFIG_DECLARE)
#undef APM_REMOTE_CONFIG_DECLARE

  // The event editing loaded from the configuration's programs (tag 9); null when there are
  // none or they failed to load. Replaced as a whole by each configuration.
  std::shared_ptr<APMPEventEditing> eventEditing() const;

  // Writes every setting the event pipeline and the store read into `settings` and `limits`.
  void applyToSettings(APMMeasurementSettings& settings, APMDatabaseLimits& limits);

 private:
  APMRemoteConfig(std::string appID, std::string adnetAppID, APMDatabase* database)
      : appID_(std::move(appID)), adnetAppID_(std::move(adnetAppID)), database_(database) {}

  using Cached = std::variant<std::string, double>;
  // A Flag setting: the experiment client's value, else the cached one.
  bool flagValueFromCacheWithKey(const char* key, std::int64_t defaultValue,
                                 std::int64_t maxValue, std::int64_t minValue);
  // Called with mu_ held.
  std::shared_ptr<APMPEventEditing> loadEventEditing(const APMPBMeasurementConfig& config);

  std::string appID_;
  std::string adnetAppID_;
  APMDatabase* database_;
  mutable std::mutex mu_;
  std::map<std::string, Cached> cache_;
  std::map<std::string, APMEventConfig> eventConfigs_;
  std::vector<std::string> dataControls_;
  std::int64_t version_ = -1;
  std::string uploadSubDomain_;
  std::shared_ptr<APMPEventEditing> eventEditing_;
  std::shared_ptr<APMEManager> experimentManager_;
  std::shared_ptr<APMEClientDelegate> experimentDelegate_;
};
