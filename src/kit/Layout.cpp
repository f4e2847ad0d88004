// The layout pass (views that asked for layout since the last pass do their layout work, in
// the order they asked, until none is left) and the conversion of points between views.
#include <memory>
#include <vector>

#include "kit/Dispatch.h"
#include "kit/View.h"

namespace kit {
namespace {

// Main thread only, like the rest of the UI model.
std::vector<std::weak_ptr<View>>& pending() {
  static std::vector<std::weak_ptr<View>> list;
  return list;
}

}  // namespace

void View::setNeedsLayout() {
  needsLayout_ = true;
  pending().push_back(std::static_pointer_cast<View>(shared_from_this()));
}

namespace {

// A view's top-left corner in its root's coordinates.
Point originInRoot(const View* view) {
  Point origin;
  for (; view; view = view->superview()) {
    Point step = view->originInSuperview();
    origin.x += step.x;
    origin.y += step.y;
  }
  return origin;
}

}  // namespace

Point View::convertPoint(Point point, const View* view) const {
  Point from = originInRoot(this), to = originInRoot(view);
  return {point.x + from.x - to.x, point.y + from.y - to.y};
}

void runLayoutPass() {
  // Layout work may ask for more layout (a table cell reloading its own collection); a bound on
  // the rounds keeps a view that always asks again from hanging the main queue.
  for (int round = 0; round < 64 && !pending().empty(); ++round) {
    std::vector<std::weak_ptr<View>> batch;
    batch.swap(pending());
    for (auto& weak : batch) {
      if (auto view = weak.lock()) view->layoutIfNeeded();
    }
  }
}

}  // namespace kit
