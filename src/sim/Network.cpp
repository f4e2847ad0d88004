#include "sim/Network.h"

#include <cctype>
#include <utility>

namespace sim {

NetworkAnswer answer(int status) {
  NetworkAnswer a;
  a.status = status;
  return a;
}

NetworkAnswer connectionFailure(std::string text) {
  NetworkAnswer a;
  a.status = 0;
  a.failure = std::move(text);
  return a;
}

void Network::setHost(std::string host) {
  std::lock_guard lock(mu_);
  host_ = std::move(host);
}

void Network::setConnected(bool connected) {
  std::lock_guard lock(mu_);
  connected_ = connected;
}

void Network::enqueue(NetworkAnswer a) {
  std::lock_guard lock(mu_);
  queued_.push_back(std::move(a));
}

void Network::setDefaultAnswer(NetworkAnswer a) {
  std::lock_guard lock(mu_);
  default_ = std::move(a);
}

void Network::setHolding(bool holding) {
  std::lock_guard lock(mu_);
  holding_ = holding;
}

bool Network::answerHeld(NetworkAnswer a) {
  Held held;
  {
    std::lock_guard lock(mu_);
    if (held_.empty()) return false;
    held = std::move(held_.front());
    held_.pop_front();
  }
  deliver(*held.queue, std::move(held.completion), std::move(a));
  return true;
}

std::size_t Network::heldCount() const {
  std::lock_guard lock(mu_);
  return held_.size();
}

void Network::setRefusingSessions(bool refusing) {
  std::lock_guard lock(mu_);
  refusing_ = refusing;
}

std::vector<NetworkRequest> Network::requests() const {
  std::lock_guard lock(mu_);
  return requests_;
}

double Network::timeoutInterval() const {
  std::lock_guard lock(mu_);
  return timeout_;
}

std::string Network::measurementHost() {
  std::lock_guard lock(mu_);
  return host_;
}

bool Network::isNetworkConnected() {
  std::lock_guard lock(mu_);
  return connected_;
}

bool Network::hasUploadInProgress() {
  std::lock_guard lock(mu_);
  return inFlight_ > 0;
}

void Network::setTimeoutInterval(double seconds) {
  std::lock_guard lock(mu_);
  timeout_ = seconds;
}

bool Network::postURL(const std::string& url, const kit::Data& payload, kit::Queue& queue,
                      bool usingBackgroundSession, platform::NetworkCompletion completion) {
  return start({"POST", url, {}, payload, usingBackgroundSession, 0}, queue,
               std::move(completion));
}

bool Network::getURL(const std::string& url, const std::map<std::string, std::string>& headers,
                     kit::Queue& queue, bool usingBackgroundSession,
                     platform::NetworkCompletion completion) {
  return start({"GET", url, headers, {}, usingBackgroundSession, 0}, queue, std::move(completion));
}

bool Network::start(NetworkRequest request, kit::Queue& queue,
                    platform::NetworkCompletion completion) {
  NetworkAnswer chosen;
  {
    std::lock_guard lock(mu_);
    if (refusing_) return false;
    request.timeout = timeout_;
    requests_.push_back(std::move(request));
    ++inFlight_;
    if (!queued_.empty()) {
      chosen = std::move(queued_.front());
      queued_.pop_front();
    } else if (holding_) {
      held_.push_back({&queue, std::move(completion)});
      return true;
    } else {
      chosen = default_;
    }
  }
  deliver(queue, std::move(completion), std::move(chosen));
  return true;
}

void Network::deliver(kit::Queue& queue, platform::NetworkCompletion completion, NetworkAnswer a) {
  auto task = [this, completion = std::move(completion), a = std::move(a)] {
    {
      std::lock_guard lock(mu_);
      --inFlight_;
    }
    platform::NetworkResponse response;
    std::optional<platform::Error> error;
    if (a.failure) {
      error = platform::Error{"NSURLErrorDomain", -1005, *a.failure};
    } else {
      response.statusCode = a.status;
      for (const auto& [name, value] : a.headers) {
        std::string lower;
        for (char c : name) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        response.headers[lower] = value;
      }
      response.body = a.body;
    }
    completion(response, error);
  };
  if (a.delay > 0) {
    queue.asyncAfter(a.delay, std::move(task));
  } else {
    queue.async(std::move(task));
  }
}

}  // namespace sim
