#include "measurement/events/APMEventNames.h"

#include <utility>

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

const Pairs& eventPairs() {
  static const Pairs pairs = {
      {"adunit_exposure", "_xu"},
      {"ad_activeview", "_aa"},
      {"ad_click", "_ac"},
      {"ad_exposure", "_xa"},
      {"ad_impression", "_ai"},
      {"ad_query", "_aq"},
      {"ad_reward", "_ar"},
      {"app_background", "_ab"},
      {"app_clear_data", "_cd"},
      {"app_exception", "_ae"},
      {"app_remove", "_ui"},
      {"app_store_refund", "_asr"},
      {"app_store_subscription_cancel", "_asse"},
      {"app_store_subscription_convert", "_assc"},
      {"app_store_subscription_renew", "_assr"},
      {"app_update", "_au"},
      {"app_upgrade", "_ug"},
      {"error", "_err"},
      {"orvex_campaign", "_cmp"},
      {"first_open", "_f"},
      {"first_visit", "_v"},
      {"sa_campaign", "_cmp"},
      {"sa_extra_parameter", "_ep"},
      {"in_app_purchase", "_iap"},
      {"notification_dismiss", "_nd"},
      {"notification_foreground", "_nf"},
      {"notification_open", "_no"},
      {"notification_receive", "_nr"},
      {"os_update", "_ou"},
      {"screen_view", "_vs"},
      {"session_start", "_s"},
      {"session_start_with_rollout", "_ssr"},
      {"user_engagement", "_e"},
  };
  return pairs;
}

const Pairs& parameterPairs() {
  static const Pairs pairs = {
      {"ad_event_id", "_aeid"},
      {"ad_unit_id", "_ai"},
      {"app_in_background", "_aib"},
      {"deferred_analytics_collection", "_dac"},
      {"engagement_time_msec", "_et"},
      {"exposure_time", "_xt"},
      {"orvex_conversion", "_c"},
      {"orvex_debug", "_dbg"},
      {"orvex_error", "_err"},
      {"orvex_error_length", "_el"},
      {"orvex_error_value", "_ev"},
      {"orvex_event_origin", "_o"},
      {"orvex_feature_rollouts", "_ffr"},
      {"orvex_previous_class", "_pc"},
      {"orvex_previous_id", "_pi"},
      {"orvex_previous_screen", "_pn"},
      {"orvex_realtime", "_r"},
      {"orvex_screen", "_sn"},
      {"orvex_screen_class", "_sc"},
      {"orvex_screen_id", "_si"},
      {"sa_conversion", "_c"},
      {"sa_debug", "_dbg"},
      {"sa_dedupe_id", "_did"},
      {"sa_error", "_err"},
      {"sa_error_length", "_el"},
      {"sa_error_value", "_ev"},
      {"sa_event_id", "_eid"},
      {"sa_event_name", "_en"},
      {"sa_event_origin", "_o"},
      {"sa_extra_params_ct", "_epc"},
      {"sa_group_name", "_gn"},
      {"sa_index", "_i"},
      {"sa_list_length", "_ll"},
      {"sa_previous_class", "_pc"},
      {"sa_previous_id", "_pi"},
      {"sa_previous_screen", "_pn"},
      {"sa_realtime", "_r"},
      {"sa_screen", "_sn"},
      {"sa_screen_class", "_sc"},
      {"sa_screen_id", "_si"},
      {"message_id", "_nmid"},
      {"message_name", "_nmn"},
      {"message_time", "_nmt"},
      {"message_tracking_id", "_nmtid"},
      {"message_type", "_nmc"},
      {"message_device_time", "_ndt"},
      {"previous_app_version", "_pv"},
      {"previous_first_open_count", "_pfo"},
      {"previous_smp_app_id", "_psmp"},
      {"previous_os_version", "_po"},
      {"session_id", "_sid"},
      {"session_number", "_sno"},
      {"topic", "_nt"},
      {"update_with_analytics", "_uwa"},
  };
  return pairs;
}

