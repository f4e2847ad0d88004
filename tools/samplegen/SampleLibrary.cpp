#include "samplegen/SampleLibrary.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <vector>

#include "samplegen/SampleMedia.h"

namespace samplegen {
namespace {

// File times of files whose capture time comes from their content: far from every group.
const double kContentFileTime = utcSeconds(2024, 1, 1, 12, 0, 0);

struct Photo {
  std::string path;
  const char* format;  // "JPEG", "PNG" or "HEIC"
  ExifFields exif;     // no date: the file time decides
  double fileTime = kContentFileTime;
  std::string group;      // the group it must land in; empty for a single
  bool validDate = true;  // false: the Exif date is no date, the file time decides
};

struct Video {
  std::string path;
  VideoOptions clip;
  double fileTime = kContentFileTime;
  std::string group;
};

std::string chainTime(int i) {
  int second = i * 4;
  char text[32];
  std::snprintf(text, sizeof text, "2023:06:16 07:%02d:%02d", second / 60, second % 60);
  return text;
}

std::vector<Photo> photos() {
  std::vector<Photo> list = {
      // A burst: 1, 2 and 4 seconds apart, one section of four.
      {"2023-06-10/burst_a_1.jpg", "JPEG", {"2023:06:10 09:15:00"}, kContentFileTime, "A"},
      {"2023-06-10/burst_a_2.jpg", "JPEG", {"2023:06:10 09:15:01"}, kContentFileTime, "A"},
      {"2023-06-10/burst_a_3.jpg", "JPEG", {"2023:06:10 09:15:03"}, kContentFileTime, "A"},
      {"2023-06-10/burst_a_4.jpg", "JPEG", {"2023:06:10 09:15:07"}, kContentFileTime, "A"},
      // Exactly 5 seconds after the burst's last photo: no longer a duplicate.
      {"2023-06-10/single_0915.jpg", "JPEG", {"2023:06:10 09:15:12"}},
      // Two photos of one second: the fraction of the second orders them.
      {"2023-06-10/pair_b_1.jpg", "JPEG", {"2023:06:10 14:00:00", "700"}, kContentFileTime, "B"},
      {"2023-06-10/pair_b_2.jpg", "JPEG", {"2023:06:10 14:00:00", "200"}, kContentFileTime, "B"},
      // A photo under a text name: its content makes it a photo.
      {"2023-06-11/lunch.jpg", "JPEG", {"2023:06:11 10:00:00"}, kContentFileTime, "C"},
      {"2023-06-11/lunch-copy.txt", "JPEG", {"2023:06:11 10:00:02"}, kContentFileTime, "C"},
      {"2023-06-11/evening.png", "PNG", {"2023:06:11 18:30:00"}},
      // A PNG and a JPEG three seconds apart.
      {"2023-06-12/desk.png", "PNG", {"2023:06:12 08:00:00"}, kContentFileTime, "D"},
      {"2023-06-12/desk.jpg", "JPEG", {"2023:06:12 08:00:03"}, kContentFileTime, "D"},
      // HEIC photos two seconds apart.
      {"2023-06-13/garden_1.heic", "HEIC", {"2023:06:13 12:00:00"}, kContentFileTime, "E"},
      {"2023-06-13/garden_2.heic", "HEIC", {"2023:06:13 12:00:02"}, kContentFileTime, "E"},
      // A group across midnight.
      {"2023-06-14/midnight_1.jpg", "JPEG", {"2023:06:14 23:59:58"}, kContentFileTime, "F"},
      {"2023-06-14/midnight_2.jpg", "JPEG", {"2023:06:15 00:00:01"}, kContentFileTime, "F"},
      // Photos without Exif: their file times decide.
      {"no-exif/scan_1.png", "PNG", {}, utcSeconds(2023, 7, 1, 10, 0, 0), "H"},
      {"no-exif/scan_2.png", "PNG", {}, utcSeconds(2023, 7, 1, 10, 0, 2), "H"},
      {"no-exif/scan_3.jpg", "JPEG", {}, utcSeconds(2023, 7, 2, 10, 0, 0)},
      // A capture time that is no date: the file time stands in.
      {"trouble/bad_exif.jpg",
       "JPEG",
       {"2023:13:45 99:99:99"},
       utcSeconds(2023, 8, 2, 9, 0, 0),
       "",
       false},
  };
  // A chain: a photo every 4 seconds for a minute makes one section of sixteen.
  for (int i = 0; i < 16; ++i) {
    char name[64];
    std::snprintf(name, sizeof name, "chain/chain_%02d.jpg", i + 1);
    list.push_back({name, "JPEG", {chainTime(i)}, kContentFileTime, "G"});
  }
  return list;
}

std::vector<Video> videos() {
  auto clip = [](const char* path, double seconds, std::optional<std::string> created,
                 const char* container, std::string group) {
    Video v{path, {}, kContentFileTime, std::move(group)};
    v.clip.seconds = seconds;
    v.clip.creationTime = std::move(created);
    v.clip.container = container;
    return v;
  };
  std::vector<Video> list = {
      clip("clips/v1.mov", 3.0, "2023-06-20T10:00:00.000000Z", "mov", "V1"),
      clip("clips/v2.mp4", 3.0, "2023-06-20T11:00:00.000000Z", "mp4", "V1"),
      clip("clips/v3.mov", 5.0, "2023-06-21T10:00:00.000000Z", "mov", ""),
      // As long as v1 and v2, but v3 lies between: no duplicate.
      clip("clips/v4.mov", 3.0, "2023-06-22T10:00:00.000000Z", "mov", ""),
      clip("clips/v5.m4v", 2.5, "2023-06-23T10:00:00.000000Z", "ipod", "V2"),
      clip("clips/v6.mov", 2.5, "2023-06-24T10:00:00.000000Z", "mov", "V2"),
  };
  Video undated = clip("clips/v7.mov", 4.0, std::nullopt, "mov", "");
  undated.fileTime = utcSeconds(2023, 6, 25, 10, 0, 0);
  list.push_back(undated);
  return list;
}

bool makeFolder(const std::string& path, std::string* error) {
  for (std::size_t pos = 1; pos != std::string::npos;) {
    pos = path.find('/', pos + 1);
    std::string part = path.substr(0, pos);
    if (::mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) {
      *error = "cannot create " + part + ": " + std::strerror(errno);
      return false;
    }
  }
  return true;
}

bool place(const std::string& dir, const std::string& relative, std::string* error) {
  std::size_t slash = relative.find_last_of('/');
  return slash == std::string::npos || makeFolder(dir + "/" + relative.substr(0, slash), error);
}

// Groups in order of first appearance in `items` (which are in capture order).
template <class Item>
nlohmann::json groupsOf(const std::vector<Item>& items) {
  std::vector<std::string> order;
  std::map<std::string, std::vector<std::string>> members;
  for (const auto& item : items) {
    if (item.group.empty()) continue;
    if (!members.count(item.group)) order.push_back(item.group);
    members[item.group].push_back(item.path);
  }
  nlohmann::json groups = nlohmann::json::array();
  for (const auto& g : order) groups.push_back(members[g]);
  return groups;
}

}  // namespace

bool writeSampleLibrary(const std::string& dir, std::string* error) {
  std::string ignored;
  if (!error) error = &ignored;
  if (!makeFolder(dir, error)) return false;
  nlohmann::json manifest;
  manifest["timeZone"] = "UTC";

  std::vector<Photo> written;
  std::uint32_t seed = 1;
  for (const Photo& photo : photos()) {
    Bytes bytes;
    if (std::strcmp(photo.format, "HEIC") == 0) {
      bytes = encodeHeic(64, 64, seed++, &photo.exif, error);
      if (bytes.empty()) continue;  // no HEVC encoder here: leave HEIC out
    } else {
      bytes = encodeImage(photo.format, 64, 48, seed++);
      if (!photo.exif.dateTimeOriginal.empty()) bytes = withExif(bytes, photo.exif, error);
      if (bytes.empty()) return false;
    }
    if (!place(dir, photo.path, error) ||
        !writeFile(dir + "/" + photo.path, bytes, photo.fileTime, error)) {
      return false;
    }
    written.push_back(photo);
  }
  error->clear();

  // Capture order: Exif time, else file time (all sample times are far enough apart that the
  // zone cannot reorder a camera time and a file time).
  std::vector<Photo> ordered = written;
  auto key = [](const Photo& p) -> std::string {
    if (!p.exif.dateTimeOriginal.empty() && p.validDate) {
      return p.exif.dateTimeOriginal + "." + p.exif.subSecTimeOriginal;
    }
    char text[32];
    std::time_t t = static_cast<std::time_t>(p.fileTime);
    std::tm tm{};
    gmtime_r(&t, &tm);
    std::strftime(text, sizeof text, "%Y:%m:%d %H:%M:%S", &tm);
    return text;
  };
  std::stable_sort(ordered.begin(), ordered.end(),
                   [&](const Photo& a, const Photo& b) { return key(a) < key(b); });
  manifest["photoGroups"] = groupsOf(ordered);

  std::vector<Video> clips = videos();
  for (const Video& video : clips) {
    std::string path = dir + "/" + video.path;
    if (!place(dir, video.path, error) || !writeVideo(path, video.clip, error) ||
        !setModificationTime(path, video.fileTime)) {
      if (error->empty()) *error = "cannot set the time of " + path;
      return false;
    }
  }
  manifest["videoGroups"] = groupsOf(clips);

  manifest["photos"] = nlohmann::json::array();
  for (const auto& p : ordered) manifest["photos"].push_back(p.path);
  manifest["videos"] = nlohmann::json::array();
  for (const auto& v : clips) manifest["videos"].push_back(v.path);

  // Files that are no photos, and a photo cut short inside its Exif.
  if (!makeFolder(dir + "/trouble", error)) return false;
  Bytes noise(3000);
  for (std::size_t i = 0; i < noise.size(); ++i)
    noise[i] = static_cast<std::uint8_t>((i * 7919u) >> 3);
  const std::string text = "Sample library of Solvanta.\n";
  Bytes truncated = withExif(encodeImage("JPEG", 64, 48, 99), {"2023:08:01 09:00:00"}, error);
  truncated.resize(std::min<std::size_t>(truncated.size(), 60));
  if (!writeFile(dir + "/trouble/broken.jpg", noise, kContentFileTime, error) ||
      !writeFile(dir + "/trouble/empty.jpg", {}, kContentFileTime, error) ||
      !writeFile(dir + "/trouble/readme.txt", Bytes(text.begin(), text.end()), kContentFileTime,
                 error) ||
      !writeFile(dir + "/trouble/truncated.jpg", truncated, utcSeconds(2023, 8, 1, 9, 0, 0),
                 error)) {
    return false;
  }
  manifest["notMedia"] = {"trouble/broken.jpg", "trouble/empty.jpg", "trouble/readme.txt"};
  manifest["damaged"] = {"trouble/bad_exif.jpg", "trouble/truncated.jpg"};
  manifest["photos"].push_back("trouble/truncated.jpg");

  // Names the walk never takes: a hidden folder and file (which would join burst A), a second
  // name of a burst photo, symbolic links to a photo and to a folder above.
  Bytes hidden = withExif(encodeImage("JPEG", 64, 48, 77), {"2023:06:10 09:15:02"}, error);
  if (hidden.empty() || !makeFolder(dir + "/2023-06-10/.thumbnails", error) ||
      !writeFile(dir + "/2023-06-10/.thumbnails/burst_a_2.jpg", hidden, kContentFileTime, error) ||
      !writeFile(dir + "/2023-06-10/.burst_a_5.jpg", hidden, kContentFileTime, error) ||
      !makeFolder(dir + "/links", error)) {
    return false;
  }
  struct Link {
    std::string target, name;
    bool hard;
  };
  for (const Link& link :
       {Link{dir + "/2023-06-10/burst_a_2.jpg", "links/burst_a_2-again.jpg", true},
        Link{"../2023-06-10/single_0915.jpg", "links/single-link.jpg", false},
        Link{"..", "links/loop", false}}) {
    std::string at = dir + "/" + link.name;
    ::unlink(at.c_str());
    int rc = link.hard ? ::link(link.target.c_str(), at.c_str())
                       : ::symlink(link.target.c_str(), at.c_str());
    if (rc != 0) {
      *error = "cannot link " + at + ": " + std::strerror(errno);
      return false;
    }
  }
  manifest["neverScanned"] = {"2023-06-10/.thumbnails/burst_a_2.jpg", "2023-06-10/.burst_a_5.jpg",
                              "links/burst_a_2-again.jpg", "links/single-link.jpg", "links/loop"};

  std::ofstream out(dir + "/" + kManifestName, std::ios::trunc);
  out << manifest.dump(2) << "\n";
  if (!out) {
    *error = "cannot write the manifest";
    return false;
  }
  return true;
}

}  // namespace samplegen
