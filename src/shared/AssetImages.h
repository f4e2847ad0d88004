// Images and names of library assets and video files.
#pragma once

#include <optional>
#include <string>

#include "kit/Geometry.h"
#include "kit/Image.h"
#include "platform/PhotoLibrary.h"

namespace shared {

// The size of the thumbnails thumbnailForAsset asks for.
inline constexpr kit::Size kThumbnailSize{200.0, 200.0};

// A 200 by 200 aspect-fit image of `asset`, requested synchronously: the last image the image
// manager delivered, or null. Blocks the calling thread.
kit::ImagePtr thumbnailForAsset(const platform::AssetPtr& asset);

// The full-size image of a photo, requested synchronously at high quality with exact resizing;
// the empty image for a video, or when none came. Never null. Blocks the calling thread.
kit::ImagePtr fullImageForAsset(const platform::AssetPtr& asset);

// The first frame of the video at `url`, or null after printing the error.
kit::ImagePtr thumbnailForVideoURL(const std::string& url);

// The asset's "filename" property when it is text, else nothing.
std::optional<std::string> fileNameOfAsset(const platform::AssetPtr& asset);

}  // namespace shared
