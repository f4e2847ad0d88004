#include "media/Scan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <type_traits>

#include "kit/Console.h"
#include "media/PhotosCallBack.h"
#include "media/VideosCallBackListner.h"
#include "sim/World.h"

namespace {

static_assert(!std::is_default_constructible_v<media::ImageSets>);
static_assert(!std::is_default_constructible_v<media::VideoSets>);
static_assert(!std::is_default_constructible_v<media::PhotoSectionItem>);
static_assert(!std::is_default_constructible_v<media::VideoSectionsItem>);

constexpr double T0 = sim::Environment::kDefaultStart;

// Listens to both scans like the screen does, and records what it hears, in order, with the
// thread it heard it on.
class Recorder : public media::PhotosCallBackDelegate, public media::VideosCallBackDelegate {
 public:
  void totalPhotosCount(std::int64_t n) override { log("total " + std::to_string(n)); }
  void photoScanProgress(std::int64_t i) override { log("progress " + std::to_string(i)); }
  void photoSectionsChanged(const media::PhotoSections& s) override {
    log("changed " + std::to_string(s.size()));
    keep(s);
  }
  void photoScanFinished() override { log("finished"); }
  void setSectionArray1(media::PhotoSections s) override {
    log("sectionArray1 " + std::to_string(s.size()));
    keep(s);
  }
  void reloadSections() override {}
  void totalVideosCount(std::int64_t n) override { log("videos " + std::to_string(n)); }
  void setVideoSectionArray(media::VideoSections s) override {
    log("videoSectionArray " + std::to_string(s.size()));
    videos = s;
  }
  void videoScanFinished() override { log("videos finished"); }

