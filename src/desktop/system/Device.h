// The device on Linux: the machine's host name and architecture, and the operating system
// named by /etc/os-release.
#pragma once

#include <string>

#include "platform/Device.h"

namespace desktop {

class Device : public platform::Device {
 public:
  // `osReleasePath` is read on each call ("/etc/os-release" normally).
  explicit Device(std::string osReleasePath = "/etc/os-release");
  // The processor architecture (uname's machine, "x86_64"). Any thread.
  std::string machineIdentifier() override;
  // The host name. Any thread.
  std::string name() override;
  // The operating system's NAME ("Debian GNU/Linux"); "Linux" without one. Any thread.
  std::string systemName() override;
  // The operating system's VERSION_ID ("12", "24.04"); without one, the leading dotted numbers
  // of the kernel release ("6.1.0" of "6.1.0-18-amd64"). Any thread.
  std::string systemVersion() override;

 private:
  std::string osReleasePath_;
};

// The leading run of digits and dots of a kernel release text, without a trailing dot.
std::string dottedVersion(const std::string& release);

}  // namespace desktop
