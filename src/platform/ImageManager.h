// Images of assets (thumbnails, full images) and frames of video files.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "kit/Geometry.h"
#include "kit/Image.h"
#include "kit/Value.h"
#include "platform/PhotoLibrary.h"

namespace platform {

// The largest size an asset has (PHImageManagerMaximumSize).
inline constexpr kit::Size kImageManagerMaximumSize{-1, -1};

// Content modes of an image request: 0 aspect fit, 1 aspect fill.
enum ImageContentMode : int { kImageContentModeAspectFit = 0, kImageContentModeAspectFill = 1 };

// Keys of a result's info dictionary.
inline constexpr const char* kImageResultIsDegradedKey = "PHImageResultIsDegradedKey";
inline constexpr const char* kImageCancelledKey = "PHImageCancelledKey";
inline constexpr const char* kImageErrorKey = "PHImageErrorKey";

struct ImageRequestOptions {
  bool synchronous = false;
  // 0 opportunistic (a fast image, then the final one), 1 high quality, 2 fast format.
  int deliveryMode = 0;
  // 0 none, 1 fast, 2 exact.
  int resizeMode = 1;
  bool networkAccessAllowed = false;
  void setSynchronous(bool v) { synchronous = v; }
  void setDeliveryMode(int v) { deliveryMode = v; }
  void setResizeMode(int v) { resizeMode = v; }
};

using ImageResultHandler = std::function<void(kit::ImagePtr image, const kit::Dictionary& info)>;

class ImageManager {
 public:
  virtual ~ImageManager() = default;
  // Requests an image of `asset` near `targetSize` (points; kImageManagerMaximumSize for the
  // full size). The handler may run before this call returns (always, when synchronous), later
  // on the main queue, or more than once (a degraded image first). A failure delivers a null
  // image with an error in the info. Returns a request id.
  virtual int requestImageForAsset(const AssetPtr& asset, kit::Size targetSize, int contentMode,
                                   const ImageRequestOptions& options, ImageResultHandler handler) = 0;
  virtual void cancelImageRequest(int requestId) = 0;
  // Prepares the images of `assets` at `targetSize` and `contentMode` ahead of their requests,
  // off the calling thread, so that those requests are answered sooner. Delivers nothing; a
  // manager may ignore it. Any thread.
  virtual void startCachingImagesForAssets(const std::vector<AssetPtr>& assets, kit::Size targetSize,
                                           int contentMode) {
    (void)assets, (void)targetSize, (void)contentMode;
  }
  // Drops the preparations not yet under way. Any thread.
  virtual void stopCachingImagesForAllAssets() {}
};

// Frames of video files by URL (AVAssetImageGenerator).
class AssetImageGenerator {
 public:
  virtual ~AssetImageGenerator() = default;
  // The frame of the video at `url` at `seconds`; null with `error` filled on failure.
  // Blocks the calling thread.
  virtual kit::ImagePtr copyCGImageAtTime(const std::string& url, double seconds, Error* error) = 0;
};

}  // namespace platform
