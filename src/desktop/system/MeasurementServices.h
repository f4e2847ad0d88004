// The measurement client's services on Linux: a file keychain outside the app's data folder,
// the kernel's random bytes, device facts from /etc/os-release, uname and the locale, no
// advertising identity, and reachability from the network interfaces.
#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "platform/AdvertisingIdentity.h"
#include "platform/DeviceFacts.h"
#include "platform/Keychain.h"
#include "platform/Reachability.h"
#include "platform/SecureRandom.h"

namespace desktop {

// Items in one JSON file, {"<service>": {"<account>": "<value>"}}, mode 0600 in a folder of
// mode 0700, rewritten atomically on every change. The folder lies beside the app's data
// folder, not in it, so that deleting the app's data keeps it.
class FileKeychain : public platform::Keychain {
 public:
  // `folder` is created (0700) on the first write.
  explicit FileKeychain(std::string folder);

  std::optional<std::string> stringForKey(const std::string& service, const std::string& account,
                                          platform::Error* error) override;
  bool setString(const std::string& value, const std::string& service,
                 const std::string& account, platform::Error* error) override;
  bool removeKey(const std::string& service, const std::string& account,
                 platform::Error* error) override;

  std::string path() const { return folder_ + "/items.json"; }

 private:
  bool update(const std::function<void(void* json)>& change, platform::Error* error);

  std::string folder_;
  std::mutex mu_;
};

// getrandom(2), retried on interruption.
class KernelSecureRandom : public platform::SecureRandom {
 public:
  bool copyBytes(std::uint8_t* bytes, std::size_t count) override;
};

class SystemDeviceFacts : public platform::DeviceFacts {
 public:
  // `osReleasePath` is read on each call ("/etc/os-release" normally).
  explicit SystemDeviceFacts(std::string osReleasePath = "/etc/os-release");
  platform::DeviceFactsSnapshot facts() override;
  // The screen, as the window system tells it (nothing is known headless).
  void setScreen(int width, int height, double scale);

 private:
  std::string osReleasePath_;
  std::mutex mu_;
  int width_ = 0, height_ = 0;
  double scale_ = 0;
};

// The value of `key` in the text of an os-release file (shell-style assignments, values
// optionally quoted with " or ' and with backslash escapes inside double quotes), or nothing.
std::optional<std::string> osReleaseValue(const std::string& text, const std::string& key);
// "en-us" of a POSIX locale name such as "en_US.UTF-8" or "en_US@euro"; empty for "C",
// "POSIX" or an empty name.
std::string languageOfLocale(const std::string& locale);

// The desktop has no advertising identifier and no tracking question: both read as nothing.
// The vendor identifier is the machine's identity (/etc/machine-id) made specific to this
// maker with HMAC-SHA256, so the raw machine id never leaves the machine; nothing when the
// machine has no id.
class SystemAdvertisingIdentity : public platform::AdvertisingIdentity {
 public:
  explicit SystemAdvertisingIdentity(std::string machineIDPath = "/etc/machine-id");
  std::optional<std::string> advertisingIdentifier() override { return std::nullopt; }
  std::optional<std::string> identifierForVendor() override;
  std::optional<int> trackingAuthorizationStatus() override { return std::nullopt; }

 private:
  std::string machineIDPath_;
};

// Connected while some interface other than loopback is up and running with an IPv4 or IPv6
// address. Changes are not watched: the handler is kept but never called, and callers read
// the state again when they need it.
class InterfaceReachability : public platform::Reachability {
 public:
  bool isNetworkConnected() override;
  void setReachabilityHandler(std::function<void(bool)> handler) override;

 private:
  std::mutex mu_;
  std::function<void(bool)> handler_;
};

}  // namespace desktop
