#include "adclient/SVAWebAdView.h"

#include "adclient/SVANotifications.h"
#include "kit/Dispatch.h"
#include "kit/NotificationCenter.h"

namespace adclient {

SVAWebAdView::SVAWebAdView(std::shared_ptr<platform::AdScriptChannel> channel) : channel_(std::move(channel)) {}

void SVAWebAdView::deliver(const std::string& name, kit::Dictionary parameters) {
  std::weak_ptr<SVAWebAdView> weak = weakAs<SVAWebAdView>();
  kit::mainQueue().async([weak, name, parameters = std::move(parameters)] {
    if (auto self = weak.lock()) self->channel_->postMessage(name, parameters);
  });
}

void SVAWebAdView::asyncEvaluateFunction(const std::string& name, kit::Dictionary parameters) {
  deliver(name, std::move(parameters));
}

void SVAWebAdView::fireSDKEvent(const std::string& name, kit::Dictionary parameters) {
  deliver(name, std::move(parameters));
}

void SVAWebAdView::setAdVisible(bool visible) {
  adVisible_ = visible;
  kit::NotificationCenter::defaultCenter().postNotificationName(kSVAViewVisibilityChangedNotification, this,
                                                                {{kSVAVisibleKey, visible}});
}

}  // namespace adclient
