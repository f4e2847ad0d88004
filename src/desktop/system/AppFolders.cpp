#include "desktop/system/AppFolders.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "desktop/system/FileUtil.h"

namespace desktop {
namespace {

std::string env(const char* name) {
  const char* v = std::getenv(name);
  return v ? v : "";
}

std::string homeDirectory() {
  std::string home = env("HOME");
  if (!home.empty()) return home;
  if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_dir) return pw->pw_dir;
  return "/";
}

// An XDG variable's value when it is an absolute path, else `fallback`.
std::string xdg(const char* name, const std::string& fallback) {
  std::string v = env(name);
  return !v.empty() && v[0] == '/' ? v : fallback;
}

}  // namespace

std::vector<std::string> AppFolders::ownFolders() const {
  return {config(), data(), cache(), homeTrash()};
}

AppFolders AppFolders::fromEnvironment() {
  AppFolders f;
  f.home = homeDirectory();
  f.configHome = xdg("XDG_CONFIG_HOME", f.home + "/.config");
  f.dataHome = xdg("XDG_DATA_HOME", f.home + "/.local/share");
  f.cacheHome = xdg("XDG_CACHE_HOME", f.home + "/.cache");
  return f;
}

std::optional<std::string> parsePicturesDir(const std::string& text, const std::string& home) {
  std::optional<std::string> found;
  for (std::string_view line : settingLines(text)) {
    static const std::string kKey = "XDG_PICTURES_DIR";
    if (line.compare(0, kKey.size(), kKey) != 0) continue;
    std::size_t i = line.find_first_not_of(" \t", kKey.size());
    if (i == std::string::npos || line[i] != '=') continue;
    i = line.find_first_not_of(" \t", i + 1);
    if (i == std::string::npos || line[i] != '"') continue;
    // A double-quoted shell word: backslash escapes the next character.
    std::string value;
    bool closed = false;
    for (++i; i < line.size(); ++i) {
      if (line[i] == '\\' && i + 1 < line.size()) {
        value += line[++i];
      } else if (line[i] == '"') {
        closed = true;
        break;
      } else {
        value += line[i];
      }
    }
    if (!closed) continue;
    if (value.rfind("$HOME", 0) == 0 && (value.size() == 5 || value[5] == '/')) {
      value = home + value.substr(5);
    } else if (value.empty() || value[0] != '/') {
      continue;
    }
    // The last assignment wins, as it would in a shell.
    found = value;
  }
  return found;
}

std::string picturesDirectory(const AppFolders& folders) {
  if (auto text = readWholeFile(folders.configHome + "/user-dirs.dirs")) {
    if (auto dir = parsePicturesDir(*text, folders.home)) {
      // A pictures folder equal to the home folder means "not configured" by convention.
      if (*dir != folders.home && *dir != folders.home + "/") return *dir;
    }
  }
  return folders.home + "/Pictures";
}

std::string defaultLibraryRoot(const AppFolders& folders) {
  std::string fromEnv = env("SOLVANTA_LIBRARY");
  return fromEnv.empty() ? picturesDirectory(folders) : fromEnv;
}

bool makeDirectories(const std::string& path, mode_t mode, std::string* error) {
  if (path.empty()) {
    if (error) *error = "empty folder path";
    return false;
  }
  std::size_t pos = 0;
  while (pos != std::string::npos) {
    pos = path.find('/', pos + 1);
    std::string part = path.substr(0, pos);
    if (part.empty() || part.back() == '/') continue;
    if (::mkdir(part.c_str(), mode) == 0) {
      ::chmod(part.c_str(), mode);
      continue;
    }
    int err = errno;
    struct stat st {};
    if (err == EEXIST && ::stat(part.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) continue;
    if (error)
      *error = "cannot create folder " + part + ": " + std::strerror(err == EEXIST ? ENOTDIR : err);
    return false;
  }
  return true;
}

}  // namespace desktop