  // Main-queue copies can arrive after a later, longer list: keep the longest.
  void keep(const media::PhotoSections& s) {
    if (s.size() >= latest.size()) latest = s;
  }
  void log(std::string event) { events.push_back((kit::isMainThread() ? "main: " : "bg: ") + event); }
  std::vector<std::string> events;
  media::PhotoSections latest;
  media::VideoSections videos;
};

struct ScanTest : ::testing::Test {
  sim::World world;
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
  void SetUp() override {
    world.platform.photos().setStatus(platform::AuthorizationStatus::Authorized);
    media::PhotosCallBack::shared()->itemdelegates.store(recorder);
    media::VideosCallBackListner::shared()->itemdelegates.store(recorder);
  }
  void photosAt(std::vector<std::optional<double>> offsets) {
    std::vector<std::shared_ptr<const platform::Asset>> assets;
    for (std::size_t i = 0; i < offsets.size(); ++i) {
      std::optional<double> when;
      if (offsets[i]) when = T0 + *offsets[i];
      assets.push_back(sim::photo(when, "p" + std::to_string(i)));
    }
    world.platform.photos().setAssets(assets);
  }
  void scan(int type) {
    media::startScan(type);
    world.env.runUntilIdle();
  }
  // Members of each section as asset identifiers, a "*" marking those selected for deletion.
  static std::vector<std::vector<std::string>> describe(const media::PhotoSections& sections) {
    std::vector<std::vector<std::string>> out;
    for (const auto& s : sections) {
      std::vector<std::string> members;
      for (const auto& r : s->image) members.push_back(r->imagePath->localIdentifier() + (r->isSelected ? "*" : ""));
      out.push_back(members);
    }
    return out;
  }
};

using Events = std::vector<std::string>;

TEST_F(ScanTest, EmptyLibraryReportsZeroOnceAndEndsSilently) {
  scan(1);
  EXPECT_EQ(recorder->events, (Events{"bg: total 0"}));
}

TEST_F(ScanTest, OnePhotoNeverFinishes) {
  photosAt({0});
  scan(1);
  EXPECT_EQ(recorder->events, (Events{"bg: total 1", "bg: progress 0", "bg: total 1"}));
}

TEST_F(ScanTest, TwoPhotosFourSecondsApartFormTheLastSectionAfterTheFinishedEvent) {
  photosAt({0, 4});
  scan(1);
  EXPECT_EQ(recorder->events, (Events{"bg: total 2", "bg: progress 0", "bg: progress 1", "bg: total 2",
                                      "bg: finished", "bg: changed 1"}));
  EXPECT_EQ(describe(recorder->latest), (std::vector<std::vector<std::string>>{{"p0", "p1*"}}));
}

TEST_F(ScanTest, FiveSecondsApartIsNoMatch) {
  photosAt({0, 5});
  scan(1);
  EXPECT_EQ(recorder->events.back(), "bg: finished");
  EXPECT_TRUE(recorder->latest.empty());
}

TEST_F(ScanTest, GroupsChainAgainstTheLatestMemberAndKeepTheOldest) {
  photosAt({12, 0, 8, 4, 100, 103, 200});
  scan(1);
  // The first group closes in the loop and reaches the listener through the main queue; the
  // second is the last group only if nothing follows it: here the single at 200 follows.
  EXPECT_EQ(describe(recorder->latest),
            (std::vector<std::vector<std::string>>{{"p1", "p3*", "p2*", "p0*"}, {"p4", "p5*"}}));
  Events expectedTail{"bg: total 7", "bg: finished", "main: sectionArray1 1", "main: sectionArray1 2"};
  Events tail;
  for (auto& e : recorder->events) {
    if (e.find("progress") == std::string::npos) tail.push_back(e);
  }
  EXPECT_EQ(Events(tail.begin() + 1, tail.end()), expectedTail);
  const auto& section = recorder->latest[0];
  EXPECT_EQ(section->totalCount, 4);
  EXPECT_EQ(section->selectedCount, 3);
  EXPECT_FALSE(section->isSelection);
}

TEST_F(ScanTest, AGroupAcrossMidnightTakesItsHeaderFromWhereItCloses) {
  world.env.setTimeZone(kit::TimeZone::fixed(3600, "CET"));
  // 2025-01-01 00:00:00 UTC is 01:00 local: local midnight is at T0 - 3600.
  double midnight = -3600;
  photosAt({midnight - 2, midnight + 1, midnight + 500, midnight + 86400 - 2, midnight + 86400 + 1});
  scan(1);
  ASSERT_EQ(recorder->latest.size(), 2u);
  EXPECT_EQ(recorder->latest[0]->header, "01-01-25");  // closed in the loop: its latest member's day
  EXPECT_EQ(recorder->latest[1]->header, "01-01-25");  // the last group: its first member's day
  EXPECT_EQ(recorder->latest[1]->image[1]->imageDate, "02-01-25");
  EXPECT_EQ(recorder->latest[0]->image[0]->imageDate, "31-12-24");
}

TEST_F(ScanTest, PhotosWithoutADateTakeTheCurrentTimeAndSortLast) {
  photosAt({std::nullopt, -100, std::nullopt, -50});
  scan(1);
  ASSERT_EQ(recorder->latest.size(), 1u);
  EXPECT_EQ(describe(recorder->latest), (std::vector<std::vector<std::string>>{{"p0", "p2*"}}));
  EXPECT_EQ(recorder->latest[0]->image[0]->ImageTS, static_cast<std::int64_t>(T0) * 1000);
}

TEST_F(ScanTest, RecordsAtTheEpochSecondJoinNoGroup) {
  world.platform.photos().setAssets({sim::photo(-2.0, "before"), sim::photo(0.5, "epoch"), sim::photo(1.0, "after")});
  scan(1);
  EXPECT_EQ(describe(recorder->latest), (std::vector<std::vector<std::string>>{{"before", "after*"}}));
}

TEST_F(ScanTest, ASecondScanWhileTheFirstRunsSharesTheSlot) {
  photosAt({0, 1, 50, 51, 100});
  media::startScan(1);
  world.env.runBackgroundOnce();  // the first pass of scan 1; its grouping is queued
  media::startScan(1);
  world.env.runBackgroundOnce();  // scan 1 groups: two sections, both through the main queue
  world.env.runBackgroundOnce();  // scan 2's first pass empties the slot's list
  EXPECT_TRUE(media::PhotosCallBack::shared()->sectionArray().empty());
  world.env.runUntilIdle();
  int totals = 0, sectionUpdates = 0;
  for (auto& e : recorder->events) {
    totals += e.rfind("bg: total", 0) == 0;
    sectionUpdates += e.rfind("main: sectionArray1", 0) == 0;
  }
  EXPECT_EQ(totals, 4);
  EXPECT_EQ(sectionUpdates, 4);
  EXPECT_EQ(media::PhotosCallBack::shared()->sectionArray().size(), 2u);
  EXPECT_EQ(media::PhotosCallBack::shared()->totalImagesArray().size(), 5u);  // no asset twice
}

TEST_F(ScanTest, ALeftScreenStillHearsTheScan) {
  photosAt({0, 1, 2});
  media::startScan(1);
  std::weak_ptr<Recorder> weak = recorder;
  recorder.reset();  // the slot keeps its listener alive
  world.env.runUntilIdle();
  ASSERT_TRUE(weak.lock());
  EXPECT_EQ(weak.lock()->events.back(), "bg: changed 1");
}

TEST_F(ScanTest, WithoutAListenerAppendSectionStillAppends) {
  media::PhotosCallBack::shared()->itemdelegates.store(nullptr);
  auto record = std::make_shared<media::ImageSets>(0, sim::photo(T0), "01-01-25", "2025:01:01 00:00:00", 0.0);
  auto section = std::make_shared<media::PhotoSectionItem>("h", std::vector{record}, false, 0, 1);
  media::PhotosCallBack::shared()->appendSection(section);
  media::PhotosCallBack::shared()->appendSection(section);
  EXPECT_EQ(media::PhotosCallBack::shared()->sectionArray().size(), 1u);
}

TEST_F(ScanTest, RecordsCountWholeSecondsAndRefuseBadDates) {
  auto a = std::make_shared<media::ImageSets>(0, sim::photo(T0), "01-01-25", "2025:01:01 00:00:07", 0.0);
  EXPECT_EQ(a->ImageTS, (static_cast<std::int64_t>(T0) + 7) * 1000);
  EXPECT_EQ(a->filesize, 0);
  EXPECT_FALSE(a->isSelected);
  EXPECT_FALSE(a->isBestPhoto);
  EXPECT_THROW(media::ImageSets(0, sim::photo(T0), "x", "not a date", 0.0), kit::FatalError);
}

TEST_F(ScanTest, DateFromDayStringIgnoresAnEmptyText) {
  EXPECT_DOUBLE_EQ(media::dateFromDayString("").timeIntervalSince1970, T0);
  kit::DateFormatter day("yyyy-MM-dd");
  EXPECT_EQ(day.stringFromDate(media::dateFromDayString("24.12.24")), "2024-12-24");
  EXPECT_DOUBLE_EQ(media::dateFromDayString("garbage").timeIntervalSince1970, T0);
}

TEST_F(ScanTest, OtherTypesDoNothing) {
  media::startScan(0);
  media::startScan(3);
  EXPECT_EQ(world.env.pendingCount(), 0u);
}

// ---- Videos ----

struct VideoScanTest : ScanTest {
  void videos(std::vector<std::pair<double, double>> atAndLength) {
    std::vector<std::shared_ptr<const platform::Asset>> assets;
    for (std::size_t i = 0; i < atAndLength.size(); ++i) {
      assets.push_back(sim::video(T0 + atAndLength[i].first, atAndLength[i].second, "v" + std::to_string(i)));
    }
    world.platform.photos().setAssets(assets);
  }
  std::vector<std::vector<std::string>> videoGroups() {
    std::vector<std::vector<std::string>> out;
    for (const auto& s : recorder->videos) {
      std::vector<std::string> members;
      for (const auto& r : s->image) members.push_back(r->imagePath->localIdentifier() + (r->isSelected ? "*" : ""));
      out.push_back(members);
    }
    return out;
  }
};

TEST_F(VideoScanTest, NoVideosIsReportedOnceAndPrinted) {
  kit::ConsoleCapture console;
  scan(2);
  EXPECT_EQ(recorder->events, (Events{"bg: videos 0"}));
  EXPECT_TRUE(console.contains("You got no Videos."));
}

TEST_F(VideoScanTest, OnlyNeighboursOfEqualLengthMatch) {
  videos({{0, 10}, {60, 12}, {120, 10}});
  scan(2);
  EXPECT_TRUE(videoGroups().empty());
  EXPECT_EQ(recorder->events.back(), "bg: videos finished");
}

TEST_F(VideoScanTest, PairsOfEqualLengthsFormTwoSectionsTheLastBeforeFinished) {
  videos({{0, 10}, {1, 10}, {2, 12}, {3, 12}});
  scan(2);
  EXPECT_EQ(videoGroups(), (std::vector<std::vector<std::string>>{{"v0", "v1*"}, {"v2", "v3*"}}));
  EXPECT_EQ(recorder->events, (Events{"bg: videos 4", "bg: videos 4", "bg: videoSectionArray 1",
                                      "bg: videoSectionArray 2", "bg: videos finished"}));
}

TEST_F(VideoScanTest, LengthsMustBeExactlyEqualButTimeDoesNotMatter) {
  double ten = 10.0;
  videos({{0, ten}, {1, std::nextafter(ten, 11.0)}, {3e7, 7.5}, {6e7, 7.5}, {9e7, 7.5}});
  scan(2);
  EXPECT_EQ(videoGroups(), (std::vector<std::vector<std::string>>{{"v2", "v3*", "v4*"}}));
}

}  // namespace
