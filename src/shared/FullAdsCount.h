// The interstitial pacing counter, FULLSERVICECOUNT in the preference store.
#pragma once

#include <cstdint>

namespace shared {

// Stores `value`, or the stored value plus one when `value` is negative (an overflow is a
// fatal error), and prints "dataCheck", the argument, the new value and the value read afresh
// before the write.
void SaveFullAdsCount(std::int64_t value);

// The stored counter (0 when never written); prints "GetFullAdsCount" and the value.
std::int64_t GetFullAdsCount();

}  // namespace shared
