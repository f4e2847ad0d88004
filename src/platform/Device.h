// The device: its model, name and system version.
#pragma once

#include <string>

namespace platform {

class Device {
 public:
  virtual ~Device() = default;
  // The hardware model identifier (sysctl hw.machine).
  virtual std::string machineIdentifier() = 0;
  // The user-visible device name.
  virtual std::string name() = 0;
  virtual std::string systemName() = 0;
  // Dotted version text, such as "17.2".
  virtual std::string systemVersion() = 0;
  // The leading number of systemVersion (0 when it has none).
  int systemMajorVersion();
};

}  // namespace platform
