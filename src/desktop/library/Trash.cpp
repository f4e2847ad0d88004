#include "desktop/library/Trash.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>

#include "desktop/system/AppFolders.h"
#include "desktop/system/FileUtil.h"

namespace desktop {
namespace {

std::string errnoText(const std::string& what, int err) { return what + ": " + std::strerror(err); }

// The absolute form of `path` with its folder resolved (the file itself is not followed).
std::optional<std::string> absolutePath(const std::string& path, std::string* error) {
  std::string folder = parentPath(path);
  char resolved[PATH_MAX];
  if (!::realpath(folder.c_str(), resolved)) {
    *error = errnoText("cannot resolve " + folder, errno);
    return std::nullopt;
  }
  std::string base(resolved);
  return (base == "/" ? "" : base) + "/" + lastComponent(path);
}

// Makes sure `folder` is usable as a trash root: a real folder (not a link) owned by us.
bool checkOwnedFolder(const std::string& folder, std::string* error) {
  struct stat st {};
  if (::lstat(folder.c_str(), &st) != 0) {
    *error = errnoText("cannot use trash " + folder, errno);
    return false;
  }
  if (!S_ISDIR(st.st_mode) || st.st_uid != ::getuid()) {
    *error = "cannot use trash " + folder + ": not a folder of this user";
    return false;
  }
  return true;
}

// The trash folder for a file on another file system than the home trash.
std::optional<std::string> volumeTrash(const std::string& absolute, std::string* error) {
  std::string top = mountPointOf(parentPath(absolute));
  std::string uid = std::to_string(::getuid());
  std::string shared = (top == "/" ? "" : top) + "/.Trash";
  struct stat st {};
  if (::lstat(shared.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && (st.st_mode & S_ISVTX)) {
    std::string mine = shared + "/" + uid;
    std::string ignored;
    if (makeDirectories(mine, 0700, &ignored) && checkOwnedFolder(mine, &ignored)) return mine;
  }
  std::string own = (top == "/" ? "" : top) + "/.Trash-" + uid;
  if (::mkdir(own.c_str(), 0700) != 0 && errno != EEXIST) {
    *error = errnoText("cannot create trash " + own, errno);
    return std::nullopt;
  }
  if (!checkOwnedFolder(own, error)) return std::nullopt;
  return own;
}

std::string localDeletionDate() {
  std::time_t now = std::time(nullptr);
  std::tm tm{};
  localtime_r(&now, &tm);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &tm);
  return text;
}

// The n-th candidate name for `name`: the name itself, then "<stem>.<n><ext>". Kept short
// enough for "<name>.trashinfo" to be a valid file name.
std::string candidateName(const std::string& name, int n) {
  std::size_t dot = name.find_last_of('.');
  if (dot == 0 || dot == std::string::npos) dot = name.size();
  std::string stem = name.substr(0, dot), ext = name.substr(dot);
  std::string suffix;
  if (n > 1) suffix = std::string(".").append(std::to_string(n));
  constexpr std::size_t kMax = NAME_MAX - sizeof(".trashinfo") + 1;
  if (ext.size() > 32) {
    stem += ext;
    ext.clear();
  }
  std::size_t room = kMax - ext.size() - suffix.size();
  if (stem.size() > room) stem.resize(room);
  return stem + suffix + ext;
}

bool writeAll(int fd, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

}  // namespace

Trash::Trash(std::string homeTrash) : homeTrash_(std::move(homeTrash)) {}

std::string percentEncodePath(const std::string& path) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : path) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
        c == '.' || c == '_' || c == '~' || c == '/') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
  }
  return out;
}

std::string mountPointOf(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return "/";
  std::string current = path;
  while (current != "/") {
    std::string parent = parentPath(current);
    struct stat parentSt {};
    if (::stat(parent.c_str(), &parentSt) != 0 || parentSt.st_dev != st.st_dev) break;
    current = parent;
  }
  return current;
}

std::optional<std::string> Trash::moveToTrash(const std::string& path, std::string* error) const {
  std::string ignored;
  if (!error) error = &ignored;
  auto absolute = absolutePath(path, error);
  if (!absolute) return std::nullopt;
  struct stat fileSt {};
  if (::lstat(absolute->c_str(), &fileSt) != 0) {
    *error = errnoText("cannot trash " + *absolute, errno);
    return std::nullopt;
  }

  // Which trash: the home trash when it lives on the file's file system.
  if (!makeDirectories(homeTrash_, 0700, error)) return std::nullopt;
  struct stat homeSt {};
  if (::stat(homeTrash_.c_str(), &homeSt) != 0) {
    *error = errnoText("cannot use trash " + homeTrash_, errno);
    return std::nullopt;
  }
  std::string trash, recordedPath;
  if (homeSt.st_dev == fileSt.st_dev) {
    trash = homeTrash_;
    recordedPath = *absolute;
  } else {
    auto volume = volumeTrash(*absolute, error);
    if (!volume) return std::nullopt;
    trash = *volume;
    std::string top = mountPointOf(parentPath(*absolute));
    recordedPath = top == "/" ? absolute->substr(1) : absolute->substr(top.size() + 1);
  }
  std::string files = trash + "/files", info = trash + "/info";
  if (!makeDirectories(files, 0700, error) || !makeDirectories(info, 0700, error))
    return std::nullopt;

  std::string record = "[Trash Info]\nPath=" + percentEncodePath(recordedPath) +
                       "\nDeletionDate=" + localDeletionDate() + "\n";
  std::string name = lastComponent(*absolute);
  for (int n = 1; n < 10000; ++n) {
    std::string candidate = candidateName(name, n);
    std::string infoPath = info + "/" + candidate + ".trashinfo";
    int fd = ::open(infoPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
      if (errno == EEXIST) continue;
      *error = errnoText("cannot write " + infoPath, errno);
      return std::nullopt;
    }
    bool written = writeAll(fd, record) && ::fsync(fd) == 0;
    int err = errno;
    ::close(fd);
    if (!written) {
      ::unlink(infoPath.c_str());
      *error = errnoText("cannot write " + infoPath, err);
      return std::nullopt;
    }
    std::string target = files + "/" + candidate;
    if (::renameat2(AT_FDCWD, absolute->c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) {
      return target;
    }
    err = errno;
    if (err == EINVAL) {
      // A file system that cannot rename without replacing: look first, then rename.
      struct stat taken {};
      if (::lstat(target.c_str(), &taken) == 0) {
        err = EEXIST;
      } else if (::rename(absolute->c_str(), target.c_str()) == 0) {
        return target;
      } else {
        err = errno;
      }
    }
    ::unlink(infoPath.c_str());
    if (err == EEXIST) continue;  // a stray file without a record holds the name
    *error = errnoText("cannot move " + *absolute + " to the trash", err);
    return std::nullopt;
  }
  *error = "cannot trash " + *absolute + ": no free name in " + files;
  return std::nullopt;
}

}  // namespace desktop
