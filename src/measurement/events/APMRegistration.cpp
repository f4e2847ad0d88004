#include "measurement/events/APMRegistration.h"

#include <mutex>

#include "kit/ApplicationNotifications.h"
#include "kit/NotificationCenter.h"
#include "kit/Singleton.h"
#include "measurement/events/APMAnalytics.h"
#include "measurement/events/APMMeasurement.h"

extern "C" {
int apm_registration_anchor = 0;
}

namespace {

// The observer identity of the registration.
const int kObserver = 0;

std::mutex gStartMu;

}  // namespace

std::shared_ptr<APMMeasurement> APMStartMeasurementOnLaunch() {
  std::lock_guard lock(gStartMu);
  if (auto existing = APMMeasurement::sharedInstance()) return existing;
  auto measurement = std::make_shared<APMMeasurement>(APMMeasurementOptions{});
  APMMeasurement::setSharedInstance(measurement);
  measurement->start();
  APMAnalytics::unsuspendOperationQueue(measurement);
  return measurement;
}

void APMRegisterForApplicationNotifications() {
  auto& center = kit::NotificationCenter::defaultCenter();
  center.removeObserver(&kObserver);
  center.addObserver(&kObserver, kit::kApplicationDidFinishLaunchingNotification, nullptr,
                     [](const kit::Notification&) { APMStartMeasurementOnLaunch(); });
  center.addObserver(&kObserver, kit::kApplicationDidBecomeActiveNotification, nullptr,
                     [](const kit::Notification&) {
                       APMStartMeasurementOnLaunch()->sessionReporter().handleAppDidBecomeActive();
                     });
  center.addObserver(&kObserver, kit::kApplicationWillResignActiveNotification, nullptr,
                     [](const kit::Notification&) {
                       if (auto m = APMMeasurement::sharedInstance()) {
                         m->sessionReporter().handleAppWillResignActiveWithScreen({});
                         m->handleAppWillResignActiveEvent();
                       }
                     });
}

namespace {

// The class-load hook: runs when the program starts. A reset of the process state (tests)
// drops the notification centre and the core; the registration then comes back on the new
// centre, as in a fresh process.
const bool kRegistered = [] {
  APMRegisterForApplicationNotifications();
  kit::registerSingletonReset([] {
    APMMeasurement::setSharedInstance(nullptr);
    APMRegisterForApplicationNotifications();
  });
  return true;
}();

}  // namespace
