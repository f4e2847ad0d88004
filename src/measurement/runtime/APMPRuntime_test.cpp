#include "measurement/runtime/APMPRuntime.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <memory>

#include "measurement/runtime/APMPProgramBuilder.h"

namespace {

using V = APMPRuntimeValue;

// Runs statements in a fresh runtime; the value of a top-level return, or of the last one.
struct Sandbox {
  APMPRuntime runtime;
  platform::Error error;
  V operator()(std::vector<V> statements) {
    V r;
    {
      APMPHeap::Current current(&runtime.heap());
      V program = P::list(std::move(statements));
      r = runtime.executeStatements(program, &error);
    }
    if (r.isControl()) return r.asControl()->data();
    return r;
  }
  std::string text(std::vector<V> statements) { return (*this)(std::move(statements)).stringValue(); }
};

V binary(const char* command, V a, V b) { return P::call(command, {std::move(a), std::move(b)}); }

TEST(APMPRuntimeTest, ConversionsFollowECMAScript) {
  Sandbox run;
  EXPECT_EQ(run.text({binary("0", P::str("1"), P::num(2))}), "12");
  EXPECT_EQ(run({binary("26", P::str("3"), P::num(2))}).numberPayload(), 6);
  EXPECT_TRUE(run({binary("23", P::num(2), P::str("10"))}).booleanPayload());
  EXPECT_FALSE(run({binary("23", P::str("2"), P::str("10"))}).booleanPayload());
  EXPECT_EQ(run.text({binary("10", P::num(1), P::num(0))}), "Infinity");
  EXPECT_EQ(run.text({binary("10", P::num(-1), P::num(0))}), "-Infinity");
  EXPECT_EQ(run.text({binary("10", P::num(0), P::num(0))}), "NaN");
  EXPECT_EQ(run.text({binary("25", P::num(-7), P::num(3))}), "-1");
  EXPECT_EQ(run.text({binary("0", P::call("7", {P::num(1), P::num(2)}), P::num(3))}), "1,23");
  EXPECT_EQ(run.text({binary("0", P::call("8"), P::str(""))}), "[object Object]");
  EXPECT_TRUE(run({binary("12", P::call("45"), P::call("44"))}).booleanPayload());
  EXPECT_FALSE(run({binary("20", P::call("45"), P::call("44"))}).booleanPayload());
  EXPECT_TRUE(run({binary("12", P::str(" 1e3 "), P::num(1000))}).booleanPayload());
  EXPECT_TRUE(run({binary("12", P::call("7", {P::num(5)}), P::num(5))}).booleanPayload());
  EXPECT_FALSE(run({binary("12", P::num(std::nan("")), P::num(std::nan("")))}).booleanPayload());
  // Two objects are loosely equal only as one object, even when their texts agree; an object
  // and a primitive compare through the object's text.
  EXPECT_FALSE(run({binary("12", P::call("7", {P::call("8")}), P::call("8"))}).booleanPayload());
  EXPECT_TRUE(run({binary("29", P::call("8"), P::call("7", {P::call("8")}))}).booleanPayload());
  EXPECT_TRUE(run({binary("12", P::call("8"), P::str("[object Object]"))}).booleanPayload());
  EXPECT_EQ(run.text({P::call("40", {P::call("45")})}), "object");
  EXPECT_EQ(run.text({P::call("40", {P::function("", {}, {})})}), "function");
  EXPECT_EQ(run.text({binary("60", P::num(-16), P::num(2))}), "-4");
  EXPECT_EQ(run.text({binary("61", P::num(-1), P::num(0))}), "4294967295");
  EXPECT_EQ(run.text({P::call("58", {P::num(5.7)})}), "-6");
}

TEST(APMPRuntimeTest, NumbersPrintInShortestForm) {
  EXPECT_EQ(APMPNumberToString(0.1 + 0.2), "0.30000000000000004");
  EXPECT_EQ(APMPNumberToString(1e21), "1e+21");
  EXPECT_EQ(APMPNumberToString(123456789012345680000.0), "123456789012345680000");
  EXPECT_EQ(APMPNumberToString(1.5e-7), "1.5e-7");
  EXPECT_EQ(APMPNumberToString(0.000001), "0.000001");
  EXPECT_EQ(APMPNumberToString(-0.0), "0");
  EXPECT_EQ(APMPNumberToString(-2.5), "-2.5");
  EXPECT_EQ(APMPNumberToString(5e-324), "5e-324");
  EXPECT_TRUE(std::isnan(APMPStringToNumber("12px")));
  EXPECT_TRUE(std::isnan(APMPStringToNumber(".")));
  EXPECT_TRUE(std::isnan(APMPStringToNumber("1e")));
  EXPECT_EQ(APMPStringToNumber("0x1F"), 31);
  EXPECT_EQ(APMPStringToNumber("  -Infinity\n"), -INFINITY);
  EXPECT_EQ(APMPStringToNumber("1e400"), INFINITY);
  EXPECT_EQ(APMPStringToNumber(""), 0);
  EXPECT_EQ(APMPStringToNumber(".5"), 0.5);
}

TEST(APMPRuntimeTest, ClosuresKeepTheirOwnCounters) {
  Sandbox run;
  // function make() { let n = 0; return function () { n = n + 1; return n; }; }
  V make = P::call("50", {P::str("make"), P::list({}),
                          P::list({P::let("n", P::num(0)),
                                   P::ret(P::function("", {}, {P::assign("n", binary("0", P::var("n"), P::num(1))),
                                                               P::ret(P::var("n"))}))})});
  V result = run({make, P::let("a", P::call("make")), P::let("b", P::call("make")),
                  P::call("a"), P::call("a"), P::call("b"),
                  P::ret(P::call("7", {P::call("a"), P::call("b")}))});
  EXPECT_EQ(run.error.code, 0) << run.error.localizedDescription;
  EXPECT_EQ(result.stringValue(), "3,2");
}

TEST(APMPRuntimeTest, LoopsAbsorbBreakAndContinueAndPassReturnUp) {
  Sandbox run;
  // let s = 0; for (let i = 0; i < 10; i = i + 1) { if (i == 2) continue; if (i == 5) break; s = s + i; }
  V loop = P::call("63", {P::let("i", P::num(0)), binary("23", P::var("i"), P::num(10)),
                          P::assign("i", binary("0", P::var("i"), P::num(1))),
                          P::list({P::call("22", {binary("20", P::var("i"), P::num(2)), P::list({P::call("6")})}),
                                   P::call("22", {binary("20", P::var("i"), P::num(5)), P::list({P::call("4")})}),
                                   P::assign("s", binary("0", P::var("s"), P::var("i")))})});
  EXPECT_EQ(run.text({P::let("s", P::num(0)), loop, P::ret(P::var("s"))}), "8");

  // A break outside a loop ends the list and stays a control value.
  Sandbox outside;
  APMPHeap::Current current(&outside.runtime.heap());
  V r = outside.runtime.executeStatements(P::list({P::call("4"), P::let("x", P::num(1))}), nullptr);
  ASSERT_TRUE(r.isControl());
  EXPECT_EQ(r.asControl()->type(), APMPControlValue::Type::kBreak);
  EXPECT_FALSE(outside.runtime.getRunScope()->hasName("x"));

  // while with a return inside a function: the function yields the data.
  Sandbox inner;
  V f = P::function("", {}, {P::call("42", {P::boolean(true), P::list({P::ret(P::str("out"))})})});
  EXPECT_EQ(inner.text({P::let("f", f), P::ret(P::call("f"))}), "out");
}

TEST(APMPRuntimeTest, SwitchFallsThroughUntilBreak) {
  Sandbox run;
  auto cases = P::list({P::list({P::num(1), P::list({P::assign("s", binary("0", P::var("s"), P::str("a")))})}),
                        P::list({P::num(2), P::list({P::assign("s", binary("0", P::var("s"), P::str("b")))})}),
                        P::list({P::list({P::assign("s", binary("0", P::var("s"), P::str("d"))), P::call("4")})}),
                        P::list({P::num(3), P::list({P::assign("s", binary("0", P::var("s"), P::str("c")))})})});
  EXPECT_EQ(run.text({P::let("s", P::str("")), P::call("38", {P::num(1), cases}), P::ret(P::var("s"))}), "abd");
  Sandbox none;
  EXPECT_EQ(none.text({P::let("s", P::str("")), P::call("38", {P::str("1"), cases}), P::ret(P::var("s"))}), "d");
}

TEST(APMPRuntimeTest, ArgumentErrorsUseTheirCodesAndStopTheRun) {
  Sandbox arity;
  arity({P::call("0", {P::num(1)}), P::let("after", P::num(1))});
  EXPECT_EQ(arity.error.domain, kAPMPErrorDomain);
  EXPECT_EQ(arity.error.code, kAPMPErrorCodeWrongArgumentCount);
  EXPECT_FALSE(arity.runtime.getRunScope()->hasName("after"));

  Sandbox emptySequence;
  emptySequence({P::call("13")});
  EXPECT_EQ(emptySequence.error.code, kAPMPErrorCodeWrongArgumentCount);

  for (auto program : std::vector<V>{P::var("missing"), P::call("99", {P::num(1)}), P::call("nothing"),
                                     P::call("16", {P::call("44"), P::str("x")}),
                                     P::method(P::num(1), "push", {}), P::method(P::str("a"), "nope", {}),
                                     P::call("64", {P::str("x"), P::num(3), P::list({})})}) {
    Sandbox kind;
    EXPECT_TRUE(kind({program}).isUndefined());
    EXPECT_EQ(kind.error.code, kAPMPErrorCodeWrongArgumentKind) << kind.error.localizedDescription;
  }
}

TEST(APMPRuntimeTest, ConstantsRefuseWritesAndKeepTheirValue) {
  Sandbox run;
  run({P::call("52", {P::str("k"), P::num(1)}), P::assign("k", P::num(2))});
  EXPECT_EQ(run.error.code, kAPMPErrorCodeWrongArgumentKind);
  const V* k = run.runtime.getRunScope()->valueForName("k");
  ASSERT_NE(k, nullptr);
  EXPECT_EQ(k->numberPayload(), 1);
  // Built-ins are constants too.
  Sandbox builtin;
  builtin({P::assign("event", P::num(2))});
  EXPECT_EQ(builtin.error.code, kAPMPErrorCodeWrongArgumentKind);
}

TEST(APMPRuntimeTest, TheBudgetStopsEndlessLoopsAndResets) {
  Sandbox run;
  // while (true) {} — no statement in the body, the loop turns still count.
  run({P::call("42", {P::boolean(true), P::list({})})});
  EXPECT_EQ(run.error.code, kAPMPErrorCodeBudgetExceeded);
  EXPECT_EQ(run.runtime.getInstructionCount(), APMPEvaluator::kInstructionBudget);
  EXPECT_EQ(run.runtime.getRunScope()->valueForName("runtime.counter")->numberPayload(), 1000000);
  run.runtime.resetInstructionCount();
  run.error = {};
  EXPECT_EQ(run({P::ret(P::num(7))}).numberPayload(), 7);
  EXPECT_EQ(run.error.code, 0);
}

TEST(APMPRuntimeTest, EndlessRecursionFailsWithoutExhaustingTheStack) {
  Sandbox run;
  V f = P::call("50", {P::str("f"), P::list({P::str("n")}),
                       P::list({P::ret(binary("0", P::call("f", {binary("0", P::var("n"), P::num(1))}), P::num(1)))})});
  run({f, P::call("f", {P::num(0)})});
  EXPECT_EQ(run.error.code, kAPMPErrorCodeBudgetExceeded);
  EXPECT_NE(run.error.localizedDescription.find("depth"), std::string::npos);
  // A recursion of moderate depth works.
  Sandbox fine;
  V g = P::call("50", {P::str("g"), P::list({P::str("n")}),
                       P::list({P::call("22", {binary("24", P::var("n"), P::num(0)), P::list({P::ret(P::num(0))})}),
                                P::ret(binary("0", P::call("g", {binary("37", P::var("n"), P::num(1))}), P::num(1)))})});
  EXPECT_EQ(fine.text({g, P::ret(P::call("g", {P::num(100)}))}), "100");
}

TEST(APMPRuntimeTest, HugeValuesHitTheMemoryBound) {
  Sandbox strings;
  // let s = "x"; while (true) s = s + s;
  strings({P::let("s", P::str("xxxxxxxx")),
           P::call("42", {P::boolean(true), P::list({P::assign("s", binary("0", P::var("s"), P::var("s")))})})});
  EXPECT_EQ(strings.error.code, kAPMPErrorCodeBudgetExceeded);
  EXPECT_LE(strings.runtime.heap().liveBytes(), APMPHeap::kDefaultByteLimit);

  Sandbox arrays;
  arrays({P::let("a", P::call("7")), P::call("43", {P::var("a"), P::num(4e9), P::num(1)})});
  EXPECT_EQ(arrays.error.code, kAPMPErrorCodeBudgetExceeded);
}

TEST(APMPRuntimeTest, StringMethods) {
  Sandbox run;
  auto m = [&](const char* s, const char* name, std::vector<V> args) {
    Sandbox r;
    V v = r({P::ret(P::method(P::str(s), name, std::move(args)))});
    EXPECT_EQ(r.error.code, 0) << name << ": " << r.error.localizedDescription;
    return v.stringValue();
  };
  EXPECT_EQ(m("hello", "charAt", {P::num(1)}), "e");
  EXPECT_EQ(m("hello", "charAt", {P::num(9)}), "");
  EXPECT_EQ(m("a,b,,c", "split", {P::str(",")}), "a,b,,c");
  EXPECT_EQ(m("abc", "split", {P::str("")}), "a,b,c");
  EXPECT_EQ(m("a-b-c", "split", {P::str("-"), P::num(2)}), "a,b");
  EXPECT_EQ(m("hello", "slice", {P::num(-3)}), "llo");
  EXPECT_EQ(m("hello", "substring", {P::num(4), P::num(1)}), "ell");
  EXPECT_EQ(m("abcabc", "lastIndexOf", {P::str("b")}), "4");
  EXPECT_EQ(m("abc", "indexOf", {P::str(""), P::num(10)}), "3");
  EXPECT_EQ(m("aXbX", "replace", {P::str("X"), P::str("[$&]")}), "a[X]bX");
  EXPECT_EQ(m("  pad \n", "trim", {}), "pad");
  EXPECT_EQ(m("MiXed", "toLowerCase", {}), "mixed");
  EXPECT_EQ(m("item_42_x", "match", {P::str("_(\\d+)_")}), "_42_,42");
  EXPECT_EQ(m("item", "search", {P::str("t")}), "1");
  EXPECT_EQ(m("ab", "concat", {P::num(1), P::call("45")}), "ab1null");
  Sandbox length;
  EXPECT_EQ(length.text({P::ret(P::call("16", {P::str("four"), P::str("length")}))}), "4");
  Sandbox bad;
  bad({P::method(P::str("x"), "match", {P::str("(")})});
  EXPECT_EQ(bad.error.code, kAPMPErrorCodeWrongArgumentKind);
}

TEST(APMPRuntimeTest, ArrayMethods) {
  auto m = [&](std::vector<V> setup, V result) {
    Sandbox r;
    setup.push_back(P::ret(std::move(result)));
    V v = r(std::move(setup));
    EXPECT_EQ(r.error.code, 0) << r.error.localizedDescription;
    return v.stringValue();
  };
  V a = P::let("a", P::call("7", {P::num(3), P::num(1), P::num(10), P::num(2)}));
  EXPECT_EQ(m({a}, P::method(P::var("a"), "sort", {})), "1,10,2,3");
  V byValue = P::function("", {"x", "y"}, {P::ret(binary("37", P::var("x"), P::var("y")))});
  EXPECT_EQ(m({a}, P::method(P::var("a"), "sort", {byValue})), "1,2,3,10");
  V twice = P::function("", {"x"}, {P::ret(binary("26", P::var("x"), P::num(2)))});
  EXPECT_EQ(m({a}, P::method(P::var("a"), "map", {twice})), "6,2,20,4");
  V sum = P::function("", {"s", "x"}, {P::ret(binary("0", P::var("s"), P::var("x")))});
  EXPECT_EQ(m({a}, P::method(P::var("a"), "reduce", {sum})), "16");
  EXPECT_EQ(m({a}, P::method(P::var("a"), "reduceRight", {sum, P::str("")})), "21013");
  EXPECT_EQ(m({a, P::method(P::var("a"), "splice", {P::num(1), P::num(2), P::str("x")})}, P::var("a")), "3,x,2");
  EXPECT_EQ(m({a, P::method(P::var("a"), "unshift", {P::num(0)}), P::method(P::var("a"), "shift", {}),
               P::method(P::var("a"), "pop", {})},
              P::var("a")),
            "3,1,10");
  EXPECT_EQ(m({a}, P::method(P::var("a"), "indexOf", {P::str("1")})), "-1");
  EXPECT_EQ(m({a}, P::method(P::var("a"), "slice", {P::num(-2)})), "10,2");
  EXPECT_EQ(m({a}, P::method(P::var("a"), "concat", {P::call("7", {P::num(4)}), P::num(5)})), "3,1,10,2,4,5");
  EXPECT_EQ(m({a}, P::method(P::var("a"), "join", {P::str("-")})), "3-1-10-2");
  EXPECT_EQ(m({a, P::call("43", {P::var("a"), P::num(6), P::num(7)})}, P::var("a")), "3,1,10,2,,,7");
  Sandbox empty;
  empty({P::method(P::call("7"), "reduce", {sum})});
  EXPECT_EQ(empty.error.code, kAPMPErrorCodeWrongArgumentKind);
}

TEST(APMPRuntimeTest, ForInAndForOfBindings) {
  Sandbox run;
  V object = P::let("o", P::call("8", {P::str("a"), P::num(1), P::str("b"), P::num(2)}));
  V forIn = P::call("54", {P::str("k"), P::var("o"), P::list({P::assign("s", binary("0", P::var("s"), P::var("k")))})});
  V forOf = P::call("66", {P::str("c"), P::str("xy"), P::list({P::assign("s", binary("0", P::var("s"), P::var("c")))})});
  EXPECT_EQ(run.text({P::let("s", P::str("")), object, forIn, forOf, P::ret(P::var("s"))}), "abxy");
  EXPECT_FALSE(run.runtime.getRunScope()->hasName("k"));
  // The immutable binding refuses a write in the body.
  Sandbox immutable;
  immutable({P::call("55", {P::str("k"), P::call("7", {P::num(1)}), P::list({P::assign("k", P::num(2))})})});
  EXPECT_EQ(immutable.error.code, kAPMPErrorCodeWrongArgumentKind);
}

TEST(APMPRuntimeTest, CyclesArePrintedAndCollected) {
  Sandbox run;
  EXPECT_EQ(run.text({P::let("a", P::call("7", {P::num(1)})), P::method(P::var("a"), "push", {P::var("a")}),
                      P::ret(binary("0", P::var("a"), P::str("")))}),
            "1,");
  // Functions bound in the scope they close over are a cycle: collection frees them.
  APMPRuntime runtime;
  APMPHeap::Current current(&runtime.heap());
  V body = P::list({P::call("53", {P::list({P::call("50", {P::str("f"), P::list({}), P::list({})})})})});
  std::size_t before = runtime.heap().objectCount();
  for (int i = 0; i < 50; ++i) runtime.executeStatements(body, nullptr);
  EXPECT_GT(runtime.heap().objectCount(), before + 50);
  runtime.heap().collectCycles();
  EXPECT_LE(runtime.heap().objectCount(), before + 2);
  // What an outside handle holds survives.
  V kept = runtime.executeStatements(P::list({P::ret(P::function("g", {}, {P::ret(P::num(5))}))}), nullptr);
  runtime.heap().collectCycles();
  platform::Error error;
  EXPECT_EQ(runtime.callFunction(kept.asControl()->data(), {}, &error).numberPayload(), 5);
}

TEST(APMPRuntimeTest, EntitiesConvertByKind) {
  auto entity = [](std::uint32_t kind) {
    APMPBMessage<APMPBRuntimeEntity> e;
    e->has_kind = true;
    e->kind = kind;
    return e;
  };
  auto add = entity(1);
  add->string_value = strdup("0");
  add->children_count = 2;
  add->children = static_cast<APMPBRuntimeEntity*>(calloc(2, sizeof(APMPBRuntimeEntity)));
  add->children[0].has_kind = true;
  add->children[0].kind = 3;
  add->children[0].string_value = strdup("n=");
  add->children[1].has_kind = true;
  add->children[1].kind = 4;
  add->children[1].has_number_value = true;
  add->children[1].number_value = 2.5;
  APMPRuntime runtime;
  APMPHeap::Current current(&runtime.heap());
  platform::Error error;
  V statement = APMPRuntimeEntityConverter::statementValueFromRuntimeEntity(*add, &error);
  ASSERT_TRUE(statement.isStatement()) << error.localizedDescription;
  EXPECT_EQ(runtime.executeStatements(statement, &error).stringValue(), "n=2.5");

  auto unknown = entity(9);
  EXPECT_TRUE(APMPRuntimeEntityConverter::runtimeValueFromRuntimeEntity(*unknown, &error).isUndefined());
  EXPECT_EQ(error.code, kAPMPErrorCodeWrongArgumentKind);
  auto scalarNull = entity(4);
  scalarNull->extra_string_value = strdup("null");
  EXPECT_TRUE(APMPRuntimeEntityConverter::runtimeValueFromRuntimeEntity(*scalarNull, nullptr).isNull());
}

}  // namespace

