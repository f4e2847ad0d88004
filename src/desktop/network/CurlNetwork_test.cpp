#include "desktop/network/CurlNetwork.h"

#include <gtest/gtest.h>
#include <curl/curl.h>
#include <httplib.h>
#include <zlib.h>

#include <chrono>
#include <future>
#include <thread>

#include "desktop/threaded/ThreadedEnvironment.h"

namespace desktop {
namespace {

kit::Data gunzip(const std::string& bytes) {
  z_stream stream{};
  EXPECT_EQ(inflateInit2(&stream, 15 + 16), Z_OK);
  kit::Data out(1 << 20);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(inflate(&stream, Z_FINISH), Z_STREAM_END);
  out.resize(stream.total_out);
  inflateEnd(&stream);
  return out;
}

struct Result {
  platform::NetworkResponse response;
  std::optional<platform::Error> error;
  bool onQueue = false;
};

class CurlNetworkTest : public ::testing::Test {
 protected:
  CurlNetworkTest() {
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    queue_ = env_.makeSerialQueue("network-test");
  }
  ~CurlNetworkTest() override {
    server_.stop();
    thread_.join();
  }
  std::string host() const { return "http://127.0.0.1:" + std::to_string(port_); }

  // Runs `start` with a completion and waits for the completion.
  Result wait(const std::function<bool(platform::NetworkCompletion)>& start) {
    auto promise = std::make_shared<std::promise<Result>>();
    auto future = promise->get_future();
    EXPECT_TRUE(start([promise](const platform::NetworkResponse& r,
                                      const std::optional<platform::Error>& e) {
      promise->set_value({r, e, true});
    }));
    EXPECT_EQ(future.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    return future.get();
  }

  ThreadedEnvironment env_;
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
  std::shared_ptr<kit::Queue> queue_;
};

TEST_F(CurlNetworkTest, APostArrivesCompressedAndTheAnswerComesBackWithItsHeaders) {
  std::string received, encoding, type, length;
  server_.Post("/a", [&](const httplib::Request& req, httplib::Response& res) {
    received = req.body;
    encoding = req.get_header_value("Content-Encoding");
    type = req.get_header_value("Content-Type");
    length = req.get_header_value("Content-Length");
    res.status = 204;
    res.set_header("X-Answer", "yes");
  });
  CurlNetwork network(host() + "/", nullptr);
  EXPECT_EQ(network.measurementHost(), host());
  kit::Data payload(5000, 'p');
  Result r = wait([&](platform::NetworkCompletion done) {
    return network.postURL(host() + "/a", payload, *queue_, false, std::move(done));
  });
  EXPECT_FALSE(r.error);
  EXPECT_EQ(r.response.statusCode, 204);
  EXPECT_EQ(r.response.header("x-ANSWER"), "yes");
  EXPECT_EQ(encoding, "gzip");
  EXPECT_EQ(type, "application/x-protobuf");
  // The server inflates what came compressed over the wire.
  ASSERT_FALSE(length.empty());
  EXPECT_LT(std::stoul(length), payload.size() / 10);
  EXPECT_EQ(kit::Data(received.begin(), received.end()), payload);
  kit::Data compressed = gzipCompress(payload);
  EXPECT_EQ(gunzip(std::string(compressed.begin(), compressed.end())), payload);
  EXPECT_FALSE(network.hasUploadInProgress());
}

TEST_F(CurlNetworkTest, AGetSendsItsHeadersAndErrorStatusesAreAnswersNotErrors) {
  std::string etag;
  server_.Get("/config/app/x", [&](const httplib::Request& req, httplib::Response& res) {
    etag = req.get_header_value("If-None-Match");
    res.status = 503;
    res.set_content("busy", "text/plain");
  });
  server_.Get("/moved", [](const httplib::Request&, httplib::Response& res) {
    res.set_redirect("/elsewhere");
  });
  CurlNetwork network(host(), nullptr);
  Result r = wait([&](platform::NetworkCompletion done) {
    return network.getURL(host() + "/config/app/x?platform=ios", {{"If-None-Match", "\"v1\""}},
                          *queue_, false, std::move(done));
  });
  EXPECT_FALSE(r.error);
  EXPECT_EQ(r.response.statusCode, 503);
  EXPECT_EQ(std::string(r.response.body.begin(), r.response.body.end()), "busy");
  EXPECT_EQ(etag, "\"v1\"");
  // A redirect is the answer; it is not followed.
  r = wait([&](platform::NetworkCompletion done) {
    return network.getURL(host() + "/moved", {}, *queue_, false, std::move(done));
  });
  EXPECT_EQ(r.response.statusCode, 302);
}

TEST_F(CurlNetworkTest, AHungServerTimesOutAndARefusedConnectionIsAnError) {
  server_.Get("/slow", [](const httplib::Request&, httplib::Response& res) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    res.status = 200;
  });
  CurlNetwork network(host(), nullptr);
  network.setTimeoutInterval(0.2);
  Result r = wait([&](platform::NetworkCompletion done) {
    return network.getURL(host() + "/slow", {}, *queue_, false, std::move(done));
  });
  ASSERT_TRUE(r.error);
  EXPECT_EQ(r.response.statusCode, 0);
  EXPECT_EQ(r.error->code, CURLE_OPERATION_TIMEDOUT);

  // Nothing listens on the port once the server has gone.
  std::string gone = host();
  server_.stop();
  r = wait([&](platform::NetworkCompletion done) {
    return network.getURL(gone + "/config", {}, *queue_, false, std::move(done));
  });
  ASSERT_TRUE(r.error);
  EXPECT_EQ(r.response.statusCode, 0);
}

TEST(CurlNetworkHostTest, ALoopbackHostIsAlwaysReachable) {
  EXPECT_TRUE(CurlNetwork::isLoopbackHost("127.0.0.1"));
  EXPECT_TRUE(CurlNetwork::isLoopbackHost("LOCALHOST"));
  EXPECT_TRUE(CurlNetwork::isLoopbackHost("::1"));
  EXPECT_FALSE(CurlNetwork::isLoopbackHost("127example.com"));
  EXPECT_FALSE(CurlNetwork::isLoopbackHost("collect.example"));
  ThreadedEnvironment env;
  EXPECT_TRUE(CurlNetwork("http://127.0.0.1:9", nullptr).isNetworkConnected());
  EXPECT_TRUE(CurlNetwork("http://[::1]:9", nullptr).isNetworkConnected());
}

}  // namespace
}  // namespace desktop
