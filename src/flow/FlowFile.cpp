#include "flow/FlowFile.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include <yaml-cpp/eventhandler.h>

#include "flow/YamlValues.h"

namespace flow {

std::string FlowSyntaxError::located() const {
  return file_ + ":" + std::to_string(line_) + ": " + what();
}

namespace {

// How deep runFlow and repeat may nest, and how many times a repeat may run.
constexpr int kMaxDepth = 16;
constexpr long long kMaxTimes = 10000;
// How many commands a flow may write out, repeats' and other files' included (aliases could
// otherwise multiply a few lines into millions).
constexpr long kMaxSteps = 100000;

using Check = std::function<std::string(const YAML::Node&)>;

std::string joined(const std::vector<std::string>& names) {
  std::string s;
  for (const auto& n : names) s += (s.empty() ? "" : ", ") + n;
  return s;
}

// A map whose keys are all among `known`.
std::string mapWith(const YAML::Node& n, const std::vector<std::string>& known) {
  if (!n.IsMap()) return "expected a map with " + joined(known);
  for (const auto& kv : n) {
    const std::string key = kv.first.IsScalar() ? kv.first.Scalar() : "?";
    if (std::find(known.begin(), known.end(), key) == known.end()) {
      return "unknown key '" + key + "' (known: " + joined(known) + ")";
    }
  }
  return {};
}

std::string text(const YAML::Node& n) { return isScalar(n) ? "" : "expected a text"; }

std::string none(const YAML::Node& n) { return n.IsNull() ? "" : "takes no argument"; }

std::string wholeAtLeast(const YAML::Node& n, long long least, const char* what) {
  auto v = integer(n);
  if (!v || *v < least) return std::string("expected ") + what;
  return {};
}

// A selector: a text, or a map of id, text, index, section, row and in (a selector of the
// list cell to look in, at most kMaxDepth deep), plus `extra` keys.
std::string selector(const YAML::Node& n, const std::vector<std::string>& extra, int depth = 0) {
  if (depth > kMaxDepth) return "selectors nest too deeply";
  if (isScalar(n)) return n.Scalar().empty() ? "expected a text that is not empty" : "";
  std::vector<std::string> keys = {"id", "text", "index", "section", "row", "in"};
  keys.insert(keys.end(), extra.begin(), extra.end());
  if (auto e = mapWith(n, keys); !e.empty()) return e;
  if (!n["id"] && !n["text"]) return "a selector needs id or text";
  if (n["id"] && !isScalar(n["id"])) return "id: expected an outlet name";
  if (n["text"] && !isScalar(n["text"])) return "text: expected a text";
  for (const char* k : {"index", "section", "row"}) {
    if (n[k]) {
      if (auto e = wholeAtLeast(n[k], 0, "a whole number, 0 or more"); !e.empty()) return std::string(k) + ": " + e;
      if (!n["id"]) return std::string(k) + ": needs the id of a list";
    }
  }
  if (n["index"] && (n["section"] || n["row"])) return "index and section/row exclude each other";
  if (n["in"]) {
    if (auto e = selector(n["in"], {}, depth + 1); !e.empty()) return "in: " + e;
  }
  for (const char* k : {"enabled", "selected"}) {
    if (n[k] && !boolean(n[k])) {
      return std::string(k) + ": expected true or false";
    }
  }
  return {};
}

std::string assertion(const YAML::Node& n) { return selector(n, {"enabled", "selected"}); }

std::string wait(const YAML::Node& n) {
  if (auto e = mapWith(n, {"visible", "notVisible", "screen", "timeout"}); !e.empty()) return e;
  int conditions = (n["visible"] ? 1 : 0) + (n["notVisible"] ? 1 : 0) + (n["screen"] ? 1 : 0);
  if (conditions != 1) return "expected exactly one of visible, notVisible, screen";
  if (n["visible"]) {
    if (auto e = assertion(n["visible"]); !e.empty()) return "visible: " + e;
  }
  if (n["notVisible"]) {
    if (auto e = assertion(n["notVisible"]); !e.empty()) return "notVisible: " + e;
  }
  if (n["screen"] && !isScalar(n["screen"])) return "screen: expected a screen identifier";
  if (n["timeout"]) {
    auto t = number(n["timeout"]);
    if (!t || *t <= 0) return "timeout: expected seconds, more than 0";
  }
  return {};
}

const std::map<std::string, Check>& checks() {
  static const std::map<std::string, Check> table = {
      {"launchApp",
       [](const YAML::Node& n) -> std::string {
         if (n.IsNull()) return {};
         if (auto e = mapWith(n, {"screen"}); !e.empty()) return e;
         return isScalar(n["screen"]) ? "" : "screen: expected a screen identifier";
       }},
      {"tapOn", [](const YAML::Node& n) { return selector(n, {}); }},
      {"longPressOn", [](const YAML::Node& n) { return selector(n, {}); }},
      {"inputText",
       [](const YAML::Node& n) -> std::string {
         if (isScalar(n)) return {};
         if (auto e = mapWith(n, {"id", "text"}); !e.empty()) return e;
         if (!isScalar(n["text"])) return "text: expected the text to type";
         return n["id"] && !isScalar(n["id"]) ? "id: expected an outlet name" : "";
       }},
      {"eraseText", [](const YAML::Node& n) { return wholeAtLeast(n, 0, "a number of characters, 0 or more"); }},
      {"back", none},
      {"enterBackground", none},
      {"enterForeground", none},
      {"backgroundWork",
       [](const YAML::Node& n) -> std::string {
         return isScalar(n) && (n.Scalar() == "hold" || n.Scalar() == "run") ? "" : "expected hold or run";
       }},
      {"advance",
       [](const YAML::Node& n) -> std::string {
         auto v = number(n);
         if (!v) return "expected seconds";
         return *v < 0 ? "expected seconds, 0 or more (the clock never goes back)" : "";
       }},
      {"answerPrompt",
       [](const YAML::Node& n) -> std::string {
         return isScalar(n) && (n.Scalar() == "allow" || n.Scalar() == "deny") ? "" : "expected allow or deny";
       }},
      {"changeSettings",
       [](const YAML::Node& n) -> std::string {
         if (auto e = mapWith(n, {"photos", "contacts"}); !e.empty()) return e;
         for (const char* k : {"photos", "contacts"}) {
           if (n[k] && !(isScalar(n[k]) && (n[k].Scalar() == "authorized" || n[k].Scalar() == "denied")))
             return std::string(k) + ": expected authorized or denied";
         }
         return {};
       }},
      {"assertVisible", assertion},
      {"assertNotVisible", assertion},
      {"waitFor", wait},
      {"assertScreen", text},
      {"assertAlert",
       [](const YAML::Node& n) -> std::string {
         if (auto e = mapWith(n, {"title", "message", "actions"}); !e.empty()) return e;
         for (const char* k : {"title", "message"}) {
           if (n[k] && !isScalar(n[k])) return std::string(k) + ": expected a text";
         }
         if (n["actions"]) {
           if (!n["actions"].IsSequence()) return "actions: expected a list of action titles";
           for (const auto& a : n["actions"]) {
             if (!isScalar(a)) return "actions: expected a list of action titles";
           }
         }
         return {};
       }},
      {"assertToast", text},
      {"assertConsole", text},
      {"assertHud", text},
      {"assertOpened", text},
      {"assertPasteboard", text},
      {"assertPreference",
       [](const YAML::Node& n) -> std::string {
         if (auto e = mapWith(n, {"key", "equals"}); !e.empty()) return e;
         if (!isScalar(n["key"])) return "key: expected a preference key";
         if (!isScalar(n["equals"])) return "equals: expected a number, true/false or a text";
         return {};
       }},
      {"assertLibrary",
       [](const YAML::Node& n) -> std::string {
         if (auto e = mapWith(n, {"photos", "videos", "deleted"}); !e.empty()) return e;
         for (const char* k : {"photos", "videos"}) {
           if (n[k]) {
             if (auto e = wholeAtLeast(n[k], 0, "a count"); !e.empty()) return std::string(k) + ": " + e;
           }
         }
         if (n["deleted"]) {
           if (!n["deleted"].IsSequence()) return "deleted: expected a list of asset names";
           for (const auto& a : n["deleted"]) {
             if (!isScalar(a)) return "deleted: expected a list of asset names";
           }
         }
         return {};
       }},
      {"assertAd",
       [](const YAML::Node& n) -> std::string {
         if (auto e = mapWith(n, {"shown"}); !e.empty()) return e;
         const YAML::Node s = n["shown"];
         if (isScalar(s) && (s.Scalar() == "interstitial" || s.Scalar() == "appOpen" || s.Scalar() == "none")) return {};
         return "shown: expected interstitial, appOpen or none";
       }},
      {"assertAdLoads",
       [](const YAML::Node& n) -> std::string {
         if (auto e = mapWith(n, {"interstitial", "appOpen", "banner"}); !e.empty()) return e;
         for (const char* k : {"interstitial", "appOpen", "banner"}) {
           if (n[k]) {
             if (auto e = wholeAtLeast(n[k], 0, "a count"); !e.empty()) return std::string(k) + ": " + e;
           }
         }
         return {};
       }},
      {"assertEvent",
       [](const YAML::Node& n) -> std::string {
         if (isScalar(n)) return n.Scalar().empty() ? "expected an event name" : "";
         if (auto e = mapWith(n, {"name", "count", "params"}); !e.empty()) return e;
         if (!isScalar(n["name"]) || n["name"].Scalar().empty()) return "name: expected an event name";
         if (n["count"]) {
           if (auto e = wholeAtLeast(n["count"], 0, "a count"); !e.empty()) return "count: " + e;
         }
         if (n["params"]) {
           if (!n["params"].IsMap()) return "params: expected a map of parameter names to values";
           for (const auto& p : n["params"]) {
             if (!isScalar(p.second)) return "params: expected a number or a text for " + p.first.Scalar();
           }
         }
         return {};
       }},
      {"assertRawEvents", [](const YAML::Node& n) { return wholeAtLeast(n, 0, "a count of waiting events"); }},
      {"takeScreenshot",
       [](const YAML::Node& n) -> std::string {
         if (!isScalar(n) || n.Scalar().empty()) return "expected a name";
         for (char c : n.Scalar()) {
           if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_' && c != '.') {
             return "expected a name of letters, digits, '-', '_' and '.'";
           }
         }
         return n.Scalar()[0] == '.' ? "expected a name that does not start with '.'" : "";
       }},
      {"dump", none},
      {"runFlow", text},
      {"repeat",
       [](const YAML::Node& n) -> std::string {
         if (auto e = mapWith(n, {"times", "commands"}); !e.empty()) return e;
         auto t = integer(n["times"]);
         if (!t || *t < 0 || *t > kMaxTimes) return "times: expected a count from 0 to " + std::to_string(kMaxTimes);
         if (!n["commands"].IsSequence()) return "commands: expected a list of commands";
         return {};
       }},
  };
  return table;
}

std::string folderOf(const std::string& file) {
  auto slash = file.rfind('/');
  return slash == std::string::npos ? "" : file.substr(0, slash + 1);
}

// Flow files are small: a regular file of at most this many bytes (never a device or a pipe).
constexpr std::uintmax_t kMaxFileSize = 1 << 20;

std::string readText(const std::string& path, bool* ok) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec) || std::filesystem::file_size(path, ec) > kMaxFileSize || ec) {
    *ok = false;
    return {};
  }
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  *ok = static_cast<bool>(in) || in.eof();
  if (!in.is_open()) *ok = false;
  return s.str();
}

