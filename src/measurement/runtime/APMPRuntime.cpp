#include "measurement/runtime/APMPRuntime.h"

#include <cmath>

#include "measurement/APMMonitor.h"

namespace {
using V = APMPRuntimeValue;

const V& argumentAt(const V* arguments, std::size_t count, std::size_t i) {
  return i < count ? arguments[i] : APMPUndefinedValue::sharedInstance();
}

V native(std::string name, APMPNativeFunctionValue::Body body) {
  return APMPMake<APMPNativeFunctionValue>(std::move(name), std::move(body));
}

// Log lines of internal.logger: level 5 (information) for log, 8 (verbose) for silent and
// unmonitored.
V makeLogger() {
  auto* module = new APMPMapValue();
  V value(module);
  auto logAt = [](int level) {
    return [level](APMPEvaluator&, const V* arguments, std::size_t count) -> V {
      std::string line;
      for (std::size_t i = 0; i < count; ++i) {
        if (i) line += ' ';
        line += arguments[i].stringValue();
      }
      APMMonitor::log(level, 0, "Event editing program log", line);
      return {};
    };
  };
  module->set("log", native("log", logAt(5)));
  module->set("silent", native("silent", logAt(8)));
  module->set("unmonitored", native("unmonitored", logAt(8)));
  return value;
}

V makePlatform() {
  auto* module = new APMPMapValue();
  V value(module);
  module->set("getVersion", native("getVersion", [](APMPEvaluator&, const V*, std::size_t) {
                return V::number(static_cast<double>(APMPRuntime::runtimeVersion()));
              }));
  return value;
}

}  // namespace

APMPNativeFunctionValue::APMPNativeFunctionValue(std::string name, Body body)
    : APMPFunctionValue(std::move(name)), body_(std::move(body)) {}

APMPRuntimeValue APMPNativeFunctionValue::call(APMPEvaluator& evaluator,
                                               const APMPRuntimeValue* arguments,
                                               std::size_t count) {
  if (evaluator.failed()) return {};
  return body_(evaluator, arguments, count);
}

APMPRuntime::APMPRuntime() {
  APMPHeap::Current current(&heap_);
  runScope_ = new APMPScope();
  runScope_->retain();
  eventObject_ = makeEventObject();
  runScope_->addImmutableValue(eventObject_, "event");
  runScope_->addImmutableValue(
      native("require",
             [this](APMPEvaluator& ev, const V* arguments, std::size_t count) -> V {
               if (count != 1) {
                 return ev.fail(kAPMPErrorCodeWrongArgumentCount, "require takes one module name");
               }
               return require(arguments[0].stringValue());
             }),
      "require");
  runScope_->addValue(V::number(0), "runtime.counter");
  creators_["internal.logger"] = [](APMPRuntime&) { return makeLogger(); };
  creators_["internal.platform"] = [](APMPRuntime&) { return makePlatform(); };
}

APMPRuntime::~APMPRuntime() {
  APMPHeap::Current current(&heap_);
  modules_.clear();
  eventObject_ = V();
  runScope_->release();
  runScope_ = nullptr;
}

void APMPRuntime::setModuleCreator(ModuleCreator creator, const std::string& name) {
  creators_[name] = std::move(creator);
  modules_.erase(name);
}

APMPRuntimeValue APMPRuntime::require(const std::string& name) {
  auto made = modules_.find(name);
  if (made != modules_.end()) return made->second;
  auto creator = creators_.find(name);
  if (creator == creators_.end()) {
    return evaluator_.fail(kAPMPErrorCodeWrongArgumentKind, "Cannot find module " + name);
  }
  V module = creator->second(*this);
  modules_[name] = module;
  return module;
}

void APMPRuntime::afterRun() {
  evaluator_.endRun();
  runScope_->setValue(V::number(static_cast<double>(evaluator_.instructionCount())),
                      "runtime.counter");
  heap_.collectIfGrown();
}

