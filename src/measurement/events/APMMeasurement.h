// APMMeasurement: the measurement client's core. It owns the worker queue, the database, the
// identity, the alarm and the session reporter; it turns events into rows of `raw_events`
// and runs of rows into bundles in `queue`.
//
// Threading: the public entry points (logEvent, setUserAttribute, start) may be called from
// any thread and hop onto the worker queue. Every method whose name ends in OnWorkerQueue,
// and every other method below the "worker queue" mark, runs on the worker queue only.
//
// Failures never reach the caller: each goes to APMMonitor. A write that loses an event logs
// a message beginning "Data loss." and rolls its transaction back.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "measurement/audiences/APMAudience.h"
#include "measurement/events/APMEvent.h"
#include "measurement/events/APMIdentity.h"
#include "measurement/events/APMMeasurementSettings.h"
#include "measurement/events/APMScheduler.h"
#include "measurement/events/APMSessionReporter.h"
#include "measurement/store/APMDatabase.h"
#include "measurement/upload/APMPersistedConfig.h"
#include "measurement/upload/APMRemoteConfig.h"
#include "platform/Network.h"

struct APMMeasurementOptions {
  // The database file; empty: "stuvop-app-measurement.sql" in "Stuvop/Measurement" of the
  // application-support folder (the folders made with mode 0700).
  std::string databasePath;
  // Null: kept in the installed platform's preference store.
  std::shared_ptr<APMPersistedConfig> persistedConfig;
  APMAppInfo appInfo;
  APMMeasurementSettings settings;
  // Whether the experiment client runs beside the measurement client, with its database
  // "stuvop_experimentation_database.sql" in the folder of `databasePath`.
  bool experimentsEnabled = true;
};

class APMPEventEditing;
class APMEManager;

class APMMeasurement {
 public:
  // Hears every event logged with notifyEventListeners, on the worker queue.
  using EventListener = std::function<void(const APMEvent&)>;

  // Makes the worker queue; nothing else happens until start().
  explicit APMMeasurement(APMMeasurementOptions options);
  ~APMMeasurement();
  APMMeasurement(const APMMeasurement&) = delete;
  APMMeasurement& operator=(const APMMeasurement&) = delete;

  // The process's instance, or null before the client started itself.
  static std::shared_ptr<APMMeasurement> sharedInstance();
  static void setSharedInstance(std::shared_ptr<APMMeasurement> measurement);

  // Any thread. Schedules startMeasurementOnWorkerQueue.
  void start();
  // Any thread. Schedules logEventOnWorkerQueue(event, true).
  void logEvent(APMEvent event);
  // Any thread. Sets (or, with no value, removes) a user property on the worker queue.
  void setUserAttribute(std::string name, std::optional<APMValue> value, std::string origin,
                        double timestamp);
  // Any thread.
  void addEventListener(EventListener listener);

  APMScheduler& scheduler() { return scheduler_; }
  APMSessionReporter& sessionReporter() { return *sessionReporter_; }
  const APMAppInfo& appInfo() const { return appInfo_; }
  const std::string& databasePath() const { return databasePath_; }

  // ---- worker queue ----
  APMMeasurementSettings& settings() { return settings_; }
  APMPersistedConfig& persistedConfig() { return *persistedConfig_; }
  // The open database, or null when it could not be opened.
  APMDatabase* database() { return database_.get(); }
  APMAlarm& alarm() { return alarm_; }

  // Opens the database, reports the first open or the app and OS updates, updates the
  // schedule. False when the database cannot be opened (nothing is then recorded).
  bool startMeasurementOnWorkerQueue();
  void logEventOnWorkerQueue(const APMEvent& event, bool notifyEventListeners);
  // An event the client makes itself: no listeners hear it.
  void handleInternalEventOnWorkerQueue(const APMEvent& event);
  void handleEventOnWorkerQueue(const APMEvent& event);
  bool writeEventOnWorkerQueue(const APMEvent& event);
  // Runs the configuration's event editing on `event`, writes the result (the event as it was
  // when editing fails) and then the events the programs created, with origin "app".
  bool writeEditedEventOnWorkerQueue(const APMEvent& event, APMPEventEditing& editing);
  bool writeFilteredEventOnWorkerQueue(APMEvent event);
  // The daily limits. Counts the event in `counts` and says whether it is stored.
  bool shouldProcessEvent(const APMEvent& event, APMDailyCounts& counts, bool isPublicEvent);
  // Decides (and marks on `event`) whether the event asks for real-time upload.
  bool isRealtimeEvent(APMEvent& event, APMDailyCounts& counts);
  bool writeEvent(const APMEvent& event, bool isPublicEvent, bool isRealtime);
  bool isEventBlocklisted(const std::string& name) const;
  // For a purchase, refund or in-app purchase with a numeric `value` and a three-letter
  // `currency`: adds the value in micro-units (subtracts for `refund`) to the user property
  // "_ltv_<currency>", keeping only the newest maxTrackedCurrencies such properties.
  void updateLifetimeValueWithEvent(const APMEvent& event);

