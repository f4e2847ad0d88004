#include "media/VideosCallBackListner.h"

#include "kit/Singleton.h"

namespace media {

std::shared_ptr<VideosCallBackListner> VideosCallBackListner::shared() {
  return kit::sharedInstance<VideosCallBackListner>();
}

void VideosCallBackListner::appendSection(const std::shared_ptr<VideoSectionsItem>& section) {
  VideoSections all = appendIfAbsent(section).all;
  if (auto listener = itemdelegates.load()) {
    listener->setVideoSectionArray(all);
    listener->reloadSections();
  }
}

}  // namespace media
