// "Save to…" on the desktop: whoever shows windows (the GUI) asks which folder; without it the
// question is declined. Main thread.
#pragma once

#include <mutex>

#include "platform/FileExport.h"

namespace desktop {

class FileExport : public platform::FileExport {
 public:
  using Chooser = std::function<void(int count, std::function<void(std::optional<std::string>)> chosen)>;
  void setChooser(Chooser chooser);
  void chooseFolder(int count, std::function<void(std::optional<std::string>)> chosen) override;

 private:
  std::mutex mu_;
  Chooser chooser_;
};

}  // namespace desktop
