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

// What the grouping compares of a record, copied out of it once. The fields never change
// after construction, so the walk reads this compact array instead of every record.
struct RecordKey {
  std::int64_t ImageTS;
  std::int64_t filesize;
  double duration;
};

template <class Record>
RecordKey keyOf(const Record& r) {
  return {r.ImageTS, r.filesize, r.duration};
}

template <class Record>
std::vector<RecordKey> keysOf(const std::vector<std::shared_ptr<Record>>& records) {
  std::vector<RecordKey> keys;
  keys.reserve(records.size());
  for (const auto& r : records) keys.push_back(keyOf(*r));
  return keys;
}

// Sorts records (and their keys) stably by `before`; a list already in order stays as it is.
template <class Record, class Before>
void stableSortRecords(std::vector<std::shared_ptr<Record>>& records, std::vector<RecordKey>& keys, Before before) {
  if (std::is_sorted(keys.begin(), keys.end(), before)) return;
  std::vector<std::size_t> order(records.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return before(keys[a], keys[b]); });
  std::vector<std::shared_ptr<Record>> sortedRecords;
  std::vector<RecordKey> sortedKeys;
  sortedRecords.reserve(records.size());
  sortedKeys.reserve(keys.size());
  for (std::size_t i : order) {
    sortedRecords.push_back(std::move(records[i]));
    sortedKeys.push_back(keys[i]);
  }
  records = std::move(sortedRecords);
  keys = std::move(sortedKeys);
}

// Walks `records` and hands each closed group (in order) to `close` and the last one to
// `finish`; a group's latest member is its last. Records with ImageTS 0 join no group;
// `joins(current, next)` decides membership against the group's latest member. The records
// are moved into their groups.
template <class Record, class Joins, class Close, class Finish>
void walkGroups(std::vector<std::shared_ptr<Record>>& records, const std::vector<RecordKey>& keys,
                ScanCounters& counters, Joins joins, Close close, Finish finish) {
  std::vector<std::shared_ptr<Record>> group;
  group.push_back(std::move(records.front()));
  std::size_t current = 0;
  for (std::size_t i = 1; i < records.size(); ++i) {
    countGroupingBatch(counters);
    if (keys[i].ImageTS == 0) continue;
    if (joins(keys[current], keys[i])) {
      group.push_back(std::move(records[i]));
      current = i;
      continue;
    }
    close(std::move(group));
    group.clear();
    group.push_back(std::move(records[i]));
    current = i;
  }
  finish(std::move(group));
}

template <class Section, class Record>
std::shared_ptr<Section> makeSection(std::vector<std::shared_ptr<Record>> group, std::string header) {
  int n = static_cast<int>(group.size());
  group.front()->isSelected = false;  // the oldest is the copy that is kept
  return std::make_shared<Section>(std::move(header), std::move(group), false, n - 1, n);
}

// The grouping of photos, with the records' keys already taken.
void groupPhotoRecords(std::vector<std::shared_ptr<ImageSets>> records, std::vector<RecordKey> keys, Counters counters);

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
  std::vector<RecordKey> keys;
  const int count = fetch.count();
  if (count < 1) {
    if (auto listener = slot->itemdelegates.load()) listener->totalPhotosCount(0);
  } else {
    if (auto listener = slot->itemdelegates.load()) listener->totalPhotosCount(count);
    records.reserve(static_cast<std::size_t>(count));
    keys.reserve(static_cast<std::size_t>(count));
    // Every fetched asset joins the slot's list, as the pass below meets it.
    slot->addToTotalImagesArray(fetch.assets());
    ScanCounters& c = *counters;
    for (int i = 0; i < count; ++i) {
      const platform::AssetPtr& asset = fetch.objectAtIndex(i);
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
        keys.push_back(keyOf(*record));
        records.push_back(std::move(record));
      }
    }
    if (auto listener = slot->itemdelegates.load()) listener->totalPhotosCount(count);
  }
  counters->batchCounter = 0;
  counters->batchSize = 2;
  slot->setSectionArray({});
  kit::globalQueue(kit::QoS::Background).async([records = std::move(records), keys = std::move(keys), counters]() mutable {
    groupPhotoRecords(std::move(records), std::move(keys), counters);
  });
}

void groupPhotos(std::vector<std::shared_ptr<ImageSets>> records, Counters counters) {
  std::vector<RecordKey> keys = keysOf(records);
  groupPhotoRecords(std::move(records), std::move(keys), std::move(counters));
}

namespace {

void groupPhotoRecords(std::vector<std::shared_ptr<ImageSets>> records, std::vector<RecordKey> keys, Counters counters) {
  stableSortRecords(records, keys, [](const RecordKey& a, const RecordKey& b) { return a.ImageTS < b.ImageTS; });
  if (records.size() < 2) return;
  auto slot = PhotosCallBack::shared();

  auto joins = [](const RecordKey& current, const RecordKey& next) {
    std::int64_t sizeDelta = kit::checkedSubtract(next.filesize, current.filesize);
    if (sizeDelta == INT64_MIN) kit::fatal("arithmetic overflow in a size difference");
    return kit::checkedSubtract(next.ImageTS, current.ImageTS) < 5000 &&
           (sizeDelta < 0 ? -sizeDelta : sizeDelta) < 1000;
  };

  // A closed group: its header is the imageDate of its latest member; the whole list goes to
  // the main queue as a copy, for the listener's own list.
  auto close = [&slot](std::vector<std::shared_ptr<ImageSets>> group) {
    if (group.size() < 2) return;
    std::string header = group.back()->imageDate;
    auto section = makeSection<PhotoSectionItem>(std::move(group), std::move(header));
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

  walkGroups(records, keys, *counters, joins, close, finish);
}

}  // namespace

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
    records.reserve(static_cast<std::size_t>(count));
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
  std::vector<RecordKey> keys = keysOf(records);
  // Moves a record ahead only when both its size and its duration are smaller: with every
  // size 0 nothing moves, and the list keeps its creation order.
  stableSortRecords(records, keys, [](const RecordKey& next, const RecordKey& previous) {
    return next.filesize < previous.filesize && next.duration < previous.duration;
  });
  if (records.size() < 2) return;
  auto slot = VideosCallBackListner::shared();

  auto joins = [](const RecordKey& current, const RecordKey& next) {
    return next.filesize == current.filesize && next.duration == current.duration;
  };
  auto close = [&slot](std::vector<std::shared_ptr<VideoSets>> group) {
    if (group.size() < 2) return;
    std::string header = group.back()->imageDate;
    slot->appendSection(makeSection<VideoSectionsItem>(std::move(group), std::move(header)));
  };
  // The last section comes before the finished event.
  auto finish = [&slot](std::vector<std::shared_ptr<VideoSets>> group) {
    if (group.size() >= 2) {
      std::string header = group.front()->imageDate;
      slot->appendSection(makeSection<VideoSectionsItem>(std::move(group), std::move(header)));
    }
    if (auto listener = slot->itemdelegates.load()) listener->videoScanFinished();
  };

  walkGroups(records, keys, *counters, joins, close, finish);
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
