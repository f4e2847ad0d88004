// The console: every line the app prints (its `print` and `NSLog` output) goes through one
// sink, so that tests can read the printed texts and the command line can keep them off its
// own output.
#pragma once

#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace kit {

// Receives whole lines, without the trailing newline. Called from any thread; the console
// serialises calls.
class ConsoleSink {
 public:
  virtual ~ConsoleSink() = default;
  virtual void write(std::string_view line) = 0;
};

// Installs `sink` (not owned; nullptr restores the default, standard output) and returns the
// previous one.
ConsoleSink* setConsoleSink(ConsoleSink* sink);

// Writes one line to the installed sink. Thread-safe.
void printLine(std::string_view line);

// Text of one printed item, as the original's `print` renders it: integers in decimal, reals
// with at least one decimal place ("1.0"), booleans as "true"/"false".
inline std::string describe(std::string_view s) { return std::string(s); }
inline std::string describe(const char* s) { return s; }
inline std::string describe(const std::string& s) { return s; }
inline std::string describe(bool b) { return b ? "true" : "false"; }
std::string describe(double d);
template <class T>
  requires std::is_integral_v<T>
std::string describe(T v) {
  return std::to_string(v);
}

// Prints `items` separated by one blank, then a line break, like the original's `print`.
template <class... Items>
void print(const Items&... items) {
  std::string line;
  bool first = true;
  ((line += (first ? "" : " "), line += describe(items), first = false), ...);
  printLine(line);
}

// The original's `NSLog`: one line, as given.
inline void NSLog(std::string_view text) { printLine(text); }

// Captures every console line while it lives (installs itself as the sink and restores the
// previous sink on destruction). For tests.
class ConsoleCapture : public ConsoleSink {
 public:
  ConsoleCapture();
  ~ConsoleCapture() override;
  ConsoleCapture(const ConsoleCapture&) = delete;
  ConsoleCapture& operator=(const ConsoleCapture&) = delete;

  void write(std::string_view line) override;
  std::vector<std::string> lines() const;
  // True when some captured line equals `line` exactly.
  bool contains(std::string_view line) const;
  // Number of captured lines equal to `line`.
  int count(std::string_view line) const;
  void clear();

 private:
  mutable std::mutex mu_;
  std::vector<std::string> lines_;
  ConsoleSink* previous_;
};

}  // namespace kit
