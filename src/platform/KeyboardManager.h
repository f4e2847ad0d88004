// The keyboard manager: when enabled, text fields being edited are kept clear of the
// on-screen keyboard. A switch the app turns on at launch.
#pragma once

#include <atomic>

namespace platform {

class KeyboardManager {
 public:
  virtual ~KeyboardManager() = default;
  virtual void setEnable(bool enable) = 0;
  virtual bool isEnabled() const = 0;
};

// The switch alone, for platforms whose keyboard never covers a field (the desktop's
// physical keyboard, the sim). Any thread.
class BasicKeyboardManager : public KeyboardManager {
 public:
  void setEnable(bool enable) override { enabled_ = enable; }
  bool isEnabled() const override { return enabled_; }

 private:
  std::atomic<bool> enabled_{false};
};

}  // namespace platform
