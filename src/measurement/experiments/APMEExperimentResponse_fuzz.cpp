// libFuzzer target: an answer of the experiment server as the task manager reads it. The
// input is inflated (an input that is no gzip stream is also tried as the message itself),
// parsed as an experiment response, and every snapshot in it is converted, serialised as the
// database keeps it, read back and compared, and looked up.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "measurement/APMGzip.h"
#include "measurement/APMMonitor.h"
#include "measurement/experiments/APMESnapshot.h"

namespace {

void checkSnapshot(const APMPBSnapshot& proto) {
  APMESnapshot snapshot = APMESnapshot::fromProto(proto);
  auto bytes = snapshot.snapshotProto(nullptr);
  if (!bytes) std::abort();  // what was read can always be written
  auto back = APMESnapshot::fromData(*bytes, nullptr);
  if (!back || back->SDKName != snapshot.SDKName ||
      back->experiments.size() != snapshot.experiments.size()) {
    std::abort();
  }
  for (std::size_t i = 0; i < snapshot.experiments.size(); ++i) {
    const APMEExperiment& a = snapshot.experiments[i];
    const APMEExperiment& b = back->experiments[i];
    if (a.experimentID != b.experimentID || a.flags.size() != b.flags.size()) std::abort();
    for (const auto& [name, value] : a.flags) {
      auto found = b.flags.find(name);
      // NaN is the one value that is not equal to itself.
      bool nan = std::holds_alternative<double>(value) && std::get<double>(value) != std::get<double>(value);
      if (found == b.flags.end() || (!nan && !(found->second == value))) std::abort();
      (void)APMEDescribeFlagValue(value);
      (void)snapshot.flagValueForFlagName(name);
    }
  }
  (void)snapshot.isEmpty();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool quiet = [] {
    APMMonitor::setConsoleLevel(-1);
    return true;
  }();
  (void)quiet;
  std::span<const std::uint8_t> input(data, size);
  auto inflated = APMGunzipData(input, nullptr);
  std::span<const std::uint8_t> message = inflated ? std::span<const std::uint8_t>(*inflated) : input;
  auto response = APMPBMessage<APMPBExperimentResponse>::parseFromData(message);
  if (!response) return 0;
  for (const APMPBSnapshot& s : APMPBItems((*response)->snapshots, (*response)->snapshots_count)) {
    checkSnapshot(s);
  }
  for (const APMPBSdkResponse& r :
       APMPBItems((*response)->sdk_responses, (*response)->sdk_responses_count)) {
    if (r.has_snapshot) checkSnapshot(r.snapshot);
  }
  return 0;
}
