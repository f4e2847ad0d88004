// Values of the event-editing language: undefined, null, booleans, numbers (doubles), strings,
// arrays, objects ("maps"), functions, unevaluated statements and control signals.
//
// APMPRuntimeValue is a 16-byte handle: undefined, null, booleans and numbers live inside it
// and never allocate. The other kinds are reference-counted heap objects (APMPStringValue,
// APMPArrayValue, ...) that the handle points at; copying a handle shares the object, so a
// string that is only read is never copied. Strings are immutable; arrays, maps and scopes
// are mutable and shared, as objects are in ECMAScript.
//
// Heap objects made while an APMPHeap is current (APMPHeap::Current) are counted against its
// byte bound and can take part in its cycle collection; outside one they are plain
// reference-counted objects.
//
// Not thread-safe: a value belongs to the queue of the runtime that made it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/Types.h"

class APMPHeap;
class APMPHeapObject;
class APMPStringValue;
class APMPArrayValue;
class APMPMapValue;
class APMPFunctionValue;
class APMPStatementValue;
class APMPControlValue;
class APMPScope;

// Domain of the runtime's errors.
inline constexpr const char* kAPMPErrorDomain = "com.stuvop.smp.measurement.pixie.ErrorDomain";
// Domain of the event-editing layer's errors.
inline constexpr const char* kAPMPEditingErrorDomain =
    "com.stuvop.smp.measurement.pixie.editing.ErrorDomain";

// Codes of kAPMPErrorDomain. Every resource limit (the instruction budget, the nesting depth
// and the memory bound) reports kAPMPErrorCodeBudgetExceeded; everything a program gets wrong
// about names, kinds and targets reports kAPMPErrorCodeWrongArgumentKind.
enum APMPErrorCode : int {
  kAPMPErrorCodeWrongArgumentCount = 9,
  kAPMPErrorCodeWrongArgumentKind = 10,
  kAPMPErrorCodeBudgetExceeded = 18,
};

// Codes of kAPMPEditingErrorDomain.
enum APMPEditingErrorCode : int {
  kAPMPEditingErrorCodeBadRuleType = 3,
  kAPMPEditingErrorCodeProgramReturnedValue = 5,
  kAPMPEditingErrorCodeBadRuleArgument = 6,
  kAPMPEditingErrorCodeRuleNotAFunction = 7,
};

// Fills `error` (when non-null) and returns false.
bool APMPSetError(platform::Error* error, int code, std::string message);
bool APMPSetEditingError(platform::Error* error, int code, std::string message);

enum class APMPValueKind : std::uint8_t {
  kUndefined,
  kNull,
  kBoolean,
  kNumber,
  kString,
  kArray,
  kMap,
  kFunction,
  kStatement,
  kControl,
};

// One value. Default-constructed it is undefined.
class APMPRuntimeValue {
 public:
  APMPRuntimeValue() : kind_(APMPValueKind::kUndefined), bits_(0) {}
  ~APMPRuntimeValue() { release(); }
  APMPRuntimeValue(const APMPRuntimeValue& other) : kind_(other.kind_), bits_(other.bits_) {
    retain();
  }
  APMPRuntimeValue(APMPRuntimeValue&& other) noexcept : kind_(other.kind_), bits_(other.bits_) {
    other.kind_ = APMPValueKind::kUndefined;
  }
  // Both assignments take the new value before letting the old one go: the old value may
  // own the new one (a control value's data).
  APMPRuntimeValue& operator=(const APMPRuntimeValue& other) {
    other.retain();
    APMPValueKind kind = other.kind_;
    std::uint64_t bits = other.bits_;
    release();
    kind_ = kind;
    bits_ = bits;
    return *this;
  }
  APMPRuntimeValue& operator=(APMPRuntimeValue&& other) noexcept {
    APMPValueKind kind = other.kind_;
    std::uint64_t bits = other.bits_;
    other.kind_ = APMPValueKind::kUndefined;
    release();
    kind_ = kind;
    bits_ = bits;
    return *this;
  }
  // Makes this value the number `d`, letting go of what it held.
  void setNumber(double d) {
    release();
    kind_ = APMPValueKind::kNumber;
    number_ = d;
  }
  void swap(APMPRuntimeValue& other) noexcept {
    std::swap(kind_, other.kind_);
    std::swap(bits_, other.bits_);
  }

