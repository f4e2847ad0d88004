// Deleting a contact from the address book by name: the only change the app makes to the
// book.
#pragma once

#include <string>

namespace contacts {

// Deletes the first contact whose names match `name` by the store's name matching (which may
// be another contact than the row the name came from). Prints "No contacts found" when none
// matches, "Success, You deleted the user" after the deletion, and the error otherwise; tells
// the user nothing. Runs on the calling thread (the app calls it from background queues).
void deleteContactNamed(const std::string& name);

}  // namespace contacts
