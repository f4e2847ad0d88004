// APMEvent: one event on its way from the public call to a row of `raw_events`: origin,
// internal name, time, the previous time of the same name, and the parameters. Immutable but
// for its flags, which live in the parameters: conversion `_c`, real-time `_r`, debug `_dbg`
// (set writes the integer 1, clear removes). `_o` always holds the origin.
//
// A plain value: copies own their data and may move between queues.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "measurement/events/APMValue.h"
#include "measurement/proto/APMPB.h"

class APMEvent {
 public:
  // Nothing when `origin` is no valid event origin or `name` is empty. A previous time after
  // the time logs "Event created with previous timestamp after current timestamp" (warning)
  // and the event is made all the same. Times are seconds since 1970.
  static std::optional<APMEvent> create(std::string origin, std::string name, double timestamp,
                                        double previousTimestamp, APMParameters parameters);

  // The event a stored or bundled proto event stands for; origin from `_o` ("app" when it has
  // none). Nothing when the proto has no name.
  static std::optional<APMEvent> fromProto(const APMPBEvent& event);

  const std::string& origin() const { return origin_; }
  const std::string& name() const { return name_; }
  double timestamp() const { return timestamp_; }
  double previousTimestamp() const { return previousTimestamp_; }
  const APMParameters& parameters() const { return parameters_; }
  // A name that does not start with "_".
  bool isPublic() const { return name_.empty() || name_[0] != '_'; }

  const APMValue* parameter(const std::string& name) const;
  // The integer value of a parameter (a double is truncated); nothing for other kinds.
  std::optional<std::int64_t> integerParameter(const std::string& name) const;
  void setParameter(const std::string& name, APMValue value);
  void removeParameter(const std::string& name) { parameters_.erase(name); }

  bool isConversion() const { return parameters_.count("_c") > 0; }
  void setConversion(bool on) { setFlag("_c", on); }
  // Removes `_c` and adds `_err` 10 unless the event has an `_err` (APMClearConversion).
  void clearConversion();
  bool isRealtime() const { return parameters_.count("_r") > 0; }
  void setRealtime(bool on) { setFlag("_r", on); }
  bool isDebug() const { return parameters_.count("_dbg") > 0; }
  void setDebug(bool on) { setFlag("_dbg", on); }

  // A copy with another name (the origin and everything else kept).
  APMEvent copyWithName(std::string name) const;
  APMEvent copyWithPreviousTimestamp(double previousTimestamp) const;

  // The wire form: parameters in name order, times in milliseconds, the previous time only
  // when set. An array parameter holds one element per item, each item's parameters in that
  // element's `param_value`.
  APMPBMessage<APMPBEvent> protoEvent() const;
  // The bytes `raw_events` keeps for the event: protoEvent() with its name field cleared,
  // serialised. Written straight from the event, byte for byte what serialising that message
  // gives. False (with `error` filled, as the serialiser says) when it is larger than the
  // stream limit.
  bool encodeWithoutName(kit::Data* out, platform::Error* error) const;

 private:
  APMEvent() = default;
  void setFlag(const char* name, bool on);

  std::string origin_;
  std::string name_;
  double timestamp_ = 0;
  double previousTimestamp_ = 0;
  APMParameters parameters_;
};

// Milliseconds of a time in seconds, as the wire carries them.
std::int64_t APMMilliseconds(double seconds);

// A value as log lines and the inspector show it: numbers in decimal, strings as they are,
// arrays as "[{name=value, ...}, ...]".
std::string APMDescribeValue(const APMValue& value);
// "{name=value, ...}" in name order.
std::string APMDescribeParameters(const APMParameters& parameters);

// Fills `param` (name set by the caller) with `value`.
void APMFillEventParam(APMPBEventParam& param, const APMValue& value);
// The value a wire parameter holds; nothing when it holds none.
std::optional<APMValue> APMValueOfEventParam(const APMPBEventParam& param);

// The 64 least significant bits of the MD5 digest of `data` (its last eight bytes, big
// endian), read as a signed integer.
std::int64_t apm_64LSBMD5(const kit::Data& data);
