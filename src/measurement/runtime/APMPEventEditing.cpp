#include "measurement/runtime/APMPEventEditing.h"

#include <cmath>

namespace {
using V = APMPRuntimeValue;
}

void APMPEventContext::logEventWithName(std::string name, double timestamp,
                                        APMParameters parameters) {
  eventsToLog_.push_back({std::move(name), timestamp, std::move(parameters)});
}

void APMPEventContext::reset(const APMPEvent& input) {
  inputEvent_ = input;
  outputEvent_ = input;
  eventsToLog_.clear();
}

bool APMPEditingCallbackHandler::registerWithPriority(std::optional<double> priority,
                                                      APMPRuntimeValue callback,
                                                      const std::string& ruleType,
                                                      platform::Error* error) {
  if (ruleType != "create" && ruleType != "edit") {
    return APMPSetEditingError(error, kAPMPEditingErrorCodeBadRuleType,
                               "Unknown rule type " + ruleType);
  }
  if (!callback.isFunction()) {
    return APMPSetError(error, kAPMPErrorCodeWrongArgumentKind, "A callback must be a function");
  }
  auto& list = callbacks_[ruleType];
  if (!priority || std::isnan(*priority) || list.count(*priority)) {
    priority = list.empty() ? 0.0 : list.rbegin()->first + 1;
  }
  list[*priority] = std::move(callback);
  return true;
}

bool APMPEditingCallbackHandler::triggerCallbacksWithScope(APMPRuntime& runtime,
                                                           APMPEventContext& context,
                                                           platform::Error* error) {
  runtime.setCurrentEvent(&context.mutableOutputEvent());
  bool ok = true;
  for (const char* type : {"edit", "create"}) {
    auto found = callbacks_.find(type);
    if (found == callbacks_.end()) continue;
    // A callback may register more callbacks: walk a copy.
    std::vector<V> list;
    for (const auto& [priority, callback] : found->second) list.push_back(callback);
    for (const V& callback : list) {
      runtime.callFunction(callback, {runtime.eventObject()}, error);
      if (error && error->code) {
        ok = false;
        break;
      }
    }
    if (!ok) break;
  }
  runtime.setCurrentEvent(nullptr);
  return ok;
}

std::size_t APMPEditingCallbackHandler::count() const {
  std::size_t n = 0;
  for (const auto& [type, list] : callbacks_) n += list.size();
  return n;
}

APMPEventEditing::APMPEventEditing() {
  runtime_.setModuleCreator(
      [this](APMPRuntime&) {
        return APMPMake<APMPNativeFunctionValue>(
            "registerCallback",
            [this](APMPEvaluator& ev, const V* arguments, std::size_t count) -> V {
              if (count < 2 || count > 3) {
                return ev.fail(kAPMPErrorCodeWrongArgumentCount,
                               "registerCallback takes a priority, a callback and a rule type");
              }
              std::optional<double> priority;
              if (arguments[0].isNumber()) priority = arguments[0].numberPayload();
              std::string type = count == 3 ? arguments[2].stringValue() : "edit";
              platform::Error error;
              if (!callbacks_.registerWithPriority(priority, arguments[1], type, &error)) {
                return error.domain == kAPMPEditingErrorDomain ? ev.failEditing(error.code, error.localizedDescription)
                                                               : ev.fail(error.code, error.localizedDescription);
              }
              return {};
            });
      },
      "internal.registerCallback");
  runtime_.setModuleCreator(
      [this](APMPRuntime&) {
        auto* module = new APMPMapValue();
        V value(module);
        auto logEvent = [this](APMPEvaluator& ev, const V* arguments, std::size_t count) -> V {
          if (count < 1 || count > 2) {
            return ev.fail(kAPMPErrorCodeWrongArgumentCount, "logEvent takes a name and parameters");
          }
          if (!arguments[0].isString() || arguments[0].stringPayload().empty()) {
            return ev.fail(kAPMPErrorCodeWrongArgumentKind, "An event name must be a string");
          }
          APMParameters parameters;
          if (count == 2 && !arguments[1].isNullish()) {
            if (!arguments[1].isMap()) {
              return ev.fail(kAPMPErrorCodeWrongArgumentKind, "Event parameters must be an object");
            }
            for (const auto& [name, v] : arguments[1].asMap()->entries()) {
              auto converted = APMPRuntime::parameterFromValue(v);
              if (converted) parameters.insert_or_assign(name, std::move(*converted));
            }
          }
          context_.logEventWithName(arguments[0].stringPayload(), context_.inputEvent().timestamp,
                                    std::move(parameters));
          return {};
        };
        module->set("logEvent", APMPMake<APMPNativeFunctionValue>("logEvent", logEvent));
        return value;
      },
      "internal.eventLogger");
}

