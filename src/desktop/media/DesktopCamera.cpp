#include "desktop/media/DesktopCamera.h"

#include <cstdio>
#include <filesystem>

#include "desktop/media/JpegCodec.h"
#include "kit/Dispatch.h"
#include "platform/FileManager.h"

namespace desktop {

namespace {

platform::CaptureResult resultOf(const CameraFiles& files) {
  platform::CaptureResult result;
  if (!files.photoPath.empty()) {
    result.originalImage = JpegCodec().imageWithContentsOfFile(files.photoPath);
    if (!result.originalImage) std::fprintf(stderr, "solvanta: the photo %s could not be read\n", files.photoPath.c_str());
    std::error_code ignored;
    std::filesystem::remove(files.photoPath, ignored);
  } else if (!files.moviePath.empty()) {
    result.mediaURL = platform::fileURLWithPath(files.moviePath);
  }
  return result;
}

}  // namespace

void DesktopCamera::setHandlers(Availability available, Capture capture) {
  std::lock_guard lock(mu_);
  available_ = std::move(available);
  capture_ = std::move(capture);
}

bool DesktopCamera::isSourceTypeAvailable() {
  Availability available;
  {
    std::lock_guard lock(mu_);
    available = available_;
  }
  return available && available();
}

void DesktopCamera::capture(std::function<void(platform::CaptureResult)> finished) {
  Capture capture;
  {
    std::lock_guard lock(mu_);
    capture = capture_;
  }
  if (!capture || capturing_->exchange(true)) {
    kit::mainQueue().async([finished = std::move(finished)] { finished({}); });
    return;
  }
  capture([capturing = capturing_, finished = std::move(finished)](CameraFiles files) {
    capturing->store(false);
    kit::mainQueue().async([finished, result = resultOf(files)] { finished(result); });
  });
}

}  // namespace desktop