  // Turns the oldest contiguous run of raw events of one header into a bundle in `queue`, in
  // one transaction. True when rows were consumed (a bundle made, or every event rejected or
  // sampled away); false when there was nothing to do or the transaction failed.
  bool bundleRawEvents();
  // bundleRawEvents until it yields nothing or maxBundlesCreatedPerIteration ran; returns
  // how many ran with a result.
  int bundleRawEventsForUpload();

  // ---- upload (worker queue; defined in upload/APMUpload.cpp) ----
  // The applied server configuration; built when the database opens (the default instance
  // before that).
  APMRemoteConfig& remoteConfig();
  // The experiment client, started when the database opened; null before, or when switched
  // off.
  std::shared_ptr<APMEManager> experimentManager() { return experimentManager_; }
  // A quiet moment: the pending snapshot of the measurement client takes effect, and the
  // settings it covers are applied again.
  void activateNewSnapshotOnWorkerQueue();
  // Works out when the next upload pass runs and arms the one alarm for it, or cancels it
  // (suspended, no data, no time, no network, no host).
  void updateSchedule();
  // When the next pass should run, seconds since 1970; 0 for none.
  double nextUploadingTime();
  // With network and data, uploadData; otherwise updateSchedule.
  void uploadDataOrRegisterAlarm();
  // One pass: stale data, configuration, bundling, one batch posted.
  void uploadData();
  bool hasDataToUpload();
  // The pending flag and the network's own state agree that nothing is in flight.
  bool isNetworkReadyForRequest();
  void setUploadInProgressWithBundleIDs(std::vector<std::int64_t> bundleIDs);
  void networkUploadCompletionHandlerWithResponse(const platform::NetworkResponse& response,
                                                  const std::optional<platform::Error>& error);
  // Adds one to the retry count of the in-flight bundles.
  void incrementRetryCounter();
  bool removeBundlesFromDatabaseWithIDs(const std::vector<std::int64_t>& bundleIDs);
  // The bundles of `bundlesToUpload` whose application id and device identifier match; both
  // identifiers at once are refused ("Bundle filter must not specify both resettableDeviceID
  // and vendorDeviceID") with nothing kept.
  static std::vector<APMQueuedBundle> filteredBundlesWithCompatibleAppID(
      const std::string& appID, const std::string& resettableDeviceID,
      const std::string& vendorDeviceID, std::vector<APMQueuedBundle> bundlesToUpload);
  void fetchRemoteConfig();
  void networkRemoteConfigFetchCompletionHandler(const platform::NetworkResponse& response,
                                                 const std::optional<platform::Error>& error);
  // Any thread. The app leaves the foreground: "App will resign active state. Scheduling
  // data upload", and the schedule is worked out again on the worker queue. (The desktop has
  // no background tasks to open.)
  void handleAppWillResignActiveEvent();
  // Holds uploads for 3600 s from `uptime` (seconds since boot); 0 lifts the hold.
  void setSuspendedUploadTimestamp(double uptime);
  double suspendedUploadTimestamp() const { return suspendedUploadTimestamp_; }
  bool isNetworkRequestPending() const { return networkRequestPending_; }
  const std::vector<std::int64_t>& inFlightBundleIDs() const { return inFlightBundleIDs_; }

  // Sets or removes a user property now (worker queue), with the limits on public
  // properties and per-origin properties. Returns whether the change was stored.
  bool setUserAttributeOnWorkerQueue(const std::string& name, const std::optional<APMValue>& value,
                                     const std::string& origin, double timestamp);

  // Stores the application's personalised-ads setting (none: removed) and applies it.
  void setPersonalizedAdsOnWorkerQueue(std::optional<bool> allowed);
  // Sets `_npa` from the personalised-ads setting, 1 when personalised ads are not allowed;
  // with no setting the information dictionary's default applies; with neither the
  // property is removed.
  void setPersonalizedAdsUserPropertyOnWorkerQueue();

