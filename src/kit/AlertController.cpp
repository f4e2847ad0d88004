#include "kit/AlertController.h"

#include "kit/Dispatch.h"

namespace kit {

void AlertController::addTextFieldWithConfigurationHandler(std::function<void(TextField&)> configure) {
  auto field = std::make_shared<TextField>();
  textFields_.push_back(field);
  if (configure) configure(*field);
}

bool AlertController::chooseAction(std::size_t index) {
  if (index >= actions_.size() || !actions_[index]->isEnabled()) return false;
  auto self = shared_from_this();
  auto action = actions_[index];
  dismissViewControllerAnimated(true);
  if (action->handler()) action->handler()(*action);
  runLayoutPass();
  return true;
}

bool AlertController::chooseActionTitled(const std::string& title) {
  for (std::size_t i = 0; i < actions_.size(); ++i) {
    if (actions_[i]->title() == title) return chooseAction(i);
  }
  return false;
}

}  // namespace kit
