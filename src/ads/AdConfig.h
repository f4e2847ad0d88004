// Deployment values of the ads: the ad-unit identifiers and the test device. They come from
// one place, set at start-up by whoever runs the app (from its configuration file); until
// then they hold clearly fake values.
#pragma once

#include <string>

namespace ads {

struct AdConfig {
  std::string interstitialAdUnitID = "fake-interstitial-unit-0000000000000000";
  std::string appOpenAdUnitID = "fake-app-open-unit-000000000000000000000";
  std::string bannerAdUnitID = "fake-banner-unit-00000000000000000000000";
  std::string testDeviceIdentifier = "fake-test-device-0000";

  // The values in force. Thread-safe.
  static AdConfig current();
  // Replaces them (start-up, or a test).
  static void setCurrent(AdConfig config);
};

}  // namespace ads
