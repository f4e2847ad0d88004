// Helpers of the desktop platform's tests: temporary folders, an isolated home, environment
// variables set for a scope, file-permission checks that hold even for root, and photo files.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "desktop/system/AppFolders.h"
#include "desktop/library/FolderPhotoLibrary.h"
#include "samplegen/SampleMedia.h"

namespace desktop::testing {

// A new empty folder under $TMPDIR (or /tmp), removed with all it holds (whatever its
// permissions) on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  // path() + "/" + relative.
  std::string operator/(const std::string& relative) const { return path_ + "/" + relative; }

 private:
  std::string path_;
};

// Sets (or with no value, unsets) an environment variable; restores it on destruction.
class ScopedEnv {
 public:
  ScopedEnv(std::string name, std::optional<std::string> value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  std::optional<std::string> previous_;
};

// HOME and the XDG folders pointed into a temporary folder ("home", "home/.config", ...),
// SOLVANTA_LIBRARY unset.
class IsolatedHome {
 public:
  IsolatedHome();
  const TempDir& dir() const { return dir_; }
  const AppFolders& folders() const { return folders_; }

 private:
  TempDir dir_;
  ScopedEnv home_, config_, data_, cache_, library_;
  AppFolders folders_;
};

// While alive, the calling thread (and every thread it starts) is held to file permissions
// even when the process runs as root: the capabilities that override them are dropped from
// the thread's effective set, and restored on destruction.
class PermissionsEnforced {
 public:
  PermissionsEnforced();
  ~PermissionsEnforced();
  PermissionsEnforced(const PermissionsEnforced&) = delete;
  PermissionsEnforced& operator=(const PermissionsEnforced&) = delete;

 private:
  bool dropped_ = false;
};

// Writes a small JPEG at `path` (folders made as needed) with `exif` (no Exif when its date is
// empty), and sets the file's modification time when given. Fails the test on error.
void writePhoto(const std::string& path, const samplegen::ExifFields& exif,
                std::optional<double> mtime = std::nullopt, std::uint32_t seed = 1);
// Writes `bytes` at `path` (folders made as needed). Fails the test on error.
void writeBytes(const std::string& path, const std::vector<std::uint8_t>& bytes,
                std::optional<double> mtime = std::nullopt);
// Writes a short video. Fails the test on error.
void writeClip(const std::string& path, double seconds, std::optional<std::string> creationTime,
               const char* container = "mov");

// The asset a fetch makes of the file at `path`: identity, size and time from the file, the
// rest read by a FileMediaReader. Fails the test and returns null when the file is missing.
std::shared_ptr<FileAsset> fileAsset(const std::string& path);

// Every name directly in `folder`, sorted ("." and ".." left out); empty when unreadable.
std::vector<std::string> listFolder(const std::string& folder);

}  // namespace desktop::testing
