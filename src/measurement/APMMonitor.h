// APMMonitor: the measurement client's log. Every message goes out with a level from 0 to 8
// (lower is louder) and a numeric message code. The installed sink receives every entry; the
// default sink prints entries at or above the console threshold through kit::printLine.
// Thread-safe: any queue may log.
#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kit/Console.h"

// Named levels. Values in between are valid; 8 is the most verbose.
enum APMMonitorLevel : int {
  kAPMMonitorLevelError = 0,
  kAPMMonitorLevelWarning = 3,
  kAPMMonitorLevelNotice = 5,
  kAPMMonitorLevelDebug = 7,
  kAPMMonitorLevelMax = 8,
};

struct APMMonitorEntry {
  int level = 0;
  int messageCode = 0;
  // The message as written, without its context.
  std::string message;
  // The values that go along with the message, in order (its "Name, error" part).
  std::vector<std::string> context;

  // "<message>: <context joined by ", ">", or the message alone without context.
  std::string line() const;
};

class APMMonitorSink {
 public:
  virtual ~APMMonitorSink() = default;
  // Called under the monitor's lock; must not log.
  virtual void write(const APMMonitorEntry& entry) = 0;
};

class APMMonitor {
 public:
  // Logs `message` at `level` with `messageCode`; `context` values are rendered with
  // kit::describe.
  template <class... Context>
  static void log(int level, int messageCode, std::string message, const Context&... context) {
    if (!isLoggable(level)) return;
    APMMonitorEntry entry{level, messageCode, std::move(message), {}};
    entry.context.reserve(sizeof...(Context));
    (entry.context.push_back(kit::describe(context)), ...);
    write(std::move(entry));
  }

  static void write(APMMonitorEntry entry);

  // Whether an entry at `level` goes anywhere: always with an installed sink, else when the
  // console prints it. Lets callers skip building what nobody reads.
  static bool isLoggable(int level);

  // Installs `sink` (not owned; nullptr restores the console sink) and returns the previous.
  static APMMonitorSink* setSink(APMMonitorSink* sink);

  // The console sink prints entries whose level is at most `level` (default: warning).
  static void setConsoleLevel(int level);
};

// Captures every entry while it lives; restores the previous sink on destruction. For tests.
class APMMonitorCapture : public APMMonitorSink {
 public:
  APMMonitorCapture();
  ~APMMonitorCapture() override;
  APMMonitorCapture(const APMMonitorCapture&) = delete;
  APMMonitorCapture& operator=(const APMMonitorCapture&) = delete;

  void write(const APMMonitorEntry& entry) override;

  std::vector<APMMonitorEntry> entries() const;
  // The first entry whose message equals `message`, or nullptr. The pointer stays valid until
  // the next write or clear.
  const APMMonitorEntry* find(std::string_view message) const;
  bool contains(std::string_view message) const { return find(message) != nullptr; }
  int count(std::string_view message) const;
  void clear();

 private:
  mutable std::mutex mu_;
  std::vector<APMMonitorEntry> entries_;
  APMMonitorSink* previous_;
};
