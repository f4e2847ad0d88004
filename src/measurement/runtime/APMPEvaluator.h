// APMPEvaluator runs statements; APMPCommandRegistrar maps each command number to the
// evaluator of its family.
//
// A statement is an APMPStatementValue: a command number (as text) and its arguments. Every
// command evaluates its arguments itself, in order, and only those its meaning needs (the
// logical ones evaluate the second only when the first does not decide). The arguments by
// command:
//
//   math        0 add, 10 divide, 25 remainder, 26 multiply, 37 subtract: (a, b)
//               27 negate, 34 and 35 identity: (a);  32, 33 first of two: (a, b)
//   comparison  12 ==, 29 !=, 20 ===, 21 !==, 18 >, 19 >=, 23 <, 24 <=: (a, b)
//   logical     1 and, 30 or: (a, b), yielding the deciding operand;  28 not: (a)
//   bitwise     56 &, 57 <<, 59 |, 60 >>, 61 >>>, 62 ^: (a, b);  58 ~: (a)
//   control     2 call a method: (target, name, [argument array])
//               4 break, 6 continue: ()
//               5, 9 run statements, 53 block (a child scope): (statement array)
//               13 sequence: (a, ...), the last value
//               22 if: (condition, then statements, [else statements])
//               39 conditional: (condition, a, b), both evaluated, one yielded
//               36 return: ([value])
//               38 switch: (value, cases), each case an array [test, statements], or
//                  [statements] for the default
//               46 statement list: (array), yielded unevaluated
//               50 function declaration, 51 function expression: (name, parameter names,
//                  statements)
//   variable    3 assign: (name, value);  41 declare, 52 declare constants:
//                  (name, value, name, value, ...)
//               7 array literal: (elements ...);  8 object literal: (name, value, ...)
//               15 read a name: (name);  16, 17 read a property: (object, key)
//               43 write a property: (object, key, value);  40 type name: (a)
//               45 null, 44 undefined: ()
//   loop        47, 54, 55 for-in and 64, 65, 66 for-of: (name, object, statements)
//               63 for: (init, condition, update, statements)
//               42 while: (condition, statements, [do-while flag])
//
// Any other command name is a call of the function bound to that name in the scope, with the
// evaluated arguments (APMPFunctionEvaluator).
//
// Speed: a program is decoded once into its tree of statements, and each statement is
// compiled on its first evaluation into the operation the evaluator runs it as: its names
// interned in the evaluator's table, its arity checked once, the hot commands (arithmetic,
// comparisons, name reads and writes, property reads, calls by name, `name = name + x`) as
// operations of their own, the rest through its family's evaluator. A name is resolved to a
// slot (how many scopes up, which binding there) that each lookup checks in a few loads
// instead of searching the chain by name. Name reads among the operands of a statement run
// inline. Numbers, booleans, undefined and null never allocate; strings are shared, and
// `name = name + x` grows a string nobody else holds in place; a call's scope is reused when
// nothing kept it. Arithmetic and comparisons whose operands are numbers run on doubles
// (nested arithmetic as flat steps on a small stack, counted at once), and a statement that
// turns out once not to be one goes the general way from then on. The statements of a loop's
// or a function's body, whose values nobody reads, skip the general statement path, and a
// `return` in a function's own body hands its value straight to the call.
//
// Leaves: a function whose body only assigns numbers and returns one, and a `for` loop whose
// body only assigns numbers, are learned once as steps on registers of doubles (see
// APMPLeafForm). A leaf runs while its names hold numbers and its budget and depth cannot run
// out inside it, counting at once what the general path would count; a call then needs no
// scope, a loop turn no lookup. A loop may also hold assignments of text and `if`s, which run
// the general way between the steps; where a name stops being what the steps need, the
// general path takes over at that statement. Array callbacks that are leaves run over the
// elements that are numbers in one go. None of this changes what a program sees, its
// instruction count or where it fails.
//
// Limits: each evaluation counts one instruction; at kInstructionBudget the run fails with
// code 18. Evaluations nest at most kMaxDepth deep (a recursion past it fails with code 18,
// never a stack overflow). After an error every evaluation yields undefined until the run
// ends.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "measurement/runtime/APMPRuntimeValue.h"
#include "measurement/runtime/APMPScope.h"

class APMPEvaluator;

