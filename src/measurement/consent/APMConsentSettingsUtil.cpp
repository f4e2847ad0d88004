#include "measurement/consent/APMConsentSettingsUtil.h"

#include <algorithm>

#include "kit/Singleton.h"
#include "measurement/APMMonitor.h"
#include "platform/Platform.h"

namespace {

enum : int {
  kCodeInvalidValue = 22001,
  kCodeEmptySettings = 22002,
  kCodeLowerPriority = 22003,
  kCodeDisabled = 22004,
  kCodeAccepted = 22005,
};

kit::Dictionary toDictionary(const APMConsentSettings& settings) {
  kit::Dictionary d;
  for (const auto& [key, value] : settings) d[key] = value;
  return d;
}

// Stored settings are read back through the same check as incoming ones, quietly.
APMConsentSettings storedSettings(platform::PreferenceStore& store, const char* key) {
  APMConsentSettings out;
  kit::Value value = store.objectForKey(key);
  const kit::Dictionary* d = value.asDictionary();
  if (!d) return out;
  for (const char* name : {kAPMConsentAdStorage, kAPMConsentAnalyticsStorage}) {
    auto it = d->find(name);
    if (it == d->end() || !it->second.asString()) continue;
    const std::string& v = *it->second.asString();
    if (v == kAPMConsentGranted || v == kAPMConsentDenied) out[name] = v;
  }
  return out;
}

}  // namespace

APMConsentSettingsUtil::APMConsentSettingsUtil(std::shared_ptr<platform::PreferenceStore> defaults)
    : defaults_(std::move(defaults)) {}

void APMConsentSettingsUtil::setEnabledFlags(bool enabled, bool thirdPartyEnabled) {
  enabled_ = enabled;
  thirdPartyEnabled_ = thirdPartyEnabled;
}

APMConsentSettings APMConsentSettingsUtil::consentSettings() const {
  std::lock_guard lock(mu_);
  return settings_;
}

void APMConsentSettingsUtil::setConsentSettings(APMConsentSettings settings) {
  std::lock_guard lock(mu_);
  settings_ = std::move(settings);
}

std::int64_t APMConsentSettingsUtil::consentSource() const {
  std::lock_guard lock(mu_);
  return source_;
}

void APMConsentSettingsUtil::setConsentSource(std::int64_t source) {
  std::lock_guard lock(mu_);
  source_ = source;
}

bool APMConsentSettingsUtil::isDenied(const char* key) const {
  if (!enabled()) return false;
  std::lock_guard lock(mu_);
  auto it = settings_.find(key);
  return it != settings_.end() && it->second == kAPMConsentDenied;
}

bool APMConsentSettingsUtil::isAdStorageDenied() const { return isDenied(kAPMConsentAdStorage); }

bool APMConsentSettingsUtil::isAnalyticsStorageDenied() const {
  return isDenied(kAPMConsentAnalyticsStorage);
}

APMConsentSettings APMConsentSettingsUtil::consentSettingsFromDictionary(
    const kit::Dictionary& dictionary) {
  APMConsentSettings out;
  for (const auto& [key, value] : dictionary) {
    const std::string* text = value.asString();
    bool knownKey = key == kAPMConsentAdStorage || key == kAPMConsentAnalyticsStorage;
    if (knownKey && text && (*text == kAPMConsentGranted || *text == kAPMConsentDenied)) {
      out[key] = *text;
      continue;
    }
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeInvalidValue,
                    "Valid consent values are 'granted' and 'denied'. Ignoring invalid consent "
                    "setting. Key, value",
                    key, text ? *text : std::string("(not text)"));
  }
  return out;
}

APMConsentSettings APMConsentSettingsUtil::consentSettingsFromPlist(
    const kit::Dictionary& infoDictionary) {
  APMConsentSettings out;
  auto readDefault = [&](const char* plistKey, const char* setting) {
    auto it = infoDictionary.find(plistKey);
    if (it == infoDictionary.end()) return;
    if (auto b = it->second.asBool()) out[setting] = *b ? kAPMConsentGranted : kAPMConsentDenied;
  };
  readDefault("STUVOP_ANALYTICS_DEFAULT_ALLOW_AD_STORAGE", kAPMConsentAdStorage);
  readDefault("STUVOP_ANALYTICS_DEFAULT_ALLOW_ANALYTICS_STORAGE", kAPMConsentAnalyticsStorage);
  return out;
}

bool APMConsentSettingsUtil::didWithdrawPreviousConsent(const APMConsentSettings& newSettings) const {
  std::lock_guard lock(mu_);
  return withdraws(settings_, newSettings);
}

bool APMConsentSettingsUtil::withdraws(const APMConsentSettings& before,
                                       const APMConsentSettings& after) {
  for (const auto& [key, value] : after) {
    if (value != kAPMConsentDenied) continue;
    auto old = before.find(key);
    if (old == before.end() || old->second != kAPMConsentDenied) return true;
  }
  return false;
}

bool APMConsentSettingsUtil::isConsentSourceHigherPriority(std::int64_t source) const {
  std::lock_guard lock(mu_);
  return source_ >= source;
}

void APMConsentSettingsUtil::updateSettings(const APMConsentSettings& settings) {
  std::lock_guard lock(mu_);
  for (const auto& [key, value] : settings) settings_[key] = value;
}

std::string APMConsentSettingsUtil::consentSignals() const {
  if (!enabled() || !thirdPartyEnabled()) return {};
  std::lock_guard lock(mu_);
  auto state = [this](const char* key) {
    auto it = settings_.find(key);
    if (it == settings_.end()) return std::string("-");
    return std::string(it->second == kAPMConsentGranted ? "1" : "0");
  };
  return "G1" + state(kAPMConsentAdStorage) + state(kAPMConsentAnalyticsStorage);
}

