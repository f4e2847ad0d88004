// Frames of video files by URL, decoded with the FFmpeg libraries.
#pragma once

#include <optional>
#include <string>

#include "platform/ImageManager.h"

namespace desktop {

class VideoFrameGenerator : public platform::AssetImageGenerator {
 public:
  // The full-size frame shown at `seconds` (see decodeVideoFrame) of the video at `url`: a
  // "file:" URL ("file:///path" or "file://localhost/path", percent-encoded) or a plain
  // path. Null with `error` filled (domain "frames") when the URL is no local file or the
  // file has no frame to decode. Any thread; blocks while decoding.
  kit::ImagePtr copyCGImageAtTime(const std::string& url, double seconds,
                                  platform::Error* error) override;
};

// The path a "file:" URL names, percent-decoded, or `url` itself when it has no scheme.
// Nothing for other schemes, remote hosts, malformed escapes or an encoded NUL.
std::optional<std::string> pathOfFileURL(const std::string& url);

}  // namespace desktop
