#include "measurement/events/APMSessionReporter.h"

#include <algorithm>
#include <cmath>

#include "measurement/APMMonitor.h"
#include "measurement/events/APMMeasurement.h"

namespace {

constexpr int kCodeNegativeTimeout = 4001;
constexpr int kCodeReservedExtendSession = 4002;
constexpr int kCodeRemoveSessionProperty = 4003;
constexpr int kCodeNegativeEngagement = 4004;
constexpr std::int64_t kMaxEngagementMillis = 3600000;

}  // namespace

APMSessionReporter::APMSessionReporter(APMMeasurement& measurement) : measurement_(measurement) {}

APMSessionReporter::~APMSessionReporter() {
  *alive_ = false;
  if (engagementTimer_) engagementTimer_->invalidate();
}

void APMSessionReporter::handleAppDidBecomeActive() {
  measurement_.scheduler().scheduleOnWorkerQueueBlockID(
      "APMSessionReporter:becomeActive", [this] { handleAppDidBecomeActiveOnWorkerQueue(); });
}

void APMSessionReporter::handleAppWillResignActiveWithScreen(APMParameters screen) {
  measurement_.scheduler().scheduleOnWorkerQueueBlockID(
      "APMSessionReporter:resignActive",
      [this, screen = std::move(screen)] { handleAppWillResignActiveOnWorkerQueue(screen); });
}

void APMSessionReporter::handleAppDidBecomeActiveOnWorkerQueue() {
  active_ = true;
  engagementStart_ = kit::uptime();
  if (isSessionExpired() && measurement_.settings().sessionReportingEnabled) {
    if (auto start = startNewSession()) measurement_.handleInternalEventOnWorkerQueue(*start);
  } else {
    extendSession();
  }
  armEngagementTimer();
}

void APMSessionReporter::handleAppWillResignActiveOnWorkerQueue(const APMParameters& screen) {
  std::weak_ptr<bool> alive = alive_;
  kit::mainQueue().async([this, alive] {
    if (alive.expired() || !engagementTimer_) return;
    engagementTimer_->invalidate();
    engagementTimer_.reset();
  });
  std::int64_t engagement = active_ ? pendingEngagementMillis() : 0;
  active_ = false;
  const APMMeasurementSettings& settings = measurement_.settings();
  double now = APMMeasurement::now();
  bool cutIntoBackground =
      settings.appBackgroundedEventEnabled && settings.redundantEngagementRemovalEnabled;
  if (engagement > 0 && !cutIntoBackground) {
    APMParameters parameters = screen;
    parameters.insert_or_assign("_et", APMValue::fromInt64(engagement));
    if (auto e = APMEvent::create("auto", "_e", now, 0, std::move(parameters))) {
      measurement_.handleInternalEventOnWorkerQueue(*e);
    }
  }
  if (settings.appBackgroundedEventEnabled) {
    APMParameters parameters = screen;
    if (cutIntoBackground && engagement > 0) parameters.insert_or_assign("_et", APMValue::fromInt64(engagement));
    if (auto ab = APMEvent::create("auto", "_ab", now, 0, std::move(parameters))) {
      measurement_.handleInternalEventOnWorkerQueue(*ab);
    }
  }
  extendSession();
}

void APMSessionReporter::setSessionTimeoutInterval(double seconds) {
  if (seconds < 0) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeNegativeTimeout,
                    "Received negative timeout session duration. Setting to 0.0 instead.");
    seconds = 0.0;
  }
  timeout_ = seconds;
}

double APMSessionReporter::timeoutSessionInterval() const {
  return timeout_ >= 0 ? timeout_ : measurement_.settings().sessionDefaultTimeoutInterval;
}

bool APMSessionReporter::isSessionExpired() const {
  double last = measurement_.persistedConfig().lastSessionActivityClockTime();
  return std::fabs(APMMeasurement::now() - last) > timeoutSessionInterval();
}

void APMSessionReporter::extendSession() {
  measurement_.persistedConfig().setLastSessionActivityClockTime(APMMeasurement::now());
}

