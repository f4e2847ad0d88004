// ContactDataDetail: a hidden contact, the one entity of the object store "ContactDataModel".
// A name and a number, and the selection flag of the hidden-contacts list, which is saved
// with the record. No key, no uniqueness: hiding a contact twice gives two records.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/PersistentContainer.h"

namespace vault {

class ContactDataDetail : public platform::ManagedObject {
 public:
  // The entity "ContactDataDetail": contactName, contactNumber (texts), isSelected (boolean).
  static const platform::EntityDescription& entity();
  // A new record in `context` (initWithContext:), with an empty name and number and
  // isSelected false.
  static std::shared_ptr<ContactDataDetail> insertInContext(platform::ManagedObjectContext& context);

  // Nothing when never set.
  std::optional<std::string> contactName() const;
  void setContactName(std::string name);
  std::optional<std::string> contactNumber() const;
  void setContactNumber(std::string number);
  bool isSelected() const;
  void setIsSelected(bool selected);
};

// The main context of the app's store of hidden contacts: the viewContext of the application
// delegate's persistentContainer. A screen opened with no app delegate (a test that starts on
// one screen) gets one container of that name made and loaded the same way, kept for the
// process. A store that cannot be loaded ends the process.
std::shared_ptr<platform::ManagedObjectContext> contactDataContext();

}  // namespace vault
