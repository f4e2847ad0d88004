#include "platform/Platform.h"

#include <cctype>
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
Network& network() { return require(installed().network, "network"); }

std::string NetworkResponse::header(const std::string& name) const {
  std::string lower;
  for (char c : name) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  auto it = headers.find(lower);
  return it == headers.end() ? std::string() : it->second;
}
UserNotificationCenter& notificationCenter() {
  return require(installed().notificationCenter, "notification center");
}
AppServices& appServices() { return require(installed().appServices, "app services"); }
Messaging& messaging() { return require(installed().messaging, "messaging"); }
KeyboardManager& keyboardManager() { return require(installed().keyboardManager, "keyboard manager"); }
PersistentStores& persistentStores() { return require(installed().persistentStores, "persistent stores"); }
MailComposer& mailComposer() { return require(installed().mailComposer, "mail composer"); }
Pasteboard& pasteboard() { return require(installed().pasteboard, "pasteboard"); }
StoreReview& storeReview() { return require(installed().storeReview, "store review"); }
VideoPlayers& videoPlayers() { return require(installed().videoPlayers, "video players"); }
ContactStore& contactStore() { return require(installed().contactStore, "contact store"); }

int Device::systemMajorVersion() { return std::atoi(systemVersion().c_str()); }

ImageCodec& imageCodec() { return require(installed().imageCodec, "image codec"); }
Camera& camera() { return require(installed().camera, "camera"); }
ImageManager& cachingImageManager() { return require(installed().cachingImageManager, "caching image manager"); }
FileExport& fileExport() { return require(installed().fileExport, "file export"); }

}  // namespace platform
