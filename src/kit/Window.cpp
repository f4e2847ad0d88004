#include "kit/Window.h"

namespace kit {

void Window::setRootViewController(std::shared_ptr<ViewController> root) {
  if (root == root_) return;
  auto old = root_;
  if (old && visible_) {
    old->beginAppearanceTransition(false, false);
    old->endAppearanceTransition();
    if (old->isViewLoaded()) old->view().removeFromSuperview();
  }
  root_ = std::move(root);
  notifyChanged("rootViewController");
  if (root_ && visible_) {
    addSubview(root_->sharedView());
    root_->beginAppearanceTransition(true, false);
    root_->endAppearanceTransition();
  }
}

void Window::makeKeyAndVisible() {
  setKeyWindow(true);
  setHidden(false);
  if (visible_) return;
  visible_ = true;
  notifyChanged("visible");
  if (root_) {
    addSubview(root_->sharedView());
    root_->beginAppearanceTransition(true, false);
    root_->endAppearanceTransition();
  }
}

}  // namespace kit
