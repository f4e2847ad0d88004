// The photo-library permission gate and the slot that carries its result.
#pragma once

#include <memory>
#include <string>

#include "kit/AtomicShared.h"

namespace shared {

// Hears the result of a permission check. Called on whatever queue the check answers on.
class PhotosPermissionCallbackDelegate {
 public:
  virtual ~PhotosPermissionCallbackDelegate() = default;
  // `permissionName` is always "STORAGE".
  virtual void permissionResult(bool granted, const std::string& permissionName) = 0;
};

// The process-wide slot of the permission listener: one strong delegate, replaced by each new
// assignment and never cleared. Written on the main queue, read from any queue.
class PhotosPermissionCallback {
 public:
  static std::shared_ptr<PhotosPermissionCallback> shared();

  kit::AtomicShared<PhotosPermissionCallbackDelegate> itemdelegates;
};

// Checks the photo-library authorization and reports it to the slot's delegate, if any:
//   0 (not determined): asks the user from the main queue; the answer reaches the delegate
//     (granted only for 3); returns false now;
//   1, 2: the delegate hears false at once; returns false;
//   3: the delegate hears true at once; returns true;
//   anything else (4, limited): no call; returns false.
bool checkPhotoPermission();

}  // namespace shared
