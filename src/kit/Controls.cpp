#include "kit/Controls.h"

#include "kit/Dispatch.h"
#include "kit/GestureRecognizer.h"

namespace kit {

void Control::addTarget(Action action, unsigned events) { actions_.push_back({events, std::move(action)}); }

void Control::addTarget(const void* target, const std::string& name, Action action, unsigned events) {
  for (const Entry& e : actions_) {
    if (e.target == target && e.name == name && e.events == events) return;
  }
  actions_.push_back({events, std::move(action), target, name});
}

void Control::sendActionsForControlEvents(unsigned events) {
  auto self = shared_from_this();
  auto actions = actions_;
  for (auto& e : actions) {
    if (e.events & events) e.action(this);
  }
}

bool Control::hasActionsForControlEvents(unsigned events) const {
  for (const Entry& e : actions_) {
    if (e.events & events) return true;
  }
  return false;
}

unsigned Control::state() const {
  unsigned s = kControlStateNormal;
  if (highlighted_) s |= kControlStateHighlighted;
  if (!enabled_) s |= kControlStateDisabled;
  if (selected_) s |= kControlStateSelected;
  return s;
}

template <class T>
T Button::lookup(const std::map<unsigned, T>& m, unsigned state) {
  if (auto it = m.find(state); it != m.end()) return it->second;
  if (state & kControlStateSelected) {
    if (auto it = m.find(kControlStateSelected); it != m.end()) return it->second;
  }
  if (state & kControlStateDisabled) {
    if (auto it = m.find(kControlStateDisabled); it != m.end()) return it->second;
  }
  if (auto it = m.find(kControlStateNormal); it != m.end()) return it->second;
  return T{};
}

void Button::setTitle(std::optional<std::string> title, unsigned state) {
  auto it = titles_.find(state);
  if (!title) {
    if (it == titles_.end()) return;
    titles_.erase(it);
  } else {
    if (it != titles_.end() && it->second == *title) return;
    titles_[state] = *title;
  }
  notifyChanged("title");
}

std::optional<std::string> Button::title(unsigned state) const {
  if (auto it = titles_.find(state); it != titles_.end()) return it->second;
  return std::nullopt;
}

std::optional<std::string> Button::currentTitle() const {
  unsigned s = state();
  if (auto it = titles_.find(s); it != titles_.end()) return it->second;
  if ((s & kControlStateSelected) && titles_.count(kControlStateSelected)) {
    return titles_.at(kControlStateSelected);
  }
  if ((s & kControlStateDisabled) && titles_.count(kControlStateDisabled)) {
    return titles_.at(kControlStateDisabled);
  }
  return title(kControlStateNormal);
}

void Button::setTitleColor(std::optional<Color> color, unsigned state) {
  if (titleColor(state) == color) return;
  if (color) titleColors_[state] = *color;
  else titleColors_.erase(state);
  notifyChanged("titleColor");
}

std::optional<Color> Button::titleColor(unsigned state) const {
  if (auto it = titleColors_.find(state); it != titleColors_.end()) return it->second;
  return std::nullopt;
}

std::optional<Color> Button::currentTitleColor() const {
  unsigned s = state();
  if (auto it = titleColors_.find(s); it != titleColors_.end()) return it->second;
  if ((s & kControlStateSelected) && titleColors_.count(kControlStateSelected)) {
    return titleColors_.at(kControlStateSelected);
  }
  return titleColor(kControlStateNormal);
}

void Button::setImage(ImagePtr image, unsigned state) {
  if (Image::same(this->image(state), image)) return;
  if (image) images_[state] = std::move(image);
  else images_.erase(state);
  notifyChanged("image");
}

ImagePtr Button::image(unsigned state) const {
  if (auto it = images_.find(state); it != images_.end()) return it->second;
  return nullptr;
}

ImagePtr Button::currentImage() const { return lookup(images_, state()); }

void Button::setBackgroundImage(ImagePtr image, unsigned state) {
  if (Image::same(backgroundImage(state), image)) return;
  if (image) backgroundImages_[state] = std::move(image);
  else backgroundImages_.erase(state);
  notifyChanged("backgroundImage");
}

ImagePtr Button::backgroundImage(unsigned state) const {
  if (auto it = backgroundImages_.find(state); it != backgroundImages_.end()) return it->second;
  return nullptr;
}

void Switch::setOn(bool on, bool /*animated*/) { assign(on_, on, "on"); }

bool TextField::becomeFirstResponder() {
  if (firstResponder_) return true;
  auto d = delegate();
  if (d && !d->textFieldShouldBeginEditing(*this)) return false;
  firstResponder_ = true;
  notifyChanged("firstResponder");
  if (d) d->textFieldDidBeginEditing(*this);
  sendActionsForControlEvents(kControlEventEditingDidBegin);
  return true;
}

bool TextField::resignFirstResponder() {
  if (!firstResponder_) return false;
  firstResponder_ = false;
  notifyChanged("firstResponder");
  if (auto d = delegate()) d->textFieldDidEndEditing(*this);
  sendActionsForControlEvents(kControlEventEditingDidEnd);
  return true;
}

namespace {
// Length of `s` in UTF-16 code units.
std::size_t utf16Length(const std::string& s) {
  std::size_t n = 0;
  for (std::size_t i = 0; i < s.size();) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    int len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : 4;
    n += len == 4 ? 2 : 1;
    i += len;
  }
  return n;
}
}  // namespace

