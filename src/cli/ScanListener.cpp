#include "cli/ScanListener.h"

namespace cli {

void ScanListener::totalPhotosCount(std::int64_t count) { total_ = count; }

void ScanListener::photoScanProgress(std::int64_t index) { progress_ = index + 1; }

void ScanListener::photoSectionsChanged(const media::PhotoSections& sections) {
  setSectionArray1(sections);
}

void ScanListener::photoScanFinished() { finished_ = true; }

void ScanListener::setSectionArray1(media::PhotoSections sections) {
  std::lock_guard lock(mu_);
  if (sections.size() >= photos_.size()) photos_ = std::move(sections);
}

void ScanListener::totalVideosCount(std::int64_t count) { total_ = count; }

void ScanListener::setVideoSectionArray(media::VideoSections sections) {
  std::lock_guard lock(mu_);
  if (sections.size() >= videos_.size()) videos_ = std::move(sections);
}

void ScanListener::videoScanFinished() { finished_ = true; }

media::PhotoSections ScanListener::photoSections() const {
  std::lock_guard lock(mu_);
  return photos_;
}

media::VideoSections ScanListener::videoSections() const {
  std::lock_guard lock(mu_);
  return videos_;
}

}  // namespace cli
