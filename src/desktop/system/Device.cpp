#include "desktop/system/Device.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <climits>
#include <utility>

#include "desktop/system/FileUtil.h"
#include "desktop/system/MeasurementServices.h"

namespace desktop {

Device::Device(std::string osReleasePath) : osReleasePath_(std::move(osReleasePath)) {}

std::string Device::machineIdentifier() {
  utsname u{};
  return ::uname(&u) == 0 ? u.machine : "";
}

std::string Device::name() {
  char host[HOST_NAME_MAX + 1] = {};
  if (::gethostname(host, sizeof host - 1) != 0) return "localhost";
  return host;
}

std::string Device::systemName() {
  return osReleaseValue(readWholeFile(osReleasePath_).value_or(""), "NAME").value_or("Linux");
}

std::string Device::systemVersion() {
  if (auto version = osReleaseValue(readWholeFile(osReleasePath_).value_or(""), "VERSION_ID")) {
    return *version;
  }
  utsname u{};
  return ::uname(&u) == 0 ? dottedVersion(u.release) : "";
}

std::string dottedVersion(const std::string& release) {
  std::size_t end = release.find_first_not_of("0123456789.");
  std::string v = release.substr(0, end);
  while (!v.empty() && v.back() == '.') v.pop_back();
  return v;
}

}  // namespace desktop