const Pairs& userPropertyPairs() {
  static const Pairs pairs = {
      {"orvex_last_notification", "_ln"},  {"first_open_after_install", "_fi"},
      {"first_open_time", "_fot"},         {"sa_session_id", "_sid"},
      {"sa_session_number", "_sno"},       {"last_advertising_id_reset", "_lair"},
      {"last_deep_link_referrer", "_ldl"}, {"lifetime_user_engagement", "_lte"},
      {"session_user_engagement", "_se"},  {"user_id", "_id"},
  };
  return pairs;
}

APMNameMap forward(const Pairs& pairs) { return APMNameMap(pairs.begin(), pairs.end()); }

// Internal to public; where two public names share an internal one, the first listed wins.
APMNameMap inverse(const Pairs& pairs) {
  APMNameMap map;
  for (const auto& [publicName, internalName] : pairs) map.emplace(internalName, publicName);
  return map;
}

std::optional<std::string> lookUp(const APMNameMap& map, const std::string& name) {
  auto it = map.find(name);
  if (it == map.end()) return std::nullopt;
  return it->second;
}

}  // namespace

const APMNameMap& APMEventNameMap() {
  static const APMNameMap map = forward(eventPairs());
  return map;
}

const APMNameMap& APMEventInternalNameMap() {
  static const APMNameMap map = inverse(eventPairs());
  return map;
}

const std::set<std::string>& APMAllowedEventNames() {
  static const std::set<std::string> names = {"ad_impression"};
  return names;
}

const APMNameMap& APMParameterNameMap() {
  static const APMNameMap map = forward(parameterPairs());
  return map;
}

const APMNameMap& APMParameterInternalNameMap() {
  static const APMNameMap map = inverse(parameterPairs());
  return map;
}

const APMNameMap& APMUserPropertyNameMap() {
  static const APMNameMap map = forward(userPropertyPairs());
  return map;
}

const APMNameMap& APMUserPropertyInternalNameMap() {
  static const APMNameMap map = inverse(userPropertyPairs());
  return map;
}

std::optional<std::string> APMInternalEventName(const std::string& publicName) {
  return lookUp(APMEventNameMap(), publicName);
}

std::optional<std::string> APMPublicEventName(const std::string& internalName) {
  return lookUp(APMEventInternalNameMap(), internalName);
}

const std::vector<std::string>& APMReservedPrefixes() {
  static const std::vector<std::string> prefixes = {"orvex_", "stuvop_", "sa_"};
  return prefixes;
}

const std::set<std::string>& APMCommerceEventNames() {
  static const std::set<std::string> names = {
      "add_payment_info",
      "add_shipping_info",
      "add_to_cart",
      "add_to_wishlist",
      "begin_checkout",
      "purchase",
      "refund",
      "remove_from_cart",
      "select_item",
      "select_promotion",
      "view_cart",
      "view_item",
      "view_item_list",
      "view_promotion",
      "ecommerce_purchase",
      "checkout_progress",
      "purchase_refund",
      "select_content",
      "set_checkout_option",
      "view_search_results",
  };
  return names;
}

const std::set<std::string>& APMStandardItemParameterNames() {
  static const std::set<std::string> names = {
      "affiliation",     "coupon",         "creative_name",
      "creative_slot",   "currency",       "discount",
      "index",           "item_id",        "item_brand",
      "item_category",   "item_category2", "item_category3",
      "item_category4",  "item_category5", "item_list_name",
      "item_list_id",    "item_name",      "item_variant",
      "location_id",     "payment_type",   "price",
      "promotion_id",    "promotion_name", "quantity",
      "shipping",        "shipping_tier",  "tax",
      "transaction_id",  "value",          "checkout_step",
      "checkout_option", "item_list",      "item_location_id",
  };
  return names;
}
