#include "measurement/runtime/APMPEvaluator.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

using V = APMPRuntimeValue;

// The property reads that need no conversion and cannot fail: a map's key (absent:
// undefined), a string's length, an array's element at a whole index in range. False, with
// `out` untouched, when none applies.
[[gnu::always_inline]] inline bool readOwnProperty(const V& object, const V& key, V* out) {
  if (key.isString()) {
    if (object.isMap()) {
      const V* v = object.asMap()->find(key.stringPayload());
      *out = v ? *v : V();
      return true;
    }
    if (object.isString() && key.asString()->equals("length")) {
      *out = V::number(static_cast<double>(object.stringPayload().size()));
      return true;
    }
  } else if (key.isNumber() && object.isArray()) {
    double d = key.numberPayload();
    APMPArrayValue* a = object.asArray();
    if (d >= 0 && d < static_cast<double>(a->size()) && d == static_cast<double>(static_cast<std::size_t>(d))) {
      *out = a->at(static_cast<std::size_t>(d));
      return true;
    }
  }
  return false;
}

// Arguments of a call, on the stack for the common case of few.
class ArgumentList {
 public:
  static constexpr std::size_t kInline = 6;
  void push(V v) {
    if (count_ < kInline) {
      inline_[count_++] = std::move(v);
    } else {
      if (overflow_.empty()) {
        for (auto& i : inline_) overflow_.push_back(i);
      }
      overflow_.push_back(std::move(v));
      ++count_;
    }
  }
  const V* data() const { return count_ <= kInline ? inline_ : overflow_.data(); }
  void set(std::size_t i, V v) {
    if (count_ <= kInline) {
      inline_[i] = std::move(v);
    } else {
      overflow_[i] = std::move(v);
    }
  }
  std::size_t size() const { return count_; }

 private:
  V inline_[kInline];
  std::vector<V> overflow_;
  std::size_t count_ = 0;
};

std::string nameFailure(const std::string& name) { return name + " is not defined"; }

// A name argument: a string literal as it is (no copy), anything else through its text.
// `key` is the name as a string value, `value` its text.
struct NameArgument {
  NameArgument(const V& argument, APMPScope* scope, APMPEvaluator& ev) {
    if (argument.isString()) {
      key = &argument;
    } else {
      owned = V::string(ev.eval(argument, scope).stringValue());
      key = &owned;
    }
    value = &key->stringPayload();
  }
  const V* key;
  const std::string* value;
  V owned;
};

[[gnu::noinline]] V arityFailure(const APMPStatementValue& s, APMPEvaluator& ev) {
  return ev.fail(kAPMPErrorCodeWrongArgumentCount,
                 "Wrong number of arguments for command " + s.functionName() + ": " +
                     std::to_string(s.arguments().size()));
}

inline bool arityWithin(std::size_t n, std::size_t low, std::size_t high) {
  return n >= low && n <= high;
}

#define APMP_ARITY(low, high)                                                  \
  do {                                                                          \
    if (!arityWithin(statement.arguments().size(), low, high)) {                \
      return arityFailure(statement, ev);                                       \
    }                                                                           \
  } while (0)

V add(const V& a, const V& b, APMPEvaluator& ev) {
  if (a.isNumber() && b.isNumber()) return V::number(a.numberPayload() + b.numberPayload());
  bool text = a.isString() || a.isObject() || b.isString() || b.isObject();
  if (!text) return V::number(a.doubleValue() + b.doubleValue());
  std::string s;
  if (a.isString()) {
    const std::string& as = a.stringPayload();
    if (b.isString()) {
      const std::string& bs = b.stringPayload();
      if (!APMPHeap::canAllocate(as.size() + bs.size() + 64)) {
        return ev.fail(kAPMPErrorCodeBudgetExceeded, "Out of memory: string too long");
      }
      s.reserve(as.size() + bs.size());
      s += as;
      s += bs;
      return V::string(std::move(s));
    }
    s = as;
  } else {
    s = a.stringValue();
  }
  if (b.isString()) {
    s += b.stringPayload();
  } else if (b.isNumber()) {
    APMPAppendNumber(s, b.numberPayload());
  } else {
    s += b.stringValue();
  }
  if (!APMPHeap::canAllocate(s.size() + 64)) {
    return ev.fail(kAPMPErrorCodeBudgetExceeded, "Out of memory: string too long");
  }
  return V::string(std::move(s));
}

// a == b, without a library call for the short texts that names mostly are.
[[gnu::always_inline]] inline bool sameText(const std::string& a, const std::string& b) {
  std::size_t n = a.size();
  if (n != b.size()) return false;
  if (n <= 8) {
    for (std::size_t i = 0; i < n; ++i) {
      if (a[i] != b[i]) return false;
    }
    return true;
  }
  return std::memcmp(a.data(), b.data(), n) == 0;
}

// fmod(x, y), with whole numbers (the common case) by integer division: the same result,
// the sign of a zero remainder the dividend's.
[[gnu::always_inline]] inline double remainderOf(double x, double y) {
  constexpr double kWhole = 9007199254740992.0;  // 2^53
  if (x >= -kWhole && x <= kWhole && y >= -kWhole && y <= kWhole) {
    auto a = static_cast<std::int64_t>(x), b = static_cast<std::int64_t>(y);
    if (static_cast<double>(a) == x && static_cast<double>(b) == y && b != 0) {
      std::int64_t r = a % b;
      return r == 0 ? std::copysign(0.0, x) : static_cast<double>(r);
    }
  }
  return std::fmod(x, y);
}

// a < b by ECMAScript's abstract relational comparison: 1 true, 0 false, -1 undefined (NaN).
int lessThan(const V& a, const V& b) {
  if (a.isNumber() && b.isNumber()) {
    double x = a.numberPayload(), y = b.numberPayload();
    if (std::isnan(x) || std::isnan(y)) return -1;
    return x < y ? 1 : 0;
  }
  bool aText = a.isString() || a.isObject();
  bool bText = b.isString() || b.isObject();
  if (aText && bText) {
    if (a.isString() && b.isString()) return a.stringPayload() < b.stringPayload() ? 1 : 0;
    return a.stringValue() < b.stringValue() ? 1 : 0;
  }
  double x = a.doubleValue(), y = b.doubleValue();
  if (std::isnan(x) || std::isnan(y)) return -1;
  return x < y ? 1 : 0;
}

}  // namespace

// --- Families ------------------------------------------------------------------------------

class APMPMathCommandEvaluator final : public APMPCommandEvaluator {
 public:
  V evaluateCommand(const APMPStatementValue& statement, APMPScope* scope,
                    APMPEvaluator& ev) override {
    return evaluate(statement, scope, ev, statement.command());
  }
  [[gnu::always_inline]] static V evaluate(const APMPStatementValue& statement, APMPScope* scope, APMPEvaluator& ev,
                    int command) {
    const auto& args = statement.arguments();
    int c = command;
    if (c == 27 || c == 34 || c == 35) {
      APMP_ARITY(1, 1);
      V a = ev.eval(args[0], scope);
      if (ev.failed()) return {};
      if (c == 27) return V::number(-a.doubleValue());
      return a;
    }
    APMP_ARITY(2, 2);
    V a = ev.eval(args[0], scope);
    if (ev.failed()) return {};
    V b = ev.eval(args[1], scope);
    if (ev.failed()) return {};
    switch (c) {
      case 0: return add(a, b, ev);
      case 10: return V::number(a.doubleValue() / b.doubleValue());
      case 25: return V::number(remainderOf(a.doubleValue(), b.doubleValue()));
      case 26: return V::number(a.doubleValue() * b.doubleValue());
      case 37: return V::number(a.doubleValue() - b.doubleValue());
      default: return a;  // 32, 33
    }
  }
};

class APMPComparisonCommandEvaluator final : public APMPCommandEvaluator {
 public:
  V evaluateCommand(const APMPStatementValue& statement, APMPScope* scope,
                    APMPEvaluator& ev) override {
    return evaluate(statement, scope, ev, statement.command());
  }
  [[gnu::always_inline]] static V evaluate(const APMPStatementValue& statement, APMPScope* scope, APMPEvaluator& ev,
                    int command) {
    APMP_ARITY(2, 2);
    const auto& args = statement.arguments();
    V a = ev.eval(args[0], scope);
    if (ev.failed()) return {};
    V b = ev.eval(args[1], scope);
    if (ev.failed()) return {};
    switch (command) {
      case 12: return V::boolean(a.looselyEquals(b));
      case 29: return V::boolean(!a.looselyEquals(b));
      case 20: return V::boolean(a.isEqualToRuntimeValue(b));
      case 21: return V::boolean(!a.isEqualToRuntimeValue(b));
      case 18: return V::boolean(lessThan(b, a) == 1);
      case 19: return V::boolean(lessThan(a, b) == 0);
      case 23: return V::boolean(lessThan(a, b) == 1);
      default: return V::boolean(lessThan(b, a) == 0);  // 24
    }
  }
};

class APMPLogicalCommandEvaluator final : public APMPCommandEvaluator {
 public:
  V evaluateCommand(const APMPStatementValue& statement, APMPScope* scope,
                    APMPEvaluator& ev) override {
    return evaluate(statement, scope, ev, statement.command());
  }
  [[gnu::always_inline]] static V evaluate(const APMPStatementValue& statement, APMPScope* scope, APMPEvaluator& ev,
                    int command) {
    const auto& args = statement.arguments();
    if (command == 28) {
      APMP_ARITY(1, 1);
      V a = ev.eval(args[0], scope);
      if (ev.failed()) return {};
      return V::boolean(!a.booleanValue());
    }
    APMP_ARITY(2, 2);
    V a = ev.eval(args[0], scope);
    if (ev.failed()) return {};
    bool decided = command == 1 ? !a.booleanValue() : a.booleanValue();
    if (decided) return a;
    return ev.eval(args[1], scope);
  }
};

class APMPBitwiseCommandEvaluator final : public APMPCommandEvaluator {
 public:
  V evaluateCommand(const APMPStatementValue& statement, APMPScope* scope,
                    APMPEvaluator& ev) override {
    return evaluate(statement, scope, ev, statement.command());
  }
  [[gnu::always_inline]] static V evaluate(const APMPStatementValue& statement, APMPScope* scope, APMPEvaluator& ev,
                    int command) {
    const auto& args = statement.arguments();
    if (command == 58) {
      APMP_ARITY(1, 1);
      V a = ev.eval(args[0], scope);
      if (ev.failed()) return {};
      return V::number(~APMPToInt32(a.doubleValue()));
    }
    APMP_ARITY(2, 2);
    V a = ev.eval(args[0], scope);
    if (ev.failed()) return {};
    V b = ev.eval(args[1], scope);
    if (ev.failed()) return {};
    std::int32_t x = APMPToInt32(a.doubleValue());
    std::uint32_t shift = APMPToUint32(b.doubleValue()) & 31;
    switch (command) {
      case 56: return V::number(x & APMPToInt32(b.doubleValue()));
      case 57: return V::number(static_cast<std::int32_t>(static_cast<std::uint32_t>(x) << shift));
      case 59: return V::number(x | APMPToInt32(b.doubleValue()));
      case 60: return V::number(x >> shift);
      case 61: return V::number(APMPToUint32(a.doubleValue()) >> shift);
      default: return V::number(x ^ APMPToInt32(b.doubleValue()));  // 62
    }
  }
};

namespace {

// Runs a statement list in `scope`, or in a child of it when the list declares names.
V runBody(const V& body, APMPScope* scope, APMPEvaluator& ev) {
  if (body.isArray() && body.asArray()->declaresNames()) {
    APMPScope* child = scope->createChildScope();
    V r = ev.run(body, child);
    child->release();
    return r;
  }
  return ev.run(body, scope);
}

std::vector<V> parameterNames(const V& list, APMPEvaluator& ev) {
  std::vector<V> names;
  if (list.isArray()) {
    names.reserve(list.asArray()->size());
    for (const auto& e : list.asArray()->elements()) {
      names.push_back(e.isString() ? ev.names().intern(e) : V::string(e.stringValue()));
    }
  }
  return names;
}

}  // namespace

namespace {

// The arguments of a method call written as an array literal (command 7), evaluated straight
// into `list` without making the array: the same instructions, depths and bounds as making
// it and reading it back. False (and nothing done) when `value` is no such literal.
bool argumentsInPlace(const V& value, APMPScope* scope, APMPEvaluator& ev, ArgumentList& list) {
  if (!value.isStatement() || value.asStatement()->command() != 7) return false;
  const APMPStatementValue& literal = *value.asStatement();
  if (!ev.tick()) return true;
  if (!ev.enter()) return true;
  for (const auto& a : literal.arguments()) {
    V v = ev.eval(a, scope);
    if (ev.failed()) break;
    if (!APMPHeap::canAllocate(sizeof(V))) {
      ev.fail(kAPMPErrorCodeBudgetExceeded, "Out of memory: array too large");
      break;
    }
    list.push(std::move(v));
  }
  ev.leave();
  if (ev.failed()) return true;
  // Reading the elements back evaluates them once more (a statement value among them runs).
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (list.data()[i].isStatement()) {
      V again = ev.eval(list.data()[i], scope);
      if (ev.failed()) return true;
      list.set(i, std::move(again));
    }
  }
  return true;
}

}  // namespace