// What the evaluator learned of a function's body before its first call, or of a `for` loop
// when it first ran: whether it is a leaf, which runs on doubles in registers. A leaf
// function's body is a few statements `name = value` and at the end maybe `return value`; a
// leaf loop's condition is a comparison of values, its update and body statements
// `name = value`. A value is a number literal, a name read, a read of a name's value under a
// literal key, or arithmetic of those; a returned one may be a comparison. The names are
// parameters (each given once) or names bound outside (the function, or the loop's body). The
// functions one definition makes share the form it learned for their parameter names.
struct APMPLeafForm {
  enum State : std::uint8_t { kUnknown, kLeaf, kNotLeaf };
  static constexpr std::size_t kMaxNames = 16;
  static constexpr std::size_t kMaxStatements = 8;
  // The registers: the parameters' from 0, the outside names' from kOutsideRegisters,
  // literals, entries and intermediate results from kOtherRegisters on.
  static constexpr std::uint8_t kOutsideRegisters = kMaxNames;
  static constexpr std::uint8_t kOtherRegisters = 2 * kMaxNames;
  static constexpr std::size_t kRegisters = 64;
  // registers[target] = registers[left] OP registers[right] (or OP `literal`, where `right`
  // is kLiteral), OP an arithmetic operation in the evaluator's numbering; or, where
  // `operation` is kCopy, registers[left]; or, for kLoad, `literal`.
  struct Step {
    static constexpr std::uint8_t kCopy = 0;
    static constexpr std::uint8_t kLoad = 1;
    static constexpr std::uint8_t kLiteral = 254;
    std::uint8_t operation = kCopy;
    std::uint8_t target = 0;
    std::uint8_t left = 0;
    std::uint8_t right = 0;
    double literal = 0;
  };
  // A read of outside name `name`'s value under `key` (a map's number there, or a string's
  // length for "length"; with no key, the value itself, a number), loaded into register
  // `target` before the steps run.
  struct Entry {
    std::uint8_t name = 0;
    std::uint8_t target = 0;
    const APMPStringValue* key = nullptr;
  };
  // A loop whose body also assigns what registers cannot hold (text, say) runs its body as
  // operations, in order: steps; a statement run the general way (`statement`), whose names
  // stay in their bindings; or an `if` whose list's operations follow it up to `listEnd`,
  // taken when its condition's steps (from `begin` to `end`, after its own reads of names
  // that general statements change, from `dynamicBegin` to `dynamicEnd` in `dynamic`) give
  // true. Each counts `count` as it starts; `nested` is set inside an `if`; `index` is the
  // body statement an operation belongs to, `statement` the statement it runs (held).
  struct Operation {
    enum Kind : std::uint8_t { kSteps, kGeneral, kIf };
    Kind kind = kSteps;
    bool nested = false;
    std::uint8_t comparison = 0;
    std::uint8_t left = 0;
    std::uint8_t right = 0;
    std::uint16_t begin = 0;
    std::uint16_t end = 0;
    std::uint16_t dynamicBegin = 0;
    std::uint16_t dynamicEnd = 0;
    std::uint16_t listEnd = 0;
    std::uint16_t index = 0;
    std::uint32_t count = 0;
    std::uint64_t listVersion = 0;  // an `if`'s: its list's version
    APMPRuntimeValue statement;
  };
  State state = kUnknown;
  std::vector<std::string> parameters;  // the parameter names it is for
  // How deep the general path would nest (below the call or the loop) and how many
  // instructions it would count for the whole body (a loop: one turn, its condition in).
  std::int16_t depth = 0;
  std::uint32_t count = 0;
  std::uint16_t parametersRead = 0;  // one bit per parameter whose value is read
  std::uint16_t outsideRead = 0;     // one bit per outside name whose number is read
  std::uint16_t outsideWritten = 0;  // one bit per outside name written
  std::uint16_t outsideObjects = 0;  // one bit per outside name read under a key
  std::uint16_t outsideDynamic = 0;  // one bit per outside name general statements touch
  bool parametersOnly = false;       // a function's that reads no outside name
  // The sizes of the lists below, kept where the calls read them.
  std::uint8_t outsideCount = 0;
  std::uint8_t loadCount = 0;
  std::uint8_t entryCount = 0;
  std::uint16_t stepCount = 0;
  // What a function returns: nothing; registers[result] as a number; or the comparison
  // `comparison` (the evaluator's operation) of registers[result] and registers[right]. A
  // loop's condition is that comparison.
  bool returns = false;
  std::uint8_t comparison = 0;
  std::uint8_t result = 0;
  std::uint8_t right = 0;
  // A loop's: the steps before `conditionEnd` are its condition's, which counts
  // `conditionCount` instructions; where it has operations, the steps from `updateBegin` on
  // are its update's, which counts `updateCount`, and `count` is the most a turn counts.
  std::uint16_t conditionEnd = 0;
  std::uint32_t conditionCount = 0;
  std::uint16_t updateBegin = 0;
  std::uint32_t updateCount = 0;
  // The body's statement list (held) and its version, to see that it is unchanged. The
  // references here are not among the function's for the cycle collector: these statements
  // hold no functions.
  APMPRuntimeValue body;
  std::uint64_t bodyVersion = 0;
  std::vector<Step> loads;  // kLoad steps, run once before the others
  std::vector<Step> steps;
  std::vector<Entry> entries;
  std::vector<Operation> operations;
  std::vector<Entry> dynamic;
  std::vector<APMPSlot> outside;  // the outside names, looked up from the defining scope
};

