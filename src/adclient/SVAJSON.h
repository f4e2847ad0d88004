// The JSON text of a property-list value, as the script side of an ad reads its arguments.
#pragma once

#include <string>

#include "kit/Value.h"

namespace adclient {

// Compact JSON: keys in order, reals with up to 17 significant digits (NaN and infinities as
// null), bytes as an array of numbers. Any thread.
std::string SVAJSONString(const kit::Value& value);

}  // namespace adclient
