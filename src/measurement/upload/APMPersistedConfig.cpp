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

namespace {
constexpr const char* kLastSessionActivityKey = "/stuvop/measurement/last_session_activity";
constexpr const char* kSessionNumberKey = "/stuvop/measurement/session_number";
constexpr const char* kAppInstanceIDKey = "/stuvop/measurement/app_instance_id";
constexpr const char* kLastAppVersionKey = "/stuvop/measurement/last_app_version";
constexpr const char* kLastOSVersionKey = "/stuvop/measurement/last_os_version";
constexpr const char* kAllowPersonalizedAdsKey = "/stuvop/measurement/allow_personalized_ads";
}  // namespace

double APMPersistedConfig::lastSessionActivityClockTime() const {
  return store_->doubleForKey(kLastSessionActivityKey);
}

void APMPersistedConfig::setLastSessionActivityClockTime(double timestamp) {
  store_->setObject(kit::Value(timestamp), kLastSessionActivityKey);
}

std::int64_t APMPersistedConfig::sessionNumber() const {
  return store_->integerForKey(kSessionNumberKey);
}

void APMPersistedConfig::setSessionNumber(std::int64_t number) {
  store_->setObject(kit::Value(static_cast<long long>(number)), kSessionNumberKey);
}

std::string APMPersistedConfig::appInstanceID() const {
  return store_->stringForKey(kAppInstanceIDKey).value_or("");
}

void APMPersistedConfig::setAppInstanceID(const std::string& identifier) {
  store_->setObject(kit::Value(identifier), kAppInstanceIDKey);
}

std::string APMPersistedConfig::lastAppVersion() const {
  return store_->stringForKey(kLastAppVersionKey).value_or("");
}

void APMPersistedConfig::setLastAppVersion(const std::string& version) {
  store_->setObject(kit::Value(version), kLastAppVersionKey);
}

std::string APMPersistedConfig::lastOSVersion() const {
  return store_->stringForKey(kLastOSVersionKey).value_or("");
}

void APMPersistedConfig::setLastOSVersion(const std::string& version) {
  store_->setObject(kit::Value(version), kLastOSVersionKey);
}

namespace {
constexpr const char* kLastSuccessfulUploadKey = "/stuvop/measurement/last_successful_upload";
constexpr const char* kLastFailedUploadKey = "/stuvop/measurement/last_failed_upload";
constexpr const char* kLastBackoffKey = "/stuvop/measurement/last_backoff";
constexpr const char* kLastModifiedSinceKey = "/stuvop/measurement/last_modified_since_key";
constexpr const char* kConfigETagKey = "/stuvop/measurement/config_etag";
}  // namespace

double APMPersistedConfig::lastSuccessfulUploadTimestamp() const {
  return store_->doubleForKey(kLastSuccessfulUploadKey);
}

void APMPersistedConfig::setLastSuccessfulUploadTimestamp(double timestamp) {
  store_->setObject(kit::Value(timestamp), kLastSuccessfulUploadKey);
}

double APMPersistedConfig::lastFailedUploadTimestamp() const {
  return store_->doubleForKey(kLastFailedUploadKey);
}

void APMPersistedConfig::setLastFailedUploadTimestamp(double timestamp) {
  store_->setObject(kit::Value(timestamp), kLastFailedUploadKey);
}

double APMPersistedConfig::lastBackoffTimestamp() const {
  return store_->doubleForKey(kLastBackoffKey);
}

void APMPersistedConfig::setLastBackoffTimestamp(double timestamp) {
  store_->setObject(kit::Value(timestamp), kLastBackoffKey);
}

std::string APMPersistedConfig::configServerLastModifiedString() const {
  return store_->stringForKey(kLastModifiedSinceKey).value_or("");
}

void APMPersistedConfig::setConfigServerLastModifiedString(const std::string& value) {
  store_->setObject(kit::Value(value), kLastModifiedSinceKey);
}

std::string APMPersistedConfig::configServerETag() const {
  return store_->stringForKey(kConfigETagKey).value_or("");
}

void APMPersistedConfig::setConfigServerETag(const std::string& value) {
  store_->setObject(kit::Value(value), kConfigETagKey);
}

namespace {
constexpr const char* kDiversionKeyKey = "/stuvop/measurement/diversion_key";
}  // namespace

std::string APMPersistedConfig::diversionKey() const {
  return store_->stringForKey(kDiversionKeyKey).value_or("");
}

void APMPersistedConfig::setDiversionKey(const std::string& value) {
  store_->setObject(kit::Value(value), kDiversionKeyKey);
}

std::optional<bool> APMPersistedConfig::allowPersonalizedAds() const {
  return store_->objectForKey(kAllowPersonalizedAdsKey).asBool();
}

void APMPersistedConfig::setAllowPersonalizedAds(std::optional<bool> allowed) {
  store_->setObject(allowed ? kit::Value(*allowed) : kit::Value(), kAllowPersonalizedAdsKey);
}
