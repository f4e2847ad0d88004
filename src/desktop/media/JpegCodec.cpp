#include "desktop/media/JpegCodec.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QBuffer>
#include <QByteArray>
#include <QImage>
#include <QImageWriter>
#include <cmath>

#include "kit/Dispatch.h"

namespace desktop {

std::optional<std::vector<std::uint8_t>> JpegCodec::jpegData(const kit::ImagePtr& image, double quality) {
  if (!image || image->rgba().empty() || image->pixelWidth() <= 0 || image->pixelHeight() <= 0) return std::nullopt;
  QImage rgba(image->rgba().data(), image->pixelWidth(), image->pixelHeight(), image->pixelWidth() * 4,
              QImage::Format_RGBA8888);
  QImage rgb = rgba.convertToFormat(QImage::Format_RGB888);
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  QImageWriter writer(&buffer, "jpeg");
  writer.setQuality(static_cast<int>(std::lround(std::clamp(quality, 0.0, 1.0) * 100)));
  if (!writer.write(rgb)) return std::nullopt;
  return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
}

kit::ImagePtr JpegCodec::imageWithContentsOfFile(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return nullptr;
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size <= 0 || st.st_size > (std::int64_t{1} << 30)) {
    ::close(fd);
    return nullptr;
  }
  QByteArray bytes;
  bytes.resize(static_cast<qsizetype>(st.st_size));
  qsizetype got = 0;
  while (got < bytes.size()) {
    ssize_t n = ::read(fd, bytes.data() + got, static_cast<std::size_t>(bytes.size() - got));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += n;
  }
  ::close(fd);
  if (got != bytes.size()) return nullptr;
  QImage decoded;
  if (!decoded.loadFromData(bytes) || decoded.isNull()) return nullptr;
  QImage rgba = decoded.convertToFormat(QImage::Format_RGBA8888);
  std::vector<std::uint8_t> px(static_cast<std::size_t>(rgba.width()) * rgba.height() * 4);
  for (int y = 0; y < rgba.height(); ++y) {
    std::memcpy(px.data() + static_cast<std::size_t>(y) * rgba.width() * 4, rgba.constScanLine(y),
                static_cast<std::size_t>(rgba.width()) * 4);
  }
  return kit::Image::fromPixels(rgba.width(), rgba.height(), std::move(px));
}

int ImmediateImageManager::requestImageForAsset(const platform::AssetPtr& asset, kit::Size targetSize, int contentMode,
                                                const platform::ImageRequestOptions& options,
                                                platform::ImageResultHandler handler) {
  if (options.synchronous) return inner_->requestImageForAsset(asset, targetSize, contentMode, options, std::move(handler));
  platform::ImageRequestOptions now = options;
  now.setSynchronous(true);
  return inner_->requestImageForAsset(asset, targetSize, contentMode, now, std::move(handler));
}

}  // namespace desktop