  // Takes one reference to `object` (which must not be null).
  explicit APMPRuntimeValue(APMPHeapObject* object);
  // The same where the caller knows the object's kind (`kind` must be object->kind()).
  inline APMPRuntimeValue(APMPHeapObject* object, APMPValueKind kind);

  static APMPRuntimeValue undefined() { return {}; }
  static APMPRuntimeValue null() {
    APMPRuntimeValue v;
    v.kind_ = APMPValueKind::kNull;
    return v;
  }
  static APMPRuntimeValue boolean(bool b) {
    APMPRuntimeValue v;
    v.kind_ = APMPValueKind::kBoolean;
    // The whole word: a byte written alone would stall the next copy's load of it.
    v.bits_ = b ? 1 : 0;
    return v;
  }
  static APMPRuntimeValue number(double d) {
    APMPRuntimeValue v;
    v.kind_ = APMPValueKind::kNumber;
    v.number_ = d;
    return v;
  }
  // A new string value (allocates).
  static APMPRuntimeValue string(std::string s);

  APMPValueKind kind() const { return kind_; }
  bool isUndefined() const { return kind_ == APMPValueKind::kUndefined; }
  bool isNull() const { return kind_ == APMPValueKind::kNull; }
  bool isNullish() const { return kind_ <= APMPValueKind::kNull; }
  bool isBoolean() const { return kind_ == APMPValueKind::kBoolean; }
  bool isNumber() const { return kind_ == APMPValueKind::kNumber; }
  bool isString() const { return kind_ == APMPValueKind::kString; }
  bool isArray() const { return kind_ == APMPValueKind::kArray; }
  bool isMap() const { return kind_ == APMPValueKind::kMap; }
  bool isFunction() const { return kind_ == APMPValueKind::kFunction; }
  bool isStatement() const { return kind_ == APMPValueKind::kStatement; }
  bool isControl() const { return kind_ == APMPValueKind::kControl; }
  // Strings, arrays, maps, functions, statements and controls: a heap object behind it.
  bool isHeap() const { return kind_ >= APMPValueKind::kString; }
  // Arrays, maps and functions: compared by identity.
  bool isObject() const { return kind_ >= APMPValueKind::kArray && kind_ <= APMPValueKind::kFunction; }

  // Payload readers; each requires the matching kind.
  bool booleanPayload() const { return bits_ != 0; }
  double numberPayload() const { return number_; }
  const std::string& stringPayload() const;
  APMPHeapObject* object() const { return object_; }
  APMPStringValue* asString() const;
  APMPArrayValue* asArray() const;
  APMPMapValue* asMap() const;
  APMPFunctionValue* asFunction() const;
  APMPStatementValue* asStatement() const;
  APMPControlValue* asControl() const;

  // ECMAScript conversions. Text: numbers in the shortest round-trip form ("NaN",
  // "Infinity", "1e+21", "1.5e-7"), arrays joined with "," (a cycle gives ""), maps
  // "[object Object]". Number: undefined NaN, null 0, booleans 1 or 0, strings by the
  // numeric-literal grammar (empty is 0, junk NaN), arrays through their text.
  std::string stringValue() const;
  double doubleValue() const {
    return kind_ == APMPValueKind::kNumber ? number_ : doubleValueOfOtherKind();
  }
  bool booleanValue() const {
    if (kind_ == APMPValueKind::kBoolean) return bits_ != 0;
    if (kind_ == APMPValueKind::kNumber) return !(number_ == 0 || number_ != number_);
    return booleanValueOfOtherKind();
  }
  // The names of the base class of values, for callers that expect an error record; the
  // conversions cannot fail, so `error` is never filled.
  std::string stringValueOrError(platform::Error* error) const;
  double doubleValueOrError(platform::Error* error) const;
  bool booleanValueOrError(platform::Error* error) const;

  // Strict equality (===): same kind, numbers by value (NaN unequal, 0 == -0), strings by
  // content, objects by identity.
  bool isEqualToRuntimeValue(const APMPRuntimeValue& other) const;
  // Loose equality (==) with conversions.
  bool looselyEquals(const APMPRuntimeValue& other) const;
  // The operator name of `typeof`.
  const char* typeName() const;

  // A property read: array and string indices and "length", map entries; undefined for
  // anything missing. Reading from undefined or null fails with code 10.
  APMPRuntimeValue valueForProperty(const APMPRuntimeValue& key, platform::Error* error) const;
  // A property write on arrays (indices and "length") and maps; fails with code 10 on other
  // kinds or a bad index, and with code 18 past the memory bound.
  bool setValueForProperty(const APMPRuntimeValue& key, APMPRuntimeValue value,
                           platform::Error* error) const;