// The evaluator of one family of commands.
class APMPCommandEvaluator {
 public:
  virtual ~APMPCommandEvaluator() = default;
  virtual APMPRuntimeValue evaluateCommand(const APMPStatementValue& statement, APMPScope* scope,
                                           APMPEvaluator& evaluator) = 0;
};

class APMPMathCommandEvaluator;
class APMPComparisonCommandEvaluator;
class APMPLogicalCommandEvaluator;
class APMPBitwiseCommandEvaluator;
class APMPControlCommandEvaluator;
class APMPVariableCommandEvaluator;
class APMPLoopCommandEvaluator;
class APMPFunctionEvaluator;

// One evaluator per family, and the table from command number to evaluator.
class APMPCommandRegistrar {
 public:
  static constexpr int kCommandCount = 67;
  // The families, as numbers for the evaluator's dispatch; kFunction for a call by name.
  enum Family : std::uint8_t {
    kFunction, kMath, kComparison, kLogical, kBitwise, kControl, kVariable, kLoop,
  };
  APMPCommandRegistrar();
  ~APMPCommandRegistrar();
  // The evaluator of `command`; APMPFunctionEvaluator for an unknown one.
  APMPCommandEvaluator& evaluatorForCommand(int command) const {
    return (command >= 0 && command < kCommandCount && table_[command]) ? *table_[command]
                                                                         : *function_;
  }
  // Whether `command` is one of the numbered commands.
  bool isKnownCommand(int command) const {
    return command >= 0 && command < kCommandCount && table_[command] != nullptr;
  }
  // The family of `command` (kFunction for an unknown one).
  Family familyOf(int command) const {
    return (command >= 0 && command < kCommandCount) ? families_[command] : kFunction;
  }

 private:
  std::unique_ptr<APMPCommandEvaluator> math_, comparison_, logical_, bitwise_, control_,
      variable_, loop_, function_;
  std::array<APMPCommandEvaluator*, kCommandCount> table_{};
  std::array<Family, kCommandCount> families_{};
};

// Long fuzz runs may build with a smaller budget (-DAPMP_INSTRUCTION_BUDGET=N), so that
// programs that loop end sooner; every other build uses the default.
#ifndef APMP_INSTRUCTION_BUDGET
#define APMP_INSTRUCTION_BUDGET 1000000
#endif

class APMPEvaluator {
 public:
  static constexpr std::uint64_t kInstructionBudget = APMP_INSTRUCTION_BUDGET;
  static constexpr int kMaxDepth = 800;
  // The deepest stack of doubles a flat arithmetic expression may need.
  static constexpr int kNumberStack = 16;

  APMPEvaluator();
  ~APMPEvaluator();
  APMPEvaluator(const APMPEvaluator&) = delete;
  APMPEvaluator& operator=(const APMPEvaluator&) = delete;

  // Evaluates one value: a statement runs its command, anything else is itself. Fills
  // `error` and yields undefined on failure.
  APMPRuntimeValue evaluateStatement(const APMPRuntimeValue& statement, APMPScope* scope,
                                     platform::Error* error);
  // Runs an array of statements in `scope`; yields the last statement's value, or the first
  // control value (which ends the list). Anything but an array is evaluated as one statement.
  APMPRuntimeValue executeStatements(const APMPRuntimeValue& statements, APMPScope* scope,
                                     platform::Error* error);

  std::uint64_t instructionCount() const { return instructions_; }
  // How deep evaluations nest now.
  int depth() const { return depth_; }
  void resetInstructionCount() { instructions_ = 0; }

