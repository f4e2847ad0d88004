// The command line's listener of the duplicate scans: it takes the scan slots as the scan
// screen does and keeps what the scan reports.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "media/PhotosCallBack.h"
#include "media/VideosCallBackListner.h"

namespace cli {

// Every operation may be called from any thread (the scan's background thread or the main
// queue) and reads are safe from any thread.
class ScanListener : public media::PhotosCallBackDelegate, public media::VideosCallBackDelegate {
 public:
  // --- media::PhotosCallBackDelegate ---
  void totalPhotosCount(std::int64_t count) override;
  void photoScanProgress(std::int64_t index) override;
  void photoSectionsChanged(const media::PhotoSections& sections) override;
  void photoScanFinished() override;
  void setSectionArray1(media::PhotoSections sections) override;
  void reloadSections() override {}

  // --- media::VideosCallBackDelegate ---
  void totalVideosCount(std::int64_t count) override;
  void setVideoSectionArray(media::VideoSections sections) override;
  void videoScanFinished() override;

  // The fetch's count (-1 until the scan reports it).
  std::int64_t total() const { return total_.load(); }
  // Assets of the first pass seen so far (photos only: videos report no progress).
  std::int64_t progress() const { return progress_.load(); }
  bool finished() const { return finished_.load(); }

  // The fullest section list heard. Lists reach the listener by two roads (the main queue's
  // copies and appendSection on the scan's thread) and may arrive out of order; within one
  // scan every list extends the previous ones, so the longest is the latest.
  media::PhotoSections photoSections() const;
  media::VideoSections videoSections() const;

 private:
  std::atomic<std::int64_t> total_{-1};
  std::atomic<std::int64_t> progress_{0};
  std::atomic<bool> finished_{false};
  mutable std::mutex mu_;
  media::PhotoSections photos_;
  media::VideoSections videos_;
};

}  // namespace cli
