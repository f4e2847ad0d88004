// Where Solvanta keeps its data on Linux, after the XDG base directory rules, and where the
// photo library lives by default.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace desktop {

// The app's folders. Plain paths; nothing is created until someone asks (makeDirectories).
struct AppFolders {
  std::string home;        // $HOME, else the password database's home
  std::string configHome;  // $XDG_CONFIG_HOME, else ~/.config
  std::string dataHome;    // $XDG_DATA_HOME, else ~/.local/share
  std::string cacheHome;   // $XDG_CACHE_HOME, else ~/.cache

  std::string config() const { return configHome + "/solvanta"; }
  std::string data() const { return dataHome + "/solvanta"; }
  std::string cache() const { return cacheHome + "/solvanta"; }
  std::string documents() const { return data() + "/Documents"; }
  std::string applicationSupport() const { return data() + "/Application Support"; }
  // The freedesktop Trash of the home file system.
  std::string homeTrash() const { return dataHome + "/Trash"; }

  // Folders of the app's own data, which a library walk never enters.
  std::vector<std::string> ownFolders() const;

  // Reads HOME and the XDG variables of the process's environment. A relative XDG value is
  // ignored, as the XDG rules say.
  static AppFolders fromEnvironment();
};

// The user's pictures folder: XDG_PICTURES_DIR of $XDG_CONFIG_HOME/user-dirs.dirs when it
// names one, else ~/Pictures.
std::string picturesDirectory(const AppFolders& folders);

// The library root when none is given on the command line: $SOLVANTA_LIBRARY when set and
// not empty, else the pictures folder.
std::string defaultLibraryRoot(const AppFolders& folders);

// The value of XDG_PICTURES_DIR in the text of a user-dirs.dirs file ("$HOME/..." or an
// absolute path, shell-quoted), or nothing when absent or malformed.
std::optional<std::string> parsePicturesDir(const std::string& userDirsText,
                                            const std::string& home);

// Creates `path` and its missing parents, as mkdir -p; every folder this call creates gets
// `mode` exactly (the umask does not apply). An existing folder is left as it is. False with
// `error` filled when a component cannot be made or is not a folder.
bool makeDirectories(const std::string& path, mode_t mode, std::string* error = nullptr);

}  // namespace desktop
