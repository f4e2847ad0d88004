// The typed rows that APMDatabase reads and writes. Plain values: they own their data and may
// move between queues.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "kit/Value.h"
#include "measurement/events/APMValue.h"
#include "measurement/proto/APMPB.h"

// The single row of `app_metadata`.
struct APMAppMetadata {
  std::int64_t lastBundleIndex = 0;
  double lastBundleEndTimestamp = 0;    // seconds since 1970
  double lastBundleStartTimestamp = 0;  // 0.0 when never stored

  // Nothing, logging "Failed to create app metadata object. Received negative last bundle
  // index.", for a negative index.
  static std::optional<APMAppMetadata> create(std::int64_t lastBundleIndex,
                                              double lastBundleEndTimestamp,
                                              double lastBundleStartTimestamp);
};

// The day's counters of `app_metadata`; `day` is the day number they belong to.
struct APMDailyCounts {
  std::int32_t day = 0;
  std::int32_t conversionsCount = 0;
  std::int32_t allEventsCount = 0;
  std::int32_t publicEventsCount = 0;
  std::int32_t errorEventsCount = 0;
  std::int32_t realtimeCount = 0;

  bool operator==(const APMDailyCounts&) const = default;
};

// A row of `events`: the aggregates of one event name.
struct APMEventAggregates {
  std::string name;
  std::int64_t lifetimeCount = 0;
  std::int64_t currentBundleCount = 0;
  std::int64_t currentSessionCount = 0;
  double lastFireTimestamp = 0;
  std::optional<double> lastBundledTimestamp;
  std::optional<std::int64_t> lastSampledComplexEventID;
  std::optional<std::int64_t> lastSamplingRate;
  bool lastExemptFromSampling = false;
  std::optional<std::int64_t> lastBundledDay;

  // Nothing, logging "Failed to create event aggregates object. Received negative count.",
  // when a count is negative.
  static std::optional<APMEventAggregates> create(std::string name, std::int64_t lifetimeCount,
                                                  std::int64_t currentBundleCount,
                                                  std::int64_t currentSessionCount,
                                                  double lastFireTimestamp);
};

// A row of `user_attributes`.
struct APMUserAttribute {
  std::string origin;
  std::string name;
  APMValue value = APMValue::fromInt64(0);
  double lastSetTimestamp = 0;

  // A name that does not start with "_".
  bool isPublic() const { return name.empty() || name[0] != '_'; }

  bool operator==(const APMUserAttribute&) const = default;
};

// A row of `raw_events`, its event parsed with the name filled in again.
struct APMRawEventData {
  std::int64_t rowID = 0;
  std::int64_t metadataFingerprint = 0;
  bool isRealtime = false;
  APMPBMessage<APMPBEvent> event;
  // Bytes of the stored event, without its name.
  std::size_t serializedSize = 0;
};

// A row of `queue`, its bundle inflated and parsed.
struct APMQueuedBundle {
  std::int64_t rowID = 0;
  APMPBMessage<APMPBMeasurementBundle> bundle;
  std::int64_t retryCount = 0;
  // Bytes of the serialised (uncompressed) bundle.
  std::size_t serializedSize = 0;
};

// A row of `event_filters` (name is the event name) or `property_filters` (the property).
struct APMAudienceFilterRecord {
  std::int64_t audienceID = 0;
  std::int64_t filterID = 0;
  std::string name;
  kit::Data data;  // serialised APMPBEventFilter or APMPBPropertyFilter
  bool sessionScoped = false;
};

// A row of `audience_filter_values`: serialised APMPBResultData of the open period and of the
// period that went into the last bundle.
struct APMFilterResult {
  std::int64_t audienceID = 0;
  std::optional<kit::Data> currentResults;
  std::optional<kit::Data> previousResults;
};

// A row of `conditional_properties`.
struct APMConditionalProperty {
  std::string name;
  std::string origin;
  APMValue value = APMValue::fromInt64(0);
  double creationTimestamp = 0;
  bool active = false;
  double triggerTimeout = 0;
  double triggeredTimestamp = 0;
  double timeToLive = 0;
  std::optional<std::string> triggerEventName;
  std::optional<kit::Data> timedOutEvent;
  std::optional<kit::Data> triggeredEvent;
  std::optional<kit::Data> expiredEvent;
};

// A row of `main_event_params`: the main event of a complex event.
struct APMMainEventParams {
  std::int64_t eventID = 0;
  std::int64_t childrenToProcess = 0;
  kit::Data mainEvent;  // serialised APMPBEvent
};
