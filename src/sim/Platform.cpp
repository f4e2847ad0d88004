#include "sim/Platform.h"

#include <algorithm>
#include <atomic>

#include "kit/Dispatch.h"
#include "kit/Fatal.h"

namespace sim {

// ---- Assets ----

Asset::Asset(std::string id, std::optional<kit::Date> creationDate, platform::MediaType type,
             double duration, std::string filename, int width, int height)
    : id_(std::move(id)),
      creationDate_(creationDate),
      type_(type),
      duration_(duration),
      filename_(std::move(filename)),
      width_(width),
      height_(height) {}

kit::Value Asset::valueForKey(std::string_view key) const {
  if (key == "filename") return kit::Value(filename_);
  if (key == "localIdentifier") return kit::Value(id_);
  return {};
}

namespace {
std::atomic<int> gNextAsset{1};

std::optional<kit::Date> dateOf(std::optional<double> s) {
  if (!s) return std::nullopt;
  return kit::Date{*s};
}
}  // namespace

std::shared_ptr<Asset> photo(std::optional<double> when, std::string id) {
  int n = gNextAsset++;
  if (id.empty()) id = "photo-" + std::to_string(n);
  return std::make_shared<Asset>(id, dateOf(when), platform::MediaType::Image, 0.0,
                                 "IMG_" + std::to_string(n) + ".JPG");
}

std::shared_ptr<Asset> video(std::optional<double> when, double duration, std::string id) {
  int n = gNextAsset++;
  if (id.empty()) id = "video-" + std::to_string(n);
  return std::make_shared<Asset>(id, dateOf(when), platform::MediaType::Video, duration,
                                 "VID_" + std::to_string(n) + ".MOV", 1920, 1080);
}

// ---- PhotoLibrary ----

void PhotoLibrary::setAssets(std::vector<std::shared_ptr<const platform::Asset>> assets) {
  std::lock_guard lock(mu_);
  forgetFetches();
  assets_ = std::move(assets);
}

void PhotoLibrary::addAsset(std::shared_ptr<const platform::Asset> asset) {
  std::lock_guard lock(mu_);
  forgetFetches();
  assets_.push_back(std::move(asset));
}

std::vector<platform::AssetPtr> PhotoLibrary::allAssets() const {
  std::lock_guard lock(mu_);
  return assets_;
}

void PhotoLibrary::setStatus(platform::AuthorizationStatus status) { setRawStatus(static_cast<int>(status)); }

void PhotoLibrary::setRawStatus(int status) {
  std::lock_guard lock(mu_);
  forgetFetches();
  status_ = status;
}

void PhotoLibrary::setLimitedSelection(std::set<std::string> ids) {
  std::lock_guard lock(mu_);
  forgetFetches();
  limited_ = std::move(ids);
}

void PhotoLibrary::answerAuthorization(platform::AuthorizationStatus status) {
  std::vector<std::function<void(platform::AuthorizationStatus)>> handlers;
  {
    std::lock_guard lock(mu_);
    status_ = static_cast<int>(status);
    forgetFetches();
    handlers.swap(pending_);
  }
  for (auto& handler : handlers) {
    kit::globalQueue(kit::QoS::Default).async([handler, status] { handler(status); });
  }
}

int PhotoLibrary::pendingAuthorizationRequests() const {
  std::lock_guard lock(mu_);
  return static_cast<int>(pending_.size());
}

int PhotoLibrary::authorizationRequestCount() const {
  std::lock_guard lock(mu_);
  return requests_;
}

void PhotoLibrary::setDeletionOutcome(DeletionOutcome outcome) {
  std::lock_guard lock(mu_);
  deletion_ = outcome;
}

std::vector<std::string> PhotoLibrary::deletedIdentifiers() const {
  std::lock_guard lock(mu_);
  return deleted_;
}

int PhotoLibrary::fetchCount() const {
  std::lock_guard lock(mu_);
  return fetches_;
}

platform::AuthorizationStatus PhotoLibrary::authorizationStatus() {
  std::lock_guard lock(mu_);
  return static_cast<platform::AuthorizationStatus>(status_);
}

void PhotoLibrary::requestAuthorization(std::function<void(platform::AuthorizationStatus)> handler) {
  platform::AuthorizationStatus current;
  {
    std::lock_guard lock(mu_);
    ++requests_;
    if (status_ == 0) {
      pending_.push_back(std::move(handler));
      return;
    }
    current = static_cast<platform::AuthorizationStatus>(status_);
  }
  kit::globalQueue(kit::QoS::Default).async([handler, current] { handler(current); });
}

platform::FetchResult PhotoLibrary::fetch(std::optional<platform::MediaType> type,
                                          const platform::FetchOptions* options) {
  std::lock_guard lock(mu_);
  ++fetches_;
  bool all = status_ == static_cast<int>(platform::AuthorizationStatus::Authorized);
  bool limited = status_ == static_cast<int>(platform::AuthorizationStatus::Limited);
  if (!all && !limited) return platform::FetchResult{};
  std::string order;
  if (options) {
    for (const auto& d : options->sortDescriptors) order += d.key + (d.ascending ? "+" : "-");
  }
  auto key = std::make_pair(type ? static_cast<int>(*type) : -1, order);
  if (auto it = fetches_cache_.find(key); it != fetches_cache_.end()) return it->second;
  // One pass over the assets: filter, copy, and tell whether they are already in date order.
  const bool byDateOnly = options && options->sortDescriptors.size() == 1 &&
                          options->sortDescriptors[0].key == "creationDate";
  const bool ascending = byDateOnly && options->sortDescriptors[0].ascending;
  std::vector<platform::AssetPtr> out;
  bool inOrder = true;
  double previous = 0;
  for (const auto& a : assets_) {
    if (type && a->mediaType() != *type) continue;
    if (limited && !limited_.count(a->localIdentifier())) continue;
    if (byDateOnly) {
      auto date = a->creationDate();
      double t = date ? date->timeIntervalSince1970 : -1e300;
      if (!out.empty() && (ascending ? t < previous : t > previous)) inOrder = false;
      previous = t;
    }
    out.push_back(a);
  }
  if (!byDateOnly || !inOrder) platform::sortAssets(out, options);
  platform::FetchResult result(std::move(out));
  fetches_cache_[key] = result;
  return result;
}

platform::FetchResult PhotoLibrary::fetchAssetsWithMediaType(platform::MediaType mediaType,
                                                             const platform::FetchOptions* options) {
  return fetch(mediaType, options);
}

platform::FetchResult PhotoLibrary::fetchAssetsWithOptions(const platform::FetchOptions* options) {
  return fetch(std::nullopt, options);
}

namespace {
class CollectingChangeRequest : public platform::ChangeRequest {
 public:
  void deleteAssets(const std::vector<platform::AssetPtr>& assets) override {
    toDelete.insert(toDelete.end(), assets.begin(), assets.end());
  }
  std::vector<platform::AssetPtr> toDelete;
};
}  // namespace

void PhotoLibrary::performChanges(std::function<void(platform::ChangeRequest&)> changes,
                                  std::function<void(bool, std::optional<platform::Error>)> completion) {
  {
    std::lock_guard lock(mu_);
    if (!changesQueue_) changesQueue_ = kit::makeSerialQueue("com.apple.photos.changes");
  }
  changesQueue_->async([this, changes = std::move(changes), completion = std::move(completion)] {
    CollectingChangeRequest request;
    if (changes) changes(request);
    DeletionOutcome outcome;
    {
      std::lock_guard lock(mu_);
      outcome = deletion_;
      if (outcome == DeletionOutcome::Succeed) {
        for (const auto& a : request.toDelete) {
          auto it = std::find_if(assets_.begin(), assets_.end(),
                                 [&](const platform::AssetPtr& x) { return x->isEqual(*a); });
          if (it != assets_.end()) {
            deleted_.push_back((*it)->localIdentifier());
            assets_.erase(it);
            forgetFetches();
          }
        }
      }
    }
    if (!completion) return;
    switch (outcome) {
      case DeletionOutcome::Succeed: completion(true, std::nullopt); break;
      case DeletionOutcome::Decline:
        completion(false, platform::Error{"PHPhotosErrorDomain", 3072,
                                          "The operation couldn\xE2\x80\x99t be completed. (PHPhotosErrorDomain error 3072.)"});
        break;
      case DeletionOutcome::Fail:
        completion(false, platform::Error{"PHPhotosErrorDomain", -1,
                                          "The operation couldn\xE2\x80\x99t be completed. (PHPhotosErrorDomain error -1.)"});
        break;
    }
  });
}

// ---- ImageManager ----

namespace {
kit::ImagePtr placeholderImage(const std::string& id, kit::Size target) {
  int w = target.width <= 0 ? 16 : std::clamp(static_cast<int>(target.width), 1, 64);
  int h = target.height <= 0 ? 12 : std::clamp(static_cast<int>(target.height), 1, 64);
  std::uint32_t hash = 2166136261u;
  for (char c : id) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
  std::vector<std::uint8_t> px(static_cast<std::size_t>(w) * h * 4);
  for (std::size_t i = 0; i < px.size(); i += 4) {
    px[i] = hash & 0xFF;
    px[i + 1] = (hash >> 8) & 0xFF;
    px[i + 2] = (hash >> 16) & 0xFF;
    px[i + 3] = 0xFF;
  }
  return kit::Image::fromPixels(w, h, std::move(px));
}
}  // namespace

void ImageManager::failAssets(std::set<std::string> ids) {
  std::lock_guard lock(mu_);
  failing_ = std::move(ids);
}

int ImageManager::requestCount() const {
  std::lock_guard lock(mu_);
  return next_ - 1;
}

int ImageManager::requestImageForAsset(const platform::AssetPtr& asset, kit::Size targetSize, int,
                                       const platform::ImageRequestOptions& options,
                                       platform::ImageResultHandler handler) {
  int id;
  bool fails;
  {
    std::lock_guard lock(mu_);
    id = next_++;
    fails = !asset || failing_.count(asset->localIdentifier()) > 0;
  }
  auto deliver = [asset, targetSize, fails](const platform::ImageResultHandler& h, bool degraded) {
    if (fails) {
      h(nullptr, kit::Dictionary{{platform::kImageErrorKey, "The image could not be loaded"}});
    } else {
      h(placeholderImage(asset->localIdentifier(), degraded ? kit::Size{4, 4} : targetSize),
        kit::Dictionary{{platform::kImageResultIsDegradedKey, degraded}});
    }
  };
  bool atOnce;
  {
    std::lock_guard lock(mu_);
    atOnce = atOnce_;
  }
  if (options.synchronous || atOnce) {
    deliver(handler, false);
    return id;
  }
  bool twice = options.deliveryMode == 0 && !fails;
  kit::mainQueue().async([this, id, handler, deliver, twice] {
    {
      std::lock_guard lock(mu_);
      if (cancelled_.count(id)) return;
    }
    if (twice) deliver(handler, true);
    deliver(handler, false);
  });
  return id;
}

void ImageManager::setDeliversAtOnce(bool atOnce) {
  std::lock_guard lock(mu_);
  atOnce_ = atOnce;
}

void ImageManager::cancelImageRequest(int requestId) {
  std::lock_guard lock(mu_);
  cancelled_.insert(requestId);
}

void AssetImageGenerator::addVideo(std::string url) {
  std::lock_guard lock(mu_);
  videos_.insert(std::move(url));
}

kit::ImagePtr AssetImageGenerator::copyCGImageAtTime(const std::string& url, double, platform::Error* error) {
  {
    std::lock_guard lock(mu_);
    if (videos_.count(url)) return placeholderImage(url, {32, 18});
  }
  if (error) *error = platform::Error{"AVFoundationErrorDomain", -11800, "The operation could not be completed"};
  return nullptr;
}

// ---- FileManager ----

void FileManager::setDocumentsPath(std::optional<std::string> path) {
  std::lock_guard lock(mu_);
  documents_ = std::move(path);
}

void FileManager::setApplicationSupportPath(std::string path) {
  std::lock_guard lock(mu_);
  applicationSupport_ = std::move(path);
}

void FileManager::setFileSystem(std::int64_t size, std::int64_t freeSize) {
  std::lock_guard lock(mu_);
  attributes_ = {{platform::kFileSystemSize, static_cast<long long>(size)},
                 {platform::kFileSystemFreeSize, static_cast<long long>(freeSize)}};
}

void FileManager::setAttributes(kit::Dictionary attributes) {
  std::lock_guard lock(mu_);
  attributes_ = std::move(attributes);
}

void FileManager::failAttributes(bool fail) {
  std::lock_guard lock(mu_);
  fail_ = fail;
}

std::vector<std::string> FileManager::searchPathForDirectoriesInDomains(int directory, int, bool) {
  std::lock_guard lock(mu_);
  if (directory == platform::kDocumentDirectory) {
    if (documents_) return {*documents_};
    return {};
  }
  if (directory == platform::kApplicationSupportDirectory) return {applicationSupport_};
  if (directory == platform::kCachesDirectory) return {"/sim/Library/Caches"};
  return {};
}

std::optional<kit::Dictionary> FileManager::attributesOfFileSystemForPath(const std::string& path,
                                                                          platform::Error* error) {
  std::lock_guard lock(mu_);
  lastPath_ = path;
  if (fail_) {
    if (error) *error = platform::Error{"NSCocoaErrorDomain", 260, "The file doesn't exist."};
    return std::nullopt;
  }
  return attributes_;
}

std::string FileManager::lastAttributesPath() const {
  std::lock_guard lock(mu_);
  return lastPath_;
}

// ---- PreferenceStore ----

kit::Value PreferenceStore::objectForKey(const std::string& key) {
  std::lock_guard lock(mu_);
  auto it = values_.find(key);
  return it == values_.end() ? kit::Value() : it->second;
}

void PreferenceStore::setObject(kit::Value value, const std::string& key) {
  std::lock_guard lock(mu_);
  if (value.isNull()) values_.erase(key);
  else values_[key] = std::move(value);
}

std::size_t PreferenceStore::size() const {
  std::lock_guard lock(mu_);
  return values_.size();
}

// ---- Application ----

void Application::openURL(const std::string& url, const kit::Dictionary&, std::function<void(bool)> completion) {
  {
    std::lock_guard lock(mu_);
    opened_.push_back(url);
  }
  if (completion) kit::mainQueue().async([completion] { completion(true); });
}

bool Application::canOpenURL(const std::string& url) { return !url.empty(); }

std::vector<std::string> Application::openedURLs() const {
  std::lock_guard lock(mu_);
  return opened_;
}

// ---- Ads ----

namespace {

class SimBannerView : public platform::BannerView {
 public:
  SimBannerView(platform::AdSize size, AdsNetwork* network) : BannerView(size), network_(network) {}
  void loadRequest(const platform::AdRequest&) override {
    auto outcome = network_->nextOutcome("banner", adUnitID());
    // A request in flight keeps its banner alive, as the network's own requests do.
    auto banner = std::static_pointer_cast<platform::BannerView>(shared_from_this());
    network_->deliver([banner, outcome] {
      auto d = banner->delegate();
      if (!d) return;
      if (outcome == AdsNetwork::Outcome::Fill) d->bannerViewDidReceiveAd(*banner);
      else d->bannerViewDidFailToReceiveAdWithError(*banner, platform::Error{"ads", 1, "No ad to show."});
    });
  }

