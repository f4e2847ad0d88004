#include "kit/ProgressHUD.h"

#include "kit/Singleton.h"

namespace kit {

ProgressHUD& ProgressHUD::shared() { return *sharedInstance<ProgressHUD>(); }

void ProgressHUD::present(HUDStyle style, std::optional<std::string> message) {
  if (timer_) timer_->invalidate();
  timer_.reset();
  visible_ = true;
  style_ = style;
  message_ = std::move(message);
  notify("hud");
  if (style != HUDStyle::Activity) {
    timer_ = scheduledTimer(autoDismissDelay, false, [this](Timer&) { dismiss(); });
  }
}

void ProgressHUD::show(std::optional<std::string> message) { present(HUDStyle::Activity, std::move(message)); }
void ProgressHUD::showSuccess(std::optional<std::string> message) { present(HUDStyle::Success, std::move(message)); }
void ProgressHUD::showError(std::optional<std::string> message) { present(HUDStyle::Error, std::move(message)); }
void ProgressHUD::showInfo(std::optional<std::string> message) { present(HUDStyle::Info, std::move(message)); }

void ProgressHUD::dismiss(Task completion) {
  if (timer_) timer_->invalidate();
  timer_.reset();
  if (visible_) {
    visible_ = false;
    message_.reset();
    notify("hud");
  }
  if (completion) completion();
}

}  // namespace kit
