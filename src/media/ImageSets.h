// Records of one scan: one per photo (ImageSets) or video (VideoSets). A record is a reference
// object shared by the scan's working list, its section and the screen's section list, so the
// mark the screen sets is the mark the deletion reads. isSelected true means "marked for
// deletion".
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/PhotoLibrary.h"

namespace media {

// A record's mark: an atomic flag whose every change is counted in one process-wide epoch, so
// that a sum over many marks can be kept and redone only after some mark has changed. Any
// thread.
class MarkFlag {
 public:
  bool load() const { return value_.load(); }
  operator bool() const { return load(); }
  // Stores `v`; a change moves the epoch on, after the store.
  MarkFlag& operator=(bool v) {
    if (value_.exchange(v) != v) epoch_.fetch_add(1, std::memory_order_release);
    return *this;
  }
  // Moves on whenever any mark changes. A sum made after reading the epoch counts every change
  // that moved the epoch up to the value read.
  static std::uint64_t epoch() { return epoch_.load(std::memory_order_acquire); }

 private:
  std::atomic<bool> value_{false};
  static inline std::atomic<std::uint64_t> epoch_{0};
};

// The fields and the constructor both record kinds share.
class ScannedMedia {
 public:
  ScannedMedia() = delete;
  ScannedMedia(const ScannedMedia&) = delete;
  ScannedMedia& operator=(const ScannedMedia&) = delete;

  // Stores the values, then parses `fullDateTime` ("yyyy:MM:dd HH:mm:ss", the device's time
  // zone) into ImageTS: whole seconds since 1970 times 1000. A text that does not parse, or a
  // time out of range, is a fatal error.
  ScannedMedia(std::int64_t filesize, platform::AssetPtr imagePath, std::string imageDate,
               std::string fullDateTime, double duration);

  // Always 0: the scan passes the constant 0 and nothing writes it later.
  std::int64_t filesize;
  // The asset itself (in spite of the name, no path).
  platform::AssetPtr imagePath;
  // Creation date as "dd-MM-yy".
  std::string imageDate;
  // Creation time in milliseconds since 1970, a multiple of 1000.
  std::int64_t ImageTS = 0;
  // Creation date as "yyyy:MM:dd HH:mm:ss".
  std::string fullDateTime;
  // Never set true.
  bool isBestPhoto = false;
  // Set by the scan and the grouping on a background queue, then owned by the screen.
  MarkFlag isSelected;
  // Seconds; 0 for a photo.
  double duration;
};

class ImageSets : public ScannedMedia {
 public:
  using ScannedMedia::ScannedMedia;
};

class VideoSets : public ScannedMedia {
 public:
  using ScannedMedia::ScannedMedia;
};

}  // namespace media
