// Small media files for tests, benchmarks and the sample library: encoded images with chosen
// Exif capture times, HEIC images, short videos of exact lengths with a chosen creation time.
// Every function is thread-compatible (no shared state) and reports failure through its
// result; none throws.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace samplegen {

using Bytes = std::vector<std::uint8_t>;

// Exif capture fields; empty fields are left out of the file.
struct ExifFields {
  std::string dateTimeOriginal;    // "YYYY:MM:DD HH:MM:SS", local time of the camera
  std::string subSecTimeOriginal;  // "250" (fraction digits)
  std::string offsetTimeOriginal;  // "+02:00"
  // Exif orientation (1..8: how a viewer turns the stored picture for display); 0 leaves the
  // tag out.
  int orientation = 0;
};

// A width x height picture (a gradient varied by `seed`) encoded as "JPEG" or "PNG". Empty on
// failure.
Bytes encodeImage(const char* format, int width, int height, std::uint32_t seed);

// `image` (JPEG or PNG bytes) with `fields` written into its Exif. Empty on failure, with
// `error` filled when given.
Bytes withExif(const Bytes& image, const ExifFields& fields, std::string* error = nullptr);

// A HEIC image of width x height with `fields` as its Exif (none when null). Empty when this
// machine has no HEVC encoder or encoding fails, with `error` filled when given.
Bytes encodeHeic(int width, int height, std::uint32_t seed, const ExifFields* fields,
                 std::string* error = nullptr);

// An embedded thumbnail of a HEIC image: the picture of `seed` (which may differ from the
// main image's, so that a test can tell which of the two a reader decoded), scaled to fit a
// `size` x `size` box. `size` must be smaller than the image.
struct HeicThumbnail {
  int size = 0;
  std::uint32_t seed = 0;
};
// A HEIC image as above with `thumbnail` embedded.
Bytes encodeHeic(int width, int height, std::uint32_t seed, const ExifFields* fields,
                 const HeicThumbnail& thumbnail, std::string* error = nullptr);

struct VideoOptions {
  // Length in seconds; seconds * fps must be a whole number of frames.
  double seconds = 1.0;
  int fps = 10;
  int width = 64;
  int height = 48;
  // "creation_time" of the container, ISO 8601 in UTC ("2023-06-20T10:00:00.000000Z"); none
  // leaves it out.
  std::optional<std::string> creationTime;
  // Muxer name: "mov", "mp4" or "ipod" (.m4v).
  std::string container = "mov";
  // Degrees a player turns the stored frames clockwise for display (0, 90, 180 or 270),
  // written as the track's display matrix; 0 writes none.
  int rotation = 0;
  // Draws frame `index` into `rgba` (width x height pixels, RGBA, 8 bits each, rows top to
  // bottom, already sized); none: a moving test pattern.
  std::function<void(int index, std::vector<std::uint8_t>& rgba)> drawFrame;
  // Bits per second of the encoded video; 0: the encoder's default.
  std::int64_t bitRate = 0;
};

// Writes a video of `clip` to `path`. False on failure, with `error` filled when given.
bool writeVideo(const std::string& path, const VideoOptions& clip, std::string* error = nullptr);

// Writes `bytes` to `path` (replacing it) and, when given, sets its modification time to
// `mtime` seconds since 1970. False on failure, with `error` filled when given.
bool writeFile(const std::string& path, const Bytes& bytes, std::optional<double> mtime = {},
               std::string* error = nullptr);

// Sets the modification (and access) time of `path` to `seconds` since 1970.
bool setModificationTime(const std::string& path, double seconds);

// Seconds since 1970 of a UTC civil time.
double utcSeconds(int year, int month, int day, int hour, int minute, int second);

}  // namespace samplegen