namespace {

TEST(APMPRuntimeTest, DeeplyNestedValuesAreFreedAndConvertedWithoutDeepRecursion) {
  APMPRuntime runtime;
  platform::Error error;
  // let a = []; for (let i = 0; i < 100000; i = i + 1) { a = [a]; } return a;
  V program = P::list({P::let("a", P::call("7")),
                       P::call("63", {P::let("i", P::num(0)), P::call("23", {P::var("i"), P::num(100000)}),
                                      P::assign("i", P::call("0", {P::var("i"), P::num(1)})),
                                      P::list({P::assign("a", P::call("7", {P::var("a")}))})}),
                       P::ret(P::var("a"))});
  V result = runtime.executeStatements(program, &error);
  ASSERT_EQ(error.code, 0) << error.localizedDescription;
  V nested = result.asControl()->data();
  EXPECT_FALSE(APMPRuntimeEntityConverter::objectFromRuntimeValue(nested, &error));
  EXPECT_EQ(error.code, kAPMPErrorCodeBudgetExceeded);
  EXPECT_EQ(nested.stringValue(), "");  // text stops at its depth limit, never recursing without end
  result = V();
  nested = V();
  runtime.executeStatements(P::list({P::assign("a", P::num(0))}), nullptr);  // the last reference goes
  EXPECT_LT(runtime.heap().objectCount(), 100u);
}

TEST(APMPRuntimeTest, NegativeZeroInsideAnArrayConvertsAsItsText) {
  V array = APMPMake<APMPArrayValue>(std::vector<V>{V::number(-0.0)});
  EXPECT_FALSE(std::signbit(array.doubleValue()));
  EXPECT_EQ(V::number(1).doubleValue() / array.doubleValue(), INFINITY);
}

}  // namespace

