#include "gui/ImageRegistry.h"

namespace gui {

ImageRegistry& ImageRegistry::shared() {
  static ImageRegistry registry;
  return registry;
}

QString ImageRegistry::urlFor(const kit::ImagePtr& image) {
  if (!image || image->isEmpty()) return {};
  if (!image->name().empty()) return "image://kit/named/" + QString::fromStdString(image->name());
  std::lock_guard lock(mu_);
  auto it = ids_.find(image.get());
  if (it != ids_.end() && images_.count(it->second)) return "image://kit/pixels/" + QString::number(it->second);
  int id = next_++;
  ids_[image.get()] = id;
  images_[id] = image;
  pixelBytes_ += image->rgba().size();
  while (images_.size() > kMaxPixelImages ||
         (pixelBytes_ > kMaxPixelBytes && images_.size() > kMinPixelImages)) {
    pixelBytes_ -= images_.begin()->second->rgba().size();
    ids_.erase(images_.begin()->second.get());
    images_.erase(images_.begin());
  }
  return "image://kit/pixels/" + QString::number(id);
}

QImage ImageRegistry::imageFor(const QString& id) {
  if (id.startsWith("named/")) {
    QString name = id.mid(6);
    QImage named(":/assets/images/" + name + ".png");
    return named;
  }
  if (id.startsWith("pixels/")) {
    kit::ImagePtr image;
    {
      std::lock_guard lock(mu_);
      auto it = images_.find(id.mid(7).toInt());
      if (it == images_.end()) return {};
      image = it->second;
    }
    QImage wrapped(image->rgba().data(), image->pixelWidth(), image->pixelHeight(), image->pixelWidth() * 4,
                   QImage::Format_RGBA8888);
    return wrapped.copy();
  }
  return {};
}

QImage KitImageProvider::requestImage(const QString& id, QSize* size, const QSize& requestedSize) {
  QImage image = ImageRegistry::shared().imageFor(id);
  if (image.isNull()) {
    image = QImage(1, 1, QImage::Format_RGBA8888);
    image.fill(Qt::transparent);
  }
  if (requestedSize.isValid() && !requestedSize.isEmpty()) {
    image = image.scaled(requestedSize, Qt::KeepAspectRatio, Qt::SmoothTransformation);
  }
  if (size) *size = image.size();
  return image;
}

}  // namespace gui
