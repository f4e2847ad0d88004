// `solvanta measurement [--json]`: what the measurement client holds about the person, in
// words: the events waiting to be bundled (with their parameters), the bundles waiting to be
// sent (decoded), the user properties, today's counts and the consent state. Reads only;
// nothing is sent anywhere.
#pragma once

#include <cstdio>
#include <optional>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/PreferenceStore.h"

namespace cli {

extern const char* const kMeasurementUsage;

// The upload timestamps the client keeps in its preferences (seconds since 1970, 0: none).
struct MeasurementUploadTimes {
  double lastSuccessfulUpload = 0;
  double lastFailedUpload = 0;
  double lastBackoff = 0;
};

// Everything the client holds in the database at `databasePath`, as one JSON object:
// {"database", "raw_events": [...], "bundles": [...], "user_properties": [...],
//  "daily_counts": {...}, "consent": {...}, "schedule": {...}}. The schedule tells the next
// upload time, the most retries of a waiting bundle, the back-off's end and the stored
// configuration's version, from `uploads` and the clock. Nothing, with `error` filled, when
// the file cannot be opened. Needs an installed kit environment (for the day and the time).
std::optional<nlohmann::json> measurementReport(const std::string& databasePath,
                                                double midnightOffset, std::string* error,
                                                const MeasurementUploadTimes& uploads = {});

// The report in words, one section per part.
std::string measurementText(const nlohmann::json& report);

// Adds to report["consent"] the consent settings kept in `preferences`, with their source:
// "settings" {"ad_storage", "analytics_storage"} ("granted", "denied" or "unset"), "source"
// (10 to 100) and "source_name" ("another party", "the app", "nobody yet").
void addConsentSettings(nlohmann::json& report,
                        std::shared_ptr<platform::PreferenceStore> preferences);

// Runs the command with `args` (those after "measurement"): the database of the app's
// Application Support folder, or --database PATH. Returns 0, 2 on bad arguments, 3 when
// the database cannot be read.
int runMeasurement(const std::vector<std::string>& args, std::FILE* out, std::FILE* err);

}  // namespace cli
