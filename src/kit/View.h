// View: the base of the UI model. A view holds the properties the app sets and that a
// renderer draws; it knows its superview and owns its subviews and gesture recognizers.
// Views are main-thread objects, always owned by shared_ptr (make them with kit::make).
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/Color.h"
#include "kit/Geometry.h"
#include "kit/Object.h"
#include "kit/Observable.h"

namespace kit {

class GestureRecognizer;

// How content fills a view (the platform's values).
enum class ContentMode {
  ScaleToFill = 0,
  ScaleAspectFit = 1,
  ScaleAspectFill = 2,
  Redraw = 3,
  Center = 4,
};

// Makes a view (or any Object) owned by shared_ptr.
template <class T, class... Args>
std::shared_ptr<T> make(Args&&... args) {
  return std::make_shared<T>(std::forward<Args>(args)...);
}

// A spring that carries a view's transform from `from` to the transform it has now, as the
// renderer plays it. The model holds the final transform at once; only pixels move.
struct TransformAnimation {
  AffineTransform from;
  double duration = 0;         // seconds
  double delay = 0;            // seconds before it starts
  double damping = 1;          // 0 (springs for ever) to 1 (no overshoot)
  double initialVelocity = 0;  // in distances per second, the distance being from `from` to the end
  unsigned serial = 0;         // grows with each animation of the view
};

class View : public Object, public Observable {
 public:
  View() = default;
  explicit View(Rect frame) : frame_(frame) {}
  ~View() override;

  // --- Hierarchy ---
  View* superview() const { return superview_; }
  const std::vector<std::shared_ptr<View>>& subviews() const { return subviews_; }
  // Adds `view` on top of the subviews, taking it from its old superview first.
  void addSubview(std::shared_ptr<View> view);
  void removeFromSuperview();
  // True when `view` is this view or lies below it.
  bool isDescendantOf(const View& ancestor) const;
  // The nearest ancestor (not this view) of type T, or null.
  template <class T>
  T* ancestorOfType() const {
    for (View* v = superview_; v; v = v->superview_) {
      if (auto* t = dynamic_cast<T*>(v)) return t;
    }
    return nullptr;
  }

  // --- Properties (each setter notifies its name on change) ---
  bool isHidden() const { return hidden_; }
  void setHidden(bool v) { assign(hidden_, v, "hidden"); }
  double alpha() const { return alpha_; }
  void setAlpha(double v) { assign(alpha_, v, "alpha"); }
  const std::optional<Color>& backgroundColor() const { return backgroundColor_; }
  void setBackgroundColor(std::optional<Color> v) { assign(backgroundColor_, v, "backgroundColor"); }
  const std::optional<Color>& tintColor() const { return tintColor_; }
  void setTintColor(std::optional<Color> v) { assign(tintColor_, v, "tintColor"); }
  bool isUserInteractionEnabled() const { return userInteractionEnabled_; }
  void setUserInteractionEnabled(bool v) { assign(userInteractionEnabled_, v, "userInteractionEnabled"); }
  const Rect& frame() const { return frame_; }
  void setFrame(Rect v) { assign(frame_, v, "frame"); }
  Rect bounds() const { return Rect{{0, 0}, frame_.size}; }
  const AffineTransform& transform() const { return transform_; }
  // Inside animateWithSpring's block the change is also recorded as transformAnimation.
  void setTransform(AffineTransform v);
  // The last animation of the transform, if any. Notifies "transformAnimation" when it changes.
  const std::optional<TransformAnimation>& transformAnimation() const { return transformAnimation_; }
  // Runs `animations` at once; every transform they set is animated from the transform the
  // view had before, with a spring of the given parameters. Nested calls take the innermost
  // parameters. Main thread.
  static void animateWithSpring(double duration, double delay, double damping, double initialVelocity,
                                const std::function<void()>& animations);
  int tag() const { return tag_; }
  void setTag(int v) { assign(tag_, v, "tag"); }
  ContentMode contentMode() const { return contentMode_; }
  void setContentMode(ContentMode v) { assign(contentMode_, v, "contentMode"); }
  bool clipsToBounds() const { return clipsToBounds_; }
  void setClipsToBounds(bool v) { assign(clipsToBounds_, v, "clipsToBounds"); }
  // 0 unspecified, 1 light, 2 dark.
  int overrideUserInterfaceStyle() const { return overrideUserInterfaceStyle_; }
  void setOverrideUserInterfaceStyle(int v) { assign(overrideUserInterfaceStyle_, v, "overrideUserInterfaceStyle"); }

