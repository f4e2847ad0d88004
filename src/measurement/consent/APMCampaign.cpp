#include "measurement/consent/APMCampaign.h"

#include <nlohmann/json.hpp>

#include <set>

#include "measurement/APMMonitor.h"

namespace {

enum : int {
  kCodeEmptyQuery = 22201,
  kCodeMissingRequired = 22202,
  kCodeNotURL = 22203,
  kCodeTooManyPairs = 22204,
  kCodeDeepLinkParse = 22410,
};

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '+') {
      out.push_back(' ');
    } else if (c == '%') {
      if (i + 2 >= text.size()) return std::nullopt;
      int hi = hexValue(text[i + 1]);
      int lo = hexValue(text[i + 2]);
      if (hi < 0 || lo < 0) return std::nullopt;
      out.push_back(static_cast<char>(hi * 16 + lo));
      i += 2;
    } else {
      out.push_back(c);
    }
  }
  return out;
}

const std::set<std::string>& requiredParameters() {
  static const std::set<std::string> keys{"aclid", "anid",   "_cis",    "campaign", "cp1",
                                          "dclid", "sclid",  "sbraid",  "medium",   "srsltid",
                                          "source", "campaign_id"};
  return keys;
}

}  // namespace

const std::map<std::string, std::string>& APMCampaignQueryKeys() {
  static const std::map<std::string, std::string> keys{
      {"aclid", "aclid"},
      {"anid", "anid"},
      {"cis", "_cis"},
      {"utm_campaign", "campaign"},
      {"cp1", "cp1"},
      {"utm_content", "content"},
      {"dclid", "dclid"},
      {"sclid", "sclid"},
      {"sbraid", "sbraid"},
      {"utm_medium", "medium"},
      {"srsltid", "srsltid"},
      {"utm_source", "source"},
      {"utm_term", "term"},
      {"utm_id", "campaign_id"},
      {"utm_creative_format", "creative_format"},
      {"utm_marketing_tactic", "marketing_tactic"},
      {"utm_source_platform", "source_platform"},
  };
  return keys;
}

std::map<std::string, std::string> APMDictionaryWithHttpArgumentsString(std::string_view query) {
  std::map<std::string, std::string> out;
  std::size_t pairs = 0;
  std::size_t start = 0;
  while (start <= query.size()) {
    std::size_t end = query.find('&', start);
    if (end == std::string_view::npos) end = query.size();
    std::string_view pair = query.substr(start, end - start);
    start = end + 1;
    if (pair.empty()) {
      if (end == query.size()) break;
      continue;
    }
    if (++pairs > kAPMMaxQueryPairs) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeTooManyPairs,
                      "URL query has too many parameters. Later parameters are ignored. Limit",
                      static_cast<long long>(kAPMMaxQueryPairs));
      break;
    }
    std::size_t eq = pair.find('=');
    auto key = percentDecoded(pair.substr(0, eq));
    auto value = percentDecoded(eq == std::string_view::npos ? std::string_view() : pair.substr(eq + 1));
    if (!key || !value || key->empty()) continue;
    out.emplace(std::move(*key), std::move(*value));
    if (end == query.size()) break;
  }
  return out;
}

std::optional<std::string> APMQueryOfURL(std::string_view url) {
  std::size_t colon = url.find(':');
  if (colon == std::string_view::npos || colon == 0) return std::nullopt;
  for (std::size_t i = 0; i < colon; ++i) {
    char c = url[i];
    bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
              (i > 0 && ((c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.'));
    if (!ok) return std::nullopt;
  }
  for (char c : url) {
    if (static_cast<unsigned char>(c) < 0x21) return std::nullopt;
  }
  std::size_t hash = url.find('#');
  std::string_view body = url.substr(0, hash);
  std::size_t question = body.find('?');
  if (question == std::string_view::npos) return std::string();
  return std::string(body.substr(question + 1));
}

std::map<std::string, std::string> APMCampaignParametersOfURL(std::string_view url,
                                                              bool allowClickID) {
  std::map<std::string, std::string> out;
  auto query = APMQueryOfURL(url);
  if (!query) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeNotURL, "Deep Link is not a valid URL");
    return out;
  }
  if (query->empty()) {
    APMMonitor::log(kAPMMonitorLevelDebug, kCodeEmptyQuery, "Deep Link Web URL query is empty");
    return out;
  }
  for (const auto& [key, value] : APMDictionaryWithHttpArgumentsString(*query)) {
    auto mapped = APMCampaignQueryKeys().find(key);
    if (mapped == APMCampaignQueryKeys().end() || value.empty()) continue;
    out[mapped->second] = value;
  }
  if (!allowClickID) {
    for (const char* key : {"sclid", "dclid", "srsltid"}) out.erase(key);
  }
  return out;
}

bool APMIsValidCampaignURLParamDictionary(const std::map<std::string, std::string>& parameters) {
  for (const auto& [key, value] : parameters) {
    if (requiredParameters().count(key)) return true;
  }
  std::string described;
  for (const auto& [key, value] : parameters) {
    described += (described.empty() ? "" : ", ") + key + "=" + value;
  }
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeMissingRequired,
                  "Deep Link does not contain valid required params. URL params", described);
  return false;
}

std::optional<APMDeepLinkInfo> APMDeepLinkInfoFromResponseData(const kit::Data& body) {
  auto json = nlohmann::json::parse(body.begin(), body.end(), nullptr, false);
  if (json.is_discarded() || !json.is_object() || !json.contains("deeplink") ||
      !json["deeplink"].is_string()) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeDeepLinkParse,
                    "Failed to parse Deferred Deep Link from JSON. Error",
                    std::string(json.is_discarded() ? "not JSON" : "no deeplink"));
    return std::nullopt;
  }
  APMDeepLinkInfo info;
  info.deeplink = json["deeplink"].get<std::string>();
  if (json.contains("timestamp") && json["timestamp"].is_number()) {
    info.timestamp = json["timestamp"].get<double>();
  }
  if (json.contains("ddp") && json["ddp"].is_object()) {
    for (const auto& [key, value] : json["ddp"].items()) {
      if (value.is_string()) {
        info.parameters.insert_or_assign(key, APMValue::fromString(value.get<std::string>()));
      } else if (value.is_number_integer()) {
        info.parameters.insert_or_assign(key, APMValue::fromInt64(value.get<std::int64_t>()));
      } else if (value.is_number()) {
        info.parameters.insert_or_assign(key, APMValue::fromDouble(value.get<double>()));
      }
    }
  }
  return info;
}