  // For the command evaluators and native functions.
  APMPRuntimeValue eval(const APMPRuntimeValue& value, APMPScope* scope) {
    if (!value.isStatement()) return value;
    return evalStatement(*value.asStatement(), scope);
  }
  APMPRuntimeValue run(const APMPRuntimeValue& statements, APMPScope* scope);
  // run() for the body of a function value, whose caller holds the function (and so the
  // body) for the length of the call. A `return` among the body's own statements yields its
  // data directly and sets `*returned`; one deeper comes back as a return signal.
  APMPRuntimeValue runCallBody(const APMPRuntimeValue& body, APMPScope* scope, bool* returned);
  bool failed() const { return failed_; }
  // Records the first error of the run; returns undefined for `return fail(...)`.
  APMPRuntimeValue fail(int code, std::string message);
  APMPRuntimeValue failEditing(int code, std::string message);
  // Clears the error state (the start of a run) and hands out the last error.
  void clearFailure() { failed_ = false; }
  const platform::Error& lastError() const { return error_; }
  const APMPCommandRegistrar& registrar() const { return registrar_; }

  // Calls a method by name on a value (command 2, and the runtime's own calls).
  APMPRuntimeValue applyWithName(const APMPRuntimeValue& target, const std::string& name,
                                 const APMPRuntimeValue* arguments, std::size_t count,
                                 APMPScope* /*scope*/) {
    return applyMethod(target, name, APMPMethodOf(name), arguments, count);
  }
  // The same with the method's number (APMPMethodOf(name)) known.
  APMPRuntimeValue applyMethod(const APMPRuntimeValue& target, const std::string& name, int method,
                               const APMPRuntimeValue* arguments, std::size_t count);
  // The signal of a `return` with `data`. One signal object is reused while nobody but the
  // evaluator holds it, so a return costs no allocation.
  APMPRuntimeValue returnSignal(APMPRuntimeValue data);
  // The data of a return signal `r` (which the caller gives up).
  APMPRuntimeValue returnedData(APMPRuntimeValue& r);
  // The end of a run: the reused return signal lets go of its data (or, when the caller
  // keeps it, the evaluator lets go of the signal), so that nothing stays alive for it.
  void endRun();
  // For APMPFunctionValue::call: runs a call of `function` whose body is a leaf (see
  // APMPLeafForm) on the arguments' numbers, counted and bounded as the general path counts
  // them, its result in `out`. False, with nothing counted or changed, where that does not
  // apply (the body is no leaf, some argument no number, the budget or the depth could run
  // out); the caller then runs the call the general way.
  inline bool callLeaf(APMPFunctionValue& function, const APMPRuntimeValue* arguments,
                       std::size_t count, APMPRuntimeValue* out);
  // For a function called many times in a row (an array method's callback): whether its
  // leaf form (learned now if need be) fits its body as it is. While the calls last, nothing
  // can change the body (a leaf's statements call nothing, on either path), so
  // callPreparedLeaf may stand for callLeaf.
  bool prepareLeaf(APMPFunctionValue& function);
  bool callPreparedLeaf(APMPFunctionValue& function, const APMPRuntimeValue* arguments,
                        std::size_t count, APMPRuntimeValue* out);
  // For a callback prepareLeaf accepted: whether its leaf reads no parameter but the first
  // two (an element and its index) and returns a value; and whether that value is a boolean.
  bool leafTakesNumbers(const APMPFunctionValue& function) const;
  bool leafGivesBoolean(const APMPFunctionValue& function) const;
  // For such a callback: calls it on elements `first` to `end` of `elements` with each
  // element's index, as callPreparedLeaf would one by one, while the elements are numbers
  // and the budget lasts. Each result goes to `results` (a boolean as 1 or 0); returns how
  // many elements it took.
  std::size_t runLeafOnNumbers(APMPFunctionValue& function, const APMPArrayValue& elements,
                               std::size_t first, std::size_t end, double* results);
  // Fills the leaf form of `function` before its first call (kLeaf or kNotLeaf).
  [[gnu::noinline]] void learnLeaf(APMPFunctionValue& function);
  // Gives `function`, just made by `definition`, the leaf form the definition's functions
  // with the same parameter names share.
  static void shareLeafForm(const APMPStatementValue& definition, APMPFunctionValue& function);
  // Calls `function` (which must be a function value) with `count` arguments.
  APMPRuntimeValue callFunction(const APMPRuntimeValue& function, const APMPRuntimeValue* arguments,
                                std::size_t count);