 private:
  inline void retain() const;
  inline void release();
  double doubleValueOfOtherKind() const;
  bool booleanValueOfOtherKind() const;

  APMPValueKind kind_;
  union {
    std::uint64_t bits_;
    double number_;  // a boolean is bits_ 0 or 1
    APMPHeapObject* object_;
  };
};

// The text of a number as ECMAScript's Number::toString writes it.
std::string APMPNumberToString(double d);
// Appends the same text to `out` (no temporary).
void APMPAppendNumber(std::string& out, double d);
// A string's number by ECMAScript's StringToNumber (whitespace trimmed, "Infinity", hex,
// octal and binary literals).
double APMPStringToNumber(std::string_view s);
// ToInt32 and ToUint32.
std::int32_t APMPToInt32(double d);
std::uint32_t APMPToUint32(double d);
// An array index written in canonical decimal ("0", "17"; not "01" or "1.0"), or -1.
std::int64_t APMPArrayIndexOf(std::string_view key);

// The heap: live bytes against a bound, and the objects it tracks for cycle collection.
class APMPHeap {
 public:
  // Live bytes of strings, elements and entries a heap allows: 64 MiB.
  static constexpr std::size_t kDefaultByteLimit = 64u << 20;

  explicit APMPHeap(std::size_t byteLimit = kDefaultByteLimit);
  // Frees every object it still tracks (contents cleared first, so cycles go too).
  ~APMPHeap();
  APMPHeap(const APMPHeap&) = delete;
  APMPHeap& operator=(const APMPHeap&) = delete;

  // Makes a heap current on this thread for its lifetime; restores the previous one.
  class Current {
   public:
    explicit Current(APMPHeap* heap);
    ~Current();
    Current(const Current&) = delete;
    Current& operator=(const Current&) = delete;

   private:
    APMPHeap* previous_;
  };
  static APMPHeap* current();

  // Whether `bytes` more fit under the bound (always true without a current heap).
  static bool canAllocate(std::size_t bytes);
  std::size_t liveBytes() const { return liveBytes_; }
  std::size_t byteLimit() const { return byteLimit_; }
  std::size_t objectCount() const { return objectCount_; }

  // Frees the tracked objects that only references among tracked objects keep alive: the
  // cycles a program leaves behind (a function bound in the scope it closes over). Objects
  // that a handle outside the heap's objects holds stay, with all they reach. Returns how
  // many objects were freed.
  std::size_t collectCycles();
  // Runs collectCycles when the number of objects has doubled since the last run.
  void collectIfGrown();

 private:
  friend class APMPHeapObject;
  void track(APMPHeapObject* object);
  void untrack(APMPHeapObject* object);

  std::size_t byteLimit_;
  std::size_t liveBytes_ = 0;
  std::size_t objectCount_ = 0;
  std::size_t countAfterCollection_ = 64;

 public:
  // Adds `bytes` (which may be negative) to the live bytes.
  void chargeLive(std::ptrdiff_t bytes) {
    liveBytes_ = static_cast<std::size_t>(static_cast<std::ptrdiff_t>(liveBytes_) + bytes);
  }

 private:
  APMPHeapObject* first_ = nullptr;
};

// Base of every value that lives on the heap.
class APMPHeapObject {
 public:
  APMPHeapObject(const APMPHeapObject&) = delete;
  APMPHeapObject& operator=(const APMPHeapObject&) = delete;
  virtual ~APMPHeapObject();

  virtual APMPValueKind kind() const = 0;
  // Calls `visit` on every heap object this one holds a reference to.
  virtual void traverse(void (*visit)(APMPHeapObject*, void*), void* context) = 0;
  // Drops every reference this object holds (cycle collection).
  virtual void clearReferences() = 0;

  void retain() { ++refs_; }
  void release() {
    if (--refs_ == 0) destroy(this);
  }
  std::uint32_t referenceCount() const { return refs_; }
  // The heap that tracks this object, or null.
  APMPHeap* heap() const { return heap_; }

