#include "desktop/library/LibraryWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unordered_map>

namespace desktop {
namespace {

std::string join(const std::string& folder, const std::string& name) {
  return folder.back() == '/' ? folder + name : folder + "/" + name;
}

}  // namespace

FileId fileIdOf(const struct stat& st) {
  return FileId{static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)};
}

std::int64_t mtimeNsOf(const struct stat& st) {
  return static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec;
}

bool folderId(const std::string& path, FileId* id) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return false;
  *id = fileIdOf(st);
  return true;
}

WalkResult walkLibrary(const std::string& root, const std::set<FileId>& excludedFolders) {
  WalkResult result;
  struct stat rootStat {};
  if (root.empty() || ::stat(root.c_str(), &rootStat) != 0) {
    result.rootError = root.empty() ? "no library folder given" : std::strerror(errno);
    return result;
  }
  if (!S_ISDIR(rootStat.st_mode)) {
    result.rootError = "not a folder";
    return result;
  }

  std::set<FileId> visitedFolders{fileIdOf(rootStat)};
  std::unordered_map<FileId, std::size_t, FileIdHash> seenFiles;  // position in result.files
  // Folders still to list, deepest last; each with the identity it had when found.
  std::vector<std::pair<std::string, FileId>> pending{{root, fileIdOf(rootStat)}};
  bool first = true;
  while (!pending.empty()) {
    auto [folder, expected] = std::move(pending.back());
    pending.pop_back();
    bool isRoot = std::exchange(first, false);

    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | (isRoot ? 0 : O_NOFOLLOW));
    struct stat st {};
    if (fd >= 0 && (::fstat(fd, &st) != 0 || fileIdOf(st) != expected)) {
      // Replaced by something else between finding and opening it: leave it out.
      ::close(fd);
      fd = -1;
      errno = ESTALE;
    }
    DIR* dir = fd >= 0 ? ::fdopendir(fd) : nullptr;
    if (!dir) {
      int err = errno;
      if (fd >= 0) ::close(fd);
      if (isRoot) {
        result.rootError = std::strerror(err);
        return result;
      }
      result.problems.push_back({WalkProblem::Kind::UnreadableFolder, folder, std::strerror(err)});
      continue;
    }

    std::vector<std::string> names;
    errno = 0;
    while (dirent* entry = ::readdir(dir)) {
      if (entry->d_name[0] == '.') continue;  // ".", ".." and hidden names
      names.emplace_back(entry->d_name);
    }
    int listErr = errno;
    if (listErr != 0) {
      result.problems.push_back(
          {WalkProblem::Kind::UnreadableFolder, folder, std::strerror(listErr)});
    }
    std::sort(names.begin(), names.end());

    std::vector<std::pair<std::string, FileId>> subfolders;
    for (const auto& name : names) {
      struct stat entrySt {};
      if (::fstatat(::dirfd(dir), name.c_str(), &entrySt, AT_SYMLINK_NOFOLLOW) != 0) continue;
      std::string path = join(folder, name);
      if (S_ISLNK(entrySt.st_mode)) {
        ++result.symlinksSkipped;
      } else if (S_ISDIR(entrySt.st_mode)) {
        FileId id = fileIdOf(entrySt);
        if (excludedFolders.count(id)) continue;
        if (!visitedFolders.insert(id).second) {
          result.problems.push_back(
              {WalkProblem::Kind::FolderLoop, path, "the same folder was already walked"});
          continue;
        }
        subfolders.emplace_back(std::move(path), id);
      } else if (S_ISREG(entrySt.st_mode)) {
        FileId id = fileIdOf(entrySt);
        auto [seen, added] = seenFiles.emplace(id, result.files.size());
        if (!added) {
          ++result.hardLinksSkipped;
          result.files[seen->second].otherNames.push_back(std::move(path));
          continue;
        }
        result.files.push_back({std::move(path),
                                id,
                                static_cast<std::int64_t>(entrySt.st_size),
                                mtimeNsOf(entrySt),
                                {}});
      }
    }
    ::closedir(dir);
    // Push in reverse so that the first subfolder is walked next.
    for (auto it = subfolders.rbegin(); it != subfolders.rend(); ++it)
      pending.push_back(std::move(*it));
  }
  result.rootOk = true;
  return result;
}

}  // namespace desktop
