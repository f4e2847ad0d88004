#include "ads/AdConfig.h"

#include <mutex>

namespace ads {
namespace {
std::mutex gMutex;
AdConfig& stored() {
  static AdConfig config;
  return config;
}
}  // namespace

AdConfig AdConfig::current() {
  std::lock_guard lock(gMutex);
  return stored();
}

void AdConfig::setCurrent(AdConfig config) {
  std::lock_guard lock(gMutex);
  stored() = std::move(config);
}

}  // namespace ads
