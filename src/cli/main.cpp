// solvanta: the command line program.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli/MeasurementCommand.h"
#include "cli/ScanCommand.h"
#include "flow/FlowCommand.h"

namespace {

const char* const kUsage =
    "Usage: solvanta <command> [options]\n"
    "\n"
    "Solvanta finds duplicate photos and videos in a photo library.\n"
    "\n"
    "Commands:\n"
    "  scan         find duplicates in the photo library (solvanta scan --help)\n"
    "  flow         run flow files: scripted journeys on a simulated phone (solvanta flow --help)\n"
    "  measurement  show what the app's measurement records (solvanta measurement --help)\n"
    "  help         show this text\n"
    "  version      print the version\n";

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || std::strcmp(argv[1], "help") == 0 || std::strcmp(argv[1], "--help") == 0) {
    std::fputs(kUsage, argc < 2 ? stderr : stdout);
    return argc < 2 ? 2 : 0;
  }
  if (std::strcmp(argv[1], "version") == 0 || std::strcmp(argv[1], "--version") == 0) {
    std::puts("solvanta 0.1.0");
    return 0;
  }
  if (std::strcmp(argv[1], "scan") == 0) {
    return cli::runScan(std::vector<std::string>(argv + 2, argv + argc), stdout, stderr);
  }
  if (std::strcmp(argv[1], "flow") == 0) {
    return flow::runFlowCommand(std::vector<std::string>(argv + 2, argv + argc), stdout, stderr);
  }
  if (std::strcmp(argv[1], "measurement") == 0) {
    return cli::runMeasurement(std::vector<std::string>(argv + 2, argv + argc), stdout, stderr);
  }
  std::fprintf(stderr, "solvanta: unknown command '%s'\n\n%s", argv[1], kUsage);
  return 2;
}
