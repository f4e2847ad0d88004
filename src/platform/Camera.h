// The camera as an image picker: whether the device has one, and one capture at a time, which
// gives a photo or a movie file.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "kit/Image.h"

namespace platform {

// What one capture gave: the photo (UIImagePickerControllerOriginalImage), or the file of the
// recorded movie (UIImagePickerControllerMediaURL, a file URL); neither when the person
// closed the camera.
struct CaptureResult {
  kit::ImagePtr originalImage;
  std::optional<std::string> mediaURL;
};

class Camera {
 public:
  virtual ~Camera() = default;
  // Whether a camera can be used now. Main thread.
  virtual bool isSourceTypeAvailable() = 0;
  // Opens the camera for photos and movies; `finished` runs once on the main queue with what
  // the person captured. Main thread.
  virtual void capture(std::function<void(CaptureResult)> finished) = 0;
  // Closes a camera that is open without capturing (its `finished` gets an empty result).
  virtual void cancel() {}
};

}  // namespace platform
