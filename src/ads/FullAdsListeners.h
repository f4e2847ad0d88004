// The four listener objects that carry full-screen ad events to whoever registered last, and
// the two plain listeners that react to a failed show. Each listener object holds one strong
// delegate; a new delegate replaces the old one and nothing clears it. Main thread.
#pragma once

#include <memory>
#include <string>

#include "kit/ViewController.h"

namespace ads {

using Controller = std::shared_ptr<kit::ViewController>;

class FullAdsListenerProtocol {
 public:
  virtual ~FullAdsListenerProtocol() = default;
  virtual void onFullAdsLoad() = 0;
  virtual void onFullAdsFailed(const std::string& message, Controller controller) = 0;
  virtual void onFullAdClosed(Controller controller) = 0;
};

class FullAdsCloseListenerProtocol {
 public:
  virtual ~FullAdsCloseListenerProtocol() = default;
  virtual void onFullAdsCloseListener(Controller controller) = 0;
};

class AppFullAdsCloseProtocol {
 public:
  virtual ~AppFullAdsCloseProtocol() = default;
  virtual void onAppFullAdsClose(Controller controller) = 0;
};

class LaunchFullCallBackListenerProtocol {
 public:
  virtual ~LaunchFullCallBackListenerProtocol() = default;
  virtual void onLaunchFullCallBack(bool status) = 0;
};

class FullAdsListener {
 public:
  static std::shared_ptr<FullAdsListener> shared();
  std::shared_ptr<FullAdsListenerProtocol> fulladsdelegates;
  // Each calls the delegate when one is set.
  void onFullAdsLoad();
  void onFullAdsFailed(const std::string& message, Controller controller);
  void onFullAdClosed(Controller controller);
};

class FullAdsCloseListener {
 public:
  static std::shared_ptr<FullAdsCloseListener> shared();
  std::shared_ptr<FullAdsCloseListenerProtocol> fulladsdelegates;
  void onFullAdsCloseListener(Controller controller);
};

class AppFullAdsCloseListner {
 public:
  static std::shared_ptr<AppFullAdsCloseListner> shared();
  std::shared_ptr<AppFullAdsCloseProtocol> fulladsclosedelegates;
  void onAppFullAdsClose(Controller controller);
};

class LaunchFullCallBackListener {
 public:
  static std::shared_ptr<LaunchFullCallBackListener> shared();
  std::shared_ptr<LaunchFullCallBackListenerProtocol> fulladsdelegates;
  void onLaunchFullCallBack(bool status);
};

// A normal ad's listener: on a failed show it only asks for a new load.
class ShowFullAds : public FullAdsListenerProtocol {
 public:
  void onFullAdsLoad() override;
  void onFullAdsFailed(const std::string& message, Controller controller) override;
  void onFullAdClosed(Controller controller) override;
};

// A forced ad's listener: on a failed show it tries to show again at once.
class ShowForceFullAds : public FullAdsListenerProtocol {
 public:
  // Makes a new one the delegate of FullAdsListener.
  static void install();
  void onFullAdsLoad() override;
  void onFullAdsFailed(const std::string& message, Controller controller) override;
  void onFullAdClosed(Controller controller) override;
};

// Has no fields and no operations.
class AdsHelper {};

}  // namespace ads
