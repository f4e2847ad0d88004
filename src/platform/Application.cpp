#include "platform/Application.h"

namespace platform {

void BasicApplication::setIdleTimerDisabled(bool disabled) {
  std::lock_guard lock(mu_);
  idleTimerDisabled_ = disabled;
}

bool BasicApplication::isIdleTimerDisabled() {
  std::lock_guard lock(mu_);
  return idleTimerDisabled_;
}

void BasicApplication::setStatusBarHidden(bool hidden) {
  std::lock_guard lock(mu_);
  statusBarHidden_ = hidden;
}

bool BasicApplication::isStatusBarHidden() {
  std::lock_guard lock(mu_);
  return statusBarHidden_;
}

std::vector<std::shared_ptr<kit::Window>> BasicApplication::windows() {
  std::lock_guard lock(mu_);
  return windows_;
}

std::shared_ptr<kit::Window> BasicApplication::keyWindow() {
  std::lock_guard lock(mu_);
  for (auto& w : windows_) {
    if (w->isKeyWindow()) return w;
  }
  return nullptr;
}

void BasicApplication::addWindow(std::shared_ptr<kit::Window> window) {
  std::lock_guard lock(mu_);
  windows_.push_back(std::move(window));
}

void BasicApplication::setDelegate(std::shared_ptr<ApplicationDelegate> delegate) {
  std::lock_guard lock(mu_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<ApplicationDelegate> BasicApplication::delegate() {
  std::lock_guard lock(mu_);
  return delegate_;
}

void BasicApplication::registerForRemoteNotifications() {
  std::lock_guard lock(mu_);
  registeredForRemoteNotifications_ = true;
}

bool BasicApplication::isRegisteredForRemoteNotifications() {
  std::lock_guard lock(mu_);
  return registeredForRemoteNotifications_;
}

bool BasicApplication::isInBackground() {
  std::lock_guard lock(mu_);
  return inBackground_;
}

void BasicApplication::enterBackground() {
  {
    std::lock_guard lock(mu_);
    if (inBackground_) return;
    inBackground_ = true;
  }
  if (auto d = delegate()) d->applicationDidEnterBackground(*this);
}

void BasicApplication::enterForeground() {
  {
    std::lock_guard lock(mu_);
    if (!inBackground_) return;
    inBackground_ = false;
  }
  if (auto d = delegate()) d->applicationWillEnterForeground(*this);
}

}  // namespace platform
