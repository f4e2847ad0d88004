// The freedesktop Trash: deleted files are moved into a trash folder with a record of where
// they came from, so that the desktop's file manager can put them back. Nothing is unlinked.
#pragma once

#include <optional>
#include <string>

namespace desktop {

class Trash {
 public:
  // `homeTrash` is the trash of the home file system ($XDG_DATA_HOME/Trash); it and its
  // "files" and "info" folders are made (mode 0700) when first needed.
  explicit Trash(std::string homeTrash);

  // Moves the file at `path` into the trash of the file system it lives on:
  //  - the home trash when `path` is on the same file system;
  //  - otherwise $topdir/.Trash/$uid when $topdir/.Trash is a real folder with the sticky bit
  //    set, else $topdir/.Trash-$uid ($topdir: the mount point holding `path`).
  // First an "info/<name>.trashinfo" record is created exclusively (a taken name moves on to
  // "<stem>.2<ext>", "<stem>.3<ext>", ...), holding the original path (percent-encoded;
  // relative to $topdir in a per-volume trash) and the local deletion time; then the file is
  // renamed to "files/<name>" without replacing anything. Returns the new path. On failure
  // returns nothing, fills `error`, and leaves the file where it was with no record behind.
  // Thread-safe (names are claimed through the file system).
  std::optional<std::string> moveToTrash(const std::string& path, std::string* error) const;

  const std::string& homeTrash() const { return homeTrash_; }

 private:
  std::string homeTrash_;
};

// `path` with every byte percent-encoded except unreserved characters (letters, digits,
// "-", ".", "_", "~") and "/", as trash records want it.
std::string percentEncodePath(const std::string& path);

// The mount point holding `path` (an existing absolute path): the highest ancestor on the
// same device.
std::string mountPointOf(const std::string& path);

}  // namespace desktop
