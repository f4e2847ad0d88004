// Decoding photo and video files into RGBA pixels of a requested size: photos through Qt's
// image I/O (HEIF through libheif), video frames through the FFmpeg libraries. Shared by the
// image manager, the video frame generator and the house ads' creatives.
#pragma once

#include <string>

#include "kit/Geometry.h"
#include "kit/Image.h"

class QImage;

namespace desktop {

struct PixelSize {
  int width = 0;
  int height = 0;
  bool operator==(const PixelSize&) const = default;
};

// The size a picture of `source` pixels (as shown, after any rotation) takes for a request of
// `target` (one point is one pixel) in `contentMode` (1 aspect fill, any other value aspect
// fit). Aspect fit lies within the target, aspect fill covers it; both keep the aspect ratio,
// round to whole pixels (at least one) and never enlarge the source. A target with a
// dimension of zero or less (kImageManagerMaximumSize) asks for the source size.
PixelSize scaledPixelSize(PixelSize source, kit::Size target, int contentMode);

// `image`'s pixels in the kit's layout: RGBA, 8 bits each, rows top to bottom, no padding.
kit::ImagePtr toKitImage(const QImage& image);
// `image` at `size`, smoothly scaled when it is not that size already.
kit::ImagePtr scaledTo(const QImage& image, PixelSize size);
// A QImage holding a copy of `image`'s pixels.
QImage toQImage(const kit::Image& image);

// Decodes the photo file at `path` (JPEG, PNG, GIF, WebP, TIFF and the other formats of Qt's
// image plugins, HEIF/HEIC through libheif), turned upright by its orientation, at the size
// scaledPixelSize gives. JPEGs are decoded at reduced resolution when the target is small.
// Null with `error` filled when the file cannot be opened or decoded. Any thread; blocks.
kit::ImagePtr decodePhotoFile(const std::string& path, kit::Size target, int contentMode,
                              std::string* error);

// Decodes the frame of the video file at `path` that is shown at `seconds` from its start:
// the last frame starting at or before that time (the first frame for zero or less, the last
// frame past the end). Turned by the track's display rotation, stretched by its pixel aspect
// ratio, and scaled as scaledPixelSize gives. Null with `error` filled when the file cannot be
// opened or holds no decodable picture. Any thread; blocks.
kit::ImagePtr decodeVideoFrame(const std::string& path, double seconds, kit::Size target,
                               int contentMode, std::string* error);

}  // namespace desktop
