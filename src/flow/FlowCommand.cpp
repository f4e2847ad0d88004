#include "flow/FlowCommand.h"

#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>

namespace flow {

const char* const kFlowUsage =
    "Usage: solvanta flow [--screenshots DIR] [--json] [--junit FILE] FILE|DIR...\n"
    "\n"
    "Runs flow files (YAML journeys through the app) on a simulated phone with a virtual\n"
    "clock; a folder stands for every *.yaml in it, in name order.\n"
    "\n"
    "  --screenshots DIR  write each takeScreenshot as DIR/NAME.png (390x844)\n"
    "  --json             one JSON object per command: file, line, command, ok, message,\n"
    "                     virtualTime\n"
    "  --junit FILE       a JUnit XML report, one test case per flow\n"
    "\n"
    "Exit status: 0 all passed, 1 a flow failed, 2 a file does not parse or bad arguments.\n";

namespace {

namespace fs = std::filesystem;

struct Options {
  std::string screenshotDir;
  bool json = false;
  std::string junit;
  std::vector<std::string> paths;
};

std::optional<Options> parseArgs(const std::vector<std::string>& args, std::string* error, bool* help) {
  Options o;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&](const char* name, std::string* out) {
      const std::string n = name;
      if (a.rfind(n + "=", 0) == 0) {
        *out = a.substr(n.size() + 1);
        return true;
      }
      if (a == n) {
        if (i + 1 >= args.size()) return false;
        *out = args[++i];
        return true;
      }
      return false;
    };
    if (a == "--help" || a == "-h") {
      *help = true;
      return o;
    }
    if (a == "--json") {
      o.json = true;
    } else if (a.rfind("--screenshots", 0) == 0) {
      if (!value("--screenshots", &o.screenshotDir) || o.screenshotDir.empty()) {
        *error = "--screenshots needs a folder";
        return std::nullopt;
      }
    } else if (a.rfind("--junit", 0) == 0) {
      if (!value("--junit", &o.junit) || o.junit.empty()) {
        *error = "--junit needs a file";
        return std::nullopt;
      }
    } else if (a.rfind("-", 0) == 0 && a != "-") {
      *error = "unknown option '" + a + "'";
      return std::nullopt;
    } else {
      o.paths.push_back(a);
    }
  }
  if (o.paths.empty()) {
    *error = "name at least one flow file or folder";
    return std::nullopt;
  }
  return o;
}

// The flow files `paths` stand for, in order.
std::vector<std::string> expand(const std::vector<std::string>& paths, std::vector<std::string>* problems) {
  std::vector<std::string> files;
  for (const auto& p : paths) {
    std::error_code ec;
    if (fs::is_directory(p, ec)) {
      std::vector<std::string> found;
      for (const auto& entry : fs::directory_iterator(p, ec)) {
        if (entry.is_regular_file() && entry.path().extension() == ".yaml") found.push_back(entry.path().string());
      }
      std::sort(found.begin(), found.end());
      if (found.empty()) problems->push_back(p + ":0: the folder holds no *.yaml file");
      files.insert(files.end(), found.begin(), found.end());
    } else if (fs::exists(p, ec)) {
      files.push_back(p);
    } else {
      problems->push_back(p + ":0: no such file or folder");
    }
  }
  return files;
}

std::string xmlEscaped(const std::string& s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&apos;"; break;
      default:
        // Control characters other than tab and line breaks are not allowed in XML 1.0.
        if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r') out += ' ';
        else out += c;
    }
  }
  return out;
}

struct Outcome {
  std::string file;
  FlowResult result;
  double seconds = 0;
};

bool writeJUnit(const std::string& path, const std::vector<Outcome>& outcomes) {
  int failures = 0;
  double total = 0;
  for (const auto& o : outcomes) {
    failures += o.result.passed ? 0 : 1;
    total += o.seconds;
  }
  std::ofstream out(path);
  out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  out << "<testsuites tests=\"" << outcomes.size() << "\" failures=\"" << failures << "\" errors=\"0\" time=\"" << total
      << "\">\n";
  out << "  <testsuite name=\"flows\" tests=\"" << outcomes.size() << "\" failures=\"" << failures
      << "\" errors=\"0\" skipped=\"0\" time=\"" << total << "\">\n";
  for (const auto& o : outcomes) {
    out << "    <testcase classname=\"flows\" name=\"" << xmlEscaped(o.file) << "\" time=\"" << o.seconds << "\"";
    if (o.result.passed) {
      out << "/>\n";
      continue;
    }
    const StepReport& f = o.result.failure;
    out << ">\n      <failure message=\"" << xmlEscaped(f.file + ":" + std::to_string(f.line) + ": " + f.command + ": " + f.message)
        << "\" type=\"" << xmlEscaped(f.command) << "\">" << xmlEscaped(o.result.screen.dump(2)) << "</failure>\n";
    out << "    </testcase>\n";
  }
  out << "  </testsuite>\n</testsuites>\n";
  return static_cast<bool>(out);
}

