#include "desktop/library/MediaReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <mutex>
#include <vector>

#include "kit/Date.h"

// The metadata library's 0.27 headers use std::auto_ptr throughout.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
}

namespace desktop {
namespace {

// ---- Content sniffing ----

bool startsWith(const std::uint8_t* p, std::size_t n, const char* magic, std::size_t len,
                std::size_t at = 0) {
  return n >= at + len && std::memcmp(p + at, magic, len) == 0;
}

bool isOneOf(const std::string& brand, std::initializer_list<const char*> brands) {
  for (const char* b : brands) {
    if (brand == b) return true;
  }
  return false;
}

// ISO base media files ("ftyp" first): HEIF images, or MP4/QuickTime/M4V videos. Audio-only
// brands and unknown brands are no media of this library.
platform::MediaType sniffIsoMedia(const std::uint8_t* p, std::size_t n, std::string* format) {
  std::uint32_t boxSize = (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) |
                          (std::uint32_t{p[2]} << 8) | std::uint32_t{p[3]};
  std::size_t end = std::min<std::size_t>(n, boxSize < 16 ? 16 : boxSize);
  std::vector<std::string> brands;
  brands.emplace_back(reinterpret_cast<const char*>(p + 8), 4);  // the major brand
  for (std::size_t at = 16; at + 4 <= end; at += 4)
    brands.emplace_back(reinterpret_cast<const char*>(p + at), 4);
  auto image = [](const std::string& b) {
    return isOneOf(
        b, {"heic", "heix", "heim", "heis", "hevc", "hevx", "mif1", "msf1", "avif", "avis"});
  };
  auto video = [](const std::string& b) {
    return isOneOf(
        b, {"qt  ", "isom", "iso2", "iso3", "iso4", "iso5", "iso6", "mp41", "mp42", "M4V ", "M4VH",
            "M4VP", "avc1", "3gp4", "3gp5", "3gp6", "3g2a", "MSNV", "f4v "});
  };
  // The major brand decides when it is known; otherwise the first known compatible brand.
  for (const auto& b : brands) {
    if (image(b)) {
      if (format) *format = "heif";
      return platform::MediaType::Image;
    }
    if (video(b)) {
      if (format) *format = "quicktime";
      return platform::MediaType::Video;
    }
    if (isOneOf(b, {"M4A ", "M4B ", "M4P "})) return platform::MediaType::Unknown;
  }
  return platform::MediaType::Unknown;
}

// ---- Metadata library set-up ----

std::mutex gXmpMutex;

void lockXmp(void* data, bool lock) {
  auto* mu = static_cast<std::mutex*>(data);
  if (lock) {
    mu->lock();
  } else {
    mu->unlock();
  }
}

void initialiseLibraries() {
  static std::once_flag once;
  std::call_once(once, [] {
    Exiv2::XmpParser::initialize(lockXmp, &gXmpMutex);
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    Exiv2::enableBMFF(true);
    av_log_set_level(AV_LOG_QUIET);
  });
}

std::string exifText(const Exiv2::ExifData& exif, const Exiv2::ExifKey& key) {
  auto it = exif.findKey(key);
  if (it == exif.end()) return {};
  std::string s = it->toString();
  while (!s.empty() && (s.back() == '\0' || s.back() == ' ')) s.pop_back();
  return s;
}

long exifNumber(const Exiv2::ExifData& exif, const char* key) {
  auto it = exif.findKey(Exiv2::ExifKey(key));
  return it == exif.end() || it->count() == 0 ? 0 : it->toLong();
}

void readImage(const std::string& path, MediaInfo& info) {
  try {
    auto image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    info.width = image->pixelWidth();
    info.height = image->pixelHeight();
    const Exiv2::ExifData& exif = image->exifData();
    if (info.width <= 0 || info.height <= 0) {
      info.width = static_cast<int>(exifNumber(exif, "Exif.Photo.PixelXDimension"));
      info.height = static_cast<int>(exifNumber(exif, "Exif.Photo.PixelYDimension"));
    }
    std::string date = exifText(exif, Exiv2::ExifKey("Exif.Photo.DateTimeOriginal"));
    if (date.empty()) return;
    std::string subSec = exifText(exif, Exiv2::ExifKey("Exif.Photo.SubSecTimeOriginal"));
    std::string offset = exifText(exif, Exiv2::ExifKey(0x9011, "Photo"));
    if (!parseExifCaptureTime(date, subSec, offset, &info.timeBase, &info.captureTime)) {
      info.problem = "damaged Exif: capture time \"" + date + "\" is not a date";
    }
  } catch (const std::exception& e) {
    info.problem = std::string("damaged image: ") + e.what();
  }
}

void readVideo(const std::string& path, MediaInfo& info) {
  AVFormatContext* context = nullptr;
  int rc = avformat_open_input(&context, path.c_str(), av_find_input_format("mov"), nullptr);
  if (rc < 0) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(rc, text, sizeof text);
    info.problem = std::string("damaged video: ") + text;
    return;
  }
  auto videoStream = [&]() -> AVStream* {
    for (unsigned i = 0; i < context->nb_streams; ++i) {
      if (context->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO)
        return context->streams[i];
    }
    return nullptr;
  };
  AVStream* stream = videoStream();
  // Some codecs leave the picture size to be found in the stream itself.
  if (!stream || stream->codecpar->width <= 0) {
    avformat_find_stream_info(context, nullptr);
    stream = videoStream();
  }
  if (context->duration != AV_NOPTS_VALUE && context->duration > 0) {
    info.duration = static_cast<double>(context->duration) / AV_TIME_BASE;
  } else if (stream && stream->duration != AV_NOPTS_VALUE && stream->duration > 0) {
    info.duration = static_cast<double>(stream->duration) * av_q2d(stream->time_base);
  }
  if (stream) {
    info.width = stream->codecpar->width;
    info.height = stream->codecpar->height;
  } else {
    info.problem = "damaged video: no picture track";
  }
  const AVDictionaryEntry* created = av_dict_get(context->metadata, "creation_time", nullptr, 0);
  if (!created && stream) created = av_dict_get(stream->metadata, "creation_time", nullptr, 0);
  if (created) {
    if (parseContainerTime(created->value, &info.captureTime)) {
      info.timeBase = TimeBase::Absolute;
    } else {
      info.problem =
          std::string("damaged video: creation time \"") + created->value + "\" is not a date";
    }
  }
  avformat_close_input(&context);
}

// Reads fixed-width decimal digits; false on any other character.
bool digits(const std::string& s, std::size_t at, std::size_t count, int* out) {
  if (at + count > s.size()) return false;
  int v = 0;
  for (std::size_t i = at; i < at + count; ++i) {
    if (s[i] < '0' || s[i] > '9') return false;
    v = v * 10 + (s[i] - '0');
  }
  *out = v;
  return true;
}

unsigned daysInMonth(int year, int month) {
  static const unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month == 2 && leap ? 29 : kDays[month - 1];
}

// "YYYY?MM?DD?HH?MM?SS" with the given separators; seconds of that civil time as if UTC.
bool parseCivil(const std::string& s, const char* dateSeps, const char* middleSeps, double* out) {
  int y, mo, d, h, mi, sec;
  if (s.size() < 19 || !digits(s, 0, 4, &y) || !digits(s, 5, 2, &mo) || !digits(s, 8, 2, &d) ||
      !digits(s, 11, 2, &h) || !digits(s, 14, 2, &mi) || !digits(s, 17, 2, &sec)) {
    return false;
  }
  if (!std::strchr(dateSeps, s[4]) || s[7] != s[4] || !std::strchr(middleSeps, s[10]) ||
      s[13] != ':' || s[16] != ':') {
    return false;
  }
  if (y < 1 || mo < 1 || mo > 12 || d < 1 || static_cast<unsigned>(d) > daysInMonth(y, mo) ||
      h > 23 || mi > 59 || sec > 60) {
    return false;
  }
  std::int64_t days = kit::daysFromCivil(y, static_cast<unsigned>(mo), static_cast<unsigned>(d));
  *out = static_cast<double>(days * 86400 + h * 3600 + mi * 60 + std::min(sec, 59));
  return true;
}

// "0.<digits>" of a run of digits; 0 when `s` is not all digits.
double fraction(const std::string& s) {
  double value = 0, scale = 0.1;
  for (char c : s) {
    if (c < '0' || c > '9') return 0;
    value += (c - '0') * scale;
    scale /= 10;
  }
  return value;
}

}  // namespace

