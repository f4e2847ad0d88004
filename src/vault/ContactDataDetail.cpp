#include "vault/ContactDataDetail.h"

#include "kit/Fatal.h"
#include "platform/Platform.h"

namespace vault {

const platform::EntityDescription& ContactDataDetail::entity() {
  using Type = platform::EntityDescription::AttributeType;
  static const platform::EntityDescription description{
      "ContactDataDetail",
      {{"contactName", Type::String}, {"contactNumber", Type::String}, {"isSelected", Type::Boolean}},
      [] { return std::make_shared<ContactDataDetail>(); }};
  return description;
}

std::shared_ptr<ContactDataDetail> ContactDataDetail::insertInContext(platform::ManagedObjectContext& context) {
  return std::static_pointer_cast<ContactDataDetail>(context.insertNewObjectForEntity(entity()));
}

std::optional<std::string> ContactDataDetail::contactName() const {
  auto v = valueForKey("contactName");
  if (auto* s = v.asString()) return *s;
  return std::nullopt;
}

void ContactDataDetail::setContactName(std::string name) { setValueForKey(kit::Value(std::move(name)), "contactName"); }

std::optional<std::string> ContactDataDetail::contactNumber() const {
  auto v = valueForKey("contactNumber");
  if (auto* s = v.asString()) return *s;
  return std::nullopt;
}

void ContactDataDetail::setContactNumber(std::string number) {
  setValueForKey(kit::Value(std::move(number)), "contactNumber");
}

bool ContactDataDetail::isSelected() const { return valueForKey("isSelected").asBool().value_or(false); }

void ContactDataDetail::setIsSelected(bool selected) { setValueForKey(kit::Value(selected), "isSelected"); }

std::shared_ptr<platform::ManagedObjectContext> contactDataContext() {
  std::shared_ptr<platform::PersistentContainer> container;
  if (platform::services().application) {
    if (auto delegate = platform::application().delegate()) container = delegate->persistentContainer();
  }
  if (!container) {
    // No app delegate: one container for the process, made as the delegate makes it. It is
    // dropped when the installed store service changes (a new test world).
    static std::weak_ptr<platform::PersistentStores> madeBy;
    static std::shared_ptr<platform::PersistentContainer> standalone;
    auto stores = platform::services().persistentStores;
    if (!standalone || madeBy.lock() != stores) {
      standalone = platform::persistentStores().containerWithName("ContactDataModel");
      standalone->loadPersistentStoresWithCompletionHandler(
          [](const platform::PersistentStoreDescription&, std::optional<platform::Error> error) {
            if (error) kit::fatal("Unresolved error " + platform::describe(*error));
          });
      madeBy = stores;
    }
    container = standalone;
  }
  auto context = container->viewContext();
  if (!context) kit::fatal("Unexpectedly found nil while unwrapping the view context of " + container->name());
  return context;
}

}  // namespace vault
