#include "kit/Console.h"

#include <cmath>
#include <cstdio>

namespace kit {
namespace {

std::mutex gMutex;
ConsoleSink* gSink = nullptr;

}  // namespace

ConsoleSink* setConsoleSink(ConsoleSink* sink) {
  std::lock_guard lock(gMutex);
  ConsoleSink* previous = gSink;
  gSink = sink;
  return previous;
}

void printLine(std::string_view line) {
  std::lock_guard lock(gMutex);
  if (gSink) {
    gSink->write(line);
    return;
  }
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

std::string describe(double d) {
  if (std::isnan(d)) return "nan";
  if (std::isinf(d)) return d > 0 ? "inf" : "-inf";
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.15g", d);
  std::string s = buf;
  if (s.find_first_of(".e") == std::string::npos) s += ".0";
  return s;
}

ConsoleCapture::ConsoleCapture() { previous_ = setConsoleSink(this); }

ConsoleCapture::~ConsoleCapture() { setConsoleSink(previous_); }

void ConsoleCapture::write(std::string_view line) {
  std::lock_guard lock(mu_);
  lines_.emplace_back(line);
}

std::vector<std::string> ConsoleCapture::lines() const {
  std::lock_guard lock(mu_);
  return lines_;
}

bool ConsoleCapture::contains(std::string_view line) const { return count(line) > 0; }

int ConsoleCapture::count(std::string_view line) const {
  std::lock_guard lock(mu_);
  int n = 0;
  for (const auto& l : lines_) n += (l == line);
  return n;
}

void ConsoleCapture::clear() {
  std::lock_guard lock(mu_);
  lines_.clear();
}

}  // namespace kit
