// Random programs run by our runtime and by Node.js; the printed results must agree.
//
// APMP_DIFFERENTIAL_PROGRAMS (default 10000) and APMP_DIFFERENTIAL_SEED (default 1) set the
// run, APMP_DIFFERENTIAL_SHOW (default 5) how many differences are printed in full; programs
// go to Node in files of 10,000.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "measurement/runtime/APMPProgramBuilder.h"
#include "measurement/runtime/APMPProgramGenerator.h"
#include "measurement/runtime/APMPRuntime.h"

namespace {

std::uint64_t environmentNumber(const char* name, std::uint64_t fallback) {
  const char* value = std::getenv(name);
  return value ? std::strtoull(value, nullptr, 10) : fallback;
}

std::string runOurs(const APMPRuntimeValue& statements, platform::Error& error) {
  APMPRuntime runtime;
  APMPRuntimeValue r = runtime.executeStatements(statements, &error);
  if (error.code) return "error";
  if (r.isControl()) r = r.asControl()->data();
  return APMPDescribeResult(r);
}

bool nodeAvailable() { return std::system("node --version > /dev/null 2>&1") == 0; }

TEST(APMPDifferentialTest, RandomProgramsAgreeWithNode) {
  if (!nodeAvailable()) GTEST_SKIP() << "node is not installed";
  const std::uint64_t total = environmentNumber("APMP_DIFFERENTIAL_PROGRAMS", 10000);
  const std::uint64_t seed = environmentNumber("APMP_DIFFERENTIAL_SEED", 1);
  const std::uint64_t chunk = 10000;
  const std::uint64_t shown = environmentNumber("APMP_DIFFERENTIAL_SHOW", 5);
  auto dir = std::filesystem::temp_directory_path() /
             ("apmp_differential_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  APMPProgramGenerator generator(seed);
  std::uint64_t mismatches = 0, errors = 0;
  for (std::uint64_t done = 0; done < total; done += chunk) {
    std::uint64_t n = std::min(chunk, total - done);
    std::vector<APMPGeneratedProgram> programs;
    programs.reserve(n);
    std::ofstream js(dir / "programs.js");
    js << APMPProgramGenerator::javaScriptDescriber() << "const programs = [\n";
    for (std::uint64_t i = 0; i < n; ++i) {
      programs.push_back(generator.next());
      js << "function () {\n" << programs.back().javaScript << "\n},\n";
    }
    js << "];\nconst out = [];\n"
          "for (const p of programs) { let r; try { r = describe(p()); } catch (e) { r = \"error\"; }"
          " out.push(r); }\n"
          "process.stdout.write(out.join(\"\\n\") + \"\\n\");\n";
    js.close();
    std::string command = "timeout 600 node --stack-size=4000 " + (dir / "programs.js").string() +
                          " > " + (dir / "node.txt").string() + " 2> " + (dir / "node.err").string();
    ASSERT_EQ(std::system(command.c_str()), 0) << "node failed; see " << dir;
    std::ifstream results(dir / "node.txt");
    for (std::uint64_t i = 0; i < n; ++i) {
      std::string expected;
      ASSERT_TRUE(std::getline(results, expected)) << "node printed too few results";
      platform::Error error;
      std::string ours = runOurs(programs[i].statements, error);
      if (ours == "error") {
        ++errors;
        if (std::getenv("APMP_DIFFERENTIAL_VERBOSE")) std::printf("error: %s\n", error.localizedDescription.c_str());
      }
      if (ours != expected) {
        ++mismatches;
        if (mismatches <= shown) {
          ADD_FAILURE() << "program " << done + i << " (seed " << seed << ")\n"
                        << programs[i].javaScript << "\nnode: " << expected << "\nours: " << ours << " " << error.localizedDescription;
        }
      }
    }
  }
  std::filesystem::remove_all(dir);
  EXPECT_EQ(mismatches, 0u);
  // The generator must mostly make programs that run to the end.
  EXPECT_LT(errors, total / 3);
  std::printf("%llu programs, %llu mismatches, %llu ended in an error on both sides\n",
              static_cast<unsigned long long>(total), static_cast<unsigned long long>(mismatches),
              static_cast<unsigned long long>(errors));
}

}  // namespace

namespace {

// Generated programs survive the wire form: encoded, decoded and loaded, each gives the same
// result as its tree. With APMP_WRITE_FUZZ_SEEDS=<folder> the encoded programs (without their
// final return) are also written there as seeds of the runtime's fuzz target.
TEST(APMPDifferentialTest, GeneratedProgramsSurviveTheWireForm) {
  const char* folder = std::getenv("APMP_WRITE_FUZZ_SEEDS");
  APMPProgramGenerator generator(7);
  for (int i = 0; i < 24; ++i) {
    APMPGeneratedProgram program = generator.next();
    std::string bytes = P::program(program.statements);
    auto decoded = APMPBMessage<APMPBProgram>::parseFromData(
        std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
    ASSERT_TRUE(decoded);
    APMPRuntime runtime;
    platform::Error error;
    APMPRuntimeValue statements = APMPRuntimeEntityConverter::statementsFromProgram(**decoded, &error);
    ASSERT_TRUE(statements.isArray()) << error.localizedDescription;
    platform::Error treeError;
    EXPECT_EQ(runOurs(statements, error), runOurs(program.statements, treeError)) << program.javaScript;
    if (folder) {
      std::vector<APMPRuntimeValue> withoutReturn = program.statements.asArray()->elements();
      withoutReturn.pop_back();
      std::ofstream(std::string(folder) + "/generated_" + std::to_string(i) + ".bin", std::ios::binary)
          << P::program(P::list(std::move(withoutReturn)));
    }
  }
}

}  // namespace
