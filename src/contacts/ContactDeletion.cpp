#include "contacts/ContactDeletion.h"

#include "kit/Console.h"
#include "platform/Platform.h"

namespace contacts {

void deleteContactNamed(const std::string& name) {
  auto& store = platform::contactStore();
  platform::Error error;
  auto found = store.unifiedContactsMatchingName(name, {platform::kContactGivenNameKey}, &error);
  if (!found) {
    kit::print(platform::describe(error));
    return;
  }
  if (found->empty()) {
    kit::print("No contacts found");
    return;
  }
  platform::Contact copy = *found->front();
  platform::SaveRequest request;
  request.deleteContact(copy);
  if (store.executeSaveRequest(request, &error)) {
    kit::print("Success, You deleted the user");
  } else {
    kit::print("Error = " + platform::describe(error));
  }
}

}  // namespace contacts
