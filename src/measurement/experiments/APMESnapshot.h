// APMESnapshot: the flag values the server chose for one SDK, as the experiment client keeps
// them: the SDK's name, its experiments (each an id and named flag values), when it was
// stored, and whether it waits for a manual activation. Converted to and from the wire
// message APMPBSnapshot, which is also what the database keeps.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "kit/Value.h"
#include "measurement/proto/APMPB.h"
#include "platform/Types.h"

// A flag's value: one of four kinds (an integer, a text, a real, a truth value).
using APMEFlagValue = std::variant<std::int64_t, std::string, double, bool>;

// The value as text, for logs: "12", "\"on\"", "0.5", "true".
std::string APMEDescribeFlagValue(const APMEFlagValue& value);

struct APMEExperiment {
  std::int32_t experimentID = 0;
  // Flag name to value. A flag without a value on the wire is left out.
  std::map<std::string, APMEFlagValue> flags;
};

struct APMESnapshot {
  std::string SDKName;
  std::vector<APMEExperiment> experiments;
  // When stored, seconds since 1970.
  double timestamp = 0;
  bool manuallyActivated = false;

  // The snapshot of a parsed message; `timestamp` and `manuallyActivated` as given.
  static APMESnapshot fromProto(const APMPBSnapshot& proto, double timestamp = 0,
                                bool manuallyActivated = false);
  // Parses the serialised message; nothing (with `error` filled) when the bytes are not one.
  static std::optional<APMESnapshot> fromData(std::span<const std::uint8_t> data,
                                              platform::Error* error);
  // The serialised APMPBSnapshot (name and experiments only).
  std::optional<kit::Data> snapshotProto(platform::Error* error) const;

  // No experiment carries a flag.
  bool isEmpty() const;
  // The value of `flagName` in the first experiment that sets it.
  std::optional<APMEFlagValue> flagValueForFlagName(const std::string& flagName) const;
};
