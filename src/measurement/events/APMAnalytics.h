// APMAnalytics: the client's public entry points, all class-level and callable from any
// thread. Names are checked at once; everything else happens in order on the serial queue
// "APMAnalyticsQueue" (which takes the time of each call) and then on the operation queue
// "APMAnalyticsOperationQueue", which holds every call until the measurement core exists
// (unsuspendOperationQueue), so calls made before the client started are kept, in order.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "kit/Value.h"
#include "measurement/events/APMValue.h"

class APMMeasurement;

inline constexpr const char* kAPMAnalyticsQueueLabel = "APMAnalyticsQueue";
inline constexpr const char* kAPMAnalyticsOperationQueueLabel = "APMAnalyticsOperationQueue";

class APMAnalytics {
 public:
  // Sees (origin, internal name, cleaned parameters) of every event before it is built and
  // may change the parameters. On the operation queue.
  using LogEventInterceptor =
      std::function<void(const std::string& origin, const std::string& name, APMParameters&)>;
  // Hears (origin, internal name, parameters, time) of every logged event, on the worker
  // queue.
  using LogEventListener = std::function<void(const std::string& origin, const std::string& name,
                                              const APMParameters& parameters, double timestamp)>;

  // An event from the application (origin "app").
  static void logEventWithName(const kit::Value& name, const kit::Dictionary& parameters);
  // A public event: a name that fails the public check logs an internal `_err` event (13
  // when reserved, else 2, the name in `_ev`) and nothing else happens.
  static void logEventWithOrigin(const std::string& origin, const kit::Value& name,
                                 const kit::Dictionary& parameters);
  static void logInternalEventWithOrigin(const std::string& origin, const std::string& name,
                                         const kit::Dictionary& parameters);
  static void logInternalEventWithOrigin(const std::string& origin, const std::string& name,
                                         double timestamp, const kit::Dictionary& parameters);
  static void logEventWithOrigin(const std::string& origin, bool isPublicEvent,
                                 const std::string& name, const kit::Dictionary& parameters);

  // User properties from the application (origin "app"); see APMCheckUserProperty.
  static void setUserPropertyString(const kit::Value& value, const kit::Value& name);
  static void setUserID(const kit::Value& userID);
  // Parameters added to every later application event that lacks them; a null value
  // removes that default, an empty dictionary removes them all.
  static void setDefaultEventParameters(const kit::Dictionary& parameters);
  static void setSessionTimeoutInterval(double seconds);
  // The current screen: later events carry `_sn`, `_sc` and `_si`.
  static void setScreenName(const std::optional<std::string>& screenName,
                            const std::optional<std::string>& screenClass);

  // Returns a token for removeLogEventListener.
  static int addLogEventListener(LogEventListener listener);
  static void removeLogEventListener(int token);
  static void setLogEventInterceptor(LogEventInterceptor interceptor);

  // Consent (defined in consent/APMConsent.cpp). The application's setting (source 30), or
  // with the key "consent_settings_3p" another party's (source 10); keys "ad_storage" and
  // "analytics_storage", values "granted" or "denied". A withdrawal resets the client's data,
  // at once while it runs, else at its next start.
  static void setConsent(const kit::Dictionary& consent);
  static void setConsentForKey(const kit::Dictionary& consent, const std::string& key);
  // Forgets every consent setting.
  static void clearConsent();

  // The URL that opened the app (defined in consent/APMConsent.cpp): reported as a campaign
  // by the running client; before it runs, kept under "/stuvop/measurement/deep_link" and
  // reported when it starts.
  static void handleOpenURL(const std::string& url);
  // The application's hook for a deferred deep link, called on the main queue with the link
  // (null: none, and the link is only reported).
  static void setDeferredDeepLinkHandler(std::function<void(const std::string& url)> handler);

  // Hands the held calls to `measurement` and lets later calls through. Any thread.
  static void unsuspendOperationQueue(std::shared_ptr<APMMeasurement> measurement);
  // Forgets the core, the queues and every setting (tests and a reset of the process state).
  static void resetForTesting();
};
