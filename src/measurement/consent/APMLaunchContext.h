// APMLaunchContext: what the measurement client learns from how the app was packaged and
// started: the information dictionary (the app's property list) and the launch arguments.
// The program's entry point sets both before the client starts; unset, both are empty.
//
// Launch arguments are "-NAME" flags, each optionally followed by YES/NO (or true/false,
// 1/0): "-APMAnalyticsDebugEnabled", "-ORXAnalyticsDebugEnabled", "-ORXDebugEnabled" turn
// debug mode on, "-noAPMAnalyticsDebugEnabled", "-noORXAnalyticsDebugEnabled",
// "-ORXDebugDisabled" off; "-APMAnalyticsVerboseLoggingEnabled",
// "-ORXAnalyticsVerboseLoggingEnabled" turn verbose logging on, the "...Disabled" forms off;
// "-DebugDeferredDeepLink" marks deferred deep-link requests as tests. Debug mode and verbose
// logging persist until turned off.
//
// Thread-safe.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "kit/Value.h"
#include "platform/PreferenceStore.h"

inline constexpr const char* kAPMDebugModeKey = "/stuvop/measurement/debug_mode";
inline constexpr const char* kAPMVerboseLoggingKey = "/stuvop/measurement/verbose_logging";

class APMLaunchContext {
 public:
  static void setInfoDictionary(kit::Dictionary infoDictionary);
  static kit::Dictionary infoDictionary();
  // The boolean of `key` in the information dictionary; nothing when absent or not a bool.
  static std::optional<bool> infoBool(const std::string& key);
  static std::optional<std::string> infoString(const std::string& key);

  // Splits `arguments` into the launch arguments it knows (kept, see the file's head) and
  // the rest (returned, in order). A known flag followed by YES/NO/true/false/1/0 takes that
  // value; "NO" cancels the flag.
  static std::vector<std::string> setLaunchArguments(const std::vector<std::string>& arguments);
  // The flags in effect, each as "-NAME".
  static std::vector<std::string> launchArguments();
  static bool hasLaunchArgument(const std::string& flag);
  // Whether `argument` is one of the known flags.
  static bool isKnownLaunchArgument(const std::string& argument);

  // Applies the debug and verbose-logging flags to `store` (persisted until turned off) and
  // returns the settings in effect.
  struct DebugSettings {
    bool debugMode = false;
    bool verboseLogging = false;
  };
  static DebugSettings applyDebugArguments(platform::PreferenceStore& store);

  // Forgets both (tests).
  static void reset();
};
