#include "shared/FullAdsCount.h"

#include "kit/Console.h"
#include "kit/Fatal.h"
#include "platform/Platform.h"
#include "shared/PreferenceKeys.h"

namespace shared {

void SaveFullAdsCount(std::int64_t value) {
  auto& defaults = platform::preferences();
  std::int64_t current = defaults.integerForKey(FULLSERVICECOUNT);
  std::int64_t next = value < 0 ? kit::checkedAdd(current, 1) : value;
  // "dataCheck", the argument, two blanks, the new value, one blank, the stored value.
  kit::print("dataCheck", value, "", next, defaults.integerForKey(FULLSERVICECOUNT));
  defaults.setInteger(next, FULLSERVICECOUNT);
}

std::int64_t GetFullAdsCount() {
  std::int64_t value = platform::preferences().integerForKey(FULLSERVICECOUNT);
  kit::print("GetFullAdsCount", value);
  return value;
}

}  // namespace shared