class APMPControlCommandEvaluator final : public APMPCommandEvaluator {
 public:
  V evaluateCommand(const APMPStatementValue& statement, APMPScope* scope,
                    APMPEvaluator& ev) override {
    return evaluate(statement, scope, ev, statement.command());
  }
  static V evaluate(const APMPStatementValue& statement, APMPScope* scope, APMPEvaluator& ev,
                    int command) {
    const auto& args = statement.arguments();
    switch (command) {
      case 2: {
        APMP_ARITY(2, 3);
        V target = ev.eval(args[0], scope);
        if (ev.failed()) return {};
        NameArgument name(args[1], scope, ev);
        if (ev.failed()) return {};
        ArgumentList list;
        if (args.size() == 3) {
          if (!argumentsInPlace(args[2], scope, ev, list)) {
            if (ev.failed()) return {};
            V values = ev.eval(args[2], scope);
            if (ev.failed()) return {};
            if (!values.isArray()) {
              return ev.fail(kAPMPErrorCodeWrongArgumentKind, "Method arguments must be an array");
            }
            APMPArrayValue* array = values.asArray();
            for (std::size_t i = 0; i < array->size(); ++i) {
              V element = array->at(i);
              list.push(ev.eval(element, scope));
              if (ev.failed()) return {};
            }
          }
          if (ev.failed()) return {};
        }
        int method = args[1].isString() ? statement.method() : APMPMethodOf(*name.value);
        return ev.applyMethod(target, *name.value, method, list.data(), list.size());
      }
      case 4: APMP_ARITY(0, 0); return APMPControlValue::breakValue();
      case 6: APMP_ARITY(0, 0); return APMPControlValue::continueValue();
      case 5:
      case 9: APMP_ARITY(1, 1); return ev.run(args[0], scope);
      case 53: {
        APMP_ARITY(1, 1);
        APMPScope* child = scope->createChildScope();
        V r = ev.run(args[0], child);
        child->release();
        return r;
      }
      case 13: {
        APMP_ARITY(1, SIZE_MAX);
        V last;
        for (const auto& a : args) {
          last = ev.eval(a, scope);
          if (ev.failed()) return {};
        }
        return last;
      }
      case 22: {
        APMP_ARITY(2, 3);
        V condition = ev.eval(args[0], scope);
        if (ev.failed()) return {};
        if (condition.booleanValue()) return runBody(args[1], scope, ev);
        if (args.size() == 3) return runBody(args[2], scope, ev);
        return {};
      }
      case 39: {
        APMP_ARITY(3, 3);
        V condition = ev.eval(args[0], scope);
        if (ev.failed()) return {};
        V a = ev.eval(args[1], scope);
        if (ev.failed()) return {};
        V b = ev.eval(args[2], scope);
        if (ev.failed()) return {};
        return condition.booleanValue() ? a : b;
      }
      case 36: {
        APMP_ARITY(0, 1);
        V data = args.empty() ? V() : ev.eval(args[0], scope);
        if (ev.failed()) return {};
        return ev.returnSignal(std::move(data));
      }
      case 38: return evaluateSwitch(statement, scope, ev);
      case 46: APMP_ARITY(1, 1); return args[0];
      case 50:
      case 51: {
        APMP_ARITY(3, 3);
        NameArgument name(args[0], scope, ev);
        if (ev.failed()) return {};
        V parameters = ev.eval(args[1], scope);
        if (ev.failed()) return {};
        if (!parameters.isArray() || !args[2].isArray()) {
          return ev.fail(kAPMPErrorCodeWrongArgumentKind, "Bad function definition");
        }
        V function = APMPMake<APMPFunctionValue>(*name.value, parameterNames(parameters, ev), args[2],
                                                 scope);
        APMPEvaluator::shareLeafForm(statement, *function.asFunction());
        if (command == 51) return function;
        if (!scope->bind(*name.key, function, false)) {
          return ev.fail(kAPMPErrorCodeWrongArgumentKind,
                         "Assignment to constant variable " + *name.value);
        }
        return {};
      }
      default: return {};
    }
  }

 private:
  static V evaluateSwitch(const APMPStatementValue& statement, APMPScope* scope,
                          APMPEvaluator& ev) {
    APMP_ARITY(2, 2);
    const auto& args = statement.arguments();
    V value = ev.eval(args[0], scope);
    if (ev.failed()) return {};
    V cases = ev.eval(args[1], scope);
    if (ev.failed()) return {};
    if (!cases.isArray()) return ev.fail(kAPMPErrorCodeWrongArgumentKind, "Bad switch cases");
    APMPArrayValue* list = cases.asArray();
    std::size_t start = SIZE_MAX, fallback = SIZE_MAX;
    for (std::size_t i = 0; i < list->size(); ++i) {
      V entry = list->at(i);
      if (!entry.isArray() || entry.asArray()->size() == 0 || entry.asArray()->size() > 2) {
        return ev.fail(kAPMPErrorCodeWrongArgumentKind, "Bad switch case");
      }
      if (entry.asArray()->size() == 1) {
        fallback = i;
        continue;
      }
      V test = ev.eval(entry.asArray()->at(0), scope);
      if (ev.failed()) return {};
      if (value.isEqualToRuntimeValue(test)) {
        start = i;
        break;
      }
    }
    if (start == SIZE_MAX) start = fallback;
    if (start == SIZE_MAX) return {};
    APMPScope* child = scope->createChildScope();
    V result;
    for (std::size_t i = start; i < list->size(); ++i) {
      V entry = list->at(i);
      if (!entry.isArray() || entry.asArray()->size() == 0) break;
      V body = entry.asArray()->at(entry.asArray()->size() - 1);
      V r = ev.run(body, child);
      if (ev.failed()) break;
      if (r.isControl()) {
        if (r.asControl()->type() != APMPControlValue::Type::kBreak) result = r;
        break;
      }
    }
    child->release();
    if (ev.failed()) return {};
    return result;
  }
};

class APMPVariableCommandEvaluator final : public APMPCommandEvaluator {
 public:
  V evaluateCommand(const APMPStatementValue& statement, APMPScope* scope,
                    APMPEvaluator& ev) override {
    return evaluate(statement, scope, ev, statement.command());
  }
  static V evaluate(const APMPStatementValue& statement, APMPScope* scope, APMPEvaluator& ev,
                    int command) {
    switch (command) {
      case 15: return readName(statement, scope, ev);
      case 16:
      case 17: return readProperty(statement, scope, ev);
      default: return evaluateOther(statement, scope, ev, command);
    }
  }

  // 15: read a name.
  [[gnu::always_inline]] static V readName(const APMPStatementValue& statement, APMPScope* scope,
                                           APMPEvaluator& ev) {
    const auto& args = statement.arguments();
    {
      {
        APMP_ARITY(1, 1);
        if (args[0].isString()) {
          APMPScope::Binding* b = scope->lookup(args[0]);
          if (!b) return ev.fail(kAPMPErrorCodeWrongArgumentKind, nameFailure(args[0].stringPayload()));
          return b->value;
        }
        NameArgument name(args[0], scope, ev);
        if (ev.failed()) return {};
        const V* v = scope->valueForName(*name.key);
        if (!v) return ev.fail(kAPMPErrorCodeWrongArgumentKind, nameFailure(*name.value));
        return *v;
      }
    }
  }

  // 16, 17: read a property.
  [[gnu::always_inline]] static V readProperty(const APMPStatementValue& statement,
                                               APMPScope* scope, APMPEvaluator& ev) {
    const auto& args = statement.arguments();
    APMP_ARITY(2, 2);
    V object = ev.eval(args[0], scope);
    if (ev.failed()) return {};
    V key = ev.eval(args[1], scope);
    if (ev.failed()) return {};
    if (V own; readOwnProperty(object, key, &own)) return own;
    platform::Error error;
    V r = object.valueForProperty(key, &error);
    if (error.code) return ev.fail(error.code, error.localizedDescription);
    return r;
  }

  static V evaluateOther(const APMPStatementValue& statement, APMPScope* scope, APMPEvaluator& ev,
                         int command) {
    const auto& args = statement.arguments();
    switch (command) {
      case 3: {
        APMP_ARITY(2, 2);
        NameArgument name(args[0], scope, ev);
        if (ev.failed()) return {};
        V value = ev.eval(args[1], scope);
        if (ev.failed()) return {};
        APMPScope::Binding* b = scope->lookup(*name.key);
        if (!b || b->immutable) {
          return ev.fail(kAPMPErrorCodeWrongArgumentKind,
                         b ? "Assignment to constant variable " + *name.value
                           : nameFailure(*name.value));
        }
        b->value = value;
        return value;
      }
      case 41:
      case 52: {
        if (args.size() % 2 != 0 || args.empty()) APMP_ARITY(SIZE_MAX, 0);
        for (std::size_t i = 0; i < args.size(); i += 2) {
          NameArgument name(args[i], scope, ev);
          if (ev.failed()) return {};
          V value = ev.eval(args[i + 1], scope);
          if (ev.failed()) return {};
          bool ok = scope->bind(*name.key, std::move(value), command == 52);
          if (!ok) {
            return ev.fail(kAPMPErrorCodeWrongArgumentKind,
                           "Assignment to constant variable " + *name.value);
          }
        }
        return {};
      }
      case 7: {
        auto* array = new APMPArrayValue();
        V result(array);
        array->mutableElements().reserve(args.size());
        for (const auto& a : args) {
          V v = ev.eval(a, scope);
          if (ev.failed()) return {};
          if (!array->push(std::move(v))) {
            return ev.fail(kAPMPErrorCodeBudgetExceeded, "Out of memory: array too large");
          }
        }
        return result;
      }
      case 8: {
        if (args.size() % 2 != 0) APMP_ARITY(SIZE_MAX, 0);
        auto* map = new APMPMapValue();
        V result(map);
        for (std::size_t i = 0; i < args.size(); i += 2) {
          V key = ev.eval(args[i], scope);
          if (ev.failed()) return {};
          V value = ev.eval(args[i + 1], scope);
          if (ev.failed()) return {};
          if (!map->set(key.isString() ? std::string_view(key.stringPayload())
                                       : std::string_view(key.stringValue()),
                        std::move(value))) {
            return ev.fail(kAPMPErrorCodeBudgetExceeded, "Out of memory: object too large");
          }
        }
        return result;
      }
      case 43: {
        APMP_ARITY(3, 3);
        V object = ev.eval(args[0], scope);
        if (ev.failed()) return {};
        V key = ev.eval(args[1], scope);
        if (ev.failed()) return {};
        V value = ev.eval(args[2], scope);
        if (ev.failed()) return {};
        platform::Error error;
        if (!object.setValueForProperty(key, value, &error)) {
          return ev.fail(error.code, error.localizedDescription);
        }
        return value;
      }
      case 40: {
        APMP_ARITY(1, 1);
        V a = ev.eval(args[0], scope);
        if (ev.failed()) return {};
        return V::string(a.typeName());
      }
      case 45: APMP_ARITY(0, 0); return V::null();
      default: APMP_ARITY(0, 0); return {};  // 44
    }
  }
};

class APMPLoopCommandEvaluator final : public APMPCommandEvaluator {
 public:
  V evaluateCommand(const APMPStatementValue& statement, APMPScope* scope,
                    APMPEvaluator& ev) override {
    return evaluate(statement, scope, ev, statement.command());
  }
  static V evaluate(const APMPStatementValue& statement, APMPScope* scope, APMPEvaluator& ev,
                    int command) {
    switch (command) {
      case 63: return evaluateFor(statement, scope, ev);
      case 42: return evaluateWhile(statement, scope, ev);
      default: return evaluateForInOf(statement, scope, ev);
    }
  }

 private:
  // What a loop does with the value its body ended with: 0 go on, 1 stop, 2 pass it up.
  static int absorb(const V& r) {
    if (!r.isControl()) return 0;
    switch (r.asControl()->type()) {
      case APMPControlValue::Type::kBreak: return 1;
      case APMPControlValue::Type::kContinue: return 0;
      default: return 2;
    }
  }

  static V evaluateFor(const APMPStatementValue& statement, APMPScope* scope, APMPEvaluator& ev) {
    APMP_ARITY(4, 4);
    const auto& args = statement.arguments();
    APMPScope* loopScope = scope->createChildScope();
    V result;
    ev.eval(args[0], loopScope);
    while (!ev.failed()) {
      if (!ev.tick()) break;
      V condition = ev.eval(args[1], loopScope);
      if (ev.failed() || !condition.booleanValue()) break;
      V r = runBody(args[3], loopScope, ev);
      if (ev.failed()) break;
      int what = absorb(r);
      if (what == 1) break;
      if (what == 2) {
        result = r;
        break;
      }
      ev.eval(args[2], loopScope);
    }
    loopScope->release();
    if (ev.failed()) return {};
    return result;
  }

  static V evaluateWhile(const APMPStatementValue& statement, APMPScope* scope, APMPEvaluator& ev) {
    APMP_ARITY(2, 3);
    const auto& args = statement.arguments();
    bool doWhile = args.size() == 3 && ev.eval(args[2], scope).booleanValue();
    if (ev.failed()) return {};
    for (bool first = true;; first = false) {
      if (!ev.tick()) return {};
      if (!(doWhile && first)) {
        V condition = ev.eval(args[0], scope);
        if (ev.failed()) return {};
        if (!condition.booleanValue()) return {};
      }
      V r = runBody(args[1], scope, ev);
      if (ev.failed()) return {};
      int what = absorb(r);
      if (what == 1) return {};
      if (what == 2) return r;
    }
  }

