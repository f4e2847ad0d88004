#include "kit/DropDown.h"

#include "kit/GestureRecognizer.h"
#include "kit/Dispatch.h"

namespace kit {

DropDown::DropDown() : list_(make<View>()) {
  list_->setHidden(true);
  addSubview(list_);
  addTarget([this](Object*) { touched(); }, kControlEventTouchUpInside);
}

void DropDown::touched() {
  // A tap recognizer on the field sees the touch first and decides; without one the field
  // opens its list itself.
  for (auto& recognizer : gestureRecognizers()) {
    if (dynamic_cast<TapGestureRecognizer*>(recognizer.get()) && recognizer->isEnabled()) {
      Rect b = bounds();
      recognizer->recognize(GestureState::Ended, {b.width() / 2, b.height() / 2});
      return;
    }
  }
  listShown_ ? hideList() : showList();
}

void DropDown::setOptionArray(std::vector<std::string> options) {
  options_ = std::move(options);
  selected_.reset();
  hideList();
  rebuildRows();
  notify("optionArray");
}

void DropDown::rebuildRows() {
  while (!list_->subviews().empty()) list_->subviews().back()->removeFromSuperview();
  for (std::size_t i = 0; i < options_.size(); ++i) {
    auto row = make<Button>();
    row->setTitle(options_[i], kControlStateNormal);
    row->setTag(static_cast<int>(i));
    row->addTarget([this, i](Object*) { selectOption(static_cast<int>(i)); }, kControlEventTouchUpInside);
    list_->addSubview(row);
  }
}

void DropDown::showList() {
  if (options_.empty()) return;
  list_->setHidden(false);
  assign(listShown_, true, "listShown");
}

void DropDown::hideList() {
  list_->setHidden(true);
  assign(listShown_, false, "listShown");
}

bool DropDown::selectOption(int index) {
  if (index < 0 || index >= static_cast<int>(options_.size())) return false;
  const std::string text = options_[static_cast<std::size_t>(index)];
  const int id = static_cast<std::size_t>(index) < ids_.size() ? ids_[static_cast<std::size_t>(index)] : index;
  selected_ = index;
  setText(text);
  for (const auto& row : list_->subviews()) {
    if (auto* button = dynamic_cast<Button*>(row.get())) button->setSelected(button->tag() == index);
  }
  hideList();
  notify("selectedIndex");
  if (handler_) handler_(text, index, id);
  runLayoutPass();
  return true;
}

}  // namespace kit
