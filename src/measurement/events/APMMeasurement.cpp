#include "measurement/events/APMMeasurement.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <limits>
#include <mutex>
#include <set>

#include "kit/Date.h"
#include "measurement/runtime/APMPEventEditing.h"
#include "measurement/APMMonitor.h"
#include "measurement/consent/APMLaunchContext.h"
#include "measurement/events/APMEventNames.h"
#include "measurement/events/APMParameterCleaning.h"
#include "platform/Platform.h"

namespace {

// Message codes of the event pipeline.
enum : int {
  kCodeDisabled = 5001,
  kCodeNotInAllowlist = 5002,
  kCodeDuplicateSubscription = 5003,
  kCodeSubscriptionsTrimmed = 5004,
  kCodeLoggingEvent = 5005,
  kCodeRejectedEvent = 5006,
  kCodeTooManyEvents = 5007,
  kCodeTooManyErrorEvents = 5008,
  kCodeTooManyPublicEvents = 5009,
  kCodeNoLongerRealtime = 5010,
  kCodeDebugMode = 5011,
  kCodeCannotQueryUserProperties = 5012,
  kCodeEventNameLimit = 5013,
  kCodeCannotRecordMetadata = 5014,
  kCodeTooManyStored = 5015,
  kCodeStorageLimitCheck = 5016,
  kCodeCannotRecordAggregates = 5017,
  kCodeCannotRecordRawEvent = 5018,
  kCodeEventLogged = 5019,
  kCodeCountsFailed = 5020,
  kCodeDatabaseOpen = 5021,
  kCodeCollectionDisabled = 5022,
  kCodeKeychain = 5023,
  kCodeAdNetworkOptOut = 5024,
  kCodeUserPropertyLimit = 5025,
  kCodeUserPropertyFailed = 5026,
  kCodeInconsistentState = 6001,
  kCodeMetadataFetch = 6002,
  kCodeRejectedAll = 6003,
  kCodeTooManyConversions = 6004,
  kCodeNoEngagementTime = 6005,
  kCodeNoEventsAfterSampling = 6006,
  kCodeBundleInsert = 6007,
  kCodeBundleAdded = 6008,
  kCodeSamplingNoName = 6009,
  kCodeInvalidSamplingRate = 6010,
  kCodeSamplingAggregates = 6011,
  kCodeBundleQuery = 6012,
  kCodeIndexOverflow = 6013,
  kCodeLifetimeOverflow = 6014,
  kCodeLifetimeValue = 5027,
  kCodeEventEditingFailed = 5028,
  kCodePersonalizedAdsUnset = 5029,
};

constexpr const char* kKeychainService = "com.stuvop.app.measurement";
constexpr const char* kPreviousFirstOpenAccount = "_pfo";
constexpr double kHourMillis = 3600000.0;

std::mutex gSharedMu;
std::shared_ptr<APMMeasurement>& sharedSlot() {
  static std::shared_ptr<APMMeasurement> slot;
  return slot;
}

// mkdir -p with mode 0700 for every folder made.
void makePrivateDirectories(const std::string& path) {
  std::string partial;
  std::size_t pos = 0;
  while (pos != std::string::npos) {
    pos = path.find('/', pos + 1);
    partial = path.substr(0, pos);
    if (partial.empty()) continue;
    if (::mkdir(partial.c_str(), 0700) == 0) ::chmod(partial.c_str(), 0700);
  }
}

std::string parentOf(const std::string& path) {
  std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

// Increments a stored 32-bit counter; past the maximum it wraps to 0 with `message`.
std::int32_t incremented(std::int32_t value, const char* message) {
  if (value == std::numeric_limits<std::int32_t>::max()) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeLifetimeOverflow, message);
    return 0;
  }
  return value + 1;
}

std::int64_t incremented64(std::int64_t value, const char* message) {
  if (value >= std::numeric_limits<std::int32_t>::max()) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeLifetimeOverflow, message);
    return 0;
  }
  return value + 1;
}

// Logs a limit message when the number of events over the limit is a positive multiple
// of 1000.
bool shouldLogExcess(std::int64_t count, std::int64_t limit) {
  std::int64_t excess = count - limit;
  return excess > 0 && excess % 1000 == 0;
}

const std::set<std::string>& fixedConversions() {
  static const std::set<std::string> names{"ecommerce_purchase", "_f", "_iap", "purchase",
                                           "refund"};
  return names;
}

void fillUserAttribute(APMPBUserAttribute& out, const APMUserAttribute& attribute) {
  out.has_set_timestamp_millis = true;
  out.set_timestamp_millis = APMMilliseconds(attribute.lastSetTimestamp);
  APMPBSetString(&out.name, attribute.name);
  const APMValue& value = attribute.value;
  if (value.isString()) {
    APMPBSetString(&out.string_value, value.stringValue());
  } else if (value.isInt64()) {
    out.has_int_value = true;
    out.int_value = value.int64Value();
  } else if (value.isDouble()) {
    out.has_double_value = true;
    out.double_value = value.doubleValue();
  }
}

}  // namespace

// ---- construction and the shared instance ----

APMMeasurement::APMMeasurement(APMMeasurementOptions options)
    : appInfo_(std::move(options.appInfo)),
      settings_(std::move(options.settings)),
      databasePath_(std::move(options.databasePath)),
      persistedConfig_(std::move(options.persistedConfig)),
      alarm_(scheduler_.queue(), "Measurement timer"),
      experimentsEnabled_(options.experimentsEnabled) {
  if (!persistedConfig_) {
    persistedConfig_ = std::make_shared<APMPersistedConfig>(platform::services().preferences);
  }
  if (databasePath_.empty()) {
    databasePath_ = APMDatabase::databasePathWithName(APMDatabase::kDatabaseName);
  }
  sessionReporter_ = std::make_unique<APMSessionReporter>(*this);
}

APMMeasurement::~APMMeasurement() = default;

std::shared_ptr<APMMeasurement> APMMeasurement::sharedInstance() {
  std::lock_guard lock(gSharedMu);
  return sharedSlot();
}

void APMMeasurement::setSharedInstance(std::shared_ptr<APMMeasurement> measurement) {
  std::lock_guard lock(gSharedMu);
  sharedSlot() = std::move(measurement);
}

double APMMeasurement::now() { return kit::Date::now().timeIntervalSince1970; }

void APMMeasurement::start() {
  scheduler_.scheduleOnWorkerQueueBlockID("APMMeasurement:start",
                                          [this] { startMeasurementOnWorkerQueue(); });
}

void APMMeasurement::logEvent(APMEvent event) {
  scheduler_.scheduleOnWorkerQueueBlockID(
      "APMMeasurement:logEvent",
      [this, event = std::move(event)] { logEventOnWorkerQueue(event, true); });
}