// Counts the documents of a YAML stream without building them. The YAML reader can report
// documents without end for some malformed streams (a stray ',' after the last node); a flow
// has at most two, so counting stops at the third, with its line.
class DocumentCounter : public YAML::EventHandler {
 public:
  explicit DocumentCounter(std::string file) : file_(std::move(file)) {}
  void OnDocumentStart(const YAML::Mark& mark) override { line_ = mark.line < 0 ? 0 : mark.line + 1; }
  void OnDocumentEnd() override {}
  void OnNull(const YAML::Mark&, YAML::anchor_t) override {}
  void OnAlias(const YAML::Mark&, YAML::anchor_t) override {}
  void OnScalar(const YAML::Mark&, const std::string&, YAML::anchor_t, const std::string&) override {}
  void OnSequenceStart(const YAML::Mark&, const std::string&, YAML::anchor_t, YAML::EmitterStyle::value) override {}
  void OnSequenceEnd() override {}
  void OnMapStart(const YAML::Mark&, const std::string&, YAML::anchor_t, YAML::EmitterStyle::value) override {}
  void OnMapEnd() override {}

  void count(const std::string& text) {
    std::istringstream in(text);
    YAML::Parser parser(in);
    for (int documents = 1; parser.HandleNextDocument(*this); ++documents) {
      if (documents > 2) {
        throw FlowSyntaxError(file_, line_, "a flow is a header, '---', and a list of commands; found more documents");
      }
    }
  }

