#include "flow/FrontScreen.h"

#include <map>

#include "kit/Controls.h"
#include "kit/GestureRecognizer.h"
#include "kit/NavigationController.h"
#include "kit/Views.h"

namespace flow {

namespace {

std::string kindOf(const kit::View& v) {
  if (dynamic_cast<const kit::Button*>(&v)) return "Button";
  if (dynamic_cast<const kit::Switch*>(&v)) return "Switch";
  if (dynamic_cast<const kit::TextField*>(&v)) return "TextField";
  if (dynamic_cast<const kit::SearchBar*>(&v)) return "SearchBar";
  if (dynamic_cast<const kit::Label*>(&v)) return "Label";
  if (dynamic_cast<const kit::ImageView*>(&v)) return "ImageView";
  if (dynamic_cast<const kit::AnimationView*>(&v)) return "AnimationView";
  if (dynamic_cast<const kit::TableView*>(&v)) return "TableView";
  if (dynamic_cast<const kit::CollectionView*>(&v)) return "CollectionView";
  if (dynamic_cast<const kit::ListCell*>(&v)) return "Cell";
  return "View";
}

std::optional<std::string> textOf(const kit::View& v) {
  if (auto* b = dynamic_cast<const kit::Button*>(&v)) return b->currentTitle();
  if (auto* l = dynamic_cast<const kit::Label*>(&v)) return l->text();
  if (auto* f = dynamic_cast<const kit::TextField*>(&v)) {
    if (f->text() && !f->text()->empty()) return f->text();
    return f->placeholder();
  }
  if (auto* s = dynamic_cast<const kit::SearchBar*>(&v)) return s->text().empty() ? s->placeholder() : s->text();
  return std::nullopt;
}

bool shown(const kit::View& v) { return !v.isHidden() && v.alpha() > 0.01; }

bool hasTapGesture(const kit::View& v) {
  for (const auto& g : v.gestureRecognizers()) {
    if (g->isEnabled() && dynamic_cast<const kit::TapGestureRecognizer*>(g.get())) return true;
  }
  return false;
}

}  // namespace

kit::ViewController* frontController(kit::ViewController* root) {
  kit::ViewController* vc = root;
  for (int guard = 0; vc && guard < 64; ++guard) {
    if (vc->presentedViewController()) {
      vc = vc->presentedViewController().get();
    } else if (auto* nav = dynamic_cast<kit::NavigationController*>(vc); nav && nav->topViewController()) {
      vc = nav->topViewController();
    } else {
      break;
    }
  }
  return vc;
}

bool isVisibleUnder(const kit::View& view, const kit::View& root) {
  for (const kit::View* v = &view; v; v = v->superview()) {
    if (!shown(*v)) return false;
    if (v == &root) return true;
  }
  return false;
}

FrontScreen::FrontScreen(const std::shared_ptr<kit::Window>& window) {
  if (!window || !window->rootViewController()) return;
  controller_ = frontController(window->rootViewController().get());
  if (!controller_) return;
  if (auto* a = alert()) {
    auto add = [&](std::string id, std::string kind, const std::optional<std::string>& text, bool enabled, bool tap) {
      Element e;
      e.id = std::move(id);
      e.kind = std::move(kind);
      e.text = text;
      e.enabled = enabled;
      e.tappable = tap;
      alertElements_.push_back(e);
    };
    if (a->alertTitle()) add("title", "Label", a->alertTitle(), true, false);
    if (a->message()) add("message", "Label", a->message(), true, false);
    for (const auto& action : a->actions()) add("action", "Button", action->title(), action->isEnabled(), action->isEnabled());
    for (const auto& field : a->textFields()) collect(*field, {});
    elements_.insert(elements_.begin(), alertElements_.begin(), alertElements_.end());
    return;
  }
  if (!controller_->isViewLoaded()) return;
  std::map<const kit::Object*, std::string> names;
  for (const auto& [name, object] : controller_->outlets()) names[object.get()] = name;
  collect(controller_->view(), names);
}

void FrontScreen::collect(kit::View& view, const std::map<const kit::Object*, std::string>& inherited) {
  if (!shown(view)) return;
  const std::map<const kit::Object*, std::string>* names = &inherited;
  std::map<const kit::Object*, std::string> withCell;
  if (auto* cell = dynamic_cast<kit::ListCell*>(&view)) {
    withCell = inherited;
    for (const auto& [name, object] : cell->outlets()) withCell[object.get()] = name;
    names = &withCell;
  }
  Element e;
  e.view = &view;
  auto it = names->find(&view);
  if (it != names->end()) e.id = it->second;
  e.kind = kindOf(view);
  e.text = textOf(view);
  if (auto* c = dynamic_cast<kit::Control*>(&view)) {
    e.enabled = c->isEnabled();
    e.selected = c->isSelected();
    e.tappable = c->isEnabled() && view.isReachableByTouch();
  } else {
    if (auto* cell = dynamic_cast<kit::ListCell*>(&view)) {
      e.selected = cell->isCellSelected();
      if (auto* list = dynamic_cast<kit::ListView*>(cell->superview())) e.indexPath = list->indexPathForCell(*cell);
    }
    e.tappable = hasTapGesture(view) && view.isReachableByTouch();
  }
  elements_.push_back(e);
  for (const auto& sub : view.subviews()) collect(*sub, *names);
}

std::string FrontScreen::identifier() const {
  if (!controller_) return "?";
  if (alert()) return "Alert";
  return controller_->storyboardIdentifier().empty() ? "?" : controller_->storyboardIdentifier();
}

std::vector<const Element*> FrontScreen::showing(const std::string& text) const {
  std::vector<const Element*> found;
  for (const auto& e : elements_) {
    if (e.text && *e.text == text) found.push_back(&e);
  }
  return found;
}

const Element* FrontScreen::elementOf(const kit::View* view) const {
  for (const auto& e : elements_) {
    if (e.view == view) return &e;
  }
  return nullptr;
}

std::vector<std::string> FrontScreen::texts() const {
  std::vector<std::string> out;
  for (const auto& e : elements_) {
    if (e.text && !e.text->empty()) out.push_back(*e.text);
  }
  return out;
}

std::string describe(const Element& e) {
  std::string s = e.kind;
  if (!e.id.empty()) s += " " + e.id;
  if (e.text) s += " \"" + *e.text + "\"";
  if (!e.enabled) s += " (disabled)";
  return s;
}

nlohmann::json FrontScreen::toJson() const {
  nlohmann::json j;
  j["screen"] = identifier();
  if (controller_ && !controller_->title().empty()) j["title"] = controller_->title();
  if (auto* a = alert()) {
    nlohmann::json alertJson;
    alertJson["title"] = a->alertTitle() ? nlohmann::json(*a->alertTitle()) : nlohmann::json(nullptr);
    alertJson["message"] = a->message() ? nlohmann::json(*a->message()) : nlohmann::json(nullptr);
    nlohmann::json actions = nlohmann::json::array();
    for (const auto& action : a->actions()) actions.push_back(action->title().value_or(""));
    alertJson["actions"] = actions;
    j["alert"] = alertJson;
  }
  nlohmann::json list = nlohmann::json::array();
  for (const auto& e : elements_) {
    // Plain containers without a name or text say nothing a person reads.
    if (e.id.empty() && !e.text && e.kind == "View") continue;
    nlohmann::json item;
    item["kind"] = e.kind;
    if (!e.id.empty()) item["id"] = e.id;
    if (e.text) item["text"] = *e.text;
    if (e.indexPath) item["indexPath"] = {e.indexPath->section, e.indexPath->row};
    if (!e.enabled) item["enabled"] = false;
    if (e.selected) item["selected"] = true;
    if (auto* list_view = dynamic_cast<kit::ListView*>(e.view)) item["visibleCells"] = list_view->visibleCells().size();
    list.push_back(item);
  }
  j["elements"] = list;
  return j;
}

}  // namespace flow