void APMMeasurement::setUserAttribute(std::string name, std::optional<APMValue> value,
                                      std::string origin, double timestamp) {
  scheduler_.scheduleOnWorkerQueueBlockID(
      "APMMeasurement:setUserAttribute",
      [this, name = std::move(name), value = std::move(value), origin = std::move(origin),
       timestamp] {
        setUserAttributeOnWorkerQueue(name, value, origin, timestamp);
        updateSchedule();
      });
}

void APMMeasurement::addEventListener(EventListener listener) {
  std::lock_guard lock(listenersMu_);
  listeners_.push_back(std::move(listener));
}

// ---- start ----

bool APMMeasurement::openDatabaseOnWorkerQueue() {
  if (database_) return true;
  makePrivateDirectories(parentOf(databasePath_));
  platform::Error error;
  database_ = APMDatabase::initWithDatabasePath(databasePath_, persistedConfig_, &error);
  if (!database_) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeDatabaseOpen, "Failed to initialize database",
                    error.localizedDescription);
    return false;
  }
  openRemoteConfigOnWorkerQueue();
  return true;
}

bool APMMeasurement::startMeasurementOnWorkerQueue() {
  scheduler_.checkOnBackgroundThreadWithMethodName("startMeasurementOnWorkerQueue");
  loadTime_ = now();
  if (!openDatabaseOnWorkerQueue()) return false;
  applyConsentAtStartOnWorkerQueue();
  setPersonalizedAdsUserPropertyOnWorkerQueue();
  if (!settings_.analyticsEnabled) {
    APMMonitor::log(kAPMMonitorLevelNotice, kCodeCollectionDisabled,
                    "Analytics collection disabled");
    return true;
  }
  platform::Error error;
  auto firstOpen = database_->containsUserAttributeWithName("_fot", &error);
  if (firstOpen && !*firstOpen) {
    reportFirstOpenOnWorkerQueue();
  } else {
    reportAppUpdateOnWorkerQueue();
    reportOSUpdateOnWorkerQueue();
  }
  persistedConfig_->setLastAppVersion(appInfo_.appVersion);
  persistedConfig_->setLastOSVersion(platform::deviceFacts().facts().osVersion);
  updateSchedule();
  return true;
}

std::int64_t APMMeasurement::previousFirstOpenCount() {
  platform::Error error;
  auto stored = platform::keychain().stringForKey(kKeychainService, kPreviousFirstOpenAccount,
                                                  &error);
  if (!stored && !error.localizedDescription.empty()) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeKeychain,
                    "Failed to read previous first open count from keychain. Error",
                    error.localizedDescription);
  }
  return stored ? std::strtoll(stored->c_str(), nullptr, 10) : 0;
}

void APMMeasurement::storePreviousFirstOpenCount(std::int64_t count) {
  platform::Error error;
  if (!platform::keychain().setString(std::to_string(count), kKeychainService,
                                      kPreviousFirstOpenAccount, &error)) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeKeychain,
                    "Failed to store previous first open count in keychain. Error",
                    error.localizedDescription);
  }
}

void APMMeasurement::reportFirstOpenOnWorkerQueue() {
  std::int64_t previous = previousFirstOpenCount();
  // timestampMillisRoundedUpToNextHour: the next multiple of an hour.
  double loadMillis = std::floor(loadTime_ * 1000.0);
  auto firstOpenMillis =
      static_cast<std::int64_t>((std::floor(loadMillis / kHourMillis) + 1) * kHourMillis);
  setUserAttributeOnWorkerQueue("_fi", APMValue::fromInt64(1), "auto", loadTime_);
  setUserAttributeOnWorkerQueue("_fot", APMValue::fromInt64(firstOpenMillis), "auto", loadTime_);
  APMParameters parameters{{"_psmp", APMValue::fromInt64(0)},
                           {"_pfo", APMValue::fromInt64(previous)},
                           {"_uwa", APMValue::fromInt64(0)},
                           {"_dac", APMValue::fromInt64(1)},
                           {"_et", APMValue::fromInt64(1)}};
  auto firstOpen = APMEvent::create("auto", "_f", loadTime_, 0, std::move(parameters));
  if (!firstOpen) return;
  handleInternalEventOnWorkerQueue(*firstOpen);
  if (auto start = sessionReporter_->startNewSession()) handleInternalEventOnWorkerQueue(*start);
  if (auto engagement = APMEvent::create(
          "auto", "_e", loadTime_, 0,
          {{"_et", APMValue::fromInt64(1)}, {"_fr", APMValue::fromInt64(1)}})) {
    handleInternalEventOnWorkerQueue(*engagement);
  }
  if (!settings_.registrationWithAdNetworkEnabled) {
    APMMonitor::log(kAPMMonitorLevelNotice, kCodeAdNetworkOptOut,
                    "Opted out of registration for ad network attribution");
  }
}

void APMMeasurement::reportAppUpdateOnWorkerQueue() {
  std::string previous = persistedConfig_->lastAppVersion();
  if (previous.empty() || previous == appInfo_.appVersion) return;
  if (auto update = APMEvent::create("auto", "_au", now(), 0,
                                     {{"_pv", APMValue::fromString(previous)}})) {
    handleInternalEventOnWorkerQueue(*update);
  }
}

void APMMeasurement::reportOSUpdateOnWorkerQueue() {
  std::string previous = persistedConfig_->lastOSVersion();
  std::string current = platform::deviceFacts().facts().osVersion;
  if (previous.empty() || previous == current) return;
  if (auto update = APMEvent::create("auto", "_ou", now(), 0,
                                     {{"_po", APMValue::fromString(previous)}})) {
    handleInternalEventOnWorkerQueue(*update);
  }
}

// ---- the write path ----

void APMMeasurement::logEventOnWorkerQueue(const APMEvent& event, bool notifyEventListeners) {
  scheduler_.checkOnBackgroundThreadWithMethodName("logEventOnWorkerQueue:notifyEventListeners:");
  if (notifyEventListeners) {
    std::vector<EventListener> listeners;
    {
      std::lock_guard lock(listenersMu_);
      listeners = listeners_;
    }
    for (const EventListener& listener : listeners) listener(event);
  }
  handleEventOnWorkerQueue(event);
}

void APMMeasurement::handleInternalEventOnWorkerQueue(const APMEvent& event) {
  handleEventOnWorkerQueue(event);
}

void APMMeasurement::logErrorEventOnWorkerQueue(APMParameters parameters) {
  auto error = APMEvent::create("auto", "_err", now(), 0, std::move(parameters));
  if (!error) return;
  // Never inside the caller's transaction: the error event takes its own turn.
  scheduler_.scheduleOnWorkerQueueBlockID(
      "APMMeasurement:errorEvent",
      [this, error = std::move(*error)] { handleInternalEventOnWorkerQueue(error); });
}

