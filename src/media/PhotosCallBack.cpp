#include "media/PhotosCallBack.h"

#include "kit/Singleton.h"

namespace media {

std::shared_ptr<PhotosCallBack> PhotosCallBack::shared() { return kit::sharedInstance<PhotosCallBack>(); }

void PhotosCallBack::appendSection(const std::shared_ptr<PhotoSectionItem>& section) {
  PhotoSections all = appendIfAbsent(section).all;
  if (auto listener = itemdelegates.load()) listener->photoSectionsChanged(all);
}

void PhotosCallBack::addToTotalImagesArray(const platform::AssetPtr& asset) {
  std::lock_guard lock(totalMu_);
  totalImages_.appendIfAbsent(asset);
}

void PhotosCallBack::addToTotalImagesArray(const std::vector<platform::AssetPtr>& assets) {
  std::lock_guard lock(totalMu_);
  totalImages_.appendAllIfAbsent(assets);
}

std::vector<platform::AssetPtr> PhotosCallBack::totalImagesArray() const {
  std::lock_guard lock(totalMu_);
  return totalImages_.items();
}

}  // namespace media
