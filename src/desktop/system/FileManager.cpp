#include "desktop/system/FileManager.h"

#include <sys/statvfs.h>

#include <cerrno>
#include <cstring>

#include "desktop/system/FileUtil.h"

namespace desktop {

FileManager::FileManager(AppFolders folders) : folders_(std::move(folders)) {}

std::vector<std::string> FileManager::searchPathForDirectoriesInDomains(int directory,
                                                                        int domainMask,
                                                                        bool expandTilde) {
  if (!(domainMask & platform::kUserDomainMask)) return {};
  std::string path;
  switch (directory) {
    case platform::kDocumentDirectory:
      path = folders_.documents();
      break;
    case platform::kApplicationSupportDirectory:
      path = folders_.applicationSupport();
      break;
    case platform::kCachesDirectory:
      path = folders_.cache();
      break;
    default:
      return {};
  }
  std::string error;
  if (!makeDirectories(path, 0700, &error)) diagnose(error);
  const std::string& home = folders_.home;
  if (!expandTilde && home.size() > 1 && path.compare(0, home.size(), home) == 0 &&
      (path.size() == home.size() || path[home.size()] == '/')) {
    path.replace(0, home.size(), "~");
  }
  return {path};
}

std::optional<kit::Dictionary> FileManager::attributesOfFileSystemForPath(const std::string& path,
                                                                          platform::Error* error) {
  struct statvfs fs {};
  if (::statvfs(path.c_str(), &fs) != 0) {
    int err = errno;
    if (error) {
      *error = err == ENOENT ? platform::Error{"NSCocoaErrorDomain", 260,
                                               "The file doesn\xE2\x80\x99t exist."}
                             : platform::Error{"NSCocoaErrorDomain", 256, std::strerror(err)};
    }
    return std::nullopt;
  }
  auto bytes = [&fs](fsblkcnt_t blocks) {
    return static_cast<long long>(blocks) * static_cast<long long>(fs.f_frsize);
  };
  return kit::Dictionary{{platform::kFileSystemSize, bytes(fs.f_blocks)},
                         {platform::kFileSystemFreeSize, bytes(fs.f_bavail)}};
}

}  // namespace desktop
