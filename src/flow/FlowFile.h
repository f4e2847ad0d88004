// Flow files: a person's journey through the app, written in YAML. A file holds an optional
// header document (`appId`, `world`), a `---`, then a list of commands:
//
//   appId: solvanta
//   world: {photos: [{created: "2023-06-10T09:15:00Z"}], photoAccess: authorized}
//   ---
//   - launchApp
//   - tapOn: {id: photoButton}
//   - assertVisible: "Find Duplicate Photos"
//
// Parsing checks everything that can be checked without running: the YAML itself, the header
// and world keys, every command's name and the shape of its argument, and the files `runFlow`
// names (read and checked in turn). Any fault is a FlowSyntaxError naming the file and line.
// Pure functions of their input; any thread.
#pragma once

#include <yaml-cpp/yaml.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "flow/WorldSetup.h"

namespace flow {

// A file that is not a valid flow: `file`:`line` (1-based; 0 when the file as a whole is at
// fault) and what is wrong, with the known names where a name was unknown.
class FlowSyntaxError : public std::runtime_error {
 public:
  FlowSyntaxError(std::string file, int line, const std::string& message)
      : std::runtime_error(message), file_(std::move(file)), line_(line) {}
  const std::string& file() const { return file_; }
  int line() const { return line_; }
  // "FILE:LINE: message".
  std::string located() const;

 private:
  std::string file_;
  int line_;
};

// One command of a flow, where it was written, and its argument as written (a null node when
// there is none). `steps` holds the commands of `repeat` and the commands of the file `runFlow`
// names; `times` the count of `repeat`.
struct Step {
  std::string file;
  int line = 0;
  std::string command;
  YAML::Node argument;
  std::vector<Step> steps;
  int times = 0;
};

struct Flow {
  std::string file;
  std::string appId = "solvanta";
  WorldSetup world;
  std::vector<Step> steps;
};

// Parses the flow in `text`, named `file` in messages. `runFlow` paths are read relative to
// the folder of `file`. Throws FlowSyntaxError.
Flow parseFlow(const std::string& file, const std::string& text);
// Reads and parses the file at `path`. Throws FlowSyntaxError (an unreadable file included).
Flow loadFlowFile(const std::string& path);

// The command names a flow may use, in alphabetical order.
std::vector<std::string> commandNames();

}  // namespace flow