namespace {

// Strings grow in place only while nothing else holds them: a copy taken earlier keeps its
// text, a constant refuses the write, and numbers add in the binding.
TEST(APMPRuntimeTest, BuildingAStringNeverChangesACopyOfIt) {
  Sandbox run;
  V r = run({P::let("b", P::str("")), P::assign("b", binary("0", P::var("b"), P::str("y"))),
             P::let("c", P::var("b")), P::assign("b", binary("0", P::var("b"), P::str("z"))),
             P::assign("b", binary("0", P::var("b"), P::var("b"))),
             P::assign("b", binary("0", P::var("b"), P::num(1.5))),
             P::let("n", P::num(1)), P::assign("n", binary("0", P::var("n"), P::num(2))),
             P::let("m", P::num(4)), P::assign("m", binary("0", P::var("m"), P::str("a"))),
             P::ret(P::call("7", {P::var("b"), P::var("c"), P::var("n"), P::var("m")}))});
  ASSERT_EQ(run.error.code, 0) << run.error.localizedDescription;
  EXPECT_EQ(r.stringValue(), "yzyz1.5,y,3,4a");

  Sandbox constant;
  constant({P::call("52", {P::str("k"), P::str("a")}), P::assign("k", binary("0", P::var("k"), P::str("b")))});
  EXPECT_EQ(constant.error.code, kAPMPErrorCodeWrongArgumentKind);
  EXPECT_EQ(constant.runtime.getRunScope()->valueForName("k")->stringValue(), "a");

  // An unbound right operand fails as a plain read would, and counts the same instructions.
  Sandbox unbound;
  unbound({P::let("s", P::str("")), P::assign("s", binary("0", P::var("s"), P::str("x"))),
           P::assign("s", binary("0", P::var("s"), P::var("nowhere")))});
  EXPECT_EQ(unbound.error.code, kAPMPErrorCodeWrongArgumentKind);
  EXPECT_EQ(unbound.error.localizedDescription, "nowhere is not defined");
  Sandbox plain;  // the same statements with the sum written the other way round
  plain({P::let("s", P::str("")), P::assign("s", binary("0", P::var("s"), P::str("x"))),
         P::assign("s", binary("0", P::call("34", {P::var("s")}), P::var("nowhere")))});
  EXPECT_EQ(unbound.runtime.getInstructionCount() + 1, plain.runtime.getInstructionCount());
}

// A remembered lookup is dropped when a nearer scope gains the name: here the loop's own
// scope declares `x` (a declaration inside an expression runs in the loop's scope) after the
// read has found the outer one.
TEST(APMPRuntimeTest, NameReadsSeeADeclarationThatShadowsThemLater) {
  Sandbox run;
  V body = P::list({P::method(P::var("log"), "push", {P::var("x")}),
                    binary("1", binary("12", P::var("i"), P::num(1)), P::let("x", P::str("inner")))});
  V r = run({P::let("x", P::str("outer")), P::let("log", P::call("7")),
             P::call("63", {P::let("i", P::num(0)), binary("23", P::var("i"), P::num(3)),
                            P::assign("i", binary("0", P::var("i"), P::num(1))), body}),
             P::ret(P::var("log"))});
  ASSERT_EQ(run.error.code, 0) << run.error.localizedDescription;
  EXPECT_EQ(r.stringValue(), "outer,outer,inner");
  // The same with the declaration one scope further out: each turn's body has a scope of its
  // own (it declares `t`), and the loop's update declares `x` in the loop's scope.
  Sandbox further;
  V turn = P::list({P::let("t", P::num(0)), P::method(P::var("log"), "push", {P::var("x")})});
  V update = P::call("13", {P::assign("i", binary("0", P::var("i"), P::num(1))),
                            binary("1", binary("12", P::var("i"), P::num(2)), P::let("x", P::str("inner")))});
  r = further({P::let("x", P::str("outer")), P::let("log", P::call("7")),
               P::call("63", {P::let("i", P::num(0)), binary("23", P::var("i"), P::num(4)), update, turn}),
               P::ret(P::var("log"))});
  ASSERT_EQ(further.error.code, 0) << further.error.localizedDescription;
  EXPECT_EQ(r.stringValue(), "outer,outer,inner,inner");
}

// Arguments written as an array literal are evaluated once each, and a statement value
// among the results runs once more, as when the array is made and read back.
TEST(APMPRuntimeTest, MethodArgumentsEvaluateLikeAnArrayReadBack) {
  Sandbox run;
  V r = run({P::let("a", P::call("7")), P::let("k", P::num(0)),
             P::method(P::var("a"), "push", {P::call("3", {P::str("k"), binary("0", P::var("k"), P::num(1))}),
                                             P::call("17", {P::list({P::assign("k", binary("0", P::var("k"), P::num(10)))}),
                                                            P::num(0)})}),
             P::ret(P::call("7", {P::var("a"), P::var("k")}))});
  ASSERT_EQ(run.error.code, 0) << run.error.localizedDescription;
  EXPECT_EQ(r.stringValue(), "1,11,11");
}

}  // namespace