  // Layer properties: border, corner radius, shadow, and a rounded-corner mask.
  double borderWidth() const { return borderWidth_; }
  void setBorderWidth(double v) { assign(borderWidth_, v, "borderWidth"); }
  const std::optional<Color>& borderColor() const { return borderColor_; }
  void setBorderColor(std::optional<Color> v) { assign(borderColor_, v, "borderColor"); }
  double cornerRadius() const { return cornerRadius_; }
  void setCornerRadius(double v) { assign(cornerRadius_, v, "cornerRadius"); }
  const std::optional<Color>& shadowColor() const { return shadowColor_; }
  void setShadowColor(std::optional<Color> v) { assign(shadowColor_, v, "shadowColor"); }
  Size shadowOffset() const { return shadowOffset_; }
  void setShadowOffset(Size v) { assign(shadowOffset_, v, "shadowOffset"); }
  double shadowRadius() const { return shadowRadius_; }
  void setShadowRadius(double v) { assign(shadowRadius_, v, "shadowRadius"); }
  double shadowOpacity() const { return shadowOpacity_; }
  void setShadowOpacity(double v) { assign(shadowOpacity_, v, "shadowOpacity"); }
  // Corners (RectCorner mask) rounded by a mask layer over the bounds; 0 means no mask.
  unsigned maskedCorners() const { return maskedCorners_; }
  double maskCornerRadius() const { return maskCornerRadius_; }
  void setCornerMask(unsigned corners, double radius);

  // --- Gestures ---
  void addGestureRecognizer(std::shared_ptr<GestureRecognizer> recognizer);
  const std::vector<std::shared_ptr<GestureRecognizer>>& gestureRecognizers() const {
    return gestureRecognizers_;
  }

  // --- Editing ---
  virtual bool isFirstResponder() const { return false; }
  virtual bool resignFirstResponder() { return false; }
  // Makes every first responder in this view's subtree resign. Returns true.
  bool endEditing(bool force);

  // --- Geometry ---
  // Where this view's top-left corner lies in its superview's coordinates: the frame's origin
  // here; a list's cell answers with its row's place.
  virtual Point originInSuperview() const { return frame_.origin; }
  // `point`, given in this view's coordinates, in the coordinates of `view` (of the root of
  // this view's tree when `view` is null). Both views must share a root for the answer to mean
  // anything.
  Point convertPoint(Point point, const View* view) const;

  // Registers this view with the next layout pass.
  void setNeedsLayout();
  // Runs layoutSubviews now when this view asked for layout since it last ran (else does
  // nothing); the layout pass calls it. Lists override it with their own pending work.
  virtual void layoutIfNeeded() {
    if (!needsLayout_) return;
    needsLayout_ = false;
    layoutSubviews();
  }
  // The view's own layout work. Does nothing here.
  virtual void layoutSubviews() {}
  // Tells whoever sizes this view from its contents (a renderer, a constraint) to ask again:
  // notifies "intrinsicContentSize".
  void invalidateIntrinsicContentSize() { notify("intrinsicContentSize"); }

  // True when this view and all its ancestors are shown and take touches.
  bool isReachableByTouch() const;

  // Notifies `property` to this view's observers (for subclasses' own properties).
  void notifyChanged(std::string_view property) { notify(property); }

 private:
  View* superview_ = nullptr;
  std::vector<std::shared_ptr<View>> subviews_;
  std::vector<std::shared_ptr<GestureRecognizer>> gestureRecognizers_;
  bool hidden_ = false;
  bool needsLayout_ = false;
  double alpha_ = 1.0;
  std::optional<Color> backgroundColor_;
  std::optional<Color> tintColor_;
  bool userInteractionEnabled_ = true;
  Rect frame_;
  AffineTransform transform_;
  std::optional<TransformAnimation> transformAnimation_;
  int tag_ = 0;
  ContentMode contentMode_ = ContentMode::ScaleToFill;
  bool clipsToBounds_ = false;
  int overrideUserInterfaceStyle_ = 0;
  double borderWidth_ = 0;
  std::optional<Color> borderColor_;
  double cornerRadius_ = 0;
  std::optional<Color> shadowColor_;
  Size shadowOffset_{0, -3};
  double shadowRadius_ = 3;
  double shadowOpacity_ = 0;
  unsigned maskedCorners_ = 0;
  double maskCornerRadius_ = 0;
};

// The screen the app runs on: its bounds in points. Set by whoever renders; headless the
// phone size 390 by 844.
class Screen {
 public:
  static Rect mainBounds();
  static void setMainBounds(Rect bounds);
};

}  // namespace kit