  // The header shared by events logged under these user properties: a bundle without events.
  APMPBMessage<APMPBMeasurementBundle> createRawEventMetadataWithUserAttributes(
      const std::vector<APMUserAttribute>& attributes);

  // Everything a header is made of besides the application's fixed facts, read now: the
  // consent signals, the identifiers that consent allows, the device facts and the user
  // properties. Equal inputs make byte-equal headers.
  struct HeaderInputs {
    std::string consentSignals;
    std::optional<int> trackingStatus;
    std::optional<std::string> advertisingIdentifier;
    // Read only when the resettable identifier does not go in and analytics are allowed.
    std::optional<std::string> vendorIdentifier;
    std::string appInstanceID;
    std::string model;
    std::string osVersion;
    std::string language;
    int timeZoneOffsetSeconds = 0;
    std::vector<APMUserAttribute> attributes;

    bool operator==(const HeaderInputs&) const = default;
  };
  // Reads the inputs of a header now, from the settings, the platform and the persisted
  // configuration (which makes the application instance identifier when there is none).
  HeaderInputs headerInputsWithUserAttributes(std::vector<APMUserAttribute> attributes);
  // The header those inputs make, with the application's fixed facts.
  APMPBMessage<APMPBMeasurementBundle> headerWithInputs(const HeaderInputs& inputs);

  // ---- consent (worker queue; defined in consent/APMConsent.cpp) ----
  // Reads the consent settings into the signal bundles carry, under the configuration's
  // switches (at start, on each change, after a new configuration). At start, also loads the persisted settings (or the information dictionary's
  // defaults) and runs a reset that a withdrawal left for this start.
  void refreshConsentOnWorkerQueue();
  void applyConsentAtStartOnWorkerQueue();
  // Wipes the database and the persisted configuration, forgets the app instance id; the
  // next start reports a new first open. "Analytics data has been reset".
  void resetAnalyticsDataOnWorkerQueue();

  // ---- campaigns (defined in consent/APMConsent.cpp) ----
  // Any thread but the worker queue: a URL that opened the running app, reported on the
  // worker queue with the event time as its click time. Called on the worker queue it says
  // "Do not call handleNonFirstOpenOpenURL on the measurement worker queue" and does nothing
  // (a wait on the worker queue from the worker queue would never end).
  void handleNonFirstOpenEventURL(const std::string& url, double eventTimestampInSeconds);
  // Reports the campaign parameters of `url` as `_cmp` (with `click_timestamp` and
  // `extraParameters`) and keeps the URL in the user property `_ldl`. A URL without campaign
  // parameters reports nothing. A campaign inside the attribution window of a first open
  // already reported came too late to travel with it: its event carries `_cmpx` = 1. With
  // `_cc` = 1 among the parameters, the URL's `sbraid` is kept in the user property `_sbraid`.
  void handleOpenURLOnWorkerQueue(const std::string& url, std::int64_t clickTimestampInMs,
                                  double eventTimestampInSeconds,
                                  const APMParameters& extraParameters);
  // Whether the first open has been reported (`_fot` is set) and `eventTimestampInSeconds` is
  // within attributionCacheTTLInterval after it.
  bool cameTooLateForFirstOpenOnWorkerQueue(double eventTimestampInSeconds);
  // Click identifiers need a device identifier and tracking not refused.
  bool shouldAllowClickID();

  // ---- deferred deep link (defined in consent/APMDeferredDeepLink.cpp) ----
  // Whether to ask the collection host for the link that led to this install: switched on by
  // the configuration and the information dictionary, not yet retrieved, fewer failures than
  // maxDeferredDeepLinkRetryCount (reaching it ends the asking), and an advertising
  // identifier to ask with. Each refusal is logged.
  bool shouldAllowRequestDeferredDeepLink();
  // Asks "<host>/adserve/conversion/app/deeplink?..." once; the answer is handled on the
  // worker queue (a failure counts one retry, for the next start).
  void requestDeferredDeepLink();
  void handleDeferredDeepLinkResponse(const platform::NetworkResponse& response,
                                      const std::optional<platform::Error>& error);

  // Seconds since 1970 on the installed clock.
  static double now();
  // Logs an internal `_err` event with `parameters` (origin "auto").
  void logErrorEventOnWorkerQueue(APMParameters parameters);

