#include "platform/Platform.h"

#include <cstdlib>

#include "kit/Fatal.h"

namespace platform {
namespace {

Services& installed() {
  static Services s;
  return s;
}

template <class T>
T& require(const std::shared_ptr<T>& service, const char* name) {
  if (!service) kit::fatal(std::string("platform service not installed: ") + name);
  return *service;
}

}  // namespace

void install(Services services) { installed() = std::move(services); }
void uninstall() { installed() = Services{}; }
const Services& services() { return installed(); }

PhotoLibrary& photoLibrary() { return require(installed().photoLibrary, "photo library"); }
ImageManager& imageManager() { return require(installed().imageManager, "image manager"); }
AssetImageGenerator& assetImageGenerator() {
  return require(installed().assetImageGenerator, "asset image generator");
}
FileManager& fileManager() { return require(installed().fileManager, "file manager"); }
PreferenceStore& preferences() { return require(installed().preferences, "preference store"); }
Application& application() { return require(installed().application, "application"); }
AdsNetwork& adsNetwork() { return require(installed().adsNetwork, "ads network"); }
Device& device() { return require(installed().device, "device"); }
Keychain& keychain() { return require(installed().keychain, "keychain"); }
SecureRandom& secureRandom() { return require(installed().secureRandom, "secure random"); }
DeviceFacts& deviceFacts() { return require(installed().deviceFacts, "device facts"); }
AdvertisingIdentity& advertisingIdentity() {
  return require(installed().advertisingIdentity, "advertising identity");
}
Reachability& reachability() { return require(installed().reachability, "reachability"); }
VideoPlayers& videoPlayers() { return require(installed().videoPlayers, "video players"); }

int Device::systemMajorVersion() { return std::atoi(systemVersion().c_str()); }

}  // namespace platform