std::string APMConsentSettingsUtil::description() const {
  std::lock_guard lock(mu_);
  auto state = [this](const char* key) {
    auto it = settings_.find(key);
    return it == settings_.end() ? std::string("unset") : it->second;
  };
  return std::string(kAPMConsentAdStorage) + " is " + state(kAPMConsentAdStorage) + ". " +
         kAPMConsentAnalyticsStorage + " is " + state(kAPMConsentAnalyticsStorage) + ".";
}

APMConsentSettingsUtil::Outcome APMConsentSettingsUtil::setConsent(const kit::Dictionary& dictionary,
                                                                   const std::string& key) {
  Outcome outcome;
  bool thirdParty = key == kAPMConsentSettings3PKey;
  if (!enabled() || (thirdParty && !thirdPartyEnabled())) {
    APMMonitor::log(kAPMMonitorLevelNotice, kCodeDisabled,
                    "Consent settings are disabled. Ignoring consent settings. Key", key);
    return outcome;
  }
  if (consentSource() == kAPMConsentSourceUnset) loadPersistedConsentSettings();
  APMConsentSettings settings = consentSettingsFromDictionary(dictionary);
  if (settings.empty()) {
    APMMonitor::log(kAPMMonitorLevelNotice, kCodeEmptySettings, "Discarding empty consent settings");
    return outcome;
  }
  std::int64_t source = thirdParty ? kAPMConsentSource3P : kAPMConsentSourceApp;
  if (!isConsentSourceHigherPriority(source)) {
    APMMonitor::log(kAPMMonitorLevelNotice, kCodeLowerPriority,
                    "Ignoring lower priority consent settings", source, consentSource());
    return outcome;
  }
  outcome.withdrew = didWithdrawPreviousConsent(settings);
  updateSettings(settings);
  setConsentSource(source);
  persistConsentSettings(consentSettings(), source);
  outcome.accepted = true;
  APMMonitor::log(kAPMMonitorLevelDebug, kCodeAccepted, "Consent settings set. Settings, source",
                  description(), source);
  return outcome;
}

void APMConsentSettingsUtil::loadPersistedConsentSettings() {
  std::lock_guard lock(mu_);
  loadLocked();
}

void APMConsentSettingsUtil::loadLocked() {
  APMConsentSettings first = storedSettings(*defaults_, kAPMConsentSettingsKey);
  APMConsentSettings third = storedSettings(*defaults_, kAPMConsentSettings3PKey);
  if (first.empty() && third.empty()) return;
  kit::Value storedSource = defaults_->objectForKey(kAPMConsentSourceKey);
  std::int64_t source = storedSource.numberAsInteger().value_or(kAPMConsentSourceUnset);
  for (const auto& [k, v] : first) settings_[k] = v;
  std::int64_t cap = kAPMConsentSourcePersisted;
  if (!third.empty()) {
    for (const auto& [k, v] : third) settings_[k] = v;
    cap = kAPMConsentSourcePersisted3P;
  }
  source_ = std::min(source, cap);
}

void APMConsentSettingsUtil::persistConsentSettings(const APMConsentSettings& settings,
                                                    std::int64_t source) {
  const char* key = source < 21 ? kAPMConsentSettings3PKey : kAPMConsentSettingsKey;
  defaults_->setObject(toDictionary(settings), key);
  defaults_->setInteger(source, kAPMConsentSourceKey);
}

std::int64_t APMConsentSettingsUtil::persistedConsentSource() const {
  return defaults_->objectForKey(kAPMConsentSourceKey).numberAsInteger().value_or(
      kAPMConsentSourceUnset);
}

void APMConsentSettingsUtil::clearConsent() {
  std::lock_guard lock(mu_);
  settings_.clear();
  source_ = kAPMConsentSourceUnset;
  for (const char* key : {kAPMConsentSettingsKey, kAPMConsentSettings3PKey, kAPMConsentSourceKey,
                          kAPMConsentSettingsOnStartKey}) {
    defaults_->setObject(kit::Value(), key);
  }
}

std::optional<APMConsentSettings> APMConsentSettingsUtil::settingsOnStart() const {
  if (defaults_->objectForKey(kAPMConsentSettingsOnStartKey).isNull()) return std::nullopt;
  return storedSettings(*defaults_, kAPMConsentSettingsOnStartKey);
}

void APMConsentSettingsUtil::setSettingsOnStart(const APMConsentSettings& settings) {
  defaults_->setObject(toDictionary(settings), kAPMConsentSettingsOnStartKey);
}

void APMConsentSettingsUtil::setDeferredConsentReset(bool pending) {
  defaults_->setBool(pending, kAPMDeferredConsentResetKey);
}

bool APMConsentSettingsUtil::deferredConsentReset() const {
  return defaults_->boolForKey(kAPMDeferredConsentResetKey);
}

APMConsentSettingsUtil& APMConsentSettingsUtil::sharedInstance() {
  static std::mutex mu;
  static std::shared_ptr<APMConsentSettingsUtil> shared;
  static bool registered = false;
  std::lock_guard lock(mu);
  if (!shared) {
    shared = std::make_shared<APMConsentSettingsUtil>(platform::services().preferences);
    if (!registered) {
      registered = true;
      kit::registerSingletonReset([] {
        std::lock_guard inner(mu);
        shared.reset();
      });
    }
  }
  return *shared;
}
