#include "desktop/system/PermissionStore.h"

#include "desktop/system/FileUtil.h"
#include "desktop/system/JsonPreferenceStore.h"

namespace desktop {

const char* permissionName(PermissionKind kind) {
  switch (kind) {
    case PermissionKind::Photos:
      return "photos";
    case PermissionKind::Contacts:
      return "contacts";
    case PermissionKind::Notifications:
      return "notifications";
  }
  return "photos";
}

PermissionStore::PermissionStore(std::string path, PermissionPrompt prompt)
    : path_(std::move(path)), prompt_(std::move(prompt)) {
  std::string error;
  auto text = readWholeFile(path_, &error);
  if (!text) {
    if (!error.empty()) diagnose("permissions: " + error);
    return;
  }
  auto values = decodeValues(*text, &error);
  if (!values) {
    diagnose("permissions: " + path_ + " is damaged (" + error +
             "); every permission reads as not determined");
    return;
  }
  for (const auto& [name, value] : *values) {
    if (auto state = value.asInteger()) states_[name] = static_cast<int>(*state);
  }
}

platform::AuthorizationStatus PermissionStore::status(PermissionKind kind) const {
  std::lock_guard lock(mu_);
  auto it = states_.find(permissionName(kind));
  return static_cast<platform::AuthorizationStatus>(it == states_.end() ? 0 : it->second);
}

void PermissionStore::setPrompt(PermissionPrompt prompt) {
  std::lock_guard lock(mu_);
  prompt_ = std::move(prompt);
}

void PermissionStore::set(PermissionKind kind, platform::AuthorizationStatus status) {
  std::lock_guard lock(mu_);
  states_[permissionName(kind)] = static_cast<int>(status);
  save();
}

int PermissionStore::promptCount() const {
  std::lock_guard lock(mu_);
  return prompts_;
}

void PermissionStore::request(PermissionKind kind, Handler handler) {
  ask(kind, false, std::move(handler));
}

void PermissionStore::reask(PermissionKind kind, Handler handler) {
  ask(kind, true, std::move(handler));
}

void PermissionStore::ask(PermissionKind kind, bool always, Handler handler) {
  std::shared_ptr<kit::Queue> queue;
  {
    std::lock_guard lock(mu_);
    if (!queue_) queue_ = kit::makeSerialQueue("solvanta.permissions");
    queue = queue_;
  }
  queue->async([self = shared_from_this(), kind, always, handler = std::move(handler)] {
    self->answer(kind, always, handler);
  });
}

void PermissionStore::answer(PermissionKind kind, bool always, const Handler& handler) {
  platform::AuthorizationStatus current = status(kind);
  if (always || current == platform::AuthorizationStatus::NotDetermined) {
    PermissionPrompt prompt;
    {
      std::lock_guard lock(mu_);
      prompt = prompt_;
      ++prompts_;
    }
    platform::AuthorizationStatus answer =
        prompt ? prompt(kind) : platform::AuthorizationStatus::NotDetermined;
    if (answer != platform::AuthorizationStatus::NotDetermined) {
      set(kind, answer);
      current = answer;
    }
  }
  if (handler) kit::globalQueue(kit::QoS::Default).async([handler, current] { handler(current); });
}

void PermissionStore::save() {
  std::map<std::string, kit::Value> values;
  for (const auto& [name, state] : states_) values[name] = kit::Value(state);
  std::string error;
  if (!writeFileAtomically(path_, encodeValues(values), 0600, &error))
    diagnose("permissions: " + error);
}

}  // namespace desktop
