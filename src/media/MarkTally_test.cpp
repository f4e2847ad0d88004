#include "media/MarkTally.h"

#include <gtest/gtest.h>

#include "media/PhotoSectionItem.h"

namespace media {
namespace {

std::shared_ptr<PhotoSectionItem> section(int members, int marked) {
  std::vector<std::shared_ptr<ImageSets>> records;
  for (int i = 0; i < members; ++i) {
    records.push_back(std::make_shared<ImageSets>(0, nullptr, "01-01-24", "2024:01:01 00:00:00", 0.0));
    records.back()->isSelected = i < marked;
  }
  return std::make_shared<PhotoSectionItem>("01-01-24", std::move(records), false, members - 1, members);
}

// What a fresh walk gives.
MarkSums walk(const PhotoSections& sections) {
  MarkSums sums;
  for (const auto& s : sections) {
    for (const auto& m : s->image) {
      ++sums.members;
      sums.selected += m->isSelected ? 1 : 0;
      sums.listed += m->isBestPhoto ? 0 : 1;
    }
  }
  return sums;
}

void expectSums(const MarkSums& got, const MarkSums& want) {
  EXPECT_EQ(got.members, want.members);
  EXPECT_EQ(got.selected, want.selected);
  EXPECT_EQ(got.listed, want.listed);
}

TEST(MarkTallyTest, AnswersAsAFreshWalkThroughAppendsMarksAndNewLists) {
  MarkTally<PhotoSections> tally;
  PhotoSections sections;
  for (int i = 0; i < 300; ++i) {  // across the array's chunks, one section at a time
    sections.append(section(2 + i % 4, 1 + i % 3));
    PhotoSections handedOver = sections;  // the copy a listener gets
    expectSums(tally.sums(handedOver), walk(handedOver));
  }
  // A mark changed anywhere is counted at the next call.
  sections[7]->image[0]->isSelected = !sections[7]->image[0]->isSelected;
  expectSums(tally.sums(sections), walk(sections));
  sections[299]->image[1]->isSelected = false;
  expectSums(tally.sums(sections), walk(sections));

  // A list that is not an extension of the counted one: shorter, changed, or new.
  PhotoSections shorter;
  for (std::size_t i = 0; i < 10; ++i) shorter.append(sections[i]);
  expectSums(tally.sums(shorter), walk(shorter));
  PhotoSections changed = sections;
  changed.set(3, section(9, 9));
  expectSums(tally.sums(changed), walk(changed));
  PhotoSections fresh{section(3, 0)};
  expectSums(tally.sums(fresh), walk(fresh));
  expectSums(tally.sums(PhotoSections()), MarkSums{});
}

}  // namespace
}  // namespace media
