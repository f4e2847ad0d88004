// AlertController: a presented alert or action sheet with a title, a message, styled actions
// and optional text fields. Choosing an action dismisses the alert, then runs its handler.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/Controls.h"
#include "kit/ViewController.h"

namespace kit {

enum class AlertStyle { ActionSheet = 0, Alert = 1 };
enum class AlertActionStyle { Default = 0, Cancel = 1, Destructive = 2 };

class AlertAction {
 public:
  using Handler = std::function<void(AlertAction&)>;
  AlertAction(std::optional<std::string> title, AlertActionStyle style, Handler handler = {})
      : title_(std::move(title)), style_(style), handler_(std::move(handler)) {}

  const std::optional<std::string>& title() const { return title_; }
  AlertActionStyle style() const { return style_; }
  bool isEnabled() const { return enabled_; }
  void setEnabled(bool e) { enabled_ = e; }
  const Handler& handler() const { return handler_; }

 private:
  std::optional<std::string> title_;
  AlertActionStyle style_;
  Handler handler_;
  bool enabled_ = true;
};

class AlertController : public ViewController {
 public:
  AlertController(std::optional<std::string> title, std::optional<std::string> message,
                  AlertStyle preferredStyle)
      : title_(std::move(title)), message_(std::move(message)), style_(preferredStyle) {}

  static std::shared_ptr<AlertController> make(std::optional<std::string> title,
                                               std::optional<std::string> message,
                                               AlertStyle preferredStyle) {
    return std::make_shared<AlertController>(std::move(title), std::move(message), preferredStyle);
  }

  const std::optional<std::string>& alertTitle() const { return title_; }
  const std::optional<std::string>& message() const { return message_; }
  AlertStyle preferredStyle() const { return style_; }

  void addAction(std::shared_ptr<AlertAction> action) { actions_.push_back(std::move(action)); }
  const std::vector<std::shared_ptr<AlertAction>>& actions() const { return actions_; }
  void addTextFieldWithConfigurationHandler(std::function<void(TextField&)> configure);
  const std::vector<std::shared_ptr<TextField>>& textFields() const { return textFields_; }

  // A user's choice of the action at `index`, or of the first action titled `title`:
  // dismisses the alert, then runs the action's handler. False when there is no such enabled
  // action.
  bool chooseAction(std::size_t index);
  bool chooseActionTitled(const std::string& title);

 private:
  std::optional<std::string> title_;
  std::optional<std::string> message_;
  AlertStyle style_;
  std::vector<std::shared_ptr<AlertAction>> actions_;
  std::vector<std::shared_ptr<TextField>> textFields_;
};

}  // namespace kit
