// APMPRuntime: one interpreter of event-editing programs: its heap, its evaluator, and the run
// scope with the built-in bindings `event`, `require` and "runtime.counter".
//
// `require(name)` gives the module of that name, made once per runtime by its module
// creator: built in are "internal.logger" (log, silent, unmonitored) and "internal.platform"
// (getVersion); the editing layer adds "internal.registerCallback", "internal.eventLogger"
// and others with setModuleCreator. An unknown name fails with code 10.
//
// `event` is an object of native functions over the runtime's current event (getEventName,
// getParamValue, getParams, getTimestamp, setEventName, setParamValue). Without a current
// event they read undefined and their writes fail with code 10.
//
// Memory: the runtime's heap holds at most APMPHeap::kDefaultByteLimit live bytes of
// program values; a run that needs more fails with code 18.
//
// Not thread-safe: a runtime belongs to the worker queue.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <memory>
#include <string>

#include "kit/Value.h"
#include "measurement/events/APMValue.h"
#include "measurement/proto/APMPB.h"
#include "measurement/runtime/APMPEvaluator.h"

// A function implemented in C++.
class APMPNativeFunctionValue : public APMPFunctionValue {
 public:
  using Body = std::function<APMPRuntimeValue(APMPEvaluator&, const APMPRuntimeValue*, std::size_t)>;
  APMPNativeFunctionValue(std::string name, Body body);
  APMPRuntimeValue call(APMPEvaluator& evaluator, const APMPRuntimeValue* arguments,
                        std::size_t count) override;

 private:
  Body body_;
};

// An event as programs see it.
struct APMPEvent {
  std::string name;
  double timestamp = 0;  // seconds
  APMParameters parameters;
  // Same name, timestamp and parameters.
  bool isEqualToEvent(const APMPEvent& other) const {
    return name == other.name && timestamp == other.timestamp && parameters == other.parameters;
  }
};

class APMPRuntime {
 public:
  // Makes a module value; called at most once per name and runtime.
  using ModuleCreator = std::function<APMPRuntimeValue(APMPRuntime&)>;

  APMPRuntime();
  ~APMPRuntime();
  APMPRuntime(const APMPRuntime&) = delete;
  APMPRuntime& operator=(const APMPRuntime&) = delete;

  // The version programs read through internal.platform getVersion.
  static std::int64_t runtimeVersion() { return 1; }

  void setModuleCreator(ModuleCreator creator, const std::string& name);
  // Runs an array of statements (or one statement) at the top level of the run scope. On
  // failure fills `error` and yields undefined.
  APMPRuntimeValue executeStatements(const APMPRuntimeValue& statements, platform::Error* error);
  // Calls a function value with arguments, as a run of its own.
  APMPRuntimeValue callFunction(const APMPRuntimeValue& function,
                                std::vector<APMPRuntimeValue> arguments, platform::Error* error);
  APMPScope* getRunScope() const { return runScope_; }
  std::uint64_t getInstructionCount() const { return evaluator_.instructionCount(); }
  void resetInstructionCount() { evaluator_.resetInstructionCount(); }

  APMPEvaluator& evaluator() { return evaluator_; }
  APMPHeap& heap() { return heap_; }
  // The event that `event` reads and writes; null for none. Not owned.
  void setCurrentEvent(APMPEvent* event) { currentEvent_ = event; }
  APMPEvent* currentEvent() const { return currentEvent_; }
  // The object bound to `event`.
  const APMPRuntimeValue& eventObject() const { return eventObject_; }

  // Conversions between event parameter values and program values: integers and doubles to
  // numbers, strings to strings, arrays of items to arrays of objects. Back: integral
  // numbers to integers, other numbers to doubles, booleans to 1 or 0, strings to strings;
  // anything else gives nothing.
  static APMPRuntimeValue valueFromParameter(const APMValue& value);
  static std::optional<APMValue> parameterFromValue(const APMPRuntimeValue& value);

 private:
  APMPRuntimeValue require(const std::string& name);
  APMPRuntimeValue makeEventObject();
  void afterRun();

  // Declared first: destroyed last, after every value below has let go.
  APMPHeap heap_;
  APMPEvaluator evaluator_;
  APMPScope* runScope_ = nullptr;
  APMPRuntimeValue eventObject_;
  std::map<std::string, ModuleCreator> creators_;
  std::map<std::string, APMPRuntimeValue> modules_;
  APMPEvent* currentEvent_ = nullptr;
};

// Converts the wire form of programs into values, and values into plain objects.
//
// Entity kinds: 1 a statement (tag 3 the command number or function name, tag 2 the
// arguments), 2 an array (tag 2 the elements), 3 a string (tag 3), 4 a scalar: a number when
// tag 6 is set, else a boolean when tag 5 is set, else null when tag 4 reads "null", else
// undefined. Any other kind fails with code 10. Nesting deeper than kMaxNesting fails with
// code 18.
class APMPRuntimeEntityConverter {
 public:
  static constexpr int kMaxNesting = 400;
  static APMPRuntimeValue runtimeValueFromRuntimeEntity(const APMPBRuntimeEntity& entity,
                                                        platform::Error* error);
  // As runtimeValueFromRuntimeEntity, but the entity must be a statement (kind 1).
  static APMPRuntimeValue statementValueFromRuntimeEntity(const APMPBRuntimeEntity& entity,
                                                          platform::Error* error);
  // The statements of a program's tag 1 as one array value.
  static APMPRuntimeValue statementsFromProgram(const APMPBProgram& program, platform::Error* error);
  // Plain objects (property-list values) to values and back: integers and reals to numbers,
  // text to strings, booleans, arrays, dictionaries to maps, null.
  static APMPRuntimeValue runtimeValueFromNSObject(const kit::Value& object, platform::Error* error);
  static std::optional<kit::Value> objectFromRuntimeValue(const APMPRuntimeValue& value,
                                                          platform::Error* error);
  static std::optional<kit::Value> dictionaryFromMapValue(const APMPRuntimeValue& value,
                                                          platform::Error* error);
};
