// Photos: Qt's image readers, and libheif for HEIF, which Qt cannot read.
#include <fcntl.h>
#include <unistd.h>

#include <QFile>
#include <QImage>
#include <QImageIOHandler>
#include <QImageReader>
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "desktop/media/MediaDecoding.h"
#include "desktop/library/MediaReader.h"

#include <libheif/heif.h>

namespace desktop {
namespace {

void fail(std::string* error, std::string message) {
  if (error) *error = std::move(message);
}

// The short format name of the file's content ("heif", "jpeg", ...); empty when unknown.
bool sniffFormat(const std::string& path, std::string* format, std::string* error) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    fail(error, "cannot open " + path + ": " + std::strerror(errno));
    return false;
  }
  std::uint8_t head[256];
  ssize_t n;
  do {
    n = ::read(fd, head, sizeof head);
  } while (n < 0 && errno == EINTR);
  int readError = errno;
  ::close(fd);
  if (n < 0) {
    fail(error, "cannot read " + path + ": " + std::strerror(readError));
    return false;
  }
  sniffMediaType(head, static_cast<std::size_t>(n), format);
  return true;
}

kit::ImagePtr decodeWithQt(const std::string& path, kit::Size target, int contentMode,
                           std::string* error) {
  QImageReader reader(QFile::decodeName(QByteArray::fromStdString(path)));
  reader.setDecideFormatFromContent(true);
  reader.setAutoTransform(true);
  QSize stored = reader.size();
  if (stored.isValid() && !stored.isEmpty()) {
    // Readers that know the size up front decode straight to the scaled size (JPEG at a
    // fraction of the work). The scaled size is of the stored picture, before it is turned.
    bool turned = reader.transformation() & QImageIOHandler::TransformationRotate90;
    PixelSize shown = turned ? PixelSize{stored.height(), stored.width()}
                             : PixelSize{stored.width(), stored.height()};
    PixelSize want = scaledPixelSize(shown, target, contentMode);
    if (want != shown) {
      reader.setScaledSize(turned ? QSize(want.height, want.width) : QSize(want.width, want.height));
    }
  }
  QImage image = reader.read();
  if (image.isNull()) {
    fail(error, "cannot decode " + path + ": " + reader.errorString().toStdString());
    return nullptr;
  }
  // Readers that cannot scale while decoding, or cannot tell the size first, are scaled now.
  return scaledTo(image, scaledPixelSize({image.width(), image.height()}, target, contentMode));
}

void initialiseHeif() {
  static std::once_flag once;
  std::call_once(once, [] { heif_init(nullptr); });
}

template <class T, void (*Release)(const T*)>
struct HeifDeleter {
  void operator()(T* p) const { Release(p); }
};

using HeifHandle =
    std::unique_ptr<heif_image_handle, HeifDeleter<heif_image_handle, heif_image_handle_release>>;

// The smallest thumbnail embedded with `main` that is at least `want` in both directions (sizes
// as shown, after the images' rotations), or null.
HeifHandle thumbnailFor(const heif_image_handle* main, PixelSize want) {
  int count = heif_image_handle_get_number_of_thumbnails(main);
  if (count <= 0) return nullptr;
  std::vector<heif_item_id> ids(static_cast<std::size_t>(count));
  count = heif_image_handle_get_list_of_thumbnail_IDs(main, ids.data(), count);
  HeifHandle best;
  for (int i = 0; i < count; ++i) {
    heif_image_handle* raw = nullptr;
    if (heif_image_handle_get_thumbnail(main, ids[static_cast<std::size_t>(i)], &raw).code !=
        heif_error_Ok) {
      continue;
    }
    HeifHandle candidate(raw);
    int width = heif_image_handle_get_width(candidate.get());
    if (width < want.width || heif_image_handle_get_height(candidate.get()) < want.height) continue;
    if (!best || width < heif_image_handle_get_width(best.get())) best = std::move(candidate);
  }
  return best;
}

