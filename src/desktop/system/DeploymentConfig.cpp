#include "desktop/system/DeploymentConfig.h"

#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "desktop/system/FileUtil.h"

namespace desktop {
namespace {

using Json = nlohmann::json;

// Copies the string under `key` of `object` into `out` when present; false (with `why`) when
// it is there and not a string.
bool readText(const Json& object, const char* key, std::optional<std::string>* out, std::string* why) {
  auto it = object.find(key);
  if (it == object.end()) return true;
  if (!it->is_string()) {
    *why = std::string("\"") + key + "\" must be a string";
    return false;
  }
  *out = it->get<std::string>();
  return true;
}

// Likewise for a number within [low, high].
bool readNumber(const Json& object, const char* key, double low, double high, double* out,
                std::string* why) {
  auto it = object.find(key);
  if (it == object.end()) return true;
  if (!it->is_number()) {
    *why = std::string("\"houseAds.") + key + "\" must be a number";
    return false;
  }
  double value = it->get<double>();
  if (!(value >= low && value <= high)) {
    *why = std::string("\"houseAds.") + key + "\" is out of range";
    return false;
  }
  *out = value;
  return true;
}

// The first key of `object` not in `known`, or empty.
std::string unknownKey(const Json& object, std::initializer_list<const char*> known) {
  for (const auto& item : object.items()) {
    bool found = false;
    for (const char* k : known) found = found || item.key() == k;
    if (!found) return item.key();
  }
  return {};
}

// The configuration in `json`; false with `why` when it is not one.
bool parse(const Json& json, DeploymentConfig* config, std::string* why) {
  if (!json.is_object()) {
    *why = "the top level must be an object";
    return false;
  }
  std::string unknown = unknownKey(json, {"interstitialAdUnitID", "appOpenAdUnitID",
                                          "bannerAdUnitID", "testDeviceIdentifier", "houseAds", "storeLink",
                                          "promotionLink", "supportAddress"});
  if (!unknown.empty()) {
    *why = "unknown key \"" + unknown + "\"";
    return false;
  }
  if (!readText(json, "interstitialAdUnitID", &config->interstitialAdUnitID, why) ||
      !readText(json, "appOpenAdUnitID", &config->appOpenAdUnitID, why) ||
      !readText(json, "bannerAdUnitID", &config->bannerAdUnitID, why) ||
      !readText(json, "testDeviceIdentifier", &config->testDeviceIdentifier, why) ||
      !readText(json, "storeLink", &config->storeLink, why) || !readText(json, "promotionLink", &config->promotionLink, why) ||
      !readText(json, "supportAddress", &config->supportAddress, why)) {
    return false;
  }
  auto house = json.find("houseAds");
  if (house == json.end()) return true;
  if (!house->is_object()) {
    *why = "\"houseAds\" must be an object";
    return false;
  }
  unknown = unknownKey(*house, {"fillRate", "latencySeconds"});
  if (!unknown.empty()) {
    *why = "unknown key \"houseAds." + unknown + "\"";
    return false;
  }
  return readNumber(*house, "fillRate", 0.0, 1.0, &config->houseAdsFillRate, why) &&
         readNumber(*house, "latencySeconds", 0.0, 3600.0, &config->houseAdsLatencySeconds, why);
}

}  // namespace

std::string deploymentConfigPath(const AppFolders& folders) {
  const char* named = std::getenv("SOLVANTA_DEPLOYMENT");
  if (named && *named) return named;
  return folders.config() + "/deployment.json";
}

DeploymentConfigLoad loadDeploymentConfig(const AppFolders& folders) {
  const char* named = std::getenv("SOLVANTA_DEPLOYMENT");
  return readDeploymentConfig(deploymentConfigPath(folders), named && *named);
}

DeploymentConfigLoad readDeploymentConfig(const std::string& path, bool mustExist) {
  DeploymentConfigLoad load;
  load.path = path;
  std::string error;
  std::optional<std::string> text = readWholeFile(path, &error);
  if (!text) {
    if (!error.empty()) {
      load.problem = "the deployment file is not used: " + error + "; using the defaults";
    } else if (mustExist) {
      load.problem = "the deployment file " + path + " does not exist; using the defaults";
    }
    return load;
  }
  Json json = Json::parse(*text, nullptr, /*allow_exceptions=*/false, /*ignore_comments=*/false);
  if (json.is_discarded()) {
    load.problem = "the deployment file " + path + " is not valid JSON; using the defaults";
    return load;
  }
  DeploymentConfig config;
  std::string why;
  if (!parse(json, &config, &why)) {
    load.problem = "the deployment file " + path + " is not used: " + why + "; using the defaults";
    return load;
  }
  load.config = std::move(config);
  load.fromFile = true;
  return load;
}

}  // namespace desktop
