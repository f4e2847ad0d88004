#include "shared/PhotoPermission.h"

#include "kit/Dispatch.h"
#include "kit/Singleton.h"
#include "platform/Platform.h"

namespace shared {
namespace {

const char* const kPermissionName = "STORAGE";

void report(bool granted) {
  if (auto delegate = PhotosPermissionCallback::shared()->itemdelegates.load()) {
    delegate->permissionResult(granted, kPermissionName);
  }
}

}  // namespace

std::shared_ptr<PhotosPermissionCallback> PhotosPermissionCallback::shared() {
  return kit::sharedInstance<PhotosPermissionCallback>();
}

bool checkPhotoPermission() {
  switch (static_cast<int>(platform::photoLibrary().authorizationStatus())) {
    case 0:
      kit::mainQueue().async([] {
        platform::photoLibrary().requestAuthorization([](platform::AuthorizationStatus status) {
          report(status == platform::AuthorizationStatus::Authorized);
        });
      });
      return false;
    case 1:
    case 2:
      report(false);
      return false;
    case 3:
      report(true);
      return true;
    default:
      return false;
  }
}

}  // namespace shared
