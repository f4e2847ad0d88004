#include "measurement/APMMonitor.h"

#include <atomic>

namespace {

std::mutex gMutex;
APMMonitorSink* gSink = nullptr;
int gConsoleLevel = kAPMMonitorLevelWarning;
// Mirrors of the two above, for isLoggable without the lock.
std::atomic<bool> gHasSink{false};
std::atomic<int> gConsoleLevelMirror{kAPMMonitorLevelWarning};

}  // namespace

std::string APMMonitorEntry::line() const {
  std::string text = message;
  for (std::size_t i = 0; i < context.size(); ++i) {
    text += i == 0 ? ": " : ", ";
    text += context[i];
  }
  return text;
}

void APMMonitor::write(APMMonitorEntry entry) {
  std::lock_guard lock(gMutex);
  if (gSink) {
    gSink->write(entry);
    return;
  }
  if (entry.level <= gConsoleLevel) {
    kit::printLine("APM " + std::to_string(entry.level) + " " + std::to_string(entry.messageCode) +
                   " " + entry.line());
  }
}

APMMonitorSink* APMMonitor::setSink(APMMonitorSink* sink) {
  std::lock_guard lock(gMutex);
  APMMonitorSink* previous = gSink;
  gSink = sink;
  gHasSink = sink != nullptr;
  return previous;
}

void APMMonitor::setConsoleLevel(int level) {
  std::lock_guard lock(gMutex);
  gConsoleLevel = level;
  gConsoleLevelMirror = level;
}

bool APMMonitor::isLoggable(int level) {
  return gHasSink.load(std::memory_order_relaxed) ||
         level <= gConsoleLevelMirror.load(std::memory_order_relaxed);
}

APMMonitorCapture::APMMonitorCapture() { previous_ = APMMonitor::setSink(this); }

APMMonitorCapture::~APMMonitorCapture() { APMMonitor::setSink(previous_); }

void APMMonitorCapture::write(const APMMonitorEntry& entry) {
  std::lock_guard lock(mu_);
  entries_.push_back(entry);
}

std::vector<APMMonitorEntry> APMMonitorCapture::entries() const {
  std::lock_guard lock(mu_);
  return entries_;
}

const APMMonitorEntry* APMMonitorCapture::find(std::string_view message) const {
  std::lock_guard lock(mu_);
  for (const auto& e : entries_) {
    if (e.message == message) return &e;
  }
  return nullptr;
}

int APMMonitorCapture::count(std::string_view message) const {
  std::lock_guard lock(mu_);
  int n = 0;
  for (const auto& e : entries_) n += (e.message == message);
  return n;
}

void APMMonitorCapture::clear() {
  std::lock_guard lock(mu_);
  entries_.clear();
}
