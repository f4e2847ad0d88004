#include "kit/View.h"

#include <algorithm>
#include <atomic>
#include <mutex>

#include "kit/GestureRecognizer.h"

namespace kit {

View::~View() {
  for (auto& sub : subviews_) sub->superview_ = nullptr;
}

void View::addSubview(std::shared_ptr<View> view) {
  if (!view || view.get() == this) return;
  view->removeFromSuperview();
  view->superview_ = this;
  subviews_.push_back(std::move(view));
  notify("subviews");
}

void View::removeFromSuperview() {
  View* parent = superview_;
  if (!parent) return;
  auto self = shared_from_this();  // keep alive while detaching
  superview_ = nullptr;
  std::erase_if(parent->subviews_, [this](const auto& v) { return v.get() == this; });
  parent->notify("subviews");
  notify("superview");
}

bool View::isDescendantOf(const View& ancestor) const {
  for (const View* v = this; v; v = v->superview_) {
    if (v == &ancestor) return true;
  }
  return false;
}

namespace {

// The parameters of the innermost animateWithSpring block running on this thread, if any.
thread_local const TransformAnimation* tCurrentSpring = nullptr;

}  // namespace

void View::setTransform(AffineTransform v) {
  if (tCurrentSpring && !(v == transform_)) {
    TransformAnimation animation = *tCurrentSpring;
    animation.from = transform_;
    animation.serial = transformAnimation_ ? transformAnimation_->serial + 1 : 1;
    transformAnimation_ = animation;
    notify("transformAnimation");
  }
  assign(transform_, v, "transform");
}

void View::animateWithSpring(double duration, double delay, double damping, double initialVelocity,
                             const std::function<void()>& animations) {
  TransformAnimation spring{AffineTransform{}, duration, delay, damping, initialVelocity, 0};
  const TransformAnimation* outer = tCurrentSpring;
  tCurrentSpring = &spring;
  struct Restore {
    const TransformAnimation* outer;
    ~Restore() { tCurrentSpring = outer; }
  } restore{outer};
  if (animations) animations();
}

void View::setCornerMask(unsigned corners, double radius) {
  if (maskedCorners_ == corners && maskCornerRadius_ == radius) return;
  maskedCorners_ = corners;
  maskCornerRadius_ = radius;
  notify("cornerMask");
}

void View::addGestureRecognizer(std::shared_ptr<GestureRecognizer> recognizer) {
  if (!recognizer) return;
  recognizer->attach(this);
  gestureRecognizers_.push_back(std::move(recognizer));
  notify("gestureRecognizers");
}

bool View::endEditing(bool /*force*/) {
  if (isFirstResponder()) resignFirstResponder();
  auto subs = subviews_;
  for (auto& sub : subs) sub->endEditing(true);
  return true;
}

bool View::isReachableByTouch() const {
  for (const View* v = this; v; v = v->superview_) {
    if (v->hidden_ || !v->userInteractionEnabled_ || v->alpha_ <= 0.01) return false;
  }
  return true;
}

namespace {
std::mutex gScreenMutex;
Rect gScreenBounds = makeRect(0, 0, 390, 844);
}  // namespace

Rect Screen::mainBounds() {
  std::lock_guard lock(gScreenMutex);
  return gScreenBounds;
}

void Screen::setMainBounds(Rect bounds) {
  std::lock_guard lock(gScreenMutex);
  gScreenBounds = bounds;
}

}  // namespace kit