 private:
  std::string file_;
  int line_ = 0;
};

class Parser {
 public:
  Parser(std::vector<std::string> chain, long* steps) : chain_(std::move(chain)), steps_(steps) {}

  Flow parse(const std::string& file, const std::string& text) {
    Flow flow;
    flow.file = file;
    std::vector<YAML::Node> docs;
    try {
      DocumentCounter(file).count(text);
      docs = YAML::LoadAll(text);
    } catch (const YAML::Exception& e) {
      throw FlowSyntaxError(file, e.mark.line < 0 ? 0 : e.mark.line + 1, "not valid YAML: " + e.msg);
    }
    YAML::Node header, commands;
    if (docs.size() == 1) {
      if (docs[0].IsMap()) header = docs[0];
      else commands = docs[0];
    } else if (docs.size() == 2) {
      header = docs[0];
      commands = docs[1];
    }
    if (header && !header.IsNull()) readHeader(file, header, flow);
    if (commands && !commands.IsNull()) {
      if (!commands.IsSequence()) throw FlowSyntaxError(file, lineOf(commands), "expected a list of commands");
      flow.steps = readSteps(file, commands, 0);
    }
    return flow;
  }

 private:
  void readHeader(const std::string& file, const YAML::Node& header, Flow& flow) {
    if (!header.IsMap()) throw FlowSyntaxError(file, lineOf(header), "the header must be a map (appId, world)");
    for (const auto& kv : header) {
      const std::string key = kv.first.IsScalar() ? kv.first.Scalar() : "?";
      if (key == "appId") {
        if (!isScalar(kv.second) || kv.second.Scalar() != "solvanta") {
          throw FlowSyntaxError(file, lineOf(kv.second), "appId: expected solvanta");
        }
      } else if (key == "world") {
        int line = 0;
        if (std::string e = readWorld(kv.second, flow.world, &line); !e.empty()) throw FlowSyntaxError(file, line, e);
      } else {
        throw FlowSyntaxError(file, lineOf(kv.first), "unknown header key '" + key + "' (known: appId, world)");
      }
    }
  }

