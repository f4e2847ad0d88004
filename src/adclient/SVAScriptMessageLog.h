// SVAScriptMessageLog: the script side of an ad view on a computer that runs no ad script. It
// keeps the messages the script would receive, in order, for whoever inspects the ad, and
// prints each one to the console as "Ad script: NAME JSON".
#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "platform/AdScriptChannel.h"

namespace adclient {

class SVAScriptMessageLog : public platform::AdScriptChannel {
 public:
  struct Message {
    std::string name;
    kit::Dictionary arguments;
  };

  // Keeps at most `capacity` messages (at least one), dropping the oldest.
  explicit SVAScriptMessageLog(std::size_t capacity = 1000);

  // Keeps and prints the message. Any thread.
  void postMessage(const std::string& name, const kit::Dictionary& arguments) override;

  // --- The reader. Any thread. ---
  std::vector<Message> messages() const;
  // The messages named `name`, oldest first.
  std::vector<Message> messagesNamed(const std::string& name) const;
  // The "event" texts of the "onVideoEvent" messages, oldest first.
  std::vector<std::string> videoEvents() const;
  // Messages dropped for want of room.
  std::size_t droppedCount() const;

  // The console line of a message.
  static std::string lineFor(const std::string& name, const kit::Dictionary& arguments);

 private:
  std::size_t capacity_;
  mutable std::mutex mu_;
  std::deque<Message> messages_;
  std::size_t dropped_ = 0;
};

}  // namespace adclient
