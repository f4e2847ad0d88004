// Sections: groups of duplicates, members oldest first; the first member is the one kept by
// default. Shared by reference between the scan and the screen.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kit/CowArray.h"
#include "media/ImageSets.h"

namespace media {

template <class Section, class Delegate>
class SectionSlot;

template <class Record>
class SectionItem {
 public:
  SectionItem() = delete;
  // Stores the five values.
  SectionItem(std::string header_, std::vector<std::shared_ptr<Record>> image_, bool isSelection_,
              int selectedCount_, int totalCount_)
      : header(std::move(header_)),
        isSelection(isSelection_),
        selectedCount(selectedCount_),
        totalCount(totalCount_),
        image(std::move(image_)) {}

  // The imageDate of one member; shown nowhere.
  std::string header;
  // Read by nobody.
  bool isSelection;
  // Member count minus one, and member count, at construction; never kept current.
  int selectedCount;
  int totalCount;
  // The members, oldest first.
  std::vector<std::shared_ptr<Record>> image;

 private:
  template <class Section, class Delegate>
  friend class SectionSlot;
  // Which generation of a slot's list holds this section (0: none); kept by the slot, under
  // its lock, so that membership needs no search.
  std::uint64_t slotGeneration_ = 0;
};

class PhotoSectionItem : public SectionItem<ImageSets> {
 public:
  using SectionItem::SectionItem;
};

class VideoSectionsItem : public SectionItem<VideoSets> {
 public:
  using SectionItem::SectionItem;
};

// Section lists: values with cheap copies, as the scan hands a copy of the whole list over
// after each section.
using PhotoSections = kit::CowArray<std::shared_ptr<PhotoSectionItem>>;
using VideoSections = kit::CowArray<std::shared_ptr<VideoSectionsItem>>;

}  // namespace media
