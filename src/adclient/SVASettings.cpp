#include "adclient/SVASettings.h"

#include "kit/Singleton.h"

namespace adclient {
namespace {

const std::map<std::string, kit::Value>& defaults() {
  static const std::map<std::string, kit::Value> d{
      {"player_action_timeout_ms", 5000.0},
      {"video_max_loaded_player", 4},
      {"enable_video_metrics_csi", true},
      {"video_assets_async_load_keys", kit::Array{"duration", "tracks"}},
      {"player_observe_before_association", true},
      {"player_observe_item_status", true},
      {"native_view_signals_enabled", false},
      {"use_present_vis_report", false},
  };
  return d;
}

}  // namespace

SVASettings::SVASettings() = default;

SVASettings& SVASettings::sharedInstance() {
  // Kept alive by the registry until the next reset; callers use it within one test or run.
  return *kit::sharedInstance<SVASettings>();
}

kit::Value SVASettings::valueForKey(const std::string& key) const {
  std::lock_guard lock(mu_);
  if (auto it = values_.find(key); it != values_.end()) return it->second;
  if (auto it = defaults().find(key); it != defaults().end()) return it->second;
  return {};
}

double SVASettings::doubleForKey(const std::string& key) const {
  return valueForKey(key).numberAsReal().value_or(0.0);
}

std::int64_t SVASettings::integerForKey(const std::string& key) const {
  return valueForKey(key).numberAsInteger().value_or(0);
}

bool SVASettings::boolForKey(const std::string& key) const {
  return valueForKey(key).numberAsInteger().value_or(0) != 0;
}

kit::Array SVASettings::arrayForKey(const std::string& key) const {
  auto v = valueForKey(key);
  if (auto a = v.asArray()) return *a;
  return {};
}

void SVASettings::setValue(const std::string& key, kit::Value value) {
  std::lock_guard lock(mu_);
  values_[key] = std::move(value);
}

void SVASettings::removeValue(const std::string& key) {
  std::lock_guard lock(mu_);
  values_.erase(key);
}

}  // namespace adclient
