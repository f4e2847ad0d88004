// The folder of hidden media: where it is, how its files are named, what a row of it is, and
// the one write that puts a file there. There is no index: whatever the folder holds is the
// store. Nothing is enciphered. Any thread unless told.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/CowArray.h"
#include "platform/PhotoLibrary.h"
#include "platform/Types.h"

namespace vault {

// One file of the folder, as the file list shows it.
struct FileSelectionModel {
  FileSelectionModel(std::string url, std::string absolute) : fileUrl(std::move(url)), type(std::move(absolute)) {}
  // The file, as a file URL.
  std::string fileUrl;
  // The URL's absolute text, kept to tell videos from photos (see isVideoType).
  std::string type;
  // Written by the main queue, read by the delete loop on a background queue.
  std::atomic<bool> isSelected{false};
};
using FileRow = std::shared_ptr<FileSelectionModel>;
using FileRows = kit::CowArray<FileRow>;

// A library asset in the picker. `fileName` holds the asset, whatever its name says.
struct SecretFile {
  explicit SecretFile(platform::AssetPtr asset) : fileName(std::move(asset)) {}
  platform::AssetPtr fileName;
  bool isSelected = false;
};

// A row counts as a video when `type` holds "MOV" or "MP4" (case-sensitive).
bool isVideoType(const std::string& type);
// The list cell shows a movie frame for paths holding "CAMERA_VIDEO".
bool isCameraVideoPath(const std::string& path);

// The first Documents folder of the user domain, or nothing.
std::optional<std::string> documentsDirectory();
// "<documents>/Cleaner".
std::string cleanerFolder(const std::string& documents);

// Whole seconds since 1970 of the environment's clock, cut toward zero.
long long currentSeconds();
// "Image(Function)_" + seconds: a camera photo.
std::string cameraImageName(long long seconds);
// "CAMERA_VIDEO" + seconds + ".MOV": a camera movie.
std::string cameraVideoName(long long seconds);
// The description of a picker object: "<Solvanta.SecretFile: 0x...>" with its address.
std::string describeSecretFile(const SecretFile* object);
// "Image" + description + "_" + seconds + "_" + the extension as an optional's debug text
// (`Optional("HEIC")`, or `nil` for an asset without a file name): an imported item.
std::string importName(const std::string& description, long long seconds, const std::optional<std::string>& ext);
// The extension of a file name (after its last dot, not the first character), or "".
std::string pathExtension(const std::string& name);
// The last component of a path or URL.
std::string lastPathComponent(const std::string& path);

// Makes the folder `path` with intermediates when it is missing. False with `error` filled.
bool ensureFolder(const std::string& path, platform::Error* error);
// The rows of the folder `folder`, in the file system's order, one per entry whatever it is;
// nothing with `error` filled when the folder cannot be read.
std::optional<std::vector<FileRow>> readRows(const std::string& folder, platform::Error* error);

}  // namespace vault
