#include "desktop/ads/HouseAdsNetwork.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <mutex>
#include <random>

#include "desktop/media/MediaDecoding.h"
#include "kit/Dispatch.h"
#include "platform/ImageManager.h"

namespace desktop {

class HouseAdDealer {
 public:
  explicit HouseAdDealer(HouseAdsOptions options)
      : options_(std::move(options)), rng_(options_.seed ? *options_.seed : std::random_device{}()) {
    options_.fillRate = std::isnan(options_.fillRate) ? 0.0 : std::clamp(options_.fillRate, 0.0, 1.0);
    if (!(options_.latencySeconds >= 0)) options_.latencySeconds = 0;
  }

  const HouseAdsOptions& options() const { return options_; }

  // The creative a load of `creatives` fills with, or null for no fill: one draw decides the
  // fill, a second the creative. Any thread.
  kit::ImagePtr draw(const std::vector<kit::ImagePtr>& creatives) {
    std::lock_guard lock(mu_);
    double roll = std::uniform_real_distribution<double>(0.0, 1.0)(rng_);
    if (roll >= options_.fillRate || creatives.empty()) return nullptr;
    return creatives[std::uniform_int_distribution<std::size_t>(0, creatives.size() - 1)(rng_)];
  }

  // Runs `answer` on the main queue once the latency has passed. Any thread.
  void answer(kit::Task answer) const {
    if (options_.latencySeconds > 0) {
      kit::mainQueue().asyncAfter(options_.latencySeconds, std::move(answer));
    } else {
      kit::mainQueue().async(std::move(answer));
    }
  }

  // The network's state. Any thread.
  void markStarted() {
    std::lock_guard lock(mu_);
    started_ = true;
  }
  bool started() const {
    std::lock_guard lock(mu_);
    return started_;
  }
  void setTestDevices(std::vector<std::string> identifiers) {
    std::lock_guard lock(mu_);
    testDevices_ = std::move(identifiers);
  }
  std::vector<std::string> testDevices() const {
    std::lock_guard lock(mu_);
    return testDevices_;
  }

