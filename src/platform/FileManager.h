// Files: the app's standard folders and file-system attributes.
#pragma once

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
};

}  // namespace platform
