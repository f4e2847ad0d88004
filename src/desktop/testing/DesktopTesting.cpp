#include "desktop/testing/DesktopTesting.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace desktop::testing {
namespace {

void removeTree(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return;
  if (S_ISDIR(st.st_mode)) {
    ::chmod(path.c_str(), 0700);
    for (const auto& name : listFolder(path)) removeTree(path + "/" + name);
    ::rmdir(path.c_str());
  } else {
    ::unlink(path.c_str());
  }
}

void makeParents(const std::string& path) {
  std::string error;
  std::size_t slash = path.find_last_of('/');
  ASSERT_TRUE(makeDirectories(path.substr(0, slash), 0755, &error)) << error;
}

// The two capabilities that let a process ignore file permissions.
constexpr std::uint32_t kOverrides = (1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH);

bool setEffective(bool keepOverrides) {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2] = {};
  if (::syscall(SYS_capget, &header, data) != 0) return false;
  if (keepOverrides) {
    data[0].effective |= kOverrides & data[0].permitted;
  } else {
    data[0].effective &= ~kOverrides;
  }
  return ::syscall(SYS_capset, &header, data) == 0;
}

}  // namespace

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") + "/solvanta-test-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  if (!::mkdtemp(name.data())) ADD_FAILURE() << "mkdtemp failed: " << std::strerror(errno);
  path_ = name.data();
}

TempDir::~TempDir() { removeTree(path_); }

ScopedEnv::ScopedEnv(std::string name, std::optional<std::string> value) : name_(std::move(name)) {
  if (const char* old = std::getenv(name_.c_str())) previous_ = old;
  if (value) {
    ::setenv(name_.c_str(), value->c_str(), 1);
  } else {
    ::unsetenv(name_.c_str());
  }
}

ScopedEnv::~ScopedEnv() {
  if (previous_) {
    ::setenv(name_.c_str(), previous_->c_str(), 1);
  } else {
    ::unsetenv(name_.c_str());
  }
}

IsolatedHome::IsolatedHome()
    : home_("HOME", dir_ / "home"),
      config_("XDG_CONFIG_HOME", dir_ / "home/.config"),
      data_("XDG_DATA_HOME", dir_ / "home/.local/share"),
      cache_("XDG_CACHE_HOME", dir_ / "home/.cache"),
      library_("SOLVANTA_LIBRARY", std::nullopt),
      folders_(AppFolders::fromEnvironment()) {
  std::string error;
  EXPECT_TRUE(makeDirectories(dir_ / "home", 0700, &error)) << error;
}

PermissionsEnforced::PermissionsEnforced() {
  if (::geteuid() == 0) dropped_ = setEffective(false);
}

PermissionsEnforced::~PermissionsEnforced() {
  if (dropped_) setEffective(true);
}

void writePhoto(const std::string& path, const samplegen::ExifFields& exif,
                std::optional<double> mtime, std::uint32_t seed) {
  samplegen::Bytes bytes = samplegen::encodeImage("JPEG", 32, 24, seed);
  ASSERT_FALSE(bytes.empty());
  if (!exif.dateTimeOriginal.empty()) {
    std::string error;
    bytes = samplegen::withExif(bytes, exif, &error);
    ASSERT_FALSE(bytes.empty()) << error;
  }
  writeBytes(path, bytes, mtime);
}

void writeBytes(const std::string& path, const std::vector<std::uint8_t>& bytes,
                std::optional<double> mtime) {
  makeParents(path);
  std::string error;
  ASSERT_TRUE(samplegen::writeFile(path, bytes, mtime, &error)) << error;
}

void writeClip(const std::string& path, double seconds, std::optional<std::string> creationTime,
               const char* container) {
  makeParents(path);
  samplegen::VideoOptions clip;
  clip.seconds = seconds;
  clip.creationTime = std::move(creationTime);
  clip.container = container;
  std::string error;
  ASSERT_TRUE(samplegen::writeVideo(path, clip, &error)) << error;
}

std::shared_ptr<FileAsset> fileAsset(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) {
    ADD_FAILURE() << "no file " << path;
    return nullptr;
  }
  WalkedFile file;
  file.path = path;
  file.id = FileId{static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)};
  file.size = st.st_size;
  file.mtimeNs = static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
  MediaInfo info = FileMediaReader().read(path);
  return std::make_shared<FileAsset>(file, info, kit::Date::fromSeconds(info.captureTime));
}

std::vector<std::string> listFolder(const std::string& folder) {
  std::vector<std::string> names;
  DIR* dir = ::opendir(folder.c_str());
  if (!dir) return names;
  while (dirent* e = ::readdir(dir)) {
    if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
      names.emplace_back(e->d_name);
  }
  ::closedir(dir);
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace desktop::testing
