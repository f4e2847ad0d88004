#include "media/ImageVideoSelection.h"

#include "kit/Singleton.h"

namespace media {

std::shared_ptr<ImageVideoSelection> ImageVideoSelection::shared() {
  return kit::sharedInstance<ImageVideoSelection>();
}

}  // namespace media