namespace {

// One tree run by runtime after runtime (each may take the address of the one before, and
// its scopes the addresses of the scopes before): remembered lookups of an earlier runtime
// never answer for a later one.
TEST(APMPRuntimeTest, ATreeRunsTheSameInEveryNewRuntime) {
  V sum = P::list({P::let("mk", P::function("", {}, {P::let("c", P::num(0)),
                                                      P::ret(P::function("", {"x"}, {P::assign("c", binary("0", P::var("c"), P::var("x"))),
                                                                                     P::ret(P::var("c"))}))})),
                   P::let("f", P::call("mk")),
                   P::call("63", {P::let("i", P::num(0)), binary("23", P::var("i"), P::num(50)),
                                  P::assign("i", binary("0", P::var("i"), P::num(1))), P::list({P::call("f", {P::var("i")})})}),
                   P::ret(P::call("f", {P::num(0)}))});
  for (int k = 0; k < 6; ++k) {
    APMPRuntime runtime;
    for (int run = 0; run < 3; ++run) {
      platform::Error error;
      V r = runtime.executeStatements(sum, &error);
      ASSERT_EQ(error.code, 0) << "runtime " << k << " run " << run << ": " << error.localizedDescription;
      EXPECT_EQ(r.asControl()->data().numberPayload(), 1225);
    }
  }
}

}  // namespace