  // Counts one instruction (a statement, a loop turn); fails with code 18 at the budget.
  [[gnu::always_inline]] bool tick() {
    if (++instructions_ >= kInstructionBudget) [[unlikely]] {
      return budgetExceeded();
    }
    return true;
  }
  // The table of the names that statements run by this evaluator use.
  APMPNameTable& names() { return names_; }
  // Charges native work on `units` elements or bytes to the budget (one instruction per 64),
  // so that a loop of large native operations still ends.
  bool chargeWork(std::size_t units) {
    instructions_ += units / 64;
    if (instructions_ >= kInstructionBudget) {
      fail(kAPMPErrorCodeBudgetExceeded, "Instruction budget exceeded");
      return false;
    }
    return true;
  }

  // Depth of nested calls for native code that recurses (counted against kMaxDepth).
  bool enter() {
    if (++depth_ > kMaxDepth) {
      --depth_;
      fail(kAPMPErrorCodeBudgetExceeded, "Maximum call depth exceeded");
      return false;
    }
    return true;
  }
  void leave() { --depth_; }

 private:
  APMPRuntimeValue evalStatement(const APMPStatementValue& statement, APMPScope* scope);
  // Runs a statement's operation (after its instruction and depth are counted); compiles it
  // on first sight.
  APMPRuntimeValue execute(const APMPStatementValue& statement, std::uint8_t operation,
                           APMPScope* scope);
  // Chooses the operation of `statement` (see execute) and measures it as an expression;
  // its slot starts unresolved. Returns the operation.
  std::uint8_t compile(const APMPStatementValue& statement);
  std::uint8_t compileOperation(const APMPStatementValue& statement);
  void compileWithin(const APMPStatementValue& statement, int nesting);
  // Sets the statement's expression size and depth (0 when it is no expression without
  // side effects), compiling its arguments; `nesting` is how deep it lies in the expression
  // being measured.
  void measureExpression(const APMPStatementValue& statement, int nesting);
  // The fast path of an expression without side effects: counts each statement it evaluates,
  // checks nothing else; sets dropped_ where the exact path could fail.
  APMPRuntimeValue quick(const APMPStatementValue& statement, std::uint8_t operation, APMPScope* scope);
  APMPRuntimeValue quickArgument(const APMPRuntimeValue& argument, APMPScope* scope);
  // quick for an arithmetic expression whose every leaf is a number (a literal, a name bound
  // to one, a map entry, an array element or a string's length): the result as a double in
  // `out`. Counts as quick counts; false where some operand is no number, with nothing
  // observed (the caller takes the count back and goes the general way).
  bool quickNumber(const APMPStatementValue& statement, APMPScope* scope, double* out);
  // For an arithmetic statement (its result) or a comparison (its two operands) `e` whose
  // operands are numbers: the doubles on `stack` (kNumberStack long), counted as quick counts;
  // false where some operand is no number. Runs e's flat number form where it has one.
  bool quickNumbers(const APMPStatementValue& e, APMPScope* scope, double* stack);
  // quickNumbers, except that where some operand is no number it takes the count back and
  // marks `e` to take the general path from then on.
  bool numbersOrMark(const APMPStatementValue& e, APMPScope* scope, double* stack);
  [[gnu::noinline]] bool runNumberSteps(const APMPStatementValue& e, APMPScope* scope, double* stack);
  bool quickNumberArgument(const APMPRuntimeValue& argument, APMPScope* scope, double* out);
  [[gnu::noinline]] bool quickNumberProperty(const APMPStatementValue& statement, APMPScope* scope,
                                             double* out);
  APMPRuntimeValue executeCall(const APMPStatementValue& statement, APMPScope* scope);
  APMPRuntimeValue executeFor(const APMPStatementValue& statement, APMPScope* scope);
  // `v` as a statement whose operation lies in [first, last] (compiling it on first sight),
  // or null.
  const APMPStatementValue* compiledAs(const APMPRuntimeValue& v, std::uint8_t first,
                                       std::uint8_t last);
  [[gnu::noinline]] APMPRuntimeValue readPropertySlowly(const APMPRuntimeValue& object,
                                                        const APMPRuntimeValue& key);
  [[gnu::noinline]] APMPRuntimeValue assignmentFailure(const APMPRuntimeValue& name, bool bound);
  // The cold halves of quick's sum and property read.
  [[gnu::noinline]] APMPRuntimeValue quickSum(const APMPRuntimeValue& a, const APMPRuntimeValue& b);
  [[gnu::noinline]] APMPRuntimeValue quickProperty(const APMPRuntimeValue& object,
                                                   const APMPRuntimeValue& key);
  APMPRuntimeValue drop() {
    dropped_ = true;
    return {};
  }
  // operand() for an arithmetic expression (numberOperand) or a comparison (conditionOperand)
  // whose operands are numbers, its result unboxed. False, with nothing counted or changed,
  // where the fast path does not apply; the caller then runs operand().
  bool numberOperand(const APMPRuntimeValue& argument, APMPScope* scope, double* out);
  bool conditionOperand(const APMPRuntimeValue& argument, APMPScope* scope, bool* out);
  // What both share: for a statement whose operation lies in [first, last], not yet seen
  // with operands that are no numbers, and within the budget and depth, runs numbersOrMark
  // into `stack` and gives the operation in `op`; false, with nothing counted, otherwise.
  bool quickOperand(const APMPRuntimeValue& argument, APMPScope* scope, std::uint8_t first,
                    std::uint8_t last, double* stack, std::uint8_t* op);
  // operand() for a statement whose value only matters when it is a control signal (an
  // element of a loop's or a function's body): yields undefined for any other value.
  APMPRuntimeValue effect(const APMPRuntimeValue& argument, APMPScope* scope);
  // operand() through numberOperand or conditionOperand where one applies.
  APMPRuntimeValue valueOperand(const APMPRuntimeValue& argument, APMPScope* scope);
  // Evaluates an argument as eval does, with a name read inline.
  APMPRuntimeValue operand(const APMPRuntimeValue& argument, APMPScope* scope);
  // `name = name + x` in the binding itself, its value in `out` (when not null); false
  // (nothing done) when it does not apply.
  bool addInPlace(const APMPStatementValue& statement, APMPScope* scope, APMPRuntimeValue* out);
  APMPRuntimeValue dispatch(const APMPStatementValue& statement, APMPScope* scope);
  [[gnu::noinline]] bool budgetExceeded();

