// libFuzzer target: file names as the folder gives them, and URL texts. Any absolute path
// survives the trip to a file URL and back unchanged; any text read as a file URL gives an
// absolute path or nothing; nothing crashes.
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/FileManager.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string path = "/" + text;
  const std::string url = platform::fileURLWithPath(path);
  if (url.find(' ') != std::string::npos || url.find('"') != std::string::npos) __builtin_trap();
  if (platform::pathOfFileURL(url) != path) __builtin_trap();
  if (auto back = platform::pathOfFileURL(text); back && (*back).front() != '/') __builtin_trap();
  return 0;
}
