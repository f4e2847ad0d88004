#include "cli/MeasurementCommand.h"

#include <sys/stat.h>

#include <cmath>
#include <ctime>
#include <map>
#include <memory>

#include "desktop/system/AppFolders.h"
#include "desktop/system/JsonPreferenceStore.h"
#include "desktop/threaded/ThreadedEnvironment.h"
#include "measurement/audiences/APMAudience.h"
#include "measurement/consent/APMConsentSettingsUtil.h"
#include "measurement/events/APMEvent.h"
#include "measurement/events/APMIdentity.h"
#include "measurement/store/APMDatabase.h"
#include "measurement/upload/APMUploadSchedule.h"
#include "kit/Date.h"

namespace cli {

const char* const kMeasurementUsage =
    "Usage: solvanta measurement [--json] [--database PATH]\n"
    "\n"
    "Shows what Solvanta's measurement records about you: events waiting to be bundled, bundles\n"
    "waiting to be sent, user properties, today's counts, your consent state (and who set it),\n"
    "the audiences the app found you in, and when the next upload is due. Nothing is sent.\n"
    "\n"
    "  --json             print one JSON object instead of text\n"
    "  --database PATH    read this database instead of the app's own\n";

namespace {

// The day's boundary is all the inspector needs of the client's settings.
class FixedPreferences : public platform::PreferenceStore {
 public:
  kit::Value objectForKey(const std::string& key) override {
    auto it = values_.find(key);
    return it == values_.end() ? kit::Value() : it->second;
  }
  void setObject(kit::Value value, const std::string& key) override { values_[key] = value; }

