#include "desktop/media/ThumbnailImageManager.h"

#include <sys/stat.h>

#include <atomic>
#include <compare>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include <QImage>

#include "desktop/library/FolderPhotoLibrary.h"
#include "desktop/media/MediaDecoding.h"
#include "desktop/media/SharedThumbnails.h"

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

// Decodes `file` (a photo, or a video's first frame) at the size of the request.
kit::ImagePtr decodeFile(const FileAsset& file, kit::Size target, int contentMode, std::string* error) {
  switch (file.mediaType()) {
    case platform::MediaType::Image: return decodePhotoFile(file.path(), target, contentMode, error);
    case platform::MediaType::Video: return decodeVideoFrame(file.path(), 0, target, contentMode, error);
    default:
      *error = file.path() + " is no photo or video";
      return nullptr;
  }
}

// Whether a large shared thumbnail of `file` holds the request in full: the image the request
// asks for is no larger than 256 pixels a side.
bool fitsLargeThumbnail(const FileAsset& file, kit::Size target, int contentMode) {
  const int side = SharedThumbnails::kLarge;
  if (file.pixelWidth() > 0 && file.pixelHeight() > 0) {
    PixelSize want = scaledPixelSize({file.pixelWidth(), file.pixelHeight()}, target, contentMode);
    return want.width <= side && want.height <= side;
  }
  return contentMode != platform::kImageContentModeAspectFill && target.width <= side && target.height <= side;
}

// Whether `file` is on disk as it was fetched: same size and modification time.
bool unchangedOnDisk(const FileAsset& file) {
  struct stat st;
  if (::stat(file.path().c_str(), &st) != 0) return false;
  return st.st_size == file.fileSize() &&
         std::int64_t{st.st_mtim.tv_sec} * 1000000000 + st.st_mtim.tv_nsec == file.modificationTimeNs();
}

ThumbnailSource sourceOf(const FileAsset& file) {
  return {file.path(), file.fileSize(), file.modificationTimeNs() / 1000000000};
}

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
  // Files of the library that failed to decode, as they were: a row on screen asks again at
  // every reload, and the answer is the same until the file changes.
  std::map<CacheKey, std::string> failures;
  static constexpr std::size_t kMaxFailures = 4096;

  std::optional<std::string> knownFailure(const CacheKey& key) const {
    std::lock_guard lock(mu);
    auto it = failures.find(key);
    if (it == failures.end()) return std::nullopt;
    return it->second;
  }
  void noteFailure(const CacheKey& key, const std::string& error) {
    std::lock_guard lock(mu);
    if (failures.size() >= kMaxFailures) failures.clear();
    failures[key] = error;
  }

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

  // Whether the cache can take another image without dropping one.
  bool hasRoom() const {
    std::lock_guard lock(mu);
    return recent.size() < options.cacheCount && bytes < options.cacheBytes - options.cacheBytes / 8;
  }

  // How shared thumbnails are written: at once (on a background queue already) or later.
  enum class Write { Now, Later };

  // The image of the request: from the cache, else from the shared thumbnails, else decoded
  // from `file`; kept in the cache when `keep`.
  Outcome resolve(const FileAsset& file, const CacheKey& key, kit::Size target, int contentMode, bool keep = true,
                  Write write = Write::Later) {
    if (kit::ImagePtr cached = lookup(key)) return {cached, {}};
    if (auto error = knownFailure(key); error && unchangedOnDisk(file)) return {nullptr, *error};
    Outcome outcome;
    if (shared && fitsLargeThumbnail(file, target, contentMode)) {
      const ThumbnailSource source = sourceOf(file);
      QImage thumb = shared->read(source, SharedThumbnails::kLarge);
      if (thumb.isNull()) {
        decodes.fetch_add(1);
        const double side = SharedThumbnails::kLarge;
        kit::ImagePtr large = decodeFile(file, {side, side}, platform::kImageContentModeAspectFit, &outcome.error);
        if (large) {
          thumb = toQImage(*large);
          if (write == Write::Now) {
            shared->write(source, thumb, SharedThumbnails::kLarge);
          } else {
            kit::globalQueue(kit::QoS::Background).async([shared = shared, source, thumb] {
              shared->write(source, thumb, SharedThumbnails::kLarge);
            });
          }
        }
      }
      if (!thumb.isNull()) {
        outcome.image = scaledTo(thumb, scaledPixelSize({thumb.width(), thumb.height()}, target, contentMode));
      }
    } else {
      decodes.fetch_add(1);
      outcome.image = decodeFile(file, target, contentMode, &outcome.error);
    }
    if (!outcome.image) noteFailure(key, outcome.error);
    if (outcome.image && keep) store(key, outcome.image);
    return outcome;
  }

  // Shared with the thumbnail writes under way; null without a shared folder.
  std::shared_ptr<const SharedThumbnails> shared;
  // Preparations ahead of requests: their queue (made on first use) and the generation that
  // stopCachingImagesForAllAssets moves on.
  std::shared_ptr<kit::Queue> prefetchQueue;
  std::atomic<std::uint64_t> prefetchGeneration{0};
};

