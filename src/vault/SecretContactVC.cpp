#include "vault/SecretContactVC.h"

#include <algorithm>

#include "ads/ADNetAdaptiveBannerAd.h"
#include "kit/Console.h"
#include "kit/Dispatch.h"
#include "kit/Fatal.h"
#include "kit/NavigationController.h"
#include "kit/Storyboard.h"
#include "platform/Platform.h"
#include "shared/PreferenceKeys.h"
#include "shared/ViewHelpers.h"

namespace vault {

namespace {

std::string upperCased(const std::string& s) {
  std::string out = s;
  for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

// A list of texts from the preference store; absent when the value is of another kind.
std::optional<std::vector<std::string>> textList(const std::string& key) {
  kit::Value v = platform::preferences().objectForKey(key);
  const kit::Array* items = v.asArray();
  if (!items) return std::nullopt;
  std::vector<std::string> out;
  for (const auto& item : *items) {
    const std::string* s = item.asString();
    if (!s) return std::nullopt;
    out.push_back(*s);
  }
  return out;
}

}  // namespace

void DuplicateContactCell::awakeFromNib() {
  auto img = kit::make<kit::ImageView>();
  img->setImage(kit::Image::named("dp"));
  contentView().addSubview(img);
  registerOutlet("cnImg", img);
  auto name = kit::make<kit::Label>();
  contentView().addSubview(name);
  registerOutlet("cnName", name);
  auto number = kit::make<kit::Label>();
  contentView().addSubview(number);
  registerOutlet("cnNumber", number);
  auto status = kit::make<kit::ImageView>();
  contentView().addSubview(status);
  registerOutlet("statusImg", status);
}

SecretContactVC::SecretContactVC() : context(contactDataContext()) {
  registerAction("openContactPage:", [this](kit::Object*) { openContactPage(); });
  registerAction("closebtn:", [this](kit::Object*) { closebtn(); });
  registerAction("selectAllData:", [this](kit::Object*) { selectAllData(); });
  registerAction("deleteContact:", [this](kit::Object*) { deleteContact(); });
}

void SecretContactVC::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  double width = view().frame().width();
  auto nav = addOutlet<kit::View>("navView");
  nav->setFrame(kit::makeRect(0, 0, width, 60));
  auto back = addOutlet<kit::Button>("backButton", nav.get());
  back->setImage(kit::Image::named("back"), kit::kControlStateNormal);
  connect(*back, "closebtn:");
  addOutlet<kit::Label>("titleLbl", nav.get())->setText(std::string("Secret Contacts"));
  auto selectAll = addOutlet<kit::Button>("selectAllStatus", nav.get());
  selectAll->setTitle(std::string("Select All"), kit::kControlStateNormal);
  connect(*selectAll, "selectAllData:");
  auto search = addOutlet<kit::SearchBar>("searchContact");
  search->setFrame(kit::makeRect(0, 60, width, 50));
  search->setPlaceholder("Search");
  auto count = addOutlet<kit::Label>("totalCount");
  count->setFrame(kit::makeRect(16, 110, width - 32, 30));
  auto table = addOutlet<kit::TableView>("duplicateContactTable");
  table->setFrame(kit::makeRect(0, 140, width, 540));
  table->registerCell(DuplicateContactCell::kReuseIdentifier, [] { return kit::make<DuplicateContactCell>(); });
  auto empty = addOutlet<kit::View>("noDataView");
  empty->setFrame(kit::makeRect(0, 140, width, 540));
  addOutlet<kit::ImageView>("noDataImg", empty.get())->setImage(kit::Image::named("contacts"));
  addOutlet<kit::Label>("noDataLbl", empty.get())->setText(std::string("No Contacts Found"));
  auto addNewView = addOutlet<kit::View>("addNew");
  addNewView->setFrame(kit::makeRect(0, 680, width, 53));
  auto add = addOutlet<kit::Button>("addNewBtn", addNewView.get());
  add->setTitle(std::string("Add Contacts"), kit::kControlStateNormal);
  connect(*add, "openContactPage:");
  registerOutlet("addNewBtnHeightConstraint", std::make_shared<kit::LayoutConstraint>(53.0));
  auto remove = addOutlet<kit::Button>("deleteContactButton");
  remove->setFrame(kit::makeRect(0, 680, width, 53));
  remove->setTitle(std::string("Delete"), kit::kControlStateNormal);
  connect(*remove, "deleteContact:");
  addOutlet<kit::View>("adsView")->setFrame(kit::makeRect(0, 733, width, 60));
  registerOutlet("adHeightConstraint", std::make_shared<kit::LayoutConstraint>(0.0));
}

void SecretContactVC::viewDidLoad() {
  auto tap = std::make_shared<kit::TapGestureRecognizer>();
  tap->setCancelsTouchesInView(false);
  tap->addTarget([this](kit::GestureRecognizer&) { shared::dismissKeyboard(*this); });
  view().addGestureRecognizer(tap);

  auto self = sharedAs<SecretContactVC>();
  duplicateContactTable->setDataSource(self);
  duplicateContactTable->setDelegate(self);
  searchContact->setDelegate(self);
  bool modern = platform::device().systemMajorVersion() >= 13;
  if (modern) searchContact->setTextColor(kit::Color::white());

  tempListName = textList(shared::CONTACT_DATA_NAME);
  tempListNumber = textList(shared::CONTACT_DATA_NUMBER);

  fetchContacts();

  deleteContactButton->setHidden(true);
  selectAllStatus->setHidden(true);
  auto press = std::make_shared<kit::LongPressGestureRecognizer>();
  press->setMinimumPressDuration(0.2);
  press->addTarget([this](kit::GestureRecognizer& g) {
    longPressedWithLongPressGesture(static_cast<kit::LongPressGestureRecognizer&>(g));
  });
  duplicateContactTable->addGestureRecognizer(press);

  searchContact->setTintColor(kit::Color::gray());
  if (modern) searchContact->setTextColor(kit::Color::gray());
  selectAllStatus->setCornerRadius(8.0);
  selectAllStatus->setBorderWidth(1.0);
  selectAllStatus->setBorderColor(shared::colorFromHex("#2485EF"));
}

void SecretContactVC::viewWillAppear(bool) {
  ads::ADNetAdaptiveBannerAd::shared()->loadBanner(sharedAs<SecretContactVC>(), adsView.shared(),
                                                   adHeightConstraint.shared());
  navigationItem().setHidesSearchBarWhenScrolling(true);
}

void SecretContactVC::viewDidAppear(bool) { navigationItem().setHidesSearchBarWhenScrolling(false); }

std::shared_ptr<const ContactRecords> SecretContactVC::rows() const {
  auto data = filteredData.load();
  if (!data) kit::fatal("Unexpectedly found nil while unwrapping filteredData");
  return data;
}

void SecretContactVC::writeCount(int count) {
  totalCount->setText(longPressStatus ? "Selected Contacts : " + std::to_string(count)
                                      : "Total contact :  " + std::to_string(count));
}

void SecretContactVC::fetchContacts() {
  platform::Error error;
  auto found = context->executeFetchRequest(ContactDataDetail::entity(), &error);
  if (!found) {
    kit::print("error");
    return;
  }
  contactList.clear();
  for (const auto& object : *found) contactList.push_back(std::static_pointer_cast<ContactDataDetail>(object));
  writeCount(static_cast<int>(contactList.size()));
  filteredData.store(std::make_shared<const ContactRecords>(contactList));
  if (!contactList.empty()) {
    noDataView->setHidden(true);
    duplicateContactTable->setHidden(false);
  } else {
    noDataView->setHidden(false);
  }
  duplicateContactTable->reloadData();
}

int SecretContactVC::numberOfRowsInSection(kit::TableView&, int) { return static_cast<int>(rows()->size()); }

std::shared_ptr<kit::TableViewCell> SecretContactVC::cellForRowAtIndexPath(kit::TableView& table,
                                                                          kit::IndexPath indexPath) {
  auto cell = std::dynamic_pointer_cast<DuplicateContactCell>(
      table.dequeueReusableCellWithIdentifier(DuplicateContactCell::kReuseIdentifier, indexPath));
  if (!cell) kit::fatal("Could not cast value of type TableViewCell to DuplicateContactCell");
  auto data = rows();
  const auto& record = data->at(static_cast<std::size_t>(indexPath.row));
  cell->cnName->setText(record->contactName());
  cell->cnNumber->setText(record->contactNumber());
  if (!longPressStatus) {
    cell->statusImg->setHidden(true);
    totalCount->setText("Total contact : " + std::to_string(contactList.size()));
  } else {
    cell->statusImg->setHidden(false);
    cell->statusImg->setImage(kit::Image::named(record->isSelected() ? "check" : "uncheck"));
  }
  return cell;
}

void SecretContactVC::didSelectRowAtIndexPath(kit::TableView& table, kit::IndexPath indexPath) {
  if (!longPressStatus) return;
  auto data = rows();
  const auto& record = data->at(static_cast<std::size_t>(indexPath.row));
  record->setIsSelected(!record->isSelected());
  selectionCount += record->isSelected() ? 1 : -1;
  writeCount(selectionCount);
  table.reloadData();
}

void SecretContactVC::searchBarTextDidChange(kit::SearchBar&, const std::string& searchText) {
  auto next = std::make_shared<ContactRecords>();
  if (searchText.empty()) *next = contactList;
  const std::string needle = upperCased(searchText);
  for (const auto& record : contactList) {
    auto name = record->contactName();
    if (!name) kit::fatal("Unexpectedly found nil while unwrapping contactName");
    // An empty needle is found nowhere by this test, so the empty text gives no doubles.
    if (!needle.empty() && upperCased(*name).find(needle) != std::string::npos) next->push_back(record);
  }
  filteredData.store(std::move(next));
  auto self = sharedAs<SecretContactVC>();
  kit::mainQueue().async([self] { self->duplicateContactTable->reloadData(); });
}

void SecretContactVC::longPressedWithLongPressGesture(kit::LongPressGestureRecognizer& gesture) {
  auto row = duplicateContactTable->indexPathForRowAtPoint(gesture.locationInView());
  if (!row) {
    kit::print("Long press on table view, not row.");
    return;
  }
  if (gesture.state() == kit::GestureState::Began) {
    kit::print("Long press on row, at " + std::to_string(row->row));
    if (longPressStatus) return;
    longPressStatus = true;
    deleteContactButton->setHidden(false);
    selectAllStatus->setHidden(false);
    addNewBtn->setHidden(true);
    addNewBtnHeightConstraint->setConstant(0.0);
    duplicateContactTable->reloadData();
  } else if (gesture.state() == kit::GestureState::Cancelled) {
    longPressStatus = false;
  }
}

void SecretContactVC::selectAllData() {
  auto data = rows();
  if (!isPressed) {
    isPressed = true;
    for (const auto& r : *data) r->setIsSelected(true);
    selectionCount = static_cast<int>(data->size());
    writeCount(selectionCount);
    selectAllStatus->setTitle(std::string("Deselect All"), kit::kControlStateNormal);
  } else {
    isPressed = false;
    for (const auto& r : *data) r->setIsSelected(false);
    selectionCount = 0;
    writeCount(selectionCount);
    selectAllStatus->setTitle(std::string("Select All"), kit::kControlStateNormal);
  }
  duplicateContactTable->reloadData();
}

void SecretContactVC::exitContactSelection() {
  longPressStatus = false;
  for (const auto& r : *rows()) r->setIsSelected(false);
  selectionCount = 0;
  deleteContactButton->setHidden(true);
  selectAllStatus->setHidden(true);
  addNewBtn->setHidden(false);
  addNewBtnHeightConstraint->setConstant(53.0);
  duplicateContactTable->reloadData();
}

void SecretContactVC::deleteSelectedContacts() {
  kit::print("working");
  auto self = sharedAs<SecretContactVC>();
  ContactRecords all = contactList;
  kit::globalQueue(kit::QoS::Background).async([self, all] {
    for (const auto& record : all) {
      if (!record->isSelected()) continue;
      self->context->deleteObject(record);
      self->filteredData.update([&](const std::shared_ptr<const ContactRecords>& shown) {
        auto next = std::make_shared<ContactRecords>(shown ? *shown : ContactRecords{});
        auto at = std::find(next->begin(), next->end(), record);
        if (at != next->end()) next->erase(at);
        return std::shared_ptr<const ContactRecords>(std::move(next));
      });
      platform::Error error;
      self->context->save(&error);  // a failed save is dropped without a word
    }
    kit::mainQueue().async([self] {
      auto shown = self->filteredData.load();
      bool any = shown && !shown->empty();
      self->duplicateContactTable->setHidden(!any);
      self->noDataView->setHidden(any);
      self->fetchContacts();
      self->exitContactSelection();
    });
  });
}

void SecretContactVC::openContactPage() {
  if (!storyboard()) kit::fatal("Unexpectedly found nil while unwrapping the storyboard of SecretContactVC");
  auto target = storyboard()->instantiate<ContactPicker>("ContactVC");
  target->isFrom = "duplicate";
  if (auto* nav = navigationController()) nav->pushViewController(target, true);
}

void SecretContactVC::closebtn() {
  if (longPressStatus) {
    exitContactSelection();
    return;
  }
  if (!storyboard()) kit::fatal("Unexpectedly found nil while unwrapping the storyboard of SecretContactVC");
  if (auto* nav = navigationController()) {
    nav->pushViewController(storyboard()->instantiateViewControllerWithIdentifier("SecretSpaceVC"), true);
  }
}

void SecretContactVC::deleteContact() { deleteSelectedContacts(); }

}  // namespace vault
