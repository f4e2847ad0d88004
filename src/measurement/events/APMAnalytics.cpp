#include "measurement/events/APMAnalytics.h"

#include <cctype>

#include <cmath>
#include <deque>
#include <map>
#include <mutex>

#include "kit/Date.h"
#include "kit/Dispatch.h"
#include "kit/Singleton.h"
#include "measurement/APMMonitor.h"
#include "measurement/events/APMDataTypeValidator.h"
#include "measurement/events/APMEventNames.h"
#include "measurement/events/APMMeasurement.h"
#include "measurement/events/APMParameterCleaning.h"
#include "measurement/events/APMUserPropertyValidation.h"
#include "platform/Platform.h"

namespace {

// A serial queue that holds its tasks while suspended.
class OperationQueue {
 public:
  void async(kit::Task task) {
    std::lock_guard lock(mu_);
    if (suspended_) {
      held_.push_back(std::move(task));
      return;
    }
    queue()->async(std::move(task));
  }
  void resume() {
    std::lock_guard lock(mu_);
    if (!suspended_) return;
    suspended_ = false;
    for (kit::Task& task : held_) queue()->async(std::move(task));
    held_.clear();
  }

 private:
  // Under mu_.
  std::shared_ptr<kit::Queue> queue() {
    if (!queue_) queue_ = kit::makeSerialQueue(kAPMAnalyticsOperationQueueLabel);
    return queue_;
  }
  std::mutex mu_;
  bool suspended_ = true;
  std::deque<kit::Task> held_;
  std::shared_ptr<kit::Queue> queue_;
};

// The process-wide state of the entry points.
struct AnalyticsState {
  std::mutex mu;
  std::shared_ptr<kit::Queue> analyticsQueue;
  OperationQueue operations;
  std::shared_ptr<APMMeasurement> measurement;
  APMParameters defaultParameters;
  APMParameters screen;
  APMAnalytics::LogEventInterceptor interceptor;
  std::map<int, APMAnalytics::LogEventListener> listeners;
  int nextToken = 1;