 protected:
  APMPHeapObject();
  // Deletes `object` without recursion: objects it frees in turn wait in a list, so that a
  // deeply nested value (an array inside an array, a million deep) cannot exhaust the stack.
  static void destroy(APMPHeapObject* object);
  // Adjusts the bytes charged to the heap that tracks this object.
  void charge(std::ptrdiff_t bytes) {
    if (bytes < 0 && static_cast<std::size_t>(-bytes) > bytes_) bytes = -static_cast<std::ptrdiff_t>(bytes_);
    bytes_ = static_cast<std::size_t>(static_cast<std::ptrdiff_t>(bytes_) + bytes);
    if (heap_) heap_->chargeLive(bytes);
  }

 private:
  friend class APMPHeap;
  std::uint32_t refs_ = 0;
  std::uint32_t gcRefs_ = 0;
  std::size_t bytes_ = 0;
  APMPHeap* heap_ = nullptr;
  APMPHeapObject* prev_ = nullptr;
  APMPHeapObject* next_ = nullptr;
};

// An immutable string.
class APMPStringValue final : public APMPHeapObject {
 public:
  explicit APMPStringValue(std::string s);
  APMPValueKind kind() const override { return APMPValueKind::kString; }
  void traverse(void (*)(APMPHeapObject*, void*), void*) override {}
  void clearReferences() override {}
  const std::string& value() const { return value_; }

  // The bit that stands for this text in a scope's summary of names (computed once).
  std::uint64_t nameBit() const {
    if (nameBit_ == 0) nameBit_ = nameBitOf(value_);
    return nameBit_;
  }
  static std::uint64_t nameBitOf(std::string_view text);
  // Whether this string spells `text`.
  bool equals(std::string_view text) const {
    return value_.size() == text.size() && (text.empty() || (value_[0] == text[0] && value_ == text));
  }
  // Appends `text` to this string. Only for the sole holder of the string (reference count
  // 1), to whom the change is not observable as a mutation. Fails past the heap's bound.
  bool appendInPlace(std::string_view text);

 private:
  std::string value_;
  mutable std::uint64_t nameBit_ = 0;
};

// An array. Dense storage; a write past the end fills the gap with undefined, within the
// heap's bound.
class APMPArrayValue final : public APMPHeapObject {
 public:
  APMPArrayValue() = default;
  explicit APMPArrayValue(std::vector<APMPRuntimeValue> elements);
  ~APMPArrayValue() override;
  APMPValueKind kind() const override { return APMPValueKind::kArray; }
  void traverse(void (*visit)(APMPHeapObject*, void*), void* context) override;
  void clearReferences() override;

  std::size_t size() const { return elements_.size(); }
  const APMPRuntimeValue& at(std::size_t i) const { return elements_[i]; }
  const std::vector<APMPRuntimeValue>& elements() const { return elements_; }
  // Mutators keep the heap's byte count; `reserveFor` and `resize` fail past the bound. Each
  // moves version() on.
  bool push(APMPRuntimeValue value);
  bool resize(std::size_t size);
  void set(std::size_t i, APMPRuntimeValue value) {
    ++version_;
    elements_[i] = std::move(value);
  }
  std::vector<APMPRuntimeValue>& mutableElements() {
    ++version_;
    return elements_;
  }
  // A count that moves whenever the elements may have changed: an array whose version is
  // what it was holds what it held.
  std::uint64_t version() const { return version_; }
  // Charges the heap for the current size (after direct edits of mutableElements).
  bool recharge();

  // Whether the array, read as a statement list, declares names at its own level (so that a
  // loop body or block needs a scope of its own). Computed once.
  bool declaresNames();

 private:
  std::vector<APMPRuntimeValue> elements_;
  std::uint64_t version_ = 0;
  std::int8_t declaresNames_ = -1;
};

// An object: properties in insertion order.
class APMPMapValue final : public APMPHeapObject {
 public:
  APMPValueKind kind() const override { return APMPValueKind::kMap; }
  void traverse(void (*visit)(APMPHeapObject*, void*), void* context) override;
  void clearReferences() override;

  // The value under `name`, or null when there is none.
  const APMPRuntimeValue* find(std::string_view name) const;
  bool set(std::string_view name, APMPRuntimeValue value);
  std::size_t size() const { return entries_.size(); }
  const std::vector<std::pair<std::string, APMPRuntimeValue>>& entries() const { return entries_; }

 private:
  std::vector<std::pair<std::string, APMPRuntimeValue>> entries_;
};

class APMPEvaluator;