namespace {

// The cache key of a request for `file` (the mode and size as requestImageForAsset settles them).
CacheKey keyOf(const FileAsset& file, kit::Size targetSize, int contentMode) {
  return CacheKey{file.localIdentifier(), file.fileSize(), file.modificationTimeNs(),
                  targetSize.width, targetSize.height, contentMode};
}

int settledMode(int contentMode) {
  return contentMode == platform::kImageContentModeAspectFill ? platform::kImageContentModeAspectFill
                                                              : platform::kImageContentModeAspectFit;
}

}  // namespace

ThumbnailImageManager::ThumbnailImageManager(ThumbnailImageManagerOptions options)
    : state_(std::make_shared<State>(options)) {
  if (!options.sharedThumbnailsFolder.empty()) {
    state_->shared = std::make_shared<const SharedThumbnails>(options.sharedThumbnailsFolder);
  }
}

ThumbnailImageManager::~ThumbnailImageManager() = default;

int ThumbnailImageManager::requestImageForAsset(const platform::AssetPtr& asset,
                                                kit::Size targetSize, int contentMode,
                                                const platform::ImageRequestOptions& options,
                                                platform::ImageResultHandler handler) {
  const int id = state_->nextId.fetch_add(1);
  contentMode = settledMode(contentMode);
  const bool fullSize = !(targetSize.width > 0) || !(targetSize.height > 0);  // NaN too
  if (fullSize) targetSize = platform::kImageManagerMaximumSize;

  // The file as fetched; its path stays valid for the decode however long the asset lives.
  auto file = std::dynamic_pointer_cast<const FileAsset>(asset);
  const Outcome notAFile{nullptr, "the asset is not a file of this photo library"};
  CacheKey key;
  if (file) key = keyOf(*file, targetSize, contentMode);

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

void ThumbnailImageManager::startCachingImagesForAssets(const std::vector<platform::AssetPtr>& assets,
                                                        kit::Size targetSize, int contentMode) {
  contentMode = settledMode(contentMode);
  if (!(targetSize.width > 0) || !(targetSize.height > 0)) return;  // full-size images are not prepared
  std::shared_ptr<kit::Queue> queue;
  {
    std::lock_guard lock(state_->mu);
    if (!state_->prefetchQueue) state_->prefetchQueue = kit::makeSerialQueue("solvanta.thumbnails.prefetch");
    queue = state_->prefetchQueue;
  }
  const std::uint64_t generation = state_->prefetchGeneration.load();
  for (const auto& asset : assets) {
    auto file = std::dynamic_pointer_cast<const FileAsset>(asset);
    if (!file) continue;
    queue->async([state = state_, file, targetSize, contentMode, generation] {
      if (state->prefetchGeneration.load() != generation) return;
      CacheKey key = keyOf(*file, targetSize, contentMode);
      {
        std::lock_guard lock(state->mu);
        if (state->index.count(key)) return;
      }
      const bool room = state->hasRoom();
      // With neither room nor a shared folder, the work would be thrown away.
      if (room || state->shared) state->resolve(*file, key, targetSize, contentMode, room, State::Write::Now);
    });
  }
}

void ThumbnailImageManager::stopCachingImagesForAllAssets() { state_->prefetchGeneration.fetch_add(1); }

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
