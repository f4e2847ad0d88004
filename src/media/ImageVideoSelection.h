// The selection holder of the gallery import, and three slots that are declared and never
// made.
#pragma once

#include <memory>

#include "kit/AtomicShared.h"
#include "kit/CowArray.h"
#include "platform/PhotoLibrary.h"

namespace media {

// The gallery import's listener (its operations come with the import screen).
class ImageVideoSelectionDelegate {
 public:
  virtual ~ImageVideoSelectionDelegate() = default;
};

class ImageVideoSelection {
 public:
  static std::shared_ptr<ImageVideoSelection> shared();
  kit::AtomicShared<ImageVideoSelectionDelegate> itemdelegates;
  // Main thread only.
  kit::CowArray<platform::AssetPtr> selectionArray;
};

class PhotosCountSelectionDelegate {
 public:
  virtual ~PhotosCountSelectionDelegate() = default;
};
class VideoCountSelectionDelegate {
 public:
  virtual ~VideoCountSelectionDelegate() = default;
};
class TotalPhotosListenerDelegate {
 public:
  virtual ~TotalPhotosListenerDelegate() = default;
};

// Declared and never instantiated.
class PhotosCountSelection {
 public:
  std::shared_ptr<PhotosCountSelectionDelegate> itemdelegates;
};
class VideoCountSelection {
 public:
  std::shared_ptr<VideoCountSelectionDelegate> itemdelegates;
};
class TotalPhotosCallBackListener {
 public:
  std::shared_ptr<TotalPhotosListenerDelegate> itemdelegates;
};

}  // namespace media
