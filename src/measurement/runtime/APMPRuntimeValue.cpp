#include "measurement/runtime/APMPRuntimeValue.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "measurement/runtime/APMPScope.h"

bool APMPSetError(platform::Error* error, int code, std::string message) {
  if (error) *error = platform::Error{kAPMPErrorDomain, code, std::move(message)};
  return false;
}

bool APMPSetEditingError(platform::Error* error, int code, std::string message) {
  if (error) *error = platform::Error{kAPMPEditingErrorDomain, code, std::move(message)};
  return false;
}

// --- Numbers and text ----------------------------------------------------------------------

void APMPAppendNumber(std::string& out, double d) {
  if (std::isnan(d)) {
    out += "NaN";
    return;
  }
  if (d == 0) {
    out += '0';
    return;
  }
  if (std::isinf(d)) {
    out += d < 0 ? "-Infinity" : "Infinity";
    return;
  }
  if (d < 0) {
    out += '-';
    d = -d;
  }
  // Integers below 2^53 are the common case: no digit search needed.
  if (d < 9007199254740992.0 && d == std::floor(d)) {
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof buf, static_cast<std::uint64_t>(d));
    out.append(buf, r.ptr);
    return;
  }
  // Shortest round-trip digits and the decimal exponent, then ECMAScript's layout.
  char buf[40];
  auto r = std::to_chars(buf, buf + sizeof buf, d, std::chars_format::scientific);
  std::string_view sci(buf, static_cast<std::size_t>(r.ptr - buf));
  std::size_t e = sci.find('e');
  char digits[24];
  int k = 0;
  for (std::size_t i = 0; i < e; ++i) {
    if (sci[i] != '.') digits[k++] = sci[i];
  }
  int exponent = std::atoi(std::string(sci.substr(e + 1)).c_str());
  int n = exponent + 1;  // position of the decimal point
  if (k <= n && n <= 21) {
    out.append(digits, static_cast<std::size_t>(k));
    out.append(static_cast<std::size_t>(n - k), '0');
  } else if (0 < n && n <= 21) {
    out.append(digits, static_cast<std::size_t>(n));
    out += '.';
    out.append(digits + n, static_cast<std::size_t>(k - n));
  } else if (-6 < n && n <= 0) {
    out += "0.";
    out.append(static_cast<std::size_t>(-n), '0');
    out.append(digits, static_cast<std::size_t>(k));
  } else {
    out += digits[0];
    if (k > 1) {
      out += '.';
      out.append(digits + 1, static_cast<std::size_t>(k - 1));
    }
    out += 'e';
    out += n - 1 >= 0 ? '+' : '-';
    char ebuf[8];
    auto er = std::to_chars(ebuf, ebuf + sizeof ebuf, std::abs(n - 1));
    out.append(ebuf, er.ptr);
  }
}

std::string APMPNumberToString(double d) {
  std::string s;
  APMPAppendNumber(s, d);
  return s;
}