APMPRuntimeValue APMPRuntime::executeStatements(const APMPRuntimeValue& statements,
                                                platform::Error* error) {
  APMPHeap::Current current(&heap_);
  V r = evaluator_.executeStatements(statements, runScope_, error);
  afterRun();
  return r;
}

APMPRuntimeValue APMPRuntime::callFunction(const APMPRuntimeValue& function,
                                           std::vector<APMPRuntimeValue> arguments,
                                           platform::Error* error) {
  APMPHeap::Current current(&heap_);
  evaluator_.clearFailure();
  V r = evaluator_.callFunction(function, arguments.data(), arguments.size());
  if (evaluator_.failed()) {
    if (error) *error = evaluator_.lastError();
    r = V();
  }
  arguments.clear();
  afterRun();
  return r;
}

// --- event -----------------------------------------------------------------------------------

APMPRuntimeValue APMPRuntime::valueFromParameter(const APMValue& value) {
  switch (value.valueType()) {
    case APMValueType::kDouble: return V::number(value.doubleValue());
    case APMValueType::kInt64: return V::number(static_cast<double>(value.int64Value()));
    case APMValueType::kString: return V::string(value.stringValue());
    case APMValueType::kArray: {
      auto* array = new APMPArrayValue();
      V result(array);
      for (const auto& item : value.arrayValue()) {
        auto* map = new APMPMapValue();
        V m(map);
        for (const auto& [k, v] : item) map->set(k, valueFromParameter(v));
        array->push(m);
      }
      return result;
    }
  }
  return {};
}

std::optional<APMValue> APMPRuntime::parameterFromValue(const APMPRuntimeValue& value) {
  switch (value.kind()) {
    case APMPValueKind::kBoolean: return APMValue::fromInt64(value.booleanPayload() ? 1 : 0);
    case APMPValueKind::kNumber: {
      double d = value.numberPayload();
      if (std::isfinite(d) && d == std::floor(d) && std::fabs(d) < 9.2e18) {
        return APMValue::fromInt64(static_cast<std::int64_t>(d));
      }
      return APMValue::fromDouble(d);
    }
    case APMPValueKind::kString: return APMValue::fromString(value.stringPayload());
    default: return std::nullopt;
  }
}

APMPRuntimeValue APMPRuntime::makeEventObject() {
  auto* object = new APMPMapValue();
  V value(object);
  object->set("getEventName", native("getEventName", [this](APMPEvaluator&, const V*, std::size_t) -> V {
                if (!currentEvent_) return {};
                return V::string(currentEvent_->name);
              }));
  object->set("getTimestamp", native("getTimestamp", [this](APMPEvaluator&, const V*, std::size_t) -> V {
                if (!currentEvent_) return {};
                return V::number(currentEvent_->timestamp * 1000.0);
              }));
  object->set("getParamValue",
              native("getParamValue", [this](APMPEvaluator&, const V* arguments, std::size_t count) -> V {
                if (!currentEvent_) return {};
                auto it = currentEvent_->parameters.find(argumentAt(arguments, count, 0).stringValue());
                if (it == currentEvent_->parameters.end()) return {};
                return valueFromParameter(it->second);
              }));
  object->set("getParams", native("getParams", [this](APMPEvaluator&, const V*, std::size_t) -> V {
                if (!currentEvent_) return {};
                auto* map = new APMPMapValue();
                V m(map);
                for (const auto& [k, v] : currentEvent_->parameters) map->set(k, valueFromParameter(v));
                return m;
              }));
  object->set("setEventName",
              native("setEventName", [this](APMPEvaluator& ev, const V* arguments, std::size_t count) -> V {
                if (!currentEvent_) return ev.fail(kAPMPErrorCodeWrongArgumentKind, "No event");
                if (count != 1) return ev.fail(kAPMPErrorCodeWrongArgumentCount, "setEventName takes a name");
                if (!arguments[0].isString() || arguments[0].stringPayload().empty()) {
                  return ev.fail(kAPMPErrorCodeWrongArgumentKind, "An event name must be a string");
                }
                currentEvent_->name = arguments[0].stringPayload();
                return {};
              }));
  object->set("setParamValue",
              native("setParamValue", [this](APMPEvaluator& ev, const V* arguments, std::size_t count) -> V {
                if (!currentEvent_) return ev.fail(kAPMPErrorCodeWrongArgumentKind, "No event");
                if (count != 2) {
                  return ev.fail(kAPMPErrorCodeWrongArgumentCount, "setParamValue takes a name and a value");
                }
                std::string name = arguments[0].stringValue();
                // Undefined or null removes the parameter.
                if (arguments[1].isNullish()) {
                  currentEvent_->parameters.erase(name);
                  return {};
                }
                auto converted = parameterFromValue(arguments[1]);
                if (!converted) {
                  return ev.fail(kAPMPErrorCodeWrongArgumentKind,
                                 "A parameter value must be a number, a boolean or a string");
                }
                currentEvent_->parameters.insert_or_assign(name, std::move(*converted));
                return {};
              }));
  return value;
}