// What the evaluator learned of a function's body or a loop (see APMPEvaluator.h).
struct APMPLeafForm;

// A function: a name, parameter names, a statement list and the scope it was defined in.
// Native functions derive from it and override call.
class APMPFunctionValue : public APMPHeapObject {
 public:
  APMPFunctionValue(std::string name, std::vector<std::string> parameters, APMPRuntimeValue body,
                    APMPScope* scope);
  // The same with the parameter names as the program's string values (held, not copied).
  APMPFunctionValue(std::string name, std::vector<APMPRuntimeValue> parameterNames,
                    APMPRuntimeValue body, APMPScope* scope);
  ~APMPFunctionValue() override;
  APMPValueKind kind() const override { return APMPValueKind::kFunction; }
  void traverse(void (*visit)(APMPHeapObject*, void*), void* context) override;
  void clearReferences() override;

  const std::string& name() const { return name_; }
  const std::vector<std::string>& parameters() const { return parameters_; }
  // The parameter names as string values, in order.
  const std::vector<APMPRuntimeValue>& parameterNames() const { return parameterNames_; }
  const APMPRuntimeValue& body() const { return body_; }
  APMPScope* scope() const { return scope_; }
  // "function NAME(a, b) { [code] }" for a program's function, "[native code]" in the body
  // for a native one.
  virtual std::string text() const;

  // Runs the function with `arguments`: binds the parameters in a child of the defining
  // scope (missing ones undefined) and runs the body; a `return` gives its data, anything
  // else undefined. On failure returns undefined with the error recorded in `evaluator`.
  virtual APMPRuntimeValue call(APMPEvaluator& evaluator, const APMPRuntimeValue* arguments,
                                std::size_t count);
  // For the evaluator: the leaf form (see APMPLeafForm), or null when it has none.
  APMPLeafForm* leafForm() const { return leaf_.get(); }
  void shareLeafForm(std::shared_ptr<APMPLeafForm> form) { leaf_ = std::move(form); }

 private:
  // call() for a body that is no leaf, or a leaf on arguments it does not take: the
  // parameters bound in a call scope, the body run there.
  APMPRuntimeValue callInScope(APMPEvaluator& evaluator, const APMPRuntimeValue* arguments,
                               std::size_t count);

 protected:
  explicit APMPFunctionValue(std::string name);

 private:
  std::string name_;
  std::vector<std::string> parameters_;
  std::vector<APMPRuntimeValue> parameterNames_;
  APMPRuntimeValue body_;
  APMPScope* scope_ = nullptr;
  // The scope of a finished call that nothing kept (no closure, no block): the next call
  // binds its parameters in it instead of making a scope.
  APMPScope* spareScope_ = nullptr;
  std::shared_ptr<APMPLeafForm> leaf_;
};

// One string value per distinct name: the evaluator's table, into which statements put their
// literal names, so that scopes find names by identity.
class APMPNameTable {
 public:
  // The table's string equal to `name` (a string value), entered on first sight.
  const APMPRuntimeValue& intern(const APMPRuntimeValue& name);

 private:
  std::unordered_map<std::string_view, APMPRuntimeValue> names_;
};

// A name resolved to the binding that last held it: `hops` scopes up the chain from where the
// lookup starts, at `index` among that scope's bindings. A lookup checks that the chain still
// leads there (no scope on the way binds the name, the binding still carries it) before it
// takes the binding, so a slot is right from any scope; it only saves the walk.
//
// Before that, the slot remembers the last lookup itself: from which scope, what it found and
// the scopes' shape (APMPScope::shape()) at the time. While no scope anywhere has gained, lost
// or dropped a binding since, a lookup from the same scope finds the same binding.
struct APMPSlot {
  static constexpr std::uint32_t kUnresolved = UINT32_MAX;
  const APMPStringValue* name = nullptr;  // the statement's (interned) name
  std::uint64_t bit = 0;                  // name->nameBit()
  std::uint32_t hops = kUnresolved;
  std::uint32_t index = 0;
  const APMPScope* from = nullptr;  // where the last lookup started (null: none remembered)
  std::uint64_t shape = 0;          // APMPScope::shape() then
  void* binding = nullptr;          // the APMPScope::Binding it found
};