  std::vector<Step> readSteps(const std::string& file, const YAML::Node& list, int depth) {
    if (depth > kMaxDepth) throw FlowSyntaxError(file, lineOf(list), "commands nest too deeply");
    std::vector<Step> steps;
    for (const auto& item : list) steps.push_back(readStep(file, item, depth));
    return steps;
  }

  Step readStep(const std::string& file, const YAML::Node& item, int depth) {
    if (++*steps_ > kMaxSteps) {
      throw FlowSyntaxError(file, lineOf(item), "more than " + std::to_string(kMaxSteps) + " commands in all");
    }
    Step step;
    step.file = file;
    step.line = lineOf(item);
    if (isScalar(item)) {
      step.command = item.Scalar();
      step.argument = YAML::Node(YAML::NodeType::Null);
    } else if (item.IsMap() && item.size() == 1) {
      auto kv = item.begin();
      if (!kv->first.IsScalar()) throw FlowSyntaxError(file, step.line, "a command's name must be a text");
      step.command = kv->first.Scalar();
      step.argument = kv->second;
    } else {
      throw FlowSyntaxError(file, step.line, "a command is a name, or a map of one name to its argument");
    }
    auto it = checks().find(step.command);
    if (it == checks().end()) {
      throw FlowSyntaxError(file, step.line,
                            "unknown command '" + step.command + "' (known: " + joined(commandNames()) + ")");
    }
    if (std::string e = it->second(step.argument); !e.empty()) {
      throw FlowSyntaxError(file, step.line, step.command + ": " + e);
    }
    if (step.command == "repeat") {
      step.times = static_cast<int>(step.argument["times"].as<long long>());
      step.steps = readSteps(file, step.argument["commands"], depth + 1);
    } else if (step.command == "runFlow") {
      std::string path = step.argument.Scalar();
      if (path.empty() || path[0] != '/') path = folderOf(file) + path;
      if (std::find(chain_.begin(), chain_.end(), path) != chain_.end()) {
        throw FlowSyntaxError(file, step.line, "runFlow: " + path + " runs itself in the end");
      }
      if (chain_.size() > kMaxDepth) throw FlowSyntaxError(file, step.line, "runFlow: flows nest too deeply");
      bool ok = false;
      std::string text = readText(path, &ok);
      if (!ok) throw FlowSyntaxError(file, step.line, "runFlow: cannot read " + path);
      std::vector<std::string> chain = chain_;
      chain.push_back(path);
      step.steps = Parser(chain, steps_).parse(path, text).steps;
    }
    return step;
  }

  std::vector<std::string> chain_;
  long* steps_;
};

}  // namespace

std::vector<std::string> commandNames() {
  std::vector<std::string> names;
  for (const auto& [name, check] : checks()) names.push_back(name);
  return names;
}

Flow parseFlow(const std::string& file, const std::string& text) {
  try {
    long steps = 0;
    return Parser({file}, &steps).parse(file, text);
  } catch (const YAML::Exception& e) {
    // A node of an unexpected kind deep in the argument: still the file's fault.
    throw FlowSyntaxError(file, e.mark.line < 0 ? 0 : e.mark.line + 1, "unexpected YAML: " + e.msg);
  }
}

Flow loadFlowFile(const std::string& path) {
  bool ok = false;
  std::string text = readText(path, &ok);
  if (!ok) throw FlowSyntaxError(path, 0, "cannot read the file");
  return parseFlow(path, text);
}

}  // namespace flow
