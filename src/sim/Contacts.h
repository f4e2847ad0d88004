// sim::ContactStore: an address book in memory. Tests set its contacts and its permission,
// answer the permission question, make reads or deletions fail, and read what was deleted.
// Permission answers arrive on a background queue of the installed environment.
#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/ContactStore.h"

namespace sim {

// A contact with a given and family name and numbers; its identifier is made unique by the
// store when empty.
platform::ContactPtr contact(std::string givenName, std::string familyName, std::vector<std::string> numbers = {},
                             std::string organizationName = {});

class ContactStore : public platform::ContactStore {
 public:
  // --- Scripting ---
  void setContacts(std::vector<platform::ContactPtr> contacts);
  std::vector<platform::ContactPtr> contacts() const;
  void setStatus(platform::AuthorizationStatus status);
  // Answers every waiting permission question with `status`.
  void answerAccess(platform::AuthorizationStatus status);
  int pendingAccessRequests() const;
  int accessRequestCount() const;
  // Enumeration reads only the first `count` contacts and then reports an error.
  void failEnumerationAfter(std::optional<std::size_t> count);
  // Every save request fails.
  void failSaves(bool fail);
  // Identifiers of the contacts deleted so far, in order.
  std::vector<std::string> deletedIdentifiers() const;
  // The keys of the last enumeration.
  std::vector<std::string> lastKeys() const;

  // --- platform::ContactStore ---
  platform::AuthorizationStatus authorizationStatusForEntityType(int entityType) override;
  void requestAccessForEntityType(int entityType,
                                  std::function<void(bool, std::optional<platform::Error>)> completion) override;
  bool enumerateContactsWithFetchRequest(const platform::ContactFetchRequest& request, platform::Error* error,
                                         const std::function<void(const platform::ContactPtr&, bool*)>& block) override;
  std::optional<std::vector<platform::ContactPtr>> unifiedContactsMatchingName(
      const std::string& name, const std::vector<std::string>& keysToFetch, platform::Error* error) override;
  bool executeSaveRequest(const platform::SaveRequest& request, platform::Error* error) override;

 private:
  mutable std::mutex mu_;
  std::vector<platform::ContactPtr> contacts_;
  int status_ = 0;
  std::vector<std::function<void(bool, std::optional<platform::Error>)>> pending_;
  int requests_ = 0;
  std::optional<std::size_t> failAfter_;
  bool failSaves_ = false;
  std::vector<std::string> deleted_;
  std::vector<std::string> lastKeys_;
  int nextId_ = 1;
};

}  // namespace sim
