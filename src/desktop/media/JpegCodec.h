// Image files on Linux: JPEG data through Qt's image writer, and pictures read back from
// files through Qt's image readers (any format Qt reads).
#pragma once

#include "platform/ImageCodec.h"
#include "platform/ImageManager.h"

namespace desktop {

class JpegCodec : public platform::ImageCodec {
 public:
  // Baseline JPEG of the image's RGBA pixels (alpha dropped); quality maps 0.0 ... 1.0 to
  // Qt's 0 ... 100. Nothing for a null, empty or named image. Any thread.
  std::optional<std::vector<std::uint8_t>> jpegData(const kit::ImagePtr& image, double quality) override;
  // Reads a plain file only: a symbolic link, a folder or a device gives null, as does a
  // file Qt cannot decode. Any thread.
  kit::ImagePtr imageWithContentsOfFile(const std::string& path) override;
};

// An image manager whose option-less (asynchronous) requests are answered before they
// return: it asks `inner` synchronously and delivers that image once. Synchronous requests
// are passed through as they are. For the picker's copies, which take the image that has
// come when the request returns.
class ImmediateImageManager : public platform::ImageManager {
 public:
  explicit ImmediateImageManager(std::shared_ptr<platform::ImageManager> inner) : inner_(std::move(inner)) {}
  int requestImageForAsset(const platform::AssetPtr& asset, kit::Size targetSize, int contentMode,
                           const platform::ImageRequestOptions& options,
                           platform::ImageResultHandler handler) override;
  void cancelImageRequest(int requestId) override { inner_->cancelImageRequest(requestId); }

 private:
  std::shared_ptr<platform::ImageManager> inner_;
};

}  // namespace desktop
