#include "desktop/system/MeasurementServices.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <sys/random.h>
#include <sys/utsname.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>

#include "desktop/system/AppFolders.h"
#include "desktop/system/Device.h"
#include "desktop/system/FileUtil.h"

namespace desktop {
namespace {

constexpr const char* kKeychainDomain = "desktop.Keychain";

bool keychainError(platform::Error* error, std::string message) {
  if (error) *error = platform::Error{kKeychainDomain, 1, std::move(message)};
  return false;
}

// The stored items; an unreadable or malformed file is an error, a missing one is empty.
std::optional<nlohmann::json> loadItems(const std::string& path, platform::Error* error) {
  std::string readError;
  auto text = readWholeFile(path, &readError);
  if (!text) {
    if (!readError.empty()) {
      keychainError(error, readError);
      return std::nullopt;
    }
    return nlohmann::json::object();
  }
  auto json = nlohmann::json::parse(*text, nullptr, false);
  if (json.is_discarded() || !json.is_object()) {
    keychainError(error, "The keychain file is damaged: " + path);
    return std::nullopt;
  }
  return json;
}

}  // namespace

FileKeychain::FileKeychain(std::string folder) : folder_(std::move(folder)) {}

std::optional<std::string> FileKeychain::stringForKey(const std::string& service,
                                                      const std::string& account,
                                                      platform::Error* error) {
  std::lock_guard lock(mu_);
  auto items = loadItems(path(), error);
  if (!items) return std::nullopt;
  auto s = items->find(service);
  if (s == items->end() || !s->is_object()) return std::nullopt;
  auto a = s->find(account);
  if (a == s->end() || !a->is_string()) return std::nullopt;
  return a->get<std::string>();
}

bool FileKeychain::update(const std::function<void(void*)>& change, platform::Error* error) {
  std::lock_guard lock(mu_);
  auto items = loadItems(path(), error);
  if (!items) return false;
  change(&*items);
  std::string message;
  if (!makeDirectories(folder_, 0700, &message)) return keychainError(error, message);
  if (!writeFileAtomically(path(), items->dump(), 0600, &message)) {
    return keychainError(error, message);
  }
  return true;
}

bool FileKeychain::setString(const std::string& value, const std::string& service,
                             const std::string& account, platform::Error* error) {
  return update(
      [&](void* json) {
        auto& items = *static_cast<nlohmann::json*>(json);
        if (!items[service].is_object()) items[service] = nlohmann::json::object();
        items[service][account] = value;
      },
      error);
}

bool FileKeychain::removeKey(const std::string& service, const std::string& account,
                             platform::Error* error) {
  return update(
      [&](void* json) {
        auto& items = *static_cast<nlohmann::json*>(json);
        auto s = items.find(service);
        if (s == items.end() || !s->is_object()) return;
        s->erase(account);
        if (s->empty()) items.erase(s);
      },
      error);
}

bool KernelSecureRandom::copyBytes(std::uint8_t* bytes, std::size_t count) {
  std::size_t done = 0;
  while (done < count) {
    ssize_t n = ::getrandom(bytes + done, count - done, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}

SystemDeviceFacts::SystemDeviceFacts(std::string osReleasePath)
    : osReleasePath_(std::move(osReleasePath)) {}

platform::DeviceFactsSnapshot SystemDeviceFacts::facts() {
  platform::DeviceFactsSnapshot facts;
  utsname u{};
  bool haveUname = ::uname(&u) == 0;
  auto osRelease = readWholeFile(osReleasePath_).value_or("");
  facts.osName = osReleaseValue(osRelease, "NAME").value_or(haveUname ? u.sysname : "Linux");
  facts.osVersion =
      osReleaseValue(osRelease, "VERSION_ID").value_or(haveUname ? dottedVersion(u.release) : "");
  facts.model = haveUname ? u.machine : "";
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value && *value) {
      facts.language = languageOfLocale(value);
      break;
    }
  }
  std::time_t now = std::time(nullptr);
  std::tm local{};
  if (::localtime_r(&now, &local)) facts.timeZoneOffsetSeconds = static_cast<int>(local.tm_gmtoff);
  std::lock_guard lock(mu_);
  facts.screenWidth = width_;
  facts.screenHeight = height_;
  facts.screenScale = scale_;
  return facts;
}

void SystemDeviceFacts::setScreen(int width, int height, double scale) {
  std::lock_guard lock(mu_);
  width_ = width;
  height_ = height;
  scale_ = scale;
}

std::optional<std::string> osReleaseValue(const std::string& text, const std::string& key) {
  for (std::string_view line : settingLines(text)) {
    if (line.compare(0, key.size(), key) != 0 || line.size() <= key.size() ||
        line[key.size()] != '=') {
      continue;
    }
    std::string raw(line.substr(key.size() + 1));
    while (!raw.empty() && (raw.back() == ' ' || raw.back() == '\t' || raw.back() == '\r')) {
      raw.pop_back();
    }
    std::string value;
    if (!raw.empty() && (raw.front() == '"' || raw.front() == '\'')) {
      char quote = raw.front();
      std::size_t i = 1;
      for (; i < raw.size() && raw[i] != quote; ++i) {
        if (quote == '"' && raw[i] == '\\' && i + 1 < raw.size()) ++i;
        value.push_back(raw[i]);
      }
      if (i >= raw.size()) return std::nullopt;  // unterminated quote
    } else {
      value = raw;
    }
    return value;
  }
  return std::nullopt;
}

std::string languageOfLocale(const std::string& locale) {
  std::string name = locale.substr(0, locale.find_first_of(".@"));
  if (name.empty() || name == "C" || name == "POSIX") return "";
  std::string out;
  for (char c : name) {
    if (c == '_') {
      out.push_back('-');
    } else if (c >= 'A' && c <= 'Z') {
      out.push_back(static_cast<char>(c - 'A' + 'a'));
    } else {
      out.push_back(c);
    }
  }
  return out;
}

SystemAdvertisingIdentity::SystemAdvertisingIdentity(std::string machineIDPath)
    : machineIDPath_(std::move(machineIDPath)) {}

std::optional<std::string> SystemAdvertisingIdentity::identifierForVendor() {
  auto text = readWholeFile(machineIDPath_);
  if (!text) return std::nullopt;
  std::string id;
  for (char c : *text) {
    if (c != '\n' && c != ' ') id.push_back(c);
  }
  if (id.size() != 32) return std::nullopt;
  static const char kMaker[] = "com.stuvop.vendor";
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (!HMAC(EVP_sha256(), id.data(), static_cast<int>(id.size()),
            reinterpret_cast<const unsigned char*>(kMaker), sizeof kMaker - 1, digest, &length) ||
      length < 16) {
    return std::nullopt;
  }
  // A version 4 UUID text made of the first 16 bytes.
  digest[6] = static_cast<unsigned char>((digest[6] & 0x0F) | 0x40);
  digest[8] = static_cast<unsigned char>((digest[8] & 0x3F) | 0x80);
  char out[37];
  std::snprintf(out, sizeof out,
                "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                digest[0], digest[1], digest[2], digest[3], digest[4], digest[5], digest[6],
                digest[7], digest[8], digest[9], digest[10], digest[11], digest[12], digest[13],
                digest[14], digest[15]);
  return std::string(out);
}

bool InterfaceReachability::isNetworkConnected() {
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) return false;
  bool connected = false;
  for (ifaddrs* i = list; i && !connected; i = i->ifa_next) {
    if (!i->ifa_addr || (i->ifa_flags & IFF_LOOPBACK)) continue;
    if (!(i->ifa_flags & IFF_UP) || !(i->ifa_flags & IFF_RUNNING)) continue;
    int family = i->ifa_addr->sa_family;
    connected = family == AF_INET || family == AF_INET6;
  }
  ::freeifaddrs(list);
  return connected;
}

void InterfaceReachability::setReachabilityHandler(std::function<void(bool)> handler) {
  std::lock_guard lock(mu_);
  handler_ = std::move(handler);
}

}  // namespace desktop
