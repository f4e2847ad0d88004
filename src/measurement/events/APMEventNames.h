// The name tables of the measurement client: public names to internal names (and back) for
// events, parameters and user properties, the reserved prefixes, the commerce events, the
// standard item parameters, and the error codes that travel in `_err`.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

// Codes carried by the `_err` parameter.
enum class APMEventErrorCode : int {
  NoError = 0,
  InvalidSMPAppID = 1,
  InvalidEventName = 2,
  InvalidParameterName = 3,
  InvalidParameterValue = 4,
  ParameterLimitReached = 5,
  InvalidUserPropertyName = 6,
  UserPropertyValueTooLong = 7,
  EventLimitReached = 8,
  UserPropertyLimitReached = 9,
  ConversionEventLimitReached = 10,
  EventIsBlocked = 11,
  UserPropertyIsBlocked = 12,
  EventNameIsReserved = 13,
  ParameterNameIsReserved = 14,
  UserPropertyNameIsReserved = 15,
  PublicEventLimitReached = 16,
  TooManyExtraParamEvents = 17,
  ValueIsNotNumeric = 18,
  CurrencyCodeIsMissingOrInvalid = 19,
  InvalidArrayParamName = 20,
  InvalidArrayParamEventName = 21,
  InvalidArrayParamNesting = 22,
  CustomParamsInArrayElement = 23,
};

// One direction of a name table.
using APMNameMap = std::map<std::string, std::string>;

// Events: public name to internal name (33 entries), and internal to public. Two public names
// share `_cmp`; the inverse keeps the first listed, "orvex_campaign".
const APMNameMap& APMEventNameMap();
const APMNameMap& APMEventInternalNameMap();
// Public event names open to applications besides `screen_view`: `ad_impression`.
const std::set<std::string>& APMAllowedEventNames();

// Parameters: public or "sa_"-prefixed name to internal name (54 entries), and back (the
// first listed public name of each internal name).
const APMNameMap& APMParameterNameMap();
const APMNameMap& APMParameterInternalNameMap();

// User properties: public to internal name (10 entries, all reserved), and back.
const APMNameMap& APMUserPropertyNameMap();
const APMNameMap& APMUserPropertyInternalNameMap();

// The internal name of a public event name, or nothing when the name has none.
std::optional<std::string> APMInternalEventName(const std::string& publicName);
// The public name of an internal event name, or nothing.
std::optional<std::string> APMPublicEventName(const std::string& internalName);

// "orvex_", "stuvop_" and "sa_".
const std::vector<std::string>& APMReservedPrefixes();
// The events that may hold an array parameter (20 entries).
const std::set<std::string>& APMCommerceEventNames();
// The parameter names an array item may use without counting as custom (33 entries).
const std::set<std::string>& APMStandardItemParameterNames();
