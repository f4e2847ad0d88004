// sim::Platform: scriptable in-memory implementations of every platform service, installed
// while the object lives. Tests build a photo library from a list of assets, set and answer
// authorization, decide how deletions and ad loads turn out, and read what the app asked for.
// Callbacks go through the installed environment's queues, so a sim::Environment decides when
// they run.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/FullScreenAd.h"
#include "platform/Platform.h"
#include "sim/LaunchServices.h"
#include "sim/Camera.h"
#include "sim/Contacts.h"
#include "sim/Feedback.h"
#include "sim/MeasurementServices.h"
#include "sim/Network.h"
#include "sim/VideoPlayer.h"

namespace sim {

// ---- Photo library ----

class Asset : public platform::Asset {
 public:
  Asset(std::string id, std::optional<kit::Date> creationDate, platform::MediaType type,
        double duration, std::string filename, int width = 4032, int height = 3024);
  const std::string& localIdentifier() const override { return id_; }
  std::optional<kit::Date> creationDate() const override { return creationDate_; }
  double duration() const override { return duration_; }
  platform::MediaType mediaType() const override { return type_; }
  int pixelWidth() const override { return width_; }
  int pixelHeight() const override { return height_; }
  kit::Value valueForKey(std::string_view key) const override;

 private:
  std::string id_;
  std::optional<kit::Date> creationDate_;
  platform::MediaType type_;
  double duration_;
  std::string filename_;
  int width_, height_;
};

// A photo taken at `secondsSince1970` (or with no date), named "IMG_<n>.JPG".
std::shared_ptr<Asset> photo(std::optional<double> secondsSince1970, std::string id = {});
// A video of `duration` seconds.
std::shared_ptr<Asset> video(std::optional<double> secondsSince1970, double duration, std::string id = {});

class PhotoLibrary : public platform::PhotoLibrary {
 public:
  enum class DeletionOutcome { Succeed, Decline, Fail };

  // --- Scripting ---
  void setAssets(std::vector<std::shared_ptr<const platform::Asset>> assets);
  void addAsset(std::shared_ptr<const platform::Asset> asset);
  std::vector<platform::AssetPtr> allAssets() const;
  void setStatus(platform::AuthorizationStatus status);
  // The raw status integer, for values the platform may add.
  void setRawStatus(int status);
  // Assets visible with limited access (by identifier).
  void setLimitedSelection(std::set<std::string> ids);
  // Answers every pending authorization request with `status` (handlers run on a background
  // queue of the environment).
  void answerAuthorization(platform::AuthorizationStatus status);
  int pendingAuthorizationRequests() const;
  int authorizationRequestCount() const;
  void setDeletionOutcome(DeletionOutcome outcome);
  // Identifiers of every asset deleted so far.
  std::vector<std::string> deletedIdentifiers() const;
  int fetchCount() const;

  // --- platform::PhotoLibrary ---
  platform::AuthorizationStatus authorizationStatus() override;
  void requestAuthorization(std::function<void(platform::AuthorizationStatus)> handler) override;
  platform::FetchResult fetchAssetsWithMediaType(platform::MediaType mediaType,
                                                 const platform::FetchOptions* options) override;
  platform::FetchResult fetchAssetsWithOptions(const platform::FetchOptions* options) override;
  void performChanges(std::function<void(platform::ChangeRequest&)> changes,
                      std::function<void(bool, std::optional<platform::Error>)> completion) override;

 private:
  platform::FetchResult fetch(std::optional<platform::MediaType> type, const platform::FetchOptions* options);
  // Drops the remembered fetches (the assets or the access changed). Under mu_.
  void forgetFetches() { fetches_cache_.clear(); }
  mutable std::mutex mu_;
  // Fetch results by media type (-1 for all) and sort order, until the library changes.
  std::map<std::pair<int, std::string>, platform::FetchResult> fetches_cache_;
  std::vector<platform::AssetPtr> assets_;
  int status_ = 0;
  std::set<std::string> limited_;
  std::vector<std::function<void(platform::AuthorizationStatus)>> pending_;
  int requests_ = 0;
  DeletionOutcome deletion_ = DeletionOutcome::Succeed;
  std::vector<std::string> deleted_;
  int fetches_ = 0;
  std::shared_ptr<kit::Queue> changesQueue_;
};

// ---- Images ----

class ImageManager : public platform::ImageManager {
 public:
  // Requests for these assets fail (a null image with an error).
  void failAssets(std::set<std::string> ids);
  int requestCount() const;
  int requestImageForAsset(const platform::AssetPtr& asset, kit::Size targetSize, int contentMode,
                           const platform::ImageRequestOptions& options,
                           platform::ImageResultHandler handler) override;
  void cancelImageRequest(int requestId) override;
  // With true, an asynchronous request delivers its one final image before it returns, as
  // the picker's manager does for images it has at hand (false at first).
  void setDeliversAtOnce(bool atOnce);

