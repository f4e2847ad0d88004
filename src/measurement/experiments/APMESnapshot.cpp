#include "measurement/experiments/APMESnapshot.h"

#include <cstdio>

namespace {

std::optional<APMEFlagValue> valueOf(const APMPBFlag& flag) {
  switch (flag.which_value) {
    case apm_Flag_int_value_tag:
      return APMEFlagValue(static_cast<std::int64_t>(flag.value.int_value));
    case apm_Flag_string_value_tag:
      return APMEFlagValue(std::string(APMPBString(flag.value.string_value)));
    case apm_Flag_double_value_tag:
      return APMEFlagValue(flag.value.double_value);
    case apm_Flag_bool_value_tag:
      return APMEFlagValue(static_cast<bool>(flag.value.bool_value));
    default:
      return std::nullopt;
  }
}

void fill(APMPBFlag& flag, const APMEFlagValue& value) {
  if (const auto* i = std::get_if<std::int64_t>(&value)) {
    flag.which_value = apm_Flag_int_value_tag;
    flag.value.int_value = *i;
  } else if (const auto* s = std::get_if<std::string>(&value)) {
    flag.which_value = apm_Flag_string_value_tag;
    flag.value.string_value = nullptr;
    APMPBSetString(&flag.value.string_value, *s);
  } else if (const auto* d = std::get_if<double>(&value)) {
    flag.which_value = apm_Flag_double_value_tag;
    flag.value.double_value = *d;
  } else {
    flag.which_value = apm_Flag_bool_value_tag;
    flag.value.bool_value = std::get<bool>(value);
  }
}

}  // namespace

std::string APMEDescribeFlagValue(const APMEFlagValue& value) {
  if (const auto* i = std::get_if<std::int64_t>(&value)) return std::to_string(*i);
  if (const auto* s = std::get_if<std::string>(&value)) return "\"" + *s + "\"";
  if (const auto* d = std::get_if<double>(&value)) {
    char text[32];
    std::snprintf(text, sizeof text, "%.17g", *d);
    return text;
  }
  return std::get<bool>(value) ? "true" : "false";
}

APMESnapshot APMESnapshot::fromProto(const APMPBSnapshot& proto, double timestamp,
                                     bool manuallyActivated) {
  APMESnapshot snapshot;
  snapshot.SDKName = std::string(APMPBString(proto.sdk_name));
  snapshot.timestamp = timestamp;
  snapshot.manuallyActivated = manuallyActivated;
  for (const APMPBExperiment& e : APMPBItems(proto.experiments, proto.experiments_count)) {
    APMEExperiment experiment;
    experiment.experimentID = e.has_experiment_id ? e.experiment_id : 0;
    for (const APMPBFlag& flag : APMPBItems(e.flags, e.flags_count)) {
      std::string name(APMPBString(flag.name));
      auto value = valueOf(flag);
      if (name.empty() || !value) continue;
      experiment.flags.emplace(std::move(name), std::move(*value));
    }
    snapshot.experiments.push_back(std::move(experiment));
  }
  return snapshot;
}

std::optional<APMESnapshot> APMESnapshot::fromData(std::span<const std::uint8_t> data,
                                                   platform::Error* error) {
  auto parsed = APMPBMessage<APMPBSnapshot>::parseFromData(data, error);
  if (!parsed) return std::nullopt;
  return fromProto(**parsed);
}

std::optional<kit::Data> APMESnapshot::snapshotProto(platform::Error* error) const {
  APMPBMessage<APMPBSnapshot> proto;
  APMPBSetString(&proto->sdk_name, SDKName);
  for (const APMEExperiment& e : experiments) {
    APMPBExperiment& out = APMPBAppend(&proto->experiments, &proto->experiments_count);
    out.has_experiment_id = true;
    out.experiment_id = e.experimentID;
    for (const auto& [name, value] : e.flags) {
      APMPBFlag& flag = APMPBAppend(&out.flags, &out.flags_count);
      APMPBSetString(&flag.name, name);
      fill(flag, value);
    }
  }
  return proto.protoBuffer(error);
}

bool APMESnapshot::isEmpty() const {
  for (const APMEExperiment& e : experiments) {
    if (!e.flags.empty()) return false;
  }
  return true;
}

std::optional<APMEFlagValue> APMESnapshot::flagValueForFlagName(const std::string& flagName) const {
  for (const APMEExperiment& e : experiments) {
    auto found = e.flags.find(flagName);
    if (found != e.flags.end()) return found->second;
  }
  return std::nullopt;
}
