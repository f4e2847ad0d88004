#include "shared/AssetImages.h"

#include "kit/Console.h"
#include "platform/Platform.h"

namespace shared {

kit::ImagePtr thumbnailForAsset(const platform::AssetPtr& asset) {
  platform::ImageRequestOptions options;
  options.setSynchronous(true);
  kit::ImagePtr last;
  platform::imageManager().requestImageForAsset(
      asset, kThumbnailSize, platform::kImageContentModeAspectFit, options,
      [&last](kit::ImagePtr image, const kit::Dictionary&) { last = std::move(image); });
  return last;
}

kit::ImagePtr fullImageForAsset(const platform::AssetPtr& asset) {
  kit::ImagePtr result = kit::Image::empty();
  if (asset->mediaType() != platform::MediaType::Image) return result;
  platform::ImageRequestOptions options;
  options.setResizeMode(2);
  options.setDeliveryMode(1);
  options.setSynchronous(true);
  platform::imageManager().requestImageForAsset(
      asset, platform::kImageManagerMaximumSize, platform::kImageContentModeAspectFit, options,
      [&result](kit::ImagePtr image, const kit::Dictionary&) {
        if (image) result = std::move(image);
      });
  return result;
}

kit::ImagePtr thumbnailForVideoURL(const std::string& url) {
  platform::Error error;
  // The frame at CMTimeMake(0, 60): zero seconds.
  kit::ImagePtr image = platform::assetImageGenerator().copyCGImageAtTime(url, 0.0 / 60.0, &error);
  if (!image) kit::print(error.localizedDescription);
  return image;
}

std::optional<std::string> fileNameOfAsset(const platform::AssetPtr& asset) {
  kit::Value value = asset->valueForKey("filename");
  if (const std::string* name = value.asString()) return *name;
  return std::nullopt;
}

}  // namespace shared