 private:
  mutable std::mutex mu_;
  std::set<std::string> failing_;
  std::set<int> cancelled_;
  int next_ = 1;
  bool atOnce_ = false;
};

class AssetImageGenerator : public platform::AssetImageGenerator {
 public:
  // Frames of `url` succeed with a small image; other URLs fail.
  void addVideo(std::string url);
  kit::ImagePtr copyCGImageAtTime(const std::string& url, double seconds, platform::Error* error) override;

 private:
  std::mutex mu_;
  std::set<std::string> videos_;
};

// ---- Files, preferences, application, device ----

class FileManager : public platform::FileManager {
 public:
  void setDocumentsPath(std::optional<std::string> path);
  // The application-support folder ("/sim/Library/Application Support" at first).
  void setApplicationSupportPath(std::string path);
  void setFileSystem(std::int64_t size, std::int64_t freeSize);
  // Replaces the attributes returned (for missing or mistyped keys).
  void setAttributes(kit::Dictionary attributes);
  void failAttributes(bool fail);
  std::vector<std::string> searchPathForDirectoriesInDomains(int directory, int domainMask,
                                                             bool expandTilde) override;
  std::optional<kit::Dictionary> attributesOfFileSystemForPath(const std::string& path,
                                                               platform::Error* error) override;
  std::string lastAttributesPath() const;

  // --- Files: an in-memory tree; "/" always exists. ---
  // Puts a file (making its folders), a folder, or a link to `target` (links are listed,
  // count as what they name, and are removed as links).
  void putFile(const std::string& path, std::vector<std::uint8_t> data);
  void putFolder(const std::string& path);
  void putLink(const std::string& path, std::string target);
  // Writes fail (as on a full disk) once the files written hold `bytes` more in all; nothing
  // fails at first. Removals of these paths fail.
  void setWriteCapacity(std::optional<std::int64_t> bytes);
  void failRemovals(std::set<std::string> paths);
  // Names in the folder `path` (as contentsOfDirectoryAtPath), and a file's bytes.
  std::vector<std::string> namesIn(const std::string& path) const;
  std::optional<std::vector<std::uint8_t>> bytesAt(const std::string& path) const;

  bool fileExistsAtPath(const std::string& path, bool* isDirectory) override;
  bool createDirectoryAtPath(const std::string& path, bool intermediates, platform::Error* error) override;
  std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(const std::string& path,
                                                                   platform::Error* error) override;
  bool writeData(const std::vector<std::uint8_t>& data, const std::string& path, platform::Error* error) override;
  std::optional<std::vector<std::uint8_t>> contentsAtPath(const std::string& path, platform::Error* error) override;
  bool removeItemAtPath(const std::string& path, platform::Error* error) override;

 private:
  struct Node {
    enum Kind { File, Folder, Link } kind = File;
    std::vector<std::uint8_t> data;
    std::string target;
  };
  // The node at `path` after following links (at most 8); null when there is none. Under mu_.
  const Node* resolve(const std::string& path) const;
  std::map<std::string, Node> nodes_;
  std::optional<std::int64_t> capacity_;
  std::int64_t written_ = 0;
  std::set<std::string> failingRemovals_;
  mutable std::mutex mu_;
  std::optional<std::string> documents_ = "/sim/Documents";
  std::string applicationSupport_ = "/sim/Library/Application Support";
  kit::Dictionary attributes_{{platform::kFileSystemSize, 128000000000LL},
                              {platform::kFileSystemFreeSize, 64000000000LL}};
  bool fail_ = false;
  std::string lastPath_;
};

class PreferenceStore : public platform::PreferenceStore {
 public:
  kit::Value objectForKey(const std::string& key) override;
  void setObject(kit::Value value, const std::string& key) override;
  std::size_t size() const;

 private:
  mutable std::mutex mu_;
  std::map<std::string, kit::Value> values_;
};

class Application : public platform::BasicApplication {
 public:
  void openURL(const std::string& url, const kit::Dictionary& options,
               std::function<void(bool)> completion) override;
  bool canOpenURL(const std::string& url) override;
  std::vector<std::string> openedURLs() const;

