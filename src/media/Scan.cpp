#include "media/Scan.h"

#include <algorithm>

#include "kit/Console.h"
#include "kit/Dispatch.h"
#include "kit/Fatal.h"
#include "media/PhotosCallBack.h"
#include "media/PhotoSectionItem.h"
#include "media/VideosCallBackListner.h"
#include "platform/ImageManager.h"
#include "platform/Platform.h"

namespace media {
namespace {

using Counters = std::shared_ptr<ScanCounters>;

// The texts of one asset's creation date (or, lacking one, of the current time, read afresh
// for each text), each made with a new formatter in the device's zone.
struct AssetDates {
  std::string imageDate;
  std::string fullDateTime;
};

AssetDates datesOf(const platform::Asset& asset) {
  AssetDates dates;
  kit::Date first = asset.creationDate().value_or(kit::Date::now());
  dates.imageDate = kit::DateFormatter("dd-MM-yy").stringFromDate(first);
  kit::Date second = asset.creationDate().value_or(kit::Date::now());
  dates.fullDateTime = kit::DateFormatter("yyyy:MM:dd HH:mm:ss").stringFromDate(second);
  return dates;
}

platform::FetchResult fetchOldestFirst(platform::MediaType type) {
  platform::FetchOptions options;
  options.setSortDescriptors({{"creationDate", true}});
  return platform::photoLibrary().fetchAssetsWithMediaType(type, &options);
}

// The batch step of the grouping: the counter restarts at batchSize, which adds batchSize.
void countGroupingBatch(ScanCounters& c) {
  c.batchCounter = kit::checkedAdd(c.batchCounter, 1);
  if (c.batchCounter == c.batchSize) {
    c.batchCounter = 0;
    c.batchesDone = kit::checkedAdd(c.batchesDone, c.batchSize);
  }
}

// Walks `records` and hands each closed group (in order) to `close` and the last one to
// `finish`. Records with ImageTS 0 join no group; `joins(current, next)` decides membership
// against the group's latest member.
template <class Record, class Joins, class Close, class Finish>
void walkGroups(const std::vector<std::shared_ptr<Record>>& records, ScanCounters& counters, Joins joins,
                Close close, Finish finish) {
  std::vector<std::shared_ptr<Record>> group{records.front()};
  std::shared_ptr<Record> current = records.front();
  for (std::size_t i = 1; i < records.size(); ++i) {
    const auto& next = records[i];
    countGroupingBatch(counters);
    if (next->ImageTS == 0) continue;
    if (joins(*current, *next)) {
      group.push_back(next);
      current = next;
      continue;
    }
    close(std::move(group), *current);
    group = {next};
    current = next;
  }
  finish(std::move(group));
}

template <class Section, class Record>
std::shared_ptr<Section> makeSection(std::vector<std::shared_ptr<Record>> group, std::string header) {
  int n = static_cast<int>(group.size());
  group.front()->isSelected = false;  // the oldest is the copy that is kept
  return std::make_shared<Section>(std::move(header), std::move(group), false, n - 1, n);
}

}  // namespace

void startScan(int type) {
  if (type != 1 && type != 2) return;
  auto counters = std::make_shared<ScanCounters>();
  kit::globalQueue(kit::QoS::Background).async([type, counters] {
    if (type == 1) scanPhotos(counters);
    else scanVideos(counters);
  });
}

// ---- Photos ----

void scanPhotos(Counters counters) {
  platform::ImageRequestOptions unused;
  unused.setSynchronous(true);
  unused.setResizeMode(0);
  unused.setDeliveryMode(2);

  auto slot = PhotosCallBack::shared();
  platform::FetchResult fetch = fetchOldestFirst(platform::MediaType::Image);
  std::vector<std::shared_ptr<ImageSets>> records;
  const int count = fetch.count();
  if (count < 1) {
    if (auto listener = slot->itemdelegates.load()) listener->totalPhotosCount(0);
  } else {
    if (auto listener = slot->itemdelegates.load()) listener->totalPhotosCount(count);
    ScanCounters& c = *counters;
    for (int i = 0; i < count; ++i) {
      const platform::AssetPtr& asset = fetch.objectAtIndex(i);
      slot->addToTotalImagesArray(asset);
      AssetDates dates = datesOf(*asset);
      c.batchCounter = kit::checkedAdd(c.batchCounter, 1);
      c.progressFraction += 0.0f;
      c.processedCount = kit::checkedAdd(c.processedCount, 1);
      double duration = asset->duration();
      if (auto listener = slot->itemdelegates.load()) listener->photoScanProgress(i);
      if (c.batchCounter == c.batchSize) {
        c.batchesDone = kit::checkedAdd(c.batchesDone, 1);
        c.batchCounter = 0;
      }
      if (!dates.imageDate.empty()) {
        auto record = std::make_shared<ImageSets>(0, asset, dates.imageDate, dates.fullDateTime, duration);
        record->isSelected = true;
        records.push_back(std::move(record));
      }
    }
    if (auto listener = slot->itemdelegates.load()) listener->totalPhotosCount(count);
  }
  counters->batchCounter = 0;
  counters->batchSize = 2;
  slot->setSectionArray({});
  kit::globalQueue(kit::QoS::Background).async(
      [records = std::move(records), counters]() mutable { groupPhotos(std::move(records), counters); });
}

void groupPhotos(std::vector<std::shared_ptr<ImageSets>> records, Counters counters) {
  // A stable sort leaves records already in order where they are; the fetch is oldest first,
  // so it usually has nothing to do.
  auto earlier = [](const auto& a, const auto& b) { return a->ImageTS < b->ImageTS; };
  if (!std::is_sorted(records.begin(), records.end(), earlier)) {
    std::stable_sort(records.begin(), records.end(), earlier);
  }
  if (records.size() < 2) return;
  auto slot = PhotosCallBack::shared();

  auto joins = [](const ImageSets& current, const ImageSets& next) {
    std::int64_t sizeDelta = kit::checkedSubtract(next.filesize, current.filesize);
    if (sizeDelta == INT64_MIN) kit::fatal("arithmetic overflow in a size difference");
    return kit::checkedSubtract(next.ImageTS, current.ImageTS) < 5000 &&
           (sizeDelta < 0 ? -sizeDelta : sizeDelta) < 1000;
  };

  // A closed group: its header is the imageDate of its latest member; the whole list goes to
  // the main queue as a copy, for the listener's own list.
  auto close = [&slot](std::vector<std::shared_ptr<ImageSets>> group, const ImageSets& current) {
    if (group.size() < 2) return;
    auto section = makeSection<PhotoSectionItem>(std::move(group), current.imageDate);
    auto [appended, all] = slot->appendIfAbsent(section);
    if (!appended) return;
    if (auto listener = slot->itemdelegates.load()) {
      std::weak_ptr<PhotosCallBackDelegate> weak = listener;
      kit::mainQueue().async([weak, all = all] {
        if (auto l = weak.lock()) {
          l->setSectionArray1(all);
          l->reloadSections();
        }
      });
    }
  };

  // The last group: its header is its first member's imageDate, and it is reported after the
  // finished event, through appendSection.
  auto finish = [&slot](std::vector<std::shared_ptr<ImageSets>> group) {
    if (group.size() < 2) {
      if (auto listener = slot->itemdelegates.load()) listener->photoScanFinished();
      return;
    }
    std::string header = group.front()->imageDate;
    auto section = makeSection<PhotoSectionItem>(std::move(group), std::move(header));
    if (auto listener = slot->itemdelegates.load()) listener->photoScanFinished();
    slot->appendSection(section);
  };

  walkGroups(records, *counters, joins, close, finish);
}

// ---- Videos ----

void scanVideos(Counters counters) {
  platform::ImageRequestOptions unused;
  unused.setSynchronous(true);
  unused.setResizeMode(0);
  unused.setDeliveryMode(1);

  auto slot = VideosCallBackListner::shared();
  platform::FetchResult fetch = fetchOldestFirst(platform::MediaType::Video);
  std::vector<std::shared_ptr<VideoSets>> records;
  const int count = fetch.count();
  if (count < 1) {
    if (auto listener = slot->itemdelegates.load()) listener->totalVideosCount(0);
    kit::print("You got no Videos.");
  } else {
    if (auto listener = slot->itemdelegates.load()) listener->totalVideosCount(count);
    ScanCounters& c = *counters;
    for (int i = 0; i < count; ++i) {
      const platform::AssetPtr& asset = fetch.objectAtIndex(i);
      AssetDates dates = datesOf(*asset);
      c.progressFraction += 0.0f;
      c.processedCount = kit::checkedAdd(c.processedCount, 1);
      c.batchCounter = kit::checkedAdd(c.batchCounter, 1);
      double duration = asset->duration();
      if (c.batchCounter == c.batchSize) {
        c.batchCounter = 0;
        c.batchesDone = kit::checkedAdd(c.batchesDone, 1);
      }
      if (!dates.imageDate.empty()) {
        auto record = std::make_shared<VideoSets>(0, asset, dates.imageDate, dates.fullDateTime, duration);
        record->isSelected = true;
        records.push_back(std::move(record));
      }
    }
    if (auto listener = slot->itemdelegates.load()) listener->totalVideosCount(count);
  }
  counters->batchCounter = 0;
  counters->batchSize = 18;
  slot->setSectionArray({});
  kit::globalQueue(kit::QoS::Background).async(
      [records = std::move(records), counters]() mutable { groupVideos(std::move(records), counters); });
}

void groupVideos(std::vector<std::shared_ptr<VideoSets>> records, Counters counters) {
  // Moves a record ahead only when both its size and its duration are smaller: with every
  // size 0 nothing moves, and the list keeps its creation order.
  std::stable_sort(records.begin(), records.end(), [](const auto& next, const auto& previous) {
    return next->filesize < previous->filesize && next->duration < previous->duration;
  });
  if (records.size() < 2) return;
  auto slot = VideosCallBackListner::shared();

  auto joins = [](const VideoSets& current, const VideoSets& next) {
    return next.filesize == current.filesize && next.duration == current.duration;
  };
  auto close = [&slot](std::vector<std::shared_ptr<VideoSets>> group, const VideoSets& current) {
    if (group.size() < 2) return;
    slot->appendSection(makeSection<VideoSectionsItem>(std::move(group), current.imageDate));
  };
  // The last section comes before the finished event.
  auto finish = [&slot](std::vector<std::shared_ptr<VideoSets>> group) {
    if (group.size() >= 2) {
      std::string header = group.front()->imageDate;
      slot->appendSection(makeSection<VideoSectionsItem>(std::move(group), std::move(header)));
    }
    if (auto listener = slot->itemdelegates.load()) listener->videoScanFinished();
  };

  walkGroups(records, *counters, joins, close, finish);
}

kit::Date dateFromDayString(const std::string& text) {
  kit::Date result = kit::Date::now();
  kit::DateFormatter formatter("dd.MM.yy");
  formatter.setLocale("en_US_POSIX");
  if (!text.empty()) {
    if (auto parsed = formatter.dateFromString(text)) result = *parsed;
  }
  return kit::Date{result.timeIntervalSince1970};
}

}  // namespace media
