// Saving files out of the app: the person picks a folder to copy shared files into.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace platform {

class FileExport {
 public:
  virtual ~FileExport() = default;
  // Asks the person for a folder to save `count` files in. `chosen` runs once on the main
  // queue with the folder's path, or with nothing when they decline. Main thread.
  virtual void chooseFolder(int count, std::function<void(std::optional<std::string>)> chosen) = 0;
};

}  // namespace platform
