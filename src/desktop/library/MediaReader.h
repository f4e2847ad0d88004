// Reading what the photo library needs to know of one file: whether it is a photo or a video
// (from its content), when it was taken, how long it runs and how large it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/Types.h"

namespace desktop {

// How a capture time is anchored.
enum class TimeBase : int {
  None = 0,      // the file carries no capture time
  Local = 1,     // the camera's wall clock, zone unknown: seconds of that civil time as if UTC
  Absolute = 2,  // an instant: seconds since 1970 UTC
};

struct MediaInfo {
  // Unknown: not a photo or video this library shows.
  platform::MediaType type = platform::MediaType::Unknown;
  // Short name of the format found ("jpeg", "png", "gif", "webp", "tiff", "heif", "quicktime").
  std::string format;
  TimeBase timeBase = TimeBase::None;
  double captureTime = 0;
  // Seconds; 0 for a photo.
  double duration = 0;
  int width = 0;
  int height = 0;
  // Why the metadata could not be read in full ("damaged Exif: ..."); empty when all is well.
  // A file with a problem keeps its type (its capture time falls back to the file's).
  std::string problem;
  // True when the file itself could not be opened or read; then nothing else is known and
  // the result must not be kept, since access may change without the file changing.
  bool unreadable = false;
};

// Reads media files. Implementations are safe to call from several threads at once.
class MediaReader {
 public:
  virtual ~MediaReader() = default;
  // Reads the regular file at `path`. Never throws; never blocks on special files (the file
  // is opened without following a symbolic link and must be a regular file).
  virtual MediaInfo read(const std::string& path) = 0;
};

// The reader on the real libraries: Exif of images through the image-metadata library
// (JPEG, PNG, WebP, TIFF, HEIF/HEIC), container metadata of videos through the FFmpeg
// libraries.
class FileMediaReader : public MediaReader {
 public:
  FileMediaReader();
  MediaInfo read(const std::string& path) override;
};

// The media type of content starting with `head` (the first bytes of a file; 64 suffice for
// every format but ISO media with long brand lists, which wants up to 256). `format` receives
// the format's short name when given.
platform::MediaType sniffMediaType(const std::uint8_t* head, std::size_t size,
                                   std::string* format = nullptr);

// Capture time of Exif texts: DateTimeOriginal ("YYYY:MM:DD HH:MM:SS"), SubSecTimeOriginal
// (fraction digits, may be empty) and OffsetTimeOriginal ("+HH:MM", may be empty). False when
// the date text is malformed or out of range (a blank or zeroed date counts as malformed).
bool parseExifCaptureTime(const std::string& dateTime, const std::string& subSec,
                          const std::string& offset, TimeBase* base, double* seconds);

// Seconds since 1970 of an ISO 8601 UTC stamp as containers write it
// ("2023-06-20T10:00:00.000000Z"; the fraction and the "Z" are optional). False when malformed.
bool parseContainerTime(const std::string& text, double* seconds);

}  // namespace desktop
