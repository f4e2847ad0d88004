// libFuzzer target: a program from the server, decoded, loaded (its statements run and its
// rules registered) and run on two events. No input may crash, and no run may pass the
// instruction budget.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "measurement/runtime/APMPEventEditing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto program = APMPBMessage<APMPBProgram>::parseFromData(std::span(data, size));
  if (!program) return 0;
  APMPEventEditing editing;
  platform::Error error;
  bool loaded = editing.loadProgram(**program, &error);
  if (editing.runtime().getInstructionCount() > APMPEvaluator::kInstructionBudget) std::abort();
  if (!loaded) return 0;
  APMPEvent event{"screen", 1700000000, {{"name", APMValue::fromString("home")}, {"n", APMValue::fromInt64(3)}}};
  for (int i = 0; i < 2; ++i) {
    editing.handleEvent(event, &error);
    if (editing.runtime().getInstructionCount() > APMPEvaluator::kInstructionBudget) std::abort();
    if (!editing.eventContext().inputEvent().isEqualToEvent(event)) std::abort();
  }
  return 0;
}
