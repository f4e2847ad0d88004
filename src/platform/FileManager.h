// Files: the app's standard folders and file-system attributes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/Value.h"
#include "platform/Types.h"

namespace platform {

// Directories and domains of searchPathForDirectoriesInDomains (the platform's values).
enum SearchPathDirectory : int {
  kDocumentDirectory = 9,
  kCachesDirectory = 13,
  kApplicationSupportDirectory = 14,
};
enum SearchPathDomainMask : int { kUserDomainMask = 1 };

// Keys of attributesOfFileSystemForPath.
inline constexpr const char* kFileSystemSize = "NSFileSystemSize";
inline constexpr const char* kFileSystemFreeSize = "NSFileSystemFreeSize";

class FileManager {
 public:
  virtual ~FileManager() = default;
  // The folders for `directory` in `domainMask` (NSSearchPathForDirectoriesInDomains); empty
  // when there is none. Any thread.
  virtual std::vector<std::string> searchPathForDirectoriesInDomains(int directory, int domainMask,
                                                                     bool expandTilde) = 0;
  // Size and free size (bytes, as numbers) of the file system holding `path`; nothing, with
  // `error` filled, on failure. Any thread.
  virtual std::optional<kit::Dictionary> attributesOfFileSystemForPath(const std::string& path,
                                                                       Error* error) = 0;

  // ---- Files and folders (paths are absolute). Any thread. ----
  // A manager that keeps no files answers every call below as a failure (nothing exists,
  // nothing can be made), with an error of domain "NSCocoaErrorDomain".

  // Whether something is at `path` (a symbolic link counts as what it names, a dangling one
  // as nothing); `isDirectory`, when given, says whether it is a folder.
  virtual bool fileExistsAtPath(const std::string& path, bool* isDirectory = nullptr);
  // Makes the folder `path` (and, with `intermediates`, its missing parents). An existing
  // folder is success with `intermediates`, an error without.
  virtual bool createDirectoryAtPath(const std::string& path, bool intermediates, Error* error);
  // The names in the folder `path`, in the order the file system gives them ("." and ".."
  // left out); nothing, with `error` filled, when it cannot be read.
  virtual std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(const std::string& path,
                                                                           Error* error);
  // Writes `data` as the whole file `path`, replacing one that is there. All or nothing: after
  // a failure (a full disk, say) no partial file is left under `path` or beside it.
  virtual bool writeData(const std::vector<std::uint8_t>& data, const std::string& path, Error* error);
  // The bytes of the file `path`; nothing, with `error` filled, when it cannot be read.
  virtual std::optional<std::vector<std::uint8_t>> contentsAtPath(const std::string& path, Error* error);
  // Removes the item at `path` (a folder with what it holds; a link, not what it names).
  virtual bool removeItemAtPath(const std::string& path, Error* error);
};

// The URL of a local path ("file://" + the path, each byte outside the unreserved characters
// and "/" percent-encoded), and back (nothing for a text that is no file URL).
std::string fileURLWithPath(const std::string& path);
std::optional<std::string> pathOfFileURL(const std::string& url);

}  // namespace platform