namespace {

V call(const char* name, std::vector<V> arguments) { return P::call(name, std::move(arguments)); }

// A call's scope is reused by the next call of the same function once nothing holds it: the
// next call must see none of what the last one left there.
TEST(APMPRuntimeTest, ACallSeesNothingTheLastCallLeftInItsScope) {
  Sandbox run;
  // f(k, extra): logs y, declares y in its own scope when k is 1, logs y again, and logs the
  // type of `extra`, which the second call does not pass; the parameter k turns constant.
  V f = P::function("", {"k", "extra"},
                    {P::method(P::var("log"), "push", {P::var("y")}),
                     binary("1", binary("12", P::var("k"), P::num(1)), P::let("y", P::str("local"))),
                     P::method(P::var("log"), "push", {P::var("y"), P::call("40", {P::var("extra")})}),
                     P::assign("k", binary("0", P::var("k"), P::num(1))),
                     P::call("52", {P::str("k"), P::num(0)})});
  V r = run({P::let("y", P::str("global")), P::let("log", P::call("7")), P::let("f", f),
             call("f", {P::num(1), P::str("given")}), call("f", {P::num(0)}),
             P::ret(P::method(P::var("log"), "join", {P::str(" ")}))});
  ASSERT_EQ(run.error.code, 0) << run.error.localizedDescription;
  EXPECT_EQ(r.stringValue(), "global local string global global undefined");
}

// Two functions share their body statements; the first call's scope goes before the second
// call, whose scope takes its place in memory: the second call still finds its own `z`.
TEST(APMPRuntimeTest, ALookupFromAScopeThatWentIsNotRemembered) {
  Sandbox run;
  V keep = P::assign("keep", P::function("", {}, {}));  // holds the call's scope past the call
  V logZ = P::method(P::var("log"), "push", {P::var("z")});
  V first = P::function("", {}, {keep, logZ});
  V makeSecond = P::function("", {}, {P::let("z", P::str("b")), P::ret(P::function("", {}, {keep, logZ}))});
  V r = run({P::let("z", P::str("a")), P::let("keep", P::num(0)), P::let("log", P::call("7")),
             P::let("first", first), P::let("mk", makeSecond), P::let("second", call("mk", {})),
             call("first", {}), P::assign("keep", P::num(0)), call("second", {}),
             P::ret(P::var("log"))});
  ASSERT_EQ(run.error.code, 0) << run.error.localizedDescription;
  EXPECT_EQ(r.stringValue(), "a,b");
}

// A closure keeps its call's scope, recursion needs one scope per level: neither may reuse
// the scope of a call still in use.
TEST(APMPRuntimeTest, ClosuresAndRecursionKeepTheirOwnCallScopes) {
  Sandbox run;
  V keep = P::function("", {"v"}, {P::ret(P::function("", {}, {P::ret(P::var("v"))}))});
  V fib = P::function("", {"n"},
                      {P::call("22", {binary("23", P::var("n"), P::num(2)), P::list({P::ret(P::var("n"))})}),
                       P::ret(binary("0", call("fib", {binary("37", P::var("n"), P::num(1))}),
                                     call("fib", {binary("37", P::var("n"), P::num(2))})))});
  V r = run({P::let("keep", keep), P::let("fib", fib), P::let("a", call("keep", {P::num(1)})),
             P::let("b", call("keep", {P::num(2)})),
             P::ret(P::call("7", {call("a", {}), call("b", {}), call("fib", {P::num(15)})}))});
  ASSERT_EQ(run.error.code, 0) << run.error.localizedDescription;
  EXPECT_EQ(r.stringValue(), "1,2,610");
}

// The count of instructions does not depend on how a statement is run: each statement and
// each loop turn counts one.
TEST(APMPRuntimeTest, InstructionsCountOnePerStatementAndLoopTurn) {
  Sandbox run;
  // let s = 0; for (let i = 0; i < 3; i = i + 1) { s = s + i; }
  // 1 (let) + 1 (for) + 1 (let i) + 3 turns of 10 (turn, i < 3 with its read, s = s + i
  // with its sum and two reads, i = i + 1 with its sum and read) + 3 for the last test.
  V r = run({P::let("s", P::num(0)),
             P::call("63", {P::let("i", P::num(0)), binary("23", P::var("i"), P::num(3)),
                            P::assign("i", binary("0", P::var("i"), P::num(1))),
                            P::list({P::assign("s", binary("0", P::var("s"), P::var("i")))})})});
  ASSERT_EQ(run.error.code, 0) << run.error.localizedDescription;
  EXPECT_EQ(run.runtime.getInstructionCount(), 36u);
  // The same sum of a name read through a property: the sum is no longer of the
  // `name = name + x` form, and the expression runs on its own.
  Sandbox other;
  other({P::let("o", P::call("8", {P::str("x"), P::num(2)})), P::let("s", P::num(0)),
         P::assign("s", binary("37", binary("0", P::var("s"), P::num(1)), P::call("16", {P::var("o"), P::str("x")})))});
  ASSERT_EQ(other.error.code, 0) << other.error.localizedDescription;
  // 1 (let o) + 1 (the literal) + 1 (let s) + 6 (assign, subtract, add, read, property, read).
  EXPECT_EQ(other.runtime.getInstructionCount(), 9u);
}

}  // namespace

namespace {

// One name read, kept as a value and run from scopes at different depths: it finds the
// nearest binding each time, wherever it last found one.
TEST(APMPRuntimeTest, AStatementRunFromAnotherScopeFindsTheNearestBinding) {
  Sandbox run;
  V reads = P::call("46", {P::list({P::var("x")})});
  V inner = P::function("", {}, {P::let("x", P::str("inner")),
                                 P::call("2", {P::var("log"), P::str("push"), P::var("reads")})});
  V outer = P::function("", {"x"}, {P::call("2", {P::var("log"), P::str("push"), P::var("reads")}),
                                    P::call("inner", {})});
  V r = run({P::let("x", P::str("top")), P::let("log", P::call("7")), P::let("reads", reads),
             P::let("inner", inner), P::let("outer", outer),
             P::call("2", {P::var("log"), P::str("push"), P::var("reads")}),
             P::call("outer", {P::str("argument")}),
             P::call("2", {P::var("log"), P::str("push"), P::var("reads")}),
             P::ret(P::var("log"))});
  ASSERT_EQ(run.error.code, 0) << run.error.localizedDescription;
  EXPECT_EQ(r.stringValue(), "top,argument,inner,top");
}

}  // namespace

