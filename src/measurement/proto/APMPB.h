// Wire messages of the measurement client.
//
// Every message is a nanopb struct generated at build time from the .proto files beside this
// header, named here after its role (APMPBEvent is the "Event" message). Strings and repeated
// fields are allocated pointer fields (malloc, released by pb_release); scalars carry has_
// flags. APMPBMessage<T> owns one message and its allocations; the APMPB* helpers fill and
// read the allocated fields.
//
// Writing sizes every sub-message (each element of a repeated field) before it writes it. A
// message that fits a per-thread scratch buffer is then written in one pass; a larger one is
// sized as a whole first and written into a buffer of exactly that size. Messages larger
// than the stream limit are refused both ways.
#pragma once

#include <pb.h>
#include <pb_decode.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "kit/Fatal.h"
#include "kit/Value.h"
#include "measurement/proto/audience.pb.h"
#include "measurement/proto/config.pb.h"
#include "measurement/proto/experiment.pb.h"
#include "measurement/proto/measurement.pb.h"
#include "measurement/proto/runtime.pb.h"
#include "platform/Types.h"

// Events and bundles ("Event", "EventParam", "UserAttribute", "MeasurementBatch",
// "MeasurementBundle").
using APMPBEvent = apm_Event;
using APMPBEventParam = apm_EventParam;
using APMPBUserAttribute = apm_UserAttribute;
using APMPBMeasurementBatch = apm_MeasurementBatch;
using APMPBMeasurementBundle = apm_MeasurementBundle;
// Configuration.
using APMPBMeasurementConfig = apm_MeasurementConfig;
using APMPBSetting = apm_Setting;
using APMPBEventConfig = apm_EventConfig;
using APMPBDataControl = apm_DataControl;
using APMPBRegion = apm_Region;
// Audiences.
using APMPBAudience = apm_Audience;
using APMPBEventFilter = apm_EventFilter;
using APMPBPropertyFilter = apm_PropertyFilter;
using APMPBFilter = apm_Filter;
using APMPBNumberFilter = apm_NumberFilter;
using APMPBStringFilter = apm_StringFilter;
using APMPBResultData = apm_ResultData;
using APMPBDynamicFilterResultTimestamp = apm_DynamicFilterResultTimestamp;
using APMPBSequenceFilterResultTimestamp = apm_SequenceFilterResultTimestamp;
using APMPBAudienceLeafFilterResult = apm_AudienceLeafFilterResult;
// Event-editing programs.
using APMPBProgram = apm_Program;
using APMPBRuntimeEntity = apm_RuntimeEntity;
using APMPBOgtActivities = apm_OgtActivities;
using APMPBOgtActivity = apm_OgtActivity;
// Experiments.
using APMPBExperimentRequest = apm_ExperimentRequest;
using APMPBAppProperty = apm_AppProperty;
using APMPBClientProperty = apm_ClientProperty;
using APMPBCustomProperty = apm_CustomProperty;
using APMPBExperimentResponse = apm_ExperimentResponse;
using APMPBSdkResponse = apm_SdkResponse;
using APMPBSnapshot = apm_Snapshot;
using APMPBExperiment = apm_Experiment;
using APMPBFlag = apm_Flag;

// The largest message, in serialised bytes, that is written or read.
inline constexpr std::size_t kAPMPBStreamLimit = 32 * 1024 * 1024;

// Serialises `message` (described by `fields`) into `out`. Refuses, filling `error` with
// "Unable to process proto stream. Buffer is too big. <size> > <limit>", a message whose
// size exceeds `limit`.
bool APMPBEncode(const pb_msgdesc_t* fields, const void* message, kit::Data* out,
                 platform::Error* error, std::size_t limit = kAPMPBStreamLimit);

// Whether a message of `size` serialised bytes is within `limit`. When it is not, refuses it
// the way APMPBEncode does: logs and fills `error` with "Unable to process proto stream.
// Buffer is too big. <size> > <limit>".
bool APMPBWithinStreamLimit(std::size_t size, std::size_t limit, platform::Error* error);

// Appends to `out` field `tag` with wire type "length-delimited" holding `bytes`: how a parent
// message carries one element of a repeated message field, so that a batch can be written
// from its bundles' own serialisations, byte for byte as a whole-message write gives it.
void APMPBAppendLengthDelimited(kit::Data* out, std::uint32_t tag,
                                std::span<const std::uint8_t> bytes);

// The serialised size of the fields of `message` that are written after field `tag` (in
// declaration order) or nothing when one of them has a kind this cannot set aside (required,
// callback or oneof fields) or `tag` is not a field. `messageSize` is sizeof the struct.
std::optional<std::size_t> APMPBEncodedSizeAfterFieldRaw(const pb_msgdesc_t* fields,
                                                         const void* message,
                                                         std::size_t messageSize, pb_size_t tag);