 private:
  mutable std::mutex mu_;
  std::vector<std::string> opened_;
};

class Device : public platform::Device {
 public:
  std::string machineIdentifier() override { return machine; }
  std::string name() override { return deviceName; }
  std::string systemName() override { return "iOS"; }
  std::string systemVersion() override { return version; }
  std::string machine = "iPhone14,2";
  std::string deviceName = "Sim Phone";
  std::string version = "17.0";
};

// ---- Ads ----

class AdsNetwork : public platform::AdsNetwork {
 public:
  enum class Outcome { Fill, Fail };
  // What an interstitial that fills shows: a picture, or a video ad made by the video loader.
  enum class Format { Image, Video };
  // Makes the video interstitial for an ad unit and answers `completion` on the main queue:
  // the ad once its video can play, or the error of a video that did not load.
  using VideoInterstitialLoader = std::function<void(
      const std::string& adUnitID,
      std::function<void(std::shared_ptr<platform::InterstitialAd>, std::optional<platform::Error>)> completion)>;
  struct Load {
    std::string kind;  // "interstitial", "appOpen" or "banner"
    std::string adUnitID;
  };

  // Outcomes of the next loads, in order; when none is queued, `setDefaultOutcome` decides.
  void queueOutcomes(std::vector<Outcome> outcomes);
  void setDefaultOutcome(Outcome outcome);
  // The default for one kind of ad ("interstitial", "appOpen" or "banner"), over the general
  // default.
  void setDefaultOutcome(const std::string& kind, Outcome outcome);
  // Seconds a load takes on the environment's clock (0: the completion is queued at once).
  void setLatency(double seconds);
  // The next presentation of a full-screen ad fails.
  void failNextPresentation();
  // Height of the adaptive banner size.
  void setBannerHeight(double height);
  // Formats of the interstitials that fill from now on, in order; the last one stays. Empty
  // (the default): pictures.
  void setInterstitialFormats(std::vector<Format> formats);
  // Answers the interstitial fills whose format is Video (after the latency, as any load);
  // with none, they fail.
  void setVideoInterstitialLoader(VideoInterstitialLoader loader);
  // Video interstitials the loader handed out so far, newest last.
  const std::vector<std::shared_ptr<platform::InterstitialAd>>& videoInterstitials() const {
    return videoInterstitials_;
  }

  const std::vector<Load>& loads() const { return loads_; }
  int loadCount(const std::string& kind) const;
  // Full-screen ads handed out so far, newest last.
  const std::vector<std::shared_ptr<platform::BasicInterstitialAd>>& interstitials() const {
    return interstitials_;
  }
  const std::vector<std::shared_ptr<platform::BasicAppOpenAd>>& appOpenAds() const { return appOpenAds_; }
  // The presented full-screen ad, if any (interstitial or app-open).
  bool closePresentedAd();
  bool isAdPresented() const;
  int presentationCount() const { return presentations_; }
  bool started() const { return started_; }
  const std::vector<std::string>& testDeviceIdentifiers() const { return testDevices_; }

  // --- platform::AdsNetwork ---
  void startWithCompletionHandler(std::function<void()> completion) override;
  void setTestDeviceIdentifiers(std::vector<std::string> identifiers) override;
  // One adapter, ready, once started.
  std::map<std::string, platform::AdapterStatus> adapterStatusesByClassName() override;
  void loadInterstitialWithAdUnitID(
      const std::string& adUnitID, const platform::AdRequest& request,
      std::function<void(std::shared_ptr<platform::InterstitialAd>, std::optional<platform::Error>)>
          completion) override;
  void loadAppOpenAdWithAdUnitID(
      const std::string& adUnitID, const platform::AdRequest& request,
      std::function<void(std::shared_ptr<platform::AppOpenAd>, std::optional<platform::Error>)>
          completion) override;
  std::shared_ptr<platform::BannerView> bannerViewWithAdSize(platform::AdSize size) override;
  platform::AdSize currentOrientationAnchoredAdaptiveBannerAdSizeWithWidth(double width) override;

  // Called by banners and ads of this network.
  Outcome nextOutcome(const std::string& kind, const std::string& adUnitID);
  void deliver(std::function<void()> completion);
  void notePresented() { ++presentations_; }
  bool consumeFailNextPresentation();