  static V evaluateForInOf(const APMPStatementValue& statement, APMPScope* scope,
                           APMPEvaluator& ev) {
    APMP_ARITY(3, 3);
    const auto& args = statement.arguments();
    int c = statement.command();
    bool over = c == 64 || c == 65 || c == 66;
    NameArgument name(args[0], scope, ev);
    if (ev.failed()) return {};
    V subject = ev.eval(args[1], scope);
    if (ev.failed()) return {};
    // For-in walks a snapshot of the names; for-of walks the live array.
    std::vector<V> keys;
    if (!over) {
      if (subject.isArray()) {
        for (std::size_t i = 0; i < subject.asArray()->size(); ++i) {
          keys.push_back(V::string(std::to_string(i)));
        }
      } else if (subject.isString()) {
        for (std::size_t i = 0; i < subject.stringPayload().size(); ++i) {
          keys.push_back(V::string(std::to_string(i)));
        }
      } else if (subject.isMap()) {
        for (const auto& e : subject.asMap()->entries()) keys.push_back(V::string(e.first));
      }
    } else if (!subject.isArray() && !subject.isString()) {
      return ev.fail(kAPMPErrorCodeWrongArgumentKind, subject.stringValue() + " is not iterable");
    }
    bool blockScoped = c == 54 || c == 55 || c == 65 || c == 66;
    bool immutable = c == 55 || c == 66;
    for (std::size_t i = 0;; ++i) {
      V item;
      if (!over) {
        if (i >= keys.size()) break;
        item = keys[i];
      } else if (subject.isArray()) {
        if (i >= subject.asArray()->size()) break;
        item = subject.asArray()->at(i);
      } else {
        if (i >= subject.stringPayload().size()) break;
        item = V::string(std::string(1, subject.stringPayload()[i]));
      }
      if (!ev.tick()) return {};
      V r;
      if (blockScoped) {
        APMPScope* child = scope->createChildScope();
        child->bind(*name.key, item, immutable);
        r = runBody(args[2], child, ev);
        child->release();
      } else {
        APMPScope::Binding* b = scope->lookup(*name.key);
        if (b && b->immutable) {
          return ev.fail(kAPMPErrorCodeWrongArgumentKind,
                         "Assignment to constant variable " + *name.value);
        }
        if (b) {
          b->value = item;
        } else {
          scope->bind(*name.key, item, false);
        }
        r = runBody(args[2], scope, ev);
      }
      if (ev.failed()) return {};
      int what = absorb(r);
      if (what == 1) break;
      if (what == 2) return r;
    }
    return {};
  }
};

// Calls the function bound to the statement's name.
class APMPFunctionEvaluator final : public APMPCommandEvaluator {
 public:
  V evaluateCommand(const APMPStatementValue& statement, APMPScope* scope,
                    APMPEvaluator& ev) override {
    return evaluate(statement, scope, ev, statement.command());
  }
  static V evaluate(const APMPStatementValue& statement, APMPScope* scope, APMPEvaluator& ev,
                    int command) {
    const V* function = nullptr;
    if (statement.calleeName().isString()) {
      APMPScope::Binding* b = scope->lookup(statement.calleeName());
      if (b) function = &b->value;
    } else {
      function = static_cast<const APMPScope*>(scope)->valueForName(statement.functionName());
    }
    if (!function) {
      return ev.fail(kAPMPErrorCodeWrongArgumentKind,
                     command >= 0 ? "Unknown command " + statement.functionName()
                                              : nameFailure(statement.functionName()));
    }
    if (!function->isFunction()) {
      return ev.fail(kAPMPErrorCodeWrongArgumentKind,
                     statement.functionName() + " is not a function");
    }
    V callee = *function;
    ArgumentList list;
    for (const auto& a : statement.arguments()) {
      list.push(ev.eval(a, scope));
      if (ev.failed()) return {};
    }
    return ev.callFunction(callee, list.data(), list.size());
  }
};

// --- Registrar -----------------------------------------------------------------------------

APMPCommandRegistrar::APMPCommandRegistrar()
    : math_(std::make_unique<APMPMathCommandEvaluator>()),
      comparison_(std::make_unique<APMPComparisonCommandEvaluator>()),
      logical_(std::make_unique<APMPLogicalCommandEvaluator>()),
      bitwise_(std::make_unique<APMPBitwiseCommandEvaluator>()),
      control_(std::make_unique<APMPControlCommandEvaluator>()),
      variable_(std::make_unique<APMPVariableCommandEvaluator>()),
      loop_(std::make_unique<APMPLoopCommandEvaluator>()),
      function_(std::make_unique<APMPFunctionEvaluator>()) {
  auto put = [this](std::initializer_list<int> commands, APMPCommandEvaluator* evaluator,
                    Family family) {
    for (int c : commands) {
      table_[c] = evaluator;
      families_[c] = family;
    }
  };
  put({0, 10, 25, 26, 27, 37, 34, 35, 32, 33}, math_.get(), kMath);
  put({12, 29, 20, 21, 18, 19, 23, 24}, comparison_.get(), kComparison);
  put({1, 28, 30}, logical_.get(), kLogical);
  put({56, 57, 58, 59, 60, 61, 62}, bitwise_.get(), kBitwise);
  put({2, 4, 6, 5, 9, 53, 13, 22, 39, 36, 38, 46, 50, 51}, control_.get(), kControl);
  put({3, 41, 52, 7, 8, 15, 16, 17, 43, 40, 45, 44}, variable_.get(), kVariable);
  put({47, 54, 55, 64, 65, 66, 63, 42}, loop_.get(), kLoop);
}

APMPCommandRegistrar::~APMPCommandRegistrar() = default;

// --- Evaluator -----------------------------------------------------------------------------

APMPEvaluator::APMPEvaluator() = default;

APMPEvaluator::~APMPEvaluator() {
  if (returnCell_) returnCell_->release();
}

APMPRuntimeValue APMPEvaluator::returnSignal(APMPRuntimeValue data) {
  if (returnCell_ && returnCell_->referenceCount() == 1) {
    returnCell_->setData(std::move(data));
    return V(returnCell_, APMPValueKind::kControl);
  }
  if (returnCell_) returnCell_->release();
  returnCell_ = new APMPControlValue(APMPControlValue::Type::kReturn, std::move(data));
  returnCell_->retain();
  return V(returnCell_);
}

void APMPEvaluator::endRun() {
  if (!returnCell_) return;
  if (returnCell_->referenceCount() == 1) {
    V data = returnCell_->takeData();
  } else {
    returnCell_->release();
    returnCell_ = nullptr;
  }
}

APMPRuntimeValue APMPEvaluator::returnedData(APMPRuntimeValue& r) {
  APMPControlValue* control = r.asControl();
  // Only this evaluator and `r` hold the reused signal: its data can move out.
  if (control == returnCell_ && control->referenceCount() == 2) {
    V data = control->takeData();
    r = V();
    return data;
  }
  V data = control->data();
  r = V();
  return data;
}

APMPRuntimeValue APMPEvaluator::fail(int code, std::string message) {
  if (!failed_) {
    failed_ = true;
    error_ = platform::Error{kAPMPErrorDomain, code, std::move(message)};
  }
  return {};
}

APMPRuntimeValue APMPEvaluator::failEditing(int code, std::string message) {
  if (!failed_) {
    failed_ = true;
    error_ = platform::Error{kAPMPEditingErrorDomain, code, std::move(message)};
  }
  return {};
}

// One case per command: the small families and the hottest commands are expanded in place
// with their command number known, the others go to their family's evaluator.
[[gnu::noinline]] APMPRuntimeValue APMPEvaluator::dispatch(const APMPStatementValue& statement,
                                                                       APMPScope* scope) {
  using Math = APMPMathCommandEvaluator;
  using Comparison = APMPComparisonCommandEvaluator;
  using Logical = APMPLogicalCommandEvaluator;
  using Bitwise = APMPBitwiseCommandEvaluator;
  using Variable = APMPVariableCommandEvaluator;
  int command = statement.command();
  switch (command) {
#define APMP_CASE(n, family) \
  case n: return family::evaluate(statement, scope, *this, n);
    APMP_CASE(0, Math) APMP_CASE(10, Math) APMP_CASE(25, Math) APMP_CASE(26, Math)
    APMP_CASE(27, Math) APMP_CASE(37, Math) APMP_CASE(34, Math) APMP_CASE(35, Math)
    APMP_CASE(32, Math) APMP_CASE(33, Math)
    APMP_CASE(12, Comparison) APMP_CASE(29, Comparison) APMP_CASE(20, Comparison)
    APMP_CASE(21, Comparison) APMP_CASE(18, Comparison) APMP_CASE(19, Comparison)
    APMP_CASE(23, Comparison) APMP_CASE(24, Comparison)
    APMP_CASE(1, Logical) APMP_CASE(28, Logical) APMP_CASE(30, Logical)
    APMP_CASE(56, Bitwise) APMP_CASE(57, Bitwise) APMP_CASE(58, Bitwise) APMP_CASE(59, Bitwise)
    APMP_CASE(60, Bitwise) APMP_CASE(61, Bitwise) APMP_CASE(62, Bitwise)
#undef APMP_CASE
    case 15: return Variable::readName(statement, scope, *this);
    case 16:
    case 17: return Variable::readProperty(statement, scope, *this);
    default: break;
  }
  switch (registrar_.familyOf(command)) {
    case APMPCommandRegistrar::kControl:
      return APMPControlCommandEvaluator::evaluate(statement, scope, *this, command);
    case APMPCommandRegistrar::kVariable: return Variable::evaluateOther(statement, scope, *this, command);
    case APMPCommandRegistrar::kLoop: return APMPLoopCommandEvaluator::evaluate(statement, scope, *this, command);
    default: return APMPFunctionEvaluator::evaluate(statement, scope, *this, command);
  }
}

bool APMPEvaluator::budgetExceeded() {
  fail(kAPMPErrorCodeBudgetExceeded, "Instruction budget exceeded");
  return false;
}

APMPRuntimeValue APMPEvaluator::run(const APMPRuntimeValue& statements, APMPScope* scope) {
  if (!statements.isArray()) return eval(statements, scope);
  // Hold the list: a program may change the array it runs.
  V hold = statements;
  APMPArrayValue* list = hold.asArray();
  V last;
  for (std::size_t i = 0; i < list->size(); ++i) {
    V statement = list->at(i);
    // Only the last statement's value is the list's; the others only matter as signals.
    last = i + 1 < list->size() ? effect(statement, scope) : eval(statement, scope);
    if (failed_) return {};
    if (last.isControl()) return last;
  }
  return last;
}

APMPRuntimeValue APMPEvaluator::evaluateStatement(const APMPRuntimeValue& statement,
                                                  APMPScope* scope, platform::Error* error) {
  failed_ = false;
  V r = eval(statement, scope);
  endRun();
  if (failed_) {
    if (error) *error = error_;
    return {};
  }
  return r;
}

APMPRuntimeValue APMPEvaluator::executeStatements(const APMPRuntimeValue& statements,
                                                  APMPScope* scope, platform::Error* error) {
  failed_ = false;
  V r = run(statements, scope);
  endRun();
  if (failed_) {
    if (error) *error = error_;
    return {};
  }
  return r;
}

APMPRuntimeValue APMPEvaluator::callFunction(const APMPRuntimeValue& function,
                                             const APMPRuntimeValue* arguments,
                                             std::size_t count) {
  if (failed_) return {};
  if (!function.isFunction()) {
    return fail(kAPMPErrorCodeWrongArgumentKind, function.stringValue() + " is not a function");
  }
  V hold = function;
  return hold.asFunction()->call(*this, arguments, count);
}

APMPRuntimeValue APMPEvaluator::applyMethod(const APMPRuntimeValue& target, const std::string& name,
                                            int method, const APMPRuntimeValue* arguments,
                                            std::size_t count) {
  switch (target.kind()) {
    case APMPValueKind::kString:
      return APMPStringCommandEvaluator::apply(target, name, method, arguments, count, *this);
    case APMPValueKind::kArray:
      return APMPArrayCommandEvaluator::apply(target, name, method, arguments, count, *this);
    case APMPValueKind::kMap: {
      const V* member = target.asMap()->find(name);
      if (member && member->isFunction()) return callFunction(*member, arguments, count);
      if (!member && name == "hasOwnProperty") {
        std::string key = count ? arguments[0].stringValue() : "undefined";
        return V::boolean(target.asMap()->find(key) != nullptr);
      }
      if (!member && name == "toString") return V::string("[object Object]");
      return fail(kAPMPErrorCodeWrongArgumentKind, name + " is not a function");
    }
    case APMPValueKind::kUndefined:
    case APMPValueKind::kNull:
      return fail(kAPMPErrorCodeWrongArgumentKind,
                  "Cannot read property " + name + " of " + target.stringValue());
    default:
      if (name == "toString") return V::string(target.stringValue());
      // Numbers and booleans have no properties of their own.
      if (name == "hasOwnProperty" && !target.isFunction()) return V::boolean(false);
      return fail(kAPMPErrorCodeWrongArgumentKind, name + " is not a function");
  }
}

[[gnu::noinline]] APMPRuntimeValue APMPFunctionValue::callInScope(APMPEvaluator& evaluator,
                                                const APMPRuntimeValue* arguments, std::size_t count) {
  if (!evaluator.enter()) return {};
  const std::size_t n = parameterNames_.size();
  APMPScope* callScope = spareScope_;
  if (callScope) {
    spareScope_ = nullptr;
    for (std::size_t i = 0; i < n && i < count; ++i) callScope->setBindingValue(i, arguments[i]);
  } else {
    callScope = new APMPScope(scope_);
    callScope->retain();
    for (std::size_t i = 0; i < n; ++i) {
      callScope->bind(parameterNames_[i], i < count ? arguments[i] : V(), false);
    }
  }
  // The caller holds this function, and with it the body.
  bool returned = false;
  V r = evaluator.runCallBody(body_, callScope, &returned);
  // A scope that nothing else holds now is kept for the next call (a recursive call may
  // have left one already).
  if (!spareScope_ && callScope->referenceCount() == 1 && callScope->parent() == scope_ &&
      callScope->recycle(parameterNames_.data(), n)) {
    spareScope_ = callScope;
  } else {
    callScope->release();
  }
  evaluator.leave();
  if (returned) return r;
  if (r.isControl() && r.asControl()->type() == APMPControlValue::Type::kReturn) {
    return evaluator.returnedData(r);
  }
  return {};
}

// --- Compiled operations --------------------------------------------------------------------

