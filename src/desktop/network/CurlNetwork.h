// desktop::CurlNetwork: the measurement client's HTTP client on Linux, over libcurl. Requests
// run one at a time, in order, on a thread of their own; each completion is queued on the
// queue given with its request. POST bodies go out gzip-compressed as
// "application/x-protobuf"; answers compressed by the server are inflated. TLS peers and
// host names are always verified. Redirects are not followed: a 3xx is the answer.
//
// The collection host comes from the deployment file; without one the client sends nothing.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "platform/Network.h"
#include "platform/Reachability.h"

namespace desktop {

class CurlNetwork : public platform::Network {
 public:
  // `host` as measurementHost() returns it (a trailing slash is dropped); `reachability` (may
  // be null: always connected) answers for hosts beyond the loopback.
  CurlNetwork(std::string host, std::shared_ptr<platform::Reachability> reachability);
  // Abandons the request in flight (its completion is not called) and those waiting, and
  // joins the thread.
  ~CurlNetwork() override;
  CurlNetwork(const CurlNetwork&) = delete;
  CurlNetwork& operator=(const CurlNetwork&) = delete;

  std::string measurementHost() override { return host_; }
  bool isNetworkConnected() override;
  bool hasUploadInProgress() override { return inProgress_.load() > 0; }
  void setTimeoutInterval(double seconds) override { timeout_.store(seconds); }
  bool postURL(const std::string& url, const kit::Data& payload, kit::Queue& queue,
               bool usingBackgroundSession, platform::NetworkCompletion completion) override;
  bool getURL(const std::string& url, const std::map<std::string, std::string>& headers,
              kit::Queue& queue, bool usingBackgroundSession,
              platform::NetworkCompletion completion) override;

  // True when `host` names this machine (localhost, 127.0.0.0/8, ::1).
  static bool isLoopbackHost(const std::string& host);

 private:
  struct Request {
    bool post = false;
    std::string url;
    std::map<std::string, std::string> headers;
    kit::Data body;  // compressed already
    double timeout = 60;
    kit::Queue* queue = nullptr;
    platform::NetworkCompletion completion;
  };

  bool enqueue(Request request);
  void run();
  // Performs `request`; fills `response` or returns the error.
  std::optional<platform::Error> perform(const Request& request, platform::NetworkResponse* response);

  std::string host_;
  std::shared_ptr<platform::Reachability> reachability_;
  std::atomic<double> timeout_{60};
  std::atomic<int> inProgress_{0};
  std::atomic<bool> stopping_{false};
  std::mutex mu_;
  std::condition_variable wake_;
  std::deque<Request> waiting_;
  std::thread thread_;
};

// The gzip stream of `data` (zlib, default level); empty on failure.
kit::Data gzipCompress(const kit::Data& data);

}  // namespace desktop