namespace {

// Arithmetic whose operands stop being numbers half-way through a loop gives what it gives
// on any other path, with the same count, and a budget run out inside it stops where it would.
TEST(APMPRuntimeTest, ArithmeticGivesTheSameWhenItsOperandsChangeKind) {
  // let o = {x: 1}; let t = ""; for (let i = 0; i < 4; i = i + 1) {
  //   if (i == 2) { o.x = "b"; }  t = t + "," + (o.x * 2 + i % 3);  }
  auto program = [] {
    return std::vector<V>{
        P::let("o", P::call("8", {P::str("x"), P::num(1)})), P::let("t", P::str("")),
        P::call("63", {P::let("i", P::num(0)), binary("23", P::var("i"), P::num(4)),
                       P::assign("i", binary("0", P::var("i"), P::num(1))),
                       P::list({P::call("22", {binary("12", P::var("i"), P::num(2)),
                                               P::list({P::call("43", {P::var("o"), P::str("x"), P::str("b")})})}),
                                P::assign("t", binary("0", binary("0", P::var("t"), P::str(",")),
                                                      binary("0", binary("26", P::call("16", {P::var("o"), P::str("x")}), P::num(2)),
                                                             binary("25", P::var("i"), P::num(3)))))})}),
        P::ret(P::var("t"))};
  };
  Sandbox run;
  V r = run(program());
  ASSERT_EQ(run.error.code, 0) << run.error.localizedDescription;
  EXPECT_EQ(r.stringValue(), ",2,3,NaN,NaN");
  // 5 before the loop (let o, its literal, let t, for, let i); each of the 4 turns 19 (the
  // turn, i < 4 with its read, the if with i == 2 and its read, the assignment with its three
  // sums, product, remainder, property and three reads, i = i + 1 with its sum and read), the
  // property write 2 more; the last test 3; the return with its read 2.
  std::uint64_t count = run.runtime.getInstructionCount();
  EXPECT_EQ(count, 5u + 4 * 19 + 2 + 3 + 2);
  // Started with `left` instructions of the budget left, the run fails at the budget when it
  // needs them all, and finishes when it has one to spare.
  auto runWithLeft = [&](std::uint64_t left) {
    auto cut = std::make_unique<Sandbox>();
    cut->runtime.evaluator().chargeWork((APMPEvaluator::kInstructionBudget - left) * 64);
    V result = (*cut)(program());
    return cut;
  };
  for (std::uint64_t left = 1; left <= count; ++left) {
    auto cut = runWithLeft(left);
    EXPECT_EQ(cut->error.code, kAPMPErrorCodeBudgetExceeded) << left;
    EXPECT_EQ(cut->runtime.getInstructionCount(), APMPEvaluator::kInstructionBudget) << left;
  }
  EXPECT_EQ(runWithLeft(count)->error.code, kAPMPErrorCodeBudgetExceeded);
  auto enough = runWithLeft(count + 1);
  EXPECT_EQ(enough->error.code, 0);
  EXPECT_EQ(enough->runtime.getInstructionCount(), APMPEvaluator::kInstructionBudget - 1);
}

// A counting loop's counter may change kind, be a constant or live outside the loop: the
// loop follows it as any other statement would.
TEST(APMPRuntimeTest, CountingLoopsFollowTheirCounterWhereverItIs) {
  auto counting = [](V init, std::vector<V> body) {
    return P::call("63", {std::move(init), binary("23", P::var("i"), P::num(3)),
                          P::assign("i", binary("0", P::var("i"), P::num(1))), P::list(std::move(body))});
  };
  // let out = ""; for (let i = 0; i < 3; i = i + 1) { out = out + i; if (i === 1) { i = "0"; } }
  // The counter turns into "0": the update makes "01", which compares as 1, then "011" (11).
  Sandbox text;
  V r = text({P::let("out", P::str("")),
              counting(P::let("i", P::num(0)),
                       {P::assign("out", binary("0", P::var("out"), P::var("i"))),
                        P::call("22", {binary("20", P::var("i"), P::num(1)), P::list({P::assign("i", P::str("0"))})})}),
              P::ret(P::var("out"))});
  ASSERT_EQ(text.error.code, 0) << text.error.localizedDescription;
  EXPECT_EQ(r.stringValue(), "0101");
  // let i = 10; for (i = 0; i < 3; i = i + 1) {} return i;
  Sandbox outer;
  r = outer({P::let("i", P::num(10)), counting(P::assign("i", P::num(0)), {}), P::ret(P::var("i"))});
  ASSERT_EQ(outer.error.code, 0) << outer.error.localizedDescription;
  EXPECT_EQ(r.stringValue(), "3");
  // for (const i = 0; i < 3; i = i + 1) {}
  Sandbox constant;
  constant({counting(P::call("52", {P::str("i"), P::num(0)}), {})});
  EXPECT_EQ(constant.error.code, kAPMPErrorCodeWrongArgumentKind);
  EXPECT_EQ(constant.error.localizedDescription, "Assignment to constant variable i");
  // 52, the for, its turn, 23 and its read, 3, 0 and its read: the value comes before the write.
  EXPECT_EQ(constant.runtime.getInstructionCount(), 8u);
}

// The remainder of whole numbers keeps fmod's signs and its results at the edges.
TEST(APMPRuntimeTest, RemainderKeepsTheSignOfTheDividend) {
  struct Case { double a, b; };
  for (Case c : {Case{-6, 3}, Case{-7, 3}, Case{7, -3}, Case{-0.0, 5}, Case{5, 0}, Case{5.5, 2},
                 Case{9007199254740993.0, 2}, Case{1e300, 7}, Case{-4, INFINITY}}) {
    Sandbox run;
    V r = run({P::let("a", P::num(c.a)), P::ret(binary("25", P::var("a"), P::num(c.b)))});
    ASSERT_TRUE(r.isNumber());
    double want = std::fmod(c.a, c.b);
    if (std::isnan(want)) {
      EXPECT_TRUE(std::isnan(r.numberPayload())) << c.a << " % " << c.b;
    } else {
      EXPECT_EQ(r.numberPayload(), want) << c.a << " % " << c.b;
      EXPECT_EQ(std::signbit(r.numberPayload()), std::signbit(want)) << c.a << " % " << c.b;
    }
  }
}

}  // namespace

namespace {

// One property read inside arithmetic, run on objects that hold the key at different places,
// on one without it, and on a string: each read finds what that object holds.
TEST(APMPRuntimeTest, ArithmeticOnPropertiesReadsEachObjectsOwnEntry) {
  Sandbox run;
  // let f = function (o) { return o.x * 2 + o.length; };
  // [f({x: 1, length: 0}), f({y: 7, length: 1, x: 5}), f({x: 1, length: 0}), f({y: 1}), f("abc")]
  V f = P::function("", {"o"}, {P::ret(binary("0", binary("26", P::call("16", {P::var("o"), P::str("x")}), P::num(2)),
                                               P::call("16", {P::var("o"), P::str("length")})))});
  auto object = [](std::vector<std::pair<const char*, double>> entries) {
    std::vector<V> args;
    for (auto& [name, value] : entries) {
      args.push_back(P::str(name));
      args.push_back(P::num(value));
    }
    return P::call("8", std::move(args));
  };
  V r = run({P::let("f", f),
             P::ret(P::call("7", {P::call("f", {object({{"x", 1}, {"length", 0}})}),
                                  P::call("f", {object({{"y", 7}, {"length", 1}, {"x", 5}})}),
                                  P::call("f", {object({{"x", 1}, {"length", 0}})}),
                                  P::call("f", {object({{"y", 1}})}), P::call("f", {P::str("abc")})}))});
  ASSERT_EQ(run.error.code, 0) << run.error.localizedDescription;
  EXPECT_EQ(r.stringValue(), "2,11,2,NaN,NaN");
}

}  // namespace

namespace {

// Statements in loop and function bodies, whose values nobody reads, still fail, count and
// pass their signals as anywhere else.
TEST(APMPRuntimeTest, BodyStatementsFailAndSignalAsAnywhereElse) {
  auto loop = [](std::vector<V> body) {
    return P::call("63", {P::let("i", P::num(0)), binary("23", P::var("i"), P::num(5)),
                          P::assign("i", binary("0", P::var("i"), P::num(1))), P::list(std::move(body))});
  };
  // Writing a constant, in a loop and in a function: code 10, the old value kept.
  for (bool inFunction : {false, true}) {
    Sandbox run;
    std::vector<V> program = {P::call("52", {P::str("k"), P::num(1)}), P::let("n", P::num(0))};
    V writes = loop({P::assign("n", binary("0", P::var("n"), P::num(1))), P::assign("k", P::var("i"))});
    if (inFunction) {
      program.push_back(P::let("f", P::function("", {}, {writes})));
      program.push_back(P::call("f"));
    } else {
      program.push_back(writes);
    }
    run(std::move(program));
    EXPECT_EQ(run.error.code, kAPMPErrorCodeWrongArgumentKind) << inFunction;
    EXPECT_EQ(run.error.localizedDescription, "Assignment to constant variable k");
    EXPECT_EQ(run.runtime.getRunScope()->valueForName("k")->numberPayload(), 1);
    EXPECT_EQ(run.runtime.getRunScope()->valueForName("n")->numberPayload(), 1);
  }
  // A call whose function returns a break signal as its value ends the loop it stands in;
  // a sum onto a name that is not bound fails with the name.
  Sandbox run;
  V stop = P::function("", {}, {P::call("22", {binary("12", P::var("n"), P::num(3)),
                                               P::list({P::ret(P::call("4"))})})});
  V r = run({P::let("n", P::num(0)), P::let("stop", stop),
             loop({P::assign("n", binary("0", P::var("n"), P::num(1))), P::call("stop")}),
             P::ret(P::var("n"))});
  ASSERT_EQ(run.error.code, 0) << run.error.localizedDescription;
  EXPECT_EQ(r.numberPayload(), 3);
  // The same with a continue signal (the rest of that turn skipped) and a return signal (the
  // loop, and the program, end with its data).
  Sandbox signals;
  V skip = P::function("", {}, {P::call("22", {binary("12", P::var("n"), P::num(2)), P::list({P::ret(P::call("6"))})})});
  V leave = P::function("", {}, {P::call("22", {binary("12", P::var("n"), P::num(4)), P::list({P::ret(P::ret(P::var("m")))})})});
  for (bool skipping : {false, true}) {
    r = signals({P::let("n", P::num(0)), P::let("m", P::num(0)), P::let("skip", skip), P::let("leave", leave),
                 loop({P::assign("n", binary("0", P::var("n"), P::num(1))), P::call(skipping ? "skip" : "leave"),
                       P::assign("m", binary("0", P::var("m"), P::var("n")))}),
                 P::ret(skipping ? P::var("m") : P::num(-1))});
    ASSERT_EQ(signals.error.code, 0) << signals.error.localizedDescription;
    // 1 + 3 + 4 + 5, the turn of 2 skipped; or 1 + 2 + 3, returned at 4.
    EXPECT_EQ(r.stringValue(), skipping ? "13" : "6");
  }
  Sandbox unbound;
  unbound({loop({P::assign("m", binary("0", P::var("m"), P::num(1)))})});
  EXPECT_EQ(unbound.error.code, kAPMPErrorCodeWrongArgumentKind);
  EXPECT_EQ(unbound.error.localizedDescription, "m is not defined");
}

}  // namespace

