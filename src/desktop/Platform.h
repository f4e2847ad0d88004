// desktop::Platform: the real services on Linux, made from the process's environment and
// installed while the object lives: every service of the platform interface.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/Platform.h"

#include "desktop/contacts/VdirContactStore.h"
#include "desktop/system/AppFolders.h"
#include "desktop/system/Application.h"
#include "desktop/system/Device.h"
#include "desktop/system/Feedback.h"
#include "desktop/system/FileManager.h"
#include "desktop/library/FolderPhotoLibrary.h"
#include "desktop/ads/HouseAdsNetwork.h"
#include "desktop/system/JsonPreferenceStore.h"
#include "desktop/system/LaunchServices.h"
#include "desktop/system/PermissionStore.h"
#include "desktop/media/ThumbnailImageManager.h"
#include "desktop/media/VideoFrameGenerator.h"
#include "desktop/system/MeasurementServices.h"
#include "desktop/network/CurlNetwork.h"
#include "desktop/media/DesktopCamera.h"
#include "desktop/media/JpegCodec.h"
#include "desktop/system/FileExport.h"

namespace desktop {

struct PlatformOptions {
  // The photo library's folder; empty: defaultLibraryRoot (SOLVANTA_LIBRARY, then the XDG
  // pictures folder).
  std::string libraryRoot;
  // The address book's folder (a vdir); empty: defaultContactsRoot (SOLVANTA_CONTACTS, then
  // $XDG_DATA_HOME/contacts).
  std::string contactsRoot;
  // None: AppFolders::fromEnvironment().
  std::optional<AppFolders> folders;
  // How the user is asked for access and for deletions (the GUI's dialogs, the terminal).
  PermissionPrompt permissionPrompt;
  ConfirmPrompt confirmPrompt;
  // None: a FileMediaReader.
  std::shared_ptr<MediaReader> reader;
  // None: runProgram.
  Application::Launcher launcher;
  // The ads network's creatives, fill rate, latency and seed (the GUI passes its creatives
  // and the deployment file's fill rate and latency).
  HouseAdsOptions houseAds;
  // The app's store link, offered by the rating dialog (the deployment file's).
  std::string storeLink = "https://apps.example.com/solvanta";
  // None: queryMailHandler.
  MailHandlerQuery mailHandler;
  // Bounds of the image manager's cache.
  ThumbnailImageManagerOptions images;
  // The measurement collection host (the deployment file's "measurement.host"); empty: the
  // measurement client sends nothing.
  std::string measurementHost;
};

class Platform {
 public:
  // Makes the config and cache folders (mode 0700), every service, and installs them. Needs
  // an installed kit environment before any asynchronous call is made.
  explicit Platform(PlatformOptions options = {});
  // Uninstalls the services.
  ~Platform();
  Platform(const Platform&) = delete;
  Platform& operator=(const Platform&) = delete;

  FolderPhotoLibrary& photos() { return *photos_; }
  PermissionStore& permissions() { return *permissions_; }
  JsonPreferenceStore& preferences() { return *preferences_; }
  FileManager& files() { return *files_; }
  Application& application() { return *application_; }
  Device& device() { return *device_; }
  ThumbnailImageManager& images() { return *images_; }
  VideoFrameGenerator& frames() { return *frames_; }
  HouseAdsNetwork& ads() { return *ads_; }
  const AppFolders& folders() const { return folders_; }
  FileKeychain& keychain() { return *keychain_; }
  SystemDeviceFacts& deviceFacts() { return *deviceFacts_; }
  CurlNetwork& network() { return *network_; }
  NotificationCenter& notifications() { return *notifications_; }
  // The camera; none until the window gives it handlers.
  DesktopCamera& camera() { return *camera_; }
  // "Save to…"; declined until the window gives it a chooser.
  FileExport& fileExport() { return *fileExport_; }
  VdirContactStore& contacts() { return *contacts_; }

 private:
  std::shared_ptr<DesktopCamera> camera_ = std::make_shared<DesktopCamera>();
  std::shared_ptr<FileExport> fileExport_ = std::make_shared<FileExport>();
  // The services of the app's launch: notifications, cloud services, messaging, keyboard,
  // object stores.
  void addLaunchServices(platform::Services& services);
  AppFolders folders_;
  std::shared_ptr<PermissionStore> permissions_;
  std::shared_ptr<FolderPhotoLibrary> photos_;
  std::shared_ptr<VdirContactStore> contacts_;
  std::shared_ptr<JsonPreferenceStore> preferences_;
  std::shared_ptr<FileManager> files_;
  std::shared_ptr<Application> application_;
  std::shared_ptr<Device> device_;
  std::shared_ptr<ThumbnailImageManager> images_;
  std::shared_ptr<VideoFrameGenerator> frames_;
  std::shared_ptr<HouseAdsNetwork> ads_;
  // The keychain lives beside the app's data folder: "$XDG_DATA_HOME/solvanta-keychain".
  std::shared_ptr<FileKeychain> keychain_;
  std::shared_ptr<SystemDeviceFacts> deviceFacts_;
  std::shared_ptr<CurlNetwork> network_;
  std::shared_ptr<NotificationCenter> notifications_;
};

}  // namespace desktop
