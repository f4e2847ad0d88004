#include "measurement/consent/APMLaunchContext.h"

#include <algorithm>
#include <mutex>

#include "kit/Singleton.h"

namespace {

std::mutex gMu;
kit::Dictionary gInfo;
std::vector<std::string> gFlags;

const std::vector<std::string>& debugOn() {
  static const std::vector<std::string> v{"-APMAnalyticsDebugEnabled", "-ORXAnalyticsDebugEnabled",
                                          "-ORXDebugEnabled"};
  return v;
}
const std::vector<std::string>& debugOff() {
  static const std::vector<std::string> v{"-noAPMAnalyticsDebugEnabled",
                                          "-noORXAnalyticsDebugEnabled", "-ORXDebugDisabled"};
  return v;
}
const std::vector<std::string>& verboseOn() {
  static const std::vector<std::string> v{"-APMAnalyticsVerboseLoggingEnabled",
                                          "-ORXAnalyticsVerboseLoggingEnabled"};
  return v;
}
const std::vector<std::string>& verboseOff() {
  static const std::vector<std::string> v{"-APMAnalyticsVerboseLoggingDisabled",
                                          "-ORXAnalyticsVerboseLoggingDisabled"};
  return v;
}

bool contains(const std::vector<std::string>& list, const std::string& item) {
  return std::find(list.begin(), list.end(), item) != list.end();
}

std::optional<bool> booleanWord(const std::string& text) {
  if (text == "YES" || text == "true" || text == "1") return true;
  if (text == "NO" || text == "false" || text == "0") return false;
  return std::nullopt;
}

}  // namespace

void APMLaunchContext::setInfoDictionary(kit::Dictionary infoDictionary) {
  std::lock_guard lock(gMu);
  gInfo = std::move(infoDictionary);
}

kit::Dictionary APMLaunchContext::infoDictionary() {
  std::lock_guard lock(gMu);
  return gInfo;
}

std::optional<bool> APMLaunchContext::infoBool(const std::string& key) {
  std::lock_guard lock(gMu);
  auto it = gInfo.find(key);
  if (it == gInfo.end() || !it->second.isBool()) return std::nullopt;
  return it->second.asBool();
}

std::optional<std::string> APMLaunchContext::infoString(const std::string& key) {
  std::lock_guard lock(gMu);
  auto it = gInfo.find(key);
  if (it == gInfo.end() || !it->second.asString()) return std::nullopt;
  return *it->second.asString();
}

bool APMLaunchContext::isKnownLaunchArgument(const std::string& argument) {
  return contains(debugOn(), argument) || contains(debugOff(), argument) ||
         contains(verboseOn(), argument) || contains(verboseOff(), argument) ||
         argument == "-DebugDeferredDeepLink";
}

std::vector<std::string> APMLaunchContext::setLaunchArguments(
    const std::vector<std::string>& arguments) {
  std::vector<std::string> flags;
  std::vector<std::string> rest;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& a = arguments[i];
    if (!isKnownLaunchArgument(a)) {
      rest.push_back(a);
      continue;
    }
    bool on = true;
    if (i + 1 < arguments.size()) {
      if (auto word = booleanWord(arguments[i + 1])) {
        on = *word;
        ++i;
      }
    }
    if (on) flags.push_back(a);
  }
  std::lock_guard lock(gMu);
  gFlags = std::move(flags);
  return rest;
}

std::vector<std::string> APMLaunchContext::launchArguments() {
  std::lock_guard lock(gMu);
  return gFlags;
}

bool APMLaunchContext::hasLaunchArgument(const std::string& flag) {
  std::lock_guard lock(gMu);
  return contains(gFlags, flag);
}

APMLaunchContext::DebugSettings APMLaunchContext::applyDebugArguments(
    platform::PreferenceStore& store) {
  std::vector<std::string> flags = launchArguments();
  for (const std::string& f : flags) {
    if (contains(debugOn(), f)) store.setBool(true, kAPMDebugModeKey);
    if (contains(debugOff(), f)) store.setBool(false, kAPMDebugModeKey);
    if (contains(verboseOn(), f)) store.setBool(true, kAPMVerboseLoggingKey);
    if (contains(verboseOff(), f)) store.setBool(false, kAPMVerboseLoggingKey);
  }
  return {store.boolForKey(kAPMDebugModeKey), store.boolForKey(kAPMVerboseLoggingKey)};
}

void APMLaunchContext::reset() {
  std::lock_guard lock(gMu);
  gInfo.clear();
  gFlags.clear();
}

namespace {
// A reset of the process state (tests) forgets the launch, as a fresh process would.
const bool kRegistered = [] {
  kit::registerSingletonReset([] { APMLaunchContext::reset(); });
  return true;
}();
}  // namespace
