// Window: the top of a view hierarchy, showing one root controller.
#pragma once

#include <memory>

#include "kit/ViewController.h"

namespace kit {

class Window : public View {
 public:
  explicit Window(Rect frame = Screen::mainBounds()) : View(frame) {}

  const std::shared_ptr<ViewController>& rootViewController() const { return root_; }
  // Replaces the root; a shown window shows the new root at once.
  void setRootViewController(std::shared_ptr<ViewController> root);
  // Shows the window and its root (the root's appearance callbacks run).
  void makeKeyAndVisible();
  bool isKeyWindow() const { return key_; }
  void setKeyWindow(bool key) { assign(key_, key, "keyWindow"); }
  bool isVisible() const { return visible_; }

 private:
  std::shared_ptr<ViewController> root_;
  bool key_ = false;
  bool visible_ = false;
};

}  // namespace kit