// One step of an arithmetic expression laid out flat for the evaluator, which runs the steps
// as a stack machine on doubles: push a literal, a name's number, or an entry of a name's
// value under `key`; or combine the top two. `kind` is the evaluator's numbering.
struct APMPNumberStep {
  std::uint8_t kind = 0;
  double literal = 0;
  APMPSlot* slot = nullptr;
  const APMPStringValue* key = nullptr;
  // Where `key` was found among a map's entries the last time (a guess, checked on use); for
  // the key "length", kLength.
  static constexpr std::uint32_t kLength = UINT32_MAX;
  mutable std::uint32_t entryHint = 0;
};

// Unevaluated code: a command (its number as text in `functionName`) and its arguments.
class APMPStatementValue final : public APMPHeapObject {
 public:
  APMPStatementValue(std::string functionName, std::vector<APMPRuntimeValue> arguments);
  APMPValueKind kind() const override { return APMPValueKind::kStatement; }
  void traverse(void (*visit)(APMPHeapObject*, void*), void* context) override;
  void clearReferences() override;

  const std::string& functionName() const { return functionName_; }
  // The command number, or -1 when the name is no number.
  int command() const { return command_; }
  const std::vector<APMPRuntimeValue>& arguments() const { return arguments_; }
  // For a call by name (no command number): the name as a string value, made once.
  const APMPRuntimeValue& calleeName() const { return calleeName_; }
  // For a method call (command 2) with a literal name: the method's number in the method
  // tables (see APMPMethodOf), made once; -1 otherwise.
  int method() const { return method_; }
  // For the evaluator: the operation it runs this statement as (0 before its first
  // evaluation; see APMPEvaluator::compile), a flag word for that operation, and the slot of
  // the statement's name.
  std::uint8_t operation() const { return operation_; }
  std::uint8_t operationFlags() const { return operationFlags_; }
  void setOperation(std::uint8_t operation, std::uint8_t flags) const {
    operation_ = operation;
    operationFlags_ = flags;
  }
  // Adds `flags` to the operation's flag word.
  void addOperationFlags(std::uint8_t flags) const { operationFlags_ |= flags; }
  APMPSlot& slot() const { return slot_; }
  // As an expression without side effects: how many statements it evaluates at most and how
  // deep they nest (both 0 when it is none).
  std::uint32_t expressionSize() const { return expressionSize_; }
  int expressionDepth() const { return expressionDepth_; }
  void setExpression(std::uint32_t size, int depth) const {
    expressionSize_ = size;
    expressionDepth_ = static_cast<std::int16_t>(depth);
  }
  // The statement as flat number steps, made by the evaluator on first use: numberForm() is
  // 0 before, 1 once made, 2 when the statement has no such form; numberCount() is how many
  // statements the steps stand for.
  std::uint8_t numberForm() const { return numberForm_; }
  const std::vector<APMPNumberStep>& numberSteps() const { return numberSteps_; }
  std::uint32_t numberCount() const { return numberCount_; }
  void setNumberForm(std::vector<APMPNumberStep> steps, std::uint32_t count) const {
    numberSteps_ = std::move(steps);
    numberCount_ = count;
    numberForm_ = 1;
  }
  void setNoNumberForm() const { numberForm_ = 2; }
  // For a function definition (50, 51): the leaf form its functions share; for a `for` (63),
  // its own.
  std::shared_ptr<APMPLeafForm>& leafForm() const { return leafForm_; }
  // Replaces the literal names among the arguments (names read, written, declared and
  // looped over) and the callee's name with the equal strings of `table`. Done once per
  // table; the statement means the same afterwards.
  void internNames(APMPNameTable& table) {
    if (internedIn_ != &table) internNamesSlowly(table);
  }

 private:
  void internNamesSlowly(APMPNameTable& table);

  std::string functionName_;
  int command_;
  int method_ = -1;
  const APMPNameTable* internedIn_ = nullptr;
  mutable std::uint8_t operation_ = 0;
  mutable std::uint8_t operationFlags_ = 0;
  mutable APMPSlot slot_;
  mutable std::uint32_t expressionSize_ = 0;
  mutable std::int16_t expressionDepth_ = 0;
  mutable std::uint8_t numberForm_ = 0;
  mutable std::uint32_t numberCount_ = 0;
  mutable std::vector<APMPNumberStep> numberSteps_;
  mutable std::shared_ptr<APMPLeafForm> leafForm_;
  std::vector<APMPRuntimeValue> arguments_;
  APMPRuntimeValue calleeName_;
};

