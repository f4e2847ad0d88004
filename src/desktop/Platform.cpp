#include "desktop/Platform.h"

#include <climits>
#include <cstdlib>

#include "desktop/system/FileUtil.h"
#include "desktop/library/MetadataIndex.h"
#include "platform/Platform.h"
#include "desktop/video/QtVideoPlayers.h"

namespace desktop {
namespace {

// `path` made absolute with links resolved, when it exists; else as given.
std::string canonical(const std::string& path) {
  char resolved[PATH_MAX];
  return ::realpath(path.c_str(), resolved) ? std::string(resolved) : path;
}

}  // namespace

Platform::Platform(PlatformOptions options)
    : folders_(options.folders ? *options.folders : AppFolders::fromEnvironment()) {
  for (const auto& folder : {folders_.config(), folders_.cache()}) {
    std::string error;
    if (!makeDirectories(folder, 0700, &error)) diagnose(error);
  }
  permissions_ = std::make_shared<PermissionStore>(folders_.config() + "/permissions.json",
                                                   std::move(options.permissionPrompt));

  FolderPhotoLibraryOptions library;
  library.root =
      canonical(options.libraryRoot.empty() ? defaultLibraryRoot(folders_) : options.libraryRoot);
  library.indexPath = indexPathFor(folders_.cache(), library.root);
  library.permissions = permissions_;
  library.confirm = std::move(options.confirmPrompt);
  auto trash = std::make_shared<Trash>(folders_.homeTrash());
  library.trash = trash;
  library.reader = std::move(options.reader);
  library.excludedFolders = folders_.ownFolders();
  photos_ = std::make_shared<FolderPhotoLibrary>(std::move(library));
  contacts_ = std::make_shared<VdirContactStore>(VdirContactStoreOptions{
      options.contactsRoot.empty() ? defaultContactsRoot(folders_.dataHome) : options.contactsRoot, permissions_, trash, {}});

  preferences_ = std::make_shared<JsonPreferenceStore>(folders_.config() + "/preferences.json");
  files_ = std::make_shared<FileManager>(folders_);
  application_ = std::make_shared<Application>(permissions_, options.launcher);
  device_ = std::make_shared<Device>();
  if (options.images.sharedThumbnailsFolder.empty()) {
    options.images.sharedThumbnailsFolder = folders_.cacheHome + "/thumbnails";
  }
  images_ = std::make_shared<ThumbnailImageManager>(options.images);
  frames_ = std::make_shared<VideoFrameGenerator>();
  ads_ = std::make_shared<HouseAdsNetwork>(std::move(options.houseAds));
  keychain_ = std::make_shared<FileKeychain>(folders_.dataHome + "/solvanta-keychain");
  deviceFacts_ = std::make_shared<SystemDeviceFacts>();

  platform::Services services;
  services.photoLibrary = photos_;
  services.fileManager = files_;
  services.preferences = preferences_;
  services.application = application_;
  services.device = device_;
  services.imageManager = images_;
  services.assetImageGenerator = frames_;
  services.adsNetwork = ads_;
  services.keychain = keychain_;
  services.secureRandom = std::make_shared<KernelSecureRandom>();
  services.deviceFacts = deviceFacts_;
  services.advertisingIdentity = std::make_shared<SystemAdvertisingIdentity>();
  auto reachability = std::make_shared<InterfaceReachability>();
  network_ = std::make_shared<CurlNetwork>(options.measurementHost, reachability);
  services.reachability = reachability;
  services.network = network_;
  addLaunchServices(services);
  services.mailComposer = std::make_shared<MailComposer>(std::move(options.mailHandler), std::move(options.launcher));
  services.pasteboard = std::make_shared<Pasteboard>();
  services.storeReview = std::make_shared<platform::ReviewDialog>(options.storeLink);
  services.videoPlayers = std::make_shared<QtVideoPlayers>();
  services.imageCodec = std::make_shared<JpegCodec>();
  services.camera = camera_;
  services.fileExport = fileExport_;
  services.cachingImageManager = std::make_shared<ImmediateImageManager>(images_);
  services.contactStore = contacts_;
  platform::install(std::move(services));
}

void Platform::addLaunchServices(platform::Services& services) {
  notifications_ = std::make_shared<NotificationCenter>(permissions_);
  services.notificationCenter = notifications_;
  services.appServices = std::make_shared<AppServices>();
  services.messaging = std::make_shared<Messaging>();
  services.keyboardManager = std::make_shared<platform::BasicKeyboardManager>();
  services.persistentStores = std::make_shared<SqlitePersistentStores>(folders_.applicationSupport());
}

Platform::~Platform() { platform::uninstall(); }

}  // namespace desktop