namespace {

// What the evaluator runs a statement as. kGeneric goes to its family's evaluator; the others
// are the same meaning with the statement's arity and literal names checked at compile time.
enum Operation : std::uint8_t {
  kUncompiled = 0,
  kGeneric,
  kAdd, kSubtract, kMultiply, kDivide, kRemainder,
  kLess, kLessOrEqual, kGreater, kGreaterOrEqual,
  kStrictEqual, kStrictNotEqual, kLooseEqual, kLooseNotEqual,
  kReadName,      // 15 of a literal name
  kReadProperty,  // 16, 17
  kAssign,        // 3 to a literal name
  kAssignSum,     // 3 of the form `name = name + x`, x a literal or a name read
  kCall,          // a call of the function bound to the statement's name
  kReturn,        // 36
  kIf,            // 22
  kRun,           // 5, 9
  kFor,           // 63
};

// Flags of kAssignSum: what x is.
enum : std::uint8_t { kSumOfName = 1 };
// Flag of the arithmetic and comparison operations: an operand was once no number, so the
// fast path does not try doubles first.
enum : std::uint8_t { kNotNumeric = 2 };

// The kinds of APMPNumberStep: pushes, then the operations on the top two, in the order of
// kAdd..kRemainder.
enum NumberStepKind : std::uint8_t {
  kPushLiteral, kPushName, kPushEntry, kStepAdd, kStepSubtract, kStepMultiply, kStepDivide,
  kStepRemainder,
};

// Appends the steps of `argument` at stack height `height`: a literal number, a name read, a
// read of a name's value under a literal key, or arithmetic of those. Adds the statements it
// stands for to `count` and keeps the highest stack in `most`. False when it has no such form.
bool flattenNumber(const V& argument, std::vector<APMPNumberStep>& steps, int height, int& most,
                   std::uint32_t& count) {
  if (!argument.isStatement()) {
    if (!argument.isNumber()) return false;
    steps.push_back({kPushLiteral, argument.numberPayload(), nullptr, nullptr});
  } else {
    const APMPStatementValue& s = *argument.asStatement();
    const auto& args = s.arguments();
    std::uint8_t op = s.operation();
    if (op == kReadName) {
      steps.push_back({kPushName, 0, &s.slot(), nullptr});
      count += 1;
    } else if (op == kReadProperty) {
      if (!args[1].isString() || !args[0].isStatement() ||
          args[0].asStatement()->operation() != kReadName) {
        return false;
      }
      steps.push_back({kPushEntry, 0, &args[0].asStatement()->slot(), args[1].asString(),
                       args[1].asString()->equals("length") ? APMPNumberStep::kLength : 0});
      count += 2;
    } else if (op >= kAdd && op <= kRemainder) {
      if (!flattenNumber(args[0], steps, height, most, count) ||
          !flattenNumber(args[1], steps, height + 1, most, count)) {
        return false;
      }
      steps.push_back({static_cast<std::uint8_t>(kStepAdd + (op - kAdd)), 0, nullptr, nullptr});
      count += 1;
      return true;
    } else {
      return false;
    }
  }
  most = std::max(most, height + 1);
  return most <= APMPEvaluator::kNumberStack;
}

// Gives an arithmetic or comparison statement its flat number form, or marks it as having none.
void buildNumberForm(const APMPStatementValue& e) {
  std::vector<APMPNumberStep> steps;
  int most = 0;
  std::uint32_t count = 1;
  const auto& args = e.arguments();
  // One operation on two names or literals runs faster directly.
  auto nested = [](const V& a) {
    return a.isStatement() && a.asStatement()->operation() >= kAdd &&
           (a.asStatement()->operation() <= kRemainder || a.asStatement()->operation() == kReadProperty);
  };
  if (!nested(args[0]) && !nested(args[1])) {
    e.setNoNumberForm();
    return;
  }
  if (!flattenNumber(args[0], steps, 0, most, count) || !flattenNumber(args[1], steps, 1, most, count)) {
    e.setNoNumberForm();
    return;
  }
  if (e.operation() <= kRemainder) {
    steps.push_back({static_cast<std::uint8_t>(kStepAdd + (e.operation() - kAdd)), 0, nullptr, nullptr});
  }
  e.setNumberForm(std::move(steps), count);
}

[[gnu::always_inline]] inline double combine(std::uint8_t op, double x, double y) {
  switch (op) {
    case kAdd: return x + y;
    case kSubtract: return x - y;
    case kMultiply: return x * y;
    case kDivide: return x / y;
    default: return remainderOf(x, y);
  }
}

[[gnu::always_inline]] inline bool compare(std::uint8_t op, double x, double y) {
  switch (op) {
    case kLess: return x < y;
    case kLessOrEqual: return x <= y;
    case kGreater: return x > y;
    case kGreaterOrEqual: return x >= y;
    case kStrictEqual: case kLooseEqual: return x == y;
    default: return x != y;  // kStrictNotEqual, kLooseNotEqual
  }
}

void pointSlotAt(const APMPStatementValue& statement, const V& name) {
  APMPSlot& slot = statement.slot();
  slot.name = name.asString();
  slot.bit = name.asString()->nameBit();
  slot.hops = APMPSlot::kUnresolved;
  slot.index = 0;
  slot.from = nullptr;
}

// A literal name read `15(name)`, or null.
const APMPStatementValue* literalRead(const V& v) {
  if (!v.isStatement()) return nullptr;
  const APMPStatementValue& s = *v.asStatement();
  if (s.command() != 15 || s.arguments().size() != 1 || !s.arguments()[0].isString()) return nullptr;
  return &s;
}

}  // namespace

std::uint8_t APMPEvaluator::compileOperation(const APMPStatementValue& statement) {
  const_cast<APMPStatementValue&>(statement).internNames(names_);
  const auto& args = statement.arguments();
  const std::size_t n = args.size();
  std::uint8_t op = kGeneric, flags = 0;
  switch (statement.command()) {
    case 0: if (n == 2) op = kAdd; break;
    case 37: if (n == 2) op = kSubtract; break;
    case 26: if (n == 2) op = kMultiply; break;
    case 10: if (n == 2) op = kDivide; break;
    case 25: if (n == 2) op = kRemainder; break;
    case 23: if (n == 2) op = kLess; break;
    case 24: if (n == 2) op = kLessOrEqual; break;
    case 18: if (n == 2) op = kGreater; break;
    case 19: if (n == 2) op = kGreaterOrEqual; break;
    case 20: if (n == 2) op = kStrictEqual; break;
    case 21: if (n == 2) op = kStrictNotEqual; break;
    case 12: if (n == 2) op = kLooseEqual; break;
    case 29: if (n == 2) op = kLooseNotEqual; break;
    case 15:
      if (n == 1 && args[0].isString()) {
        op = kReadName;
        pointSlotAt(statement, args[0]);
      }
      break;
    case 16:
    case 17: if (n == 2) op = kReadProperty; break;
    case 36: if (n <= 1) op = kReturn; break;
    case 22: if (n == 2 || n == 3) op = kIf; break;
    case 5:
    case 9: if (n == 1) op = kRun; break;
    case 63: if (n == 4) op = kFor; break;
    case 3: {
      if (n != 2 || !args[0].isString()) break;
      op = kAssign;
      pointSlotAt(statement, args[0]);
      if (!args[1].isStatement()) break;
      const APMPStatementValue& sum = *args[1].asStatement();
      if (sum.command() != 0 || sum.arguments().size() != 2) break;
      const APMPStatementValue* left = literalRead(sum.arguments()[0]);
      if (!left || !left->arguments()[0].asString()->equals(args[0].stringPayload())) break;
      const V& right = sum.arguments()[1];
      if (const APMPStatementValue* read = literalRead(right)) {
        if (read->operation() == kUncompiled) compile(*read);
        flags = kSumOfName;
      } else if (!right.isString() && !right.isNumber()) {
        break;
      }
      op = kAssignSum;
      break;
    }
    default:
      if (!registrar_.isKnownCommand(statement.command()) && statement.calleeName().isString()) {
        op = kCall;
        pointSlotAt(statement, statement.calleeName());
      }
      break;
  }
  statement.setOperation(op, flags);
  return op;
}

std::uint8_t APMPEvaluator::compile(const APMPStatementValue& statement) {
  std::uint8_t op = compileOperation(statement);
  measureExpression(statement, 0);
  return op;
}

namespace {

// Commands without side effects that cannot fail but for the reasons quick drops on, with
// their arity.
bool isExpressionCommand(int c, std::size_t n) {
  switch (c) {
    case 0: case 10: case 25: case 26: case 37: case 32: case 33:
    case 12: case 29: case 20: case 21: case 18: case 19: case 23: case 24:
    case 1: case 30:
    case 56: case 57: case 59: case 60: case 61: case 62:
    case 16: case 17:
      return n == 2;
    case 27: case 34: case 35: case 28: case 58: case 40:
      return n == 1;
    case 44: case 45:
      return n == 0;
    default: return false;
  }
}

}  // namespace

void APMPEvaluator::measureExpression(const APMPStatementValue& statement, int nesting) {
  const auto& args = statement.arguments();
  std::uint32_t size = 0;
  int depth = 0;
  if (statement.operation() == kReadName) {
    size = 1;
    depth = 1;
  } else if (nesting <= kMaxDepth && isExpressionCommand(statement.command(), args.size())) {
    size = 1;
    depth = 1;
    for (const auto& a : args) {
      if (!a.isStatement()) continue;
      const APMPStatementValue& child = *a.asStatement();
      if (child.operation() == kUncompiled) {
        compileWithin(child, nesting + 1);
      }
      if (child.expressionSize() == 0) {
        size = 0;
        depth = 0;
        break;
      }
      size += child.expressionSize();
      depth = std::max(depth, child.expressionDepth() + 1);
    }
  }
  statement.setExpression(size, depth);
}

void APMPEvaluator::compileWithin(const APMPStatementValue& statement, int nesting) {
  // compile() measures from nesting 0; children deeper in an expression measure from theirs.
  compileOperation(statement);
  measureExpression(statement, nesting);
}

[[gnu::always_inline]] inline bool APMPEvaluator::quickNumberArgument(const APMPRuntimeValue& argument,
                                                                   APMPScope* scope, double* out) {
  if (!argument.isStatement()) {
    if (!argument.isNumber()) return false;
    *out = argument.numberPayload();
    return true;
  }
  const APMPStatementValue& s = *argument.asStatement();
  // The leaves of most expressions: a name read, here without a call.
  if (s.operation() == kReadName) {
    ++instructions_;
    APMPScope::Binding* b = scope->lookup(s.slot());
    if (!b || !b->value.isNumber()) return false;
    *out = b->value.numberPayload();
    return true;
  }
  return quickNumber(s, scope, out);
}

[[gnu::always_inline]] inline APMPRuntimeValue APMPEvaluator::quickArgument(
    const APMPRuntimeValue& argument, APMPScope* scope) {
  if (!argument.isStatement()) return argument;
  const APMPStatementValue& s = *argument.asStatement();
  std::uint8_t op = s.operation();
  // The leaves of most expressions: a name read, here without a call.
  if (op == kReadName) {
    ++instructions_;
    APMPScope::Binding* b = scope->lookup(s.slot());
    if (!b) return drop();
    return b->value;
  }
  if (op == kUncompiled) op = compileOperation(s);
  return quick(s, op, scope);
}

APMPRuntimeValue APMPEvaluator::quick(const APMPStatementValue& statement, std::uint8_t op,
                                      APMPScope* scope) {
  // Arithmetic and comparisons on numbers: the operands as doubles, no values made on the way.
  if (op >= kAdd && op <= kLooseNotEqual && !(statement.operationFlags() & kNotNumeric)) {
    double stack[kNumberStack];
    if (numbersOrMark(statement, scope, stack)) {
      if (op <= kRemainder) return V::number(stack[0]);
      return V::boolean(compare(op, stack[0], stack[1]));
    }
  }
  ++instructions_;
  const auto& args = statement.arguments();
  if (op == kReadName) {
    APMPScope::Binding* b = scope->lookup(statement.slot());
    if (!b) return drop();
    return b->value;
  }
  int c = statement.command();
  switch (c) {
    case 44: return {};
    case 45: return V::null();
    case 1:
    case 30: {
      V a = quickArgument(args[0], scope);
      if (dropped_) return {};
      bool decided = c == 1 ? !a.booleanValue() : a.booleanValue();
      if (decided) return a;
      return quickArgument(args[1], scope);
    }
    default: break;
  }
  V a = quickArgument(args[0], scope);
  if (dropped_) return {};
  switch (c) {
    case 27: return V::number(-a.doubleValue());
    case 34: case 35: return a;
    case 28: return V::boolean(!a.booleanValue());
    case 58: return V::number(~APMPToInt32(a.doubleValue()));
    case 40: return V::string(a.typeName());
    default: break;
  }
  V b = quickArgument(args[1], scope);
  if (dropped_) return {};
  bool numbers = a.isNumber() && b.isNumber();
  switch (c) {
    case 0:
      if (numbers) return V::number(a.numberPayload() + b.numberPayload());
      return quickSum(a, b);
    case 10: return V::number(a.doubleValue() / b.doubleValue());
    case 25: return V::number(remainderOf(a.doubleValue(), b.doubleValue()));
    case 26: return V::number(a.doubleValue() * b.doubleValue());
    case 37: return V::number(a.doubleValue() - b.doubleValue());
    case 32: case 33: return a;
    case 12: return V::boolean(a.looselyEquals(b));
    case 29: return V::boolean(!a.looselyEquals(b));
    case 20: return V::boolean(a.isEqualToRuntimeValue(b));
    case 21: return V::boolean(!a.isEqualToRuntimeValue(b));
    case 18:
      if (numbers) return V::boolean(a.numberPayload() > b.numberPayload());
      return V::boolean(lessThan(b, a) == 1);
    case 19:
      if (numbers) return V::boolean(a.numberPayload() >= b.numberPayload());
      return V::boolean(lessThan(a, b) == 0);
    case 23:
      if (numbers) return V::boolean(a.numberPayload() < b.numberPayload());
      return V::boolean(lessThan(a, b) == 1);
    case 24:
      if (numbers) return V::boolean(a.numberPayload() <= b.numberPayload());
      return V::boolean(lessThan(b, a) == 0);
    case 56: case 57: case 59: case 60: case 61: case 62: {
      std::int32_t x = APMPToInt32(a.doubleValue());
      std::uint32_t shift = APMPToUint32(b.doubleValue()) & 31;
      switch (c) {
        case 56: return V::number(x & APMPToInt32(b.doubleValue()));
        case 57: return V::number(static_cast<std::int32_t>(static_cast<std::uint32_t>(x) << shift));
        case 59: return V::number(x | APMPToInt32(b.doubleValue()));
        case 60: return V::number(x >> shift);
        case 61: return V::number(APMPToUint32(a.doubleValue()) >> shift);
        default: return V::number(x ^ APMPToInt32(b.doubleValue()));
      }
    }
    default: {  // 16, 17
      if (V own; readOwnProperty(a, b, &own)) return own;
      return quickProperty(a, b);
    }
  }
}

