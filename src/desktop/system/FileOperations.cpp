// The file operations of desktop::FileManager.
#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "desktop/library/Trash.h"
#include "desktop/system/FileManager.h"
#include "desktop/system/FileUtil.h"

namespace desktop {
namespace {

bool fail(platform::Error* error, int code, const std::string& text, const std::string& path) {
  if (error) *error = platform::Error{"NSCocoaErrorDomain", code, text, {{"NSFilePath", path}}};
  return false;
}

bool failErrno(platform::Error* error, int err, const std::string& path) {
  return fail(error, err == ENOENT ? 260 : err == ENOSPC ? 640 : err == EEXIST ? 516 : 512, std::strerror(err), path);
}

}  // namespace

bool FileManager::fileExistsAtPath(const std::string& path, bool* isDirectory) {
  struct stat st {};
  bool exists = ::stat(path.c_str(), &st) == 0;
  if (isDirectory) *isDirectory = exists && S_ISDIR(st.st_mode);
  return exists;
}

bool FileManager::createDirectoryAtPath(const std::string& path, bool intermediates, platform::Error* error) {
  if (!intermediates) {
    if (::mkdir(path.c_str(), 0700) != 0) return failErrno(error, errno, path);
    return true;
  }
  std::string why;
  if (!makeDirectories(path, 0700, &why)) return fail(error, 512, why, path);
  return true;
}

std::optional<std::vector<std::string>> FileManager::contentsOfDirectoryAtPath(const std::string& path,
                                                                              platform::Error* error) {
  DIR* dir = ::opendir(path.c_str());
  if (!dir) {
    failErrno(error, errno, path);
    return std::nullopt;
  }
  std::vector<std::string> names;
  while (const dirent* entry = ::readdir(dir)) {
    std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    names.emplace_back(name);
  }
  ::closedir(dir);
  return names;
}

bool FileManager::writeData(const std::vector<std::uint8_t>& data, const std::string& path, platform::Error* error) {
  std::string why;
  std::string_view bytes(reinterpret_cast<const char*>(data.data()), data.size());
  if (!writeFileAtomically(path, bytes, 0600, &why)) return fail(error, 512, why, path);
  return true;
}

std::optional<std::vector<std::uint8_t>> FileManager::contentsAtPath(const std::string& path, platform::Error* error) {
  std::string why;
  auto text = readWholeFile(path, &why);
  if (!text) {
    fail(error, 260, why.empty() ? "No such file or directory" : why, path);
    return std::nullopt;
  }
  return std::vector<std::uint8_t>(text->begin(), text->end());
}

bool FileManager::removeItemAtPath(const std::string& path, platform::Error* error) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return failErrno(error, errno, path);
  std::string why;
  if (!Trash(folders_.homeTrash()).moveToTrash(path, &why)) return fail(error, 512, why, path);
  return true;
}

}  // namespace desktop
