// The image manager on Linux: images of the photo library's files, decoded from the file
// (photos through Qt's image I/O or libheif, videos by their first frame through FFmpeg),
// scaled to the request, and kept in a bounded cache. With a shared thumbnails folder, small
// requests (up to 256 pixels a side) go through the desktop's thumbnails: one that a file
// manager or an earlier run made is used without decoding the file, and one decoded here is
// written there for the next time (in the background).
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "kit/Dispatch.h"
#include "platform/ImageManager.h"

namespace desktop {

struct ThumbnailImageManagerOptions {
  // Bounds of the cache: images kept at most, and their pixel bytes at most. An image larger
  // than a quarter of `cacheBytes` (a full-size photo, as a rule) is delivered but not kept.
  std::size_t cacheCount = 600;
  std::size_t cacheBytes = std::size_t{96} << 20;
  // The global queue that asynchronous requests decode on.
  kit::QoS decodeQoS = kit::QoS::UserInitiated;
  // The desktop's shared thumbnails ($XDG_CACHE_HOME/thumbnails); empty: none are read or
  // written.
  std::string sharedThumbnailsFolder;
};

class ThumbnailImageManager : public platform::ImageManager {
 public:
  explicit ThumbnailImageManager(ThumbnailImageManagerOptions options = {});
  ~ThumbnailImageManager() override;

  // Delivers the image of `asset` (a FileAsset of the library) at the size scaledPixelSize
  // gives for `targetSize` and `contentMode` (kImageManagerMaximumSize: the full size), as
  // RGBA pixels, with kImageResultIsDegradedKey false in the info. The handler runs exactly
  // once, unless the request is cancelled first:
  //  - synchronous: on the calling thread, before this call returns (decoding there);
  //  - otherwise: later on the main queue, after a decode on a global queue (a cached image
  //    skips the decode), never before this call returns.
  // Failure (an asset that is no file of the library, a file that is missing, unreadable or
  // damaged) delivers a null image with a text under kImageErrorKey. Delivery modes and
  // resize modes all give the one final image. The same request (asset file unchanged, same
  // size and mode) made again is answered from the cache with the same image object while it
  // stays there. Any thread.
  int requestImageForAsset(const platform::AssetPtr& asset, kit::Size targetSize, int contentMode,
                           const platform::ImageRequestOptions& options,
                           platform::ImageResultHandler handler) override;
  // The asynchronous request `requestId` delivers nothing from now on (a decode under way
  // finishes and is cached). Unknown or finished requests are ignored. Any thread.
  void cancelImageRequest(int requestId) override;
  // Decodes the images of `assets` (files of the library) one after another on a background
  // queue of its own: into the cache while it has room, and into the shared thumbnails (when
  // there are any) whether or not. Assets already cached are skipped. Any thread.
  void startCachingImagesForAssets(const std::vector<platform::AssetPtr>& assets, kit::Size targetSize,
                                   int contentMode) override;
  // Preparations still queued are skipped. Any thread.
  void stopCachingImagesForAllAssets() override;

  // What the cache holds now, and how many files were decoded so far. Any thread.
  std::size_t cachedImageCount() const;
  std::size_t cachedBytes() const;
  int decodeCount() const;

 private:
  struct State;
  // Shared with decodes under way, so that they may outlive this object.
  std::shared_ptr<State> state_;
};

}  // namespace desktop
