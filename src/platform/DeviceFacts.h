// What the measurement client tells about the device it runs on: the operating system, the
// hardware model, the person's language and time zone, and the screen.
#pragma once

#include <string>

namespace platform {

struct DeviceFactsSnapshot {
  std::string osName;     // "Debian GNU/Linux"
  std::string osVersion;  // dotted numbers, "12" or "6.1.0"
  std::string model;      // hardware model identifier, "x86_64"
  // Language and region in lower case joined by "-", "en-us"; empty when unknown.
  std::string language;
  // Seconds east of UTC of the current time zone, now.
  int timeZoneOffsetSeconds = 0;
  // The main screen in points and its scale; zero when there is no screen.
  int screenWidth = 0;
  int screenHeight = 0;
  double screenScale = 0;
};

class DeviceFacts {
 public:
  virtual ~DeviceFacts() = default;
  // The facts as they are now. Any thread.
  virtual DeviceFactsSnapshot facts() = 0;
};

}  // namespace platform