std::optional<APMEvent> APMMeasurement::eventAfterSafelistingEvent(const APMEvent& event) {
  const auto& safelist = settings_.safelistedEvents;
  if (safelist.empty()) return event;
  if (std::find(safelist.begin(), safelist.end(), event.name()) == safelist.end()) {
    APMMonitor::log(kAPMMonitorLevelNotice, kCodeNotInAllowlist,
                    "Event dropped. Reason: not in allowlist. Event name, origin", event.name(),
                    event.origin());
    return std::nullopt;
  }
  APMEvent copy = event;
  copy.setParameter("sa_safelisted", APMValue::fromInt64(1));
  return copy;
}

bool APMMeasurement::dedupeSubscriptionEvent(const APMEvent& event) {
  const APMValue* subscription = event.parameter("_did");
  const APMValue* product = event.parameter("product_id");
  if (!subscription || !product || !database_) return true;
  std::string id = APMDescribeValue(*subscription);
  platform::Error error;
  if (!database_->insertIfNotDuplicateSubscriptionID(id, &error)) {
    if (!error.localizedDescription.empty()) return true;  // a failed check keeps the event
    APMMonitor::log(kAPMMonitorLevelNotice, kCodeDuplicateSubscription,
                    "Event dropped. Reason: Subscription purchase is a duplicate. Product ID",
                    product->isString() ? product->stringValue() : "");
    return false;
  }
  auto deleted = database_->deleteSubscriptionsOverLimit(APMDatabase::kSubscriptionsLimit, &error);
  if (deleted && *deleted > 0) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeSubscriptionsTrimmed,
                    "Deleted older subscription records beyond limit", *deleted);
  }
  return true;
}

void APMMeasurement::handleEventOnWorkerQueue(const APMEvent& incoming) {
  scheduler_.checkOnBackgroundThreadWithMethodName("handleEventOnWorkerQueue:");
  if (!settings_.analyticsEnabled) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeDisabled, "Analytics is disabled. Event not logged");
    return;
  }
  if (!openDatabaseOnWorkerQueue()) return;
  // Without a safelist the event goes on as it came, uncopied.
  std::optional<APMEvent> safelisted;
  const APMEvent* event = &incoming;
  if (!settings_.safelistedEvents.empty()) {
    safelisted = eventAfterSafelistingEvent(incoming);
    if (!safelisted) return;
    event = &*safelisted;
  }
  std::optional<APMEvent> sessionStart = sessionReporter_->processSessionFromEvent(*event);
  if (!dedupeSubscriptionEvent(*event)) return;
  writeEventOnWorkerQueue(*event);
  if (sessionStart) writeEventOnWorkerQueue(*sessionStart);
  updateSchedule();
}

bool APMMeasurement::isEventBlocklisted(const std::string& name) const {
  if (const APMEventConfig* config = settings_.eventConfig(name)) {
    if (config->blocked) return true;
  }
  bool isPublic = name.empty() || name[0] != '_';
  return isPublic ? settings_.blocklistPublic : settings_.blocklistInternal;
}

bool APMMeasurement::writeEventOnWorkerQueue(const APMEvent& event) {
  scheduler_.checkOnBackgroundThreadWithMethodName("writeEventOnWorkerQueue:");
  if (APMMonitor::isLoggable(kAPMMonitorLevelDebug)) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeLoggingEvent,
                    "Logging event: origin, name, params", event.origin(), event.name(),
                    APMDescribeParameters(event.parameters()));
  }
  if (isEventBlocklisted(event.name())) {
    APMMonitor::log(kAPMMonitorLevelNotice, kCodeRejectedEvent, "Rejected event. Event name",
                    event.name());
    return false;
  }
  if (settings_.eesFeatureEnabled && settings_.eventEditing) {
    return writeEditedEventOnWorkerQueue(event, *settings_.eventEditing);
  }
  return writeFilteredEventOnWorkerQueue(event);
}

bool APMMeasurement::writeEditedEventOnWorkerQueue(const APMEvent& event, APMPEventEditing& editing) {
  APMPEvent input{event.name(), event.timestamp(), event.parameters()};
  platform::Error error;
  if (!editing.handleEvent(input, &error)) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeEventEditingFailed, "Event editing failed. Event name",
                    event.name(), error.localizedDescription);
    return writeFilteredEventOnWorkerQueue(event);
  }
  std::optional<APMEvent> edited;
  if (editing.hasEdits()) {
    const APMPEvent& out = editing.eventContext().outputEvent();
    edited = APMEvent::create(event.origin(), out.name, out.timestamp, event.previousTimestamp(),
                              out.parameters);
  }
  // Created events are taken before the write: they go the same road, without editing again.
  std::vector<APMPEvent> created = editing.eventContext().eventsToLog();
  bool written = writeFilteredEventOnWorkerQueue(edited ? *edited : event);
  for (const APMPEvent& e : created) {
    auto made = APMEvent::create("app", e.name, e.timestamp, 0, e.parameters);
    if (!made || isEventBlocklisted(made->name())) continue;
    writeFilteredEventOnWorkerQueue(*made);
  }
  return written;
}

bool APMMeasurement::writeFilteredEventOnWorkerQueue(APMEvent event) {
  if (fixedConversions().count(event.name()) || settings_.isEventCustomConversion(event.name())) {
    event.setConversion(true);
  }
  bool isPublic = event.isPublic();
  platform::Error error;
  bool written = false;
  bool ok = database_->performTransaction(
      [&] {
        updateLifetimeValueWithEvent(event);
        auto counts = database_->dailyCounts(&error);
        if (!counts) {
          APMMonitor::log(kAPMMonitorLevelError, kCodeCountsFailed,
                          "Data loss. Failed to read daily counts. Error",
                          error.localizedDescription);
          return false;
        }
        bool process = shouldProcessEvent(event, *counts, isPublic);
        bool realtime = isRealtimeEvent(event, *counts);
        if (!database_->updateDailyCounts(*counts, &error)) {
          APMMonitor::log(kAPMMonitorLevelError, kCodeCountsFailed,
                          "Data loss. Failed to update daily counts. Error",
                          error.localizedDescription);
          return false;
        }
        if (!process) return true;
        written = writeEvent(event, isPublic, realtime);
        return written;
      },
      &error);
  return ok && written;
}

