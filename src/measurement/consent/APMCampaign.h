// Campaign handling: the query of the URL that opened the app, turned into the parameters of
// a campaign event. Seventeen public query keys map to event parameters (utm_source to
// source, utm_medium to medium, ...); other keys are ignored.
//
// Pure functions over text; any thread.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "kit/Value.h"
#include "measurement/events/APMValue.h"

// The query keys that are read, public key to event parameter.
const std::map<std::string, std::string>& APMCampaignQueryKeys();

// The most query pairs read from one URL; later pairs are ignored.
inline constexpr std::size_t kAPMMaxQueryPairs = 1000;

// The pairs of an "a=b&c=d" text, percent-decoded ("+" is a space). A pair whose key or value
// has bad percent-encoding, or an empty key, is skipped; a repeated key keeps its first
// value. At most kAPMMaxQueryPairs pairs are read.
std::map<std::string, std::string> APMDictionaryWithHttpArgumentsString(std::string_view query);

// The query of `url` (between "?" and "#"), or nothing when `url` is not a URL (no scheme of
// letters, digits, "+", "-", "." before ":", or characters below 0x21).
std::optional<std::string> APMQueryOfURL(std::string_view url);

// The campaign parameters of `url`: the mapped keys, without "sclid", "dclid" and "srsltid"
// when `allowClickID` is false. Empty when the URL has none of them. Logs "Deep Link Web URL
// query is empty" for a URL without a query.
std::map<std::string, std::string> APMCampaignParametersOfURL(std::string_view url,
                                                              bool allowClickID);

// At least one of the keys that name a campaign (every mapped key but content, term,
// creative_format, marketing_tactic and source_platform). Otherwise logs "Deep Link does not
// contain valid required params. URL params".
bool APMIsValidCampaignURLParamDictionary(const std::map<std::string, std::string>& parameters);

// The answer to the deferred deep-link request: {"deeplink": "...", "timestamp": seconds,
// "ddp": {...}}.
struct APMDeepLinkInfo {
  std::string deeplink;
  double timestamp = 0;  // 0 when absent
  // The entries of "ddp" with a text or number value, as parameters of the campaign event.
  APMParameters parameters;
};

// The link of an answer's body, or nothing (logged: "Failed to parse Deferred Deep Link from
// JSON. Error") when the body is not a JSON object with a text "deeplink".
std::optional<APMDeepLinkInfo> APMDeepLinkInfoFromResponseData(const kit::Data& body);
