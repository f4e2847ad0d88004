// DropDown: a text field that picks its text from a list of options. Touching it opens the
// list under it (one button per option); choosing an option sets the field's text, closes
// the list and calls the selection handler. Main thread only.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/Controls.h"

namespace kit {

class DropDown : public TextField {
 public:
  // (text, index, id) of the chosen option.
  using SelectionHandler = std::function<void(const std::string& text, int index, int id)>;

  DropDown();

  // The options, in list order. Replacing them closes the list and forgets the selection.
  const std::vector<std::string>& optionArray() const { return options_; }
  void setOptionArray(std::vector<std::string> options);
  // The ids of the options (their indices when never set).
  void setOptionIds(std::vector<int> ids) { ids_ = std::move(ids); }
  // The chosen option's index, or nothing.
  std::optional<int> selectedIndex() const { return selected_; }
  void didSelect(SelectionHandler handler) { handler_ = std::move(handler); }

  // Colours of the list: rows, the chosen row, the arrow, and the rows' text.
  const std::optional<Color>& rowBackgroundColor() const { return rowBackground_; }
  void setRowBackgroundColor(std::optional<Color> c) { assign(rowBackground_, c, "rowBackgroundColor"); }
  const std::optional<Color>& selectedRowColor() const { return selectedRow_; }
  void setSelectedRowColor(std::optional<Color> c) { assign(selectedRow_, c, "selectedRowColor"); }
  const std::optional<Color>& arrowColor() const { return arrow_; }
  void setArrowColor(std::optional<Color> c) { assign(arrow_, c, "arrowColor"); }
  const std::optional<Color>& itemsColor() const { return items_; }
  void setItemsColor(std::optional<Color> c) { assign(items_, c, "itemsColor"); }

  // Opens or closes the list (its option buttons show while it is open).
  void showList();
  void hideList();
  bool isListShown() const { return listShown_; }
  // The view holding one button per option; hidden while the list is closed.
  View& listView() { return *list_; }
  // Chooses the option at `index` as a person's tap on its row does; false when out of range.
  bool selectOption(int index);

 private:
  void touched();
  void rebuildRows();

  std::vector<std::string> options_;
  std::vector<int> ids_;
  std::optional<int> selected_;
  SelectionHandler handler_;
  std::shared_ptr<View> list_;
  bool listShown_ = false;
  std::optional<Color> rowBackground_, selectedRow_, arrow_, items_;
};

}  // namespace kit
