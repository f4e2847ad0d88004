// Image sources for QML: named images of the app's assets and decoded kit images, under
// "image://kit/..." URLs, served by KitImageProvider. Thread-safe.
#pragma once

#include <QImage>
#include <QQuickImageProvider>
#include <QString>

#include <map>
#include <memory>
#include <mutex>

#include "kit/Image.h"

namespace gui {

class ImageRegistry {
 public:
  static ImageRegistry& shared();

  // The URL of `image`: "" for none or the empty image, "image://kit/named/<name>" for a named
  // one, "image://kit/pixels/<n>" for decoded pixels (kept until `kMaxPixelImages` newer ones
  // have been registered, or until newer ones hold more than `kMaxPixelBytes`).
  QString urlFor(const kit::ImagePtr& image);
  // The picture behind a URL's id ("named/check", "pixels/12"); a null image when unknown.
  QImage imageFor(const QString& id);

  static constexpr std::size_t kMaxPixelImages = 512;
  // Pixels kept are also bounded in bytes (a playing video registers a picture per frame),
  // though the newest kMinPixelImages are always kept.
  static constexpr std::size_t kMaxPixelBytes = std::size_t{96} << 20;
  static constexpr std::size_t kMinPixelImages = 64;

 private:
  std::mutex mu_;
  std::map<const kit::Image*, int> ids_;
  std::map<int, kit::ImagePtr> images_;
  std::size_t pixelBytes_ = 0;
  int next_ = 1;
};

// Serves "image://kit/..." for QML.
class KitImageProvider : public QQuickImageProvider {
 public:
  KitImageProvider() : QQuickImageProvider(QQuickImageProvider::Image) {}
  QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;
};

}  // namespace gui