bool APMMeasurement::shouldProcessEvent(const APMEvent& event, APMDailyCounts& counts,
                                        bool isPublicEvent) {
  if (counts.allEventsCount >= settings_.maxEventsPerDay) {
    if (shouldLogExcess(counts.allEventsCount, settings_.maxEventsPerDay)) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeTooManyEvents,
                      "Data loss. Too many events logged. Name, limit", event.name(),
                      settings_.maxEventsPerDay);
    }
    counts.allEventsCount = incremented(counts.allEventsCount, "Daily count overflow. Count reset to 0.");
    return false;
  }
  counts.allEventsCount = incremented(counts.allEventsCount, "Daily count overflow. Count reset to 0.");
  if (event.name() == "_err") {
    bool over = counts.errorEventsCount >= settings_.maxErrorEventsPerDay;
    if (over && shouldLogExcess(counts.errorEventsCount, settings_.maxErrorEventsPerDay)) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeTooManyErrorEvents,
                      "Too many error events logged. Error code, limit",
                      event.integerParameter("_err").value_or(0), settings_.maxErrorEventsPerDay);
    }
    counts.errorEventsCount = incremented(counts.errorEventsCount, "Daily count overflow. Count reset to 0.");
    if (over) {
      --counts.allEventsCount;
      return false;
    }
  }
  if (isPublicEvent) {
    bool over = counts.publicEventsCount >= settings_.maxPublicEventsPerDay;
    if (over) {
      if (shouldLogExcess(counts.publicEventsCount, settings_.maxPublicEventsPerDay)) {
        APMMonitor::log(kAPMMonitorLevelWarning, kCodeTooManyPublicEvents,
                        "Data loss. Too many public events logged. Name, limit", event.name(),
                        settings_.maxPublicEventsPerDay);
      }
      logErrorEventOnWorkerQueue(APMErrorParameters(APMEventErrorCode::PublicEventLimitReached,
                                                    event.name(), 40));
    }
    counts.publicEventsCount = incremented(counts.publicEventsCount, "Daily count overflow. Count reset to 0.");
    if (over) {
      --counts.allEventsCount;
      return false;
    }
  }
  return true;
}

bool APMMeasurement::isRealtimeEvent(APMEvent& event, APMDailyCounts& counts) {
  if (settings_.debugMode) {
    event.setRealtime(true);
    event.setDebug(true);
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeDebugMode,
                    "Debug mode is enabled. Marking event as debug and real-time. Event name, "
                    "parameters",
                    event.name(), APMDescribeParameters(event.parameters()));
    return true;
  }
  if (!event.isConversion() && !event.isRealtime()) return false;
  const std::string& name = event.name();
  if (name == "_iap" || name == "_f" || name == "_fx") return true;
  if (counts.realtimeCount >= settings_.maxRealtimeEventCountPerDay) {
    event.setRealtime(false);
    APMMonitor::log(kAPMMonitorLevelNotice, kCodeNoLongerRealtime,
                    "Too many real-time events. Event is no longer real-time. Event name, "
                    "parameters",
                    name, APMDescribeParameters(event.parameters()));
    return false;
  }
  counts.realtimeCount = incremented(counts.realtimeCount, "Daily count overflow. Count reset to 0.");
  return true;
}

APMPBMessage<APMPBMeasurementBundle> APMMeasurement::createRawEventMetadataWithUserAttributes(
    const std::vector<APMUserAttribute>& attributes) {
  return headerWithInputs(headerInputsWithUserAttributes(attributes));
}

APMMeasurement::HeaderInputs APMMeasurement::headerInputsWithUserAttributes(
    std::vector<APMUserAttribute> attributes) {
  HeaderInputs inputs;
  inputs.consentSignals = settings_.consentSignals;
  platform::AdvertisingIdentity& identity = platform::advertisingIdentity();
  inputs.trackingStatus = identity.trackingAuthorizationStatus();
  APMConsentVerdict consent = APMConsentVerdictOf(inputs.consentSignals);
  inputs.advertisingIdentifier = identity.advertisingIdentifier();
  const std::optional<int>& tracking = inputs.trackingStatus;
  const std::optional<std::string>& resettable = inputs.advertisingIdentifier;
  bool trackingAllowed = !tracking || *tracking == platform::kTrackingAuthorized;
  bool useResettable = resettable && !resettable->empty() && !consent.adsDenied && trackingAllowed;
  if (!useResettable && !consent.analyticsDenied) {
    inputs.vendorIdentifier = identity.identifierForVendor();
  }
  inputs.appInstanceID = APMAppInstanceID(*persistedConfig_);
  platform::DeviceFactsSnapshot facts = platform::deviceFacts().facts();
  inputs.model = std::move(facts.model);
  inputs.osVersion = std::move(facts.osVersion);
  inputs.language = std::move(facts.language);
  inputs.timeZoneOffsetSeconds = facts.timeZoneOffsetSeconds;
  inputs.attributes = std::move(attributes);
  return inputs;
}

APMPBMessage<APMPBMeasurementBundle> APMMeasurement::headerWithInputs(const HeaderInputs& inputs) {
  APMPBMessage<APMPBMeasurementBundle> header;
  APMPBMeasurementBundle& b = *header;
  b.has_protocol_version = true;
  b.protocol_version = 1;
  APMPBSetString(&b.platform, "ios");
  APMPBSetString(&b.install_source, appInfo_.installSource);
  APMPBSetString(&b.app_id, appInfo_.appID.empty() ? appInfo_.bundleIdentifier : appInfo_.appID);
  APMPBSetString(&b.app_version, appInfo_.appVersion);
  b.has_stored_library_version = true;
  b.stored_library_version = kAPMLibraryVersion;
  if (!appInfo_.stuvopAppID.empty()) {
    APMPBSetString(&b.stuvop_app_id, appInfo_.stuvopAppID);
  } else if (!appInfo_.adnetAppID.empty()) {
    APMPBSetString(&b.adnet_app_id, appInfo_.adnetAppID);
  }
  if (!appInfo_.installationID.empty()) APMPBSetString(&b.installation_id, appInfo_.installationID);
  APMVersionParts version = APMParseVersion(appInfo_.appVersion);
  b.has_app_version_major = b.has_app_version_minor = b.has_app_version_release = true;
  b.app_version_major = version.major;
  b.app_version_minor = version.minor;
  b.app_version_release = version.release;
  if (!inputs.consentSignals.empty()) {
    APMPBSetString(&b.consent_signals, inputs.consentSignals);
  }
  const std::optional<int>& tracking = inputs.trackingStatus;
  if (tracking && *tracking != 6) {
    b.has_tracking_authorization_status = true;
    b.tracking_authorization_status = static_cast<std::uint32_t>(*tracking);
  }
  // The device identifier that consent allows.
  APMConsentVerdict consent = APMConsentVerdictOf(inputs.consentSignals);
  const std::optional<std::string>& resettable = inputs.advertisingIdentifier;
  bool trackingAllowed = !tracking || *tracking == platform::kTrackingAuthorized;
  bool useResettable = resettable && !resettable->empty() && !consent.adsDenied && trackingAllowed;
  if (useResettable) {
    APMPBSetString(&b.resettable_device_id, *resettable);
  } else if (!consent.analyticsDenied && inputs.vendorIdentifier) {
    APMPBSetString(&b.vendor_device_id, *inputs.vendorIdentifier);
  }
  if (!inputs.appInstanceID.empty()) APMPBSetString(&b.app_instance_id, inputs.appInstanceID);
  b.has_limited_ad_tracking = true;
  b.limited_ad_tracking = !useResettable;
  if (consent.analyticsDenied) {
    APMPBClearString(&b.resettable_device_id);
    APMPBClearString(&b.app_instance_id);
    APMPBClearString(&b.vendor_device_id);
  }
  APMPBSetString(&b.device_model, inputs.model);
  APMPBSetString(&b.os_version, inputs.osVersion);
  b.has_time_zone_offset_minutes = true;
  b.time_zone_offset_minutes = inputs.timeZoneOffsetSeconds / 60;
  APMPBSetString(&b.user_language, inputs.language);
  for (const APMUserAttribute& attribute : inputs.attributes) {
    fillUserAttribute(APMPBAppend(&b.user_properties, &b.user_properties_count), attribute);
  }
  return header;
}

