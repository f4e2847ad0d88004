// libFuzzer target: the URL that opens the app, as text: its query split and decoded, and its
// campaign parameters mapped and checked; and the same bytes as the server's answer to the
// deferred deep-link request.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "measurement/APMMonitor.h"
#include "measurement/consent/APMCampaign.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool quiet = [] {
    APMMonitor::setConsoleLevel(-1);
    return true;
  }();
  (void)quiet;
  std::string_view url(reinterpret_cast<const char*>(data), size);
  (void)APMDictionaryWithHttpArgumentsString(url);
  for (bool allowClickID : {true, false}) {
    auto campaign = APMCampaignParametersOfURL(url, allowClickID);
    (void)APMIsValidCampaignURLParamDictionary(campaign);
  }
  if (auto info = APMDeepLinkInfoFromResponseData(kit::Data(data, data + size))) {
    (void)APMCampaignParametersOfURL(info->deeplink, true);
  }
  return 0;
}
