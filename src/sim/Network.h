// sim::Network: the measurement client's HTTP client, scripted. A test queues answers (status,
// headers, body, delay, or a failed connection) that requests take in order; with none queued
// a request takes the default answer, or, while requests are held, waits until the test
// answers it. Every request is recorded with its payload as the client gave it (before
// compression). Completions go through the given queue, so the environment decides when they
// run; a delayed answer waits for the environment's clock.
#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Network.h"

namespace sim {

struct NetworkAnswer {
  int status = 200;
  std::map<std::string, std::string> headers;
  kit::Data body;
  // Seconds on the environment's clock before the completion is queued.
  double delay = 0;
  // A connection that fails (refused, reset, timed out): status 0 and an error with this text.
  std::optional<std::string> failure;
};

// An answer with `status` and nothing else.
NetworkAnswer answer(int status);
// A failed connection.
NetworkAnswer connectionFailure(std::string text = "The network connection was lost.");

struct NetworkRequest {
  std::string method;  // "GET" or "POST"
  std::string url;
  std::map<std::string, std::string> headers;
  kit::Data payload;
  bool usingBackgroundSession = false;
  double timeout = 0;
};

class Network : public platform::Network {
 public:
  // --- Scripting ---
  void setHost(std::string host);
  void setConnected(bool connected);
  // Answers that later requests take, in order.
  void enqueue(NetworkAnswer answer);
  // The answer of a request when nothing is queued (200 with no body at first).
  void setDefaultAnswer(NetworkAnswer answer);
  // While on, a request with nothing queued waits for answerHeld.
  void setHolding(bool holding);
  // Answers the oldest waiting request; false when none waits.
  bool answerHeld(NetworkAnswer answer);
  std::size_t heldCount() const;
  // While on, postURL and getURL refuse (no session can be made).
  void setRefusingSessions(bool refusing);
  std::vector<NetworkRequest> requests() const;
  double timeoutInterval() const;

  // --- platform::Network ---
  std::string measurementHost() override;
  bool isNetworkConnected() override;
  bool hasUploadInProgress() override;
  void setTimeoutInterval(double seconds) override;
  bool postURL(const std::string& url, const kit::Data& payload, kit::Queue& queue,
               bool usingBackgroundSession, platform::NetworkCompletion completion) override;
  bool getURL(const std::string& url, const std::map<std::string, std::string>& headers,
              kit::Queue& queue, bool usingBackgroundSession,
              platform::NetworkCompletion completion) override;

 private:
  struct Held {
    kit::Queue* queue;
    platform::NetworkCompletion completion;
  };
  bool start(NetworkRequest request, kit::Queue& queue, platform::NetworkCompletion completion);
  void deliver(kit::Queue& queue, platform::NetworkCompletion completion, NetworkAnswer answer);

  mutable std::mutex mu_;
  std::string host_;
  bool connected_ = true;
  bool holding_ = false;
  bool refusing_ = false;
  double timeout_ = 60;
  int inFlight_ = 0;
  std::deque<NetworkAnswer> queued_;
  NetworkAnswer default_;
  std::deque<Held> held_;
  std::vector<NetworkRequest> requests_;
};

}  // namespace sim