// A home of its own for the run, removed afterwards, so that nothing of the user's is touched.
class ScratchHome {
 public:
  ScratchHome() {
    char pattern[] = "/tmp/solvanta-flow-XXXXXX";
    if (const char* dir = mkdtemp(pattern)) {
      path_ = dir;
      for (const char* name : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"}) {
        const char* old = std::getenv(name);
        saved_.push_back({name, old ? std::optional<std::string>(old) : std::nullopt});
      }
      setenv("HOME", path_.c_str(), 1);
      setenv("XDG_CONFIG_HOME", (path_ + "/config").c_str(), 1);
      setenv("XDG_DATA_HOME", (path_ + "/data").c_str(), 1);
      setenv("XDG_CACHE_HOME", (path_ + "/cache").c_str(), 1);
    }
  }
  ~ScratchHome() {
    for (const auto& [name, value] : saved_) {
      if (value) setenv(name.c_str(), value->c_str(), 1);
      else unsetenv(name.c_str());
    }
    std::error_code ec;
    if (!path_.empty()) fs::remove_all(path_, ec);
  }
  ScratchHome(const ScratchHome&) = delete;
  ScratchHome& operator=(const ScratchHome&) = delete;

 private:
  std::string path_;
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

void put(std::FILE* f, const std::string& s) { std::fwrite(s.data(), 1, s.size(), f); }

}  // namespace

bool wantsScreenshots(const std::vector<std::string>& args) {
  return std::any_of(args.begin(), args.end(), [](const std::string& a) { return a.rfind("--screenshots", 0) == 0; });
}

int runFlowCommand(const std::vector<std::string>& args, std::FILE* out, std::FILE* err, ScreenRenderer* renderer) {
  std::string error;
  bool help = false;
  std::optional<Options> options = parseArgs(args, &error, &help);
  if (help) {
    put(out, kFlowUsage);
    return 0;
  }
  if (!options) {
    put(err, "solvanta flow: " + error + "\n\n" + kFlowUsage);
    return 2;
  }
  if (!options->screenshotDir.empty() && !renderer) {
    put(err, "solvanta flow: --screenshots needs the window's renderer, which this build does not have\n");
    return 2;
  }

  std::vector<std::string> problems;
  std::vector<std::string> files = expand(options->paths, &problems);
  std::vector<Flow> flows;
  for (const auto& file : files) {
    try {
      flows.push_back(loadFlowFile(file));
    } catch (const FlowSyntaxError& e) {
      problems.push_back(e.located());
    }
  }
  if (!problems.empty()) {
    for (const auto& p : problems) put(err, p + "\n");
    return 2;
  }
  if (!options->screenshotDir.empty()) {
    std::error_code ec;
    fs::create_directories(options->screenshotDir, ec);
    if (ec) {
      put(err, "solvanta flow: cannot make " + options->screenshotDir + ": " + ec.message() + "\n");
      return 2;
    }
  }

  ScratchHome home;
  RunOptions run;
  run.screenshotDir = options->screenshotDir;
  run.renderer = renderer;
  run.dumpOut = options->json ? err : out;
  if (options->json) {
    run.onStep = [out](const StepReport& r) {
      nlohmann::json j = {{"file", r.file},       {"line", r.line},       {"command", r.command},
                          {"ok", r.ok},           {"message", r.message}, {"virtualTime", r.virtualTime}};
      put(out, j.dump() + "\n");
    };
  }
  std::vector<Outcome> outcomes;
  int failed = 0;
  for (const auto& flow : flows) {
    auto began = std::chrono::steady_clock::now();
    Outcome o{flow.file, runFlow(flow, run), 0};
    o.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    char summary[64];
    std::snprintf(summary, sizeof summary, "%d commands, %.1f s virtual", o.result.commands, o.result.virtualTime);
    if (o.result.passed) {
      if (!options->json) put(out, "PASS " + flow.file + " (" + summary + ")\n");
    } else {
      ++failed;
      const StepReport& f = o.result.failure;
      if (!options->json) put(out, "FAIL " + flow.file + "\n");
      put(err, f.file + ":" + std::to_string(f.line) + ": " + f.command + ": " + f.message + "\n" +
                   "front-most screen: " + o.result.screen.dump(2) + "\n");
    }
    outcomes.push_back(std::move(o));
  }
  if (!options->json) {
    put(out, std::to_string(outcomes.size() - failed) + " passed, " + std::to_string(failed) + " failed\n");
  }
  if (!options->junit.empty() && !writeJUnit(options->junit, outcomes)) {
    put(err, "solvanta flow: cannot write " + options->junit + "\n");
    return 2;
  }
  return failed ? 1 : 0;
}

}  // namespace flow