bool APMMeasurement::writeEvent(const APMEvent& event, bool isPublicEvent, bool isRealtime) {
  platform::Error error;
  auto aggregates = database_->queryEventAggregatesWithName(event.name(), &error);
  if (!aggregates) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeCannotRecordAggregates,
                    "Data loss. Cannot record event aggregates. Error", error.localizedDescription);
    return false;
  }
  auto attributes = database_->queryAllUserAttributes(&error);
  if (!attributes) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeCannotQueryUserProperties,
                    "Data loss. Cannot query user properties. Error", error.localizedDescription);
    return false;
  }
  bool newName = !aggregates->has_value();
  if (newName && isPublicEvent) {
    auto count = database_->countPublicEventNames(&error);
    if (!count) return false;
    if (*count >= settings_.maxEventNameCardinality) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeEventNameLimit,
                      "Cannot set event. Reached limit on set events. Name", event.name());
      logErrorEventOnWorkerQueue(
          APMErrorParameters(APMEventErrorCode::EventLimitReached, event.name(), 40));
      // Not stored, and nothing to roll back: the day's counts stand.
      return true;
    }
  }
  HeaderInputs inputs = headerInputsWithUserAttributes(std::move(*attributes));
  if (!lastHeader_ || !(lastHeader_->inputs == inputs)) {
    lastHeader_.reset();
    auto headerBytes = headerWithInputs(inputs).protoBuffer(&error);
    if (!headerBytes) return false;
    std::int64_t fingerprint = apm_64LSBMD5(*headerBytes);
    lastHeader_ = WrittenHeader{std::move(inputs), std::move(*headerBytes), fingerprint};
  }
  const kit::Data& headerBytes = lastHeader_->bytes;
  std::int64_t fingerprint = lastHeader_->fingerprint;
  if (!database_->insertIfNotExistsRawEventMetadata(fingerprint, headerBytes, &error)) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeCannotRecordMetadata,
                    "Data loss. Cannot record event metadata. Error", error.localizedDescription);
    return false;
  }
  // The cap deletes nothing while the span of row ids fits under it (the count can only be
  // smaller than the span); the span takes two index lookups, the cap a walk of the table.
  auto span = database_->rawEventsRowIDSpan(&error);
  std::optional<std::int64_t> deleted = std::int64_t{0};
  if (!span || *span > settings_.maxEventsStored - 1) {
    deleted = database_->deleteRawEventsOverAbsoluteLimit(settings_.maxEventsStored, &error);
  }
  if (!deleted) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeStorageLimitCheck,
                    "Data loss. Unable to check raw event storage limit. Error",
                    error.localizedDescription);
    return false;
  }
  if (*deleted > 0) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeTooManyStored,
                    "Data loss. Too many events stored on disk. Deleted count", *deleted);
  }
  if (newName) {
    auto fresh = APMEventAggregates::create(event.name(), 0, 0, 0, 0);
    if (!fresh || !database_->updateEventAggregates(*fresh, &error)) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeCannotRecordAggregates,
                      "Data loss. Cannot record event aggregates. Error",
                      error.localizedDescription);
      return false;
    }
  }
  kit::Data data;
  std::int64_t timestampMillis = APMMilliseconds(event.timestamp());
  if (!event.encodeWithoutName(&data, &error) ||
      // The name column holds what the message would: the text up to any NUL.
      !database_->insertRawEvent(event.name().c_str(), timestampMillis, std::move(data),
                                 fingerprint, isRealtime, &error)) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeCannotRecordRawEvent,
                    "Data loss. Cannot record raw event. Error", error.localizedDescription);
    return false;
  }
  noteRawEventWritten(static_cast<double>(timestampMillis) / 1000.0, isRealtime);
  if (event.name() == "_f") storePreviousFirstOpenCount(previousFirstOpenCount() + 1);
  if (APMMonitor::isLoggable(kAPMMonitorLevelDebug)) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeEventLogged,
                    "Event logged. Event name, event params", event.name(),
                    APMDescribeParameters(event.parameters()));
  }
  return true;
}

// ---- lifetime value ----

void APMMeasurement::updateLifetimeValueWithEvent(const APMEvent& event) {
  static const std::set<std::string> kTransactions{"ecommerce_purchase", "purchase", "refund",
                                                   "_iap"};
  if (!kTransactions.count(event.name())) return;
  const APMValue* currency = event.parameter("currency");
  const APMValue* value = event.parameter("value");
  if (!value) return;
  bool letters = currency && currency->isString() && currency->stringValue().size() == 3 &&
                 std::all_of(currency->stringValue().begin(), currency->stringValue().end(),
                             [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); });
  if (!letters) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeLifetimeValue,
                    "Cannot record transaction with invalid currency code");
    return;
  }
  double amount;
  if (value->isInt64()) {
    amount = static_cast<double>(value->int64Value());
  } else if (value->isDouble() && std::isfinite(value->doubleValue())) {
    amount = value->doubleValue();
  } else {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeLifetimeValue,
                    "Cannot record transaction with invalid transaction value");
    return;
  }
  double micros = std::round(amount * 1000000.0);
  if (!(std::fabs(micros) < 9.2e18)) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeLifetimeValue,
                    "Cannot record transaction with value that is out of bounds");
    return;
  }
  auto delta = static_cast<std::int64_t>(micros);
  if (event.name() == "refund") delta = -delta;
  std::string name = "_ltv_" + currency->stringValue();
  if (!addToUserPropertyNumber(name, delta, event.timestamp())) return;
  platform::Error error;
  auto all = database_->queryUserAttributesWithNamePrefix("_ltv_", &error);
  if (!all) return;
  for (std::size_t i = static_cast<std::size_t>(std::max<std::int64_t>(settings_.maxTrackedCurrencies, 0));
       i < all->size(); ++i) {
    if (!database_->deleteUserAttributeWithName((*all)[i].name, &error)) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeLifetimeValue,
                      "Unable to delete Lifetime Value User property. Name, error",
                      (*all)[i].name, error.localizedDescription);
    }
  }
}

// ---- user properties ----

