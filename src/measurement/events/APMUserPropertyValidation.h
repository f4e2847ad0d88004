// The checks on the user property path: what becomes of a user property, a user ID or an
// internal property that the client is asked to set. The caller applies the outcome (sets,
// removes, logs the internal `_err` event). Stateless; callable from any queue.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "kit/Value.h"
#include "measurement/events/APMValue.h"

struct APMUserPropertyOutcome {
  struct Set {
    std::string name;
    APMValue value;
    std::string origin;
  };
  // The property to set, when the request is valid.
  std::optional<Set> set;
  // Properties to remove.
  std::vector<std::string> removals;
  // For `allow_personalized_ads`: the value, unvalidated, for the personalised-ads setting.
  std::optional<kit::Value> personalizedAds;
  // Parameters of an internal `_err` event to log for a refused request.
  std::optional<APMParameters> errorEventParameters;
};

// setUserPropertyString:forName: from the application. A null value removes the property;
// a bad public name yields an `_err` event with 15 (reserved) or 6 and the name trimmed to
// 24; a value that is no string logs "User property must be NSString. Value"; a too long
// value yields an `_err` event with 7, the name and the value's length; an empty value is
// refused silently. A valid pair is set under origin "app".
APMUserPropertyOutcome APMCheckUserProperty(const kit::Value& value, const kit::Value& name);

// setUserID: a string is set as `_id` under origin "app"; null removes `_id` and, when
// `resetFeatureEnabled`, `_lair`; anything else logs "User ID must be NSString. User ID".
APMUserPropertyOutcome APMCheckUserID(const kit::Value& userID, bool resetFeatureEnabled);

// A property set from inside the client (numbers under origin "auto"): internal name and
// value rules, and an origin of 1 to 32 code points ("Unable to set user property. Origin is
// invalid. Origin, name").
APMUserPropertyOutcome APMCheckInternalUserProperty(const std::string& name, const APMValue& value,
                                                    const std::string& origin);
