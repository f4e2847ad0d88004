// SharedThumbnails: the desktop's shared thumbnail folder, as file managers keep it
// ($XDG_CACHE_HOME/thumbnails): "normal" pictures of at most 128x128 and "large" ones of at
// most 256x256, PNG files named after the MD5 of the file's URI, tagged with the file's URI,
// modification time (Thumb::URI, Thumb::MTime) and size (Thumb::Size). Thumbnails made by
// other programs are used when their tags match the file as it is now; ours serve them too.
// A thumbnail that does not read, or whose tags do not match, is ignored (and replaced by the
// next write). Thread-safe: it holds no state but its folder.
#pragma once

#include <QImage>

#include <cstdint>
#include <string>

namespace desktop {

struct ThumbnailSource {
  std::string path;          // absolute path of the photo or video
  std::int64_t fileSize = 0;
  std::int64_t mtimeSeconds = 0;
};

class SharedThumbnails {
 public:
  static constexpr int kNormal = 128;
  static constexpr int kLarge = 256;

  // Thumbnails under `folder` (normally $XDG_CACHE_HOME/thumbnails).
  explicit SharedThumbnails(std::string folder) : folder_(std::move(folder)) {}

  // The "file://" URI of an absolute path, with every byte outside the path characters of
  // RFC 3986 written as %XX.
  static std::string uriOf(const std::string& path);
  // Where the thumbnail of `path` of the flavor `size` (kNormal or kLarge) lives.
  std::string pathFor(const std::string& path, int size) const;

  // The thumbnail of `source` of flavor `size`, or a null image when there is none that reads
  // and whose URI, modification time and (when tagged) size match. Blocks on the disk.
  QImage read(const ThumbnailSource& source, int size) const;
  // Stores `picture` (the whole picture of `source`, upright) as its thumbnail of flavor
  // `size`, scaled down to fit size x size: written under a temporary name, mode 0600, then
  // renamed over the old one, in folders of mode 0700. False when the folder cannot be
  // written (nothing else happens then). Blocks on the disk.
  bool write(const ThumbnailSource& source, const QImage& picture, int size) const;

 private:
  std::string folder_;
};

}  // namespace desktop
