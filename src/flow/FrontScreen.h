// FrontScreen: what a person sees of the app at one moment, read from the kit's model. The
// front-most screen is the alert or screen presented last, else the top of the navigation
// stack; its elements are the views a person could see on it (shown, not transparent, under
// shown ancestors), in drawing order, each with the outlet name it has on its screen or cell
// and the text it shows. Main thread; valid until the app next runs.
#pragma once

#include <nlohmann/json.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/AlertController.h"
#include "kit/Lists.h"
#include "kit/ViewController.h"
#include "kit/Window.h"

namespace flow {

struct Element {
  kit::View* view = nullptr;
  std::string id;    // the outlet name, or empty
  std::string kind;  // Button, Label, TableView, ...
  std::optional<std::string> text;
  bool enabled = true;
  bool selected = false;
  // A person can tap it: an enabled control that takes touches, or a view with a tap gesture.
  bool tappable = false;
  // A cell's position in its list.
  std::optional<kit::IndexPath> indexPath;
};

class FrontScreen {
 public:
  explicit FrontScreen(const std::shared_ptr<kit::Window>& window);

  // The front-most controller (null before launch).
  kit::ViewController* controller() const { return controller_; }
  // The alert in front, if any.
  kit::AlertController* alert() const { return dynamic_cast<kit::AlertController*>(controller_); }
  // Its storyboard identifier, or "Alert" for an alert, or "?" for an anonymous screen.
  std::string identifier() const;

  // Every element of the front-most screen a person could see.
  const std::vector<Element>& elements() const { return elements_; }
  // The elements showing exactly `text` (for an alert: its title, message and actions).
  std::vector<const Element*> showing(const std::string& text) const;
  // The element of `view`, when it is visible.
  const Element* elementOf(const kit::View* view) const;
  // The texts shown, in order, for messages.
  std::vector<std::string> texts() const;

  // The screen as JSON: identifier, title, alert (title, message, actions) and the elements.
  nlohmann::json toJson() const;

 private:
  void collect(kit::View& view, const std::map<const kit::Object*, std::string>& names);

  kit::ViewController* controller_ = nullptr;
  std::vector<Element> elements_;
  std::vector<Element> alertElements_;
};

// The front-most controller under `root` (presented, else the navigation top, repeatedly).
kit::ViewController* frontController(kit::ViewController* root);

// A short description of a view for messages: "Button findBtn \"Find Duplicate Photos\"".
std::string describe(const Element& element);

// Whether `view` and every ancestor up to `root` is shown and not transparent, and `view` lies
// under `root`.
bool isVisibleUnder(const kit::View& view, const kit::View& root);

}  // namespace flow
