// Controls: views that send target-actions for control events (buttons, switches, text
// fields) and the search bar.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/Image.h"
#include "kit/View.h"

namespace kit {

// Control events, as a bit mask (the platform's values).
enum ControlEvent : unsigned {
  kControlEventTouchDown = 1u << 0,
  kControlEventTouchUpInside = 1u << 6,
  kControlEventValueChanged = 1u << 12,
  kControlEventPrimaryActionTriggered = 1u << 13,
  kControlEventEditingDidBegin = 1u << 16,
  kControlEventEditingChanged = 1u << 17,
  kControlEventEditingDidEnd = 1u << 18,
};

// Control states (the platform's values); a title or image is set per state.
enum ControlState : unsigned {
  kControlStateNormal = 0,
  kControlStateHighlighted = 1,
  kControlStateDisabled = 2,
  kControlStateSelected = 4,
};

class Control : public View {
 public:
  using Action = std::function<void(Object* sender)>;

  // Adds a target-action pair for `events`; `sendActionsForControlEvents` calls it with this
  // control as the sender.
  void addTarget(Action action, unsigned events);
  // The same for a named action of `target`: adding the same target, name and events again
  // changes nothing, as with the platform's controls.
  void addTarget(const void* target, const std::string& name, Action action, unsigned events);
  // Calls, in registration order, every action registered for any of `events`.
  void sendActionsForControlEvents(unsigned events);
  bool hasActionsForControlEvents(unsigned events) const;

  bool isEnabled() const { return enabled_; }
  void setEnabled(bool v) { assign(enabled_, v, "enabled"); }
  bool isSelected() const { return selected_; }
  void setSelected(bool v) { assign(selected_, v, "selected"); }
  bool isHighlighted() const { return highlighted_; }
  void setHighlighted(bool v) { assign(highlighted_, v, "highlighted"); }
  // The current state: selected, disabled and highlighted bits.
  unsigned state() const;

 private:
  struct Entry {
    unsigned events;
    Action action;
    const void* target = nullptr;
    std::string name;
  };
  std::vector<Entry> actions_;
  bool enabled_ = true;
  bool selected_ = false;
  bool highlighted_ = false;
};

class Button : public Control {
 public:
  void setTitle(std::optional<std::string> title, unsigned state);
  // The title set for exactly `state`.
  std::optional<std::string> title(unsigned state) const;
  // The title for the current state, falling back to the normal state's.
  std::optional<std::string> currentTitle() const;
  void setTitleColor(std::optional<Color> color, unsigned state);
  std::optional<Color> titleColor(unsigned state) const;
  std::optional<Color> currentTitleColor() const;
  void setImage(ImagePtr image, unsigned state);
  ImagePtr image(unsigned state) const;
  ImagePtr currentImage() const;
  void setBackgroundImage(ImagePtr image, unsigned state);
  ImagePtr backgroundImage(unsigned state) const;

 private:
  template <class T>
  static T lookup(const std::map<unsigned, T>& m, unsigned state);
  std::map<unsigned, std::string> titles_;
  std::map<unsigned, Color> titleColors_;
  std::map<unsigned, ImagePtr> images_;
  std::map<unsigned, ImagePtr> backgroundImages_;
};

class Switch : public Control {
 public:
  bool isOn() const { return on_; }
  // Sets the state without sending actions, as the platform does.
  void setOn(bool on, bool animated = false);
  const std::optional<Color>& onTintColor() const { return onTintColor_; }
  void setOnTintColor(std::optional<Color> c) { assign(onTintColor_, c, "onTintColor"); }

