#include "desktop/system/Application.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cctype>
#include <cerrno>

#include "kit/Dispatch.h"

extern char** environ;

namespace desktop {
namespace {

// The scheme of `url` in lower case ("" when it has none).
std::string schemeOf(const std::string& url) {
  std::size_t colon = url.find(':');
  if (colon == std::string::npos || colon == 0) return "";
  std::string scheme = url.substr(0, colon);
  for (char& c : scheme) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  bool valid = std::all_of(scheme.begin(), scheme.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '-' || c == '.';
  });
  return valid ? scheme : "";
}

bool isSettings(const std::string& url) {
  return schemeOf(url) == schemeOf(platform::kOpenSettingsURLString);
}

bool isExternal(const std::string& url) {
  std::string scheme = schemeOf(url);
  return scheme == "http" || scheme == "https" || scheme == "mailto";
}

void answerOnMain(std::function<void(bool)> completion, bool opened) {
  if (completion)
    kit::mainQueue().async([completion = std::move(completion), opened] { completion(opened); });
}

}  // namespace

Application::Application(std::shared_ptr<PermissionStore> permissions, Launcher launcher)
    : permissions_(std::move(permissions)), launcher_(std::move(launcher)) {
  if (!launcher_) launcher_ = runProgram;
}

void Application::openURL(const std::string& url, const kit::Dictionary&,
                          std::function<void(bool)> completion) {
  if (isSettings(url) && permissions_) {
    permissions_->reask(PermissionKind::Photos, [completion](platform::AuthorizationStatus) {
      answerOnMain(completion, true);
    });
  } else if (isExternal(url)) {
    kit::globalQueue(kit::QoS::Utility).async([launcher = launcher_, url, completion] {
      answerOnMain(completion, launcher({"xdg-open", url}));
    });
  } else {
    answerOnMain(std::move(completion), false);
  }
}

bool Application::canOpenURL(const std::string& url) {
  return (isSettings(url) && permissions_) || isExternal(url);
}

bool runProgram(const std::vector<std::string>& argv) {
  if (argv.empty()) return false;
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  pid_t pid = 0;
  int rc = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return false;
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace desktop