platform::MediaType sniffMediaType(const std::uint8_t* p, std::size_t n, std::string* format) {
  auto found = [format](const char* name, platform::MediaType type) {
    if (format) *format = name;
    return type;
  };
  using platform::MediaType;
  if (startsWith(p, n, "\xFF\xD8\xFF", 3)) return found("jpeg", MediaType::Image);
  if (startsWith(p, n, "\x89PNG\r\n\x1A\n", 8)) return found("png", MediaType::Image);
  if (startsWith(p, n, "GIF87a", 6) || startsWith(p, n, "GIF89a", 6))
    return found("gif", MediaType::Image);
  if (startsWith(p, n, "RIFF", 4) && startsWith(p, n, "WEBP", 4, 8))
    return found("webp", MediaType::Image);
  if (startsWith(p, n, "II*\0", 4) || startsWith(p, n, "MM\0*", 4))
    return found("tiff", MediaType::Image);
  if (startsWith(p, n, "ftyp", 4, 4) && n >= 12) return sniffIsoMedia(p, n, format);
  // QuickTime files older than the "ftyp" box start with one of these atoms.
  for (const char* atom : {"moov", "mdat", "wide", "pnot"}) {
    if (startsWith(p, n, atom, 4, 4)) return found("quicktime", MediaType::Video);
  }
  return MediaType::Unknown;
}

