#include "desktop/system/FileUtil.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

namespace desktop {
namespace {

std::string describeErrno(const std::string& what, int err) {
  return what + ": " + std::strerror(err);
}

bool writeAll(int fd, std::string_view data) {
  while (!data.empty()) {
    ssize_t n = ::write(fd, data.data(), data.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

std::mutex gDiagnosticMutex;
DiagnosticHandler gDiagnosticHandler;

}  // namespace

std::optional<std::string> readWholeFile(const std::string& path, std::string* error) {
  if (error) error->clear();
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    if (error && errno != ENOENT) *error = describeErrno("cannot open " + path, errno);
    return std::nullopt;
  }
  std::string out;
  char buffer[16384];
  while (true) {
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      if (error) *error = describeErrno("cannot read " + path, errno);
      ::close(fd);
      return std::nullopt;
    }
    if (n == 0) break;
    out.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(fd);
  return out;
}

bool writeFileAtomically(const std::string& path, std::string_view contents, mode_t mode,
                         std::string* error) {
  std::string folder = parentPath(path);
  std::string pattern = path + ".tmp-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  int fd = ::mkostemp(name.data(), O_CLOEXEC);
  if (fd < 0) {
    if (error) *error = describeErrno("cannot create a file in " + folder, errno);
    return false;
  }
  std::string temp(name.data());
  bool ok = ::fchmod(fd, mode) == 0 && writeAll(fd, contents) && ::fsync(fd) == 0;
  int err = errno;
  if (::close(fd) != 0 && ok) {
    ok = false;
    err = errno;
  }
  if (ok && ::rename(temp.c_str(), path.c_str()) != 0) {
    ok = false;
    err = errno;
  }
  if (!ok) {
    ::unlink(temp.c_str());
    if (error) *error = describeErrno("cannot write " + path, err);
    return false;
  }
  int dirFd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirFd >= 0) {
    ::fsync(dirFd);
    ::close(dirFd);
  }
  return true;
}

std::vector<std::string_view> settingLines(std::string_view text) {
  std::vector<std::string_view> lines;
  std::size_t pos = 0;
  while (pos < text.size()) {
    std::size_t end = text.find('\n', pos);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(pos, end - pos);
    pos = end + 1;
    std::size_t start = line.find_first_not_of(" \t");
    if (start == std::string_view::npos || line[start] == '#') continue;
    lines.push_back(line.substr(start));
  }
  return lines;
}

std::string parentPath(const std::string& path) {
  std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

std::string lastComponent(const std::string& path) {
  std::size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

DiagnosticHandler setDiagnosticHandler(DiagnosticHandler handler) {
  std::lock_guard lock(gDiagnosticMutex);
  return std::exchange(gDiagnosticHandler, std::move(handler));
}

void diagnose(const std::string& line) {
  DiagnosticHandler handler;
  {
    std::lock_guard lock(gDiagnosticMutex);
    handler = gDiagnosticHandler;
  }
  if (handler) {
    handler(line);
  } else {
    std::fprintf(stderr, "solvanta: %s\n", line.c_str());
  }
}

}  // namespace desktop
