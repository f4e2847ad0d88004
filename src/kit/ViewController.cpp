#include "kit/ViewController.h"

#include <map>

#include <utility>

#include "kit/Console.h"
#include "kit/Fatal.h"
#include "kit/NavigationController.h"

namespace kit {

ViewController::~ViewController() = default;

View& ViewController::view() { return *sharedView(); }

std::shared_ptr<View> ViewController::sharedView() {
  if (!view_) {
    if (loading_) fatal("view of " + outletOwnerName() + " requested while it loads");
    loading_ = true;
    loadView();
    if (!view_) view_ = std::make_shared<View>();
    loading_ = false;
    viewDidLoad();
  }
  return view_;
}

void ViewController::loadView() { view_ = std::make_shared<View>(); }

void ViewController::beginAppearanceTransition(bool appearing, bool animated) {
  auto self = shared_from_this();
  if (appearing) {
    if (isOnScreen()) return;
    loadViewIfNeeded();
    appearance_ = AppearanceState::Appearing;
    transitionAppearing_ = true;
    transitionAnimated_ = animated;
    viewWillAppear(animated);
    viewDidLayoutSubviews();
  } else {
    if (!isOnScreen()) return;
    appearance_ = AppearanceState::Disappearing;
    transitionAppearing_ = false;
    transitionAnimated_ = animated;
    viewWillDisappear(animated);
  }
}

void ViewController::endAppearanceTransition() {
  auto self = shared_from_this();
  if (appearance_ == AppearanceState::Appearing) {
    appearance_ = AppearanceState::Appeared;
    viewDidAppear(transitionAnimated_);
  } else if (appearance_ == AppearanceState::Disappearing) {
    appearance_ = AppearanceState::Disappeared;
    viewDidDisappear(transitionAnimated_);
  }
}

void ViewController::setStoryboardOrigin(Storyboard* storyboard, std::string identifier) {
  storyboard_ = storyboard;
  storyboardIdentifier_ = std::move(identifier);
}

NavigationController* ViewController::navigationController() const {
  for (ViewController* vc = parent_; vc; vc = vc->parent_) {
    if (auto* nav = dynamic_cast<NavigationController*>(vc)) return nav;
  }
  return nullptr;
}

ViewController* ViewController::presentationContext() {
  ViewController* vc = this;
  while (vc->parent_) vc = vc->parent_;
  return vc;
}

void ViewController::presentViewController(std::shared_ptr<ViewController> controller,
                                           bool animated, Task completion) {
  if (!controller) return;
  ViewController* context = presentationContext();
  if (context->presented_) {
    print("Warning: Attempt to present", controller->outletOwnerName(), "on",
          context->outletOwnerName(), "which is already presenting",
          context->presented_->outletOwnerName());
    return;
  }
  context->presented_ = controller;
  controller->presenting_ = context;
  ScreenEvents::post({ScreenEvent::Present, context, controller, animated});
  controller->beginAppearanceTransition(true, animated);
  controller->endAppearanceTransition();
  if (completion) completion();
}

void ViewController::dismissViewControllerAnimated(bool animated, Task completion) {
  ViewController* context = presentationContext();
  std::shared_ptr<ViewController> target;
  ViewController* presenter = nullptr;
  if (context->presented_) {
    target = context->presented_;
    presenter = context;
  } else if (presenting_) {
    presenter = presenting_;
    target = presenter->presented_;
  }
  if (!target) {
    if (completion) completion();
    return;
  }
  if (target->presented_) target->dismissViewControllerAnimated(false);
  target->beginAppearanceTransition(false, animated);
  target->endAppearanceTransition();
  presenter->presented_.reset();
  target->presenting_ = nullptr;
  ScreenEvents::post({ScreenEvent::Dismiss, presenter, target, animated});
  if (completion) completion();
}

void ViewController::registerAction(std::string name, Action action) {
  actions_[std::move(name)] = std::move(action);
}

namespace {

std::map<std::string, ViewController::SharedAction, std::less<>>& actionsOfEveryController() {
  static std::map<std::string, ViewController::SharedAction, std::less<>> actions;
  return actions;
}

}  // namespace

void ViewController::registerActionOnEveryController(std::string name, SharedAction action) {
  actionsOfEveryController()[std::move(name)] = std::move(action);
}

bool ViewController::performAction(std::string_view name, Object* sender) {
  auto it = actions_.find(name);
  auto self = shared_from_this();
  if (it == actions_.end()) {
    auto shared = actionsOfEveryController().find(name);
    if (shared == actionsOfEveryController().end()) return false;
    auto action = shared->second;
    action(*this, sender);
    return true;
  }
  auto action = it->second;
  action(sender);
  return true;
}

std::vector<std::string> ViewController::actionNames() const {
  std::vector<std::string> names;
  for (const auto& [name, action] : actions_) names.push_back(name);
  return names;
}

void ViewController::connect(Control& control, std::string name, unsigned events) {
  std::weak_ptr<ViewController> weak = weakAs<ViewController>();
  control.addTarget(
      this, name,
      [weak, name](Object* sender) {
        if (auto vc = weak.lock()) {
          if (!vc->performAction(name, sender)) {
            fatal("unrecognized selector " + name + " sent to " + vc->outletOwnerName());
          }
        }
      },
      events);
}

std::string ViewController::outletOwnerName() const {
  if (!storyboardIdentifier_.empty()) return storyboardIdentifier_;
  return typeid(*this).name();
}

// ---- ScreenEvents ----

namespace {
std::vector<std::pair<int, ScreenEvents::Listener>>& screenListeners() {
  static std::vector<std::pair<int, ScreenEvents::Listener>> list;
  return list;
}
int gNextScreenToken = 1;
}  // namespace

int ScreenEvents::addListener(Listener listener) {
  int token = gNextScreenToken++;
  screenListeners().emplace_back(token, std::move(listener));
  return token;
}

void ScreenEvents::removeListener(int token) {
  std::erase_if(screenListeners(), [token](const auto& p) { return p.first == token; });
}

void ScreenEvents::post(const ScreenEvent& event) {
  auto copy = screenListeners();
  for (auto& [token, listener] : copy) listener(event);
}

}  // namespace kit