[[gnu::always_inline]] inline bool APMPEvaluator::quickNumbers(const APMPStatementValue& e,
                                                             APMPScope* scope, double* stack) {
  if (e.numberForm() == 0) buildNumberForm(e);
  if (e.numberForm() == 1) return runNumberSteps(e, scope, stack);
  ++instructions_;
  const auto& args = e.arguments();
  if (!quickNumberArgument(args[0], scope, &stack[0]) || !quickNumberArgument(args[1], scope, &stack[1])) {
    return false;
  }
  if (e.operation() <= kRemainder) stack[0] = combine(e.operation(), stack[0], stack[1]);
  return true;
}

bool APMPEvaluator::runNumberSteps(const APMPStatementValue& e, APMPScope* scope, double* stack) {
  instructions_ += e.numberCount();
  double* top = stack;  // the next free place
  for (const APMPNumberStep& step : e.numberSteps()) {
    switch (step.kind) {
      case kPushLiteral: *top++ = step.literal; break;
      case kPushName: {
        APMPScope::Binding* b = scope->lookup(*step.slot);
        if (!b || !b->value.isNumber()) return false;
        *top++ = b->value.numberPayload();
        break;
      }
      case kPushEntry: {
        APMPScope::Binding* b = scope->lookup(*step.slot);
        if (!b) return false;
        const V& object = b->value;
        // A string's length first: the step's key is "length" when entryHint says so.
        if (object.isString() && step.entryHint == APMPNumberStep::kLength) {
          *top++ = static_cast<double>(object.stringPayload().size());
        } else if (object.isMap()) {
          const auto& entries = object.asMap()->entries();
          const std::string& key = step.key->value();
          std::uint32_t at = step.entryHint;
          if (at >= entries.size() || !sameText(entries[at].first, key)) {
            const V* v = object.asMap()->find(key);
            if (!v) return false;
            at = 0;
            while (&entries[at].second != v) ++at;
            if (step.entryHint != APMPNumberStep::kLength) step.entryHint = at;
          }
          const V& v = entries[at].second;
          if (!v.isNumber()) return false;
          *top++ = v.numberPayload();
        } else {
          return false;
        }
        break;
      }
      case kStepAdd: --top; top[-1] += top[0]; break;
      case kStepSubtract: --top; top[-1] -= top[0]; break;
      case kStepMultiply: --top; top[-1] *= top[0]; break;
      case kStepDivide: --top; top[-1] /= top[0]; break;
      default: --top; top[-1] = remainderOf(top[-1], top[0]); break;
    }
  }
  return true;
}

bool APMPEvaluator::quickNumber(const APMPStatementValue& statement, APMPScope* scope,
                                double* out) {
  ++instructions_;
  const auto& args = statement.arguments();
  switch (statement.operation()) {
    case kReadName: {
      APMPScope::Binding* b = scope->lookup(statement.slot());
      if (!b || !b->value.isNumber()) return false;
      *out = b->value.numberPayload();
      return true;
    }
    case kAdd: case kSubtract: case kMultiply: case kDivide: case kRemainder: {
      double x, y;
      if (!quickNumberArgument(args[0], scope, &x) || !quickNumberArgument(args[1], scope, &y)) {
        return false;
      }
      *out = combine(statement.operation(), x, y);
      return true;
    }
    case kReadProperty: return quickNumberProperty(statement, scope, out);
    default: return false;
  }
}

bool APMPEvaluator::quickNumberProperty(const APMPStatementValue& statement, APMPScope* scope,
                                        double* out) {
  const auto& args = statement.arguments();
  // The object: a name's value read where it is bound, or any other expression's value.
  const V* object = &args[0];
  V held;
  if (args[0].isStatement()) {
    const APMPStatementValue& read = *args[0].asStatement();
    if (read.operation() == kReadName) {
      ++instructions_;
      APMPScope::Binding* b = scope->lookup(read.slot());
      if (!b) return false;
      object = &b->value;
    } else {
      held = quickArgument(args[0], scope);
      if (dropped_) return false;
      object = &held;
    }
  }
  const V& key = args[1];
  if (key.isString()) {
    if (object->isMap()) {
      const V* v = object->asMap()->find(key.stringPayload());
      if (!v || !v->isNumber()) return false;
      *out = v->numberPayload();
      return true;
    }
    if (object->isString() && key.asString()->equals("length")) {
      *out = static_cast<double>(object->stringPayload().size());
      return true;
    }
    return false;
  }
  if (!object->isArray()) return false;
  double d;
  if (!quickNumberArgument(key, scope, &d)) return false;
  APMPArrayValue* a = object->asArray();
  if (!(d >= 0 && d < static_cast<double>(a->size()) &&
        d == static_cast<double>(static_cast<std::size_t>(d)))) {
    return false;
  }
  const V& element = a->at(static_cast<std::size_t>(d));
  if (!element.isNumber()) return false;
  *out = element.numberPayload();
  return true;
}

APMPRuntimeValue APMPEvaluator::quickSum(const APMPRuntimeValue& a, const APMPRuntimeValue& b) {
  if (a.isString() && b.isString()) {
    const std::string& x = a.stringPayload();
    const std::string& y = b.stringPayload();
    if (!APMPHeap::canAllocate(x.size() + y.size() + 64)) return drop();
    std::string sum;
    sum.reserve(x.size() + y.size());
    sum += x;
    sum += y;
    return V::string(std::move(sum));
  }
  if (a.isString() || a.isObject() || b.isString() || b.isObject()) return drop();
  return V::number(a.doubleValue() + b.doubleValue());
}

APMPRuntimeValue APMPEvaluator::quickProperty(const APMPRuntimeValue& object,
                                              const APMPRuntimeValue& key) {
  if (object.isNullish()) return drop();
  platform::Error error;
  V r = object.valueForProperty(key, &error);
  if (error.code) return drop();
  return r;
}

[[gnu::always_inline]] inline bool APMPEvaluator::quickOperand(const APMPRuntimeValue& argument,
                                                             APMPScope* scope, std::uint8_t first,
                                                             std::uint8_t last, double* stack,
                                                             std::uint8_t* op) {
  if (!argument.isStatement()) return false;
  const APMPStatementValue& e = *argument.asStatement();
  *op = e.operation();
  if (*op < first || *op > last || (e.operationFlags() & kNotNumeric)) return false;
  std::uint32_t most = e.expressionSize();
  if (!most || failed_ || instructions_ + most >= kInstructionBudget ||
      depth_ + e.expressionDepth() > kMaxDepth) {
    return false;
  }
  return numbersOrMark(e, scope, stack);
}

[[gnu::always_inline]] inline bool APMPEvaluator::numbersOrMark(const APMPStatementValue& e,
                                                              APMPScope* scope, double* stack) {
  std::uint64_t mark = instructions_;
  if (quickNumbers(e, scope, stack)) return true;
  // Some operand is no number: this statement takes the general path from now on.
  instructions_ = mark;
  dropped_ = false;
  e.addOperationFlags(kNotNumeric);
  return false;
}

[[gnu::always_inline]] inline bool APMPEvaluator::numberOperand(const APMPRuntimeValue& argument,
                                                             APMPScope* scope, double* out) {
  double stack[kNumberStack];
  std::uint8_t op;
  if (!quickOperand(argument, scope, kAdd, kRemainder, stack, &op)) return false;
  *out = stack[0];
  return true;
}

[[gnu::always_inline]] inline bool APMPEvaluator::conditionOperand(const APMPRuntimeValue& argument,
                                                                APMPScope* scope, bool* out) {
  double stack[kNumberStack];
  std::uint8_t op;
  if (!quickOperand(argument, scope, kLess, kLooseNotEqual, stack, &op)) return false;
  *out = compare(op, stack[0], stack[1]);
  return true;
}

[[gnu::always_inline]] inline APMPRuntimeValue APMPEvaluator::effect(const APMPRuntimeValue& argument,
                                                                     APMPScope* scope) {
  if (argument.isStatement()) {
    const APMPStatementValue& s = *argument.asStatement();
    // `name = name + x` in place, its instruction and depth counted as evalStatement counts
    // them; where it does not apply, nothing was done and the general path runs.
    std::uint8_t op = s.operation();
    if (((op >= kAssign && op <= kCall) || op == kIf) && !failed_ &&
        instructions_ + 1 < kInstructionBudget && depth_ < kMaxDepth) {
      ++instructions_;
      ++depth_;
      if (op == kAssignSum) {
        bool done = addInPlace(s, scope, nullptr);
        --depth_;
        if (done) return {};
        --instructions_;
        return operand(argument, scope);
      }
      V r;
      if (op == kCall) {
        r = executeCall(s, scope);
      } else if (op == kIf) {
        const auto& args = s.arguments();
        bool taken;
        if (!conditionOperand(args[0], scope, &taken)) {
          V condition = operand(args[0], scope);
          taken = !failed_ && condition.booleanValue();
        }
        if (!failed_) {
          if (taken) {
            r = runBody(args[1], scope, *this);
          } else if (args.size() == 3) {
            r = runBody(args[2], scope, *this);
          }
        }
      } else {  // kAssign
        const auto& args = s.arguments();
        V value = valueOperand(args[1], scope);
        if (!failed_) {
          APMPScope::Binding* b = scope->lookup(s.slot());
          if (!b || b->immutable) {
            assignmentFailure(args[0], b != nullptr);
          } else {
            b->value = std::move(value);
          }
        }
      }
      --depth_;
      if (failed_) return {};
      return r;
    }
  }
  return operand(argument, scope);
}

[[gnu::always_inline]] inline APMPRuntimeValue APMPEvaluator::valueOperand(const APMPRuntimeValue& argument,
                                                                           APMPScope* scope) {
  if (double d; numberOperand(argument, scope, &d)) return V::number(d);
  if (bool b; conditionOperand(argument, scope, &b)) return V::boolean(b);
  return operand(argument, scope);
}

[[gnu::always_inline]] inline APMPRuntimeValue APMPEvaluator::operand(const APMPRuntimeValue& argument,
                                                                      APMPScope* scope) {
  if (!argument.isStatement()) return argument;
  const APMPStatementValue& s = *argument.asStatement();
  // A name read: its instruction and depth counted as evalStatement counts them.
  if (s.operation() == kReadName && !failed_ && depth_ < kMaxDepth) {
    if (!tick()) return {};
    APMPScope::Binding* b = scope->lookup(s.slot());
    if (!b) return fail(kAPMPErrorCodeWrongArgumentKind, nameFailure(s.arguments()[0].stringPayload()));
    return b->value;
  }
  // An expression without side effects: straight to its fast path (see evalStatement).
  if (std::uint32_t most = s.expressionSize()) {
    if (!failed_ && instructions_ + most < kInstructionBudget &&
        depth_ + s.expressionDepth() <= kMaxDepth) {
      std::uint64_t before = instructions_;
      dropped_ = false;
      V r = quick(s, s.operation(), scope);
      if (!dropped_) return r;
      instructions_ = before;
    }
  }
  return evalStatement(s, scope);
}

APMPRuntimeValue APMPEvaluator::runCallBody(const APMPRuntimeValue& body, APMPScope* scope,
                                            bool* returned) {
  if (!body.isArray()) return run(body, scope);
  APMPArrayValue* list = body.asArray();
  V last;
  for (std::size_t i = 0; i < list->size(); ++i) {
    V element = list->at(i);  // held: the program may change the list it runs
    if (element.isStatement() && element.asStatement()->operation() == kReturn) {
      // A `return` in the body itself: counted as evalStatement counts it, its data handed
      // straight to the call instead of travelling up in a signal.
      const auto& args = element.asStatement()->arguments();
      if (failed_ || !tick()) return {};
      if (++depth_ > kMaxDepth) {
        --depth_;
        return fail(kAPMPErrorCodeBudgetExceeded, "Maximum call depth exceeded");
      }
      V data = args.empty() ? V() : valueOperand(args[0], scope);
      --depth_;
      if (failed_) return {};
      *returned = true;
      return data;
    }
    last = effect(element, scope);
    if (failed_) return {};
    if (last.isControl()) return last;
  }
  return last;
}

bool APMPEvaluator::addInPlace(const APMPStatementValue& statement, APMPScope* scope, V* out) {
  const APMPStatementValue& sum = *statement.arguments()[1].asStatement();
  const V& rightArgument = sum.arguments()[1];
  if (depth_ + 2 > kMaxDepth) return false;
  APMPScope::Binding* b = scope->lookup(statement.slot());
  if (!b || b->immutable) return false;
  bool number = b->value.isNumber();
  if (!number && !(b->value.isString() && b->value.object()->referenceCount() == 1)) return false;
  // The sum and the read of the name.
  if (!tick() || !tick()) return true;
  const V* x = &rightArgument;
  if (statement.operationFlags() & kSumOfName) {
    if (!tick()) return true;
    const APMPStatementValue& read = *rightArgument.asStatement();
    if (read.operation() == kUncompiled) compile(read);
    APMPScope::Binding* rb = scope->lookup(read.slot());
    if (!rb) {
      fail(kAPMPErrorCodeWrongArgumentKind, nameFailure(read.arguments()[0].stringPayload()));
      return true;
    }
    x = &rb->value;
  }
  if (number && x->isNumber()) {
    b->value.setNumber(b->value.numberPayload() + x->numberPayload());
    if (out) *out = b->value;
    return true;
  }
  // Held where x is the name's own value (`s = s + s`), which the sum replaces.
  V held;
  if (x == &b->value) {
    held = *x;
    x = &held;
  }
  const V& r = *x;
  if (!number && b->value.object()->referenceCount() == 1 && (r.isString() || r.isNumber())) {
    bool ok;
    if (r.isString()) {
      ok = b->value.asString()->appendInPlace(r.stringPayload());
    } else {
      std::string text;
      APMPAppendNumber(text, r.numberPayload());
      ok = b->value.asString()->appendInPlace(text);
    }
    if (!ok) {
      fail(kAPMPErrorCodeBudgetExceeded, "Out of memory: string too long");
      return true;
    }
  } else {
    V sumValue = add(b->value, r, *this);
    if (failed_) return true;
    b->value = std::move(sumValue);
  }
  if (out) *out = b->value;
  return true;
}