APMPEventEditing::~APMPEventEditing() = default;

void APMPEventEditing::setModuleCreator(APMPRuntime::ModuleCreator creator,
                                        const std::string& name) {
  runtime_.setModuleCreator(std::move(creator), name);
}

bool APMPEventEditing::loadProgram(const APMPBProgram& program, platform::Error* error) {
  V statements;
  {
    APMPHeap::Current current(&runtime_.heap());
    statements = APMPRuntimeEntityConverter::statementsFromProgram(program, error);
  }
  if (!statements.isArray()) return false;
  platform::Error runError;
  V result = runtime_.executeStatements(statements, &runError);
  runtime_.resetInstructionCount();
  if (runError.code) {
    if (error) *error = runError;
    return false;
  }
  if (result.isControl()) {
    APMPHeap::Current current(&runtime_.heap());
    result = V();
    return APMPSetEditingError(error, kAPMPEditingErrorCodeProgramReturnedValue,
                               "The program returned a value");
  }
  if (program.has_ogt_activities) {
    for (pb_size_t i = 0; i < program.ogt_activities.activities_count; ++i) {
      if (!loadActivityData(program.ogt_activities.activities[i], error)) return false;
    }
  }
  return true;
}

bool APMPEventEditing::loadActivityData(const APMPBOgtActivity& activity, platform::Error* error) {
  std::string name = activity.name ? activity.name : "";
  for (pb_size_t i = 0; i < activity.arguments_count; ++i) {
    V rule;
    {
      APMPHeap::Current current(&runtime_.heap());
      V entity = APMPRuntimeEntityConverter::runtimeValueFromRuntimeEntity(activity.arguments[i], error);
      if (error && error->code) return false;
      rule = runtime_.executeStatements(entity, error);
      runtime_.resetInstructionCount();
      if (error && error->code) return false;
    }
    if (!rule.isMap()) {
      APMPHeap::Current current(&runtime_.heap());
      rule = V();
      return APMPSetEditingError(error, kAPMPEditingErrorCodeBadRuleArgument,
                                 "A rule of " + name + " is not an object");
    }
    bool ok = registerRuleWithName(name, rule, error);
    APMPHeap::Current current(&runtime_.heap());
    rule = V();
    if (!ok) return false;
  }
  return true;
}

bool APMPEventEditing::registerRuleWithName(const std::string& name, const APMPRuntimeValue& rule,
                                            platform::Error* error) {
  const V* function = runtime_.getRunScope()->valueForName(name);
  if (!function || !function->isFunction()) {
    return APMPSetEditingError(error, kAPMPEditingErrorCodeRuleNotAFunction,
                               "Rule " + name + " is not bound to a function");
  }
  platform::Error callError;
  runtime_.callFunction(*function, {rule}, &callError);
  runtime_.resetInstructionCount();
  if (callError.code) {
    if (error) *error = callError;
    return false;
  }
  return true;
}

bool APMPEventEditing::handleEvent(const APMPEvent& event, platform::Error* error) {
  context_.reset(event);
  runtime_.resetInstructionCount();
  platform::Error local;
  platform::Error* e = error ? error : &local;
  *e = platform::Error{};
  if (!callbacks_.triggerCallbacksWithScope(runtime_, context_, e)) {
    context_.reset(event);
    return false;
  }
  return true;
}

bool APMPEventEditing::hasEdits() const {
  return !context_.outputEvent().isEqualToEvent(context_.inputEvent());
}
