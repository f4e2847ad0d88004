// The video scan's listener slot and the protocol of its listener.
#pragma once

#include <cstdint>
#include <memory>

#include "media/PhotoSectionItem.h"
#include "media/SectionSlot.h"

namespace media {

// Events of a video scan, called on the scan's background thread. There is no progress event.
class VideosCallBackDelegate {
 public:
  virtual ~VideosCallBackDelegate() = default;
  // The fetch's count: before and after the first pass (once only for an empty library).
  virtual void totalVideosCount(std::int64_t count) = 0;
  // Assigns the listener's videoSectionArray, on the calling (background) thread.
  virtual void setVideoSectionArray(VideoSections sections) = 0;
  virtual void reloadSections() = 0;
  // The end of the grouping (never comes with fewer than two records).
  virtual void videoScanFinished() = 0;
};

class VideosCallBackListner : public SectionSlot<VideoSectionsItem, VideosCallBackDelegate> {
 public:
  static std::shared_ptr<VideosCallBackListner> shared();

  // Appends `section` unless already there; then, with a listener, assigns it the whole list
  // and calls its reloadSections, on the calling thread.
  void appendSection(const std::shared_ptr<VideoSectionsItem>& section);
};

}  // namespace media
