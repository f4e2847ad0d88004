// APMPersistedConfig: the measurement client's small key-value store outside the database,
// kept in a preference store. Values survive a restart; a key never written reads as zero.
// Thread-safe as far as the preference store is.
#pragma once

#include <memory>

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

 private:
  std::shared_ptr<platform::PreferenceStore> store_;
};
