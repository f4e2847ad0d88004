#include "kit/Dispatch.h"

#include <atomic>

#include "kit/Fatal.h"

namespace kit {
namespace {
std::atomic<Environment*> gEnvironment{nullptr};
}

Environment& Environment::current() {
  Environment* env = gEnvironment.load(std::memory_order_acquire);
  if (!env) fatal("no environment is installed");
  return *env;
}

bool Environment::isInstalled() { return gEnvironment.load(std::memory_order_acquire) != nullptr; }

void Environment::install() {
  Environment* expected = nullptr;
  if (!gEnvironment.compare_exchange_strong(expected, this)) {
    fatal("an environment is already installed");
  }
}

void Environment::uninstall() {
  Environment* expected = this;
  gEnvironment.compare_exchange_strong(expected, nullptr);
}

Queue& mainQueue() { return Environment::current().mainQueue(); }
Queue& globalQueue(QoS qos) { return Environment::current().globalQueue(qos); }
std::shared_ptr<Queue> makeSerialQueue(std::string label) {
  return Environment::current().makeSerialQueue(std::move(label));
}
std::shared_ptr<Timer> scheduledTimer(double interval, bool repeats, TimerBlock block) {
  return Environment::current().scheduledTimer(interval, repeats, std::move(block));
}
double uptime() { return Environment::current().uptime(); }
bool isMainThread() { return Environment::current().isMainThread(); }

}  // namespace kit
