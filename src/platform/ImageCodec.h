// Image files: JPEG data of an image, and an image read back from a file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/Image.h"

namespace platform {

class ImageCodec {
 public:
  virtual ~ImageCodec() = default;
  // JPEG data of `image` at `quality` (0.0 ... 1.0); nothing for a null or empty image, or an
  // image without pixels. Any thread.
  virtual std::optional<std::vector<std::uint8_t>> jpegData(const kit::ImagePtr& image, double quality) = 0;
  // The picture in the file at `path`, or null when it is no image this codec reads (or is not
  // a plain file). Blocks the calling thread. Any thread.
  virtual kit::ImagePtr imageWithContentsOfFile(const std::string& path) = 0;
};

}  // namespace platform