[[gnu::always_inline]] inline APMPRuntimeValue APMPEvaluator::execute(
    const APMPStatementValue& statement, std::uint8_t op, APMPScope* scope) {
  const auto& args = statement.arguments();
  if (op >= kAdd && op <= kLooseNotEqual) {
    V a = operand(args[0], scope);
    if (failed_) return {};
    V b = operand(args[1], scope);
    if (failed_) return {};
    bool numbers = a.isNumber() && b.isNumber();
    switch (op) {
      case kAdd:
        if (numbers) return V::number(a.numberPayload() + b.numberPayload());
        return add(a, b, *this);
      case kSubtract: return V::number(a.doubleValue() - b.doubleValue());
      case kMultiply: return V::number(a.doubleValue() * b.doubleValue());
      case kDivide: return V::number(a.doubleValue() / b.doubleValue());
      case kRemainder: return V::number(remainderOf(a.doubleValue(), b.doubleValue()));
      case kLess:
        if (numbers) return V::boolean(a.numberPayload() < b.numberPayload());
        return V::boolean(lessThan(a, b) == 1);
      case kLessOrEqual:
        if (numbers) return V::boolean(a.numberPayload() <= b.numberPayload());
        return V::boolean(lessThan(b, a) == 0);
      case kGreater:
        if (numbers) return V::boolean(a.numberPayload() > b.numberPayload());
        return V::boolean(lessThan(b, a) == 1);
      case kGreaterOrEqual:
        if (numbers) return V::boolean(a.numberPayload() >= b.numberPayload());
        return V::boolean(lessThan(a, b) == 0);
      case kStrictEqual: return V::boolean(a.isEqualToRuntimeValue(b));
      case kStrictNotEqual: return V::boolean(!a.isEqualToRuntimeValue(b));
      case kLooseEqual: return V::boolean(a.looselyEquals(b));
      default: return V::boolean(!a.looselyEquals(b));  // kLooseNotEqual
    }
  }
  switch (op) {
    case kReadName: {
      APMPScope::Binding* b = scope->lookup(statement.slot());
      if (!b) return fail(kAPMPErrorCodeWrongArgumentKind, nameFailure(args[0].stringPayload()));
      return b->value;
    }
    case kReadProperty: {
      V object = operand(args[0], scope);
      if (failed_) return {};
      V key = operand(args[1], scope);
      if (failed_) return {};
      if (V own; readOwnProperty(object, key, &own)) return own;
      return readPropertySlowly(object, key);
    }
    case kAssignSum: {
      V result;
      if (addInPlace(statement, scope, &result)) return result;
      if (failed_) return {};
      [[fallthrough]];
    }
    case kAssign: {
      V value = valueOperand(args[1], scope);
      if (failed_) return {};
      APMPScope::Binding* b = scope->lookup(statement.slot());
      if (!b || b->immutable) return assignmentFailure(args[0], b != nullptr);
      b->value = value;
      return value;
    }
    case kCall: return executeCall(statement, scope);
    case kReturn: {
      V data = args.empty() ? V() : valueOperand(args[0], scope);
      if (failed_) return {};
      return returnSignal(std::move(data));
    }
    case kIf: {
      bool taken;
      if (!conditionOperand(args[0], scope, &taken)) {
        V condition = operand(args[0], scope);
        if (failed_) return {};
        taken = condition.booleanValue();
      }
      if (taken) return runBody(args[1], scope, *this);
      if (args.size() == 3) return runBody(args[2], scope, *this);
      return {};
    }
    case kRun: return run(args[0], scope);
    case kFor: return executeFor(statement, scope);
    default: return dispatch(statement, scope);
  }
}

APMPRuntimeValue APMPEvaluator::readPropertySlowly(const APMPRuntimeValue& object,
                                                   const APMPRuntimeValue& key) {
  platform::Error error;
  V r = object.valueForProperty(key, &error);
  if (error.code) return fail(error.code, error.localizedDescription);
  return r;
}

APMPRuntimeValue APMPEvaluator::assignmentFailure(const APMPRuntimeValue& name, bool bound) {
  return fail(kAPMPErrorCodeWrongArgumentKind,
              bound ? "Assignment to constant variable " + name.stringPayload()
                    : nameFailure(name.stringPayload()));
}

APMPRuntimeValue APMPEvaluator::executeCall(const APMPStatementValue& statement, APMPScope* scope) {
  APMPScope::Binding* b = scope->lookup(statement.slot());
  if (!b) {
    return fail(kAPMPErrorCodeWrongArgumentKind,
                statement.command() >= 0 ? "Unknown command " + statement.functionName()
                                         : nameFailure(statement.functionName()));
  }
  if (!b->value.isFunction()) {
    return fail(kAPMPErrorCodeWrongArgumentKind, statement.functionName() + " is not a function");
  }
  V callee = b->value;
  const auto& args = statement.arguments();
  if (args.size() <= 3) {
    V list[3];
    for (std::size_t i = 0; i < args.size(); ++i) {
      list[i] = operand(args[i], scope);
      if (failed_) return {};
    }
    APMPFunctionValue& function = *callee.asFunction();
    if (const APMPLeafForm* leaf = function.leafForm(); leaf && leaf->state == APMPLeafForm::kLeaf) {
      if (V r; callLeaf(function, list, args.size(), &r)) return r;
    }
    return function.call(*this, list, args.size());
  }
  ArgumentList list;
  for (const auto& a : args) {
    list.push(operand(a, scope));
    if (failed_) return {};
  }
  return callee.asFunction()->call(*this, list.data(), list.size());
}

namespace {

// The parts of a counting loop `for (...; name OP number; name = name + number)`, the form
// most loops take; null pointers where the condition or the update has another form.
struct CountingLoop {
  const APMPStatementValue* condition = nullptr;  // `name OP limit`, OP a numeric comparison
  const APMPStatementValue* conditionRead = nullptr;
  double limit = 0;
  const APMPStatementValue* update = nullptr;  // `name = name + step`
  double step = 0;
};

}  // namespace

const APMPStatementValue* APMPEvaluator::compiledAs(const APMPRuntimeValue& v, std::uint8_t first,
                                                    std::uint8_t last) {
  if (!v.isStatement()) return nullptr;
  const APMPStatementValue& s = *v.asStatement();
  std::uint8_t op = s.operation();
  if (op == kUncompiled) op = compile(s);
  return op >= first && op <= last ? &s : nullptr;
}

// Learns a leaf's form (see APMPLeafForm) statement by statement; any part without a leaf
// form leaves it no leaf.
class APMPEvaluator::LeafLearner {
 public:
  using Register = std::uint8_t;
  static constexpr Register kNoRegister = 255;

  LeafLearner(APMPEvaluator& ev, const std::vector<V>& parameters, APMPLeafForm& form)
      : ev_(ev), parameters_(parameters), form_(form) {}

  // Learns the comparison `value` as a loop's condition.
  bool condition(const V& value) {
    const APMPStatementValue* c = ev_.compiledAs(value, kLess, kLooseNotEqual);
    if (!c || !c->expressionSize() || !compare(*c)) return false;
    form_.conditionEnd = static_cast<std::uint16_t>(form_.steps.size());
    form_.conditionCount = 1 + c->expressionSize();
    form_.count += form_.conditionCount;
    deepest_ = std::max(deepest_, static_cast<int>(c->expressionDepth()));
    return true;
  }
  // Learns `element`: an assignment `name = value`, or, where `last` allows it, a return.
  bool statement(const V& element, bool last) {
    const V* value;
    const APMPStatementValue* assignment = ev_.compiledAs(element, kAssign, kAssignSum);
    if (assignment) {
      value = &assignment->arguments()[1];
    } else if (const APMPStatementValue* r = ev_.compiledAs(element, kReturn, kReturn);
               r && last && r->arguments().size() == 1) {
      value = &r->arguments()[0];
    } else {
      return false;
    }
    // The statement counts one and nests one deeper; its value, an expression without side
    // effects, as its size and depth say.
    std::uint32_t size = 0;
    int depth = 0;
    const APMPStatementValue* e = nullptr;
    if (value->isStatement()) {
      e = ev_.compiledAs(*value, kAdd, kReadProperty);
      if (!e || !e->expressionSize()) return false;
      size = e->expressionSize();
      depth = e->expressionDepth();
    }
    if (assignment) {
      // Names general statements touch stay in their bindings.
      if (dynamic(assignment->arguments()[0].stringPayload())) return false;
      Register target = name(assignment->arguments()[0]);
      Register source = this->value(*value);
      if (target == kNoRegister || source == kNoRegister) return false;
      if (target >= APMPLeafForm::kOutsideRegisters) {
        form_.outsideWritten |= bit(target - APMPLeafForm::kOutsideRegisters);
      }
      // The last step writes to the target instead where it made the value.
      if (source >= APMPLeafForm::kOtherRegisters && !form_.steps.empty() &&
          form_.steps.back().target == source) {
        form_.steps.back().target = target;
      } else {
        form_.steps.push_back({APMPLeafForm::Step::kCopy, target, source, source});
      }
    } else {
      if (e && e->operation() >= kLess && e->operation() <= kLooseNotEqual) {
        if (!compare(*e)) return false;
      } else if ((form_.result = this->value(*value)) == kNoRegister) {
        return false;
      }
      form_.returns = true;
    }
    form_.count += 1 + size;
    deepest_ = std::max(deepest_, nesting_ + 1 + depth);
    return true;
  }
  // How deep the statements learned nest below their function or loop.
  int deepest() const { return deepest_; }

  // For a loop's body: sorts the statements of `list` (the body, or an `if`'s list in it when
  // `nested`). Assignments of numbers run on registers; other assignments of expressions run
  // the general way, and the names they touch stay dynamic (in their bindings, read by `if`
  // conditions only); an `if` without `else` holds such statements. False where some
  // statement is none of these, or registers would write a dynamic name. Sets general() when
  // the body needs operations.
  bool plan(const APMPArrayValue& list, bool nested) {
    for (std::size_t k = 0; k < list.size(); ++k) {
      const V& element = list.at(k);
      if (const APMPStatementValue* a = ev_.compiledAs(element, kAssign, kAssignSum)) {
        const V& value = a->arguments()[1];
        std::string_view target = a->arguments()[0].stringPayload();
        if (isNumberValue(value)) {
          written_.push_back(target);
          continue;
        }
        const APMPStatementValue* e = value.isStatement() ? ev_.compiledAs(value, 0, 255) : nullptr;
        if (value.isStatement() && !e->expressionSize()) return false;
        general_ = true;
        dynamic_.push_back(target);
        if (e) namesIn(*e);
        continue;
      }
      const APMPStatementValue* i = nested ? nullptr : ev_.compiledAs(element, kIf, kIf);
      const auto* args = i ? &i->arguments() : nullptr;
      if (!args || args->size() != 2 || !(*args)[1].isArray() || (*args)[1].asArray()->declaresNames() ||
          (*args)[1].asArray()->size() > APMPLeafForm::kMaxStatements || !plan(*(*args)[1].asArray(), true)) {
        return false;
      }
      general_ = true;
    }
    for (std::string_view name : written_) {
      if (dynamic(name)) return false;
    }
    return true;
  }
  bool general() const { return general_; }
  // Learns `element`, planned, as operations; `index` is the body statement it is or is in.
  bool operation(const V& element, std::uint16_t index, bool nested) {
    APMPLeafForm::Operation op;
    op.nested = nested;
    op.index = index;
    op.statement = element;
    if (const APMPStatementValue* a = ev_.compiledAs(element, kAssign, kAssignSum)) {
      const V& value = a->arguments()[1];
      op.begin = static_cast<std::uint16_t>(form_.steps.size());
      std::uint32_t before = form_.count;
      if (isNumberValue(value)) {
        if (!statement(element, false)) return false;
        op.kind = APMPLeafForm::Operation::kSteps;
        op.end = static_cast<std::uint16_t>(form_.steps.size());
        op.count = form_.count - before;
      } else {
        // Counted by itself; at most one for the assignment and its value's size.
        op.kind = APMPLeafForm::Operation::kGeneral;
        const APMPStatementValue* e = value.isStatement() ? value.asStatement() : nullptr;
        form_.count += 1 + (e ? e->expressionSize() : 0);
        deepest_ = std::max(deepest_, nesting_ + 1 + (e ? e->expressionDepth() : 0));
      }
      form_.operations.push_back(std::move(op));
      return true;
    }
    const APMPStatementValue& i = *element.asStatement();
    const APMPStatementValue* c = ev_.compiledAs(i.arguments()[0], kLess, kLooseNotEqual);
    if (!c || !c->expressionSize()) return false;
    op.kind = APMPLeafForm::Operation::kIf;
    op.begin = static_cast<std::uint16_t>(form_.steps.size());
    op.dynamicBegin = static_cast<std::uint16_t>(form_.dynamic.size());
    allowDynamic_ = true;
    bool ok = compare(*c, &op.left, &op.right);
    allowDynamic_ = false;
    if (!ok) return false;
    op.comparison = c->operation();
    op.end = static_cast<std::uint16_t>(form_.steps.size());
    op.dynamicEnd = static_cast<std::uint16_t>(form_.dynamic.size());
    op.count = 1 + c->expressionSize();
    form_.count += op.count;
    deepest_ = std::max(deepest_, 1 + c->expressionDepth());
    std::size_t at = form_.operations.size();
    form_.operations.push_back(std::move(op));
    const APMPArrayValue& list = *i.arguments()[1].asArray();
    form_.operations[at].listVersion = list.version();
    nesting_ = 1;
    for (std::size_t k = 0; k < list.size(); ++k) {
      if (!operation(list.at(k), index, true)) return false;
    }
    nesting_ = 0;
    form_.operations[at].listEnd = static_cast<std::uint16_t>(form_.operations.size());
    return true;
  }

