#include "adclient/SVAScriptMessageLog.h"

#include <algorithm>

#include "adclient/SVAJSON.h"
#include "kit/Console.h"

namespace adclient {

SVAScriptMessageLog::SVAScriptMessageLog(std::size_t capacity) : capacity_(std::max<std::size_t>(1, capacity)) {}

std::string SVAScriptMessageLog::lineFor(const std::string& name, const kit::Dictionary& arguments) {
  return "Ad script: " + name + " " + SVAJSONString(arguments);
}

void SVAScriptMessageLog::postMessage(const std::string& name, const kit::Dictionary& arguments) {
  {
    std::lock_guard lock(mu_);
    if (messages_.size() == capacity_) {
      messages_.pop_front();
      ++dropped_;
    }
    messages_.push_back({name, arguments});
  }
  kit::NSLog(lineFor(name, arguments));
}

std::vector<SVAScriptMessageLog::Message> SVAScriptMessageLog::messages() const {
  std::lock_guard lock(mu_);
  return {messages_.begin(), messages_.end()};
}

std::vector<SVAScriptMessageLog::Message> SVAScriptMessageLog::messagesNamed(const std::string& name) const {
  std::vector<Message> found;
  std::lock_guard lock(mu_);
  for (const auto& m : messages_)
    if (m.name == name) found.push_back(m);
  return found;
}

std::vector<std::string> SVAScriptMessageLog::videoEvents() const {
  std::vector<std::string> events;
  for (const auto& m : messagesNamed("onVideoEvent")) {
    auto it = m.arguments.find("event");
    const std::string* event = it == m.arguments.end() ? nullptr : it->second.asString();
    if (event) events.push_back(*event);
  }
  return events;
}

std::size_t SVAScriptMessageLog::droppedCount() const {
  std::lock_guard lock(mu_);
  return dropped_;
}

}  // namespace adclient
