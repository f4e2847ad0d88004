#include "measurement/runtime/APMPEventEditing.h"

#include <gtest/gtest.h>

#include "measurement/runtime/APMPProgramBuilder.h"

namespace {

using V = APMPRuntimeValue;

APMPBMessage<APMPBProgram> parse(const std::string& bytes) {
  auto program = APMPBMessage<APMPBProgram>::parseFromData(
      std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
  EXPECT_TRUE(program);
  return program ? std::move(*program) : APMPBMessage<APMPBProgram>();
}

V eventCall(const char* method, std::vector<V> arguments) {
  return P::method(P::var("e"), method, std::move(arguments));
}

V registration(V priority, V callback, const char* type) {
  return P::call("register", {std::move(priority), std::move(callback), P::str(type)});
}

V requireModules() {
  return P::call("52", {P::str("register"), P::call("require", {P::str("internal.registerCallback")}),
                        P::str("logger"), P::call("require", {P::str("internal.eventLogger")})});
}

// rename(rule): on events named rule.event, moves parameter rule.from to rule.to.
V renameRule() {
  V rule = P::var("rule");
  auto field = [&](const char* name) { return P::call("16", {rule, P::str(name)}); };
  V callback = P::function("", {"e"},
                           {P::call("22", {P::call("20", {eventCall("getEventName", {}), field("event")}),
                                           P::list({eventCall("setParamValue", {field("to"), eventCall("getParamValue", {field("from")})}),
                                                    eventCall("setParamValue", {field("from"), P::call("45")})})})});
  return P::call("50", {P::str("rename"), P::list({P::str("rule")}),
                        P::list({registration(field("priority"), callback, "edit")})});
}

APMPEvent screenEvent() {
  return {"screen", 1700000000.5,
          {{"old", APMValue::fromString("home")}, {"count", APMValue::fromInt64(3)}}};
}

TEST(APMPEventEditingTest, RulesRenameParametersAndCallbacksCreateEvents) {
  V createCopy = registration(
      P::call("45"),
      P::function("", {"e"}, {P::method(P::var("logger"), "logEvent",
                                        {P::str("screen_copy"),
                                         P::call("8", {P::str("count"), P::call("26", {eventCall("getParamValue", {P::str("count")}), P::num(2)}),
                                                       P::str("flag"), P::boolean(true)})})}),
      "create");
  V rule = P::call("8", {P::str("event"), P::str("screen"), P::str("from"), P::str("old"), P::str("to"),
                         P::str("new"), P::str("priority"), P::num(1)});
  auto program = parse(P::program(P::list({requireModules(), renameRule(), createCopy}), {{"rename", {rule}}}));
  APMPEventEditing editing;
  platform::Error error;
  ASSERT_TRUE(editing.loadProgram(*program, &error)) << error.localizedDescription;
  EXPECT_EQ(editing.callbackHandler().count(), 2u);

  ASSERT_TRUE(editing.handleEvent(screenEvent(), &error)) << error.localizedDescription;
  EXPECT_TRUE(editing.hasEdits());
  const APMPEvent& out = editing.eventContext().outputEvent();
  EXPECT_EQ(out.name, "screen");
  EXPECT_EQ(out.parameters.count("old"), 0u);
  ASSERT_EQ(out.parameters.count("new"), 1u);
  EXPECT_EQ(out.parameters.at("new").stringValue(), "home");
  ASSERT_TRUE(editing.hasCreatedEvents());
  const APMPEvent& created = editing.eventContext().eventsToLog()[0];
  EXPECT_EQ(created.name, "screen_copy");
  EXPECT_EQ(created.timestamp, 1700000000.5);
  EXPECT_EQ(created.parameters.at("count").int64Value(), 6);
  EXPECT_EQ(created.parameters.at("flag").int64Value(), 1);

  // Another event: the rule does not apply, nothing changes, the copy is still made.
  APMPEvent other{"tap", 5, {{"old", APMValue::fromDouble(1.5)}}};
  ASSERT_TRUE(editing.handleEvent(other, &error));
  EXPECT_FALSE(editing.hasEdits());
  EXPECT_TRUE(editing.eventContext().outputEvent().isEqualToEvent(other));
  EXPECT_EQ(editing.eventContext().eventsToLog().size(), 1u);
}

TEST(APMPEventEditingTest, CallbacksRunByPriorityLowestFirst) {
  auto append = [](const char* suffix) {
    return P::function("", {"e"}, {eventCall("setEventName", {P::call("0", {eventCall("getEventName", {}), P::str(suffix)})})});
  };
  // Priorities 5, 1, then 1 again (taken: becomes 6), then none (7).
  auto program = parse(P::program(P::list({requireModules(), registration(P::num(5), append("_a"), "edit"),
                                           registration(P::num(1), append("_b"), "edit"),
                                           registration(P::num(1), append("_c"), "edit"),
                                           registration(P::call("44"), append("_d"), "edit")})));
  APMPEventEditing editing;
  platform::Error error;
  ASSERT_TRUE(editing.loadProgram(*program, &error)) << error.localizedDescription;
  ASSERT_TRUE(editing.handleEvent({"x", 1, {}}, &error)) << error.localizedDescription;
  EXPECT_EQ(editing.eventContext().outputEvent().name, "x_b_a_c_d");
}

TEST(APMPEventEditingTest, AFailingCallbackLeavesTheEventAsItWas) {
  V bad = registration(P::num(1),
                       P::function("", {"e"}, {eventCall("setEventName", {P::str("renamed")}), P::call("missing")}),
                       "edit");
  auto program = parse(P::program(P::list({requireModules(), bad})));
  APMPEventEditing editing;
  platform::Error error;
  ASSERT_TRUE(editing.loadProgram(*program, &error));
  EXPECT_FALSE(editing.handleEvent(screenEvent(), &error));
  EXPECT_EQ(error.code, kAPMPErrorCodeWrongArgumentKind);
  EXPECT_FALSE(editing.hasEdits());
  EXPECT_EQ(editing.eventContext().outputEvent().name, "screen");
}

TEST(APMPEventEditingTest, TheBudgetIsPerEvent) {
  // Each event costs about 600,000 instructions: two in a row must both pass.
  V loop = P::call("63", {P::let("i", P::num(0)), P::call("23", {P::var("i"), P::num(150000)}),
                          P::assign("i", P::call("0", {P::var("i"), P::num(1)})), P::list({})});
  auto program = parse(P::program(P::list({requireModules(), registration(P::num(1), P::function("", {"e"}, {loop}), "edit")})));
  APMPEventEditing editing;
  platform::Error error;
  ASSERT_TRUE(editing.loadProgram(*program, &error));
  EXPECT_TRUE(editing.handleEvent(screenEvent(), &error)) << error.localizedDescription;
  EXPECT_TRUE(editing.handleEvent(screenEvent(), &error)) << error.localizedDescription;
}

TEST(APMPEventEditingTest, LoadFailuresUseTheEditingCodes) {
  struct Case {
    std::string bytes;
    const char* domain;
    int code;
  };
  V rule = P::call("8", {P::str("event"), P::str("a")});
  std::vector<Case> cases = {
      {P::program(P::list({P::call("4")})), kAPMPEditingErrorDomain, kAPMPEditingErrorCodeProgramReturnedValue},
      {P::program(P::list({requireModules()}), {{"nothing", {rule}}}), kAPMPEditingErrorDomain,
       kAPMPEditingErrorCodeRuleNotAFunction},
      {P::program(P::list({requireModules(), renameRule()}), {{"rename", {P::num(3)}}}), kAPMPEditingErrorDomain,
       kAPMPEditingErrorCodeBadRuleArgument},
      {P::program(P::list({requireModules(), registration(P::num(1), P::function("", {}, {}), "delete")})),
       kAPMPEditingErrorDomain, kAPMPEditingErrorCodeBadRuleType},
      {P::program(P::list({P::call("require", {P::str("internal.unknown")})})), kAPMPErrorDomain,
       kAPMPErrorCodeWrongArgumentKind},
  };
  for (const auto& c : cases) {
    auto program = parse(c.bytes);
    APMPEventEditing editing;
    platform::Error error;
    EXPECT_FALSE(editing.loadProgram(*program, &error));
    EXPECT_EQ(error.domain, c.domain);
    EXPECT_EQ(error.code, c.code) << error.localizedDescription;
  }
}

TEST(APMPEventEditingTest, TruncatedProgramsDoNotParseOrLoad) {
  std::string bytes = P::program(P::list({requireModules(), renameRule()}));
  for (std::size_t cut = 1; cut < bytes.size(); cut += 7) {
    auto program = APMPBMessage<APMPBProgram>::parseFromData(
        std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), cut));
    if (!program) continue;
    APMPEventEditing editing;
    platform::Error error;
    editing.loadProgram(**program, &error);  // must not crash; errors are fine
  }
}

}  // namespace
