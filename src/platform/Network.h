// The HTTP client of the measurement client: posts and gets with a completion on a queue of
// the caller's choosing, the state of the network, and the collection host the deployment
// names. Request headers and body compression are the implementation's: a POST body goes out
// gzip-compressed ("Content-Encoding: gzip").
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "kit/Dispatch.h"
#include "kit/Value.h"
#include "platform/Types.h"

namespace platform {

// HTTP status codes the measurement client tells apart.
inline constexpr int kSULNetworkHTTPStatusOK = 200;
inline constexpr int kSULNetworkHTTPStatusNoContent = 204;
inline constexpr int kSULNetworkHTTPStatusNotModified = 304;
inline constexpr int kSULNetworkHTTPStatusNotFound = 404;
inline constexpr int kSULNetworkHTTPStatusCodeCannotAcceptTraffic = 429;
inline constexpr int kSULNetworkHTTPStatusCodeUnavailable = 503;

// One answer. A request that got no answer (refused, reset, timed out) has status 0 and comes
// with an error.
struct NetworkResponse {
  int statusCode = 0;
  // Header names in lower case.
  std::map<std::string, std::string> headers;
  kit::Data body;

  // The value of header `name` (any case), or empty.
  std::string header(const std::string& name) const;
};

// Called once per request, on the queue given with it.
using NetworkCompletion =
    std::function<void(const NetworkResponse& response, const std::optional<Error>& error)>;

class Network {
 public:
  virtual ~Network() = default;

  // The collection host, "https://name[:port]" (or "http://" for a local collector), without
  // a trailing slash; empty when the deployment names none, and then nothing is to be sent.
  virtual std::string measurementHost() = 0;
  // True when the host can be reached (a loopback host always can). Any thread.
  virtual bool isNetworkConnected() = 0;
  // True from the start of a request until its completion has been queued. Any thread.
  virtual bool hasUploadInProgress() = 0;
  // The time limit of later requests, in seconds, from start to the last byte.
  virtual void setTimeoutInterval(double seconds) = 0;
  // Sends `payload` (compressed on the way) to `url`; `completion` runs on `queue`, which must
  // outlive the request. False, with no completion, when no session can be made.
  virtual bool postURL(const std::string& url, const kit::Data& payload, kit::Queue& queue,
                       bool usingBackgroundSession, NetworkCompletion completion) = 0;
  // Gets `url` with the extra `headers`; otherwise as postURL.
  virtual bool getURL(const std::string& url, const std::map<std::string, std::string>& headers,
                      kit::Queue& queue, bool usingBackgroundSession,
                      NetworkCompletion completion) = 0;
};

}  // namespace platform
