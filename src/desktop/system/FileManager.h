// Files on Linux: the app's standard folders under the XDG folders, and file-system figures
// from statvfs.
#pragma once

#include "desktop/system/AppFolders.h"
#include "platform/FileManager.h"

namespace desktop {

class FileManager : public platform::FileManager {
 public:
  explicit FileManager(AppFolders folders);

  // Documents: $XDG_DATA_HOME/solvanta/Documents; Application Support:
  // $XDG_DATA_HOME/solvanta/Application Support (both made with mode 0700 when missing);
  // Caches: $XDG_CACHE_HOME/solvanta. Only the user domain has folders. Without
  // `expandTilde` a folder under the home folder starts with "~". Any thread.
  std::vector<std::string> searchPathForDirectoriesInDomains(int directory, int domainMask,
                                                             bool expandTilde) override;
  // NSFileSystemSize (all blocks) and NSFileSystemFreeSize (blocks available to this user),
  // in bytes, as integers. Any thread.
  std::optional<kit::Dictionary> attributesOfFileSystemForPath(const std::string& path,
                                                               platform::Error* error) override;

  // Files and folders of the real file system. Folders are made with mode 0700. A write goes
  // to a temporary file in the same folder, is flushed to disk and renamed over the target,
  // so a crash or a full disk leaves the whole file or none. A removal moves the item to the
  // desktop Trash (the person's hidden photos are theirs; nothing is unlinked). Errors carry
  // the system's message and the path.
  bool fileExistsAtPath(const std::string& path, bool* isDirectory) override;
  bool createDirectoryAtPath(const std::string& path, bool intermediates, platform::Error* error) override;
  std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(const std::string& path,
                                                                   platform::Error* error) override;
  bool writeData(const std::vector<std::uint8_t>& data, const std::string& path, platform::Error* error) override;
  std::optional<std::vector<std::uint8_t>> contentsAtPath(const std::string& path, platform::Error* error) override;
  bool removeItemAtPath(const std::string& path, platform::Error* error) override;

 private:
  AppFolders folders_;
};

}  // namespace desktop
