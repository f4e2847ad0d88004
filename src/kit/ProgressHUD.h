// The progress HUD: one modal activity indicator over the window, with an optional message.
// Success, error and info styles dismiss themselves after a short delay. Main thread only.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "kit/Dispatch.h"
#include "kit/Observable.h"

namespace kit {

enum class HUDStyle { Activity, Success, Error, Info };

class ProgressHUD : public Observable {
 public:
  static ProgressHUD& shared();

  // Seconds a success, error or info HUD stays up.
  double autoDismissDelay = 1.0;

  void show(std::optional<std::string> message = std::nullopt);
  void showSuccess(std::optional<std::string> message = std::nullopt);
  void showError(std::optional<std::string> message = std::nullopt);
  void showInfo(std::optional<std::string> message = std::nullopt);
  // Hides the HUD (if shown) and then runs `completion`.
  void dismiss(Task completion = {});

  bool isVisible() const { return visible_; }
  const std::optional<std::string>& message() const { return message_; }
  HUDStyle style() const { return style_; }

 private:
  void present(HUDStyle style, std::optional<std::string> message);
  bool visible_ = false;
  std::optional<std::string> message_;
  HUDStyle style_ = HUDStyle::Activity;
  std::shared_ptr<Timer> timer_;
};

}  // namespace kit
