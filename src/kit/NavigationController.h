// NavigationController: a stack of screens. Pushing and popping change the stack at once and
// drive the appearance callbacks, as the platform does:
//   push: the new top loads (viewDidLoad), then old top viewWillDisappear, new top
//   viewWillAppear, viewDidLayoutSubviews, old top viewDidDisappear, new top viewDidAppear,
//   then didMoveToParentViewController for the controllers added.
//   pop: the popped top viewWillDisappear, the new top viewWillAppear, viewDidLayoutSubviews,
//   popped viewDidDisappear, new top viewDidAppear, then popped
//   didMoveToParentViewController(nullptr).
// A push made while a transition runs (from viewDidLoad, say) is folded into it: the
// transition goes to the newest top, and a controller passed over only loads its view.
// While the navigation controller itself is not on screen only the stack changes; its top
// appears when it does.
#pragma once

#include <memory>
#include <vector>

#include "kit/ViewController.h"

namespace kit {

class NavigationController : public ViewController {
 public:
  explicit NavigationController(std::shared_ptr<ViewController> root = nullptr);

  void pushViewController(std::shared_ptr<ViewController> controller, bool animated);
  // Pops the top controller and returns it; nothing when only the root is left.
  std::shared_ptr<ViewController> popViewControllerAnimated(bool animated);
  std::vector<std::shared_ptr<ViewController>> popToRootViewControllerAnimated(bool animated);
  std::vector<std::shared_ptr<ViewController>> popToViewController(ViewController* target,
                                                                   bool animated);
  void setViewControllers(std::vector<std::shared_ptr<ViewController>> controllers, bool animated);

  const std::vector<std::shared_ptr<ViewController>>& viewControllers() const { return stack_; }
  ViewController* topViewController() const { return stack_.empty() ? nullptr : stack_.back().get(); }
  // The controller presented over the top, if any, else the top.
  ViewController* visibleViewController() const;

  bool isNavigationBarHidden() const { return navigationBarHidden_; }
  void setNavigationBarHidden(bool hidden, bool animated = false);

  void viewWillAppear(bool animated) override;
  void viewDidAppear(bool animated) override;
  void viewWillDisappear(bool animated) override;
  void viewDidDisappear(bool animated) override;

 private:
  void adopt(const std::shared_ptr<ViewController>& controller);
  void release(const std::shared_ptr<ViewController>& controller);
  // Brings the shown controller in line with the top of the stack.
  void updateShown(bool animated);

  std::vector<std::shared_ptr<ViewController>> stack_;
  std::shared_ptr<ViewController> shown_;
  std::vector<std::shared_ptr<ViewController>> added_;    // awaiting didMoveToParent(this)
  std::vector<std::shared_ptr<ViewController>> removed_;  // awaiting didMoveToParent(nullptr)
  bool transitioning_ = false;
  bool again_ = false;
  bool navigationBarHidden_ = false;
};

}  // namespace kit
