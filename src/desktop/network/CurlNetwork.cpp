#include "desktop/network/CurlNetwork.h"

#include <curl/curl.h>
#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <mutex>

namespace desktop {
namespace {

void initializeCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

std::string trim(const std::string& text) {
  std::size_t begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string::npos) return {};
  std::size_t end = text.find_last_not_of(" \t\r\n");
  return text.substr(begin, end - begin + 1);
}

// The host name part of "scheme://name[:port][/...]".
std::string hostNameOf(const std::string& url) {
  std::size_t start = url.find("://");
  start = start == std::string::npos ? 0 : start + 3;
  std::size_t end = url.find('/', start);
  std::string authority = url.substr(start, end == std::string::npos ? std::string::npos : end - start);
  if (!authority.empty() && authority.front() == '[') {
    std::size_t close = authority.find(']');
    return authority.substr(1, close == std::string::npos ? std::string::npos : close - 1);
  }
  return authority.substr(0, authority.find(':'));
}

std::size_t collectBody(char* data, std::size_t size, std::size_t count, void* user) {
  auto* body = static_cast<kit::Data*>(user);
  body->insert(body->end(), data, data + size * count);
  return size * count;
}

std::size_t collectHeader(char* data, std::size_t size, std::size_t count, void* user) {
  auto* headers = static_cast<std::map<std::string, std::string>*>(user);
  std::string line(data, size * count);
  if (line.rfind("HTTP/", 0) == 0) {
    headers->clear();  // a new answer (after an interim 100) starts over
  } else if (std::size_t colon = line.find(':'); colon != std::string::npos) {
    (*headers)[lower(trim(line.substr(0, colon)))] = trim(line.substr(colon + 1));
  }
  return size * count;
}

int abortWhenStopping(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  return static_cast<std::atomic<bool>*>(user)->load() ? 1 : 0;
}

}  // namespace

kit::Data gzipCompress(const kit::Data& data) {
  z_stream stream{};
  if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    return {};
  }
  kit::Data out(deflateBound(&stream, static_cast<uLong>(data.size())) + 32);
  stream.next_in = const_cast<Bytef*>(data.data());
  stream.avail_in = static_cast<uInt>(data.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  int result = deflate(&stream, Z_FINISH);
  std::size_t written = stream.total_out;
  deflateEnd(&stream);
  if (result != Z_STREAM_END) return {};
  out.resize(written);
  return out;
}

CurlNetwork::CurlNetwork(std::string host, std::shared_ptr<platform::Reachability> reachability)
    : host_(std::move(host)), reachability_(std::move(reachability)) {
  while (!host_.empty() && host_.back() == '/') host_.pop_back();
  initializeCurlOnce();
  thread_ = std::thread([this] { run(); });
}

CurlNetwork::~CurlNetwork() {
  {
    std::lock_guard lock(mu_);
    stopping_.store(true);
    waiting_.clear();
  }
  wake_.notify_all();
  thread_.join();
}

bool CurlNetwork::isLoopbackHost(const std::string& host) {
  std::string name = lower(host);
  return name == "localhost" || name == "::1" || name.rfind("127.", 0) == 0;
}

bool CurlNetwork::isNetworkConnected() {
  if (!host_.empty() && isLoopbackHost(hostNameOf(host_))) return true;
  return !reachability_ || reachability_->isNetworkConnected();
}

bool CurlNetwork::postURL(const std::string& url, const kit::Data& payload, kit::Queue& queue,
                          bool, platform::NetworkCompletion completion) {
  Request request;
  request.post = true;
  request.url = url;
  request.body = gzipCompress(payload);
  if (request.body.empty()) return false;
  request.headers = {{"Content-Type", "application/x-protobuf"}, {"Content-Encoding", "gzip"}};
  request.queue = &queue;
  request.completion = std::move(completion);
  return enqueue(std::move(request));
}

bool CurlNetwork::getURL(const std::string& url, const std::map<std::string, std::string>& headers,
                         kit::Queue& queue, bool, platform::NetworkCompletion completion) {
  Request request;
  request.url = url;
  request.headers = headers;
  request.queue = &queue;
  request.completion = std::move(completion);
  return enqueue(std::move(request));
}

bool CurlNetwork::enqueue(Request request) {
  request.timeout = timeout_.load();
  {
    std::lock_guard lock(mu_);
    if (stopping_.load()) return false;
    ++inProgress_;
    waiting_.push_back(std::move(request));
  }
  wake_.notify_one();
  return true;
}

void CurlNetwork::run() {
  for (;;) {
    Request request;
    {
      std::unique_lock lock(mu_);
      wake_.wait(lock, [this] { return stopping_.load() || !waiting_.empty(); });
      if (stopping_.load()) return;
      request = std::move(waiting_.front());
      waiting_.pop_front();
    }
    platform::NetworkResponse response;
    std::optional<platform::Error> error = perform(request, &response);
    if (stopping_.load()) return;
    --inProgress_;
    request.queue->async([completion = std::move(request.completion), response = std::move(response),
                          error = std::move(error)] { completion(response, error); });
  }
}

std::optional<platform::Error> CurlNetwork::perform(const Request& request,
                                                    platform::NetworkResponse* response) {
  CURL* curl = curl_easy_init();
  if (!curl) return platform::Error{"CurlNetwork", -1, "Unable to create network session."};
  curl_slist* headers = nullptr;
  for (const auto& [name, value] : request.headers) {
    headers = curl_slist_append(headers, (name + ": " + value).c_str());
  }
  headers = curl_slist_append(headers, "Expect:");
  curl_easy_setopt(curl, CURLOPT_URL, request.url.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS,
                   static_cast<long>(std::max(1.0, std::ceil(request.timeout * 1000))));
  curl_easy_setopt(curl, CURLOPT_USERAGENT, "Solvanta measurement");
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collectBody);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &response->body);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, collectHeader);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &response->headers);
  curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, abortWhenStopping);
  curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &stopping_);
  if (request.post) {
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
  }
  CURLcode code = curl_easy_perform(curl);
  std::optional<platform::Error> error;
  if (code == CURLE_OK) {
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    response->statusCode = static_cast<int>(status);
  } else {
    *response = platform::NetworkResponse{};
    error = platform::Error{"CurlNetwork", static_cast<int>(code), curl_easy_strerror(code)};
  }
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
  return error;
}

}  // namespace desktop
