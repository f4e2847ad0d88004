#include "desktop/ThumbnailImageManager.h"

#include <atomic>
#include <compare>
#include <list>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "desktop/FolderPhotoLibrary.h"
#include "desktop/MediaDecoding.h"

namespace desktop {
namespace {

// One cached image: the file as it was (identity, size, time) and the request's shape.
struct CacheKey {
  std::string identifier;
  std::int64_t fileSize = 0;
  std::int64_t mtimeNs = 0;
  double width = -1, height = -1;  // -1: the full size
  int contentMode = 0;
  auto operator<=>(const CacheKey&) const = default;
};

// What a request delivers: an image, or an error text.
struct Outcome {
  kit::ImagePtr image;
  std::string error;
};

kit::Dictionary infoOf(const Outcome& outcome) {
  if (outcome.image) return kit::Dictionary{{platform::kImageResultIsDegradedKey, false}};
  return kit::Dictionary{{platform::kImageErrorKey, outcome.error}};
}

std::size_t bytesOf(const kit::Image& image) { return image.rgba().size(); }

}  // namespace

struct ThumbnailImageManager::State {
  explicit State(ThumbnailImageManagerOptions o) : options(o) {}

  const ThumbnailImageManagerOptions options;
  std::atomic<int> nextId{1};
  std::atomic<int> decodes{0};

  mutable std::mutex mu;  // guards the fields below
  // Most recently used first.
  std::list<std::pair<CacheKey, kit::ImagePtr>> recent;
  std::map<CacheKey, std::list<std::pair<CacheKey, kit::ImagePtr>>::iterator> index;
  std::size_t bytes = 0;
  std::set<int> live;  // asynchronous requests not yet delivered nor cancelled

  kit::ImagePtr lookup(const CacheKey& key) {
    std::lock_guard lock(mu);
    auto it = index.find(key);
    if (it == index.end()) return nullptr;
    recent.splice(recent.begin(), recent, it->second);
    return it->second->second;
  }

  void store(const CacheKey& key, const kit::ImagePtr& image) {
    std::size_t size = bytesOf(*image);
    if (size > options.cacheBytes / 4 || options.cacheCount == 0) return;
    std::lock_guard lock(mu);
    if (index.count(key)) return;  // a concurrent decode of the same request stored it
    recent.emplace_front(key, image);
    index[key] = recent.begin();
    bytes += size;
    while (recent.size() > options.cacheCount || bytes > options.cacheBytes) {
      bytes -= bytesOf(*recent.back().second);
      index.erase(recent.back().first);
      recent.pop_back();
    }
  }

  bool isLive(int id) const {
    std::lock_guard lock(mu);
    return live.count(id) > 0;
  }
  // True once for a live request: the caller delivers it.
  bool finish(int id) {
    std::lock_guard lock(mu);
    return live.erase(id) > 0;
  }

  // The image of the request, from the cache or decoded from `file` (and then cached).
  Outcome resolve(const FileAsset& file, const CacheKey& key, kit::Size target, int contentMode) {
    if (kit::ImagePtr cached = lookup(key)) return {cached, {}};
    decodes.fetch_add(1);
    Outcome outcome;
    switch (file.mediaType()) {
      case platform::MediaType::Image:
        outcome.image = decodePhotoFile(file.path(), target, contentMode, &outcome.error);
        break;
      case platform::MediaType::Video:
        outcome.image = decodeVideoFrame(file.path(), 0, target, contentMode, &outcome.error);
        break;
      default:
        outcome.error = file.path() + " is no photo or video";
        break;
    }
    if (outcome.image) store(key, outcome.image);
    return outcome;
  }
};

ThumbnailImageManager::ThumbnailImageManager(ThumbnailImageManagerOptions options)
    : state_(std::make_shared<State>(options)) {}

ThumbnailImageManager::~ThumbnailImageManager() = default;

int ThumbnailImageManager::requestImageForAsset(const platform::AssetPtr& asset,
                                                kit::Size targetSize, int contentMode,
                                                const platform::ImageRequestOptions& options,
                                                platform::ImageResultHandler handler) {
  const int id = state_->nextId.fetch_add(1);
  contentMode = contentMode == platform::kImageContentModeAspectFill
                    ? platform::kImageContentModeAspectFill
                    : platform::kImageContentModeAspectFit;
  const bool fullSize = !(targetSize.width > 0) || !(targetSize.height > 0);  // NaN too
  if (fullSize) targetSize = platform::kImageManagerMaximumSize;

  // The file as fetched; its path stays valid for the decode however long the asset lives.
  auto file = std::dynamic_pointer_cast<const FileAsset>(asset);
  const Outcome notAFile{nullptr, "the asset is not a file of this photo library"};
  CacheKey key;
  if (file) {
    key = CacheKey{file->localIdentifier(), file->fileSize(), file->modificationTimeNs(),
                   targetSize.width, targetSize.height, contentMode};
  }

  if (options.synchronous) {
    Outcome outcome = file ? state_->resolve(*file, key, targetSize, contentMode) : notAFile;
    handler(outcome.image, infoOf(outcome));
    return id;
  }

  {
    std::lock_guard lock(state_->mu);
    state_->live.insert(id);
  }
  auto deliver = [state = state_, id, handler = std::move(handler)](const Outcome& outcome) {
    kit::mainQueue().async([state, id, handler, outcome] {
      if (state->finish(id)) handler(outcome.image, infoOf(outcome));
    });
  };
  if (!file) {
    deliver(notAFile);
  } else if (kit::ImagePtr cached = state_->lookup(key)) {
    deliver(Outcome{cached, {}});
  } else {
    kit::globalQueue(state_->options.decodeQoS)
        .async([state = state_, id, file, key, targetSize, contentMode, deliver] {
          if (!state->isLive(id)) return;  // cancelled before its turn: no decode
          deliver(state->resolve(*file, key, targetSize, contentMode));
        });
  }
  return id;
}

void ThumbnailImageManager::cancelImageRequest(int requestId) {
  std::lock_guard lock(state_->mu);
  state_->live.erase(requestId);
}

std::size_t ThumbnailImageManager::cachedImageCount() const {
  std::lock_guard lock(state_->mu);
  return state_->recent.size();
}

std::size_t ThumbnailImageManager::cachedBytes() const {
  std::lock_guard lock(state_->mu);
  return state_->bytes;
}

int ThumbnailImageManager::decodeCount() const { return state_->decodes.load(); }

}  // namespace desktop
