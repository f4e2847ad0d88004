// When the next upload pass is due, from what the database holds, the upload timestamps and
// the configuration. Shared by the client's schedule and the inspector.
#pragma once

#include "measurement/store/APMDatabase.h"
#include "measurement/upload/APMPersistedConfig.h"
#include "measurement/upload/APMRemoteConfig.h"

// Seconds since 1970 of the next pass at `now`, 0 for none: the interval after a success, the
// initial delay after the newest data, the doubling retry waits after a failure (0 once they
// run out), and in debug mode no later than the debug interval after the data. Runs on the
// database's queue.
double APMNextUploadingTime(APMDatabase& database, APMPersistedConfig& persisted,
                            APMRemoteConfig& config, bool debugMode, double now);
// The same from the newest data time (raw events and bundles) and whether any waiting data is
// real-time.
double APMNextUploadingTimeWithData(double newest, bool realtime, APMPersistedConfig& persisted,
                                    APMRemoteConfig& config, bool debugMode, double now);
