// Scriptable in-memory services of the measurement client: keychain, random bytes, device
// facts, advertising identity and reachability. Deterministic: the random bytes come from a
// seeded generator, and nothing changes unless the test says so.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <utility>

#include "platform/AdvertisingIdentity.h"
#include "platform/DeviceFacts.h"
#include "platform/Keychain.h"
#include "platform/Reachability.h"
#include "platform/SecureRandom.h"

namespace sim {

class Keychain : public platform::Keychain {
 public:
  std::optional<std::string> stringForKey(const std::string& service, const std::string& account,
                                          platform::Error* error) override;
  bool setString(const std::string& value, const std::string& service,
                 const std::string& account, platform::Error* error) override;
  bool removeKey(const std::string& service, const std::string& account,
                 platform::Error* error) override;
  // Every later read and write fails (a locked keychain) while on.
  void setFailing(bool failing);
  std::size_t size() const;

 private:
  mutable std::mutex mu_;
  std::map<std::pair<std::string, std::string>, std::string> items_;
  bool failing_ = false;
};

class SecureRandom : public platform::SecureRandom {
 public:
  explicit SecureRandom(std::uint64_t seed = 1) : engine_(seed) {}
  bool copyBytes(std::uint8_t* bytes, std::size_t count) override;
  // Every later call fails while on.
  void setFailing(bool failing);

 private:
  std::mutex mu_;
  std::mt19937_64 engine_;
  bool failing_ = false;
};

class DeviceFacts : public platform::DeviceFacts {
 public:
  platform::DeviceFactsSnapshot facts() override;
  void setFacts(platform::DeviceFactsSnapshot facts);

 private:
  std::mutex mu_;
  platform::DeviceFactsSnapshot facts_{"iOS", "17.0", "iPhone14,2", "en-us", 0, 390, 844, 3};
};

class AdvertisingIdentity : public platform::AdvertisingIdentity {
 public:
  std::optional<std::string> advertisingIdentifier() override;
  std::optional<std::string> identifierForVendor() override;
  std::optional<int> trackingAuthorizationStatus() override;
  // None of the three is set at first: the platform has no such identifiers.
  void set(std::optional<std::string> advertisingID, std::optional<std::string> vendorID,
           std::optional<int> trackingStatus);

 private:
  std::mutex mu_;
  std::optional<std::string> advertising_;
  std::optional<std::string> vendor_;
  std::optional<int> tracking_;
};

class Reachability : public platform::Reachability {
 public:
  bool isNetworkConnected() override;
  void setReachabilityHandler(std::function<void(bool)> handler) override;
  // Changes the state and, when it changed, calls the handler at once on the calling thread.
  void setConnected(bool connected);

 private:
  std::mutex mu_;
  bool connected_ = true;
  std::function<void(bool)> handler_;
};

}  // namespace sim
