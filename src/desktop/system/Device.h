// The device on Linux: the machine's host name and kernel.
#pragma once

#include "platform/Device.h"

namespace desktop {

class Device : public platform::Device {
 public:
  // The processor architecture (uname's machine, "x86_64"). Any thread.
  std::string machineIdentifier() override;
  // The host name. Any thread.
  std::string name() override;
  // "Linux".
  std::string systemName() override { return "Linux"; }
  // The leading dotted numbers of the kernel release ("6.1.0" of "6.1.0-18-amd64"). Any thread.
  std::string systemVersion() override;
};

// The leading run of digits and dots of a kernel release text, without a trailing dot.
std::string dottedVersion(const std::string& release);

}  // namespace desktop
