// Simple views: labels, image views, animation views, and layout constraints.
#pragma once

#include <optional>
#include <string>

#include "kit/Image.h"
#include "kit/View.h"

namespace kit {

enum class TextAlignment { Left = 0, Center = 1, Right = 2, Justified = 3, Natural = 4 };

class Label : public View {
 public:
  const std::optional<std::string>& text() const { return text_; }
  void setText(std::optional<std::string> t) { assign(text_, std::move(t), "text"); }
  const std::optional<Color>& textColor() const { return textColor_; }
  void setTextColor(std::optional<Color> c) { assign(textColor_, c, "textColor"); }
  double fontSize() const { return fontSize_; }
  void setFontSize(double s) { assign(fontSize_, s, "fontSize"); }
  TextAlignment textAlignment() const { return alignment_; }
  void setTextAlignment(TextAlignment a) { assign(alignment_, a, "textAlignment"); }
  int numberOfLines() const { return numberOfLines_; }
  void setNumberOfLines(int n) { assign(numberOfLines_, n, "numberOfLines"); }

 private:
  std::optional<std::string> text_;
  std::optional<Color> textColor_;
  double fontSize_ = 17;
  TextAlignment alignment_ = TextAlignment::Natural;
  int numberOfLines_ = 1;
};

class ImageView : public View {
 public:
  ImageView() { setUserInteractionEnabled(false); }
  const ImagePtr& image() const { return image_; }
  // Notifies "image" unless the new image is the same picture (Image::same).
  void setImage(ImagePtr image) {
    if (Image::same(image_, image)) return;
    image_ = std::move(image);
    notify("image");
  }

 private:
  ImagePtr image_;
};

// How an animation repeats.
enum class LoopMode { PlayOnce = 0, Loop = 1, AutoReverse = 2 };

// A vector animation looked up by name among the app's animation files ("scan", "clean").
class AnimationView : public View {
 public:
  explicit AnimationView(std::string animationName = {}) : animationName_(std::move(animationName)) {}
  const std::string& animationName() const { return animationName_; }
  void setAnimationName(std::string n) { assign(animationName_, std::move(n), "animationName"); }
  LoopMode loopMode() const { return loopMode_; }
  void setLoopMode(LoopMode m) { assign(loopMode_, m, "loopMode"); }
  double animationSpeed() const { return speed_; }
  void setAnimationSpeed(double s) { assign(speed_, s, "animationSpeed"); }
  bool isAnimationPlaying() const { return playing_; }
  void play() { assign(playing_, true, "playing"); }
  void pause() { assign(playing_, false, "playing"); }
  void stop() { assign(playing_, false, "playing"); }

 private:
  std::string animationName_;
  LoopMode loopMode_ = LoopMode::PlayOnce;
  double speed_ = 1.0;
  bool playing_ = false;
};

// A layout constraint of the storyboard; the app changes its constant (a height, as a rule).
class LayoutConstraint : public Object, public Observable {
 public:
  explicit LayoutConstraint(double constant = 0) : constant_(constant) {}
  double constant() const { return constant_; }
  void setConstant(double c) { assign(constant_, c, "constant"); }
  bool isActive() const { return active_; }
  void setActive(bool a) { assign(active_, a, "active"); }
  double priority() const { return priority_; }
  void setPriority(double p) { assign(priority_, p, "priority"); }

 private:
  double constant_;
  bool active_ = true;
  double priority_ = 1000;
};

}  // namespace kit
