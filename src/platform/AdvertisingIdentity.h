// Identifiers of the device for advertising and measurement, and the person's answer to the
// tracking question. Each read yields a value or nothing: a platform without the feature
// reports nothing, and callers take that path.
#pragma once

#include <optional>
#include <string>

namespace platform {

// The tracking authorisation states (the platform's values).
enum TrackingAuthorizationStatus : int {
  kTrackingNotDetermined = 0,
  kTrackingRestricted = 1,
  kTrackingDenied = 2,
  kTrackingAuthorized = 3,
};

class AdvertisingIdentity {
 public:
  virtual ~AdvertisingIdentity() = default;
  // The resettable advertising identifier (upper-case UUID text), or nothing. Any thread.
  virtual std::optional<std::string> advertisingIdentifier() = 0;
  // The identifier shared by one maker's apps on this device, or nothing. Any thread.
  virtual std::optional<std::string> identifierForVendor() = 0;
  // The tracking authorisation status, or nothing when the platform has no such question.
  virtual std::optional<int> trackingAuthorizationStatus() = 0;
};

}  // namespace platform
