#include "kit/Singleton.h"

#include <vector>

namespace kit {
namespace {
std::mutex gMutex;
std::vector<std::function<void()>>& resets() {
  static std::vector<std::function<void()>> list;
  return list;
}
}  // namespace

void registerSingletonReset(std::function<void()> reset) {
  std::lock_guard lock(gMutex);
  resets().push_back(std::move(reset));
}

void resetSingletonsForTesting() {
  std::vector<std::function<void()>> copy;
  {
    std::lock_guard lock(gMutex);
    copy = resets();
  }
  for (auto& reset : copy) reset();
}

}  // namespace kit
