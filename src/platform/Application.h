// The application object: idle timer, status bar, opening URLs, and the windows.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kit/Value.h"
#include "kit/Window.h"
#include "platform/PersistentContainer.h"

namespace platform {

class Application;

// The application's delegate: told when launching has finished and when the app moves between
// the foreground and the background. Every call runs on the main thread.
class ApplicationDelegate {
 public:
  virtual ~ApplicationDelegate() = default;
  // The window the storyboard's first screen shows in (set by the entry routine).
  virtual std::shared_ptr<kit::Window> window() const = 0;
  virtual void setWindow(std::shared_ptr<kit::Window> window) = 0;
  // Launching has finished; the window is not shown yet. Returns whether the app can go on.
  virtual bool applicationDidFinishLaunchingWithOptions(Application& application,
                                                        const kit::Dictionary& launchOptions) = 0;
  // The app comes back from the background (never on a cold start).
  virtual void applicationWillEnterForeground(Application&) {}
  // The app has gone to the background.
  virtual void applicationDidEnterBackground(Application&) {}
  // The app's object store, loaded (persistentContainer); null when the app keeps none.
  virtual std::shared_ptr<PersistentContainer> persistentContainer() { return nullptr; }
};

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

  // The delegate, held strongly for the life of the app (the entry routine sets it).
  virtual void setDelegate(std::shared_ptr<ApplicationDelegate> delegate) = 0;
  virtual std::shared_ptr<ApplicationDelegate> delegate() = 0;
  // Asks for a push token. Where the platform has no push service, nothing comes of it but
  // the record that it was asked (the messaging service reports the missing token).
  virtual void registerForRemoteNotifications() = 0;
  virtual bool isRegisteredForRemoteNotifications() = 0;

  // Whether the app is in the background. Main thread.
  virtual bool isInBackground() = 0;
  // The app leaves for the background, or comes back: records it and tells the delegate
  // (applicationDidEnterBackground / applicationWillEnterForeground). A call that changes
  // nothing (background twice in a row) tells nobody. Main thread.
  virtual void enterBackground() = 0;
  virtual void enterForeground() = 0;
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
  void setDelegate(std::shared_ptr<ApplicationDelegate> delegate) override;
  std::shared_ptr<ApplicationDelegate> delegate() override;
  void registerForRemoteNotifications() override;
  bool isRegisteredForRemoteNotifications() override;
  bool isInBackground() override;
  void enterBackground() override;
  void enterForeground() override;

 private:
  std::mutex mu_;
  bool idleTimerDisabled_ = false;
  bool statusBarHidden_ = false;
  std::vector<std::shared_ptr<kit::Window>> windows_;
  std::shared_ptr<ApplicationDelegate> delegate_;
  bool registeredForRemoteNotifications_ = false;
  bool inBackground_ = false;
};

}  // namespace platform
