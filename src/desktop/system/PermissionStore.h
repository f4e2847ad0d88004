// The platform-level permission record: for each protected resource (photos, contacts) the
// state the user chose, with the phone's values (0 not determined, 1 restricted, 2 denied,
// 3 authorized, 4 limited), kept in a small JSON file (normally
// $XDG_CONFIG_HOME/solvanta/permissions.json) so that the user is asked once.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "kit/Dispatch.h"
#include "platform/Types.h"

namespace desktop {

enum class PermissionKind { Photos, Contacts, Notifications };

// The record's name of a kind: "photos", "contacts", "notifications".
const char* permissionName(PermissionKind kind);

// Asks the user whether the app may use `kind` and returns the answer: Authorized, Limited or
// Denied; NotDetermined when the question went unanswered (nothing is recorded then). Runs
// on the permission store's own serial queue and may block until the user answers; it must
// not wait for that queue.
using PermissionPrompt = std::function<platform::AuthorizationStatus(PermissionKind kind)>;

// Lives in a shared_ptr (queued requests keep it alive).
class PermissionStore : public std::enable_shared_from_this<PermissionStore> {
 public:
  using Handler = std::function<void(platform::AuthorizationStatus)>;

  // Reads the record at `path` (missing or unreadable: everything not determined). The
  // folder of `path` must exist for answers to be kept. With no prompt every question goes
  // unanswered.
  PermissionStore(std::string path, PermissionPrompt prompt);

  // The recorded state. Any thread.
  platform::AuthorizationStatus status(PermissionKind kind) const;
  // Replaces the prompt (the GUI installs its dialog once it exists). Any thread.
  void setPrompt(PermissionPrompt prompt);

  // When `kind` is not determined, asks through the prompt and records the answer; then
  // `handler` receives the state on a global queue (never the caller's stack). Requests run
  // one at a time in order, so concurrent requests lead to one question. Needs an installed
  // kit environment.
  void request(PermissionKind kind, Handler handler);
  // Asks again whatever the record says (the app's page of the system settings) and records
  // the answer; `handler` (optional) as for request().
  void reask(PermissionKind kind, Handler handler);
  // Records `status` without asking (tests and administrative tools). Any thread.
  void set(PermissionKind kind, platform::AuthorizationStatus status);

  // How many times the prompt has been called. Any thread.
  int promptCount() const;

 private:
  void ask(PermissionKind kind, bool always, Handler handler);
  // The body of a request, on the permission queue.
  void answer(PermissionKind kind, bool always, const Handler& handler);
  void save();  // callers hold mu_

  std::string path_;
  mutable std::mutex mu_;
  PermissionPrompt prompt_;
  std::map<std::string, int> states_;
  int prompts_ = 0;
  std::shared_ptr<kit::Queue> queue_;
};

}  // namespace desktop