 private:
  AdsNetwork* network_;
};

}  // namespace

void AdsNetwork::queueOutcomes(std::vector<Outcome> outcomes) {
  queued_.insert(queued_.end(), outcomes.begin(), outcomes.end());
}

void AdsNetwork::setDefaultOutcome(Outcome outcome) { default_ = outcome; }

void AdsNetwork::setDefaultOutcome(const std::string& kind, Outcome outcome) { kindDefaults_[kind] = outcome; }
void AdsNetwork::setLatency(double seconds) { latency_ = seconds; }
void AdsNetwork::failNextPresentation() { failNextPresentation_ = true; }
void AdsNetwork::setBannerHeight(double height) { bannerHeight_ = height; }
void AdsNetwork::setInterstitialFormats(std::vector<Format> formats) { formats_.assign(formats.begin(), formats.end()); }
void AdsNetwork::setVideoInterstitialLoader(VideoInterstitialLoader loader) { videoLoader_ = std::move(loader); }

int AdsNetwork::loadCount(const std::string& kind) const {
  return static_cast<int>(std::count_if(loads_.begin(), loads_.end(), [&](const Load& l) { return l.kind == kind; }));
}

AdsNetwork::Outcome AdsNetwork::nextOutcome(const std::string& kind, const std::string& adUnitID) {
  loads_.push_back({kind, adUnitID});
  if (queued_.empty()) {
    auto it = kindDefaults_.find(kind);
    return it == kindDefaults_.end() ? default_ : it->second;
  }
  Outcome o = queued_.front();
  queued_.pop_front();
  return o;
}

void AdsNetwork::deliver(std::function<void()> completion) {
  if (latency_ > 0) kit::mainQueue().asyncAfter(latency_, std::move(completion));
  else kit::mainQueue().async(std::move(completion));
}

bool AdsNetwork::closePresentedAd() {
  for (auto& ad : interstitials_) {
    if (ad->isPresented()) {
      ad->close();
      return true;
    }
  }
  for (auto& ad : appOpenAds_) {
    if (ad->isPresented()) {
      ad->close();
      return true;
    }
  }
  return false;
}

bool AdsNetwork::isAdPresented() const {
  for (auto& ad : interstitials_) {
    if (ad->isPresented()) return true;
  }
  for (auto& ad : appOpenAds_) {
    if (ad->isPresented()) return true;
  }
  return false;
}

void AdsNetwork::startWithCompletionHandler(std::function<void()> completion) {
  started_ = true;
  if (completion) kit::mainQueue().async(std::move(completion));
}

std::map<std::string, platform::AdapterStatus> AdsNetwork::adapterStatusesByClassName() {
  if (!started_) return {};
  return {{"SimAdapter", platform::AdapterStatus{platform::AdapterStatus::Ready, "Ready", 0}}};
}

void AdsNetwork::setTestDeviceIdentifiers(std::vector<std::string> identifiers) {
  testDevices_ = std::move(identifiers);
}

namespace {
// An ad of this network: counts its presentations and honours failNextPresentation.
template <class Basic>
class SimAd : public Basic {
 public:
  SimAd(AdsNetwork* network, std::string adUnitID, std::string title)
      : Basic(std::move(adUnitID), kit::Image::named("sim-ad"), std::move(title)), network_(network) {}
  void presentFromRootViewController(kit::ViewController* root) override {
    if (network_->consumeFailNextPresentation()) this->setRefusePresentation(true);
    network_->notePresented();
    Basic::presentFromRootViewController(root);
    this->setRefusePresentation(false);
  }