 private:
  static std::uint16_t bit(int i) { return static_cast<std::uint16_t>(1u << i); }
  // A register for a literal, an entry or an intermediate result, or kNoRegister.
  Register fresh() {
    if (next_ < APMPLeafForm::kOtherRegisters) return kNoRegister;
    return next_--;
  }
  // The comparison `c` (compiled) as the form's result and right operand.
  bool compare(const APMPStatementValue& c) {
    form_.comparison = c.operation();
    return compare(c, &form_.result, &form_.right);
  }
  // The registers of the operands of comparison `c`.
  bool compare(const APMPStatementValue& c, Register* left, Register* right) {
    *left = value(c.arguments()[0]);
    *right = *left == kNoRegister ? kNoRegister : value(c.arguments()[1]);
    return *right != kNoRegister;
  }
  // Whether `value` is a number expression as value() takes it, dynamic names aside.
  bool isNumberValue(const V& value) {
    if (value.isNumber()) return true;
    const APMPStatementValue* s = ev_.compiledAs(value, kAdd, kReadProperty);
    if (!s) return false;
    const auto& args = s->arguments();
    switch (s->operation()) {
      case kReadName: return true;
      case kReadProperty: return literalRead(args[0]) && args[1].isString();
      case kAdd: case kSubtract: case kMultiply: case kDivide: case kRemainder:
        return isNumberValue(args[0]) && isNumberValue(args[1]);
      default: return false;
    }
  }
  // Adds the names that expression `e` reads to the dynamic ones.
  void namesIn(const APMPStatementValue& e) {
    if (e.operation() == kReadName) {
      dynamic_.push_back(e.arguments()[0].stringPayload());
      return;
    }
    for (const V& a : e.arguments()) {
      if (a.isStatement()) namesIn(*a.asStatement());
    }
  }
  bool dynamic(std::string_view name) const {
    for (std::string_view d : dynamic_) {
      if (d == name) return true;
    }
    return false;
  }
  // The register that holds `value` once the loads and the steps appended for it have run,
  // or kNoRegister when the value has no leaf form. A name's register is its own.
  Register value(const V& value) {
    if (value.isNumber()) {
      Register r = fresh();
      if (r != kNoRegister) form_.loads.push_back({APMPLeafForm::Step::kLoad, r, 0, 0, value.numberPayload()});
      return r;
    }
    const APMPStatementValue* s = ev_.compiledAs(value, kAdd, kReadProperty);
    if (!s) return kNoRegister;
    const auto& args = s->arguments();
    std::uint8_t op = s->operation();
    if (op == kReadName) {
      if (dynamic(args[0].stringPayload())) return dynamicRead(args[0], nullptr);
      Register r = name(args[0]);
      if (r < APMPLeafForm::kOutsideRegisters) {
        form_.parametersRead |= bit(r);
      } else if (r != kNoRegister) {
        form_.outsideRead |= bit(r - APMPLeafForm::kOutsideRegisters);
      }
      return r;
    }
    if (op == kReadProperty) {
      const APMPStatementValue* object = literalRead(args[0]);
      if (!object || !args[1].isString()) return kNoRegister;
      if (dynamic(object->arguments()[0].stringPayload())) {
        return dynamicRead(object->arguments()[0], args[1].asString());
      }
      Register o = name(object->arguments()[0]);
      if (o == kNoRegister || o < APMPLeafForm::kOutsideRegisters) return kNoRegister;
      Register r = fresh();
      if (r == kNoRegister) return r;
      std::uint8_t j = o - APMPLeafForm::kOutsideRegisters;
      form_.outsideObjects |= bit(j);
      form_.entries.push_back({j, r, args[1].asString()});
      return r;
    }
    if (op < kAdd || op > kRemainder) return kNoRegister;
    // A literal right operand is the step's own.
    const V& rightOperand = args[1];
    Register left = this->value(args[0]);
    Register right = left == kNoRegister ? kNoRegister
                     : rightOperand.isNumber() ? APMPLeafForm::Step::kLiteral
                                               : this->value(rightOperand);
    Register target = right == kNoRegister ? kNoRegister : fresh();
    if (target == kNoRegister) return kNoRegister;
    form_.steps.push_back({op, target, left, right, rightOperand.isNumber() ? rightOperand.numberPayload() : 0});
    return target;
  }
  // A read of dynamic name `name` (under `key`, when not null), where an `if` condition may
  // make one: a register it is read into when the condition runs.
  Register dynamicRead(const V& name, const APMPStringValue* key) {
    Register o = allowDynamic_ ? this->name(name) : kNoRegister;
    Register r = o == kNoRegister ? kNoRegister : fresh();
    if (r == kNoRegister) return r;
    std::uint8_t j = o - APMPLeafForm::kOutsideRegisters;
    form_.outsideDynamic |= bit(j);
    form_.dynamic.push_back({j, r, key});
    return r;
  }
  // The register of parameter or outside name `name` (an outside one is added on first
  // sight), or kNoRegister when there are too many.
  Register name(const V& name) {
    for (std::size_t i = 0; i < parameters_.size(); ++i) {
      if (parameters_[i].stringPayload() == name.stringPayload()) return static_cast<Register>(i);
    }
    std::size_t j = 0;
    while (j < form_.outside.size() && form_.outside[j].name->value() != name.stringPayload()) ++j;
    if (j == form_.outside.size()) {
      if (j == APMPLeafForm::kMaxNames) return kNoRegister;
      APMPSlot slot;
      slot.name = name.asString();
      slot.bit = name.asString()->nameBit();
      form_.outside.push_back(slot);
    }
    return static_cast<Register>(APMPLeafForm::kOutsideRegisters + j);
  }

  APMPEvaluator& ev_;
  const std::vector<V>& parameters_;
  APMPLeafForm& form_;
  Register next_ = APMPLeafForm::kRegisters - 1;
  int deepest_ = 0;
  int nesting_ = 0;  // 1 inside an `if`'s list
  // The plan: the names registers write, those general statements touch, whether there are
  // such statements, and whether an `if` condition is being learned.
  std::vector<std::string_view> written_;
  std::vector<std::string_view> dynamic_;
  bool general_ = false;
  bool allowDynamic_ = false;
};

namespace {

// Makes a form learned whole a leaf.
void seal(APMPLeafForm& form) {
  form.outsideCount = static_cast<std::uint8_t>(form.outside.size());
  form.loadCount = static_cast<std::uint8_t>(form.loads.size());
  form.entryCount = static_cast<std::uint8_t>(form.entries.size());
  form.stepCount = static_cast<std::uint16_t>(form.steps.size());
  form.state = APMPLeafForm::kLeaf;
}

}  // namespace

void APMPEvaluator::shareLeafForm(const APMPStatementValue& definition, APMPFunctionValue& function) {
  std::shared_ptr<APMPLeafForm>& form = definition.leafForm();
  if (!form || form->parameters != function.parameters()) {
    form = std::make_shared<APMPLeafForm>();
    form->parameters = function.parameters();
  }
  function.shareLeafForm(form);
}

void APMPEvaluator::learnLeaf(APMPFunctionValue& function) {
  APMPLeafForm& form = *function.leafForm();
  form.state = APMPLeafForm::kNotLeaf;
  const V& body = function.body();
  const auto& names = function.parameterNames();
  if (!body.isArray() || body.asArray()->size() == 0 ||
      body.asArray()->size() > APMPLeafForm::kMaxStatements || names.size() > APMPLeafForm::kMaxNames) {
    return;
  }
  // A name given twice binds the later argument; such a function is left to the general path.
  for (std::size_t i = 0; i < names.size(); ++i) {
    for (std::size_t j = i + 1; j < names.size(); ++j) {
      if (names[i].stringPayload() == names[j].stringPayload()) return;
    }
  }
  LeafLearner learner(*this, names, form);
  const APMPArrayValue& list = *body.asArray();
  for (std::size_t k = 0; k < list.size(); ++k) {
    if (!learner.statement(list.at(k), k + 1 == list.size())) return;
  }
  form.body = body;
  form.bodyVersion = list.version();
  if (form.outsideObjects & form.outsideWritten) return;
  // A call runs its loads once anyway: they go first among the steps.
  form.steps.insert(form.steps.begin(), form.loads.begin(), form.loads.end());
  form.loads.clear();
  form.parametersOnly = form.outside.empty() && form.entries.empty();
  // The call itself nests one deeper.
  form.depth = static_cast<std::int16_t>(1 + learner.deepest());
  seal(form);
}

void APMPEvaluator::learnLoop(const APMPStatementValue& loop) {
  std::shared_ptr<APMPLeafForm>& shared = loop.leafForm();
  shared = std::make_shared<APMPLeafForm>();
  APMPLeafForm& form = *shared;
  form.state = APMPLeafForm::kNotLeaf;
  const auto& args = loop.arguments();
  const V& body = args[3];
  if (!body.isArray() || body.asArray()->declaresNames() ||
      body.asArray()->size() > APMPLeafForm::kMaxStatements) {
    return;
  }
  static const std::vector<V> kNoParameters;
  LeafLearner learner(*this, kNoParameters, form);
  const APMPArrayValue& list = *body.asArray();
  if (!learner.plan(list, false) || !learner.condition(args[1])) return;
  for (std::size_t k = 0; k < list.size(); ++k) {
    if (learner.general() ? !learner.operation(list.at(k), static_cast<std::uint16_t>(k), false)
                          : !learner.statement(list.at(k), false)) {
      return;
    }
  }
  form.body = body;
  form.bodyVersion = list.version();
  form.updateBegin = static_cast<std::uint16_t>(form.steps.size());
  std::uint32_t before = form.count;
  if (!learner.statement(args[2], false) || (form.outsideObjects & form.outsideWritten)) return;
  form.updateCount = form.count - before;
  form.depth = static_cast<std::int16_t>(learner.deepest());
  seal(form);
}

namespace {

// Runs leaf steps on `registers`.
[[gnu::always_inline]] inline void runLeafSteps(const APMPLeafForm::Step* step,
                                                const APMPLeafForm::Step* end, double* registers) {
  for (; step != end; ++step) {
    double x = registers[step->left];
    double y = step->right == APMPLeafForm::Step::kLiteral ? step->literal : registers[step->right];
    double& target = registers[step->target];
    switch (step->operation) {
      case APMPLeafForm::Step::kCopy: target = x; break;
      case APMPLeafForm::Step::kLoad: target = step->literal; break;
      case kAdd: target = x + y; break;
      case kSubtract: target = x - y; break;
      case kMultiply: target = x * y; break;
      case kDivide: target = x / y; break;
      default: target = remainderOf(x, y); break;
    }
  }
}

// Whether the body a leaf was learned from is still `body`: the program may change a list.
bool sameBody(const APMPLeafForm& leaf, const V& body) {
  return body.isArray() && body.object() == leaf.body.object() &&
         body.asArray()->version() == leaf.bodyVersion;
}

// Reads entries (see APMPLeafForm::Entry) into their registers: a name's number, or the number
// under the entry's key of its map, or its string's length; false where one holds no number.
[[gnu::always_inline]] inline bool readEntries(const APMPLeafForm::Entry* entry,
                                               const APMPLeafForm::Entry* end, double* registers,
                                               APMPScope::Binding** outside) {
  for (; entry != end; ++entry) {
    const V& value = outside[entry->name]->value;
    if (!entry->key) {
      if (!value.isNumber()) return false;
      registers[entry->target] = value.numberPayload();
    } else if (value.isString() && entry->key->equals("length")) {
      registers[entry->target] = static_cast<double>(value.stringPayload().size());
    } else {
      const V* v = value.isMap() ? value.asMap()->find(entry->key->value()) : nullptr;
      if (!v || !v->isNumber()) return false;
      registers[entry->target] = v->numberPayload();
    }
  }
  return true;
}

// Loads the parameters `leaf` reads from `arguments`; false where one is missing or no number.
[[gnu::always_inline]] inline bool loadParameters(const APMPLeafForm& leaf, const V* arguments,
                                                  std::size_t count, double* registers) {
  for (std::uint32_t read = leaf.parametersRead; read; read &= read - 1) {
    int i = __builtin_ctz(read);
    if (static_cast<std::size_t>(i) >= count || !arguments[i].isNumber()) return false;
    registers[i] = arguments[i].numberPayload();
  }
  return true;
}

// Whether the lists of a leaf loop's `if`s still hold the statements it learned.
bool sameLists(const APMPLeafForm& leaf) {
  for (const APMPLeafForm::Operation& op : leaf.operations) {
    if (op.kind == APMPLeafForm::Operation::kIf &&
        op.statement.asStatement()->arguments()[1].asArray()->version() != op.listVersion) {
      return false;
    }
  }
  return true;
}

// Loads the registers of `leaf` from `arguments` and from the outside names as seen from
// `scope`, keeping their bindings in `outside`. Every name read must be a number (or, read
// under a key, hold one there), every name written a mutable binding: then nothing on the way
// can fail, every value stays a number, and nobody sees the names until the end, when
// storeLeaf writes back those written. False, with nothing changed, otherwise.
[[gnu::always_inline]] inline bool loadLeaf(APMPLeafForm& leaf, const V* arguments, std::size_t count,
                                            APMPScope* scope, double* registers,
                                            APMPScope::Binding** outside) {
  if (!loadParameters(leaf, arguments, count, registers)) return false;
  if (const std::size_t n = leaf.outsideCount) {
    if (!scope) return false;
    for (std::size_t j = 0; j < n; ++j) {
      APMPScope::Binding* b = scope->lookup(leaf.outside[j]);
      if (!b) return false;
      // A name read under a key may be read as a number too (and then holds no entries).
      if ((leaf.outsideRead | leaf.outsideWritten) >> j & 1) {
        if (!b->value.isNumber() || (b->immutable && (leaf.outsideWritten >> j & 1))) return false;
        registers[APMPLeafForm::kOutsideRegisters + j] = b->value.numberPayload();
      }
      outside[j] = b;
    }
  }
  if (leaf.entryCount) [[unlikely]] {
    const APMPLeafForm::Entry* entries = leaf.entries.data();
    if (!readEntries(entries, entries + leaf.entryCount, registers, outside)) return false;
  }
  runLeafSteps(leaf.loads.data(), leaf.loads.data() + leaf.loadCount, registers);
  return true;
}

[[gnu::always_inline]] inline void storeLeaf(const APMPLeafForm& leaf, const double* registers,
                                             APMPScope::Binding** outside) {
  for (std::uint32_t written = leaf.outsideWritten; written; written &= written - 1) {
    int j = __builtin_ctz(written);
    outside[j]->value.setNumber(registers[APMPLeafForm::kOutsideRegisters + j]);
  }
}

}  // namespace