  kit::Queue& queue() {
    std::lock_guard lock(mu);
    if (!analyticsQueue) analyticsQueue = kit::makeSerialQueue(kAPMAnalyticsQueueLabel);
    return *analyticsQueue;
  }
};

std::shared_ptr<AnalyticsState> state() { return kit::sharedInstance<AnalyticsState>(); }

constexpr int kCodeUserIDInvalid = 25004;

// Runs `block` with the core on its worker queue, after every earlier call.
void withMeasurement(std::function<void(APMMeasurement&)> block) {
  auto s = state();
  s->operations.async([s, block = std::move(block)] {
    std::shared_ptr<APMMeasurement> measurement;
    {
      std::lock_guard lock(s->mu);
      measurement = s->measurement;
    }
    if (!measurement) return;
    measurement->scheduler().scheduleOnWorkerQueueBlockID(
        "APMAnalytics:operation", [measurement, block] { block(*measurement); });
  });
}

void logOnSerialQueue(const std::string& origin, bool isPublicEvent, const std::string& name,
                      const kit::Dictionary& parameters, std::optional<double> timestamp) {
  auto s = state();
  APMParameters screen;
  bool hasScreen = parameters.count("_si") || parameters.count("_sc") || parameters.count("_sn");
  if (!hasScreen) {
    std::lock_guard lock(s->mu);
    screen = s->screen;
  }
  s->queue().async([s, origin, isPublicEvent, name, parameters, timestamp,
                    screen = std::move(screen)]() mutable {
    double time = timestamp.value_or(kit::Date::now().timeIntervalSince1970);
    s->operations.async([s, origin = std::move(origin), isPublicEvent, name = std::move(name),
                         withDefaults = std::move(parameters), time,
                         screen = std::move(screen)]() mutable {
      std::shared_ptr<APMMeasurement> measurement;
      APMAnalytics::LogEventInterceptor interceptor;
      {
        std::lock_guard lock(s->mu);
        measurement = s->measurement;
        interceptor = s->interceptor;
        if (origin == "app") {
          for (const auto& [key, value] : s->defaultParameters) {
            withDefaults.emplace(key, value.objectValue());
          }
        }
      }
      if (!measurement) return;
      std::string internalName =
          isPublicEvent ? APMInternalEventName(name).value_or(name) : name;
      APMParameters cleaned =
          APMCleanParameters(withDefaults, name, isPublicEvent, false,
                             static_cast<int>(measurement->settings().maxPublicEventParams));
      APMAddScreenParameters(cleaned, screen);
      APMApplyValueRule(internalName, cleaned);
      if (interceptor) interceptor(origin, internalName, cleaned);
      auto event = APMEvent::create(origin, internalName, time, 0, std::move(cleaned));
      if (!event) return;
      measurement->logEvent(std::move(*event));
    });
  });
}

// The personalised-ads setting a value stands for: a text reads as the platform reads a
// string as a truth value (after blanks, a sign and leading zeros: "Y", "y", "T", "t" or a digit
// 1 to 9 is true, anything else false); null clears the setting.
std::optional<bool> personalizedAdsSetting(const kit::Value& value) {
  if (value.isNull()) return std::nullopt;
  if (auto b = value.asBool()) return *b;
  if (auto i = value.asInteger()) return *i != 0;
  if (auto d = value.asReal()) return *d != 0;
  const std::string* text = value.asString();
  if (!text) return false;
  std::size_t i = 0;
  while (i < text->size() && std::isspace(static_cast<unsigned char>((*text)[i]))) ++i;
  if (i < text->size() && ((*text)[i] == '+' || (*text)[i] == '-')) ++i;
  while (i < text->size() && (*text)[i] == '0') ++i;
  if (i == text->size()) return false;
  char c = (*text)[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

void applyUserPropertyOutcome(const APMUserPropertyOutcome& outcome) {
  double now = kit::Date::now().timeIntervalSince1970;
  if (outcome.personalizedAds) {
    std::optional<bool> allowed = personalizedAdsSetting(*outcome.personalizedAds);
    withMeasurement([allowed](APMMeasurement& m) { m.setPersonalizedAdsOnWorkerQueue(allowed); });
  }
  if (outcome.errorEventParameters) {
    // The error parameters are already clean; they go as they are.
    APMParameters parameters = *outcome.errorEventParameters;
    withMeasurement([parameters](APMMeasurement& m) { m.logErrorEventOnWorkerQueue(parameters); });
  }
  for (const std::string& name : outcome.removals) {
    withMeasurement([name, now](APMMeasurement& m) {
      m.setUserAttributeOnWorkerQueue(name, std::nullopt, "app", now);
    });
  }
  if (outcome.set) {
    auto set = *outcome.set;
    withMeasurement([set, now](APMMeasurement& m) {
      m.setUserAttributeOnWorkerQueue(set.name, set.value, set.origin, now);
    });
  }
}

}  // namespace

void APMAnalytics::logEventWithName(const kit::Value& name, const kit::Dictionary& parameters) {
  logEventWithOrigin("app", name, parameters);
}

void APMAnalytics::logEventWithOrigin(const std::string& origin, const kit::Value& name,
                                      const kit::Dictionary& parameters) {
  int failure = 0;
  if (!APMDataTypeValidator::isValidPublicEventName(name, &failure)) {
    const std::string* text = name.asString();
    APMParameters error = APMErrorParameters(
        failure == 4 ? APMEventErrorCode::EventNameIsReserved : APMEventErrorCode::InvalidEventName,
        text ? *text : "", 40);
    withMeasurement([error](APMMeasurement& m) { m.logErrorEventOnWorkerQueue(error); });
    return;
  }
  logEventWithOrigin(origin, true, *name.asString(), parameters);
}

void APMAnalytics::logInternalEventWithOrigin(const std::string& origin, const std::string& name,
                                              const kit::Dictionary& parameters) {
  logOnSerialQueue(origin, false, name, parameters, std::nullopt);
}

void APMAnalytics::logInternalEventWithOrigin(const std::string& origin, const std::string& name,
                                              double timestamp,
                                              const kit::Dictionary& parameters) {
  logOnSerialQueue(origin, false, name, parameters, timestamp);
}

void APMAnalytics::logEventWithOrigin(const std::string& origin, bool isPublicEvent,
                                      const std::string& name, const kit::Dictionary& parameters) {
  if (name == "screen_view") {
    // trackScreenWithParameters:timestamp: the screen becomes current and is reported.
    auto s = state();
    APMParameters screen;
    auto nameIt = parameters.find("screen_name");
    auto classIt = parameters.find("screen_class");
    if (nameIt != parameters.end() && nameIt->second.asString()) {
      screen.insert_or_assign("_sn", APMValue::fromString(*nameIt->second.asString()));
    }
    if (classIt != parameters.end() && classIt->second.asString()) {
      screen.insert_or_assign("_sc", APMValue::fromString(*classIt->second.asString()));
    }
    std::int64_t id = 0;
    platform::secureRandom().copyBytes(reinterpret_cast<std::uint8_t*>(&id), sizeof id);
    screen.insert_or_assign("_si", APMValue::fromInt64(id));
    kit::Dictionary reported;
    for (const auto& [key, value] : screen) reported.emplace(key, value.objectValue());
    {
      std::lock_guard lock(s->mu);
      s->screen = screen;
    }
    logOnSerialQueue("auto", false, "_vs", reported, std::nullopt);
    return;
  }
  logOnSerialQueue(origin, isPublicEvent, name, parameters, std::nullopt);
}

void APMAnalytics::setUserPropertyString(const kit::Value& value, const kit::Value& name) {
  applyUserPropertyOutcome(APMCheckUserProperty(value, name));
}

void APMAnalytics::setUserID(const kit::Value& userID) {
  if (!userID.isNull() && !userID.isString()) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeUserIDInvalid, "User ID must be NSString. User ID",
                    APMTypeName(userID));
    return;
  }
  applyUserPropertyOutcome(APMCheckUserID(userID, false));
}

