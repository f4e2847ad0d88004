#include "contacts/ContactVC.h"

#include <unordered_map>

#include "ads/ADNetAdaptiveBannerAd.h"
#include "contacts/ContactDeletion.h"
#include "kit/AlertController.h"
#include "kit/Console.h"
#include "kit/Dispatch.h"
#include "kit/Fatal.h"
#include "kit/NavigationController.h"
#include "kit/ProgressHUD.h"
#include "kit/Storyboard.h"
#include "kit/Toast.h"
#include "platform/Platform.h"
#include "shared/ViewHelpers.h"
#include "vault/ContactDataDetail.h"

namespace contacts {

namespace {

constexpr const char* kLoadingMessage = "Loading Contacts...";

std::string upperCased(const std::string& s) {
  std::string out = s;
  for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

// Every contact of the store, in its order; an enumeration error is logged and what was read
// is kept.
std::vector<platform::ContactPtr> readAllContacts() {
  std::vector<platform::ContactPtr> gathered;
  platform::Error error;
  bool ok = platform::contactStore().enumerateContactsWithFetchRequest(
      platform::ContactFetchRequest{ContactVC::keysToFetch()}, &error,
      [&](const platform::ContactPtr& c, bool*) { gathered.push_back(c); });
  if (!ok) kit::NSLog("Fetch contact error: " + platform::describe(error));
  return gathered;
}

}  // namespace

void ContactCell::awakeFromNib() {
  for (const char* image : {"contactImg", "infoImg", "statusImg"}) {
    auto v = kit::make<kit::ImageView>();
    contentView().addSubview(v);
    registerOutlet(image, v);
  }
  for (const char* label : {"name", "contactNumber"}) {
    auto l = kit::make<kit::Label>();
    contentView().addSubview(l);
    registerOutlet(label, l);
  }
}

void ContactViewController::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  auto close = addOutlet<kit::Button>("closeButton");
  close->setImage(kit::Image::named("close"), kit::kControlStateNormal);
  close->addTarget([this](kit::Object*) {
    if (auto* nav = navigationController()) {
      nav->dismissViewControllerAnimated(true);
    } else {
      dismissViewControllerAnimated(true);
    }
  }, kit::kControlEventTouchUpInside);
  addOutlet<kit::Label>("titleLbl")->setText(title());
  addOutlet<kit::ImageView>("cardImg")->setImage(kit::Image::named("dp"));
  bool showsName = false, showsNumbers = false;
  for (const auto& key : displayedPropertyKeys) {
    showsName |= key == platform::kContactGivenNameKey;
    showsNumbers |= key == platform::kContactPhoneNumbersKey;
  }
  auto name = platform::stringFromContact(contact);
  addOutlet<kit::Label>("cardNameLbl")->setText(showsName && name ? name : std::nullopt);
  for (std::size_t i = 0; showsNumbers && i < contact.phoneNumbers.size(); ++i) {
    const auto& phone = contact.phoneNumbers[i];
    addOutlet<kit::Label>("phoneLabelLbl" + std::to_string(i))->setText(phone.label);
    addOutlet<kit::Label>("phoneNumberLbl" + std::to_string(i))->setText(phone.stringValue);
  }
}

ContactVC::ContactVC() : context(vault::contactDataContext()) {
  registerAction("openContact:", [this](kit::Object*) { openContact(); });
  registerAction("backPress:", [this](kit::Object*) { backPress(); });
  registerAction("closeBtn:", [this](kit::Object*) { closeBtn(); });
  registerAction("importContact:", [this](kit::Object*) { importContact(); });
}

std::vector<std::string> ContactVC::keysToFetch() {
  return {platform::kContactGivenNameKey,    platform::kContactFamilyNameKey,
          platform::kContactImageDataKey,    platform::kContactThumbnailImageDataKey,
          platform::kContactPhoneNumbersKey, platform::kContactVCardKeysDescriptor};
}

void ContactVC::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  double width = view().frame().width();
  auto back = addOutlet<kit::Button>("backbtn");
  back->setImage(kit::Image::named("back"), kit::kControlStateNormal);
  connect(*back, "backPress:");
  addOutlet<kit::Label>("titleLbl")->setText(std::string("Contacts"));
  auto search = addOutlet<kit::SearchBar>("searchBar");
  search->setFrame(kit::makeRect(0, 60, width, 50));
  search->setPlaceholder("Search");
  addOutlet<kit::Label>("totalCount")->setFrame(kit::makeRect(16, 110, width - 32, 30));
  addOutlet<kit::View>("allContactView");
  addOutlet<kit::View>("duplicateContactView");
  auto table = addOutlet<kit::TableView>("contactTable");
  table->setFrame(kit::makeRect(0, 140, width, 540));
  table->registerCell(ContactCell::kReuseIdentifier, [] { return kit::make<ContactCell>(); });
  auto empty = addOutlet<kit::View>("noDataView");
  empty->setFrame(kit::makeRect(0, 140, width, 540));
  addOutlet<kit::Label>("noDataLbl", empty.get())->setText(std::string("No Contacts Found"));
  // The welcome page of the screen when it is opened with no mode.
  auto intro = addOutlet<kit::View>("secretContactMainView");
  intro->setFrame(kit::makeRect(0, 60, width, 620));
  auto stage = addOutlet<kit::View>("contactAnimationView", intro.get());
  stage->setFrame(kit::makeRect(0, 0, width, 300));
  auto open = addOutlet<kit::Button>("openContactButton", intro.get());
  open->setTitle(std::string("Open Contacts"), kit::kControlStateNormal);
  connect(*open, "openContact:");
  auto close = addOutlet<kit::Button>("closeButton", intro.get());
  close->setImage(kit::Image::named("close"), kit::kControlStateNormal);
  connect(*close, "closeBtn:");
  addOutlet<kit::Button>("importDuplicateContact")->setHidden(true);
  auto import = addOutlet<kit::Button>("impotBtn");
  import->setFrame(kit::makeRect(0, 680, width, 53));
  import->setTitle(std::string("Import"), kit::kControlStateNormal);
  connect(*import, "importContact:");
  registerOutlet("btnHeightConstraint", std::make_shared<kit::LayoutConstraint>(53.0));
  addOutlet<kit::View>("adsView")->setFrame(kit::makeRect(0, 733, width, 60));
  registerOutlet("adHeightConstraint", std::make_shared<kit::LayoutConstraint>(0.0));
}

