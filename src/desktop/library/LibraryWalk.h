// The walk over a library folder: every regular file under the root, each file once.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace desktop {

// A file's identity on this machine: device and inode numbers.
struct FileId {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  auto operator<=>(const FileId&) const = default;
};

struct FileIdHash {
  std::size_t operator()(const FileId& id) const {
    return std::hash<std::uint64_t>()(id.device * 0x9E3779B97F4A7C15ULL ^ id.inode);
  }
};

struct WalkedFile {
  std::string path;  // root-based path, as found (bytes, not necessarily UTF-8)
  FileId id;
  std::int64_t size = 0;
  std::int64_t mtimeNs = 0;  // modification time, nanoseconds since 1970
  // Further names of the same file under the root (hard links), in walk order.
  std::vector<std::string> otherNames;
};

// Something the walk could not enter or read, or chose to leave out, with the reason.
struct WalkProblem {
  enum class Kind {
    UnreadableFolder,  // a folder that could not be opened or listed
    FolderLoop,        // a folder reached twice (a bind mount of an ancestor)
  };
  Kind kind;
  std::string path;
  std::string reason;
};

struct WalkResult {
  // False when the root is missing, not a folder, or cannot be listed; `rootError` says why.
  bool rootOk = false;
  std::string rootError;
  // Regular files in walk order: a folder's files in byte order of their names, then its
  // subfolders in the same order, each walked whole before the next. A file reached under
  // several names (hard links) is listed once, under the first name in this order.
  std::vector<WalkedFile> files;
  std::vector<WalkProblem> problems;
  int hardLinksSkipped = 0;
  int symlinksSkipped = 0;
};

// Walks `root` (a symbolic link as the root itself is followed; none below it is). Names
// starting with "." (hidden files and folders) are skipped, as are the folders whose identity
// is in `excludedFolders` and every file that is not regular (devices, pipes, sockets).
// Never follows a link, never enters a folder twice, never blocks on a special file. Any
// thread; touches no shared state.
WalkResult walkLibrary(const std::string& root, const std::set<FileId>& excludedFolders);

// The identity and the modification time (nanoseconds since 1970) of a stat result.
FileId fileIdOf(const struct stat& st);
std::int64_t mtimeNsOf(const struct stat& st);

// The identity of the folder at `path` (following links), or nothing when it does not exist.
bool folderId(const std::string& path, FileId* id);

}  // namespace desktop
