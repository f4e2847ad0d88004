// solvanta-collector: the local collection server (see Collector.h).
//
//   solvanta-collector [--port N] [--config FILE] [--experiments FILE] [--log FILE]
//                      [--fail STATUS[:COUNT]] [--slow SECONDS[:COUNT]] [--drop COUNT]
//
// Prints "listening on http://127.0.0.1:PORT" once it answers, and runs until interrupted.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <nlohmann/json.hpp>

#include "collector/Collector.h"

namespace {

volatile std::sig_atomic_t gStop = 0;

const char* kUsage =
    "Usage: solvanta-collector [--port N] [--config FILE] [--experiments FILE] [--log FILE]\n"
    "                          [--fail STATUS[:COUNT]] [--slow SECONDS[:COUNT]] [--drop COUNT]\n"
    "                          [--deep-link URL [--deep-link-parameters JSON]]\n"
    "Serves the measurement configuration in FILE (protobuf text) and the experiment snapshots\n"
    "of the experiments FILE (protobuf text of an experiment response), and appends one JSON\n"
    "line per uploaded event to the log. Binds to 127.0.0.1 only; port 0 picks a free one.\n";

}  // namespace

int main(int argc, char** argv) {
  collector::CollectorOptions options;
  std::vector<std::pair<collector::Fault, int>> faults;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    auto value = [&]() -> std::string {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "solvanta-collector: %s needs a value\n%s", arg.c_str(), kUsage);
        std::exit(2);
      }
      return argv[++i];
    };
    std::optional<collector::Fault> fault;
    int count = 1;
    if (arg == "--port") {
      options.port = std::atoi(value().c_str());
    } else if (arg == "--config") {
      options.configPath = value();
    } else if (arg == "--experiments") {
      options.experimentsPath = value();
    } else if (arg == "--deep-link") {
      options.deferredDeepLink = value();
    } else if (arg == "--deep-link-parameters") {
      options.deferredDeepLinkParameters = value();
      auto parsed = nlohmann::json::parse(options.deferredDeepLinkParameters, nullptr, false);
      if (!parsed.is_object()) {
        std::fprintf(stderr, "solvanta-collector: --deep-link-parameters needs a JSON object, "
                             "like '{\"_cc\": 1}'\n");
        return 2;
      }
    } else if (arg == "--log") {
      options.logPath = value();
    } else if (arg == "--fail") {
      fault = collector::parseFault(value(), &count);
    } else if (arg == "--slow") {
      fault = collector::parseFault("slow:" + value(), &count);
    } else if (arg == "--drop") {
      fault = collector::parseFault("drop:" + value(), &count);
    } else if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    } else {
      std::fprintf(stderr, "solvanta-collector: unknown option '%s'\n%s", arg.c_str(), kUsage);
      return 2;
    }
    if ((arg == "--fail" || arg == "--slow" || arg == "--drop")) {
      if (!fault) {
        std::fprintf(stderr, "solvanta-collector: bad fault '%s'\n", argv[i]);
        return 2;
      }
      faults.emplace_back(*fault, count);
    }
  }
  collector::Collector server(options);
  for (auto& [fault, count] : faults) server.inject(fault, count);
  std::string error;
  if (!server.start(&error)) {
    std::fprintf(stderr, "solvanta-collector: %s\n", error.c_str());
    return 1;
  }
  std::printf("listening on %s\n", server.host().c_str());
  std::fflush(stdout);
  std::signal(SIGINT, [](int) { gStop = 1; });
  std::signal(SIGTERM, [](int) { gStop = 1; });
  while (!gStop) std::this_thread::sleep_for(std::chrono::milliseconds(100));
  server.stop();
  std::printf("%s\n", server.statsJSON().c_str());
  return 0;
}
