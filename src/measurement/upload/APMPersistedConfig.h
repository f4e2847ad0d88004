// APMPersistedConfig: the measurement client's small key-value store outside the database,
// kept in a preference store. Values survive a restart; a key never written reads as zero.
// Thread-safe as far as the preference store is.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/PreferenceStore.h"

inline constexpr const char* kAPMPersistedConfigMidnightOffsetKey =
    "/stuvop/measurement/midnight_offset";
inline constexpr const char* kAPMPersistedConfigLastDeleteStaleKey =
    "/stuvop/measurement/last_delete_stale";

class APMPersistedConfig {
 public:
  // Reads and writes through `store`, which it shares.
  explicit APMPersistedConfig(std::shared_ptr<platform::PreferenceStore> store)
      : store_(std::move(store)) {}

  // Seconds added to midnight UTC at which the measurement day begins.
  double midnightOffset() const;
  void setMidnightOffset(double seconds);

  // When stale rows were last deleted, seconds since 1970.
  double lastDeleteStaleBundlesTimestamp() const;
  void setLastDeleteStaleBundlesTimestamp(double timestamp);

  // When the session last saw activity, seconds since 1970; 0 when never.
  double lastSessionActivityClockTime() const;
  void setLastSessionActivityClockTime(double timestamp);
  // The number of the current session; 0 before the first.
  std::int64_t sessionNumber() const;
  void setSessionNumber(std::int64_t number);
  // The application's personalised-ads setting (the user property allow_personalized_ads);
  // none when never set or removed.
  std::optional<bool> allowPersonalizedAds() const;
  void setAllowPersonalizedAds(std::optional<bool> allowed);
  // The application instance identifier; empty until one is made.
  std::string appInstanceID() const;
  void setAppInstanceID(const std::string& identifier);
  // The application and system versions the last start saw; empty when none.
  std::string lastAppVersion() const;
  void setLastAppVersion(const std::string& version);
  std::string lastOSVersion() const;
  void setLastOSVersion(const std::string& version);

  // Upload outcomes, seconds since 1970; 0 when never or cleared.
  double lastSuccessfulUploadTimestamp() const;
  void setLastSuccessfulUploadTimestamp(double timestamp);
  double lastFailedUploadTimestamp() const;
  void setLastFailedUploadTimestamp(double timestamp);
  double lastBackoffTimestamp() const;
  void setLastBackoffTimestamp(double timestamp);
  // The configuration server's "Last-Modified" and "ETag" of the last good answer; empty
  // when none.
  std::string configServerLastModifiedString() const;
  void setConfigServerLastModifiedString(const std::string& value);
  std::string configServerETag() const;
  void setConfigServerETag(const std::string& value);
  // The key the experiment server divides installs by; empty until one is made.
  std::string diversionKey() const;
  void setDiversionKey(const std::string& value);

 private:
  std::shared_ptr<platform::PreferenceStore> store_;
};