void ContactVC::viewDidLoad() {
  auto self = sharedAs<ContactVC>();
  contactTable->setDataSource(self);
  contactTable->setDelegate(self);
  searchBar->setDelegate(self);
  auto tap = std::make_shared<kit::TapGestureRecognizer>();
  tap->setCancelsTouchesInView(false);
  tap->addTarget([this](kit::GestureRecognizer&) { shared::dismissKeyboard(*this); });
  view().addGestureRecognizer(tap);
  if (platform::device().systemMajorVersion() >= 13) searchBar->setTextColor(kit::Color::gray());
  searchBar->setTintColor(kit::Color::gray());
  filteredData.store(std::make_shared<const ContactRows>(contactList));
  loadContacts();
  findDuplicates();
  secretContactMainView->setHidden(false);
  if (isFrom == std::optional<std::string>("duplicate")) {
    contactTable->setHidden(false);
    btnHeightConstraint->setConstant(53.0);
    secretContactMainView->setHidden(true);
    auto press = std::make_shared<kit::LongPressGestureRecognizer>();
    press->setMinimumPressDuration(0.2);
    press->addTarget([this](kit::GestureRecognizer& g) {
      longPressedWithLongPressGesture(static_cast<kit::LongPressGestureRecognizer&>(g));
    });
    contactTable->addGestureRecognizer(press);
  } else if (!isFrom) {
    contactTable->setHidden(true);
    btnHeightConstraint->setConstant(0.0);
  }
  contactAnimation = kit::make<kit::AnimationView>("contact");
  contactAnimation->setContentMode(kit::ContentMode::ScaleAspectFit);
  contactAnimation->setFrame(contactAnimationView->bounds());
  contactAnimation->setLoopMode(kit::LoopMode::Loop);
  contactAnimation->setAnimationSpeed(1.0);
  contactAnimation->play();
  contactAnimationView->addSubview(contactAnimation);
}

void ContactVC::viewWillAppear(bool) {
  loadContacts();
  findDuplicates();
  ads::ADNetAdaptiveBannerAd::shared()->loadBanner(sharedAs<ContactVC>(), adsView.shared(), adHeightConstraint.shared());
  navigationItem().setHidesSearchBarWhenScrolling(true);
}

void ContactVC::viewDidAppear(bool) { navigationItem().setHidesSearchBarWhenScrolling(false); }

void ContactVC::didMoveToParentViewController(kit::ViewController* parent) {
  if (!parent) kit::print("back btn pressed");
}

void ContactVC::showPermissionAlert() {
  // The access completion comes on a background queue; the alert goes up from the main queue.
  auto self = sharedAs<ContactVC>();
  kit::mainQueue().async([self] {
    auto alert = kit::AlertController::make(std::string("Can't access contact"),
                                            std::string("Please go to Settings -> MyApp to enable contact permission"),
                                            kit::AlertStyle::Alert);
    alert->addAction(std::make_shared<kit::AlertAction>(std::string("OK"), kit::AlertActionStyle::Default));
    self->presentViewController(alert, true);
  });
}

