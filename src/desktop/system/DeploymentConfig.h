// The values a deployment of the app sets, read from one JSON file: the ad-unit identifiers,
// the test device, and how the house ads behave.
//
//   {
//     "interstitialAdUnitID": "...", "appOpenAdUnitID": "...", "bannerAdUnitID": "...",
//     "testDeviceIdentifier": "...",
//     "storeLink": "https://...", "promotionLink": "https://...", "supportAddress": "...",
//     "houseAds": {"fillRate": 1.0, "latencySeconds": 0.5, "format": "image"},
//     "measurement": {"host": "https://collector.example"},
//     "infoPlist": {"STUVOP_ANALYTICS_DEFAULT_ALLOW_AD_STORAGE": false, ...}
//   }
//
// "infoPlist" is the app's information dictionary (its property-list keys), read by the
// measurement client: booleans, numbers, strings, arrays and objects as JSON writes them.
//
// Every key is optional; a key left out keeps its default.
#pragma once

#include <optional>
#include <string>

#include "desktop/system/AppFolders.h"
#include "kit/Value.h"

namespace desktop {

struct DeploymentConfig {
  // The identifiers the file sets; nothing where it sets none (the app keeps its own, clearly
  // fake, defaults then).
  std::optional<std::string> interstitialAdUnitID;
  std::optional<std::string> appOpenAdUnitID;
  std::optional<std::string> bannerAdUnitID;
  std::optional<std::string> testDeviceIdentifier;
  // The app's store link, the promoted app's link and the feedback mail's address.
  std::optional<std::string> storeLink;
  std::optional<std::string> promotionLink;
  std::optional<std::string> supportAddress;
  // Share of house-ad loads that fill (0..1), and seconds each load takes (0 or more).
  double houseAdsFillRate = 1.0;
  double houseAdsLatencySeconds = 0.5;
  // What the house interstitials show: "image" (a picture) or "video" (the video creative).
  std::string houseAdsFormat = "image";
  // Where measurement data is sent: "http://" or "https://" and a host name with an optional
  // port, no path (a trailing slash is dropped). Empty: nothing is sent.
  std::string measurementHost;
  // The information dictionary; empty when the file sets none.
  kit::Dictionary infoPlist;
};

struct DeploymentConfigLoad {
  DeploymentConfig config;  // the file's values, or the defaults when it is absent or bad
  std::string path;         // the file looked for
  bool fromFile = false;    // true when the file was found and used
  // Why the file was not used, naming the file and what is wrong (malformed JSON, a key of
  // the wrong type, a value out of range, an unknown key, an unreadable file, a file named by
  // SOLVANTA_DEPLOYMENT that does not exist). Empty when all is well, or when the default
  // file simply does not exist.
  std::string problem;
};

// The deployment file: $SOLVANTA_DEPLOYMENT when set and not empty, else
// `folders`.config() + "/deployment.json".
std::string deploymentConfigPath(const AppFolders& folders);

// Reads the deployment file at deploymentConfigPath(folders). Never throws; any thread.
DeploymentConfigLoad loadDeploymentConfig(const AppFolders& folders);

// Reads the deployment file at `path`; `mustExist` makes a missing file a problem.
DeploymentConfigLoad readDeploymentConfig(const std::string& path, bool mustExist = false);

}  // namespace desktop
