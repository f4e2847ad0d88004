// SVAWebAdView: the view an ad's page lives in. Its script side is a message channel: script
// calls and client events arrive there as named messages with their arguments. It is also the
// visibility source of what it shows: setAdVisible posts the visibility notification.
#pragma once

#include <memory>
#include <string>

#include "kit/Value.h"
#include "kit/View.h"
#include "platform/AdScriptChannel.h"

namespace adclient {

class SVAWebAdView : public kit::View {
 public:
  // The view keeps `channel`.
  explicit SVAWebAdView(std::shared_ptr<platform::AdScriptChannel> channel);

  // Calls the script function `name` with `parameters`: any thread; the message reaches the
  // channel later, on the main queue, in calling order per thread. A view gone by then sends
  // nothing.
  void asyncEvaluateFunction(const std::string& name, kit::Dictionary parameters);
  // Sends the client event `name` to the script, likewise.
  void fireSDKEvent(const std::string& name, kit::Dictionary parameters);

  // Posts kSVAViewVisibilityChangedNotification with this view as the object and "visible".
  // Main thread.
  void setAdVisible(bool visible);
  bool isAdVisible() const { return adVisible_; }
  const void* visibilityMessageSource() const { return this; }

  platform::AdScriptChannel& channel() const { return *channel_; }

 private:
  void deliver(const std::string& name, kit::Dictionary parameters);
  std::shared_ptr<platform::AdScriptChannel> channel_;
  bool adVisible_ = false;
};

}  // namespace adclient