bool APMMeasurement::setUserAttributeOnWorkerQueue(const std::string& name,
                                                   const std::optional<APMValue>& value,
                                                   const std::string& origin, double timestamp) {
  if (!openDatabaseOnWorkerQueue()) return false;
  platform::Error error;
  if (!value) {
    if (database_->deleteUserAttributeWithName(name, &error)) return true;
    APMMonitor::log(kAPMMonitorLevelError, kCodeUserPropertyFailed,
                    "Unable to remove user property. Name, error", name,
                    error.localizedDescription);
    return false;
  }
  APMUserAttribute attribute{origin, name, *value, timestamp};
  auto exists = database_->containsUserAttributeWithName(name, &error);
  if (!exists) return false;
  if (!*exists) {
    if (attribute.isPublic()) {
      auto count = database_->countPublicUserAttributes(&error);
      if (count && *count >= settings_.maxPublicUserProperties) {
        APMMonitor::log(kAPMMonitorLevelWarning, kCodeUserPropertyLimit,
                        "Too many user properties are set. Ignoring user property. Name", name);
        logErrorEventOnWorkerQueue(
            APMErrorParameters(APMEventErrorCode::UserPropertyLimitReached, name, 24));
        return false;
      }
    } else if (origin != "app" && origin != "auto") {
      auto count = database_->countUserAttributesWithOrigin(origin, &error);
      if (count && *count >= settings_.maxUserPropertiesPerOrigin) {
        APMMonitor::log(kAPMMonitorLevelWarning, kCodeUserPropertyLimit,
                        "Too many user properties are set for origin. Origin, name", origin,
                        name);
        return false;
      }
    }
  }
  if (!database_->updateUserAttribute(attribute, &error)) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeUserPropertyFailed,
                    "Unable to set user property. Name, error", name, error.localizedDescription);
    return false;
  }
  return true;
}

bool APMMeasurement::addToUserPropertyNumber(const std::string& name, std::int64_t delta,
                                             double timestamp) {
  platform::Error error;
  auto current = database_->queryUserAttributeWithName(name, &error);
  if (!current) return false;
  std::int64_t base = 0;
  if (*current && (*current)->value.isInt64()) base = (*current)->value.int64Value();
  APMUserAttribute attribute{"auto", name, APMValue::fromInt64(base + delta), timestamp};
  return database_->updateUserAttribute(attribute, &error);
}

// ---- bundling ----

std::uint32_t APMMeasurement::uniformRandom(std::uint32_t upperBound) {
  if (upperBound < 2) return 0;
  // Rejection sampling, as arc4random_uniform does, so every value is equally likely.
  std::uint32_t floor = static_cast<std::uint32_t>(-upperBound) % upperBound;
  for (;;) {
    std::uint32_t r = 0;
    if (!platform::secureRandom().copyBytes(reinterpret_cast<std::uint8_t*>(&r), sizeof r)) {
      return 0;
    }
    if (r >= floor) return r % upperBound;
  }
}

int APMMeasurement::bundleRawEventsForUpload() {
  int made = 0;
  while (made < settings_.maxBundlesCreatedPerIteration && bundleRawEvents()) ++made;
  return made;
}

std::optional<std::vector<APMEvent>> APMMeasurement::processRawEvents(
    std::vector<APMRawEventData>& rows, APMDailyCounts& counts, bool* changed) {
  std::vector<APMEvent> events;
  for (APMRawEventData& row : rows) {
    auto event = APMEvent::fromProto(*row.event);
    if (!event) continue;
    std::string name = event->name();
    auto publicName = APMPublicEventName(name);
    if (isEventBlocklisted(name) || (publicName && isEventBlocklisted(*publicName))) {
      APMMonitor::log(kAPMMonitorLevelNotice, kCodeRejectedEvent, "Rejected event. Event name",
                      name);
      continue;
    }
    if (settings_.redundantEngagementRemovalEnabled && name == "_e" &&
        event->integerParameter("_fr") == 1) {
      continue;
    }
    // A public name stored by an older client goes back to its internal name.
    if (auto internal = APMInternalEventName(name)) *event = event->copyWithName(*internal);
    // checkConversion: daily conversions are counted here.
    if (event->isConversion()) {
      if (counts.conversionsCount >= settings_.maxConversionsPerDay) {
        event->clearConversion();
        APMMonitor::log(kAPMMonitorLevelWarning, kCodeTooManyConversions,
                        "Too many conversion events. Not logging event as conversion. Name, limit",
                        name, settings_.maxConversionsPerDay);
      } else {
        ++counts.conversionsCount;
      }
      *changed = true;
    }
    events.push_back(std::move(*event));
  }
  return events;
}

bool APMMeasurement::evaluationTimeFromRawEvents(const std::vector<APMEvent>& events) {
  platform::Error error;
  bool hasSessionStart = std::any_of(events.begin(), events.end(),
                                     [](const APMEvent& e) { return e.name() == "_s"; });
  if (hasSessionStart && !database_->clearCurrentSessionCounts(&error)) return false;
  for (const APMEvent& event : events) {
    if (event.name() == "_s") {
      if (!database_->deleteUserAttributeWithName("_se", &error)) return false;
    } else if (event.name() == "_e" && event.integerParameter("_fr") != 1) {
      auto engagement = event.integerParameter("_et");
      if (!engagement) {
        APMMonitor::log(kAPMMonitorLevelDebug, kCodeNoEngagementTime,
                        "User engagement event doesn't contain any user engagement time");
        continue;
      }
      if (!addToUserPropertyNumber("_lte", *engagement, event.timestamp()) ||
          !addToUserPropertyNumber("_se", *engagement, event.timestamp())) {
        return false;
      }
    }
  }
  return true;
}

std::optional<std::vector<APMEvent>> APMMeasurement::eventsAfterUpdatingEventAggregates(
    const std::vector<APMEvent>& events, APMAudience* audience,
    APMAudienceTimestampsCache* audienceCache) {
  platform::Error error;
  std::vector<APMEvent> out;
  out.reserve(events.size());
  for (const APMEvent& event : events) {
    auto stored = database_->queryEventAggregatesWithName(event.name(), &error);
    if (!stored) return std::nullopt;
    APMEventAggregates aggregates;
    if (*stored) {
      aggregates = **stored;
      out.push_back(event.copyWithPreviousTimestamp(aggregates.lastFireTimestamp));
      aggregates.currentBundleCount =
          incremented64(aggregates.currentBundleCount, "Bundle count overflow. Bundle count reset to 0.");
      aggregates.lifetimeCount =
          incremented64(aggregates.lifetimeCount, "Lifetime count overflow. Lifetime count reset to 0.");
      aggregates.currentSessionCount =
          incremented64(aggregates.currentSessionCount, "Session count overflow. Session count reset to 0.");
      aggregates.lastFireTimestamp = event.timestamp();
    } else {
      auto fresh = APMEventAggregates::create(event.name(), 1, 1, 1, event.timestamp());
      if (!fresh) return std::nullopt;
      aggregates = *fresh;
      out.push_back(event);
    }
    if (!database_->updateEventAggregates(aggregates, &error)) return std::nullopt;
    if (audience && audienceCache) {
      audience->evaluateFiltersForEvent(out.back(), aggregates, *audienceCache);
    }
  }
  return out;
}

