// The measurement client starts itself: at program start it registers for the application's
// lifecycle notifications; the launch makes the core (its database in "Stuvop/Measurement" of
// the application-support folder), starts it and lets the held calls of APMAnalytics through;
// becoming active and resigning active drive the session reporter. The app's own code never
// calls it.
#pragma once

#include <memory>

class APMMeasurement;

// The symbol that pulls the registration into every program linking the client.
extern "C" int apm_registration_anchor;

// Registers the observers (done at program start; again is harmless). Any thread.
void APMRegisterForApplicationNotifications();
// What the launch notification does: makes and starts the shared core unless there is one,
// and returns it. Needs an installed environment and platform. Main thread.
std::shared_ptr<APMMeasurement> APMStartMeasurementOnLaunch();
