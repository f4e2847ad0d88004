// APMSessionReporter: sessions and engagement. A session is expired when more than the
// timeout (default 1800 s) lies between now and the last activity; becoming active then
// starts a new one with `_s`. Time on screen is reported in `_e` (`_et`, milliseconds,
// capped at one hour) when the app leaves the foreground and by the engagement timer.
//
// Threading: handleAppDidBecomeActive and handleAppWillResignActiveWithScreen may be called
// from any thread and hop onto the worker queue; everything else runs on the worker queue.
// Owned by APMMeasurement, which outlives it.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "kit/Dispatch.h"
#include "measurement/events/APMEvent.h"

class APMMeasurement;

class APMSessionReporter {
 public:
  explicit APMSessionReporter(APMMeasurement& measurement);
  ~APMSessionReporter();

  void handleAppDidBecomeActive();
  void handleAppWillResignActiveWithScreen(APMParameters screen);

  // ---- worker queue ----
  void handleAppDidBecomeActiveOnWorkerQueue();
  void handleAppWillResignActiveOnWorkerQueue(const APMParameters& screen);
  // A negative interval becomes 0.0 ("Received negative timeout session duration. Setting to
  // 0.0 instead.").
  void setSessionTimeoutInterval(double seconds);
  double timeoutSessionInterval() const;
  bool isSessionExpired() const;
  // Records now as the session's last activity.
  void extendSession();
  // What an event does to the session: `extend_session` = 1 restarts an expired session or
  // extends a live one; the `_s` event to write after it is returned.
  std::optional<APMEvent> processSessionFromEvent(const APMEvent& event);
  // Starts a new session now: removes the old session properties, counts the session, sets
  // `_sid` and `_sno`, and returns the `_s` event (not yet written).
  std::optional<APMEvent> startNewSession();
  // Logs `_e` with the engagement since the last report, and restarts the count.
  void logUserEngagementEvent();
  // Engagement not yet reported, milliseconds, capped at 3600000.
  std::int64_t pendingEngagementMillis();
  bool isActive() const { return active_; }

 private:
  void armEngagementTimer();

  APMMeasurement& measurement_;
  double timeout_ = -1;  // < 0: the settings' default
  bool active_ = false;
  double engagementStart_ = 0;  // uptime when engagement counting (re)started
  // Touched on the main thread only.
  std::shared_ptr<kit::Timer> engagementTimer_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};
