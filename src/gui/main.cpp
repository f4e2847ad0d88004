// solvanta: the desktop app, and its command line (`solvanta scan`, `flow`, `measurement`).
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli/MeasurementCommand.h"
#include "cli/ScanCommand.h"
#include "flow/FlowCommand.h"
#include "gui/FlowScreenshots.h"
#include "gui/GuiMain.h"

namespace {

const char* const kUsage =
    "Usage: solvanta [--library DIR] [--contacts DIR] [LAUNCH ARGUMENTS] [solvanta://URL]\n"
    "       solvanta --screenshot DIR\n"
    "       solvanta <command> [options]\n"
    "\n"
    "Solvanta finds duplicate photos and videos in a photo library.\n"
    "With no command it opens its window on the library (by default your pictures folder).\n"
    "\n"
    "Options:\n"
    "  --library DIR      the photo library's folder (also SOLVANTA_LIBRARY)\n"
    "  --contacts DIR     the address book: a folder of .vcf files (also SOLVANTA_CONTACTS;\n"
    "                     default $XDG_DATA_HOME/contacts)\n"
    "  --screenshot DIR   run the screenshot journey (flows/screenshots.yaml) offscreen on a\n"
    "                     simulated phone, writing its PNGs to DIR\n"
    "  solvanta://...     the URL that opens the app (its utm_* keys are reported as a campaign);\n"
    "                     handed to the running app when there is one\n"
    "\n"
    "Launch arguments of the measurement client (each may be followed by YES or NO):\n"
    "  -APMAnalyticsDebugEnabled, -ORXAnalyticsDebugEnabled, -ORXDebugEnabled    debug mode on\n"
    "  -noAPMAnalyticsDebugEnabled, -noORXAnalyticsDebugEnabled, -ORXDebugDisabled  off\n"
    "  -APMAnalyticsVerboseLoggingEnabled, -ORXAnalyticsVerboseLoggingEnabled   verbose log on\n"
    "  -APMAnalyticsVerboseLoggingDisabled, -ORXAnalyticsVerboseLoggingDisabled  off\n"
    "  -DebugDeferredDeepLink   mark deferred deep-link requests as tests\n"
    "  Debug mode and verbose logging stay as set until a launch turns them off.\n"
    "\n"
    "Property-list keys (ORVEX_ANALYTICS_COLLECTION_ENABLED, STUVOP_ANALYTICS_DEFAULT_ALLOW_AD_STORAGE,\n"
    "...) come from the \"infoPlist\" object of the deployment file (see the README).\n"
    "\n"
    "Commands:\n"
    "  scan         find duplicates from the command line (solvanta scan --help)\n"
    "  flow         run flow files: scripted journeys on a simulated phone (solvanta flow --help)\n"
    "  measurement  show what the app's measurement records (solvanta measurement --help)\n"
    "  help         show this text\n"
    "  version      print the version\n";

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (!args.empty()) {
    const std::string& first = args.front();
    if (first == "help" || first == "--help" || first == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (first == "version" || first == "--version") {
      std::puts("solvanta 0.1.0");
      return 0;
    }
    if (first == "scan") return cli::runScan(std::vector<std::string>(args.begin() + 1, args.end()), stdout, stderr);
    if (first == "measurement") {
      return cli::runMeasurement(std::vector<std::string>(args.begin() + 1, args.end()), stdout, stderr);
    }
    if (first == "flow") return gui::runFlows(std::vector<std::string>(args.begin() + 1, args.end()), argv[0]);
    if (first.rfind("-", 0) != 0 && first.rfind("solvanta:", 0) != 0) {
      std::fprintf(stderr, "solvanta: unknown command '%s'\n\n%s", first.c_str(), kUsage);
      return 2;
    }
  }
  return gui::runApp(args, argv[0]);
}
