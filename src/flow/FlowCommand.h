// `solvanta flow`: runs flow files and reports.
//
//   solvanta flow [--screenshots DIR] [--json] [--junit FILE] FILE|DIR...
//
// A folder stands for every `*.yaml` in it, in name order. Every file is parsed first; any
// that does not parse is reported as FILE:LINE with what is wrong, and nothing runs (exit 2).
// Then each runs on a fresh world under a scratch home. Exit 0 when all pass, 1 when one
// fails (FILE:LINE, the command, expected and found, and the front-most screen as JSON on the
// error stream). `--json` prints one JSON object per command on the output stream; `--junit`
// writes a JUnit XML report, one test case per flow.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "flow/Runner.h"

namespace flow {

// Runs the command with `args` (after the word "flow"), writing to `out` and `err`. Without a
// `renderer`, `--screenshots` is refused (exit 2). Returns the exit code.
int runFlowCommand(const std::vector<std::string>& args, std::FILE* out, std::FILE* err,
                   ScreenRenderer* renderer = nullptr);

// Whether `args` ask for screenshots (so that the caller can prepare a renderer first).
bool wantsScreenshots(const std::vector<std::string>& args);

// The usage text.
extern const char* const kFlowUsage;

}  // namespace flow