template <class T>
std::optional<std::size_t> APMPBEncodedSizeAfterField(const T& message, pb_size_t tag) {
  return APMPBEncodedSizeAfterFieldRaw(nanopb::MessageDescriptor<T>::fields(), &message,
                                       sizeof(T), tag);
}

// Serialises `bundle` byte for byte as APMPBEncode does, with the same refusal over `limit`,
// but writes its events (the bulk of a bundle) directly in one pass instead of sizing each
// nested message by writing it first.
bool APMPBEncodeBundle(const APMPBMeasurementBundle& bundle, kit::Data* out,
                       platform::Error* error, std::size_t limit = kAPMPBStreamLimit);

// Parses `size` bytes into `message`, which must hold no allocations; on failure `message`
// holds none either. Refuses input larger than `limit` with the same text as APMPBEncode.
bool APMPBDecode(const pb_msgdesc_t* fields, const std::uint8_t* data, std::size_t size,
                 void* message, platform::Error* error, std::size_t limit = kAPMPBStreamLimit);

// Owns one message of type T (a generated struct) and everything it allocates. Move-only;
// copy() makes a deep copy.
template <class T>
class APMPBMessage {
 public:
  static const pb_msgdesc_t* fields() { return nanopb::MessageDescriptor<T>::fields(); }

  // An empty message: every field absent.
  APMPBMessage() = default;
  ~APMPBMessage() { pb_release(fields(), &message_); }
  APMPBMessage(APMPBMessage&& other) noexcept : message_(other.message_) { other.message_ = T{}; }
  APMPBMessage& operator=(APMPBMessage&& other) noexcept {
    if (this != &other) {
      pb_release(fields(), &message_);
      message_ = other.message_;
      other.message_ = T{};
    }
    return *this;
  }
  APMPBMessage(const APMPBMessage&) = delete;
  APMPBMessage& operator=(const APMPBMessage&) = delete;

  T& operator*() { return message_; }
  const T& operator*() const { return message_; }
  T* operator->() { return &message_; }
  const T* operator->() const { return &message_; }
  T* get() { return &message_; }
  const T* get() const { return &message_; }

  // The serialised bytes, or nothing (with `error` filled) over `limit`.
  std::optional<kit::Data> protoBuffer(platform::Error* error = nullptr,
                                       std::size_t limit = kAPMPBStreamLimit) const {
    kit::Data out;
    if (!APMPBEncode(fields(), &message_, &out, error, limit)) return std::nullopt;
    return out;
  }

  // Parses a message, or nothing (with `error` filled) when the bytes are not one.
  static std::optional<APMPBMessage> parseFromData(std::span<const std::uint8_t> data,
                                                   platform::Error* error = nullptr,
                                                   std::size_t limit = kAPMPBStreamLimit) {
    APMPBMessage parsed;
    if (!APMPBDecode(fields(), data.data(), data.size(), &parsed.message_, error, limit)) {
      return std::nullopt;
    }
    return parsed;
  }

  // A deep copy. Fatal when the copy cannot be made (out of memory).
  APMPBMessage copy() const {
    kit::Data bytes;
    auto parsed = APMPBEncode(fields(), &message_, &bytes, nullptr, SIZE_MAX)
                      ? parseFromData(bytes, nullptr, SIZE_MAX)
                      : std::nullopt;
    if (!parsed) kit::fatal("Failed to copy proto message");
    return std::move(*parsed);
  }

 private:
  T message_{};
};

// The text of an allocated string field; empty when the field is absent.
inline std::string_view APMPBString(const char* field) { return field ? field : ""; }

// Replaces an allocated string field with a copy of `value`.
void APMPBSetString(char** field, std::string_view value);

// Releases an allocated string field, leaving it absent.
void APMPBClearString(char** field);

// Grows the repeated field (`items`, `count`) by one zeroed element and returns it. Fatal on
// overflow of the element count or when memory runs out.
void* APMPBAppendRaw(void** items, pb_size_t* count, std::size_t elementSize);

template <class E>
E& APMPBAppend(E** items, pb_size_t* count) {
  return *static_cast<E*>(APMPBAppendRaw(reinterpret_cast<void**>(items), count, sizeof(E)));
}

// Appends a copy of `value` to a repeated string field.
void APMPBAppendString(char*** items, pb_size_t* count, std::string_view value);

// The elements of a repeated field, for range-for.
template <class E>
std::span<E> APMPBItems(E* items, pb_size_t count) {
  return {items, count};
}
