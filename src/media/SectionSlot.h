// SectionSlot: what the two scan slots share: one strong listener, replaced by each
// assignment and never cleared, and the section list the scan accumulates. The list is
// written from scan threads and read anywhere; it only grows, or is replaced whole.
#pragma once

#include <memory>
#include <mutex>
#include <cstdint>

#include "kit/AtomicShared.h"
#include "kit/CowArray.h"

namespace media {

template <class Section, class Delegate>
class SectionSlot {
 public:
  using Sections = kit::CowArray<std::shared_ptr<Section>>;

  // The listener. Written on the main queue, read from scan threads.
  kit::AtomicShared<Delegate> itemdelegates;

  // The current list (a cheap copy). Any thread.
  Sections sectionArray() const {
    std::lock_guard lock(mu_);
    return sections_;
  }
  // Replaces the list whole. Any thread.
  void setSectionArray(Sections sections) {
    std::lock_guard lock(mu_);
    ++generation_;
    for (const auto& s : sections) s->slotGeneration_ = generation_;
    sections_ = std::move(sections);
  }

  struct Appended {
    bool appended;
    Sections all;  // the whole list afterwards
  };
  // Appends `section` unless the list already holds that very object (an identity test,
  // answered from the section's mark instead of a search). Any thread.
  Appended appendIfAbsent(const std::shared_ptr<Section>& section) {
    std::lock_guard lock(mu_);
    bool appended = section->slotGeneration_ != generation_;
    if (appended) {
      section->slotGeneration_ = generation_;
      sections_.append(section);
    }
    return {appended, sections_};
  }

 private:
  mutable std::mutex mu_;
  Sections sections_;
  // Bumped whenever the list is replaced; a section marked with it is in the list.
  std::uint64_t generation_ = 1;
};

}  // namespace media
