#include "collector/Collector.h"

#include <httplib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>

#include "measurement/APMGzip.h"
#include "measurement/audiences/APMAudience.h"
#include "measurement/proto/APMPB.h"

namespace collector {
namespace {

using Json = nlohmann::json;

std::string etagOf(const kit::Data& data) {
  std::uint64_t hash = 1469598103934665603ull;
  for (std::uint8_t b : data) hash = (hash ^ b) * 1099511628211ull;
  char text[24];
  std::snprintf(text, sizeof text, "\"%016llx\"", static_cast<unsigned long long>(hash));
  return text;
}

Json paramsJSON(const APMPBEventParam* params, pb_size_t count) {
  Json out = Json::object();
  for (const APMPBEventParam& p : APMPBItems(const_cast<APMPBEventParam*>(params), count)) {
    std::string name(APMPBString(p.name));
    if (p.string_value) {
      out[name] = p.string_value;
    } else if (p.has_int_value) {
      out[name] = p.int_value;
    } else if (p.has_double_value) {
      out[name] = p.double_value;
    } else if (p.has_float_value) {
      out[name] = p.float_value;
    } else if (p.param_value_count > 0) {
      Json items = Json::array();
      for (const APMPBEventParam& item : APMPBItems(p.param_value, p.param_value_count)) {
        items.push_back(paramsJSON(item.param_value, item.param_value_count));
      }
      out[name] = items;
    } else {
      out[name] = nullptr;
    }
  }
  return out;
}

}  // namespace

std::optional<Fault> parseFault(const std::string& text, int* count) {
  std::vector<std::string> parts;
  std::stringstream stream(text);
  for (std::string part; std::getline(stream, part, ':');) parts.push_back(part);
  auto number = [](const std::string& s, double* out) {
    char* end = nullptr;
    *out = std::strtod(s.c_str(), &end);
    return !s.empty() && end && *end == '\0' && *out >= 0;
  };
  Fault fault;
  double n = 1;
  std::size_t countAt = 1;
  if (parts.empty()) return std::nullopt;
  if (parts[0] == "slow") {
    if (parts.size() < 2 || !number(parts[1], &fault.seconds)) return std::nullopt;
    fault.kind = Fault::Kind::Slow;
    countAt = 2;
  } else if (parts[0] == "drop") {
    fault.kind = Fault::Kind::Drop;
  } else {
    double status = 0;
    if (!number(parts[0], &status) || status < 100 || status > 599) return std::nullopt;
    fault.status = static_cast<int>(status);
  }
  if (parts.size() > countAt + 1) return std::nullopt;
  if (parts.size() == countAt + 1 && (!number(parts[countAt], &n) || n < 1)) return std::nullopt;
  if (count) *count = static_cast<int>(n);
  return fault;
}

std::optional<kit::Data> encodeConfigText(const std::string& text, std::string* error) {
  return encodeProtoText(text, "apm.MeasurementConfig", "config.proto", error);
}

std::optional<kit::Data> encodeProtoText(const std::string& text, const std::string& type,
                                         const std::string& protoFile, std::string* error) {
  auto folder = std::filesystem::temp_directory_path();
  std::string stem = "collector_config_" + std::to_string(::getpid()) + "_" +
                     std::to_string(reinterpret_cast<std::uintptr_t>(&text));
  auto in = folder / (stem + ".txt");
  auto out = folder / (stem + ".bin");
  { std::ofstream(in) << text; }
  std::string command = std::string(COLLECTOR_PROTOC) + " --encode=" + type + " -I " +
                        COLLECTOR_PROTO_DIR + " " + protoFile + " < " + in.string() + " > " +
                        out.string() + " 2> " + out.string() + ".err";
  int status = std::system(command.c_str());
  std::ifstream encoded(out, std::ios::binary);
  kit::Data bytes((std::istreambuf_iterator<char>(encoded)), std::istreambuf_iterator<char>());
  std::ifstream messages(out.string() + ".err");
  std::string why((std::istreambuf_iterator<char>(messages)), std::istreambuf_iterator<char>());
  std::filesystem::remove(in);
  std::filesystem::remove(out);
  std::filesystem::remove(out.string() + ".err");
  if (status != 0) {
    if (error) *error = "the " + protoFile + " text does not encode: " + why;
    return std::nullopt;
  }
  return bytes;
}

Collector::Collector(CollectorOptions options)
    : options_(std::move(options)), server_(std::make_unique<httplib::Server>()),
      random_(options_.seed) {}

Collector::~Collector() {
  stop();
  if (log_) std::fclose(log_);
}

bool Collector::start(std::string* error) {
  if (!options_.configPath.empty()) {
    std::ifstream file(options_.configPath);
    if (!file) {
      if (error) *error = "cannot read " + options_.configPath;
      return false;
    }
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    auto bytes = encodeConfigText(text, error);
    if (!bytes) return false;
    config_ = std::move(*bytes);
    configETag_ = etagOf(config_);
    hasConfig_ = true;
  }
  if (!options_.experimentsPath.empty()) {
    std::ifstream file(options_.experimentsPath);
    if (!file) {
      if (error) *error = "cannot read " + options_.experimentsPath;
      return false;
    }
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    auto bytes = encodeProtoText(text, "apm.ExperimentResponse", "experiment.proto", error);
    if (!bytes) return false;
    experiments_ = std::move(*bytes);
  }
  if (!options_.logPath.empty()) {
    log_ = std::fopen(options_.logPath.c_str(), "a");
    if (!log_) {
      if (error) *error = "cannot open " + options_.logPath;
      return false;
    }
  }

  // Applies the next fault; true when the fault made the answer.
  auto faulted = [this](httplib::Response& res, const std::function<void()>& accept) {
    std::optional<Fault> fault = nextFault();
    if (!fault) return false;
    switch (fault->kind) {
      case Fault::Kind::Status:
        res.status = fault->status;
        return true;
      case Fault::Kind::Slow:
        accept();
        std::this_thread::sleep_for(std::chrono::duration<double>(fault->seconds));
        return true;
      case Fault::Kind::Drop:
        // Headers announce a body that never comes: the client sees the connection go.
        res.status = 200;
        res.set_content_provider(
            1024, "application/octet-stream",
            [](std::size_t, std::size_t, httplib::DataSink&) { return false; });
        return true;
    }
    return false;
  };

  server_->Get(R"(/config/app/([^/?]+))", [this, faulted](const httplib::Request& req,
                                                          httplib::Response& res) {
    {
      std::lock_guard lock(mu_);
      ++stats_.configRequests;
    }
    auto answer = [&] {
      if (!hasConfig_) {
        res.status = 404;
        return;
      }
      res.set_header("ETag", configETag_);
      if (req.get_header_value("If-None-Match") == configETag_) {
        std::lock_guard lock(mu_);
        ++stats_.notModified;
        res.status = 304;
        return;
      }
      res.status = 200;
      res.set_content(std::string(config_.begin(), config_.end()), "application/x-protobuf");
    };
    if (faulted(res, answer)) return;
    answer();
  });

  // The deferred deep link of this install: the configured link, or an empty answer.
  server_->Get("/adserve/conversion/app/deeplink", [this, faulted](const httplib::Request&,
                                                                  httplib::Response& res) {
    {
      std::lock_guard lock(mu_);
      ++stats_.deepLinkRequests;
    }
    auto answer = [&] {
      res.status = 200;
      if (options_.deferredDeepLink.empty()) return;
      double now = std::chrono::duration<double>(
                       std::chrono::system_clock::now().time_since_epoch()).count();
      Json body{{"deeplink", options_.deferredDeepLink}, {"timestamp", now}};
      if (!options_.deferredDeepLinkParameters.empty()) {
        body["ddp"] = Json::parse(options_.deferredDeepLinkParameters, nullptr, false);
      }
      res.set_content(body.dump(), "application/json");
    };
    if (faulted(res, answer)) return;
    answer();
  });

  server_->Post("/sdk-exp", [this, faulted](const httplib::Request& req, httplib::Response& res) {
    {
      std::lock_guard lock(mu_);
      ++stats_.experimentRequests;
    }
    auto answer = [&] {
      int status = 200;
      kit::Data body = experimentAnswer(req.body, &status);
      res.status = status;
      if (status == 200) {
        res.set_content(std::string(body.begin(), body.end()), "application/octet-stream");
      }
    };
    if (faulted(res, answer)) return;
    answer();
  });

  server_->Post("/a", [this, faulted](const httplib::Request& req, httplib::Response& res) {
    std::int64_t wire = req.has_header("Content-Length")
                            ? std::atoll(req.get_header_value("Content-Length").c_str())
                            : static_cast<std::int64_t>(req.body.size());
    auto accept = [&] {
      int status = 204;
      logBatch(req.body, wire, &status);
      res.status = status;
    };
    {
      std::lock_guard lock(mu_);
      ++stats_.uploads;
    }
    if (faulted(res, accept)) return;
    accept();
  });

  // The fault endpoints: each builds the text of a --fail flag from its query ("count"
  // defaulting to 1) and injects it; a text that does not parse is a 400.
  auto faultEndpoint = [this](const char* path, std::function<std::string(const httplib::Request&)> head) {
    server_->Post(path, [this, head](const httplib::Request& req, httplib::Response& res) {
      int count = 1;
      std::string times = req.has_param("count") ? req.get_param_value("count") : "1";
      auto fault = parseFault(head(req) + times, &count);
      if (!fault) {
        res.status = 400;
        return;
      }
      inject(*fault, count);
      res.status = 204;
    });
  };
  faultEndpoint("/control/fail", [](const httplib::Request& req) { return req.get_param_value("status") + ":"; });
  faultEndpoint("/control/slow",
                [](const httplib::Request& req) { return "slow:" + req.get_param_value("seconds") + ":"; });
  faultEndpoint("/control/drop", [](const httplib::Request&) { return std::string("drop:"); });
  server_->Post("/control/clear", [this](const httplib::Request&, httplib::Response& res) {
    clearFaults();
    res.status = 204;
  });
  server_->Get("/control/stats", [this](const httplib::Request&, httplib::Response& res) {
    res.set_content(statsJSON(), "application/json");
  });

  port_ = options_.port == 0 ? server_->bind_to_any_port("127.0.0.1")
                             : (server_->bind_to_port("127.0.0.1", options_.port) ? options_.port : -1);
  if (port_ <= 0) {
    if (error) *error = "cannot listen on 127.0.0.1:" + std::to_string(options_.port);
    return false;
  }
  thread_ = std::thread([this] { server_->listen_after_bind(); });
  return true;
}

void Collector::stop() {
  if (!thread_.joinable()) return;
  server_->stop();
  thread_.join();
}

void Collector::inject(const Fault& fault, int count) {
  std::lock_guard lock(mu_);
  for (int i = 0; i < count; ++i) faults_.push_back(fault);
}

void Collector::clearFaults() {
  std::lock_guard lock(mu_);
  faults_.clear();
}

void Collector::setRandomFaultProbability(double probability) {
  std::lock_guard lock(mu_);
  options_.randomFaultProbability = probability;
}

std::optional<Fault> Collector::nextFault() {
  std::lock_guard lock(mu_);
  std::optional<Fault> fault;
  if (!faults_.empty()) {
    fault = faults_.front();
    faults_.pop_front();
  } else if (options_.randomFaultProbability > 0 && !options_.randomFaults.empty() &&
             std::uniform_real_distribution<double>(0, 1)(random_) < options_.randomFaultProbability) {
    fault = options_.randomFaults[std::uniform_int_distribution<std::size_t>(
        0, options_.randomFaults.size() - 1)(random_)];
  }
  if (fault) ++stats_.faults;
  return fault;
}

namespace {

// One audience's result: {"audience", "true": [filter ids], "evaluated": [...], "changed"}.
Json audienceJSON(const APMPBAudienceLeafFilterResult& result) {
  Json out = {{"audience", result.audience_id},
              {"changed", result.previous_data_present},
              {"true", Json::array()},
              {"evaluated", Json::array()}};
  kit::Data bytes;
  if (!APMPBEncode(APMPBMessage<APMPBResultData>::fields(), &result.current_data, &bytes, nullptr)) {
    return out;
  }
  auto data = APMAudienceResultData::parse(bytes);
  if (!data) return out;
  std::size_t bits = std::max(data->status.size(), data->results.size()) * 64;
  for (std::size_t bit = 0; bit < bits; ++bit) {
    auto value = data->filterResult(static_cast<std::int32_t>(bit));
    if (!value) continue;
    out["evaluated"].push_back(bit);
    if (*value) out["true"].push_back(bit);
  }
  return out;
}

}  // namespace

kit::Data Collector::experimentAnswer(const std::string& body, int* status) {
  auto request = APMPBMessage<APMPBExperimentRequest>::parseFromData(
      std::span(reinterpret_cast<const std::uint8_t*>(body.data()), body.size()));
  if (!request) {
    *status = 400;
    return {};
  }
  std::set<std::string> asked;
  for (const APMPBClientProperty& c :
       APMPBItems((*request)->client_properties, (*request)->client_properties_count)) {
    asked.emplace(APMPBString(c.sdk_name));
  }
  // The configured answer, cut down to the SDKs asked for.
  APMPBMessage<APMPBExperimentResponse> all;
  if (!experiments_.empty()) {
    auto parsed = APMPBMessage<APMPBExperimentResponse>::parseFromData(experiments_);
    if (parsed) all = std::move(*parsed);
  }
  APMPBMessage<APMPBExperimentResponse> answer;
  std::int64_t served = 0;
  for (APMPBSnapshot& s : APMPBItems(all->snapshots, all->snapshots_count)) {
    if (!asked.count(std::string(APMPBString(s.sdk_name)))) continue;
    APMPBAppend(&answer->snapshots, &answer->snapshots_count) = s;
    s = APMPBSnapshot{};  // moved: the answer owns its allocations now
    ++served;
  }
  for (APMPBSdkResponse& r : APMPBItems(all->sdk_responses, all->sdk_responses_count)) {
    if (!asked.count(std::string(APMPBString(r.sdk_name)))) continue;
    APMPBAppend(&answer->sdk_responses, &answer->sdk_responses_count) = r;
    r = APMPBSdkResponse{};
    ++served;
  }
  {
    std::lock_guard lock(mu_);
    stats_.snapshotsServed += served;
  }
  auto bytes = answer.protoBuffer();
  auto zipped = bytes ? APMGzipData(*bytes, nullptr) : std::nullopt;
  if (!zipped) {
    *status = 500;
    return {};
  }
  return *zipped;
}

void Collector::logBatch(const std::string& body, std::int64_t wireBytes, int* status) {
  auto batch = APMPBMessage<APMPBMeasurementBatch>::parseFromData(
      std::span(reinterpret_cast<const std::uint8_t*>(body.data()), body.size()));
  std::lock_guard lock(mu_);
  stats_.wireBytes += wireBytes;
  if (!batch || (*batch)->bundles_count == 0) {
    ++stats_.badBatches;
    *status = 400;
    return;
  }
  ++stats_.batchesAccepted;
  for (const APMPBMeasurementBundle& b : APMPBItems((*batch)->bundles, (*batch)->bundles_count)) {
    ++stats_.bundles;
    // The bundle's consent and audience results go on each of its event lines.
    Json audiences = Json::array();
    for (const APMPBAudienceLeafFilterResult& r :
         APMPBItems(b.audience_evaluation_results, b.audience_evaluation_results_count)) {
      audiences.push_back(audienceJSON(r));
    }
    Json experiments = Json::array();
    for (std::uint32_t id : APMPBItems(b.experiment_ids, b.experiment_ids_count)) {
      experiments.push_back(id);
    }
    for (const APMPBEvent& e : APMPBItems(b.events, b.events_count)) {
      Json line = {{"app_id", std::string(APMPBString(b.app_id))},
                   {"app_instance_id", std::string(APMPBString(b.app_instance_id))},
                   {"name", std::string(APMPBString(e.name))},
                   {"timestamp_millis", e.timestamp_millis},
                   {"params", paramsJSON(e.params, e.params_count)},
                   {"consent_signals", std::string(APMPBString(b.consent_signals))},
                   {"audiences", audiences},
                   {"experiment_ids", experiments}};
      std::string text = line.dump();
      ++stats_.events;
      if (log_) std::fprintf(log_, "%s\n", text.c_str());
      lines_.push_back(text);
      if (observer_) observer_(text);
    }
  }
  if (log_) std::fflush(log_);
}

CollectorStats Collector::stats() const {
  std::lock_guard lock(mu_);
  return stats_;
}

std::vector<std::string> Collector::lines() const {
  std::lock_guard lock(mu_);
  return lines_;
}

std::string Collector::statsJSON() const {
  CollectorStats s = stats();
  return Json{{"config_requests", s.configRequests}, {"not_modified", s.notModified},
              {"uploads", s.uploads},                {"batches_accepted", s.batchesAccepted},
              {"bundles", s.bundles},                {"events", s.events},
              {"faults", s.faults},                  {"bad_batches", s.badBatches},
              {"wire_bytes", s.wireBytes},          {"deep_link_requests", s.deepLinkRequests},
              {"experiment_requests", s.experimentRequests}, {"snapshots_served", s.snapshotsServed}}
      .dump();
}

void Collector::setLineObserver(std::function<void(const std::string&)> observer) {
  std::lock_guard lock(mu_);
  observer_ = std::move(observer);
}

}  // namespace collector