 private:
  AdsNetwork* network_;
};
}  // namespace

bool AdsNetwork::consumeFailNextPresentation() {
  bool fail = failNextPresentation_;
  failNextPresentation_ = false;
  return fail;
}

void AdsNetwork::loadInterstitialWithAdUnitID(
    const std::string& adUnitID, const platform::AdRequest&,
    std::function<void(std::shared_ptr<platform::InterstitialAd>, std::optional<platform::Error>)> completion) {
  Outcome outcome = nextOutcome("interstitial", adUnitID);
  deliver([this, adUnitID, outcome, completion] {
    if (outcome == Outcome::Fail) {
      completion(nullptr, platform::Error{"ads", 1, "Request Error: No ad to show."});
      return;
    }
    Format format = formats_.empty() ? Format::Image : formats_.front();
    if (formats_.size() > 1) formats_.pop_front();
    if (format == Format::Video) {
      if (!videoLoader_) {
        completion(nullptr, platform::Error{"ads", 1, "Request Error: No video player for video ads."});
        return;
      }
      videoLoader_(adUnitID, [this, completion](std::shared_ptr<platform::InterstitialAd> ad,
                                                std::optional<platform::Error> error) {
        if (ad) videoInterstitials_.push_back(ad);
        completion(std::move(ad), std::move(error));
      });
      return;
    }
    auto ad = std::make_shared<SimAd<platform::BasicInterstitialAd>>(this, adUnitID, "Sim interstitial");
    interstitials_.push_back(ad);
    completion(ad, std::nullopt);
  });
}

void AdsNetwork::loadAppOpenAdWithAdUnitID(
    const std::string& adUnitID, const platform::AdRequest&,
    std::function<void(std::shared_ptr<platform::AppOpenAd>, std::optional<platform::Error>)> completion) {
  Outcome outcome = nextOutcome("appOpen", adUnitID);
  deliver([this, adUnitID, outcome, completion] {
    if (outcome == Outcome::Fail) {
      completion(nullptr, platform::Error{"ads", 1, "Request Error: No ad to show."});
      return;
    }
    auto ad = std::make_shared<SimAd<platform::BasicAppOpenAd>>(this, adUnitID, "Sim app-open ad");
    appOpenAds_.push_back(ad);
    completion(ad, std::nullopt);
  });
}

std::shared_ptr<platform::BannerView> AdsNetwork::bannerViewWithAdSize(platform::AdSize size) {
  return std::make_shared<SimBannerView>(size, this);
}

platform::AdSize AdsNetwork::currentOrientationAnchoredAdaptiveBannerAdSizeWithWidth(double width) {
  return platform::AdSize{{width, bannerHeight_}};
}

// ---- Platform ----

Platform::Platform()
    : photos_(std::make_shared<PhotoLibrary>()),
      images_(std::make_shared<ImageManager>()),
      frames_(std::make_shared<AssetImageGenerator>()),
      files_(std::make_shared<FileManager>()),
      preferences_(std::make_shared<PreferenceStore>()),
      application_(std::make_shared<Application>()),
      ads_(std::make_shared<AdsNetwork>()),
      device_(std::make_shared<Device>()) {
  platform::Services services{photos_, images_, frames_, files_, preferences_, application_, ads_, device_,
                              keychain_, random_, deviceFacts_, advertising_, reachability_, network_,
                              notifications_, appServices_, messaging_, keyboard_, stores_, mail_,
                              pasteboard_, review_, videoPlayers_};
  cachingImages_->setDeliversAtOnce(true);
  services.imageCodec = codec_;
  services.camera = camera_;
  services.cachingImageManager = cachingImages_;
  services.fileExport = fileExport_;
  services.contactStore = contacts_;
  platform::install(std::move(services));
}

Platform::~Platform() { platform::uninstall(); }

}  // namespace sim
