#include "contacts/HeaderCell.h"

#include <algorithm>

#include "contacts/ContactDeletion.h"
#include "kit/AlertController.h"
#include "kit/Dispatch.h"
#include "kit/Fatal.h"
#include "kit/NavigationController.h"
#include "shared/ViewHelpers.h"

namespace contacts {

namespace {

bool removeFirstEqual(std::vector<platform::ContactPtr>& list, const platform::ContactPtr& c) {
  auto at = std::find_if(list.begin(), list.end(), [&](const auto& x) { return platform::isEqualContact(x, c); });
  if (at == list.end()) return false;
  list.erase(at);
  return true;
}

bool containsContact(const std::vector<platform::ContactPtr>& list, const platform::ContactPtr& c) {
  return std::any_of(list.begin(), list.end(), [&](const auto& x) { return platform::isEqualContact(x, c); });
}

}  // namespace

std::vector<platform::ContactPtr>& selectedDuplicateContacts() {
  static std::vector<platform::ContactPtr> selected;
  return selected;
}

void MergeContactCell::awakeFromNib() {
  auto name = kit::make<kit::Label>();
  contentView().addSubview(name);
  registerOutlet("nameLbl", name);
  auto number = kit::make<kit::Label>();
  contentView().addSubview(number);
  registerOutlet("contactLbl", number);
  auto mark = kit::make<kit::ImageView>();
  contentView().addSubview(mark);
  registerOutlet("selectedImg", mark);
  auto remove = kit::make<kit::Button>();
  remove->setImage(kit::Image::named("delete"), kit::kControlStateNormal);
  contentView().addSubview(remove);
  registerOutlet("deleteBtn", remove);
}

void HeaderCell::awakeFromNib() {
  for (const char* label : {"nameLbl", "contactLbl", "contactFound"}) {
    auto l = kit::make<kit::Label>();
    contentView().addSubview(l);
    registerOutlet(label, l);
  }
  auto edit = kit::make<kit::Button>();
  contentView().addSubview(edit);
  registerOutlet("editBtn", edit);
  auto all = kit::make<kit::Button>();
  all->setTitle(std::string("Select All"), kit::kControlStateNormal);
  all->addTarget([this](kit::Object* sender) { selectItemsWithSender(sender); }, kit::kControlEventTouchUpInside);
  contentView().addSubview(all);
  registerOutlet("selectAll", all);
  auto table = kit::make<kit::TableView>();
  table->setFrame(kit::makeRect(0, 60, kit::Screen::mainBounds().width(), 240));
  table->registerCell(MergeContactCell::kReuseIdentifier, [] { return kit::make<MergeContactCell>(); });
  contentView().addSubview(table);
  registerOutlet("tblView", table);

  auto self = sharedAs<HeaderCell>();
  tblView->setDataSource(self);
  tblView->setDelegate(self);
  selectAll->setBorderWidth(1.0);
  selectAll->setBorderColor(shared::colorFromHex("#2485EF"));
  auto& selected = selectedDuplicateContacts();
  auto snapshot = selected;
  for (const auto& c : snapshot) removeFirstEqual(selected, c);
}

void HeaderCell::setSelected(bool selected, bool) {
  setCellSelected(selected);
  contactFound->setText(" " + std::to_string(listData.size()) + " Duplicate contacts found ");
}

int HeaderCell::numberOfRowsInSection(kit::TableView&, int) { return static_cast<int>(listData.size()); }

std::shared_ptr<kit::TableViewCell> HeaderCell::cellForRowAtIndexPath(kit::TableView& table, kit::IndexPath indexPath) {
  auto cell = std::dynamic_pointer_cast<MergeContactCell>(
      table.dequeueReusableCellWithIdentifier(MergeContactCell::kReuseIdentifier, indexPath));
  if (!cell) kit::fatal("Could not cast value of type TableViewCell to MergeContactCell");
  const auto& contact = listData.at(static_cast<std::size_t>(indexPath.row));
  cell->deleteBtn->setTag(indexPath.row);
  cell->selectedImg->setImage(
      kit::Image::named(containsContact(selectedDuplicateContacts(), contact) ? "check" : "uncheck"));
  cell->nameLbl->setText(contact->givenName + " " + contact->familyName);
  if (!contact->phoneNumbers.empty()) {
    cell->contactLbl->setText(contact->phoneNumbers.front().stringValue);
  } else {
    cell->contactLbl->setText(std::nullopt);
  }
  // Added again on every reuse of the row; the same target and action count once.
  cell->deleteBtn->addTarget(this, "deleteButtonWithSender:",
                             [this](kit::Object* sender) { deleteButtonWithSender(sender); },
                             kit::kControlEventTouchUpInside);
  return cell;
}

void HeaderCell::didSelectRowAtIndexPath(kit::TableView& table, kit::IndexPath indexPath) {
  const auto& contact = listData.at(static_cast<std::size_t>(indexPath.row));
  auto& selected = selectedDuplicateContacts();
  if (!removeFirstEqual(selected, contact)) selected.push_back(contact);
  table.reloadData();
}

void HeaderCell::selectItemsWithSender(kit::Object*) {
  auto& selected = selectedDuplicateContacts();
  if (!isPressed) {
    selectAll->setTitle(std::string("Unselect All"), kit::kControlStateNormal);
    isPressed = true;
    selected.clear();
    for (const auto& c : listData) selected.push_back(c);
  } else {
    selectAll->setTitle(std::string("Select All"), kit::kControlStateNormal);
    isPressed = false;
    for (const auto& c : listData) removeFirstEqual(selected, c);
  }
  tblView->reloadData();
}

void HeaderCell::deleteButtonWithSender(kit::Object* sender) {
  auto* button = dynamic_cast<kit::Button*>(sender);
  if (!button) return;
  int row = button->tag();
  auto controller = viewController.lock();
  if (!controller) return;
  std::optional<std::string> title;
  if (!controller->title().empty()) title = controller->title();
  auto alert = kit::AlertController::make(title, std::string("Are you sure you want to delete contact "),
                                          kit::AlertStyle::Alert);
  auto self = sharedAs<HeaderCell>();
  std::weak_ptr<kit::ViewController> weakController = controller;
  alert->addAction(std::make_shared<kit::AlertAction>(std::string("Yes"), kit::AlertActionStyle::Default, [self, row, weakController](kit::AlertAction&) {
    if (row < 0 || static_cast<std::size_t>(row) >= self->listData.size()) return;
    platform::ContactPtr contact = self->listData[static_cast<std::size_t>(row)];
    kit::globalQueue(kit::QoS::Background).async([self, contact] {
      deleteContactNamed(contact->givenName);
      kit::mainQueue().async([self] { self->tblView->reloadData(); });
    });
    if (auto c = weakController.lock()) {
      if (auto* nav = c->navigationController()) nav->popViewControllerAnimated(true);
    }
  }));
  alert->addAction(std::make_shared<kit::AlertAction>(std::string("No"), kit::AlertActionStyle::Default, [weakController](kit::AlertAction&) {
    if (auto c = weakController.lock()) c->dismissViewControllerAnimated(false);
  }));
  controller->presentViewController(alert, true);
}

}  // namespace contacts
