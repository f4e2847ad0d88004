// What the measurement client says about the app and the device in every bundle header: the
// app's identifiers and version, the instance identifier, the device identifiers allowed by
// consent, and the device facts. Read on the worker queue.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "measurement/upload/APMPersistedConfig.h"

// The version of this client, as bundles carry it.
inline constexpr std::int64_t kAPMLibraryVersion = 100300;

struct APMAppInfo {
  std::string bundleIdentifier = "com.stuvop.solvanta";
  std::string appVersion = "0.1.0";
  // The application identifier of the identity; empty: the bundle identifier stands in.
  std::string appID;
  std::string stuvopAppID;
  std::string adnetAppID;
  std::string installationID;
  // "manual_install" when the app does not come from a store.
  std::string installSource = "manual_install";
};

// A fresh identifier of 32 lower-case hex digits of secure random bytes; empty when the random
// source fails.
std::string APMRandomIdentifier();

// The application instance identifier kept in `config`; a new one (32 lower-case hex digits
// of secure random bytes) is made and kept when there is none. Empty when the random source
// fails.
std::string APMAppInstanceID(APMPersistedConfig& config);

// Major, minor and release numbers of a dotted version text; missing parts are 0.
struct APMVersionParts {
  std::int32_t major = 0, minor = 0, release = 0;
};
APMVersionParts APMParseVersion(const std::string& version);

// The consent text's verdicts: with 4 or more characters, a "0" third character denies ads
// and a "0" fourth denies analytics.
struct APMConsentVerdict {
  bool adsDenied = false;
  bool analyticsDenied = false;
};
APMConsentVerdict APMConsentVerdictOf(const std::string& consentSignals);