std::optional<APMEvent> APMSessionReporter::processSessionFromEvent(const APMEvent& event) {
  const APMValue* extend = event.parameter("extend_session");
  if (!extend) {
    if (active_) extendSession();
    return std::nullopt;
  }
  if (event.integerParameter("extend_session") != 1 || !extend->isInt64()) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeReservedExtendSession,
                    "extend_session is a reserved parameter. To extend or start a session in the "
                    "background, set an event parameter",
                    "extend_session", 1);
    return std::nullopt;
  }
  if (isSessionExpired() && measurement_.settings().sessionReportingEnabled) {
    return startNewSession();
  }
  extendSession();
  return std::nullopt;
}

std::optional<APMEvent> APMSessionReporter::startNewSession() {
  APMDatabase* database = measurement_.database();
  if (!database) return std::nullopt;
  double now = APMMeasurement::now();
  // The expired session's properties go together.
  platform::Error error;
  database->performTransaction(
      [&] {
        for (const char* name : {"_sid", "_sno", "_se"}) {
          if (!database->deleteUserAttributeWithName(name, &error)) {
            APMMonitor::log(kAPMMonitorLevelError, kCodeRemoveSessionProperty,
                            std::string("Failed to remove session ") +
                                (name == std::string("_sid")   ? "ID"
                                 : name == std::string("_sno") ? "number"
                                                               : "engagement") +
                                " user property on session expiration. Error",
                            error.localizedDescription);
            return false;
          }
        }
        return true;
      },
      &error);
  // updatePropertiesForNewSessionStart
  std::int64_t number = measurement_.persistedConfig().sessionNumber() + 1;
  measurement_.persistedConfig().setSessionNumber(number);
  auto sessionID = static_cast<std::int64_t>(std::floor(now));
  measurement_.setUserAttributeOnWorkerQueue("_sid", APMValue::fromInt64(sessionID), "auto", now);
  measurement_.setUserAttributeOnWorkerQueue("_sno", APMValue::fromInt64(number), "auto", now);
  extendSession();
  return APMEvent::create(
      "auto", "_s", now, 0,
      {{"_sid", APMValue::fromInt64(sessionID)}, {"_sno", APMValue::fromInt64(number)}});
}

std::int64_t APMSessionReporter::pendingEngagementMillis() {
  double elapsed = kit::uptime() - engagementStart_;
  if (elapsed < 0) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeNegativeEngagement,
                    "Incurred engagement time is negative. Setting to 0.0 instead", elapsed);
    elapsed = 0.0;
  }
  auto millis = static_cast<std::int64_t>(std::llround(elapsed * 1000.0));
  return std::min(millis, kMaxEngagementMillis);
}

void APMSessionReporter::logUserEngagementEvent() {
  if (!active_) return;
  std::int64_t engagement = pendingEngagementMillis();
  engagementStart_ = kit::uptime();
  if (engagement <= 0) return;
  if (auto e = APMEvent::create("auto", "_e", APMMeasurement::now(), 0,
                                {{"_et", APMValue::fromInt64(engagement)}})) {
    measurement_.handleInternalEventOnWorkerQueue(*e);
  }
}

void APMSessionReporter::armEngagementTimer() {
  double interval = measurement_.settings().sessionEventUserEngagementInterval;
  if (interval <= 0) return;
  std::weak_ptr<bool> alive = alive_;
  kit::mainQueue().async([this, alive, interval] {
    if (alive.expired()) return;
    if (engagementTimer_) engagementTimer_->invalidate();
    // "Engagement timer": on the main run loop, reporting on the worker queue.
    engagementTimer_ = kit::scheduledTimer(interval, true, [this, alive](kit::Timer&) {
      if (alive.expired()) return;
      measurement_.scheduler().scheduleOnWorkerQueueBlockID(
          "APMSessionReporter:engagementTimer", [this, alive] {
            if (!alive.expired()) logUserEngagementEvent();
          });
    });
  });
}
