#include "sim/Contacts.h"

#include <algorithm>
#include <memory>

#include "kit/Dispatch.h"

namespace sim {

namespace {

platform::Error deniedError() {
  return platform::Error{"CNErrorDomain", 100, "Access Denied"};
}

bool granted(int status) { return status == static_cast<int>(platform::AuthorizationStatus::Authorized); }

}  // namespace

platform::ContactPtr contact(std::string givenName, std::string familyName, std::vector<std::string> numbers,
                             std::string organizationName) {
  auto c = std::make_shared<platform::Contact>();
  c->givenName = std::move(givenName);
  c->familyName = std::move(familyName);
  c->organizationName = std::move(organizationName);
  for (auto& n : numbers) c->phoneNumbers.push_back({platform::kLabelPhoneNumberMobile, std::move(n)});
  return c;
}

void ContactStore::setContacts(std::vector<platform::ContactPtr> contacts) {
  std::lock_guard lock(mu_);
  contacts_.clear();
  for (auto& c : contacts) {
    if (c->identifier.empty()) {
      auto copy = std::make_shared<platform::Contact>(*c);
      copy->identifier = "sim-contact-" + std::to_string(nextId_++);
      c = copy;
    }
    contacts_.push_back(c);
  }
}

std::vector<platform::ContactPtr> ContactStore::contacts() const {
  std::lock_guard lock(mu_);
  return contacts_;
}

void ContactStore::setStatus(platform::AuthorizationStatus status) {
  std::lock_guard lock(mu_);
  status_ = static_cast<int>(status);
}

void ContactStore::answerAccess(platform::AuthorizationStatus status) {
  std::vector<std::function<void(bool, std::optional<platform::Error>)>> handlers;
  {
    std::lock_guard lock(mu_);
    status_ = static_cast<int>(status);
    handlers.swap(pending_);
  }
  bool ok = granted(static_cast<int>(status));
  for (auto& h : handlers) {
    kit::globalQueue(kit::QoS::Default).async([h, ok] { h(ok, ok ? std::nullopt : std::optional(deniedError())); });
  }
}

int ContactStore::pendingAccessRequests() const {
  std::lock_guard lock(mu_);
  return static_cast<int>(pending_.size());
}

int ContactStore::accessRequestCount() const {
  std::lock_guard lock(mu_);
  return requests_;
}

void ContactStore::failEnumerationAfter(std::optional<std::size_t> count) {
  std::lock_guard lock(mu_);
  failAfter_ = count;
}

void ContactStore::failSaves(bool fail) {
  std::lock_guard lock(mu_);
  failSaves_ = fail;
}

std::vector<std::string> ContactStore::deletedIdentifiers() const {
  std::lock_guard lock(mu_);
  return deleted_;
}

std::vector<std::string> ContactStore::lastKeys() const {
  std::lock_guard lock(mu_);
  return lastKeys_;
}

platform::AuthorizationStatus ContactStore::authorizationStatusForEntityType(int) {
  std::lock_guard lock(mu_);
  return static_cast<platform::AuthorizationStatus>(status_);
}

void ContactStore::requestAccessForEntityType(int,
                                              std::function<void(bool, std::optional<platform::Error>)> completion) {
  int status;
  {
    std::lock_guard lock(mu_);
    ++requests_;
    if (status_ == 0) {
      pending_.push_back(std::move(completion));
      return;
    }
    status = status_;
  }
  bool ok = granted(status);
  kit::globalQueue(kit::QoS::Default).async([completion = std::move(completion), ok] {
    completion(ok, ok ? std::nullopt : std::optional(deniedError()));
  });
}

bool ContactStore::enumerateContactsWithFetchRequest(
    const platform::ContactFetchRequest& request, platform::Error* error,
    const std::function<void(const platform::ContactPtr&, bool*)>& block) {
  std::vector<platform::ContactPtr> all;
  std::optional<std::size_t> failAfter;
  {
    std::lock_guard lock(mu_);
    lastKeys_ = request.keysToFetch;
    if (!granted(status_)) {
      if (error) *error = deniedError();
      return false;
    }
    all = contacts_;
    failAfter = failAfter_;
  }
  bool stop = false;
  for (std::size_t i = 0; i < all.size() && !stop; ++i) {
    if (failAfter && i >= *failAfter) break;
    block(all[i], &stop);
  }
  if (failAfter && *failAfter < all.size()) {
    if (error) *error = platform::Error{"CNErrorDomain", 2, "The address book could not be read."};
    return false;
  }
  return true;
}

std::optional<std::vector<platform::ContactPtr>> ContactStore::unifiedContactsMatchingName(
    const std::string& name, const std::vector<std::string>&, platform::Error* error) {
  std::lock_guard lock(mu_);
  if (!granted(status_)) {
    if (error) *error = deniedError();
    return std::nullopt;
  }
  std::vector<platform::ContactPtr> out;
  for (const auto& c : contacts_) {
    if (platform::contactMatchesName(*c, name)) out.push_back(c);
  }
  return out;
}

bool ContactStore::executeSaveRequest(const platform::SaveRequest& request, platform::Error* error) {
  std::lock_guard lock(mu_);
  if (failSaves_ || !granted(status_)) {
    if (error) *error = platform::Error{"CNErrorDomain", 500, "The save request failed."};
    return false;
  }
  for (const auto& gone : request.deletions()) {
    auto it = std::find_if(contacts_.begin(), contacts_.end(),
                           [&](const platform::ContactPtr& c) { return c->identifier == gone.identifier; });
    if (it == contacts_.end()) {
      if (error) *error = platform::Error{"CNErrorDomain", 200, "The contact was not found."};
      return false;
    }
    deleted_.push_back(gone.identifier);
    contacts_.erase(it);
  }
  return true;
}

}  // namespace sim
