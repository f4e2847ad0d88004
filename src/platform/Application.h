// The application object: idle timer, status bar, opening URLs, and the windows.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kit/Value.h"
#include "kit/Window.h"

namespace platform {

// The URL that opens the app's page of the system settings.
inline constexpr const char* kOpenSettingsURLString = "app-settings:";

class Application {
 public:
  virtual ~Application() = default;

  // Whether the device may dim and lock while the app runs. Main thread.
  virtual void setIdleTimerDisabled(bool disabled) = 0;
  virtual bool isIdleTimerDisabled() = 0;
  virtual void setStatusBarHidden(bool hidden) = 0;
  virtual bool isStatusBarHidden() = 0;
  // Opens `url` outside the app; `completion` (optional) receives whether it opened.
  virtual void openURL(const std::string& url, const kit::Dictionary& options,
                       std::function<void(bool)> completion) = 0;
  virtual bool canOpenURL(const std::string& url) = 0;

  // The app's windows, in the order they were added, and the key window (or null).
  virtual std::vector<std::shared_ptr<kit::Window>> windows() = 0;
  virtual std::shared_ptr<kit::Window> keyWindow() = 0;
  virtual void addWindow(std::shared_ptr<kit::Window> window) = 0;
};

// The part every implementation shares: idle timer, status bar and windows held in memory.
// Subclasses decide how URLs open.
class BasicApplication : public Application {
 public:
  void setIdleTimerDisabled(bool disabled) override;
  bool isIdleTimerDisabled() override;
  void setStatusBarHidden(bool hidden) override;
  bool isStatusBarHidden() override;
  std::vector<std::shared_ptr<kit::Window>> windows() override;
  std::shared_ptr<kit::Window> keyWindow() override;
  void addWindow(std::shared_ptr<kit::Window> window) override;

 private:
  std::mutex mu_;
  bool idleTimerDisabled_ = false;
  bool statusBarHidden_ = false;
  std::vector<std::shared_ptr<kit::Window>> windows_;
};

}  // namespace platform