 private:
  std::map<std::string, kit::Value> values_;
};

nlohmann::json valueJson(const APMValue& value) {
  switch (value.valueType()) {
    case APMValueType::kString:
      return value.stringValue();
    case APMValueType::kInt64:
      return value.int64Value();
    case APMValueType::kDouble:
      return value.doubleValue();
    case APMValueType::kArray:
      break;
  }
  nlohmann::json items = nlohmann::json::array();
  for (const APMParameters& item : value.arrayValue()) {
    nlohmann::json object = nlohmann::json::object();
    for (const auto& [name, member] : item) object[name] = valueJson(member);
    items.push_back(object);
  }
  return items;
}

std::string isoTime(double seconds) {
  std::time_t t = static_cast<std::time_t>(std::floor(seconds));
  std::tm tm{};
  ::gmtime_r(&t, &tm);
  char buffer[32];
  std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return buffer;
}

nlohmann::json eventJson(const APMPBEvent& proto) {
  nlohmann::json out;
  auto event = APMEvent::fromProto(proto);
  out["name"] = std::string(APMPBString(proto.name));
  out["time"] = isoTime(proto.timestamp_millis / 1000.0);
  nlohmann::json parameters = nlohmann::json::object();
  if (event) {
    for (const auto& [name, value] : event->parameters()) parameters[name] = valueJson(value);
  }
  out["parameters"] = parameters;
  if (proto.has_previous_timestamp_millis) {
    out["previous_time"] = isoTime(proto.previous_timestamp_millis / 1000.0);
  }
  return out;
}

nlohmann::json userPropertyJson(const APMPBUserAttribute& attribute) {
  nlohmann::json out;
  out["name"] = std::string(APMPBString(attribute.name));
  if (attribute.string_value) {
    out["value"] = attribute.string_value;
  } else if (attribute.has_int_value) {
    out["value"] = attribute.int_value;
  } else if (attribute.has_double_value) {
    out["value"] = attribute.double_value;
  }
  out["set"] = isoTime(attribute.set_timestamp_millis / 1000.0);
  return out;
}

nlohmann::json consentJson(const std::string& signals, bool vendorID, bool resettableID) {
  APMConsentVerdict verdict = APMConsentVerdictOf(signals);
  nlohmann::json out;
  out["signals"] = signals;
  out["ads"] = verdict.adsDenied ? "denied" : "not denied";
  out["analytics"] = verdict.analyticsDenied ? "denied" : "not denied";
  out["device_identifier"] = resettableID ? "advertising identifier"
                             : vendorID   ? "vendor identifier"
                                          : "none";
  return out;
}

// One audience's result words: the filters evaluated and those that came out true.
nlohmann::json audienceResultJson(const std::optional<APMAudienceResultData>& data) {
  nlohmann::json out{{"evaluated", nlohmann::json::array()}, {"true", nlohmann::json::array()}};
  if (!data) return out;
  std::size_t words = std::max(data->status.size(), data->results.size());
  for (std::size_t bit = 0; bit < words * 64; ++bit) {
    auto result = data->filterResult(static_cast<std::int32_t>(bit));
    if (!result) continue;
    out["evaluated"].push_back(bit);
    if (*result) out["true"].push_back(bit);
  }
  return out;
}

nlohmann::json audienceResultJson(const APMPBResultData& data) {
  kit::Data bytes;
  if (!APMPBEncode(APMPBMessage<APMPBResultData>::fields(), &data, &bytes, nullptr)) return {};
  return audienceResultJson(APMAudienceResultData::parse(bytes));
}

// The upload schedule as the client would work it out now, under the stored configuration.
nlohmann::json scheduleJson(APMDatabase& database, APMPersistedConfig& persisted,
                            const MeasurementUploadTimes& uploads) {
  platform::Error failure;
  std::string appID;
  std::int64_t version = -1;
  auto stored = database.queryRemoteConfigData(&failure);
  if (stored && !stored->empty()) {
    if (auto parsed = APMPBMessage<APMPBMeasurementConfig>::parseFromData(*stored)) {
      appID = std::string(APMPBString((*parsed)->stuvop_app_id));
      version = (*parsed)->has_version ? (*parsed)->version : -1;
    }
  }
  auto config = APMRemoteConfig::initWithAppID(appID, "", &database);
  double now = kit::Date::now().timeIntervalSince1970;
  double next = APMNextUploadingTime(database, persisted, *config, false, now);
  double backoffEnd = uploads.lastBackoff > 0 ? uploads.lastBackoff + config->uploadingBackoffInterval() : 0;
  if (backoffEnd > 0 && next > 0 && next < backoffEnd) next = backoffEnd;
  auto retries = database.store().numberForQuery("SELECT MAX(retry_count) FROM queue", {}, &failure);
  auto fetched = database.queryRemoteConfigTimestamp(&failure).value_or(0);
  auto time = [](double t) { return t > 0 ? nlohmann::json(isoTime(t)) : nlohmann::json(nullptr); };
  return {{"next_upload", time(next)},
          {"retry_count", retries ? retries->numberAsInteger().value_or(0) : 0},
          {"backoff_until", time(backoffEnd > now ? backoffEnd : 0)},
          {"last_successful_upload", time(uploads.lastSuccessfulUpload)},
          {"last_failed_upload", time(uploads.lastFailedUpload)},
          {"configuration_version", version},
          {"configuration_fetched", time(fetched)}};
}

}  // namespace

std::optional<nlohmann::json> measurementReport(const std::string& databasePath,
                                                double midnightOffset, std::string* error,
                                                const MeasurementUploadTimes& uploads) {
  struct stat st {};
  if (::stat(databasePath.c_str(), &st) != 0) {
    if (error) *error = "no measurement database at " + databasePath;
    return std::nullopt;
  }
  auto preferences = std::make_shared<FixedPreferences>();
  auto config = std::make_shared<APMPersistedConfig>(preferences);
  config->setMidnightOffset(midnightOffset);
  config->setLastSuccessfulUploadTimestamp(uploads.lastSuccessfulUpload);
  config->setLastFailedUploadTimestamp(uploads.lastFailedUpload);
  config->setLastBackoffTimestamp(uploads.lastBackoff);
  platform::Error failure;
  auto database = APMDatabase::initWithDatabasePath(databasePath, config, &failure);
  if (!database) {
    if (error) *error = failure.localizedDescription;
    return std::nullopt;
  }
  nlohmann::json report;
  report["database"] = databasePath;

  nlohmann::json raw = nlohmann::json::array();
  std::string consentSignals;
  bool vendorID = false, resettableID = false, haveHeader = false;
  auto fingerprints = database->store().recordsForQuery(
      "SELECT DISTINCT metadata_fingerprint FROM raw_events ORDER BY rowid", {}, &failure);
  if (!fingerprints) {
    if (error) *error = failure.localizedDescription;
    return std::nullopt;
  }
  auto rows = database->store().recordsForQuery(
      "SELECT rowid, name, data, is_realtime FROM raw_events ORDER BY rowid", {}, &failure);
  if (rows) {
    for (const auto& r : *rows) {
      const kit::Data* data = r.at("data").asData();
      auto proto = data ? APMPBMessage<APMPBEvent>::parseFromData(*data) : std::nullopt;
      if (!proto) continue;
      APMPBSetString(&(*proto)->name, r.at("name").asString() ? *r.at("name").asString() : "");
      nlohmann::json e = eventJson(**proto);
      e["row"] = r.at("rowid").numberAsInteger().value_or(0);
      e["realtime"] = r.at("is_realtime").numberAsInteger().value_or(0) == 1;
      raw.push_back(e);
    }
  }
  // The newest header tells the current identifiers and consent.
  auto header = database->store().recordsForQuery(
      "SELECT metadata FROM raw_events_metadata WHERE metadata_fingerprint = "
      "(SELECT metadata_fingerprint FROM raw_events ORDER BY rowid DESC LIMIT 1)",
      {}, &failure);
  nlohmann::json properties = nlohmann::json::array();
  if (header && !header->empty()) {
    const kit::Data* data = header->front().at("metadata").asData();
    if (auto bundle = data ? APMPBMessage<APMPBMeasurementBundle>::parseFromData(*data)
                           : std::nullopt) {
      haveHeader = true;
      consentSignals = std::string(APMPBString((*bundle)->consent_signals));
      vendorID = (*bundle)->vendor_device_id != nullptr;
      resettableID = (*bundle)->resettable_device_id != nullptr;
    }
  }
  report["raw_events"] = raw;

  nlohmann::json bundles = nlohmann::json::array();
  if (auto queued = database->queryBundlesWithCountLimit(INT64_MAX, INT64_MAX, &failure)) {
    for (const APMQueuedBundle& q : *queued) {
      const APMPBMeasurementBundle& b = *q.bundle;
      nlohmann::json out;
      out["row"] = q.rowID;
      out["retries"] = q.retryCount;
      out["index"] = b.bundle_index;
      out["start"] = isoTime(b.bundle_start_timestamp_millis / 1000.0);
      out["end"] = isoTime(b.bundle_end_timestamp_millis / 1000.0);
      out["app"] = std::string(APMPBString(b.app_id));
      out["app_version"] = std::string(APMPBString(b.app_version));
      out["system"] = std::string(APMPBString(b.os_version));
      out["device"] = std::string(APMPBString(b.device_model));
      out["language"] = std::string(APMPBString(b.user_language));
      out["app_instance_id"] = std::string(APMPBString(b.app_instance_id));
      nlohmann::json events = nlohmann::json::array();
      for (const APMPBEvent& e : APMPBItems(b.events, b.events_count)) events.push_back(eventJson(e));
      out["events"] = events;
      nlohmann::json props = nlohmann::json::array();
      for (const APMPBUserAttribute& a : APMPBItems(b.user_properties, b.user_properties_count)) {
        props.push_back(userPropertyJson(a));
      }
      out["user_properties"] = props;
      nlohmann::json audiences = nlohmann::json::array();
      for (const APMPBAudienceLeafFilterResult& r :
           APMPBItems(b.audience_evaluation_results, b.audience_evaluation_results_count)) {
        nlohmann::json a = audienceResultJson(r.current_data);
        a["audience"] = r.audience_id;
        a["changed"] = r.previous_data_present;
        audiences.push_back(a);
      }
      out["audiences"] = audiences;
      if (!haveHeader) {
        consentSignals = std::string(APMPBString(b.consent_signals));
        vendorID = b.vendor_device_id != nullptr;
        resettableID = b.resettable_device_id != nullptr;
      }
      bundles.push_back(out);
    }
  }
  report["bundles"] = bundles;

  if (auto attributes = database->queryAllUserAttributes(&failure)) {
    for (const APMUserAttribute& a : *attributes) {
      nlohmann::json p;
      p["name"] = a.name;
      p["value"] = valueJson(a.value);
      p["origin"] = a.origin;
      p["set"] = isoTime(a.lastSetTimestamp);
      properties.push_back(p);
    }
  }
  report["user_properties"] = properties;

  if (auto counts = database->dailyCounts(&failure)) {
    report["daily_counts"] = {{"day", counts->day},
                              {"events", counts->allEventsCount},
                              {"public_events", counts->publicEventsCount},
                              {"error_events", counts->errorEventsCount},
                              {"conversions", counts->conversionsCount},
                              {"realtime_events", counts->realtimeCount}};
  }
  report["consent"] = consentJson(consentSignals, vendorID, resettableID);
  nlohmann::json audiences = nlohmann::json::array();
  if (auto results = database->queryAllFilterResults(&failure)) {
    for (const APMFilterResult& r : *results) {
      nlohmann::json a = audienceResultJson(
          r.currentResults ? APMAudienceResultData::parse(*r.currentResults) : std::nullopt);
      a["audience"] = r.audienceID;
      audiences.push_back(a);
    }
  }
  report["audiences"] = audiences;
  report["schedule"] = scheduleJson(*database, *config, uploads);
  return report;
}

std::string measurementText(const nlohmann::json& report) {
  std::string out;
  auto parameters = [](const nlohmann::json& p) {
    std::string text;
    for (auto it = p.begin(); it != p.end(); ++it) {
      text += "      " + it.key() + " = " +
              (it->is_string() ? it->get<std::string>() : it->dump()) + "\n";
    }
    return text;
  };
  out += "Measurement database: " + report["database"].get<std::string>() + "\n\n";
  const auto& raw = report["raw_events"];
  out += "Events waiting to be bundled: " + std::to_string(raw.size()) + "\n";
  for (const auto& e : raw) {
    out += "  " + e["name"].get<std::string>() + " at " + e["time"].get<std::string>() +
           (e["realtime"].get<bool>() ? " (real-time)" : "") + "\n";
    out += parameters(e["parameters"]);
  }
  const auto& bundles = report["bundles"];
  out += "\nBundles waiting to be sent: " + std::to_string(bundles.size()) + "\n";
  for (const auto& b : bundles) {
    out += "  bundle " + b["index"].dump() + ", " + b["start"].get<std::string>() + " to " +
           b["end"].get<std::string>() + ", " + std::to_string(b["events"].size()) +
           " events, tried " + b["retries"].dump() + " times\n";
    out += "    from " + b["app"].get<std::string>() + " " + b["app_version"].get<std::string>() +
           " on " + b["device"].get<std::string>() + " " + b["system"].get<std::string>() +
           ", language " + b["language"].get<std::string>() + "\n";
    for (const auto& e : b["events"]) {
      out += "    " + e["name"].get<std::string>() + " at " + e["time"].get<std::string>() + "\n";
      out += parameters(e["parameters"]);
    }
  }
  const auto& properties = report["user_properties"];
  out += "\nUser properties: " + std::to_string(properties.size()) + "\n";
  for (const auto& p : properties) {
    out += "  " + p["name"].get<std::string>() + " = " +
           (p["value"].is_string() ? p["value"].get<std::string>() : p["value"].dump()) +
           " (set by " + p["origin"].get<std::string>() + ", " + p["set"].get<std::string>() +
           ")\n";
  }
  if (report.contains("daily_counts")) {
    const auto& c = report["daily_counts"];
    out += "\nToday: " + c["events"].dump() + " events stored, " + c["public_events"].dump() +
           " from the app, " + c["error_events"].dump() + " errors, " +
           c["conversions"].dump() + " conversions, " + c["realtime_events"].dump() +
           " real-time\n";
  }
  if (report.contains("schedule")) {
    const auto& s = report["schedule"];
    auto when = [](const nlohmann::json& t) {
      return t.is_null() ? std::string("none") : t.get<std::string>();
    };
    out += "\nUploads: next " + when(s["next_upload"]) + ", most retries of a waiting bundle " +
           s["retry_count"].dump() + ", back-off until " + when(s["backoff_until"]) +
           "\n  last success " + when(s["last_successful_upload"]) + ", last failure " +
           when(s["last_failed_upload"]) + "\n  configuration version " +
           s["configuration_version"].dump() + ", fetched " + when(s["configuration_fetched"]) +
           "\n";
  }
  const auto& consent = report["consent"];
  std::string signals = consent["signals"].get<std::string>();
  out += "\nConsent: " + (signals.empty() ? std::string("none recorded") : signals) +
         "; ads " + consent["ads"].get<std::string>() + ", analytics " +
         consent["analytics"].get<std::string>() + "; device identifier sent: " +
         consent["device_identifier"].get<std::string>() + "\n";
  if (consent.contains("settings")) {
    out += "  ad storage " + consent["settings"]["ad_storage"].get<std::string>() +
           ", analytics storage " + consent["settings"]["analytics_storage"].get<std::string>() +
           "; set by " + consent["source_name"].get<std::string>() + " (source " +
           consent["source"].dump() + ")\n";
  }
  auto filters = [](const nlohmann::json& a) {
    std::string text;
    for (const auto& id : a["true"]) text += (text.empty() ? "" : ", ") + id.dump();
    return text.empty() ? std::string("none") : text;
  };
  const auto& audiences = report["audiences"];
  out += "\nAudiences evaluated on this computer: " + std::to_string(audiences.size()) + "\n";
  for (const auto& a : audiences) {
    out += "  audience " + a["audience"].dump() + ": filters true " + filters(a) + " (of " +
           std::to_string(a["evaluated"].size()) + " evaluated)\n";
  }
  bool anyBundled = false;
  for (const auto& b : report["bundles"]) {
    for (const auto& a : b["audiences"]) {
      if (!anyBundled) out += "  in the waiting bundles:\n";
      anyBundled = true;
      out += "    bundle " + b["index"].dump() + ", audience " + a["audience"].dump() +
             ": filters true " + filters(a) + (a["changed"].get<bool>() ? " (changed)" : "") + "\n";
    }
  }
  return out;
}

void addConsentSettings(nlohmann::json& report,
                        std::shared_ptr<platform::PreferenceStore> preferences) {
  APMConsentSettingsUtil consent(std::move(preferences));
  consent.loadPersistedConsentSettings();
  APMConsentSettings settings = consent.consentSettings();
  auto state = [&](const char* key) {
    auto it = settings.find(key);
    return it == settings.end() ? std::string("unset") : it->second;
  };
  std::int64_t source = consent.consentSource();
  report["consent"]["settings"] = {{"ad_storage", state(kAPMConsentAdStorage)},
                                   {"analytics_storage", state(kAPMConsentAnalyticsStorage)}};
  report["consent"]["source"] = source;
  report["consent"]["source_name"] = source <= kAPMConsentSourcePersisted3P ? "another party"
                                     : source <= kAPMConsentSourcePersisted ? "the app"
                                                                            : "nobody yet";
}

int runMeasurement(const std::vector<std::string>& args, std::FILE* out, std::FILE* err) {
  bool json = false;
  std::string database;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--json") {
      json = true;
    } else if (args[i] == "--database" && i + 1 < args.size()) {
      database = args[++i];
    } else if (args[i] == "--help" || args[i] == "-h") {
      std::fputs(kMeasurementUsage, out);
      return 0;
    } else {
      std::fprintf(err, "solvanta measurement: unknown option '%s'\n\n%s", args[i].c_str(),
                   kMeasurementUsage);
      return 2;
    }
  }
  desktop::AppFolders folders = desktop::AppFolders::fromEnvironment();
  if (database.empty()) {
    database = folders.applicationSupport() + "/Stuvop/Measurement/" + APMDatabase::kDatabaseName;
  }
  desktop::ThreadedEnvironment env;
  desktop::JsonPreferenceStore preferences(folders.config() + "/preferences.json");
  double midnightOffset = preferences.doubleForKey(kAPMPersistedConfigMidnightOffsetKey);
  auto shared = std::make_shared<desktop::JsonPreferenceStore>(folders.config() + "/preferences.json");
  APMPersistedConfig persisted(shared);
  MeasurementUploadTimes uploads{persisted.lastSuccessfulUploadTimestamp(),
                                 persisted.lastFailedUploadTimestamp(),
                                 persisted.lastBackoffTimestamp()};
  std::string error;
  auto report = measurementReport(database, midnightOffset, &error, uploads);
  if (!report) {
    std::fprintf(err, "solvanta measurement: %s\n", error.c_str());
    return 3;
  }
  addConsentSettings(*report, shared);
  std::string text = json ? report->dump(2) + "\n" : measurementText(*report);
  std::fputs(text.c_str(), out);
  return 0;
}

}  // namespace cli