namespace {

// A function whose body is a few number assignments and a return, and a loop of number
// assignments, run on registers while their names hold numbers. Each case runs twice: as
// written, and kept off that path (a function with a statement after its return that never
// runs; a loop that reads a name holding "1" where the other holds 1, to the same effect).
// Both must agree on the value, the error, the count, and where a budget or a depth cut
// short stops them.
TEST(APMPRuntimeTest, LeafFunctionsAndLoopsRunAsTheGeneralPathRunsThem) {
  auto function = [](std::vector<std::string> parameters, std::vector<V> body, bool twin) {
    if (twin) body.push_back(P::call("44"));
    return P::function("", std::move(parameters), std::move(body));
  };
  auto a = [](std::vector<V> elements) { return P::call("7", std::move(elements)); };
  auto mul = [](V x, V y) { return binary("26", std::move(x), std::move(y)); };
  auto add = [](V x, V y) { return binary("0", std::move(x), std::move(y)); };
  std::vector<std::function<std::vector<V>(bool)>> cases = {
      // Elements that are no numbers; a sum that turns into text half-way; a comparison.
      [&](bool twin) {
        return std::vector<V>{
            P::let("xs", a({P::num(1), P::str("a"), P::call("45"), P::num(2.5), P::str("3"), P::num(4)})),
            P::ret(a({P::method(P::var("xs"), "map", {function({"x"}, {P::ret(mul(P::var("x"), P::num(2)))}, twin)}),
                      P::method(P::var("xs"), "filter",
                                {function({"x"}, {P::ret(binary("12", binary("25", P::var("x"), P::num(3)), P::num(1)))}, twin)}),
                      P::method(P::var("xs"), "reduce",
                                {function({"s", "x"}, {P::ret(add(P::var("s"), P::var("x")))}, twin), P::num(0)}),
                      P::method(P::var("xs"), "map", {function({"x", "i"}, {P::ret(binary("23", P::var("x"), P::var("i")))}, twin)})}))};
      },
      // A counter outside the function that turns into text; a parameter written, one missing,
      // one given twice, one that hides an outside name.
      [&](bool twin) {
        V mk = P::function("", {}, {P::let("c", P::num(0)),
                                    P::ret(function({"x"}, {P::assign("c", add(P::var("c"), P::var("x"))), P::ret(P::var("c"))}, twin))});
        return std::vector<V>{
            P::let("mk", mk), P::let("f", call("mk", {})), P::let("x", P::num(100)),
            P::let("g", function({"x", "y"}, {P::assign("x", mul(P::var("x"), P::num(2))), P::ret(add(P::var("x"), P::var("y")))}, twin)),
            P::let("twice", function({"x", "x"}, {P::ret(mul(P::var("x"), P::num(10)))}, twin)),
            // An object read as a number and under a key: o - o.k
            P::let("o", P::call("8", {P::str("k"), P::num(2)})),
            P::let("m", function({"x"}, {P::ret(add(binary("37", P::var("o"), P::call("16", {P::var("o"), P::str("k")})), P::var("x")))}, twin)),
            P::ret(a({call("f", {P::num(1)}), call("f", {P::num(2)}), call("f", {P::str("3")}), call("f", {P::num(4)}),
                      call("g", {P::num(1), P::num(2)}), call("g", {P::num(1)}), call("twice", {P::num(1), P::num(2)}),
                      P::var("x"), call("m", {P::num(1)})}))};
      },
      // A constant outside the function written, then a name bound nowhere read.
      [&](bool twin) {
        return std::vector<V>{P::call("52", {P::str("k"), P::num(1)}),
                              P::let("h", function({"x"}, {P::assign("k", add(P::var("k"), P::var("x")))}, twin)),
                              P::call("h", {P::num(1)})};
      },
      [&](bool twin) {
        return std::vector<V>{P::let("h", function({"x"}, {P::ret(add(P::var("x"), P::var("nowhere")))}, twin)),
                              P::call("h", {P::num(1)})};
      },
      // let o = {x: 3}; let s = 0; let j = 10;
      // for (let i = 0; i < 5; i = i + 1) { s = s + i * 2 - o.x * one; j = i; }
      // for (; j < 0; j = j + 1) {}  return [s, j, o.x];
      [&](bool twin) {
        auto loop = [](V init, V condition, V update, std::vector<V> body) {
          return P::call("63", {std::move(init), std::move(condition), std::move(update), P::list(std::move(body))});
        };
        return std::vector<V>{
            P::let("o", P::call("8", {P::str("x"), P::num(3)})), P::let("s", P::num(0)), P::let("j", P::num(10)),
            P::let("one", twin ? P::str("1") : P::num(1)),
            loop(P::let("i", P::num(0)), binary("23", P::var("i"), P::num(5)), P::assign("i", add(P::var("i"), P::num(1))),
                 {P::assign("s", binary("37", add(P::var("s"), mul(P::var("i"), P::num(2))),
                                        mul(P::call("16", {P::var("o"), P::str("x")}), P::var("one")))),
                  P::assign("j", P::var("i"))}),
            loop(P::call("44"), binary("23", mul(P::var("j"), P::var("one")), P::num(0)), P::assign("j", add(P::var("j"), P::num(1))), {}),
            P::ret(a({P::var("s"), P::var("j"), P::call("16", {P::var("o"), P::str("x")})}))};
      },
      // A loop that also builds text: its conditions read the text's length and a name that
      // stops being a number half-way through a turn.
      // let s = ""; let v = 5; let log = ""; let t = 1;
      // for (let i = 0; i < 12; i = i + 1) {
      //   s = s + "ab"; t = t * one; if (s.length > 6) { s = ""; t = t + 1; }
      //   if (v > 3) { log = log + "x"; } if (i > 8) { v = v + "1"; }
      // }  return [s, v, log, t];
      [&](bool twin) {
        auto lessThan = [](V x, V y) { return binary("23", std::move(x), std::move(y)); };
        auto when = [](V condition, std::vector<V> list) { return P::call("22", {std::move(condition), P::list(std::move(list))}); };
        return std::vector<V>{
            P::let("s", P::str("")), P::let("v", P::num(5)), P::let("log", P::str("")), P::let("t", P::num(1)),
            P::let("one", twin ? P::str("1") : P::num(1)),
            P::call("63", {P::let("i", P::num(0)), lessThan(P::var("i"), P::num(12)), P::assign("i", add(P::var("i"), P::num(1))),
                           P::list({P::assign("s", add(P::var("s"), P::str("ab"))),
                                    P::assign("t", mul(P::var("t"), P::var("one"))),
                                    when(lessThan(P::num(6), P::call("16", {P::var("s"), P::str("length")})),
                                         {P::assign("s", P::str("")), P::assign("t", add(P::var("t"), P::num(1)))}),
                                    when(lessThan(P::num(3), P::var("v")), {P::assign("log", add(P::var("log"), P::str("x")))}),
                                    when(lessThan(P::num(8), P::var("i")), {P::assign("v", add(P::var("v"), P::str("1")))})})}),
            P::ret(a({P::var("s"), P::var("v"), P::var("log"), P::var("t")}))};
      },
      // A loop whose update writes a name its body builds text in.
      // let s = 1; let i = 0; let log = "";
      // for (; i < 3; s = 7) { s = s + "a"; log = log + s + ","; i = i * one + 1; }
      [&](bool twin) {
        return std::vector<V>{
            P::let("s", P::num(1)), P::let("i", P::num(0)), P::let("log", P::str("")),
            P::let("one", twin ? P::str("1") : P::num(1)),
            P::call("63", {P::call("44"), binary("23", P::var("i"), P::num(3)), P::assign("s", P::num(7)),
                           P::list({P::assign("s", add(P::var("s"), P::str("a"))), P::assign("log", add(add(P::var("log"), P::var("s")), P::str(","))),
                                    P::assign("i", add(mul(P::var("i"), P::var("one")), P::num(1)))})}),
            P::ret(a({P::var("s"), P::var("log")}))};
      },
      // A loop that calls a function, which changes a name the loop reads and, half-way, turns
      // one the loop writes into text.
      // let total = 0; let n = 0;
      // let addTo = function (x) { total = total + x; if (total > 3) { n = "n"; } };
      // for (let i = 0; i < 5; i = i * one + 1) { addTo(i); n = n + total; }  return [total, n];
      [&](bool twin) {
        V addTo = P::function("", {"x"}, {P::assign("total", add(P::var("total"), P::var("x"))),
                                          P::call("22", {binary("23", P::num(3), P::var("total")),
                                                         P::list({P::assign("n", P::str("n"))})})});
        return std::vector<V>{
            P::let("total", P::num(0)), P::let("n", P::num(0)), P::let("addTo", addTo),
            P::let("one", twin ? P::str("1") : P::num(1)),
            P::call("63", {P::let("i", P::num(0)), binary("23", P::var("i"), P::num(5)),
                           P::assign("i", add(mul(P::var("i"), P::var("one")), P::num(1))),
                           P::list({P::call("addTo", {P::var("i")}), P::assign("n", add(P::var("n"), P::var("total")))})}),
            P::ret(a({P::var("total"), P::var("n")}))};
      },
      // A loop that writes a constant.
      [&](bool twin) {
        return std::vector<V>{P::call("52", {P::str("k"), P::num(0)}), P::let("one", twin ? P::str("1") : P::num(1)),
                              P::call("63", {P::let("i", P::num(0)), binary("23", P::var("i"), P::num(3)),
                                             P::assign("i", add(P::var("i"), P::var("one"))),
                                             P::list({P::assign("k", add(P::var("k"), P::num(1)))})})};
      },
  };
  struct Outcome {
    std::string value;
    int code;
    std::string message;
    std::uint64_t count;
  };
  // Runs a case with `left` instructions of the budget left and `depth` levels already in use.
  auto outcome = [](const std::vector<V>& program, std::uint64_t left, int depth) {
    auto run = std::make_unique<Sandbox>();
    run->runtime.evaluator().chargeWork((APMPEvaluator::kInstructionBudget - left) * 64);
    for (int i = 0; i < depth; ++i) run->runtime.evaluator().enter();
    std::string value = (*run)(program).stringValue();
    return Outcome{value, run->error.code, run->error.localizedDescription, run->runtime.getInstructionCount()};
  };
  auto expectSame = [](const Outcome& leaf, const Outcome& twin, const std::string& where) {
    EXPECT_EQ(leaf.value, twin.value) << where;
    EXPECT_EQ(leaf.code, twin.code) << where;
    EXPECT_EQ(leaf.message, twin.message) << where;
    EXPECT_EQ(leaf.count, twin.count) << where;
  };
  const std::vector<std::string> expected = {"2,NaN,0,5,6,8,1,4,1anull2.534,false,false,true,true,true,true",
                                             "1,3,33,334,4,NaN,20,100,NaN", "undefined", "undefined", "5,4,3",
                                             ",5111,xxxxxxxxxxxx,4", "7,1a,7a,7a,", "10,n10", "undefined"};
  const std::vector<std::string> failures = {"", "", "Assignment to constant variable k", "nowhere is not defined",
                                             "", "", "", "", "Assignment to constant variable k"};
  for (std::size_t c = 0; c < cases.size(); ++c) {
    Outcome leaf = outcome(cases[c](false), APMPEvaluator::kInstructionBudget, 0);
    Outcome twin = outcome(cases[c](true), APMPEvaluator::kInstructionBudget, 0);
    expectSame(leaf, twin, "case " + std::to_string(c));
    EXPECT_EQ(leaf.value, expected[c]) << c;
    EXPECT_EQ(leaf.message, failures[c]) << c;
    for (std::uint64_t left = 1; left <= leaf.count + 1; ++left) {
      expectSame(outcome(cases[c](false), left, 0), outcome(cases[c](true), left, 0),
                 "case " + std::to_string(c) + ", " + std::to_string(left) + " left");
    }
    for (int depth = APMPEvaluator::kMaxDepth - 8; depth <= APMPEvaluator::kMaxDepth; ++depth) {
      expectSame(outcome(cases[c](false), APMPEvaluator::kInstructionBudget, depth),
                 outcome(cases[c](true), APMPEvaluator::kInstructionBudget, depth),
                 "case " + std::to_string(c) + ", depth " + std::to_string(depth));
    }
  }
}

}  // namespace