 private:
  bool on_ = false;
  std::optional<Color> onTintColor_;
};

class TextField;

// Optional callbacks of a text field's delegate; the defaults allow everything.
class TextFieldDelegate {
 public:
  virtual ~TextFieldDelegate() = default;
  virtual bool textFieldShouldBeginEditing(TextField&) { return true; }
  virtual void textFieldDidBeginEditing(TextField&) {}
  // `location` and `length` are in UTF-16 code units of the current text, as the platform's.
  virtual bool shouldChangeCharactersInRange(TextField&, std::size_t /*location*/,
                                             std::size_t /*length*/,
                                             const std::string& /*replacement*/) {
    return true;
  }
  virtual bool textFieldShouldReturn(TextField&) { return true; }
  virtual void textFieldDidEndEditing(TextField&) {}
};

class TextField : public Control {
 public:
  const std::optional<std::string>& text() const { return text_; }
  void setText(std::optional<std::string> t) { assign(text_, t, "text"); }
  const std::optional<std::string>& placeholder() const { return placeholder_; }
  void setPlaceholder(std::optional<std::string> t) { assign(placeholder_, t, "placeholder"); }
  bool isSecureTextEntry() const { return secure_; }
  void setSecureTextEntry(bool v) { assign(secure_, v, "secureTextEntry"); }
  int keyboardType() const { return keyboardType_; }
  void setKeyboardType(int v) { assign(keyboardType_, v, "keyboardType"); }
  const std::optional<Color>& textColor() const { return textColor_; }
  void setTextColor(std::optional<Color> c) { assign(textColor_, c, "textColor"); }
  void setDelegate(std::weak_ptr<TextFieldDelegate> d) { delegate_ = std::move(d); }
  std::shared_ptr<TextFieldDelegate> delegate() const { return delegate_.lock(); }

  bool isFirstResponder() const override { return firstResponder_; }
  bool becomeFirstResponder();
  bool resignFirstResponder() override;

  // Types `text` as a user would: becomes first responder if needed, then for each
  // character asks the delegate and, when allowed, appends it and sends EditingChanged.
  void typeText(const std::string& text);
  // The return key: asks the delegate's textFieldShouldReturn.
  void pressReturn();

 private:
  std::optional<std::string> text_;
  std::optional<std::string> placeholder_;
  std::optional<Color> textColor_;
  bool secure_ = false;
  int keyboardType_ = 0;
  bool firstResponder_ = false;
  std::weak_ptr<TextFieldDelegate> delegate_;
};

class SearchBar;

class SearchBarDelegate {
 public:
  virtual ~SearchBarDelegate() = default;
  virtual void searchBarTextDidBeginEditing(SearchBar&) {}
  virtual void searchBarTextDidChange(SearchBar&, const std::string& /*searchText*/) {}
  virtual void searchBarSearchButtonClicked(SearchBar&) {}
  virtual void searchBarCancelButtonClicked(SearchBar&) {}
};

class SearchBar : public View {
 public:
  const std::string& text() const { return text_; }
  // Sets the text without telling the delegate, as the platform does.
  void setText(std::string t) { assign(text_, std::move(t), "text"); }
  const std::string& placeholder() const { return placeholder_; }
  void setPlaceholder(std::string t) { assign(placeholder_, std::move(t), "placeholder"); }
  bool showsCancelButton() const { return showsCancelButton_; }
  void setShowsCancelButton(bool v) { assign(showsCancelButton_, v, "showsCancelButton"); }
  // The colour of the text in the search field (searchTextField.textColor).
  const std::optional<Color>& textColor() const { return textColor_; }
  void setTextColor(std::optional<Color> c) { assign(textColor_, c, "textColor"); }
  void setDelegate(std::weak_ptr<SearchBarDelegate> d) { delegate_ = std::move(d); }
  std::shared_ptr<SearchBarDelegate> delegate() const { return delegate_.lock(); }

  bool isFirstResponder() const override { return firstResponder_; }
  bool becomeFirstResponder();
  bool resignFirstResponder() override;

  // User input: replaces the text and tells the delegate.
  void userSetText(const std::string& text);
  void tapSearchButton();
  void tapCancelButton();

 private:
  std::string text_;
  std::string placeholder_;
  bool showsCancelButton_ = false;
  bool firstResponder_ = false;
  std::optional<Color> textColor_;
  std::weak_ptr<SearchBarDelegate> delegate_;
};

// A user's tap on `view`: for a control that can be touched and is enabled, sends
// TouchUpInside; for another view, fires its first enabled tap recognizer. Returns whether
// anything was delivered (false for hidden, disabled or untouchable views).
bool tap(View& view);
// A user's toggle of `sw`: flips it and sends ValueChanged, when it can be touched.
bool toggle(Switch& sw);

}  // namespace kit
