// Gesture recognizers: tap and long press. A renderer (or a test) reports a recognized
// gesture with `recognize`, which updates the state and location and calls the targets.
#pragma once

#include <functional>
#include <vector>

#include "kit/Geometry.h"
#include "kit/Object.h"

namespace kit {

class View;

enum class GestureState { Possible = 0, Began = 1, Changed = 2, Ended = 3, Cancelled = 4, Failed = 5 };

class GestureRecognizer : public Object {
 public:
  using Action = std::function<void(GestureRecognizer&)>;

  // Adds a target-action pair; every recognized step calls it.
  void addTarget(Action action) { actions_.push_back(std::move(action)); }
  View* view() const { return view_; }
  GestureState state() const { return state_; }
  bool isEnabled() const { return enabled_; }
  void setEnabled(bool v) { enabled_ = v; }
  bool cancelsTouchesInView() const { return cancelsTouchesInView_; }
  void setCancelsTouchesInView(bool v) { cancelsTouchesInView_ = v; }
  // Location of the gesture in the recognizer's view.
  Point locationInView() const { return location_; }

  // Reports one step of the gesture at `location`. Does nothing when disabled, when
  // detached, or when the view cannot be touched. Returns whether the targets ran.
  bool recognize(GestureState state, Point location = {});

  // Called by View::addGestureRecognizer.
  void attach(View* view) { view_ = view; }

 private:
  std::vector<Action> actions_;
  View* view_ = nullptr;
  GestureState state_ = GestureState::Possible;
  Point location_;
  bool enabled_ = true;
  bool cancelsTouchesInView_ = true;
};

class TapGestureRecognizer : public GestureRecognizer {
 public:
  int numberOfTapsRequired() const { return taps_; }
  void setNumberOfTapsRequired(int n) { taps_ = n; }

 private:
  int taps_ = 1;
};

class LongPressGestureRecognizer : public GestureRecognizer {
 public:
  double minimumPressDuration() const { return minimumPressDuration_; }
  void setMinimumPressDuration(double s) { minimumPressDuration_ = s; }

 private:
  double minimumPressDuration_ = 0.5;
};

}  // namespace kit