std::optional<std::vector<APMPBMessage<APMPBEvent>>> APMMeasurement::sampleEvents(
    std::vector<APMPBMessage<APMPBEvent>> events, platform::Error* error) {
  auto all = database_->queryAllEventAggregates(error);
  if (!all) return std::nullopt;
  std::map<std::string, APMEventAggregates> cache;
  for (APMEventAggregates& a : *all) cache.emplace(a.name, std::move(a));
  std::set<std::string> touched;
  auto dayOf = [this](std::int64_t millis) {
    return static_cast<std::int64_t>(std::floor(
        (millis / 1000.0 + settings_.analyticsAccountTimeZoneOffsetMinutes * 60) / 86400.0));
  };
  std::vector<APMPBMessage<APMPBEvent>> kept;
  for (auto& proto : events) {
    if (!proto->name || !*proto->name) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeSamplingNoName,
                      "Dropping event at sampling. Event has no name");
      continue;
    }
    std::string name = proto->name;
    std::int64_t day = dayOf(proto->timestamp_millis);
    double timestamp = proto->timestamp_millis / 1000.0;
    auto found = cache.find(name);
    if (found == cache.end()) {
      found = cache.emplace(name, *APMEventAggregates::create(name, 0, 0, 0, 0)).first;
    }
    APMEventAggregates& aggregates = found->second;
    touched.insert(name);
    const APMEventConfig* config = settings_.eventConfig(name);
    std::int64_t rate = config ? config->samplingRate : 0;
    bool canSample = settings_.isEventSamplingEnabled && config && rate > 1;
    if (settings_.isEventSamplingEnabled && config && rate != 0 && rate <= 1) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeInvalidSamplingRate,
                      "Invalid sampling rate provided", name, rate);
    }
    auto hasParam = [&proto](const char* param) {
      for (const APMPBEventParam& p : APMPBItems(proto->params, proto->params_count)) {
        if (p.name && std::string(p.name) == param) return true;
      }
      return false;
    };
    auto addIntParam = [&proto](const char* param, std::int64_t value) {
      APMPBEventParam& p = APMPBAppend(&proto->params, &proto->params_count);
      APMPBSetString(&p.name, param);
      p.has_int_value = true;
      p.int_value = value;
    };
    if (!canSample) {
      aggregates.lastBundledTimestamp = timestamp;
      aggregates.lastBundledDay = day;
      kept.push_back(std::move(proto));
      continue;
    }
    aggregates.lastSamplingRate = rate;
    if (uniformRandom(static_cast<std::uint32_t>(std::min<std::int64_t>(rate, UINT32_MAX))) == 0) {
      if (!hasParam("_sr")) addIntParam("_sr", rate);
      aggregates.lastSampledComplexEventID.reset();
      aggregates.lastExemptFromSampling = false;
      aggregates.lastBundledDay = day;
      aggregates.lastBundledTimestamp = timestamp;
      kept.push_back(std::move(proto));
      continue;
    }
    std::int64_t referenceDay = aggregates.lastBundledDay.value_or(0);
    if (referenceDay == 0) {
      referenceDay = proto->has_previous_timestamp_millis ? dayOf(proto->previous_timestamp_millis)
                                                          : 0;
    }
    if (referenceDay != day) {
      addIntParam("_efs", 1);
      if (!hasParam("_sr")) addIntParam("_sr", rate);
      aggregates.lastExemptFromSampling = true;
      aggregates.lastBundledDay = day;
      aggregates.lastBundledTimestamp = timestamp;
      kept.push_back(std::move(proto));
      continue;
    }
    for (const APMPBEventParam& p : APMPBItems(proto->params, proto->params_count)) {
      if (p.name && std::string(p.name) == "_eid" && p.has_int_value) {
        aggregates.lastSampledComplexEventID = p.int_value;
      }
    }
  }
  for (const std::string& name : touched) {
    if (!database_->updateEventAggregates(cache.at(name), error)) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeSamplingAggregates,
                      "Failed to update event aggregates after removing removing events due to "
                      "sampling. Error",
                      error ? error->localizedDescription : "");
      return std::nullopt;
    }
  }
  return kept;
}

bool APMMeasurement::updateAppMetadataForBundle(APMPBMeasurementBundle& bundle,
                                                std::int64_t startMillis, std::int64_t endMillis) {
  platform::Error error;
  auto metadata = database_->queryAppMetadata(&error);
  if (!metadata) return false;
  bundle.has_previous_bundle_end_timestamp_millis = true;
  bundle.previous_bundle_end_timestamp_millis = APMMilliseconds(metadata->lastBundleEndTimestamp);
  double previousStart = metadata->lastBundleStartTimestamp != 0
                             ? metadata->lastBundleStartTimestamp
                             : metadata->lastBundleEndTimestamp;
  bundle.has_previous_bundle_start_timestamp_millis = true;
  bundle.previous_bundle_start_timestamp_millis = APMMilliseconds(previousStart);
  std::int64_t index = metadata->lastBundleIndex;
  if (index >= std::numeric_limits<std::int32_t>::max()) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeIndexOverflow,
                    "Bundle index overflow. Bundle index reset to 0.");
    index = 0;
  } else {
    ++index;
  }
  bundle.has_bundle_index = true;
  bundle.bundle_index = static_cast<std::int32_t>(index);
  auto updated = APMAppMetadata::create(index, endMillis / 1000.0, startMillis / 1000.0);
  return updated && database_->updateAppMetadata(*updated, &error);
}

void APMMeasurement::addBundleMetadataIntoBundle(APMPBMeasurementBundle& bundle,
                                                 std::int64_t startMillis,
                                                 std::int64_t endMillis) {
  for (std::uint32_t id : settings_.experimentIDs) {
    APMPBAppend(&bundle.experiment_ids, &bundle.experiment_ids_count) = id;
  }
  if (settings_.configVersion >= 0) {
    bundle.has_config_version = true;
    bundle.config_version = settings_.configVersion;
  }
  if (APMPBString(bundle.app_id).empty()) {
    APMPBSetString(&bundle.app_id,
                   appInfo_.appID.empty() ? appInfo_.bundleIdentifier : appInfo_.appID);
  }
  bundle.has_bundle_start_timestamp_millis = true;
  bundle.bundle_start_timestamp_millis = startMillis;
  bundle.has_bundle_end_timestamp_millis = true;
  bundle.bundle_end_timestamp_millis = endMillis;
}