bool APMPEvaluator::prepareLeaf(APMPFunctionValue& function) {
  APMPLeafForm* leaf = function.leafForm();
  if (!leaf) return false;
  if (leaf->state == APMPLeafForm::kUnknown) learnLeaf(function);
  return leaf->state == APMPLeafForm::kLeaf && sameBody(*leaf, function.body());
}

[[gnu::always_inline]] inline bool APMPEvaluator::callLeaf(APMPFunctionValue& function,
                                                         const APMPRuntimeValue* arguments,
                                                         std::size_t count, APMPRuntimeValue* out) {
  return sameBody(*function.leafForm(), function.body()) && runLeaf(function, arguments, count, out);
}

bool APMPEvaluator::leafTakesNumbers(const APMPFunctionValue& function) const {
  const APMPLeafForm* leaf = function.leafForm();
  return leaf && leaf->state == APMPLeafForm::kLeaf && leaf->parametersOnly && leaf->returns &&
         !(leaf->parametersRead & ~3u);
}

bool APMPEvaluator::leafGivesBoolean(const APMPFunctionValue& function) const {
  return function.leafForm()->comparison != 0;
}

std::size_t APMPEvaluator::runLeafOnNumbers(APMPFunctionValue& function, const APMPArrayValue& elements,
                                            std::size_t first, std::size_t end, double* results) {
  const APMPLeafForm& leaf = *function.leafForm();
  if (failed_ || depth_ + leaf.depth > kMaxDepth) return 0;
  double registers[APMPLeafForm::kRegisters];
  const APMPLeafForm::Step* steps = leaf.steps.data();
  const APMPLeafForm::Step* stepsEnd = steps + leaf.stepCount;
  std::size_t k = first;
  for (; k < end; ++k) {
    const V& element = elements.at(k);
    if (!element.isNumber() || instructions_ + leaf.count >= kInstructionBudget) break;
    registers[0] = element.numberPayload();
    registers[1] = static_cast<double>(k);
    runLeafSteps(steps, stepsEnd, registers);
    double x = registers[leaf.result];
    results[k - first] = leaf.comparison ? (compare(leaf.comparison, x, registers[leaf.right]) ? 1 : 0) : x;
    instructions_ += leaf.count;
  }
  return k - first;
}

bool APMPEvaluator::callPreparedLeaf(APMPFunctionValue& function, const APMPRuntimeValue* arguments,
                                     std::size_t count, APMPRuntimeValue* out) {
  return runLeaf(function, arguments, count, out);
}

[[gnu::always_inline]] inline bool APMPEvaluator::runLeaf(APMPFunctionValue& function,
                                                        const APMPRuntimeValue* arguments,
                                                        std::size_t count, APMPRuntimeValue* out) {
  APMPLeafForm& leaf = *function.leafForm();
  double registers[APMPLeafForm::kRegisters];
  APMPScope::Binding* outside[APMPLeafForm::kMaxNames];
  if (failed_ || instructions_ + leaf.count >= kInstructionBudget || depth_ + leaf.depth > kMaxDepth) {
    return false;
  }
  if (leaf.parametersOnly) {
    // The common callback: its parameters and literals, nothing outside.
    if (!loadParameters(leaf, arguments, count, registers)) return false;
    runLeafSteps(leaf.steps.data(), leaf.steps.data() + leaf.stepCount, registers);
  } else {
    if (!loadLeaf(leaf, arguments, count, function.scope(), registers, outside)) return false;
    runLeafSteps(leaf.steps.data(), leaf.steps.data() + leaf.stepCount, registers);
    storeLeaf(leaf, registers, outside);
  }
  if (leaf.returns) {
    double x = registers[leaf.result];
    *out = leaf.comparison ? V::boolean(compare(leaf.comparison, x, registers[leaf.right])) : V::number(x);
  } else {
    *out = V();
  }
  instructions_ += leaf.count;
  return true;
}

int APMPEvaluator::runLeafLoop(const APMPStatementValue& loop, APMPScope* loopScope) {
  if (!loop.leafForm()) learnLoop(loop);
  APMPLeafForm& leaf = *loop.leafForm();
  double registers[APMPLeafForm::kRegisters];
  APMPScope::Binding* outside[APMPLeafForm::kMaxNames];
  if (leaf.state != APMPLeafForm::kLeaf || failed_ || depth_ + leaf.depth > kMaxDepth ||
      !sameBody(leaf, loop.arguments()[3]) || !sameLists(leaf) ||
      !loadLeaf(leaf, nullptr, 0, loopScope, registers, outside)) {
    return kLoopFromCondition;
  }
  const APMPLeafForm::Step* steps = leaf.steps.data();
  const APMPLeafForm::Step* conditionEnd = steps + leaf.conditionEnd;
  const APMPLeafForm::Step* end = steps + leaf.stepCount;
  int next = kLoopFromCondition;
  // Turn by turn while the whole turn fits in the budget; the general path takes the rest.
  if (leaf.operations.empty()) {
    while (instructions_ + leaf.count < kInstructionBudget) {
      runLeafSteps(steps, conditionEnd, registers);
      if (!compare(leaf.comparison, registers[leaf.result], registers[leaf.right])) {
        instructions_ += leaf.conditionCount;
        next = kLoopEnded;
        break;
      }
      runLeafSteps(conditionEnd, end, registers);
      instructions_ += leaf.count;
    }
    storeLeaf(leaf, registers, outside);
    return next;
  }
  // With operations: counted as they go, since general statements count themselves and an
  // `if` may not run its list. A dynamic name that holds no number for a condition hands the
  // turn to the general path at that statement.
  const APMPLeafForm::Operation* operations = leaf.operations.data();
  const APMPLeafForm::Operation* last = operations + leaf.operations.size();
  while (next == kLoopFromCondition && instructions_ + leaf.count < kInstructionBudget) {
    runLeafSteps(steps, conditionEnd, registers);
    instructions_ += leaf.conditionCount;
    if (!compare(leaf.comparison, registers[leaf.result], registers[leaf.right])) {
      next = kLoopEnded;
      break;
    }
    for (const APMPLeafForm::Operation* op = operations; op != last;) {
      switch (op->kind) {
        case APMPLeafForm::Operation::kSteps:
          runLeafSteps(steps + op->begin, steps + op->end, registers);
          instructions_ += op->count;
          ++op;
          break;
        case APMPLeafForm::Operation::kGeneral:
          // An `if`'s list runs one deeper.
          depth_ += op->nested;
          effect(op->statement, loopScope);
          depth_ -= op->nested;
          if (failed_) {
            storeLeaf(leaf, registers, outside);
            return kLoopEnded;
          }
          ++op;
          break;
        case APMPLeafForm::Operation::kIf: {
          const APMPLeafForm::Entry* dynamic = leaf.dynamic.data();
          if (!readEntries(dynamic + op->dynamicBegin, dynamic + op->dynamicEnd, registers, outside)) {
            next = op->index;
            op = last;
            break;
          }
          runLeafSteps(steps + op->begin, steps + op->end, registers);
          instructions_ += op->count;
          op = compare(op->comparison, registers[op->left], registers[op->right]) ? op + 1
                                                                                  : operations + op->listEnd;
          break;
        }
      }
    }
    if (next != kLoopFromCondition) break;
    runLeafSteps(steps + leaf.updateBegin, end, registers);
    instructions_ += leaf.updateCount;
  }
  storeLeaf(leaf, registers, outside);
  return next;
}

APMPRuntimeValue APMPFunctionValue::call(APMPEvaluator& evaluator,
                                         const APMPRuntimeValue* arguments, std::size_t count) {
  if (APMPLeafForm* leaf = leaf_.get()) {
    if (leaf->state == APMPLeafForm::kUnknown) evaluator.learnLeaf(*this);
    if (leaf->state == APMPLeafForm::kLeaf) {
      V r;
      if (evaluator.callLeaf(*this, arguments, count, &r)) return r;
    }
  }
  return callInScope(evaluator, arguments, count);
}

APMPRuntimeValue APMPEvaluator::executeFor(const APMPStatementValue& statement, APMPScope* scope) {
  const auto& args = statement.arguments();
  APMPScope* loopScope = scope->createChildScope();
  V result;
  eval(args[0], loopScope);
  const V& body = args[3];
  // A loop of number assignments runs on registers, as long as it fits the budget; the
  // general path takes it from the next condition, or from a statement of the current turn.
  int resume = runLeafLoop(statement, loopScope);
  if (resume == kLoopEnded) {
    loopScope->release();
    return {};
  }
  // A body that declares nothing runs in the loop's scope, statement by statement here.
  APMPArrayValue* plain = body.isArray() && !body.asArray()->declaresNames() ? body.asArray() : nullptr;
  // A counting loop's condition and update run on the name's number directly, counted as
  // the general path counts them (the turn, the comparison and its read; the assignment, the
  // sum and its read), whenever neither the budget nor the depth can run out within them.
  CountingLoop counting;
  if (const APMPStatementValue* c = compiledAs(args[1], kLess, kGreaterOrEqual)) {
    const auto& operands = c->arguments();
    if (operands[1].isNumber()) {
      if (const APMPStatementValue* read = compiledAs(operands[0], kReadName, kReadName)) {
        counting.condition = c;
        counting.conditionRead = read;
        counting.limit = operands[1].numberPayload();
      }
    }
  }
  if (const APMPStatementValue* u = compiledAs(args[2], kAssignSum, kAssignSum)) {
    const V& step = u->arguments()[1].asStatement()->arguments()[1];
    if (step.isNumber()) {
      counting.update = u;
      counting.step = step.numberPayload();
    }
  }
  while (!failed_) {
    bool go = true;
    APMPScope::Binding* counter;
    if (resume >= 0) {
      // The turn the leaf loop handed over goes on.
    } else if (counting.condition && instructions_ + 3 < kInstructionBudget && depth_ + 2 <= kMaxDepth &&
        (counter = loopScope->lookup(counting.conditionRead->slot())) && counter->value.isNumber()) {
      instructions_ += 3;
      go = compare(counting.condition->operation(), counter->value.numberPayload(), counting.limit);
    } else {
      if (!tick()) break;
      if (!conditionOperand(args[1], loopScope, &go)) {
        V condition = operand(args[1], loopScope);
        go = !failed_ && condition.booleanValue();
      }
    }
    if (!go) break;
    V r;
    if (plain) {
      for (std::size_t i = resume >= 0 ? static_cast<std::size_t>(resume) : 0; i < plain->size(); ++i) {
        V element = plain->at(i);  // held: the program may change the list it runs
        r = effect(element, loopScope);
        if (failed_ || r.isControl()) break;
      }
    } else {
      r = runBody(body, loopScope, *this);
    }
    resume = kLoopFromCondition;
    if (failed_) break;
    if (r.isControl()) {
      APMPControlValue::Type type = r.asControl()->type();
      if (type == APMPControlValue::Type::kBreak) break;
      if (type == APMPControlValue::Type::kReturn) {
        result = std::move(r);
        break;
      }
    }
    if (counting.update && instructions_ + 3 < kInstructionBudget && depth_ + 3 <= kMaxDepth &&
        (counter = loopScope->lookup(counting.update->slot())) && !counter->immutable &&
        counter->value.isNumber()) {
      instructions_ += 3;
      counter->value.setNumber(counter->value.numberPayload() + counting.step);
    } else {
      effect(args[2], loopScope);
    }
  }
  loopScope->release();
  if (failed_) return {};
  return result;
}

APMPRuntimeValue APMPEvaluator::evalStatement(const APMPStatementValue& statement,
                                              APMPScope* scope) {
  if (failed_) return {};
  std::uint8_t op = statement.operation();
  if (op == kUncompiled) op = compile(statement);
  // An expression without side effects runs without per-statement bookkeeping when the
  // budget and the depth cannot run out inside it; any failure on the way drops the attempt
  // (nothing observed it) and the statement runs on the exact path.
  if (std::uint32_t most = statement.expressionSize()) {
    if (instructions_ + most < kInstructionBudget && depth_ + statement.expressionDepth() <= kMaxDepth) {
      std::uint64_t before = instructions_;
      dropped_ = false;
      V r = quick(statement, op, scope);
      if (!dropped_) return r;
      instructions_ = before;
    }
  }
  if (!tick()) return {};
  if (++depth_ > kMaxDepth) {
    --depth_;
    return fail(kAPMPErrorCodeBudgetExceeded, "Maximum call depth exceeded");
  }
  V r = execute(statement, op, scope);
  --depth_;
  if (failed_) return {};
  return r;
}
