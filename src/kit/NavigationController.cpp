#include "kit/NavigationController.h"

#include <algorithm>

#include "kit/Fatal.h"

namespace kit {

NavigationController::NavigationController(std::shared_ptr<ViewController> root) {
  if (root) {
    stack_.push_back(root);
    root->setParentViewController(this);
    added_.push_back(root);
  }
}

ViewController* NavigationController::visibleViewController() const {
  if (presentedViewController()) return presentedViewController().get();
  return topViewController();
}

void NavigationController::setNavigationBarHidden(bool hidden, bool) {
  assign(navigationBarHidden_, hidden, "navigationBarHidden");
}

void NavigationController::adopt(const std::shared_ptr<ViewController>& controller) {
  if (std::find(stack_.begin(), stack_.end(), controller) != stack_.end()) {
    fatal("pushing the same view controller instance more than once is not supported");
  }
  if (auto* oldParent = dynamic_cast<NavigationController*>(controller->parentViewController())) {
    if (oldParent != this) fatal("the controller is already in another navigation stack");
  }
  controller->setParentViewController(this);
  added_.push_back(controller);
}

void NavigationController::release(const std::shared_ptr<ViewController>& controller) {
  removed_.push_back(controller);
}

void NavigationController::pushViewController(std::shared_ptr<ViewController> controller,
                                              bool animated) {
  if (!controller) return;
  auto self = shared_from_this();
  adopt(controller);
  stack_.push_back(controller);
  ScreenEvents::post({ScreenEvent::Push, this, controller, animated});
  notify("viewControllers");
  updateShown(animated);
}

std::shared_ptr<ViewController> NavigationController::popViewControllerAnimated(bool animated) {
  if (stack_.size() <= 1) return nullptr;
  auto self = shared_from_this();
  auto popped = stack_.back();
  stack_.pop_back();
  release(popped);
  ScreenEvents::post({ScreenEvent::Pop, this, popped, animated});
  notify("viewControllers");
  updateShown(animated);
  return popped;
}

std::vector<std::shared_ptr<ViewController>> NavigationController::popToViewController(
    ViewController* target, bool animated) {
  auto it = std::find_if(stack_.begin(), stack_.end(),
                         [target](const auto& vc) { return vc.get() == target; });
  if (it == stack_.end() || it + 1 == stack_.end()) return {};
  auto self = shared_from_this();
  std::vector<std::shared_ptr<ViewController>> popped(it + 1, stack_.end());
  stack_.erase(it + 1, stack_.end());
  for (auto& vc : popped) release(vc);
  ScreenEvents::post({ScreenEvent::Pop, this, popped.back(), animated});
  notify("viewControllers");
  updateShown(animated);
  return popped;
}

std::vector<std::shared_ptr<ViewController>> NavigationController::popToRootViewControllerAnimated(
    bool animated) {
  if (stack_.empty()) return {};
  return popToViewController(stack_.front().get(), animated);
}

void NavigationController::setViewControllers(std::vector<std::shared_ptr<ViewController>> controllers,
                                              bool animated) {
  auto self = shared_from_this();
  for (auto& old : stack_) {
    if (std::find(controllers.begin(), controllers.end(), old) == controllers.end()) release(old);
  }
  std::vector<std::shared_ptr<ViewController>> previous = stack_;
  stack_.clear();
  for (auto& vc : controllers) {
    if (std::find(previous.begin(), previous.end(), vc) == previous.end()) adopt(vc);
    stack_.push_back(vc);
  }
  ScreenEvents::post({ScreenEvent::SetStack, this, stack_.empty() ? nullptr : stack_.back(), animated});
  notify("viewControllers");
  updateShown(animated);
}

void NavigationController::updateShown(bool animated) {
  if (transitioning_) {
    again_ = true;
    return;
  }
  if (isOnScreen()) {
    transitioning_ = true;
    while (true) {
      again_ = false;
      std::shared_ptr<ViewController> to = stack_.empty() ? nullptr : stack_.back();
      if (to == shown_) break;
      if (to) {
        to->loadViewIfNeeded();
        // viewDidLoad pushed or popped: go to the newest top instead.
        if (again_) continue;
      }
      std::shared_ptr<ViewController> from = shown_;
      if (from) from->beginAppearanceTransition(false, animated);
      if (to) {
        to->beginAppearanceTransition(true, animated);
        view().addSubview(to->sharedView());
      }
      shown_ = to;
      if (from) {
        from->endAppearanceTransition();
        if (from->isViewLoaded() && from->view().superview() == &view()) from->view().removeFromSuperview();
      }
      if (to) to->endAppearanceTransition();
      if (!again_) break;
    }
    transitioning_ = false;
  }
  // Containment callbacks close the transition (or stand alone while off screen).
  auto added = std::move(added_);
  auto removed = std::move(removed_);
  added_.clear();
  removed_.clear();
  for (auto& vc : added) {
    if (std::find(stack_.begin(), stack_.end(), vc) != stack_.end()) vc->didMoveToParentViewController(this);
  }
  for (auto& vc : removed) {
    if (std::find(stack_.begin(), stack_.end(), vc) == stack_.end()) {
      vc->setParentViewController(nullptr);
      vc->didMoveToParentViewController(nullptr);
    }
  }
}

void NavigationController::viewWillAppear(bool animated) {
  if (stack_.empty()) return;
  auto top = stack_.back();
  top->loadViewIfNeeded();
  top = stack_.back();
  shown_ = top;
  view().addSubview(top->sharedView());
  top->beginAppearanceTransition(true, animated);
}

void NavigationController::viewDidAppear(bool) {
  if (shown_) shown_->endAppearanceTransition();
  // Catch up with pushes made while appearing.
  updateShown(false);
}

void NavigationController::viewWillDisappear(bool animated) {
  if (shown_) shown_->beginAppearanceTransition(false, animated);
}

void NavigationController::viewDidDisappear(bool) {
  if (shown_) shown_->endAppearanceTransition();
  shown_.reset();
}

}  // namespace kit