 private:
  struct BundleState;

  std::optional<APMEvent> eventAfterSafelistingEvent(const APMEvent& event);
  bool dedupeSubscriptionEvent(const APMEvent& event);
  bool openDatabaseOnWorkerQueue();
  // Builds the remote configuration over the open database; a stored configuration replaces
  // the settings it covers.
  void openRemoteConfigOnWorkerQueue();
  // Writes the applied configuration into the settings and the store's limits.
  void applyRemoteConfigOnWorkerQueue();
  // The application id the configuration is fetched for and must carry.
  std::string configurationAppID() const;
  // Sets up a request's completion to run on the worker queue while the client lives.
  platform::NetworkCompletion workerCompletion(
      void (APMMeasurement::*handler)(const platform::NetworkResponse&,
                                      const std::optional<platform::Error>&));
  // The hold of a failed delete or timestamp write: uploads stop for 3600 s of uptime.
  void suspendUploads(const std::string& message);
  // The collection host, or empty (said once: nothing leaves the computer then).
  std::string measurementHost();
  void reportFirstOpenOnWorkerQueue();
  void reportAppUpdateOnWorkerQueue();
  void reportOSUpdateOnWorkerQueue();
  // The keychain count of previous first opens.
  std::int64_t previousFirstOpenCount();
  void storePreviousFirstOpenCount(std::int64_t count);
  std::optional<std::vector<APMEvent>> processRawEvents(std::vector<APMRawEventData>& rows,
                                                        APMDailyCounts& counts, bool* changed);
  bool evaluationTimeFromRawEvents(const std::vector<APMEvent>& events);
  // With `audience`, each event also runs through the audience filters of `audienceCache`'s
  // pass once its aggregates count it.
  std::optional<std::vector<APMEvent>> eventsAfterUpdatingEventAggregates(
      const std::vector<APMEvent>& events, APMAudience* audience = nullptr,
      APMAudienceTimestampsCache* audienceCache = nullptr);
  std::optional<std::vector<APMPBMessage<APMPBEvent>>> sampleEvents(
      std::vector<APMPBMessage<APMPBEvent>> events, platform::Error* error);
  bool updateAppMetadataForBundle(APMPBMeasurementBundle& bundle, std::int64_t startMillis,
                                  std::int64_t endMillis);
  void addBundleMetadataIntoBundle(APMPBMeasurementBundle& bundle, std::int64_t startMillis,
                                   std::int64_t endMillis);
  bool addToUserPropertyNumber(const std::string& name, std::int64_t delta, double timestamp);
  std::uint32_t uniformRandom(std::uint32_t upperBound);

  APMAppInfo appInfo_;
  APMMeasurementSettings settings_;
  std::string databasePath_;
  std::shared_ptr<APMPersistedConfig> persistedConfig_;
  APMScheduler scheduler_;
  APMAlarm alarm_;
  std::unique_ptr<APMDatabase> database_;
  std::unique_ptr<APMSessionReporter> sessionReporter_;
  // Upload state (worker queue).
  std::unique_ptr<APMRemoteConfig> remoteConfig_;
  bool experimentsEnabled_ = true;
  std::shared_ptr<APMEManager> experimentManager_;
  bool networkRequestPending_ = false;
  std::vector<std::int64_t> inFlightBundleIDs_;
  double suspendedUploadTimestamp_ = 0;
  // The newest raw event's time and whether any raw event is real-time, kept up to date as
  // events are written so that scheduling after each event reads no table; dropped whenever
  // rows leave raw_events in bulk (bundling, stale deletion) and read again when needed.
  struct RawEventFacts {
    bool valid = false;
    double newest = 0;
    bool realtime = false;
  };
  RawEventFacts rawEventFacts_;
  // The facts of raw_events, read from the table when not known.
  const RawEventFacts& rawEventFacts();
  void noteRawEventWritten(double timestamp, bool realtime);
  bool reportedNoHost_ = false;
  // The last header an event was written with: while the inputs stay equal, the next event
  // shares its bytes and fingerprint without encoding and hashing them again.
  struct WrittenHeader {
    HeaderInputs inputs;
    kit::Data bytes;
    std::int64_t fingerprint = 0;
  };
  std::optional<WrittenHeader> lastHeader_;
  // Completions hold this weakly: a torn-down client ignores them.
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);
  std::mutex listenersMu_;
  std::vector<EventListener> listeners_;
  double loadTime_ = 0;
};
