// The photo scan's listener slot and the protocol of its listener.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "media/AssetList.h"
#include "media/PhotoSectionItem.h"
#include "media/SectionSlot.h"

namespace media {

// Events of a photo scan. The four scan events are called on the scan's background thread;
// the listener does its own hop to the main queue.
class PhotosCallBackDelegate {
 public:
  virtual ~PhotosCallBackDelegate() = default;
  // The fetch's count: before and after the first pass (once only for an empty library).
  virtual void totalPhotosCount(std::int64_t count) = 0;
  // The zero-based index of each asset of the first pass.
  virtual void photoScanProgress(std::int64_t index) = 0;
  // The whole section list, after appendSection.
  virtual void photoSectionsChanged(const PhotoSections& sections) = 0;
  // The end of the grouping (never comes with fewer than two records).
  virtual void photoScanFinished() = 0;

  // The listener's own section list and its table reload; the grouping's main-queue blocks
  // set the one and call the other, on the main queue.
  virtual void setSectionArray1(PhotoSections sections) = 0;
  virtual void reloadSections() = 0;
};

// The process-wide slot of the photo scan: the listener, the accumulated sections, and every
// photo asset any scan has seen.
class PhotosCallBack : public SectionSlot<PhotoSectionItem, PhotosCallBackDelegate> {
 public:
  static std::shared_ptr<PhotosCallBack> shared();

  // Appends `section` unless already there, then gives the listener, if any, the whole list
  // (photoSectionsChanged), on the calling thread.
  void appendSection(const std::shared_ptr<PhotoSectionItem>& section);

  // Appends `asset` unless an equal asset is already there. The list only grows, across
  // scans; nothing else reads it. Any thread.
  void addToTotalImagesArray(const platform::AssetPtr& asset);
  std::vector<platform::AssetPtr> totalImagesArray() const;
  // Appends each of `assets` in the same way, under one hold of the lock.
  void addToTotalImagesArray(const std::vector<platform::AssetPtr>& assets);

 private:
  mutable std::mutex totalMu_;
  AssetList totalImages_;
};

}  // namespace media