// --- Converter -------------------------------------------------------------------------------

namespace {

V convertEntity(const APMPBRuntimeEntity& entity, int depth, platform::Error* error) {
  if (depth > APMPRuntimeEntityConverter::kMaxNesting) {
    APMPSetError(error, kAPMPErrorCodeBudgetExceeded, "Program nested too deeply");
    return {};
  }
  auto children = [&](std::vector<V>* out) {
    out->reserve(entity.children_count);
    for (pb_size_t i = 0; i < entity.children_count; ++i) {
      V child = convertEntity(entity.children[i], depth + 1, error);
      if (error && error->code) return false;
      out->push_back(std::move(child));
    }
    return true;
  };
  std::uint32_t kind = entity.has_kind ? entity.kind : 0;
  switch (kind) {
    case 1: {
      if (!entity.string_value || !*entity.string_value) {
        APMPSetError(error, kAPMPErrorCodeWrongArgumentKind, "A statement without a command");
        return {};
      }
      std::vector<V> arguments;
      if (!children(&arguments)) return {};
      return APMPMake<APMPStatementValue>(entity.string_value, std::move(arguments));
    }
    case 2: {
      std::vector<V> elements;
      if (!children(&elements)) return {};
      return APMPMake<APMPArrayValue>(std::move(elements));
    }
    case 3: return V::string(entity.string_value ? entity.string_value : "");
    case 4:
      if (entity.has_number_value) return V::number(entity.number_value);
      if (entity.has_bool_value) return V::boolean(entity.bool_value);
      if (entity.extra_string_value && std::string_view(entity.extra_string_value) == "null") {
        return V::null();
      }
      return {};
    default:
      APMPSetError(error, kAPMPErrorCodeWrongArgumentKind,
                   "Unknown runtime entity kind " + std::to_string(kind));
      return {};
  }
}

}  // namespace

APMPRuntimeValue APMPRuntimeEntityConverter::runtimeValueFromRuntimeEntity(
    const APMPBRuntimeEntity& entity, platform::Error* error) {
  platform::Error local;
  platform::Error* e = error ? error : &local;
  *e = platform::Error{};
  V v = convertEntity(entity, 0, e);
  if (e->code) return {};
  return v;
}

APMPRuntimeValue APMPRuntimeEntityConverter::statementValueFromRuntimeEntity(
    const APMPBRuntimeEntity& entity, platform::Error* error) {
  if (!entity.has_kind || entity.kind != 1) {
    APMPSetError(error, kAPMPErrorCodeWrongArgumentKind, "Not a statement");
    return {};
  }
  return runtimeValueFromRuntimeEntity(entity, error);
}

