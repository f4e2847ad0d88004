// APMPEventEditing: the programs of the configuration that edit events, and their callbacks.
//
// A program runs once when loaded; it registers callbacks through
// `require("internal.registerCallback")(priority, callback, ruleType)`, ruleType "edit" or
// "create" (any other fails with editing code 3), priority a number or null. Then every event
// goes through handleEvent: the "edit" callbacks, then the "create" ones, each in priority
// order (lowest first), each called with the `event` object over the output event. A
// callback may rename the event, change its parameters, and log new events through
// `require("internal.eventLogger").logEvent(name, parameters)`.
//
// Not thread-safe: the worker queue owns an instance.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "measurement/proto/APMPB.h"
#include "measurement/runtime/APMPRuntime.h"

// The events of one handleEvent: what came in, what goes on, and what callbacks created.
class APMPEventContext {
 public:
  const APMPEvent& inputEvent() const { return inputEvent_; }
  const APMPEvent& outputEvent() const { return outputEvent_; }
  APMPEvent& mutableOutputEvent() { return outputEvent_; }
  const std::vector<APMPEvent>& eventsToLog() const { return eventsToLog_; }
  void logEventWithName(std::string name, double timestamp, APMParameters parameters);
  // Starts over with `input` as both input and output.
  void reset(const APMPEvent& input);

 private:
  APMPEvent inputEvent_;
  APMPEvent outputEvent_;
  std::vector<APMPEvent> eventsToLog_;
};

// The registered callbacks, by rule type and priority.
class APMPEditingCallbackHandler {
 public:
  // Registers `callback` (a function value) under `ruleType` ("create" or "edit"). A
  // priority already taken, or none, becomes the highest so far plus 1.
  bool registerWithPriority(std::optional<double> priority, APMPRuntimeValue callback,
                            const std::string& ruleType, platform::Error* error);
  // Calls every callback with the runtime's event object: "edit" first, then "create".
  bool triggerCallbacksWithScope(APMPRuntime& runtime, APMPEventContext& context,
                                 platform::Error* error);
  std::size_t count() const;

 private:
  std::map<std::string, std::map<double, APMPRuntimeValue>> callbacks_;
};

class APMPEventEditing {
 public:
  APMPEventEditing();
  ~APMPEventEditing();
  APMPEventEditing(const APMPEventEditing&) = delete;
  APMPEventEditing& operator=(const APMPEventEditing&) = delete;

  void setModuleCreator(APMPRuntime::ModuleCreator creator, const std::string& name);
  // Runs the program's statements, then registers its activities. A statement list that
  // ends in a control value fails with editing code 5.
  bool loadProgram(const APMPBProgram& program, platform::Error* error);
  // Evaluates each argument of the activity (each must give an object, else code 6) and
  // registers it under the activity's name.
  bool loadActivityData(const APMPBOgtActivity& activity, platform::Error* error);
  // Calls the function bound to `name` (code 7 when there is none) with `rule`.
  bool registerRuleWithName(const std::string& name, const APMPRuntimeValue& rule,
                            platform::Error* error);
  // Runs the callbacks on `event`. On failure the context's output is the input again and
  // nothing is to be logged.
  bool handleEvent(const APMPEvent& event, platform::Error* error);
  // Whether the last handled event changed, and whether callbacks created events.
  bool hasEdits() const;
  bool hasCreatedEvents() const { return !context_.eventsToLog().empty(); }
  const APMPEventContext& eventContext() const { return context_; }
  APMPRuntime& runtime() { return runtime_; }
  const APMPEditingCallbackHandler& callbackHandler() const { return callbacks_; }

 private:
  APMPRuntime runtime_;
  APMPEditingCallbackHandler callbacks_;
  APMPEventContext context_;
};