bool parseExifCaptureTime(const std::string& dateTime, const std::string& subSec,
                          const std::string& offset, TimeBase* base, double* seconds) {
  double civil = 0;
  if (!parseCivil(dateTime, ":-", " T", &civil)) return false;
  civil += fraction(subSec);
  int oh, om;
  if (offset.size() >= 6 && (offset[0] == '+' || offset[0] == '-') && digits(offset, 1, 2, &oh) &&
      offset[3] == ':' && digits(offset, 4, 2, &om) && oh <= 14 && om <= 59) {
    int sign = offset[0] == '-' ? -1 : 1;
    *seconds = civil - sign * (oh * 3600 + om * 60);
    *base = TimeBase::Absolute;
  } else {
    *seconds = civil;
    *base = TimeBase::Local;
  }
  return true;
}

bool parseContainerTime(const std::string& text, double* seconds) {
  double civil = 0;
  if (!parseCivil(text, "-", "T ", &civil)) return false;
  std::size_t i = 19;
  if (i < text.size() && text[i] == '.') {
    std::size_t start = ++i;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') ++i;
    civil += fraction(text.substr(start, i - start));
  }
  if (i < text.size() && text[i] == 'Z') ++i;
  if (i != text.size()) return false;
  *seconds = civil;
  return true;
}

FileMediaReader::FileMediaReader() { initialiseLibraries(); }

MediaInfo FileMediaReader::read(const std::string& path) {
  MediaInfo info;
  int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    info.unreadable = true;
    info.problem = std::string("cannot open: ") + std::strerror(errno);
    return info;
  }
  struct stat st {};
  std::uint8_t head[256];
  ssize_t n = 0;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return info;
  }
  n = ::pread(fd, head, sizeof head, 0);
  if (n < 0) {
    info.unreadable = true;
    info.problem = std::string("cannot read: ") + std::strerror(errno);
    ::close(fd);
    return info;
  }
  info.type = sniffMediaType(head, static_cast<std::size_t>(n), &info.format);
  if (info.type != platform::MediaType::Unknown) {
    // The libraries open the file by name: the descriptor's name in /proc keeps them on the
    // very file examined here.
    static const bool haveProc = ::access("/proc/self/fd", F_OK) == 0;
    std::string name = haveProc ? "/proc/self/fd/" + std::to_string(fd) : path;
    if (info.type == platform::MediaType::Image) {
      readImage(name, info);
    } else {
      readVideo(name, info);
    }
  }
  ::close(fd);
  return info;
}

}  // namespace desktop

#pragma GCC diagnostic pop
