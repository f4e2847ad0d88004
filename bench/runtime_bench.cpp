// The event-editing runtime on four programs (an arithmetic loop with property reads, string
// building, array methods, closure calls), against the same programs as JavaScript under
// Node.js with its JIT turned off (`node --jitless`), measured in the same run.
//
//   cmake --build --preset release --target runtime_bench && build/release/bench/runtime_bench
//
// Ours: each iteration runs the program once in a runtime made beforehand (the budget reset
// before each run). Node: one process per repetition runs the program many times and reports
// its own time per run, start-up excluded.
#include <cstdio>
#include <fstream>
#include <string>

#include "BenchSupport.h"
#include "measurement/runtime/APMPProgramBuilder.h"
#include "measurement/runtime/APMPRuntime.h"

namespace {

using V = APMPRuntimeValue;

V add(V a, V b) { return P::call("0", {std::move(a), std::move(b)}); }
V lessThan(V a, V b) { return P::call("23", {std::move(a), std::move(b)}); }
V loop(const char* i, double n, std::vector<V> body) {
  return P::call("63", {P::let(i, P::num(0)), lessThan(P::var(i), P::num(n)),
                        P::assign(i, add(P::var(i), P::num(1))), P::list(std::move(body))});
}

struct Program {
  const char* name;
  V tree;
  std::string javaScript;  // a function body
};

std::vector<Program> programs() {
  std::vector<Program> list;
  // let o = {x: 3, y: 4}; let s = 0;
  // for (let i = 0; i < 40000; i = i + 1) { s = s + i * 2 - o.x; }  return s;
  list.push_back({"arith",
                  P::list({P::let("o", P::call("8", {P::str("x"), P::num(3), P::str("y"), P::num(4)})),
                           P::let("s", P::num(0)),
                           loop("i", 40000, {P::assign("s", P::call("37", {add(P::var("s"), P::call("26", {P::var("i"), P::num(2)})),
                                                                           P::call("16", {P::var("o"), P::str("x")})}))}),
                           P::ret(P::var("s"))}),
                  "let o = {x: 3, y: 4}; let s = 0;\n"
                  "for (let i = 0; i < 40000; i = i + 1) { s = s + i * 2 - o.x; }\nreturn s;"});
  // let s = ""; for (...) { s = s + "ab"; if (s.length > 200) { s = ""; } } return s;
  list.push_back({"strings",
                  P::list({P::let("s", P::str("")),
                           loop("i", 20000, {P::assign("s", add(P::var("s"), P::str("ab"))),
                                             P::call("22", {P::call("18", {P::call("16", {P::var("s"), P::str("length")}), P::num(200)}),
                                                            P::list({P::assign("s", P::str(""))})})}),
                           P::ret(P::var("s"))}),
                  "let s = \"\";\nfor (let i = 0; i < 20000; i = i + 1) { s = s + \"ab\"; if (s.length > 200) { s = \"\"; } }\nreturn s;"});
  // let a = []; for (k < 50) a.push(k);
  // for (...) { t = t + a.map(x => x * 2).filter(x => x % 3 == 0).reduce((s, x) => s + x, 0); }
  list.push_back({"arrays",
                  P::list({P::let("a", P::call("7")), P::let("t", P::num(0)),
                           loop("k", 50, {P::method(P::var("a"), "push", {P::var("k")})}),
                           loop("i", 400, {P::assign("t", add(P::var("t"),
                                P::method(P::method(P::method(P::var("a"), "map", {P::function("", {"x"}, {P::ret(P::call("26", {P::var("x"), P::num(2)}))})}),
                                                    "filter", {P::function("", {"x"}, {P::ret(P::call("12", {P::call("25", {P::var("x"), P::num(3)}), P::num(0)}))})}),
                                          "reduce", {P::function("", {"s", "x"}, {P::ret(add(P::var("s"), P::var("x")))}), P::num(0)})))}),
                           P::ret(P::var("t"))}),
                  "let a = []; let t = 0;\nfor (let k = 0; k < 50; k = k + 1) { a.push(k); }\n"
                  "for (let i = 0; i < 400; i = i + 1) { t = t + a.map(function (x) { return x * 2; })"
                  ".filter(function (x) { return x % 3 == 0; }).reduce(function (s, x) { return s + x; }, 0); }\nreturn t;"});
  // let mk = function () { let c = 0; return function (x) { c = c + x; return c; }; };
  // let f = mk(); for (...) { f(i); } return f(0);
  list.push_back({"closures",
                  P::list({P::let("mk", P::function("", {}, {P::let("c", P::num(0)),
                                                              P::ret(P::function("", {"x"}, {P::assign("c", add(P::var("c"), P::var("x"))),
                                                                                             P::ret(P::var("c"))}))})),
                           P::let("f", P::call("mk")), loop("i", 30000, {P::call("f", {P::var("i")})}),
                           P::ret(P::call("f", {P::num(0)}))}),
                  "let mk = function () { let c = 0; return function (x) { c = c + x; return c; }; };\n"
                  "let f = mk();\nfor (let i = 0; i < 30000; i = i + 1) { f(i); }\nreturn f(0);"});
  return list;
}

const std::vector<Program>& allPrograms() {
  static const std::vector<Program> list = programs();
  return list;
}

const bench::ScratchFolder& scratch() {
  static const bench::ScratchFolder folder("runtime_bench");
  return folder;
}

void BM_Ours(benchmark::State& state, std::size_t index) {
  const Program& program = allPrograms()[index];
  APMPRuntime runtime;
  std::uint64_t commands = 0;
  for (auto _ : state) {
    runtime.resetInstructionCount();
    platform::Error error;
    V r = runtime.executeStatements(program.tree, &error);
    if (error.code) {
      state.SkipWithError(error.localizedDescription.c_str());
      return;
    }
    benchmark::DoNotOptimize(r);
    commands += runtime.getInstructionCount();
  }
  state.counters["commands_per_s"] = benchmark::Counter(static_cast<double>(commands), benchmark::Counter::kIsRate);
}

void BM_NodeJitless(benchmark::State& state, std::size_t index) {
  const Program& program = allPrograms()[index];
  std::string folder = scratch().fresh(program.name);
  std::string script = folder + "/program.js";
  std::ofstream(script) << "const program = function () {\n" << program.javaScript << "\n};\n"
                        << "for (let i = 0; i < 5; i++) program();\n"
                        << "const runs = 60; const start = process.hrtime.bigint();\n"
                        << "let r; for (let i = 0; i < runs; i++) r = program();\n"
                        << "const ns = Number(process.hrtime.bigint() - start) / runs;\n"
                        << "console.log(ns);\n";
  for (auto _ : state) {
    std::string command = "node --jitless " + script;
    FILE* out = popen(command.c_str(), "r");
    double ns = 0;
    if (!out || std::fscanf(out, "%lf", &ns) != 1) {
      if (out) pclose(out);
      state.SkipWithError("node --jitless did not run");
      return;
    }
    pclose(out);
    state.SetIterationTime(ns / 1e9);
  }
}

}  // namespace

int main(int argc, char** argv) {
  for (std::size_t i = 0; i < allPrograms().size(); ++i) {
    std::string name = allPrograms()[i].name;
    benchmark::RegisterBenchmark(("ours_" + name).c_str(), BM_Ours, i)
        ->Repetitions(3)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("node_jitless_" + name).c_str(), BM_NodeJitless, i)
        ->Iterations(1)
        ->Repetitions(3)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
  }
  benchmark::Initialize(&argc, argv);
  bench::MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  std::printf("\n");
  for (std::size_t i = 0; i < allPrograms().size(); ++i) {
    std::string name = allPrograms()[i].name;
    double ours = reporter.value("ours_" + name, "seconds");
    double node = reporter.value("node_jitless_" + name, "seconds");
    if (i == 0) {
      std::printf("figure: arith_commands_per_s %.0f 1/s\n", reporter.value("ours_" + name, "commands_per_s"));
    }
    std::printf("figure: %s_ours_over_node_jitless %.2f x\n", allPrograms()[i].name, ours > 0 ? node / ours : 0);
  }
  return 0;
}
