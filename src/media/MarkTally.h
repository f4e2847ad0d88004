// MarkTally: member and mark counts over a section list, kept between calls. Each call
// answers what a fresh walk over every member would, but walks only the sections appended
// since the previous call, unless some mark has changed since (then it walks them all again).
#pragma once

#include <cstddef>
#include <cstdint>

#include "media/ImageSets.h"

namespace media {

struct MarkSums {
  std::size_t members = 0;   // every member of every section
  std::size_t selected = 0;  // members marked for deletion
  std::size_t listed = 0;    // members that are not isBestPhoto
};

template <class Sections>
class MarkTally {
 public:
  using Sums = MarkSums;

  // The sums over `sections` as they are now. One thread at a time (the screen's: the main
  // queue); marks may change on any thread meanwhile, as a fresh walk would allow.
  Sums sums(const Sections& sections) {
    const std::uint64_t epoch = MarkFlag::epoch();
    std::size_t from = 0;
    if (epoch == epoch_ && sections.sharesPrefixWith(counted_, counted_.size())) {
      from = counted_.size();
    } else {
      sums_ = {};
    }
    for (std::size_t i = from; i < sections.size(); ++i) {
      for (const auto& member : sections[i]->image) {
        ++sums_.members;
        sums_.selected += member->isSelected ? 1 : 0;
        sums_.listed += member->isBestPhoto ? 0 : 1;
      }
    }
    counted_ = sections;
    epoch_ = epoch;
    return sums_;
  }

 private:
  Sections counted_;  // holds the counted list's storage, so its identity stays unique
  std::uint64_t epoch_ = ~std::uint64_t{0};
  Sums sums_;
};

}  // namespace media
