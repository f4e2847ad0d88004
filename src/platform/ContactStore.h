// The address book: contacts with their names, numbers and pictures, read under the user's
// permission and deleted one save request at a time. The formatter and the name matching
// below are the platform's own rules, shared by every implementation.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/Value.h"
#include "platform/Types.h"

namespace platform {

// The entity type of contacts (the only one there is).
inline constexpr int kEntityTypeContacts = 0;

// Keys a fetch names, in the platform's spelling.
inline constexpr const char* kContactGivenNameKey = "givenName";
inline constexpr const char* kContactFamilyNameKey = "familyName";
inline constexpr const char* kContactImageDataKey = "imageData";
inline constexpr const char* kContactThumbnailImageDataKey = "thumbnailImageData";
inline constexpr const char* kContactPhoneNumbersKey = "phoneNumbers";
// The keys a vCard of the contact needs (descriptorForRequiredKeys).
inline constexpr const char* kContactVCardKeysDescriptor = "vCardRequiredKeys";
// The label of a mobile number.
inline constexpr const char* kLabelPhoneNumberMobile = "mobile";

struct LabeledPhoneNumber {
  std::string label;
  std::string stringValue;
};

// One contact as the store gives it. Immutable once handed out; shared by reference.
struct Contact {
  // The store's own identity of the card: equal identifiers are the same contact.
  std::string identifier;
  std::string namePrefix, givenName, middleName, familyName, nameSuffix;
  std::string organizationName;
  std::vector<LabeledPhoneNumber> phoneNumbers;
  kit::Data imageData;
  kit::Data thumbnailImageData;
};
using ContactPtr = std::shared_ptr<const Contact>;

// Two contacts are equal when they are the same card of the store (isEqual:).
bool isEqualContact(const ContactPtr& a, const ContactPtr& b);

// The full name (the formatter's full-name style): prefix, given, middle, family and suffix
// names, the empty ones left out, joined by one blank each and otherwise as they stand (no
// trimming); with no name at all, the organisation; with neither, nothing.
std::optional<std::string> stringFromContact(const Contact& contact);

// The store's name matching (predicateForContactsMatchingName:): every word of `name` starts,
// case-blind, a word of the contact's names or organisation. A name with no word matches
// nothing.
bool contactMatchesName(const Contact& contact, const std::string& name);

struct ContactFetchRequest {
  std::vector<std::string> keysToFetch;
};

// A set of changes applied together by executeSaveRequest.
class SaveRequest {
 public:
  // Asks for the deletion of `contact` (a mutable copy of a fetched contact).
  void deleteContact(const Contact& contact) { deletions_.push_back(contact); }
  const std::vector<Contact>& deletions() const { return deletions_; }

 private:
  std::vector<Contact> deletions_;
};

class ContactStore {
 public:
  virtual ~ContactStore() = default;

  // The recorded permission of the app. Any thread.
  virtual AuthorizationStatus authorizationStatusForEntityType(int entityType) = 0;
  // Asks the user when not yet determined; `completion` receives whether access is granted,
  // later, on a queue that is not the main queue.
  virtual void requestAccessForEntityType(int entityType,
                                          std::function<void(bool granted, std::optional<Error> error)> completion) = 0;
  // Calls `block` with each contact in the store's order, on the calling thread, until it sets
  // `*stop`. Without access: false and an error, and no contact. A store that could only be
  // read in part gives what it read and then false with an error. Any thread.
  virtual bool enumerateContactsWithFetchRequest(const ContactFetchRequest& request, Error* error,
                                                 const std::function<void(const ContactPtr&, bool* stop)>& block) = 0;
  // The contacts whose names match `name` (contactMatchesName), in the store's order; nothing
  // and an error when the store cannot be read. Any thread.
  virtual std::optional<std::vector<ContactPtr>> unifiedContactsMatchingName(
      const std::string& name, const std::vector<std::string>& keysToFetch, Error* error) = 0;
  // Applies `request`; false and an error when any part of it failed (what was done before the
  // failure stays done). Any thread.
  virtual bool executeSaveRequest(const SaveRequest& request, Error* error) = 0;
};

}  // namespace platform