namespace {

// A program may hold a loop's or a function's statement list as a value and change it; the
// next run of the loop or call of the function runs the list as it is then.
TEST(APMPRuntimeTest, AChangedLeafBodyRunsAsChanged) {
  Sandbox run;
  V loopBody = P::list({P::assign("x", binary("0", P::var("x"), P::num(1)))});
  V functionBody = P::list({P::assign("y", binary("0", P::var("y"), P::num(1)))});
  V ifList = P::list({P::assign("z", binary("0", P::var("z"), P::num(1)))});
  V times10 = P::list({P::assign("x", binary("26", P::var("x"), P::num(10))),
                       P::assign("y", binary("26", P::var("y"), P::num(10))),
                       P::assign("z", binary("26", P::var("z"), P::num(10)))});
  // list[1] = element (a method's arguments would run a statement value)
  auto push = [](const char* list, V element) { return P::call("43", {P::var(list), P::num(1), std::move(element)}); };
  auto element = [](const char* list, double i) { return P::call("16", {P::var(list), P::num(i)}); };
  // for (k < 2) {
  //   for (i < 3) loopBody;  f();  for (j < 2) { if (j < 5) ifList }
  //   loopBody[1] = (x = x * 10); functionBody[1] = (y = y * 10); ifList[1] = (z = z * 10);
  // }
  V r = run({P::let("x", P::num(0)), P::let("y", P::num(0)), P::let("z", P::num(0)),
             P::let("ifList", P::call("46", {ifList})), P::let("loopBody", P::call("46", {loopBody})),
             P::let("functionBody", P::call("46", {functionBody})), P::let("more", P::call("46", {times10})),
             P::let("f", P::call("51", {P::str(""), P::list({}), functionBody})),
             P::call("63", {P::let("k", P::num(0)), binary("23", P::var("k"), P::num(2)),
                            P::assign("k", binary("0", P::var("k"), P::num(1))),
                            P::list({P::call("63", {P::let("i", P::num(0)), binary("23", P::var("i"), P::num(3)),
                                                    P::assign("i", binary("0", P::var("i"), P::num(1))), loopBody}),
                                     P::call("f", {}),
                                     P::call("63", {P::let("j", P::num(0)), binary("23", P::var("j"), P::num(2)),
                                                    P::assign("j", binary("0", P::var("j"), P::num(1))),
                                                    P::list({P::call("22", {binary("23", P::var("j"), P::num(5)), ifList})})}),
                                     push("loopBody", element("more", 0)), push("functionBody", element("more", 1)),
                                     push("ifList", element("more", 2))})}),
             P::ret(P::call("7", {P::var("x"), P::var("y"), P::var("z")}))});
  ASSERT_EQ(run.error.code, 0) << run.error.localizedDescription;
  // x: 3 turns of +1, then 3 of (+1, *10); y: +1, then (+1, *10); z: 2 turns of +1, then 2 of
  // (+1, *10).
  EXPECT_EQ(r.stringValue(), "4110,20,310");
}

}  // namespace
