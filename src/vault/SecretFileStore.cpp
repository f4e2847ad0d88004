#include "vault/SecretFileStore.h"

#include <cmath>
#include <cstdio>

#include "kit/Date.h"
#include "platform/Platform.h"

namespace vault {

bool isVideoType(const std::string& type) {
  return type.find("MOV") != std::string::npos || type.find("MP4") != std::string::npos;
}

bool isCameraVideoPath(const std::string& path) { return path.find("CAMERA_VIDEO") != std::string::npos; }

std::optional<std::string> documentsDirectory() {
  auto folders =
      platform::fileManager().searchPathForDirectoriesInDomains(platform::kDocumentDirectory, platform::kUserDomainMask, true);
  if (folders.empty()) return std::nullopt;
  return folders.front();
}

std::string cleanerFolder(const std::string& documents) { return documents + "/Cleaner"; }

long long currentSeconds() { return static_cast<long long>(std::trunc(kit::Date::now().timeIntervalSince1970)); }

std::string cameraImageName(long long seconds) { return "Image(Function)_" + std::to_string(seconds); }

std::string cameraVideoName(long long seconds) { return "CAMERA_VIDEO" + std::to_string(seconds) + ".MOV"; }

std::string describeSecretFile(const SecretFile* object) {
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(object));
  return std::string("<Solvanta.SecretFile: ") + address + ">";
}

std::string importName(const std::string& description, long long seconds, const std::optional<std::string>& ext) {
  std::string extension = ext ? "Optional(\"" + *ext + "\")" : "nil";
  return "Image" + description + "_" + std::to_string(seconds) + "_" + extension;
}

std::string pathExtension(const std::string& name) {
  std::string last = lastPathComponent(name);
  auto dot = last.find_last_of('.');
  if (dot == std::string::npos || dot == 0) return "";
  return last.substr(dot + 1);
}

std::string lastPathComponent(const std::string& path) {
  std::string p = path;
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  auto slash = p.find_last_of('/');
  return slash == std::string::npos ? p : p.substr(slash + 1);
}

bool ensureFolder(const std::string& path, platform::Error* error) {
  auto& files = platform::fileManager();
  if (files.fileExistsAtPath(path)) return true;
  return files.createDirectoryAtPath(path, true, error);
}

std::optional<std::vector<FileRow>> readRows(const std::string& folder, platform::Error* error) {
  auto names = platform::fileManager().contentsOfDirectoryAtPath(folder, error);
  if (!names) return std::nullopt;
  std::vector<FileRow> rows;
  rows.reserve(names->size());
  for (const auto& name : *names) {
    std::string url = platform::fileURLWithPath(folder + "/" + name);
    rows.push_back(std::make_shared<FileSelectionModel>(url, url));
  }
  return rows;
}

}  // namespace vault