void TextField::typeText(const std::string& text) {
  if (!isReachableByTouch() || !isEnabled()) return;
  if (!firstResponder_ && !becomeFirstResponder()) return;
  for (std::size_t i = 0; i < text.size();) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    std::size_t len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : 4;
    std::string ch = text.substr(i, len);
    i += len;
    std::string current = text_.value_or("");
    auto d = delegate();
    if (d && !d->shouldChangeCharactersInRange(*this, utf16Length(current), 0, ch)) continue;
    setText(current + ch);
    sendActionsForControlEvents(kControlEventEditingChanged);
  }
  runLayoutPass();
}

void TextField::pressReturn() {
  if (auto d = delegate()) d->textFieldShouldReturn(*this);
  sendActionsForControlEvents(kControlEventPrimaryActionTriggered);
  runLayoutPass();
}

bool SearchBar::becomeFirstResponder() {
  if (firstResponder_) return true;
  firstResponder_ = true;
  notifyChanged("firstResponder");
  if (auto d = delegate()) d->searchBarTextDidBeginEditing(*this);
  return true;
}

bool SearchBar::resignFirstResponder() {
  if (!firstResponder_) return false;
  firstResponder_ = false;
  notifyChanged("firstResponder");
  return true;
}

void SearchBar::userSetText(const std::string& text) {
  if (!isReachableByTouch()) return;
  becomeFirstResponder();
  setText(text);
  if (auto d = delegate()) d->searchBarTextDidChange(*this, text);
  runLayoutPass();
}

void SearchBar::tapSearchButton() {
  if (auto d = delegate()) d->searchBarSearchButtonClicked(*this);
  runLayoutPass();
}

void SearchBar::tapCancelButton() {
  if (auto d = delegate()) d->searchBarCancelButtonClicked(*this);
  runLayoutPass();
}

bool tap(View& view) {
  if (!view.isReachableByTouch()) return false;
  if (auto* control = dynamic_cast<Control*>(&view)) {
    if (!control->isEnabled()) return false;
    control->sendActionsForControlEvents(kControlEventTouchUpInside |
                                         kControlEventPrimaryActionTriggered);
    runLayoutPass();
    return true;
  }
  for (auto& recognizer : view.gestureRecognizers()) {
    if (dynamic_cast<TapGestureRecognizer*>(recognizer.get()) && recognizer->isEnabled()) {
      Rect b = view.bounds();
      return recognizer->recognize(GestureState::Ended, {b.width() / 2, b.height() / 2});
    }
  }
  return false;
}

bool toggle(Switch& sw) {
  if (!sw.isReachableByTouch() || !sw.isEnabled()) return false;
  sw.setOn(!sw.isOn(), true);
  sw.sendActionsForControlEvents(kControlEventValueChanged);
  runLayoutPass();
  return true;
}

}  // namespace kit