// A jump up the stack: break, continue, or return with data.
class APMPControlValue final : public APMPHeapObject {
 public:
  enum class Type : std::uint8_t { kBreak, kContinue, kReturn };
  APMPControlValue(Type type, APMPRuntimeValue data);
  APMPValueKind kind() const override { return APMPValueKind::kControl; }
  void traverse(void (*visit)(APMPHeapObject*, void*), void* context) override;
  void clearReferences() override;

  Type type() const { return type_; }
  const APMPRuntimeValue& data() const { return data_; }
  // For the evaluator, which reuses one return signal while nobody else holds it.
  void setData(APMPRuntimeValue data) { data_ = std::move(data); }
  APMPRuntimeValue takeData() { return std::move(data_); }

  // The shared break and continue signals (no allocation).
  static const APMPRuntimeValue& breakValue();
  static const APMPRuntimeValue& continueValue();

 private:
  Type type_;
  APMPRuntimeValue data_;
};

// Namespaces of the scalar classes: shared instances and texts. The values themselves live
// inside APMPRuntimeValue.
struct APMPUndefinedValue {
  static const APMPRuntimeValue& sharedInstance();
};
struct APMPNullValue {
  static const APMPRuntimeValue& sharedInstance();
};
struct APMPBooleanValue {
  static APMPRuntimeValue valueWithBool(bool b) { return APMPRuntimeValue::boolean(b); }
};
struct APMPNumberValue {
  static APMPRuntimeValue valueWithDouble(double d) { return APMPRuntimeValue::number(d); }
};

inline APMPRuntimeValue::APMPRuntimeValue(APMPHeapObject* object, APMPValueKind kind)
    : kind_(kind), bits_(0) {
  object_ = object;
  object->retain();
}

inline void APMPRuntimeValue::retain() const {
  if (isHeap()) object_->retain();
}

inline void APMPRuntimeValue::release() {
  if (isHeap()) {
    APMPHeapObject* o = object_;
    kind_ = APMPValueKind::kUndefined;
    o->release();
  }
}

inline const std::string& APMPRuntimeValue::stringPayload() const {
  return static_cast<APMPStringValue*>(object_)->value();
}
inline APMPStringValue* APMPRuntimeValue::asString() const {
  return static_cast<APMPStringValue*>(object_);
}
inline APMPArrayValue* APMPRuntimeValue::asArray() const {
  return static_cast<APMPArrayValue*>(object_);
}
inline APMPMapValue* APMPRuntimeValue::asMap() const { return static_cast<APMPMapValue*>(object_); }
inline APMPFunctionValue* APMPRuntimeValue::asFunction() const {
  return static_cast<APMPFunctionValue*>(object_);
}
inline APMPStatementValue* APMPRuntimeValue::asStatement() const {
  return static_cast<APMPStatementValue*>(object_);
}
inline APMPControlValue* APMPRuntimeValue::asControl() const {
  return static_cast<APMPControlValue*>(object_);
}

// The methods of strings and arrays by number, for statements that name them literally.
enum APMPMethod : int {
  kAPMPMethodUnknown = -1,
  kAPMPMethodCharAt, kAPMPMethodConcat, kAPMPMethodHasOwnProperty, kAPMPMethodIndexOf,
  kAPMPMethodLastIndexOf, kAPMPMethodMatch, kAPMPMethodReplace, kAPMPMethodSearch,
  kAPMPMethodSlice, kAPMPMethodSplit, kAPMPMethodSubstring, kAPMPMethodToLowerCase,
  kAPMPMethodToLocaleLowerCase, kAPMPMethodToString, kAPMPMethodToUpperCase,
  kAPMPMethodToLocaleUpperCase, kAPMPMethodTrim, kAPMPMethodEvery, kAPMPMethodFilter,
  kAPMPMethodForEach, kAPMPMethodJoin, kAPMPMethodMap, kAPMPMethodPop, kAPMPMethodPush,
  kAPMPMethodReduce, kAPMPMethodReduceRight, kAPMPMethodReverse, kAPMPMethodShift,
  kAPMPMethodSome, kAPMPMethodSort, kAPMPMethodSplice, kAPMPMethodUnshift,
};
// The number of a method name, or kAPMPMethodUnknown.
int APMPMethodOf(std::string_view name);

// Makes a heap object and returns its handle.
template <class T, class... Args>
APMPRuntimeValue APMPMake(Args&&... args) {
  return APMPRuntimeValue(new T(std::forward<Args>(args)...));
}