 private:
  std::deque<Outcome> queued_;
  Outcome default_ = Outcome::Fill;
  std::map<std::string, Outcome> kindDefaults_;
  double latency_ = 0;
  bool failNextPresentation_ = false;
  double bannerHeight_ = 50;
  std::vector<Load> loads_;
  std::vector<std::shared_ptr<platform::BasicInterstitialAd>> interstitials_;
  std::vector<std::shared_ptr<platform::BasicAppOpenAd>> appOpenAds_;
  std::deque<Format> formats_;
  VideoInterstitialLoader videoLoader_;
  std::vector<std::shared_ptr<platform::InterstitialAd>> videoInterstitials_;
  int presentations_ = 0;
  bool started_ = false;
  std::vector<std::string> testDevices_;
};

// ---- The whole platform ----

class Platform {
 public:
  // Makes every service and installs them.
  Platform();
  // Uninstalls them.
  ~Platform();
  Platform(const Platform&) = delete;
  Platform& operator=(const Platform&) = delete;

  PhotoLibrary& photos() { return *photos_; }
  ImageManager& images() { return *images_; }
  AssetImageGenerator& frames() { return *frames_; }
  FileManager& files() { return *files_; }
  PreferenceStore& preferences() { return *preferences_; }
  Application& application() { return *application_; }
  AdsNetwork& ads() { return *ads_; }
  Device& device() { return *device_; }
  Keychain& keychain() { return *keychain_; }
  SecureRandom& secureRandom() { return *random_; }
  DeviceFacts& deviceFacts() { return *deviceFacts_; }
  AdvertisingIdentity& advertisingIdentity() { return *advertising_; }
  Reachability& reachability() { return *reachability_; }
  Network& network() { return *network_; }
  NotificationCenter& notifications() { return *notifications_; }
  AppServices& appServices() { return *appServices_; }
  Messaging& messaging() { return *messaging_; }
  platform::BasicKeyboardManager& keyboard() { return *keyboard_; }
  PersistentStores& stores() { return *stores_; }
  MailComposer& mail() { return *mail_; }
  Pasteboard& pasteboard() { return *pasteboard_; }
  StoreReview& review() { return *review_; }
  VideoPlayers& videoPlayers() { return *videoPlayers_; }
  ImageCodec& codec() { return *codec_; }
  Camera& camera() { return *camera_; }
  // The picker's image manager; it delivers at once.
  ImageManager& cachingImages() { return *cachingImages_; }
  FileExport& fileExport() { return *fileExport_; }
  ContactStore& contacts() { return *contacts_; }

 private:
  std::shared_ptr<PhotoLibrary> photos_;
  std::shared_ptr<ImageManager> images_;
  std::shared_ptr<AssetImageGenerator> frames_;
  std::shared_ptr<FileManager> files_;
  std::shared_ptr<PreferenceStore> preferences_;
  std::shared_ptr<Application> application_;
  std::shared_ptr<AdsNetwork> ads_;
  std::shared_ptr<Device> device_;
  std::shared_ptr<Keychain> keychain_ = std::make_shared<Keychain>();
  std::shared_ptr<SecureRandom> random_ = std::make_shared<SecureRandom>();
  std::shared_ptr<DeviceFacts> deviceFacts_ = std::make_shared<DeviceFacts>();
  std::shared_ptr<AdvertisingIdentity> advertising_ = std::make_shared<AdvertisingIdentity>();
  std::shared_ptr<Reachability> reachability_ = std::make_shared<Reachability>();
  std::shared_ptr<Network> network_ = std::make_shared<Network>();
  std::shared_ptr<NotificationCenter> notifications_ = std::make_shared<NotificationCenter>();
  std::shared_ptr<AppServices> appServices_ = std::make_shared<AppServices>();
  std::shared_ptr<Messaging> messaging_ = std::make_shared<Messaging>();
  std::shared_ptr<platform::BasicKeyboardManager> keyboard_ = std::make_shared<platform::BasicKeyboardManager>();
  std::shared_ptr<PersistentStores> stores_ = std::make_shared<PersistentStores>();
  std::shared_ptr<MailComposer> mail_ = std::make_shared<MailComposer>();
  std::shared_ptr<Pasteboard> pasteboard_ = std::make_shared<Pasteboard>();
  std::shared_ptr<StoreReview> review_ = std::make_shared<StoreReview>();
  std::shared_ptr<VideoPlayers> videoPlayers_ = std::make_shared<VideoPlayers>();
  std::shared_ptr<ImageCodec> codec_ = std::make_shared<ImageCodec>();
  std::shared_ptr<Camera> camera_ = std::make_shared<Camera>();
  std::shared_ptr<ImageManager> cachingImages_ = std::make_shared<ImageManager>();
  std::shared_ptr<FileExport> fileExport_ = std::make_shared<FileExport>();
  std::shared_ptr<ContactStore> contacts_ = std::make_shared<ContactStore>();
};

}  // namespace sim