void ContactVC::loadContacts() {
  kit::ProgressHUD::shared().show(std::string(kLoadingMessage));
  auto self = sharedAs<ContactVC>();
  kit::globalQueue(kit::QoS::Background).async([self] {
    platform::contactStore().requestAccessForEntityType(
        platform::kEntityTypeContacts, [self](bool granted, std::optional<platform::Error>) {
          if (!granted) {
            self->showPermissionAlert();
            return;
          }
          auto gathered = readAllContacts();
          kit::mainQueue().async([self, gathered = std::move(gathered)] {
            // The list is shown anew after each row. Nothing else runs on the main queue until
            // this loop ends, so the shown rows are published once, after it: the same end
            // state without copying the growing list once per contact.
            for (const auto& c : gathered) {
              auto name = platform::stringFromContact(*c);
              std::string number = c->phoneNumbers.empty() ? std::string() : c->phoneNumbers.front().stringValue;
              self->contactList.push_back(std::make_shared<ContactModel>(name ? *name : "No Name", number));
              self->noDataView->setHidden(true);
              self->impotBtn->setHidden(false);
              if (self->isFrom == std::optional<std::string>("duplicate")) {
                self->contactTable->setHidden(false);
              } else {
                self->impotBtn->setHidden(true);
                self->contactTable->setHidden(true);
              }
              self->totalCount->setText("Total Contacts : " + std::to_string(self->contactList.size()));
              self->contactTable->reloadData();
            }
            if (!gathered.empty()) self->filteredData.store(std::make_shared<const ContactRows>(self->contactList));
          });
        });
  });
}

void ContactVC::findDuplicates() {
  kit::ProgressHUD::shared().show(std::string(kLoadingMessage));
  auto self = sharedAs<ContactVC>();
  platform::contactStore().requestAccessForEntityType(
      platform::kEntityTypeContacts, [self](bool granted, std::optional<platform::Error>) {
        if (!granted) {
          self->showPermissionAlert();
          return;
        }
        kit::globalQueue(kit::QoS::Background).async([self] {
          auto gathered = readAllContacts();
          // One walk: the members of each full name, in the store's order. Contacts with no
          // full name or no given name join no group.
          std::vector<std::string> order;
          std::unordered_map<std::string, std::vector<platform::ContactPtr>> byName;
          for (const auto& c : gathered) {
            auto name = platform::stringFromContact(*c);
            if (!name) continue;
            auto [at, fresh] = byName.try_emplace(*name);
            if (fresh) order.push_back(*name);
            if (!c->givenName.empty()) at->second.push_back(c);
          }
          auto groups = std::make_shared<ContactGroups>();
          for (const auto& name : order) {
            auto& members = byName[name];
            if (members.size() < 2) continue;
            groups->push_back(std::move(members));
            kit::mainQueue().async([] { kit::ProgressHUD::shared().dismiss(); });
          }
          self->duplicateData.store(std::move(groups));
        });
      });
}

std::shared_ptr<const ContactRows> ContactVC::rows() const {
  auto data = filteredData.load();
  if (!data) kit::fatal("Unexpectedly found nil while unwrapping filteredData");
  return data;
}

int ContactVC::numberOfRowsInSection(kit::TableView&, int) { return static_cast<int>(rows()->size()); }

std::shared_ptr<kit::TableViewCell> ContactVC::cellForRowAtIndexPath(kit::TableView& table, kit::IndexPath indexPath) {
  auto cell = std::dynamic_pointer_cast<ContactCell>(
      table.dequeueReusableCellWithIdentifier(ContactCell::kReuseIdentifier, indexPath));
  if (!cell) kit::fatal("Could not cast value of type TableViewCell to ContactCell");
  auto data = rows();
  const auto& model = data->at(static_cast<std::size_t>(indexPath.row));
  cell->contactImg->setImage(kit::Image::named(model->contactImg));
  cell->name->setText(model->contactName);
  cell->contactNumber->setText(model->contactNumber);
  cell->infoImg->setImage(kit::Image::named(model->infoImg));
  if (!longPressStatus) {
    cell->infoImg->setHidden(false);
    cell->statusImg->setHidden(true);
  } else {
    cell->infoImg->setHidden(true);
    cell->statusImg->setHidden(false);
    cell->statusImg->setImage(kit::Image::named(model->isSelected ? "check" : "uncheck"));
  }
  return cell;
}

void ContactVC::didSelectRowAtIndexPath(kit::TableView& table, kit::IndexPath indexPath) {
  auto data = rows();
  const auto& model = data->at(static_cast<std::size_t>(indexPath.row));
  if (longPressStatus) {
    model->isSelected = !model->isSelected;
    table.reloadData();
    return;
  }
  // The card shows the number alone, under the mobile label.
  platform::Contact card;
  card.phoneNumbers.push_back({platform::kLabelPhoneNumberMobile, model->contactNumber});
  auto viewer = std::make_shared<ContactViewController>(card);
  viewer->allowsActions = true;
  viewer->editing = false;
  viewer->allowsEditing = false;
  viewer->setTitle("Scroll Down");
  viewer->displayedPropertyKeys = {platform::kContactPhoneNumbersKey, platform::kContactGivenNameKey};
  presentViewController(std::make_shared<kit::NavigationController>(viewer), true);
}