bool APMMeasurement::bundleRawEvents() {
  scheduler_.checkOnBackgroundThreadWithMethodName("bundleRawEvents");
  rawEventFacts_.valid = false;
  if (!openDatabaseOnWorkerQueue()) return false;
  platform::Error error;
  // Nothing to bundle is no failed transaction.
  if (database_->isRawEventsTableEmpty(&error).value_or(false)) return false;
  bool consumed = false;
  bool ok = database_->performTransaction(
      [&] {
        auto next = database_->nextMetadataFingerprintToProcess(&error);
        if (!next) return false;
        if (!*next) return false;  // nothing to bundle
        std::int64_t fingerprint = **next;
        std::int64_t lastRowID = -1;
        std::int64_t size = 0;
        std::int64_t count = 0;
        auto rows = database_->rawEventsWithMetadataFingerprint(
            fingerprint, &error, [&](const APMRawEventData& row, bool* stop) {
              if (count >= settings_.uploadMaxEventsPerBundle ||
                  row.metadataFingerprint != fingerprint ||
                  (lastRowID >= 0 && row.rowID != lastRowID + 1)) {
                *stop = true;
                return false;
              }
              lastRowID = row.rowID;
              ++count;
              size += static_cast<std::int64_t>(row.serializedSize);
              if (count >= settings_.uploadMaxEventsPerBundle ||
                  size >= settings_.uploadMaxSizeLimitBytes) {
                *stop = true;
              }
              return true;
            });
        if (!rows) {
          APMMonitor::log(kAPMMonitorLevelError, kCodeBundleQuery,
                          "Failed to query raw events. Error", error.localizedDescription);
          return false;
        }
        if (rows->empty()) {
          APMMonitor::log(kAPMMonitorLevelError, kCodeInconsistentState,
                          "Inconsistent state, raw event is expected. Error",
                          error.localizedDescription);
          return false;
        }
        std::int64_t maxRowID = rows->back().rowID;
        auto finishRows = [&] {
          if (!database_->deleteRawEventsWithMaxRowID(maxRowID, &error)) return false;
          auto used = database_->containsRawEventWithMetadataFingerprint(fingerprint, &error);
          if (!used) return false;
          if (!*used && !database_->deleteRawEventMetadataWithMetadataFingerprint(fingerprint,
                                                                                  &error)) {
            return false;
          }
          consumed = true;
          return true;
        };
        auto header = database_->queryRawEventsMetadataWithFingerprint(fingerprint, &error);
        if (!header || !*header) {
          APMMonitor::log(kAPMMonitorLevelError, kCodeMetadataFetch,
                          "Unable to fetch event metadata. Metadata fingerprint, error",
                          fingerprint, error.localizedDescription);
          return false;
        }
        auto counts = database_->dailyCounts(&error);
        if (!counts) return false;
        bool countsChanged = false;
        auto processed = processRawEvents(*rows, *counts, &countsChanged);
        if (!processed) return false;
        if (countsChanged && !database_->updateDailyCounts(*counts, &error)) return false;
        if (processed->empty()) {
          APMMonitor::log(kAPMMonitorLevelNotice, kCodeRejectedAll, "Rejected all events.");
          return finishRows();
        }
        // Audiences are evaluated inside this transaction, over one pass.
        APMAudience audience(database_.get());
        APMAudienceTimestampsCache audienceCache;
        if (std::any_of(processed->begin(), processed->end(),
                        [](const APMEvent& e) { return e.name() == "_s"; })) {
          audience.clearEvaluationResultsForSessionScopedFilters(audienceCache);
        }
        if (!evaluationTimeFromRawEvents(*processed)) return false;
        auto updated = eventsAfterUpdatingEventAggregates(*processed, &audience, &audienceCache);
        if (!updated) return false;
        std::vector<APMPBMessage<APMPBEvent>> protos;
        protos.reserve(updated->size());
        for (const APMEvent& event : *updated) protos.push_back(event.protoEvent());
        if (settings_.isEventSamplingEnabled && !settings_.debugMode) {
          auto sampled = sampleEvents(std::move(protos), &error);
          if (!sampled) return false;
          protos = std::move(*sampled);
          if (protos.empty()) {
            APMMonitor::log(kAPMMonitorLevelNotice, kCodeNoEventsAfterSampling,
                            "No events left after sampling. Dropping bundle");
            return finishRows();
          }
        }
        APMPBMessage<APMPBMeasurementBundle> bundle = std::move(**header);
        std::int64_t start = std::numeric_limits<std::int64_t>::max();
        std::int64_t end = std::numeric_limits<std::int64_t>::min();
        for (auto& proto : protos) {
          start = std::min(start, proto->timestamp_millis);
          end = std::max(end, proto->timestamp_millis);
          // The bundle takes the event over; the emptied message frees nothing twice.
          APMPBAppend(&bundle->events, &bundle->events_count) = *proto;
          *proto = APMPBEvent{};
        }
        if (!updateAppMetadataForBundle(*bundle, start, end)) return false;
        addBundleMetadataIntoBundle(*bundle, start, end);
        for (const APMPBUserAttribute& property :
             APMPBItems(bundle->user_properties, bundle->user_properties_count)) {
          audience.evaluateFiltersForNanoUserProperty(property, audienceCache, start / 1000.0);
        }
        audience.resultsForBundling(*bundle, audienceCache);
        bool realtime = std::any_of(rows->begin(), rows->end(),
                                    [](const APMRawEventData& r) { return r.isRealtime; });
        auto bundleID = database_->insertBundle(*bundle, realtime, &error);
        if (!bundleID) {
          APMMonitor::log(kAPMMonitorLevelError, kCodeBundleInsert,
                          "Unable to insert bundle. Error", error.localizedDescription);
          return false;
        }
        APMMonitor::log(kAPMMonitorLevelDebug, kCodeBundleAdded,
                        "Bundle added to the upload queue. BundleID, timestamp (ms)", *bundleID,
                        end);
        return finishRows();
      },
      &error);
  return ok && consumed;
}

void APMMeasurement::setPersonalizedAdsOnWorkerQueue(std::optional<bool> allowed) {
  persistedConfig_->setAllowPersonalizedAds(allowed);
  setPersonalizedAdsUserPropertyOnWorkerQueue();
}

void APMMeasurement::setPersonalizedAdsUserPropertyOnWorkerQueue() {
  std::optional<bool> allowed = persistedConfig_->allowPersonalizedAds();
  if (!allowed) allowed = APMLaunchContext::infoBool("STUVOP_ANALYTICS_DEFAULT_ALLOW_AD_PERSONALIZATION_SIGNALS");
  if (!allowed) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodePersonalizedAdsUnset,
                    "No value set for personalized ads. Removing user property.");
    setUserAttributeOnWorkerQueue("_npa", std::nullopt, "auto", now());
    return;
  }
  setUserAttributeOnWorkerQueue("_npa", APMValue::fromInt64(*allowed ? 0 : 1), "auto", now());
}