 private:
  HouseAdsOptions options_;  // normalised; immutable after construction
  mutable std::mutex mu_;    // guards the fields below
  std::mt19937 rng_;
  bool started_ = false;
  std::vector<std::string> testDevices_;
};

namespace {

platform::Error noFill() { return platform::Error{"ads", 1, "Request Error: No ad to show."}; }

// Loads a full-screen ad of type Ad (a BasicFullScreenAd) from `creatives`.
template <class Ad, class Completion>
void loadFullScreenAd(const std::shared_ptr<HouseAdDealer>& dealer, const std::vector<kit::ImagePtr>& creatives,
                      const std::string& adUnitID, Completion completion) {
  kit::ImagePtr creative = dealer->draw(creatives);
  std::string title = dealer->options().title;
  dealer->answer([adUnitID, creative, title, completion = std::move(completion)] {
    if (!creative) {
      completion(nullptr, noFill());
      return;
    }
    completion(std::make_shared<Ad>(adUnitID, creative, title), std::nullopt);
  });
}

bool endsWithNoCase(const std::string& name, const std::string& suffix) {
  if (name.size() < suffix.size()) return false;
  return std::equal(suffix.begin(), suffix.end(), name.end() - static_cast<long>(suffix.size()),
                    [](char a, char b) { return a == std::tolower(static_cast<unsigned char>(b)); });
}

}  // namespace

// ---- Banner ----

HouseBannerView::HouseBannerView(platform::AdSize size, std::shared_ptr<HouseAdDealer> dealer)
    : BannerView(size), dealer_(std::move(dealer)) {}

void HouseBannerView::loadRequest(const platform::AdRequest&) {
  kit::ImagePtr creative = dealer_->draw(dealer_->options().bannerCreatives);
  auto self = std::static_pointer_cast<HouseBannerView>(shared_from_this());
  dealer_->answer([self, creative] {
    auto delegate = self->delegate();
    if (!creative) {
      if (delegate) delegate->bannerViewDidFailToReceiveAdWithError(*self, noFill());
      return;
    }
    if (self->content_) self->content_->removeFromSuperview();
    self->content_ = kit::make<kit::ImageView>();
    self->content_->setFrame(self->bounds());
    self->content_->setContentMode(kit::ContentMode::ScaleAspectFit);
    self->content_->setImage(creative);
    self->addSubview(self->content_);
    if (delegate) {
      delegate->bannerViewDidReceiveAd(*self);
      delegate->bannerViewDidRecordImpression(*self);
    }
  });
}

kit::ImagePtr HouseBannerView::creative() const { return content_ ? content_->image() : nullptr; }

// ---- Network ----

HouseAdsNetwork::HouseAdsNetwork(HouseAdsOptions options)
    : dealer_(std::make_shared<HouseAdDealer>(std::move(options))) {}

HouseAdsNetwork::~HouseAdsNetwork() = default;

void HouseAdsNetwork::startWithCompletionHandler(std::function<void()> completion) {
  dealer_->markStarted();
  if (completion) kit::mainQueue().async(std::move(completion));
}

void HouseAdsNetwork::setTestDeviceIdentifiers(std::vector<std::string> identifiers) {
  dealer_->setTestDevices(std::move(identifiers));
}

std::map<std::string, platform::AdapterStatus> HouseAdsNetwork::adapterStatusesByClassName() {
  if (!started()) return {};
  return {{"HouseAdsAdapter", platform::AdapterStatus{platform::AdapterStatus::Ready, "Ready", 0}}};
}

bool HouseAdsNetwork::started() const { return dealer_->started(); }

std::vector<std::string> HouseAdsNetwork::testDeviceIdentifiers() const {
  return dealer_->testDevices();
}

void HouseAdsNetwork::loadInterstitialWithAdUnitID(
    const std::string& adUnitID, const platform::AdRequest&,
    std::function<void(std::shared_ptr<platform::InterstitialAd>, std::optional<platform::Error>)>
        completion) {
  const auto& options = dealer_->options();
  if (options.videoInterstitial) {
    // The fill is drawn as for a picture; the video answers in its place.
    const bool filled = dealer_->draw(options.interstitialCreatives) != nullptr;
    auto loader = options.videoInterstitial;
    dealer_->answer([adUnitID, filled, loader, completion = std::move(completion)] {
      if (!filled) completion(nullptr, noFill());
      else loader(adUnitID, completion);
    });
    return;
  }
  loadFullScreenAd<platform::BasicInterstitialAd>(dealer_, options.interstitialCreatives, adUnitID,
                                                  std::move(completion));
}

void HouseAdsNetwork::loadAppOpenAdWithAdUnitID(
    const std::string& adUnitID, const platform::AdRequest&,
    std::function<void(std::shared_ptr<platform::AppOpenAd>, std::optional<platform::Error>)>
        completion) {
  const auto& options = dealer_->options();
  loadFullScreenAd<platform::BasicAppOpenAd>(
      dealer_, options.appOpenCreatives.empty() ? options.interstitialCreatives : options.appOpenCreatives, adUnitID,
      std::move(completion));
}

std::shared_ptr<platform::BannerView> HouseAdsNetwork::bannerViewWithAdSize(platform::AdSize size) {
  return std::make_shared<HouseBannerView>(size, dealer_);
}

platform::AdSize HouseAdsNetwork::currentOrientationAnchoredAdaptiveBannerAdSizeWithWidth(
    double width) {
  width = std::max(0.0, width);
  double height = std::clamp(std::round(width * 50.0 / 320.0), 50.0, 90.0);
  return platform::AdSize{{width, height}};
}

// ---- Creatives ----

HouseAdCreatives loadHouseAdCreatives(const std::string& folder) {
  namespace fs = std::filesystem;
  HouseAdCreatives result;
  std::error_code ec;
  std::vector<std::string> names;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    names.push_back(it->path().filename().string());
  }
  if (ec) {
    result.problems.push_back("cannot read the ads folder " + folder + ": " + ec.message());
    return result;
  }
  std::sort(names.begin(), names.end());
  for (const auto& name : names) {
    bool interstitial = name.rfind("interstitial-", 0) == 0;
    bool banner = name.rfind("banner-", 0) == 0;
    bool picture = endsWithNoCase(name, ".png") || endsWithNoCase(name, ".jpg") ||
                   endsWithNoCase(name, ".jpeg");
    if (!(interstitial || banner) || !picture) continue;
    std::string error;
    kit::ImagePtr image =
        decodePhotoFile(folder + "/" + name, platform::kImageManagerMaximumSize, 0, &error);
    if (!image) {
      result.problems.push_back(error);
      continue;
    }
    (interstitial ? result.interstitials : result.banners).push_back(std::move(image));
  }
  return result;
}

}  // namespace desktop
