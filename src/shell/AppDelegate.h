// AppDelegate: the application's delegate. At launch it starts the ads network, the cloud
// services, messaging and notifications, the keyboard manager and the light style, and fills
// the list of screens no app-open ad may cover; it turns the app's trips to the background
// and back into app-open ad steps; it owns the persistent store of hidden contacts. Main
// thread.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kit/Window.h"
#include "platform/Application.h"
#include "platform/Messaging.h"
#include "platform/PersistentContainer.h"
#include "platform/UserNotifications.h"

namespace shell {

// Screens an app-open ad must not cover; filled at launch, read by the foreground timer.
std::vector<std::string>& exculdeStringArray();
// Whether the background has asked for an app-open ad yet in this process.
bool& openAdRequestedOnce();

class AppDelegate : public platform::ApplicationDelegate,
                    public platform::UserNotificationCenterDelegate,
                    public platform::MessagingDelegate,
                    public std::enable_shared_from_this<AppDelegate> {
 public:
  std::shared_ptr<kit::Window> window() const override { return window_; }
  void setWindow(std::shared_ptr<kit::Window> window) override { window_ = std::move(window); }

  // The launch steps, in their fixed order; returns true. Requests no ad.
  bool applicationDidFinishLaunchingWithOptions(platform::Application& application,
                                                const kit::Dictionary& launchOptions) override;
  // Sets KEY_CONTROLLER_STATE_CHECK; with a top controller, counts OPEN_ADS_COUNT up and
  // 0.5 s later (a one-shot timer holding that controller) resets it and shows the app-open
  // ad over it.
  void applicationWillEnterForeground(platform::Application& application) override;
  // Clears KEY_CONTROLLER_STATE_CHECK; with a top controller, the first trip of the process
  // loads an app-open ad against it.
  void applicationDidEnterBackground(platform::Application& application) override;
  // Ignores `token`, asks messaging for the current one and prints it (or the error).
  void messagingDidReceiveRegistrationToken(platform::Messaging& messaging, const std::string& token) override;

  // The store of hidden contacts ("ContactDataModel"), made and loaded on first read and kept.
  // A store that cannot be loaded ends the process with a fatal error.
  std::shared_ptr<platform::PersistentContainer> persistentContainer() override;

 private:
  std::shared_ptr<kit::Window> window_;
  std::shared_ptr<platform::PersistentContainer> persistentContainer_;
};

// The shared application's delegate, as the AppDelegate it is; null before the app started.
std::shared_ptr<AppDelegate> sharedAppDelegate();

// The program's start: registers the storyboard "Main" and hands over to a new AppDelegate
// through the platform's entry routine (window, launch, SplashVC in a navigation
// controller). Returns the window. Main thread, once per process.
std::shared_ptr<kit::Window> applicationMain();

}  // namespace shell
