// The camera of the desktop. Whoever shows windows (the GUI) says whether a camera is
// connected and shows the camera view; this turns what the view wrote (a photo file or a
// movie file) into the capture's result.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "platform/Camera.h"

namespace desktop {

// What the camera view gave: the file of the photo it took or of the movie it recorded, or
// neither (both empty) when the person closed it.
struct CameraFiles {
  std::string photoPath;
  std::string moviePath;
};

class DesktopCamera : public platform::Camera {
 public:
  using Availability = std::function<bool()>;
  // Shows the camera view; calls its argument once, on the main thread, when the view closes.
  using Capture = std::function<void(std::function<void(CameraFiles)>)>;

  // Without handlers there is no camera. Any thread.
  void setHandlers(Availability available, Capture capture);
  bool isSourceTypeAvailable() override;
  // The result, on the main queue: the photo's picture (its file, a scratch file of the view,
  // is removed once read), or the movie's file URL, or nothing when the view was closed, when
  // another capture is still open, or when the photo cannot be read.
  void capture(std::function<void(platform::CaptureResult)> finished) override;

 private:
  std::mutex mu_;
  Availability available_;
  Capture capture_;
  // Whether a view is open; shared with the view's way back, which may outlive the camera.
  std::shared_ptr<std::atomic<bool>> capturing_ = std::make_shared<std::atomic<bool>>(false);
};

}  // namespace desktop
