// ViewController: one screen. It owns its root view (built by loadView, which registers the
// outlets), runs the lifecycle callbacks the platform runs, registers its actions by name, and
// presents other controllers.
//
// Lifecycle: `view()` loads the view on first use (loadView, then viewDidLoad). Appearance
// callbacks come from whoever shows the controller: a navigation controller on push and pop,
// a presentation, or a window's root. Main thread only.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/Controls.h"
#include "kit/Dispatch.h"
#include "kit/Observable.h"
#include "kit/Outlets.h"
#include "kit/View.h"

namespace kit {

class NavigationController;
class Storyboard;

// The navigation bar's item of a controller.
class NavigationItem : public Observable {
 public:
  const std::string& title() const { return title_; }
  void setTitle(std::string t) { assign(title_, std::move(t), "title"); }
  bool hidesBackButton() const { return hidesBackButton_; }
  void setHidesBackButton(bool v) { assign(hidesBackButton_, v, "hidesBackButton"); }
  bool hidesSearchBarWhenScrolling() const { return hidesSearchBarWhenScrolling_; }
  void setHidesSearchBarWhenScrolling(bool v) {
    assign(hidesSearchBarWhenScrolling_, v, "hidesSearchBarWhenScrolling");
  }

 private:
  std::string title_;
  bool hidesBackButton_ = false;
  bool hidesSearchBarWhenScrolling_ = true;
};

enum class AppearanceState { Disappeared, Appearing, Appeared, Disappearing };

class ViewController : public Object, public OutletContainer, public Observable {
 public:
  using Action = std::function<void(Object* sender)>;

  ViewController() = default;
  ~ViewController() override;

  // --- View ---
  // The root view, loaded on first use (loadView, then viewDidLoad).
  View& view();
  std::shared_ptr<View> sharedView();
  bool isViewLoaded() const { return view_ != nullptr; }
  void loadViewIfNeeded() { view(); }

  // --- Lifecycle, overridden by screens ---
  // Builds the view tree and registers the outlets. The default makes an empty root view.
  virtual void loadView();
  virtual void viewDidLoad() {}
  virtual void viewWillAppear(bool /*animated*/) {}
  virtual void viewDidAppear(bool /*animated*/) {}
  virtual void viewWillDisappear(bool /*animated*/) {}
  virtual void viewDidDisappear(bool /*animated*/) {}
  virtual void viewDidLayoutSubviews() {}
  virtual void didMoveToParentViewController(ViewController* /*parent*/) {}

  // Drive the appearance callbacks; each is sent once per transition.
  void beginAppearanceTransition(bool appearing, bool animated);
  void endAppearanceTransition();
  AppearanceState appearanceState() const { return appearance_; }
  bool isOnScreen() const {
    return appearance_ == AppearanceState::Appearing || appearance_ == AppearanceState::Appeared;
  }

  // --- Identity ---
  const std::string& title() const { return title_; }
  void setTitle(std::string t) { assign(title_, std::move(t), "title"); }
  // The storyboard and identifier that made this controller, if any.
  Storyboard* storyboard() const { return storyboard_; }
  const std::string& storyboardIdentifier() const { return storyboardIdentifier_; }
  void setStoryboardOrigin(Storyboard* storyboard, std::string identifier);
  NavigationItem& navigationItem() { return navigationItem_; }

  // --- Containment ---
  ViewController* parentViewController() const { return parent_; }
  // The nearest navigation controller among this controller and its ancestors.
  NavigationController* navigationController() const;
  void setParentViewController(ViewController* parent) { parent_ = parent; }

  // --- Presentation ---
  // Presents `controller` over the root of this controller's hierarchy (its presentation
  // context). A context that already presents something refuses, with a console warning.
  void presentViewController(std::shared_ptr<ViewController> controller, bool animated,
                             Task completion = {});
  // Dismisses the controller this one presents or, if none, this controller itself.
  void dismissViewControllerAnimated(bool animated, Task completion = {});
  const std::shared_ptr<ViewController>& presentedViewController() const { return presented_; }
  ViewController* presentingViewController() const { return presenting_; }
  int modalPresentationStyle() const { return modalPresentationStyle_; }
  void setModalPresentationStyle(int s) { modalPresentationStyle_ = s; }

  // --- Actions by name (the storyboard's wiring) ---
  void registerAction(std::string name, Action action);
  // Registers an action that every controller has (as a category adds a method to a class):
  // performAction finds it on any controller that has no action of that name of its own.
  // Main thread, before any controller performs it.
  using SharedAction = std::function<void(ViewController& controller, Object* sender)>;
  static void registerActionOnEveryController(std::string name, SharedAction action);
  // Runs the action `name` with `sender`; false when there is no such action.
  bool performAction(std::string_view name, Object* sender = nullptr);
  std::vector<std::string> actionNames() const;
  // Wires `control`'s `events` to the action `name` of this controller; wiring the same pair
  // again changes nothing.
  void connect(Control& control, std::string name, unsigned events = kControlEventTouchUpInside);

  // 0 unspecified, 1 light, 2 dark.
  int overrideUserInterfaceStyle() const { return overrideUserInterfaceStyle_; }
  void setOverrideUserInterfaceStyle(int v) { assign(overrideUserInterfaceStyle_, v, "overrideUserInterfaceStyle"); }

 protected:
  std::string outletOwnerName() const override;

  // For loadView: makes a T, adds it to `parent` (the root view when null) and registers it as
  // the outlet `name`.
  template <class T, class... Args>
  std::shared_ptr<T> addOutlet(std::string name, View* parent = nullptr, Args&&... args) {
    auto object = std::make_shared<T>(std::forward<Args>(args)...);
    (parent ? *parent : view()).addSubview(object);
    registerOutlet(std::move(name), object);
    return object;
  }
  // Sets the root view (for loadView overrides).
  void setView(std::shared_ptr<View> v) { view_ = std::move(v); }

 private:
  ViewController* presentationContext();

  std::shared_ptr<View> view_;
  bool loading_ = false;
  std::string title_;
  Storyboard* storyboard_ = nullptr;
  std::string storyboardIdentifier_;
  NavigationItem navigationItem_;
  ViewController* parent_ = nullptr;
  std::shared_ptr<ViewController> presented_;
  ViewController* presenting_ = nullptr;
  int modalPresentationStyle_ = 0;
  int overrideUserInterfaceStyle_ = 0;
  std::map<std::string, Action, std::less<>> actions_;
  AppearanceState appearance_ = AppearanceState::Disappeared;
  bool transitionAppearing_ = false;
  bool transitionAnimated_ = false;
};

// A screen-level event, for renderers that mirror navigation and presentation.
struct ScreenEvent {
  enum Kind { Push, Pop, SetStack, Present, Dismiss };
  Kind kind;
  ViewController* container;  // the navigation controller, or the presenting controller
  std::shared_ptr<ViewController> controller;
  bool animated;
};

// Listeners of screen events (the GUI). Main thread only.
class ScreenEvents {
 public:
  using Listener = std::function<void(const ScreenEvent&)>;
  static int addListener(Listener listener);
  static void removeListener(int token);
  static void post(const ScreenEvent& event);
};

}  // namespace kit
