// `solvanta scan`: runs the app's duplicate scan on the real photo library and prints the
// sections it finds.
#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace cli {

// Exit codes of `solvanta scan`.
enum ExitCode : int {
  kExitOk = 0,
  kExitDeletionFailed = 1,  // --delete: refused, or the Trash failed
  kExitBadArguments = 2,
  kExitLibraryUnreadable = 3,  // missing, not a folder, unreadable, or access not granted
};

struct ScanOptions {
  bool videos = false;
  std::optional<std::string> library;
  bool json = false;
  bool yes = false;
  bool deleteMarked = false;
  bool verbose = false;
  bool help = false;
};

// The text of `solvanta scan --help`.
extern const char* const kScanUsage;

// Parses the arguments that follow "scan". Nothing, with `error` filled, on a bad argument.
std::optional<ScanOptions> parseScanArguments(const std::vector<std::string>& args,
                                              std::string* error);

// Runs `solvanta scan` with `args` (those after "scan") on the calling thread, which becomes
// the main thread: makes the threaded runtime and the desktop platform, asks for access when
// needed, runs startScan through a listener of its own until the scan has nothing left to do,
// prints the sections to `out` and notes to `err`, and returns an ExitCode. Questions are
// read from standard input when it is a terminal (or answered yes with --yes).
int runScan(const std::vector<std::string>& args, std::FILE* out, std::FILE* err);

}  // namespace cli
