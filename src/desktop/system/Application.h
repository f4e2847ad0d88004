// The application object on Linux: web and mail links open through the desktop's opener, and
// the app's settings page is the photo-permission question asked again.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "desktop/system/PermissionStore.h"
#include "platform/Application.h"

namespace desktop {

class Application : public platform::BasicApplication {
 public:
  // Runs the program argv[0] (looked up in PATH) with `argv` and returns whether it started
  // and exited with status 0. Blocks the calling thread until it exits.
  using Launcher = std::function<bool(const std::vector<std::string>& argv)>;

  // `launcher` null: runProgram.
  Application(std::shared_ptr<PermissionStore> permissions, Launcher launcher = nullptr);

  // "http:", "https:" and "mailto:" URLs go to "xdg-open URL" on a global queue;
  // kOpenSettingsURLString asks the photo permission again through the permission store's
  // prompt. `completion` (optional) hears on the main queue whether the URL opened (the
  // settings page: true once the question is answered). Any other URL does not open. Any
  // thread.
  void openURL(const std::string& url, const kit::Dictionary& options,
               std::function<void(bool)> completion) override;
  // True for the URLs openURL can open. Any thread.
  bool canOpenURL(const std::string& url) override;

 private:
  std::shared_ptr<PermissionStore> permissions_;
  Launcher launcher_;
};

// Runs argv[0] (looked up in PATH) with `argv`, standard input from /dev/null; true when it
// exited with status 0. Blocks until it exits.
bool runProgram(const std::vector<std::string>& argv);

}  // namespace desktop
