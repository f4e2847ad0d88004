#include "kit/GestureRecognizer.h"

#include "kit/Dispatch.h"
#include "kit/View.h"

namespace kit {

bool GestureRecognizer::recognize(GestureState state, Point location) {
  if (!enabled_ || !view_ || !view_->isReachableByTouch()) return false;
  auto self = shared_from_this();
  state_ = state;
  location_ = location;
  auto actions = actions_;
  for (auto& action : actions) action(*this);
  if (state == GestureState::Ended || state == GestureState::Cancelled ||
      state == GestureState::Failed) {
    state_ = GestureState::Possible;
  }
  runLayoutPass();
  return true;
}

}  // namespace kit
