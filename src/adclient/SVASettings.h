// SVASettings: the client's settings by key, process-wide. Unset keys read as their defaults
// (below), then as zero values. Any thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "kit/Value.h"

namespace adclient {

class SVASettings {
 public:
  // The shared settings; tests start from fresh ones (kit::resetSingletonsForTesting).
  static SVASettings& sharedInstance();

  double doubleForKey(const std::string& key) const;
  std::int64_t integerForKey(const std::string& key) const;
  bool boolForKey(const std::string& key) const;
  kit::Array arrayForKey(const std::string& key) const;
  void setValue(const std::string& key, kit::Value value);
  // Forgets a value set, so that the default reads again.
  void removeValue(const std::string& key);

  // Defaults: "player_action_timeout_ms" 5000, "video_max_loaded_player" 4,
  // "enable_video_metrics_csi" true, "video_assets_async_load_keys" ["duration", "tracks"],
  // "player_observe_before_association" true, "player_observe_item_status" true,
  // "native_view_signals_enabled" false, "use_present_vis_report" false.
  SVASettings();

 private:
  kit::Value valueForKey(const std::string& key) const;
  mutable std::mutex mu_;
  std::map<std::string, kit::Value> values_;
};

}  // namespace adclient