APMPRuntimeValue APMPRuntimeEntityConverter::statementsFromProgram(const APMPBProgram& program,
                                                                   platform::Error* error) {
  std::vector<V> statements;
  statements.reserve(program.instructions_count);
  for (pb_size_t i = 0; i < program.instructions_count; ++i) {
    platform::Error e;
    V v = runtimeValueFromRuntimeEntity(program.instructions[i], &e);
    if (e.code) {
      if (error) *error = e;
      return {};
    }
    statements.push_back(std::move(v));
  }
  return APMPMake<APMPArrayValue>(std::move(statements));
}

APMPRuntimeValue APMPRuntimeEntityConverter::runtimeValueFromNSObject(const kit::Value& object,
                                                                      platform::Error* error) {
  if (object.isNull()) return V::null();
  if (auto b = object.asBool()) return V::boolean(*b);
  if (auto i = object.asInteger()) return V::number(static_cast<double>(*i));
  if (auto d = object.asReal()) return V::number(*d);
  if (const auto* s = object.asString()) return V::string(*s);
  if (const auto* a = object.asArray()) {
    auto* array = new APMPArrayValue();
    V result(array);
    for (const auto& e : *a) {
      V v = runtimeValueFromNSObject(e, error);
      if (error && error->code) return {};
      array->push(std::move(v));
    }
    return result;
  }
  if (const auto* d = object.asDictionary()) {
    auto* map = new APMPMapValue();
    V result(map);
    for (const auto& [k, e] : *d) {
      V v = runtimeValueFromNSObject(e, error);
      if (error && error->code) return {};
      map->set(k, std::move(v));
    }
    return result;
  }
  APMPSetError(error, kAPMPErrorCodeWrongArgumentKind, "Cannot convert object");
  return {};
}

namespace {
thread_local int objectDepth = 0;
}

std::optional<kit::Value> APMPRuntimeEntityConverter::objectFromRuntimeValue(
    const APMPRuntimeValue& value, platform::Error* error) {
  // Nested values (or a cycle) deeper than the program nesting limit do not convert.
  if (objectDepth > kMaxNesting) {
    APMPSetError(error, kAPMPErrorCodeBudgetExceeded, "Value nested too deeply");
    return std::nullopt;
  }
  struct Depth {
    Depth() { ++objectDepth; }
    ~Depth() { --objectDepth; }
  } depth;
  switch (value.kind()) {
    case APMPValueKind::kUndefined:
    case APMPValueKind::kNull: return kit::Value();
    case APMPValueKind::kBoolean: return kit::Value(value.booleanPayload());
    case APMPValueKind::kNumber: return kit::Value(value.numberPayload());
    case APMPValueKind::kString: return kit::Value(value.stringPayload());
    case APMPValueKind::kArray: {
      kit::Array out;
      for (const auto& e : value.asArray()->elements()) {
        auto o = objectFromRuntimeValue(e, error);
        if (!o) return std::nullopt;
        out.push_back(std::move(*o));
      }
      return kit::Value(std::move(out));
    }
    case APMPValueKind::kMap: return dictionaryFromMapValue(value, error);
    default:
      APMPSetError(error, kAPMPErrorCodeWrongArgumentKind, "Cannot convert " + std::string(value.typeName()));
      return std::nullopt;
  }
}

std::optional<kit::Value> APMPRuntimeEntityConverter::dictionaryFromMapValue(
    const APMPRuntimeValue& value, platform::Error* error) {
  if (!value.isMap()) {
    APMPSetError(error, kAPMPErrorCodeWrongArgumentKind, "Not an object");
    return std::nullopt;
  }
  kit::Dictionary out;
  for (const auto& [k, e] : value.asMap()->entries()) {
    auto o = objectFromRuntimeValue(e, error);
    if (!o) return std::nullopt;
    out[k] = std::move(*o);
  }
  return kit::Value(std::move(out));
}
