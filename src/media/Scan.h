// The duplicate scans. startScan(1) finds duplicate photos: photos taken less than five seconds
// after the previous member of their group. startScan(2) finds duplicate videos: neighbours in
// creation order with exactly the same duration. No pixel or byte is compared.
//
// Each scan runs two passes, one after the other, on the background global queue: the first
// makes a record per asset and reports counts (and, for photos, progress) to the slot's
// listener; the second groups the records into sections and reports them. A scan cannot be
// cancelled, does not notice that its listener's screen has gone, and may overlap another.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kit/Date.h"
#include "media/ImageSets.h"

namespace media {

// The five counters of one scan. The passes keep them up to date and nothing else reads them.
struct ScanCounters {
  float progressFraction = 0.0f;  // receives 0.0 per asset
  std::int64_t batchCounter = 0;
  std::int64_t processedCount = 0;
  std::int64_t batchSize = 5;
  std::int64_t batchesDone = 0;
};

// 1: the photo scan; 2: the video scan; anything else does nothing. Returns at once.
// Main thread.
void startScan(int type);

// The passes, run by startScan on the background global queue (exposed for tests).
void scanPhotos(std::shared_ptr<ScanCounters> counters);
void groupPhotos(std::vector<std::shared_ptr<ImageSets>> records, std::shared_ptr<ScanCounters> counters);
void scanVideos(std::shared_ptr<ScanCounters> counters);
void groupVideos(std::vector<std::shared_ptr<VideoSets>> records, std::shared_ptr<ScanCounters> counters);

// The current time, replaced by the date of `text` ("dd.MM.yy") when it is not empty and
// parses.
kit::Date dateFromDayString(const std::string& text);

}  // namespace media