void APMAnalytics::setDefaultEventParameters(const kit::Dictionary& parameters) {
  auto s = state();
  std::lock_guard lock(s->mu);
  if (parameters.empty()) {
    s->defaultParameters.clear();
    return;
  }
  for (const auto& [key, value] : parameters) {
    if (value.isNull()) {
      s->defaultParameters.erase(key);
    } else if (auto converted = APMValue::valueFromObject(value, true)) {
      s->defaultParameters.insert_or_assign(key, *converted);
    }
  }
}

void APMAnalytics::setSessionTimeoutInterval(double seconds) {
  withMeasurement([seconds](APMMeasurement& m) {
    m.sessionReporter().setSessionTimeoutInterval(seconds);
  });
}

void APMAnalytics::setScreenName(const std::optional<std::string>& screenName,
                                 const std::optional<std::string>& screenClass) {
  kit::Dictionary parameters;
  if (screenName) parameters["screen_name"] = *screenName;
  if (screenClass) parameters["screen_class"] = *screenClass;
  logEventWithOrigin("app", true, "screen_view", parameters);
}

int APMAnalytics::addLogEventListener(LogEventListener listener) {
  auto s = state();
  std::lock_guard lock(s->mu);
  int token = s->nextToken++;
  s->listeners.emplace(token, std::move(listener));
  return token;
}

void APMAnalytics::removeLogEventListener(int token) {
  auto s = state();
  std::lock_guard lock(s->mu);
  s->listeners.erase(token);
}

void APMAnalytics::setLogEventInterceptor(LogEventInterceptor interceptor) {
  auto s = state();
  std::lock_guard lock(s->mu);
  s->interceptor = std::move(interceptor);
}

void APMAnalytics::unsuspendOperationQueue(std::shared_ptr<APMMeasurement> measurement) {
  auto s = state();
  std::weak_ptr<AnalyticsState> weak = s;
  measurement->addEventListener([weak](const APMEvent& event) {
    auto locked = weak.lock();
    if (!locked) return;
    std::vector<LogEventListener> listeners;
    {
      std::lock_guard lock(locked->mu);
      for (const auto& [token, listener] : locked->listeners) listeners.push_back(listener);
    }
    for (const auto& listener : listeners) {
      listener(event.origin(), event.name(), event.parameters(), event.timestamp());
    }
  });
  {
    std::lock_guard lock(s->mu);
    s->measurement = std::move(measurement);
  }
  s->operations.resume();
}

void APMAnalytics::resetForTesting() {
  auto s = state();
  std::lock_guard lock(s->mu);
  s->measurement.reset();
  s->listeners.clear();
  s->interceptor = nullptr;
  s->defaultParameters.clear();
  s->screen.clear();
}
