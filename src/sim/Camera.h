// The simulated camera and image files. The camera is there or not, and each capture gives
// what the test queued (a photo, a movie written to a capture file, nothing). Image files are
// a small stand-in for JPEG: the JPEG start marker, the size, the pixels, the end marker.
#pragma once

#include <deque>
#include <mutex>
#include <string>

#include "platform/Camera.h"
#include "platform/FileExport.h"
#include "platform/ImageCodec.h"

namespace sim {

class ImageCodec : public platform::ImageCodec {
 public:
  // FF D8 FF E0, width and height (4 bytes each, big-endian), the RGBA pixels, FF D9. The
  // quality is not kept.
  std::optional<std::vector<std::uint8_t>> jpegData(const kit::ImagePtr& image, double quality) override;
  // Reads the file through the installed file manager; anything not in the format above gives
  // null.
  kit::ImagePtr imageWithContentsOfFile(const std::string& path) override;
  static kit::ImagePtr decode(const std::vector<std::uint8_t>& data);
};

class Camera : public platform::Camera {
 public:
  enum class Capture { Photo, Video, Nothing, UnreadableVideo };
  void setAvailable(bool available);
  // What the next captures give, in order; when none is queued, a photo.
  void queueCaptures(std::deque<Capture> captures);
  int captureCount() const;

  bool isSourceTypeAvailable() override;
  // Queues `finished` on the main queue. A movie is written first as
  // "/sim/tmp/capture-<n>.MOV" through the installed file manager; an unreadable one is a URL
  // with no file behind it.
  void capture(std::function<void(platform::CaptureResult)> finished) override;

 private:
  mutable std::mutex mu_;
  bool available_ = true;
  std::deque<Capture> queue_;
  int captures_ = 0;
};

// The folder question of "Save to…": answered at once with the folder set here, or declined.
class FileExport : public platform::FileExport {
 public:
  // The folder chosen ("/sim/Exports" at first); nothing: the person declines.
  void setChoice(std::optional<std::string> folder);
  int questionCount() const;
  void chooseFolder(int count, std::function<void(std::optional<std::string>)> chosen) override;

 private:
  mutable std::mutex mu_;
  std::optional<std::string> choice_ = "/sim/Exports";
  int questions_ = 0;
};

}  // namespace sim