void ContactVC::searchBarTextDidChange(kit::SearchBar&, const std::string& searchText) {
  auto next = std::make_shared<ContactRows>();
  if (searchText.empty()) *next = contactList;
  const std::string needle = upperCased(searchText);
  for (const auto& model : contactList) {
    if (!needle.empty() && upperCased(model->contactName).find(needle) != std::string::npos) {
      next->push_back(model);
    } else {
      noDataView->setHidden(!next->empty());
    }
  }
  noDataView->setHidden(!next->empty());
  filteredData.store(std::move(next));
  contactTable->reloadData();
}

void ContactVC::openContact() {
  secretContactMainView->setHidden(true);
  contactTable->setHidden(false);
}

void ContactVC::closeBtn() {
  if (auto* nav = navigationController()) nav->popViewControllerAnimated(true);
}

void ContactVC::backPress() {
  if (longPressStatus) {
    longPressStatus = false;
    impotBtn->setHidden(false);
    for (const auto& model : *rows()) model->isSelected = false;
    contactTable->reloadData();
    return;
  }
  if (isFrom == std::optional<std::string>("duplicate")) {
    if (auto* nav = navigationController()) nav->popViewControllerAnimated(true);
    return;
  }
  contactTable->setHidden(true);
  secretContactMainView->setHidden(false);
}

void ContactVC::longPressedWithLongPressGesture(kit::LongPressGestureRecognizer& gesture) {
  auto row = contactTable->indexPathForRowAtPoint(gesture.locationInView());
  if (!row) {
    kit::print("Long press on table view, not row.");
    return;
  }
  if (gesture.state() == kit::GestureState::Began) {
    kit::print("Long press on row, at " + std::to_string(row->row));
    if (longPressStatus) return;
    longPressStatus = true;
    contactTable->reloadData();
  } else if (gesture.state() == kit::GestureState::Cancelled) {
    longPressStatus = false;
  }
}

void ContactVC::saveSelectedRows() {
  for (const auto& model : *rows()) {
    if (!model->isSelected) continue;
    auto record = vault::ContactDataDetail::insertInContext(*context);
    record->setContactName(model->contactName);
    record->setContactNumber(model->contactNumber);
    record->setIsSelected(false);
    platform::Error error;
    context->save(&error);  // a failed save is dropped; the loop goes on
  }
}

void ContactVC::removeSelectedFromBook() {
  auto self = sharedAs<ContactVC>();
  kit::globalQueue(kit::QoS::Background).async([self] {
    auto shown = self->filteredData.load();
    for (const auto& model : shown ? *shown : ContactRows{}) {
      if (model->isSelected) {
        deleteContactNamed(model->contactName);
      } else {
        kit::mainQueue().async([self] {
          kit::ToastManager::shared().makeToast(self->view(), std::string("Please select contacts first"),
                                                std::nullopt, kit::ToastPosition::Center);
        });
      }
    }
    kit::mainQueue().async([self] {
      auto now = self->filteredData.load();
      if (!now || now->empty()) self->impotBtn->setHidden(true);
      self->contactTable->reloadData();
    });
  });
}

void ContactVC::openSecretContacts() {
  if (!storyboard()) kit::fatal("Unexpectedly found nil while unwrapping the storyboard of ContactVC");
  auto target = storyboard()->instantiate<vault::SecretContactVC>("SecretContactVC");
  target->isFrom = true;
  if (auto* nav = navigationController()) nav->pushViewController(target, true);
}

void ContactVC::importContact() {
  std::optional<std::string> title;
  if (!this->title().empty()) title = this->title();
  auto alert = kit::AlertController::make(
      title, std::string("Are you sure you want to remove contacts from your Phone & save within app?"),
      kit::AlertStyle::Alert);
  auto self = sharedAs<ContactVC>();
  alert->addAction(std::make_shared<kit::AlertAction>(std::string("Yes"), kit::AlertActionStyle::Default,
                                                      [self](kit::AlertAction&) {
                                                        self->saveSelectedRows();
                                                        self->removeSelectedFromBook();
                                                        self->openSecretContacts();
                                                      }));
  alert->addAction(std::make_shared<kit::AlertAction>(std::string("No"), kit::AlertActionStyle::Default,
                                                      [self](kit::AlertAction&) {
                                                        self->saveSelectedRows();
                                                        self->dismissViewControllerAnimated(true);
                                                        self->openSecretContacts();
                                                      }));
  presentViewController(alert, true);
}

}  // namespace contacts