  class LeafLearner;
  // callPreparedLeaf, inline.
  inline bool runLeaf(APMPFunctionValue& function, const APMPRuntimeValue* arguments,
                      std::size_t count, APMPRuntimeValue* out);
  // Learns the leaf form of the `for` statement `loop` when it first runs.
  [[gnu::noinline]] void learnLoop(const APMPStatementValue& loop);
  // Runs the `for` statement `loop` in `loopScope` (its initialisation done) as a leaf loop
  // (see APMPLeafForm), counted and bounded as the general path counts them, while its whole
  // turn fits in the budget. kLoopEnded when the loop ended (or failed); kLoopFromCondition
  // when the general path must run it from its next condition on (nothing at all done when
  // its names do not hold what it needs); otherwise the index of the body statement of the
  // current turn the general path goes on from (the body's size: the update).
  static constexpr int kLoopEnded = -1;
  static constexpr int kLoopFromCondition = -2;
  int runLeafLoop(const APMPStatementValue& loop, APMPScope* loopScope);

  APMPCommandRegistrar registrar_;
  APMPNameTable names_;
  APMPControlValue* returnCell_ = nullptr;
  std::uint64_t instructions_ = 0;
  int depth_ = 0;
  bool failed_ = false;
  bool dropped_ = false;
  platform::Error error_;
};

// Method tables of strings and arrays (ECMAScript's methods of the same names, with strings
// as bytes). Each returns undefined after a failure recorded in `evaluator`.
struct APMPStringCommandEvaluator {
  // `method` is APMPMethodOf(name).
  static APMPRuntimeValue apply(const APMPRuntimeValue& target, const std::string& name, int method,
                                const APMPRuntimeValue* arguments, std::size_t count,
                                APMPEvaluator& evaluator);
  // The longest subject a pattern method (match, search) accepts, in bytes, and the longest
  // pattern: the pattern engine recurses per character.
  static constexpr std::size_t kMaxPatternSubject = 4096;
  static constexpr std::size_t kMaxPattern = 256;
};

struct APMPArrayCommandEvaluator {
  // `method` is APMPMethodOf(name).
  static APMPRuntimeValue apply(const APMPRuntimeValue& target, const std::string& name, int method,
                                const APMPRuntimeValue* arguments, std::size_t count,
                                APMPEvaluator& evaluator);
};
