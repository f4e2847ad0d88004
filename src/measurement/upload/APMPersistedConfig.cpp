#include "measurement/upload/APMPersistedConfig.h"

double APMPersistedConfig::midnightOffset() const {
  return store_->doubleForKey(kAPMPersistedConfigMidnightOffsetKey);
}

void APMPersistedConfig::setMidnightOffset(double seconds) {
  store_->setObject(kit::Value(seconds), kAPMPersistedConfigMidnightOffsetKey);
}

double APMPersistedConfig::lastDeleteStaleBundlesTimestamp() const {
  return store_->doubleForKey(kAPMPersistedConfigLastDeleteStaleKey);
}

void APMPersistedConfig::setLastDeleteStaleBundlesTimestamp(double timestamp) {
  store_->setObject(kit::Value(timestamp), kAPMPersistedConfigLastDeleteStaleKey);
}
