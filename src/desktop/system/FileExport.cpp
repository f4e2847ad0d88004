#include "desktop/system/FileExport.h"

#include "kit/Dispatch.h"

namespace desktop {

void FileExport::setChooser(Chooser chooser) {
  std::lock_guard lock(mu_);
  chooser_ = std::move(chooser);
}

void FileExport::chooseFolder(int count, std::function<void(std::optional<std::string>)> chosen) {
  Chooser chooser;
  {
    std::lock_guard lock(mu_);
    chooser = chooser_;
  }
  if (!chooser) {
    kit::mainQueue().async([chosen = std::move(chosen)] { chosen(std::nullopt); });
    return;
  }
  chooser(count, std::move(chosen));
}

}  // namespace desktop
