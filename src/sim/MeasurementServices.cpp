#include "sim/MeasurementServices.h"

namespace sim {
namespace {

bool fail(platform::Error* error) {
  if (error) *error = platform::Error{"sim.Keychain", -25308, "The keychain is locked"};
  return false;
}

}  // namespace

std::optional<std::string> Keychain::stringForKey(const std::string& service,
                                                  const std::string& account,
                                                  platform::Error* error) {
  std::lock_guard lock(mu_);
  if (failing_) {
    fail(error);
    return std::nullopt;
  }
  auto it = items_.find({service, account});
  if (it == items_.end()) return std::nullopt;
  return it->second;
}

bool Keychain::setString(const std::string& value, const std::string& service,
                         const std::string& account, platform::Error* error) {
  std::lock_guard lock(mu_);
  if (failing_) return fail(error);
  items_[{service, account}] = value;
  return true;
}

bool Keychain::removeKey(const std::string& service, const std::string& account,
                         platform::Error* error) {
  std::lock_guard lock(mu_);
  if (failing_) return fail(error);
  items_.erase({service, account});
  return true;
}

void Keychain::setFailing(bool failing) {
  std::lock_guard lock(mu_);
  failing_ = failing;
}

std::size_t Keychain::size() const {
  std::lock_guard lock(mu_);
  return items_.size();
}

bool SecureRandom::copyBytes(std::uint8_t* bytes, std::size_t count) {
  std::lock_guard lock(mu_);
  if (failing_) return false;
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<std::uint8_t>(engine_());
  return true;
}

void SecureRandom::setFailing(bool failing) {
  std::lock_guard lock(mu_);
  failing_ = failing;
}

platform::DeviceFactsSnapshot DeviceFacts::facts() {
  std::lock_guard lock(mu_);
  return facts_;
}

void DeviceFacts::setFacts(platform::DeviceFactsSnapshot facts) {
  std::lock_guard lock(mu_);
  facts_ = std::move(facts);
}

std::optional<std::string> AdvertisingIdentity::advertisingIdentifier() {
  std::lock_guard lock(mu_);
  return advertising_;
}

std::optional<std::string> AdvertisingIdentity::identifierForVendor() {
  std::lock_guard lock(mu_);
  return vendor_;
}

std::optional<int> AdvertisingIdentity::trackingAuthorizationStatus() {
  std::lock_guard lock(mu_);
  return tracking_;
}

void AdvertisingIdentity::set(std::optional<std::string> advertisingID,
                              std::optional<std::string> vendorID,
                              std::optional<int> trackingStatus) {
  std::lock_guard lock(mu_);
  advertising_ = std::move(advertisingID);
  vendor_ = std::move(vendorID);
  tracking_ = trackingStatus;
}

bool Reachability::isNetworkConnected() {
  std::lock_guard lock(mu_);
  return connected_;
}

void Reachability::setReachabilityHandler(std::function<void(bool)> handler) {
  std::lock_guard lock(mu_);
  handler_ = std::move(handler);
}

void Reachability::setConnected(bool connected) {
  std::function<void(bool)> handler;
  {
    std::lock_guard lock(mu_);
    if (connected_ == connected) return;
    connected_ = connected;
    handler = handler_;
  }
  if (handler) handler(connected);
}

}  // namespace sim