namespace {

bool isJsSpace(unsigned char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

double parseRadix(std::string_view digits, int radix) {
  if (digits.empty()) return std::nan("");
  double value = 0;
  for (char c : digits) {
    int v;
    if (c >= '0' && c <= '9') {
      v = c - '0';
    } else if (c >= 'a' && c <= 'z') {
      v = c - 'a' + 10;
    } else if (c >= 'A' && c <= 'Z') {
      v = c - 'A' + 10;
    } else {
      return std::nan("");
    }
    if (v >= radix) return std::nan("");
    value = value * radix + v;
  }
  return value;
}

}  // namespace

double APMPStringToNumber(std::string_view s) {
  while (!s.empty() && isJsSpace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && isJsSpace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  if (s.empty()) return 0;
  if (s.size() > 2 && s[0] == '0') {
    char p = static_cast<char>(s[1] | 0x20);
    if (p == 'x') return parseRadix(s.substr(2), 16);
    if (p == 'o') return parseRadix(s.substr(2), 8);
    if (p == 'b') return parseRadix(s.substr(2), 2);
  }
  std::string_view body = s;
  bool negative = false;
  if (body[0] == '+' || body[0] == '-') {
    negative = body[0] == '-';
    body.remove_prefix(1);
  }
  if (body == "Infinity") {
    return negative ? -std::numeric_limits<double>::infinity()
                    : std::numeric_limits<double>::infinity();
  }
  // StrDecimalLiteral: digits [. digits] [e [+-] digits], at least one digit in the mantissa.
  std::size_t i = 0;
  std::size_t mantissaDigits = 0;
  while (i < body.size() && body[i] >= '0' && body[i] <= '9') ++i, ++mantissaDigits;
  if (i < body.size() && body[i] == '.') {
    ++i;
    while (i < body.size() && body[i] >= '0' && body[i] <= '9') ++i, ++mantissaDigits;
  }
  if (mantissaDigits == 0) return std::nan("");
  if (i < body.size() && (body[i] == 'e' || body[i] == 'E')) {
    ++i;
    if (i < body.size() && (body[i] == '+' || body[i] == '-')) ++i;
    std::size_t expDigits = 0;
    while (i < body.size() && body[i] >= '0' && body[i] <= '9') ++i, ++expDigits;
    if (expDigits == 0) return std::nan("");
  }
  if (i != body.size()) return std::nan("");
  double value = 0;
  std::from_chars_result r = std::from_chars(body.data(), body.data() + body.size(), value);
  if (r.ec == std::errc::result_out_of_range) {
    // Overflow to infinity or underflow to zero, as the literal's value rounds.
    bool big = false;
    std::size_t e = body.find_first_of("eE");
    std::string_view mant = body.substr(0, e);
    long long exp = 0;
    if (e != std::string_view::npos) {
      std::string_view ex = body.substr(e + 1);
      bool eneg = !ex.empty() && ex[0] == '-';
      if (!ex.empty() && (ex[0] == '+' || ex[0] == '-')) ex.remove_prefix(1);
      for (char c : ex) exp = std::min<long long>(exp * 10 + (c - '0'), 100000);
      if (eneg) exp = -exp;
    }
    std::size_t firstNonZero = mant.find_first_not_of("0.");
    if (firstNonZero != std::string_view::npos) {
      std::size_t dot = mant.find('.');
      long long intDigits = static_cast<long long>(dot == std::string_view::npos ? mant.size() : dot);
      long long pos = static_cast<long long>(firstNonZero);
      long long magnitude = (pos < intDigits ? intDigits - pos : intDigits - pos + 1) + exp;
      big = magnitude > 0;
    }
    value = big ? std::numeric_limits<double>::infinity() : 0.0;
  }
  return negative ? -value : value;
}

std::int32_t APMPToInt32(double d) { return static_cast<std::int32_t>(APMPToUint32(d)); }

std::uint32_t APMPToUint32(double d) {
  if (!std::isfinite(d) || d == 0) return 0;
  double t = std::trunc(d);
  double m = std::fmod(t, 4294967296.0);
  if (m < 0) m += 4294967296.0;
  return static_cast<std::uint32_t>(m);
}

std::int64_t APMPArrayIndexOf(std::string_view key) {
  if (key.empty() || key.size() > 10) return -1;
  if (key.size() > 1 && key[0] == '0') return -1;
  std::int64_t v = 0;
  for (char c : key) {
    if (c < '0' || c > '9') return -1;
    v = v * 10 + (c - '0');
  }
  return v < 4294967295LL ? v : -1;
}

// --- The heap ------------------------------------------------------------------------------

namespace {
thread_local APMPHeap* currentHeap = nullptr;
}

APMPHeap::APMPHeap(std::size_t byteLimit) : byteLimit_(byteLimit) {}

APMPHeap::Current::Current(APMPHeap* heap) : previous_(currentHeap) { currentHeap = heap; }
APMPHeap::Current::~Current() { currentHeap = previous_; }
APMPHeap* APMPHeap::current() { return currentHeap; }

bool APMPHeap::canAllocate(std::size_t bytes) {
  APMPHeap* heap = currentHeap;
  return !heap || (bytes <= heap->byteLimit_ && heap->liveBytes_ <= heap->byteLimit_ - bytes);
}

void APMPHeap::track(APMPHeapObject* object) {
  object->heap_ = this;
  object->prev_ = nullptr;
  object->next_ = first_;
  if (first_) first_->prev_ = object;
  first_ = object;
  ++objectCount_;
}

void APMPHeap::untrack(APMPHeapObject* object) {
  if (object->prev_) {
    object->prev_->next_ = object->next_;
  } else {
    first_ = object->next_;
  }
  if (object->next_) object->next_->prev_ = object->prev_;
  liveBytes_ -= object->bytes_;
  object->bytes_ = 0;
  object->heap_ = nullptr;
  object->prev_ = object->next_ = nullptr;
  --objectCount_;
}

APMPHeap::~APMPHeap() {
  std::vector<APMPHeapObject*> all;
  all.reserve(objectCount_);
  for (APMPHeapObject* o = first_; o; o = o->next_) all.push_back(o);
  for (APMPHeapObject* o : all) o->retain();
  for (APMPHeapObject* o : all) o->clearReferences();
  for (APMPHeapObject* o : all) untrack(o);
  for (APMPHeapObject* o : all) o->release();
}

std::size_t APMPHeap::collectCycles() {
  std::vector<APMPHeapObject*> all;
  all.reserve(objectCount_);
  for (APMPHeapObject* o = first_; o; o = o->next_) {
    o->gcRefs_ = o->refs_;
    all.push_back(o);
  }
  // References from tracked objects do not count: what remains is held from outside.
  auto subtract = [](APMPHeapObject* child, void* self) {
    if (child->heap_ == static_cast<APMPHeap*>(self) && child->gcRefs_ > 0) --child->gcRefs_;
  };
  for (APMPHeapObject* o : all) o->traverse(subtract, this);
  // Mark what outside holders reach (gcRefs_ = UINT32_MAX marks reachable).
  std::vector<APMPHeapObject*> work;
  for (APMPHeapObject* o : all) {
    if (o->gcRefs_ > 0) {
      o->gcRefs_ = UINT32_MAX;
      work.push_back(o);
    }
  }
  struct MarkContext {
    APMPHeap* heap;
    std::vector<APMPHeapObject*>* work;
  } context{this, &work};
  auto mark = [](APMPHeapObject* child, void* c) {
    auto* ctx = static_cast<MarkContext*>(c);
    if (child->heap_ == ctx->heap && child->gcRefs_ != UINT32_MAX) {
      child->gcRefs_ = UINT32_MAX;
      ctx->work->push_back(child);
    }
  };
  while (!work.empty()) {
    APMPHeapObject* o = work.back();
    work.pop_back();
    o->traverse(mark, &context);
  }
  std::vector<APMPHeapObject*> garbage;
  for (APMPHeapObject* o : all) {
    if (o->gcRefs_ != UINT32_MAX) garbage.push_back(o);
  }
  for (APMPHeapObject* o : garbage) o->retain();
  for (APMPHeapObject* o : garbage) o->clearReferences();
  for (APMPHeapObject* o : garbage) o->release();
  countAfterCollection_ = std::max<std::size_t>(64, objectCount_);
  return garbage.size();
}

void APMPHeap::collectIfGrown() {
  if (objectCount_ >= 2 * countAfterCollection_) collectCycles();
}

void APMPHeapObject::destroy(APMPHeapObject* object) {
  thread_local std::vector<APMPHeapObject*> pending;
  thread_local bool draining = false;
  if (draining) {
    pending.push_back(object);
    return;
  }
  draining = true;
  delete object;
  while (!pending.empty()) {
    APMPHeapObject* next = pending.back();
    pending.pop_back();
    delete next;
  }
  draining = false;
}

APMPHeapObject::APMPHeapObject() {
  if (APMPHeap* heap = currentHeap) heap->track(this);
}

APMPHeapObject::~APMPHeapObject() {
  if (heap_) heap_->untrack(this);
}


// --- Heap values ---------------------------------------------------------------------------

APMPStringValue::APMPStringValue(std::string s) : value_(std::move(s)) {
  charge(static_cast<std::ptrdiff_t>(sizeof(APMPStringValue) + value_.size()));
}

std::uint64_t APMPStringValue::nameBitOf(std::string_view text) {
  std::uint64_t h = 1469598103934665603ull;
  for (char c : text) h = (h ^ static_cast<unsigned char>(c)) * 1099511628211ull;
  // The top bits of the hash alone hardly differ between short names: mix first.
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdull;
  h ^= h >> 33;
  return std::uint64_t{1} << (h >> 58);
}

bool APMPStringValue::appendInPlace(std::string_view text) {
  if (!APMPHeap::canAllocate(value_.size() + text.size() + 64)) return false;
  // A few characters one by one: no library call while the capacity lasts.
  if (text.size() <= 8) {
    for (char c : text) value_.push_back(c);
  } else {
    value_ += text;
  }
  nameBit_ = 0;
  charge(static_cast<std::ptrdiff_t>(text.size()));
  return true;
}

int APMPMethodOf(std::string_view name) {
  static const std::pair<std::string_view, int> kMethods[] = {
      {"charAt", kAPMPMethodCharAt},           {"concat", kAPMPMethodConcat},
      {"hasOwnProperty", kAPMPMethodHasOwnProperty}, {"indexOf", kAPMPMethodIndexOf},
      {"lastIndexOf", kAPMPMethodLastIndexOf}, {"match", kAPMPMethodMatch},
      {"replace", kAPMPMethodReplace},         {"search", kAPMPMethodSearch},
      {"slice", kAPMPMethodSlice},             {"split", kAPMPMethodSplit},
      {"substring", kAPMPMethodSubstring},     {"toLowerCase", kAPMPMethodToLowerCase},
      {"toLocaleLowerCase", kAPMPMethodToLocaleLowerCase}, {"toString", kAPMPMethodToString},
      {"toUpperCase", kAPMPMethodToUpperCase}, {"toLocaleUpperCase", kAPMPMethodToLocaleUpperCase},
      {"trim", kAPMPMethodTrim},               {"every", kAPMPMethodEvery},
      {"filter", kAPMPMethodFilter},           {"forEach", kAPMPMethodForEach},
      {"join", kAPMPMethodJoin},               {"map", kAPMPMethodMap},
      {"pop", kAPMPMethodPop},                 {"push", kAPMPMethodPush},
      {"reduce", kAPMPMethodReduce},           {"reduceRight", kAPMPMethodReduceRight},
      {"reverse", kAPMPMethodReverse},         {"shift", kAPMPMethodShift},
      {"some", kAPMPMethodSome},               {"sort", kAPMPMethodSort},
      {"splice", kAPMPMethodSplice},           {"unshift", kAPMPMethodUnshift},
  };
  for (const auto& [text, method] : kMethods) {
    if (text == name) return method;
  }
  return kAPMPMethodUnknown;
}

APMPArrayValue::APMPArrayValue(std::vector<APMPRuntimeValue> elements)
    : elements_(std::move(elements)) {
  recharge();
}

APMPArrayValue::~APMPArrayValue() { elements_.clear(); }

void APMPArrayValue::traverse(void (*visit)(APMPHeapObject*, void*), void* context) {
  for (auto& e : elements_) {
    if (e.isHeap()) visit(e.object(), context);
  }
}

void APMPArrayValue::clearReferences() {
  ++version_;
  auto elements = std::move(elements_);
  elements_.clear();
  elements.clear();
}

bool APMPArrayValue::recharge() {
  charge(static_cast<std::ptrdiff_t>(sizeof(APMPArrayValue) +
                                     elements_.size() * sizeof(APMPRuntimeValue)) -
         static_cast<std::ptrdiff_t>(0));
  return true;
}

bool APMPArrayValue::push(APMPRuntimeValue value) {
  if (!APMPHeap::canAllocate(sizeof(APMPRuntimeValue))) return false;
  ++version_;
  elements_.push_back(std::move(value));
  charge(sizeof(APMPRuntimeValue));
  return true;
}

bool APMPArrayValue::resize(std::size_t size) {
  ++version_;
  if (size > elements_.size()) {
    std::size_t more = size - elements_.size();
    if (more > (SIZE_MAX / sizeof(APMPRuntimeValue)) ||
        !APMPHeap::canAllocate(more * sizeof(APMPRuntimeValue))) {
      return false;
    }
    elements_.resize(size);
    charge(static_cast<std::ptrdiff_t>(more * sizeof(APMPRuntimeValue)));
  } else {
    std::size_t fewer = elements_.size() - size;
    elements_.resize(size);
    charge(-static_cast<std::ptrdiff_t>(fewer * sizeof(APMPRuntimeValue)));
  }
  return true;
}

bool APMPArrayValue::declaresNames() {
  if (declaresNames_ < 0) {
    declaresNames_ = 0;
    for (const auto& e : elements_) {
      if (!e.isStatement()) continue;
      const APMPStatementValue* statement = e.asStatement();
      int c = statement->command();
      if (c == 41 || c == 52 || c == 50) declaresNames_ = 1;
      // Lists run by 5 and 9 share the scope of the list that holds them.
      if ((c == 5 || c == 9) && statement->arguments().size() == 1 &&
          statement->arguments()[0].isArray() && statement->arguments()[0].asArray()->declaresNames()) {
        declaresNames_ = 1;
      }
    }
  }
  return declaresNames_ == 1;
}

void APMPMapValue::traverse(void (*visit)(APMPHeapObject*, void*), void* context) {
  for (auto& e : entries_) {
    if (e.second.isHeap()) visit(e.second.object(), context);
  }
}

void APMPMapValue::clearReferences() {
  auto entries = std::move(entries_);
  entries_.clear();
  entries.clear();
}

const APMPRuntimeValue* APMPMapValue::find(std::string_view name) const {
  // Most names differ in length or first letter: those are told apart without a compare.
  for (const auto& e : entries_) {
    if (e.first.size() == name.size() &&
        (name.empty() || (e.first[0] == name[0] &&
                          (name.size() == 1 ||
                           std::memcmp(e.first.data() + 1, name.data() + 1, name.size() - 1) == 0)))) {
      return &e.second;
    }
  }
  return nullptr;
}

bool APMPMapValue::set(std::string_view name, APMPRuntimeValue value) {
  for (auto& e : entries_) {
    if (e.first == name) {
      e.second = std::move(value);
      return true;
    }
  }
  std::size_t bytes = sizeof(entries_[0]) + name.size();
  if (!APMPHeap::canAllocate(bytes)) return false;
  entries_.emplace_back(std::string(name), std::move(value));
  charge(static_cast<std::ptrdiff_t>(bytes));
  return true;
}

APMPFunctionValue::APMPFunctionValue(std::string name) : name_(std::move(name)) {
  charge(sizeof(APMPFunctionValue));
}

APMPFunctionValue::APMPFunctionValue(std::string name, std::vector<std::string> parameters,
                                     APMPRuntimeValue body, APMPScope* scope)
    : name_(std::move(name)), parameters_(std::move(parameters)), body_(std::move(body)),
      scope_(scope) {
  if (scope_) scope_->retain();
  parameterNames_.reserve(parameters_.size());
  for (const auto& p : parameters_) parameterNames_.push_back(APMPRuntimeValue::string(p));
  charge(sizeof(APMPFunctionValue));
}

APMPFunctionValue::APMPFunctionValue(std::string name, std::vector<APMPRuntimeValue> parameterNames,
                                     APMPRuntimeValue body, APMPScope* scope)
    : name_(std::move(name)), parameterNames_(std::move(parameterNames)), body_(std::move(body)),
      scope_(scope) {
  if (scope_) scope_->retain();
  parameters_.reserve(parameterNames_.size());
  for (const auto& p : parameterNames_) parameters_.push_back(p.stringPayload());
  charge(sizeof(APMPFunctionValue));
}

APMPFunctionValue::~APMPFunctionValue() {
  if (spareScope_) spareScope_->release();
  if (scope_) scope_->release();
}

void APMPFunctionValue::traverse(void (*visit)(APMPHeapObject*, void*), void* context) {
  if (scope_) visit(scope_, context);
  if (spareScope_) visit(spareScope_, context);
  if (body_.isHeap()) visit(body_.object(), context);
  for (auto& p : parameterNames_) visit(p.object(), context);
}

void APMPFunctionValue::clearReferences() {
  if (APMPScope* spare = spareScope_) {
    spareScope_ = nullptr;
    spare->release();
  }
  body_ = APMPRuntimeValue();
  parameterNames_.clear();
  leaf_.reset();
  APMPScope* scope = scope_;
  scope_ = nullptr;
  if (scope) scope->release();
}

std::string APMPFunctionValue::text() const {
  std::string s = "function " + name_ + "(";
  for (std::size_t i = 0; i < parameters_.size(); ++i) {
    if (i) s += ", ";
    s += parameters_[i];
  }
  s += scope_ ? ") { [code] }" : ") { [native code] }";
  return s;
}

namespace {
int commandNumberOf(const std::string& name) {
  if (name.empty() || name.size() > 4) return -1;
  int v = 0;
  for (char c : name) {
    if (c < '0' || c > '9') return -1;
    v = v * 10 + (c - '0');
  }
  return v;
}
}  // namespace

APMPStatementValue::APMPStatementValue(std::string functionName,
                                       std::vector<APMPRuntimeValue> arguments)
    : functionName_(std::move(functionName)), command_(commandNumberOf(functionName_)),
      arguments_(std::move(arguments)) {
  if (command_ < 0) calleeName_ = APMPRuntimeValue::string(functionName_);
  if (command_ == 2 && arguments_.size() >= 2 && arguments_[1].isString()) {
    method_ = APMPMethodOf(arguments_[1].stringPayload());
  }
  charge(static_cast<std::ptrdiff_t>(sizeof(APMPStatementValue) +
                                     arguments_.size() * sizeof(APMPRuntimeValue)));
}

const APMPRuntimeValue& APMPNameTable::intern(const APMPRuntimeValue& name) {
  auto found = names_.find(std::string_view(name.stringPayload()));
  if (found != names_.end()) return found->second;
  // The key views the held string's text, which never changes while the table holds it.
  APMPRuntimeValue held = name;
  std::string_view key(held.stringPayload());
  return names_.emplace(key, std::move(held)).first->second;
}

void APMPStatementValue::internNamesSlowly(APMPNameTable& table) {
  internedIn_ = &table;
  // The compiled form points at the names it had: compile again.
  operation_ = 0;
  slot_ = APMPSlot();
  expressionSize_ = 0;
  expressionDepth_ = 0;
  numberForm_ = 0;
  numberSteps_.clear();
  auto intern = [&](std::size_t i) {
    if (i < arguments_.size() && arguments_[i].isString()) arguments_[i] = table.intern(arguments_[i]);
  };
  switch (command_) {
    case 15: case 3: case 50: case 51:
    case 47: case 54: case 55: case 64: case 65: case 66:
      intern(0);
      break;
    case 41: case 52:
      for (std::size_t i = 0; i < arguments_.size(); i += 2) intern(i);
      break;
    default: break;
  }
  if (calleeName_.isString()) calleeName_ = table.intern(calleeName_);
}

void APMPStatementValue::traverse(void (*visit)(APMPHeapObject*, void*), void* context) {
  for (auto& a : arguments_) {
    if (a.isHeap()) visit(a.object(), context);
  }
  if (calleeName_.isHeap()) visit(calleeName_.object(), context);
}

void APMPStatementValue::clearReferences() {
  calleeName_ = APMPRuntimeValue();
  auto arguments = std::move(arguments_);
  arguments_.clear();
  arguments.clear();
}

APMPControlValue::APMPControlValue(Type type, APMPRuntimeValue data)
    : type_(type), data_(std::move(data)) {
  charge(sizeof(APMPControlValue));
}

void APMPControlValue::traverse(void (*visit)(APMPHeapObject*, void*), void* context) {
  if (data_.isHeap()) visit(data_.object(), context);
}

void APMPControlValue::clearReferences() { data_ = APMPRuntimeValue(); }

namespace {
// Process-wide values, made outside any heap and never freed.
APMPRuntimeValue makeImmortal(APMPHeapObject* object) {
  object->retain();  // the extra reference keeps it for the life of the process
  return APMPRuntimeValue(object);
}
}  // namespace

const APMPRuntimeValue& APMPControlValue::breakValue() {
  static const APMPRuntimeValue value = [] {
    APMPHeap::Current none(nullptr);
    return makeImmortal(new APMPControlValue(Type::kBreak, {}));
  }();
  return value;
}

const APMPRuntimeValue& APMPControlValue::continueValue() {
  static const APMPRuntimeValue value = [] {
    APMPHeap::Current none(nullptr);
    return makeImmortal(new APMPControlValue(Type::kContinue, {}));
  }();
  return value;
}

const APMPRuntimeValue& APMPUndefinedValue::sharedInstance() {
  static const APMPRuntimeValue value;
  return value;
}

const APMPRuntimeValue& APMPNullValue::sharedInstance() {
  static const APMPRuntimeValue value = APMPRuntimeValue::null();
  return value;
}

// --- The handle ----------------------------------------------------------------------------

APMPRuntimeValue::APMPRuntimeValue(APMPHeapObject* object) : kind_(object->kind()), bits_(0) {
  object_ = object;
  object->retain();
}

APMPRuntimeValue APMPRuntimeValue::string(std::string s) {
  return APMPRuntimeValue(new APMPStringValue(std::move(s)), APMPValueKind::kString);
}


namespace {

void appendText(std::string& out, const APMPRuntimeValue& v,
                std::vector<const APMPHeapObject*>& visiting);

void appendArrayText(std::string& out, const APMPArrayValue* array,
                     std::vector<const APMPHeapObject*>& visiting) {
  for (const APMPHeapObject* o : visiting) {
    if (o == array) return;  // a cycle joins as ""
  }
  if (visiting.size() > 256) return;
  visiting.push_back(array);
  for (std::size_t i = 0; i < array->size(); ++i) {
    if (i) out += ',';
    const APMPRuntimeValue& e = array->at(i);
    if (!e.isNullish()) appendText(out, e, visiting);
  }
  visiting.pop_back();
}

void appendText(std::string& out, const APMPRuntimeValue& v,
                std::vector<const APMPHeapObject*>& visiting) {
  switch (v.kind()) {
    case APMPValueKind::kUndefined: out += "undefined"; break;
    case APMPValueKind::kNull: out += "null"; break;
    case APMPValueKind::kBoolean: out += v.booleanPayload() ? "true" : "false"; break;
    case APMPValueKind::kNumber: APMPAppendNumber(out, v.numberPayload()); break;
    case APMPValueKind::kString: out += v.stringPayload(); break;
    case APMPValueKind::kArray: appendArrayText(out, v.asArray(), visiting); break;
    case APMPValueKind::kMap: out += "[object Object]"; break;
    case APMPValueKind::kFunction: out += v.asFunction()->text(); break;
    case APMPValueKind::kStatement: out += "[statement " + v.asStatement()->functionName() + "]"; break;
    case APMPValueKind::kControl: out += "[control]"; break;
  }
}

}  // namespace

std::string APMPRuntimeValue::stringValue() const {
  if (isString()) return stringPayload();
  std::string out;
  std::vector<const APMPHeapObject*> visiting;
  appendText(out, *this, visiting);
  return out;
}

double APMPRuntimeValue::doubleValueOfOtherKind() const {
  switch (kind_) {
    case APMPValueKind::kUndefined: return std::nan("");
    case APMPValueKind::kNull: return 0;
    case APMPValueKind::kBoolean: return bits_ != 0 ? 1 : 0;
    case APMPValueKind::kNumber: return number_;
    case APMPValueKind::kString: return APMPStringToNumber(stringPayload());
    case APMPValueKind::kArray: {
      const APMPArrayValue* a = asArray();
      if (a->size() == 0) return 0;
      if (a->size() == 1 && (a->at(0).isNumber() || a->at(0).isNullish())) {
        // Through the element's text: -0 prints as "0".
        double d = a->at(0).isNumber() ? a->at(0).numberPayload() : 0;
        return d == 0 ? 0.0 : d;
      }
      return APMPStringToNumber(stringValue());
    }
    default: return std::nan("");
  }
}

bool APMPRuntimeValue::booleanValueOfOtherKind() const {
  switch (kind_) {
    case APMPValueKind::kUndefined:
    case APMPValueKind::kNull: return false;
    case APMPValueKind::kBoolean: return bits_ != 0;
    case APMPValueKind::kNumber: return !(number_ == 0 || std::isnan(number_));
    case APMPValueKind::kString: return !stringPayload().empty();
    default: return true;
  }
}

std::string APMPRuntimeValue::stringValueOrError(platform::Error*) const { return stringValue(); }
double APMPRuntimeValue::doubleValueOrError(platform::Error*) const { return doubleValue(); }
bool APMPRuntimeValue::booleanValueOrError(platform::Error*) const { return booleanValue(); }

bool APMPRuntimeValue::isEqualToRuntimeValue(const APMPRuntimeValue& other) const {
  if (kind_ != other.kind_) return false;
  switch (kind_) {
    case APMPValueKind::kUndefined:
    case APMPValueKind::kNull: return true;
    case APMPValueKind::kBoolean: return bits_ == other.bits_;
    case APMPValueKind::kNumber: return number_ == other.number_;
    case APMPValueKind::kString:
      return object_ == other.object_ || stringPayload() == other.stringPayload();
    default: return object_ == other.object_;
  }
}

bool APMPRuntimeValue::looselyEquals(const APMPRuntimeValue& other) const {
  if (kind_ == other.kind_) return isEqualToRuntimeValue(other);
  if (isNullish() && other.isNullish()) return true;
  if (isNullish() || other.isNullish()) return false;
  // Two objects are equal only as the same object (and these are of different kinds).
  if (isObject() && other.isObject()) return false;
  // Objects become primitives (their text); booleans and mixed string/number become numbers.
  if (isObject()) return APMPRuntimeValue::string(stringValue()).looselyEquals(other);
  if (other.isObject()) return looselyEquals(APMPRuntimeValue::string(other.stringValue()));
  if (isStatement() || isControl() || other.isStatement() || other.isControl()) return false;
  return doubleValue() == other.doubleValue();
}

const char* APMPRuntimeValue::typeName() const {
  switch (kind_) {
    case APMPValueKind::kUndefined: return "undefined";
    case APMPValueKind::kBoolean: return "boolean";
    case APMPValueKind::kNumber: return "number";
    case APMPValueKind::kString: return "string";
    case APMPValueKind::kFunction: return "function";
    default: return "object";
  }
}

namespace {

// The key as a property name: strings as they are, everything else through its text.
struct PropertyKey {
  explicit PropertyKey(const APMPRuntimeValue& key) {
    if (key.isString()) {
      name = key.stringPayload();
    } else {
      owned = key.stringValue();
      name = owned;
    }
    if (key.isNumber()) {
      double d = key.numberPayload();
      index = (d >= 0 && d < 4294967295.0 && d == std::floor(d)) ? static_cast<std::int64_t>(d) : -1;
    } else {
      index = APMPArrayIndexOf(name);
    }
  }
  std::string owned;
  std::string_view name;
  std::int64_t index;
};

}  // namespace

APMPRuntimeValue APMPRuntimeValue::valueForProperty(const APMPRuntimeValue& key,
                                                    platform::Error* error) const {
  switch (kind_) {
    case APMPValueKind::kUndefined:
    case APMPValueKind::kNull:
      APMPSetError(error, kAPMPErrorCodeWrongArgumentKind,
                   "Cannot read property " + key.stringValue() + " of " + stringValue());
      return {};
    case APMPValueKind::kString: {
      PropertyKey k(key);
      const std::string& s = stringPayload();
      if (k.index >= 0) {
        if (static_cast<std::size_t>(k.index) < s.size()) {
          return APMPRuntimeValue::string(std::string(1, s[static_cast<std::size_t>(k.index)]));
        }
        return {};
      }
      if (k.name == "length") return number(static_cast<double>(s.size()));
      return {};
    }
    case APMPValueKind::kArray: {
      const APMPArrayValue* a = asArray();
      if (key.isNumber()) {
        double d = key.numberPayload();
        if (d >= 0 && d < static_cast<double>(a->size()) && d == std::floor(d)) {
          return a->at(static_cast<std::size_t>(d));
        }
        if (!(d >= 0 && d == std::floor(d))) {
          PropertyKey k(key);
          if (k.name == "length") return number(static_cast<double>(a->size()));
        }
        return {};
      }
      PropertyKey k(key);
      if (k.index >= 0) {
        return static_cast<std::size_t>(k.index) < a->size() ? a->at(static_cast<std::size_t>(k.index))
                                                              : APMPRuntimeValue();
      }
      if (k.name == "length") return number(static_cast<double>(a->size()));
      return {};
    }
    case APMPValueKind::kMap: {
      if (key.isString()) {
        const APMPRuntimeValue* v = asMap()->find(key.stringPayload());
        return v ? *v : APMPRuntimeValue();
      }
      PropertyKey k(key);
      const APMPRuntimeValue* v = asMap()->find(k.name);
      return v ? *v : APMPRuntimeValue();
    }
    case APMPValueKind::kFunction: {
      PropertyKey k(key);
      if (k.name == "name") return string(asFunction()->name());
      if (k.name == "length") return number(static_cast<double>(asFunction()->parameters().size()));
      return {};
    }
    default: return {};
  }
}

bool APMPRuntimeValue::setValueForProperty(const APMPRuntimeValue& key, APMPRuntimeValue value,
                                           platform::Error* error) const {
  switch (kind_) {
    case APMPValueKind::kArray: {
      APMPArrayValue* a = asArray();
      PropertyKey k(key);
      if (k.index >= 0) {
        auto i = static_cast<std::size_t>(k.index);
        if (i >= a->size() && !a->resize(i + 1)) {
          return APMPSetError(error, kAPMPErrorCodeBudgetExceeded, "Out of memory: array too large");
        }
        a->set(i, std::move(value));
        return true;
      }
      if (k.name == "length") {
        double d = value.doubleValue();
        if (!(d >= 0 && d < 4294967296.0 && d == std::floor(d))) {
          return APMPSetError(error, kAPMPErrorCodeWrongArgumentKind, "Invalid array length");
        }
        if (!a->resize(static_cast<std::size_t>(d))) {
          return APMPSetError(error, kAPMPErrorCodeBudgetExceeded, "Out of memory: array too large");
        }
        return true;
      }
      // Other names on an array are not kept.
      return true;
    }
    case APMPValueKind::kMap: {
      PropertyKey k(key);
      if (!asMap()->set(k.name, std::move(value))) {
        return APMPSetError(error, kAPMPErrorCodeBudgetExceeded, "Out of memory: object too large");
      }
      return true;
    }
    case APMPValueKind::kUndefined:
    case APMPValueKind::kNull:
      return APMPSetError(error, kAPMPErrorCodeWrongArgumentKind,
                          "Cannot set property " + key.stringValue() + " of " + stringValue());
    default:
      // Writes to primitives and functions are dropped, as in sloppy ECMAScript.
      return true;
  }
}
