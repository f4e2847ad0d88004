// APMConsentSettingsUtil: the two consent switches, "ad_storage" and "analytics_storage",
// each "granted", "denied" or unset, with the source that set them. A lower source wins: an
// incoming setting is taken when the current source is at or above the new one.
//
//   10  another party, through the key "consent_settings_3p"
//   20  settings persisted under "consent_settings_3p", at load (at most)
//   30  the application's setConsent
//   40  settings persisted under "consent_settings", at load (at most)
//   100 nothing set yet
//
// The settings persist in the client's preference store; they become the signal "G1" + one
// character per switch ("0" denied, "1" granted, "-" unset) that every bundle carries.
//
// Threading: any thread; the state is guarded by the object's own lock, which plays the part
// of its serial queue "APMConsentSettingsUtilQueue".
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "kit/Value.h"
#include "platform/PreferenceStore.h"

inline constexpr const char* kAPMConsentAdStorage = "ad_storage";
inline constexpr const char* kAPMConsentAnalyticsStorage = "analytics_storage";
inline constexpr const char* kAPMConsentGranted = "granted";
inline constexpr const char* kAPMConsentDenied = "denied";

// Preference keys.
inline constexpr const char* kAPMConsentSettingsKey = "consent_settings";
inline constexpr const char* kAPMConsentSettings3PKey = "consent_settings_3p";
inline constexpr const char* kAPMConsentSourceKey = "consent_source";
inline constexpr const char* kAPMConsentSettingsOnStartKey = "consent_settings_on_start";
inline constexpr const char* kAPMDeferredConsentResetKey = "deferred_consent_reset";

// Sources.
inline constexpr std::int64_t kAPMConsentSource3P = 10;
inline constexpr std::int64_t kAPMConsentSourcePersisted3P = 20;
inline constexpr std::int64_t kAPMConsentSourceApp = 30;
inline constexpr std::int64_t kAPMConsentSourcePersisted = 40;
inline constexpr std::int64_t kAPMConsentSourceUnset = 100;

// Switch name to "granted" or "denied"; an absent switch is unset.
using APMConsentSettings = std::map<std::string, std::string>;

class APMConsentSettingsUtil {
 public:
  // What setConsent did.
  struct Outcome {
    bool accepted = false;
    // A switch that was not denied is denied now.
    bool withdrew = false;
  };

  // Keeps its settings in `defaults`.
  explicit APMConsentSettingsUtil(std::shared_ptr<platform::PreferenceStore> defaults);

  // The configuration's isConsentSettingsEnabled and isConsentSettings3PEnabled; both on
  // until told otherwise.
  void setEnabledFlags(bool enabled, bool thirdPartyEnabled);

  APMConsentSettings consentSettings() const;
  void setConsentSettings(APMConsentSettings settings);
  std::int64_t consentSource() const;
  void setConsentSource(std::int64_t source);

  // Denied switches; both false while consent settings are disabled.
  bool isAdStorageDenied() const;
  bool isAnalyticsStorageDenied() const;

  // The valid entries of `dictionary`: the two switches with "granted" or "denied". Others
  // log "Valid consent values are 'granted' and 'denied'. Ignoring invalid consent setting.
  // Key, value".
  static APMConsentSettings consentSettingsFromDictionary(const kit::Dictionary& dictionary);
  // The defaults of the information dictionary: STUVOP_ANALYTICS_DEFAULT_ALLOW_AD_STORAGE and
  // STUVOP_ANALYTICS_DEFAULT_ALLOW_ANALYTICS_STORAGE, true meaning "granted".
  static APMConsentSettings consentSettingsFromPlist(const kit::Dictionary& infoDictionary);
  // Whether `newSettings` denies a switch the current settings do not deny.
  bool didWithdrawPreviousConsent(const APMConsentSettings& newSettings) const;
  // Whether `after` denies a switch that `before` does not deny (an unset one included).
  static bool withdraws(const APMConsentSettings& before, const APMConsentSettings& after);
  // Whether a setting from `source` may replace the current one (current >= source).
  bool isConsentSourceHigherPriority(std::int64_t source) const;
  // Merges `settings` over the current ones.
  void updateSettings(const APMConsentSettings& settings);
  // "G1" and two characters; empty unless consent settings and third-party settings are
  // both enabled.
  std::string consentSignals() const;
  // "ad_storage is granted. analytics_storage is denied." ("unset" for an absent switch).
  std::string description() const;

  // The application's (key empty) or another party's (key "consent_settings_3p") setting,
  // with the priority rule, merge and persistence. Loads the persisted settings first when
  // nothing was set yet.
  Outcome setConsent(const kit::Dictionary& dictionary, const std::string& key = {});
  // Loads the persisted settings: "consent_settings" with a source of at most 40, then
  // "consent_settings_3p" over them with a source of at most 20.
  void loadPersistedConsentSettings();
  // Stores `settings` under "consent_settings_3p" for a source under 21, else under
  // "consent_settings", with the source.
  void persistConsentSettings(const APMConsentSettings& settings, std::int64_t source);
  // The stored source; 100 when none.
  std::int64_t persistedConsentSource() const;
  // Forgets every setting, in memory and stored.
  void clearConsent();

  // The process's settings, kept in the standard preference store of the installed platform.
  static APMConsentSettingsUtil& sharedInstance();

  // The settings in force when the client last started ("consent_settings_on_start"); nothing
  // before the first start.
  std::optional<APMConsentSettings> settingsOnStart() const;
  void setSettingsOnStart(const APMConsentSettings& settings);

  // A withdrawal seen while the client could not reset: the next start resets.
  void setDeferredConsentReset(bool pending);
  bool deferredConsentReset() const;

 private:
  bool enabled() const { return enabled_; }
  bool thirdPartyEnabled() const { return thirdPartyEnabled_; }
  bool isDenied(const char* key) const;
  void loadLocked();

  std::shared_ptr<platform::PreferenceStore> defaults_;
  std::atomic<bool> enabled_{true};
  std::atomic<bool> thirdPartyEnabled_{true};
  mutable std::mutex mu_;
  APMConsentSettings settings_;
  std::int64_t source_ = kAPMConsentSourceUnset;
};
