// The presentation rules every full-screen ad shares, for ads network implementations: an ad
// presents once, over the root of the given controller, as a screen with a close button; a
// second presentation or a refused one reports failure to the delegate; closing dismisses the
// screen and reports the dismissal.
#pragma once

#include <memory>
#include <string>

#include "kit/Controls.h"
#include "kit/Views.h"
#include "platform/AdsNetwork.h"

namespace platform {

// The screen of a presented full-screen ad: the creative and a close button (outlets
// "adImageView", "adTitleLabel" and "closeButton"), shown under the identifier "FullScreenAd".
class FullScreenAdScreen : public kit::ViewController {
 public:
  FullScreenAdScreen(kit::ImagePtr creative, std::string title, std::function<void()> onClose);
  void loadView() override;
  // A user's tap on the close button.
  void close();

 private:
  kit::ImagePtr creative_;
  std::string title_;
  std::function<void()> onClose_;
};

template <class Base>
class BasicFullScreenAd : public Base, public std::enable_shared_from_this<BasicFullScreenAd<Base>> {
 public:
  BasicFullScreenAd(std::string adUnitID, kit::ImagePtr creative, std::string title)
      : adUnitID_(std::move(adUnitID)), creative_(std::move(creative)), title_(std::move(title)) {}

  const std::string& adUnitID() const override { return adUnitID_; }
  void setFullScreenContentDelegate(std::weak_ptr<FullScreenContentDelegate> d) override {
    delegate_ = std::move(d);
  }
  std::shared_ptr<FullScreenContentDelegate> fullScreenContentDelegate() const override {
    return delegate_.lock();
  }

  void presentFromRootViewController(kit::ViewController* root) override {
    auto self = this->shared_from_this();
    std::string refusal;
    if (used_) refusal = "Ad has already been used to present content.";
    else if (!root) refusal = "No root view controller to present from.";
    else if (refusePresentation_) refusal = "The ad could not be presented.";
    if (!refusal.empty()) {
      if (auto d = delegate_.lock()) d->adDidFailToPresentFullScreenContentWithError(*this, Error{"ads", 18, refusal});
      return;
    }
    used_ = true;
    if (auto d = delegate_.lock()) d->adWillPresentFullScreenContent(*this);
    std::weak_ptr<BasicFullScreenAd> weak = self;
    screen_ = std::make_shared<FullScreenAdScreen>(creative_, title_, [weak] {
      if (auto ad = weak.lock()) ad->dismissed();
    });
    screen_->setStoryboardOrigin(nullptr, "FullScreenAd");
    root->presentViewController(screen_, true);
    if (auto d = delegate_.lock()) d->adDidRecordImpression(*this);
  }

  // The next presentation fails (an implementation's fault injection).
  void setRefusePresentation(bool refuse) { refusePresentation_ = refuse; }
  bool isPresented() const { return screen_ != nullptr; }
  bool wasUsed() const { return used_; }
  // Closes a presented ad as the user would.
  void close() {
    if (screen_) screen_->close();
  }

 private:
  void dismissed() {
    auto self = this->shared_from_this();
    auto screen = std::move(screen_);
    screen_.reset();
    if (auto d = delegate_.lock()) d->adDidDismissFullScreenContent(*this);
  }

  std::string adUnitID_;
  kit::ImagePtr creative_;
  std::string title_;
  std::weak_ptr<FullScreenContentDelegate> delegate_;
  std::shared_ptr<FullScreenAdScreen> screen_;
  bool used_ = false;
  bool refusePresentation_ = false;
};

using BasicInterstitialAd = BasicFullScreenAd<InterstitialAd>;
using BasicAppOpenAd = BasicFullScreenAd<AppOpenAd>;

}  // namespace platform
