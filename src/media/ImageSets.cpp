#include "media/ImageSets.h"

#include <cmath>

#include "kit/Date.h"
#include "kit/Fatal.h"

namespace media {

ScannedMedia::ScannedMedia(std::int64_t filesize_, platform::AssetPtr imagePath_, std::string imageDate_,
                           std::string fullDateTime_, double duration_)
    : filesize(filesize_),
      imagePath(std::move(imagePath_)),
      imageDate(std::move(imageDate_)),
      fullDateTime(std::move(fullDateTime_)),
      duration(duration_) {
  kit::DateFormatter formatter("yyyy:MM:dd HH:mm:ss");
  std::optional<kit::Date> date = formatter.dateFromString(fullDateTime);
  if (!date) kit::fatal("cannot parse the date " + fullDateTime);
  double seconds = date->timeIntervalSince1970;
  if (!std::isfinite(seconds) || seconds >= 9.2233720368547758e18 || seconds < -9.2233720368547758e18) {
    kit::fatal("date out of range: " + fullDateTime);
  }
  ImageTS = kit::checkedMultiply(static_cast<std::int64_t>(std::trunc(seconds)), 1000);
}

}  // namespace media