kit::ImagePtr decodeHeif(const std::string& path, kit::Size target, int contentMode,
                         std::string* error) {
  initialiseHeif();
  std::unique_ptr<heif_context, void (*)(heif_context*)> context(heif_context_alloc(),
                                                                 heif_context_free);
  heif_error err = heif_context_read_from_file(context.get(), path.c_str(), nullptr);
  heif_image_handle* rawHandle = nullptr;
  if (err.code == heif_error_Ok) {
    err = heif_context_get_primary_image_handle(context.get(), &rawHandle);
  }
  HeifHandle handle(rawHandle);
  // Sizes of handles are as shown: after the image's rotation.
  PixelSize want;
  if (handle) {
    want = scaledPixelSize({heif_image_handle_get_width(handle.get()),
                            heif_image_handle_get_height(handle.get())},
                           target, contentMode);
  }
  // Cameras embed a small version of the photo; when it is large enough, it saves decoding
  // the whole picture.
  HeifHandle thumbnail = handle ? thumbnailFor(handle.get(), want) : nullptr;
  heif_image* rawImage = nullptr;
  if (err.code == heif_error_Ok) {
    // The decoder applies the image's own rotation and mirroring.
    err = heif_decode_image(thumbnail ? thumbnail.get() : handle.get(), &rawImage,
                            heif_colorspace_RGB, heif_chroma_interleaved_RGBA, nullptr);
  }
  std::unique_ptr<heif_image, HeifDeleter<heif_image, heif_image_release>> image(rawImage);
  if (err.code != heif_error_Ok) {
    fail(error, "cannot decode " + path + ": " + err.message);
    return nullptr;
  }
  int stride = 0;
  const std::uint8_t* plane =
      heif_image_get_plane_readonly(image.get(), heif_channel_interleaved, &stride);
  int width = heif_image_get_width(image.get(), heif_channel_interleaved);
  int height = heif_image_get_height(image.get(), heif_channel_interleaved);
  if (!plane || width <= 0 || height <= 0) {
    fail(error, "cannot decode " + path + ": no picture in the file");
    return nullptr;
  }
  // A view of the decoder's plane; scaledTo copies it out.
  return scaledTo(QImage(plane, width, height, stride, QImage::Format_RGBA8888), want);
}

}  // namespace

kit::ImagePtr toKitImage(const QImage& image) {
  QImage rgba = image.convertToFormat(QImage::Format_RGBA8888);
  const int width = rgba.width();
  const int height = rgba.height();
  const std::size_t row = static_cast<std::size_t>(width) * 4;
  std::vector<std::uint8_t> pixels(row * static_cast<std::size_t>(height));
  for (int y = 0; y < height; ++y) {
    std::memcpy(pixels.data() + row * static_cast<std::size_t>(y), rgba.constScanLine(y), row);
  }
  return kit::Image::fromPixels(width, height, std::move(pixels));
}

kit::ImagePtr scaledTo(const QImage& image, PixelSize size) {
  if (size == PixelSize{image.width(), image.height()}) return toKitImage(image);
  return toKitImage(
      image.scaled(size.width, size.height, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
}

PixelSize scaledPixelSize(PixelSize source, kit::Size target, int contentMode) {
  if (source.width <= 0 || source.height <= 0 || !(target.width > 0) || !(target.height > 0)) {
    return source;
  }
  double sx = target.width / source.width;
  double sy = target.height / source.height;
  double scale = contentMode == 1 ? std::max(sx, sy) : std::min(sx, sy);
  if (scale >= 1.0) return source;
  auto side = [scale](int pixels) {
    return std::max(1, static_cast<int>(std::lround(pixels * scale)));
  };
  return {side(source.width), side(source.height)};
}

QImage toQImage(const kit::Image& image) {
  QImage wrapped(image.rgba().data(), image.pixelWidth(), image.pixelHeight(), image.pixelWidth() * 4,
                 QImage::Format_RGBA8888);
  return wrapped.copy();
}

kit::ImagePtr decodePhotoFile(const std::string& path, kit::Size target, int contentMode,
                              std::string* error) {
  std::string format;
  if (!sniffFormat(path, &format, error)) return nullptr;
  if (format == "heif") return decodeHeif(path, target, contentMode, error);
  return decodeWithQt(path, target, contentMode, error);
}

}  // namespace desktop
