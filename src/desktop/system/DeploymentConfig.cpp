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

// Likewise for an ad-unit identifier, which is also refused when it is empty or holds spaces
// or control characters (no ad network issues such an identifier).
bool readAdUnit(const Json& object, const char* key, std::optional<std::string>* out, std::string* why) {
  std::optional<std::string> value;
  if (!readText(object, key, &value, why)) return false;
  if (!value) return true;
  bool malformed = value->empty();
  for (unsigned char c : *value) malformed = malformed || c <= ' ' || c == 0x7F;
  if (malformed) {
    *why = std::string("\"") + key + "\" is not an ad-unit identifier (empty, or with spaces or control characters)";
    return false;
  }
  *out = value;
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

// The "measurement" object: the collection host.
bool parseMeasurement(const Json& json, DeploymentConfig* config, std::string* why) {
  auto measurement = json.find("measurement");
  if (measurement == json.end()) return true;
  if (!measurement->is_object()) {
    *why = "\"measurement\" must be an object";
    return false;
  }
  std::string unknown = unknownKey(*measurement, {"host"});
  if (!unknown.empty()) {
    *why = "unknown key \"measurement." + unknown + "\"";
    return false;
  }
  std::optional<std::string> host;
  if (!readText(*measurement, "host", &host, why)) {
    *why = "\"measurement.host\" must be a string";
    return false;
  }
  if (!host) return true;
  std::string value = *host;
  while (!value.empty() && value.back() == '/') value.pop_back();
  std::size_t scheme = value.find("://");
  std::string rest = scheme == std::string::npos ? "" : value.substr(scheme + 3);
  bool schemeOK = value.rfind("http://", 0) == 0 || value.rfind("https://", 0) == 0;
  if (!value.empty() && (!schemeOK || rest.empty() || rest.find_first_of("/?#@ ") != std::string::npos)) {
    *why = "\"measurement.host\" must be http:// or https:// and a host name, without a path";
    return false;
  }
  config->measurementHost = value;
  return true;
}

// A JSON value as the information dictionary holds it; null stays null.
kit::Value plistValue(const Json& json) {
  if (json.is_boolean()) return kit::Value(json.get<bool>());
  if (json.is_number_integer()) return kit::Value(json.get<long long>());
  if (json.is_number()) return kit::Value(json.get<double>());
  if (json.is_string()) return kit::Value(json.get<std::string>());
  if (json.is_array()) {
    kit::Array items;
    for (const Json& item : json) items.push_back(plistValue(item));
    return kit::Value(std::move(items));
  }
  if (json.is_object()) {
    kit::Dictionary entries;
    for (const auto& item : json.items()) entries[item.key()] = plistValue(item.value());
    return kit::Value(std::move(entries));
  }
  return kit::Value();
}

// The "infoPlist" object: the information dictionary.
bool parseInfoPlist(const Json& json, DeploymentConfig* config, std::string* why) {
  auto info = json.find("infoPlist");
  if (info == json.end()) return true;
  if (!info->is_object()) {
    *why = "\"infoPlist\" must be an object";
    return false;
  }
  config->infoPlist = *plistValue(*info).asDictionary();
  return true;
}

// The configuration in `json`; false with `why` when it is not one.
bool parse(const Json& json, DeploymentConfig* config, std::string* why) {
  if (!json.is_object()) {
    *why = "the top level must be an object";
    return false;
  }
  std::string unknown = unknownKey(json, {"interstitialAdUnitID", "appOpenAdUnitID",
                                          "bannerAdUnitID", "testDeviceIdentifier", "houseAds",
                                          "measurement", "storeLink", "promotionLink", "supportAddress",
                                          "infoPlist"});
  if (!unknown.empty()) {
    *why = "unknown key \"" + unknown + "\"";
    return false;
  }
  if (!readAdUnit(json, "interstitialAdUnitID", &config->interstitialAdUnitID, why) ||
      !readAdUnit(json, "appOpenAdUnitID", &config->appOpenAdUnitID, why) ||
      !readAdUnit(json, "bannerAdUnitID", &config->bannerAdUnitID, why) ||
      !readText(json, "testDeviceIdentifier", &config->testDeviceIdentifier, why) ||
      !readText(json, "storeLink", &config->storeLink, why) || !readText(json, "promotionLink", &config->promotionLink, why) ||
      !readText(json, "supportAddress", &config->supportAddress, why)) {
    return false;
  }
  if (!parseMeasurement(json, config, why)) return false;
  if (!parseInfoPlist(json, config, why)) return false;
  auto house = json.find("houseAds");
  if (house == json.end()) return true;
  if (!house->is_object()) {
    *why = "\"houseAds\" must be an object";
    return false;
  }
  unknown = unknownKey(*house, {"fillRate", "latencySeconds", "format"});
  if (!unknown.empty()) {
    *why = "unknown key \"houseAds." + unknown + "\"";
    return false;
  }
  if (auto format = house->find("format"); format != house->end()) {
    if (!format->is_string() || (*format != "image" && *format != "video")) {
      *why = "\"houseAds.format\" must be \"image\" or \"video\"";
      return false;
    }
    config->houseAdsFormat = format->get<std::string>();
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
