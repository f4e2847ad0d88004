// The installed platform: one implementation of each service, reached through the accessors
// below (the app's equivalents of the platform's shared objects). A sim or desktop platform
// installs itself before the app runs; using a service that is not installed is a fatal error.
#pragma once

#include <memory>

#include "platform/AdsNetwork.h"
#include "platform/AdvertisingIdentity.h"
#include "platform/ContactStore.h"
#include "platform/Application.h"
#include "platform/Device.h"
#include "platform/DeviceFacts.h"
#include "platform/Feedback.h"
#include "platform/FileManager.h"
#include "platform/ImageManager.h"
#include "platform/KeyboardManager.h"
#include "platform/Messaging.h"
#include "platform/PersistentContainer.h"
#include "platform/Keychain.h"
#include "platform/Network.h"
#include "platform/PhotoLibrary.h"
#include "platform/PreferenceStore.h"
#include "platform/Reachability.h"
#include "platform/SecureRandom.h"
#include "platform/UserNotifications.h"
#include "platform/VideoPlayer.h"
#include "platform/Camera.h"
#include "platform/ImageCodec.h"
#include "platform/FileExport.h"

namespace platform {

struct Services {
  std::shared_ptr<PhotoLibrary> photoLibrary;
  std::shared_ptr<ImageManager> imageManager;
  std::shared_ptr<AssetImageGenerator> assetImageGenerator;
  std::shared_ptr<FileManager> fileManager;
  std::shared_ptr<PreferenceStore> preferences;
  std::shared_ptr<Application> application;
  std::shared_ptr<AdsNetwork> adsNetwork;
  std::shared_ptr<Device> device;
  // Services of the measurement client.
  std::shared_ptr<Keychain> keychain;
  std::shared_ptr<SecureRandom> secureRandom;
  std::shared_ptr<DeviceFacts> deviceFacts;
  std::shared_ptr<AdvertisingIdentity> advertisingIdentity;
  std::shared_ptr<Reachability> reachability;
  // The measurement client's HTTP client; null: nothing is sent.
  std::shared_ptr<Network> network;
  // Services of the launch.
  std::shared_ptr<UserNotificationCenter> notificationCenter;
  std::shared_ptr<AppServices> appServices;
  std::shared_ptr<Messaging> messaging;
  std::shared_ptr<KeyboardManager> keyboardManager;
  std::shared_ptr<PersistentStores> persistentStores;
  // Feedback: mail, pasteboard, rating.
  std::shared_ptr<MailComposer> mailComposer;
  std::shared_ptr<Pasteboard> pasteboard;
  std::shared_ptr<StoreReview> storeReview;
  // Services of the mobile ads client.
  std::shared_ptr<VideoPlayers> videoPlayers;
  // Services of the secret files: JPEG data and image files, the camera, and the image
  // manager of the picker's copies (its option-less requests deliver a first image before
  // they return when they can).
  std::shared_ptr<ImageCodec> imageCodec;
  std::shared_ptr<Camera> camera;
  std::shared_ptr<ImageManager> cachingImageManager;
  // The folder question of the share sheet's "Save to…".
  std::shared_ptr<FileExport> fileExport;
  // The address book.
  std::shared_ptr<ContactStore> contactStore;
};

// Installs `services`, replacing what was installed. Call before the app runs.
void install(Services services);
// Removes every service.
void uninstall();
const Services& services();

PhotoLibrary& photoLibrary();
ImageManager& imageManager();
AssetImageGenerator& assetImageGenerator();
FileManager& fileManager();
// The standard preference store.
PreferenceStore& preferences();
Application& application();
AdsNetwork& adsNetwork();
Device& device();
Keychain& keychain();
SecureRandom& secureRandom();
DeviceFacts& deviceFacts();
AdvertisingIdentity& advertisingIdentity();
Reachability& reachability();
Network& network();
UserNotificationCenter& notificationCenter();
AppServices& appServices();
Messaging& messaging();
KeyboardManager& keyboardManager();
PersistentStores& persistentStores();
MailComposer& mailComposer();
Pasteboard& pasteboard();
StoreReview& storeReview();
VideoPlayers& videoPlayers();
ImageCodec& imageCodec();
Camera& camera();
ImageManager& cachingImageManager();
FileExport& fileExport();
ContactStore& contactStore();

}  // namespace platform
