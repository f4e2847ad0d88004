#include "desktop/media/VideoFrameGenerator.h"

#include <cctype>

#include "desktop/media/MediaDecoding.h"

namespace desktop {
namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// A URL scheme: letters, digits, "+", "-" and "." after a first letter, ended by ":".
bool hasScheme(const std::string& text) {
  std::size_t colon = text.find(':');
  if (colon == std::string::npos || colon == 0) return false;
  if (!std::isalpha(static_cast<unsigned char>(text[0]))) return false;
  for (std::size_t i = 1; i < colon; ++i) {
    char c = text[i];
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.') return false;
  }
  return true;
}

bool startsWithNoCase(const std::string& text, const std::string& prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) != prefix[i]) return false;
  }
  return true;
}

}  // namespace

std::optional<std::string> pathOfFileURL(const std::string& url) {
  if (!hasScheme(url)) return url.empty() ? std::nullopt : std::optional<std::string>(url);
  if (!startsWithNoCase(url, "file:")) return std::nullopt;
  std::string rest = url.substr(5);
  if (rest.rfind("//", 0) == 0) {
    std::size_t slash = rest.find('/', 2);
    std::string host = rest.substr(2, slash == std::string::npos ? std::string::npos : slash - 2);
    bool local = host.empty() || (host.size() == 9 && startsWithNoCase(host, "localhost"));
    if (!local) return std::nullopt;
    if (slash == std::string::npos) return std::nullopt;
    rest = rest.substr(slash);
  }
  if (rest.empty() || rest[0] != '/') return std::nullopt;
  std::string path;
  for (std::size_t i = 0; i < rest.size(); ++i) {
    if (rest[i] == '?' || rest[i] == '#') break;  // a query or fragment is no part of the path
    if (rest[i] != '%') {
      path += rest[i];
      continue;
    }
    int high = i + 2 < rest.size() ? hexValue(rest[i + 1]) : -1;
    int low = i + 2 < rest.size() ? hexValue(rest[i + 2]) : -1;
    if (high < 0 || low < 0 || (high == 0 && low == 0)) return std::nullopt;
    path += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return path;
}

kit::ImagePtr VideoFrameGenerator::copyCGImageAtTime(const std::string& url, double seconds,
                                                     platform::Error* error) {
  std::optional<std::string> path = pathOfFileURL(url);
  if (!path) {
    if (error) *error = platform::Error{"frames", 1, "Cannot open " + url + ": not a local file"};
    return nullptr;
  }
  std::string why;
  kit::ImagePtr image =
      decodeVideoFrame(*path, seconds, platform::kImageManagerMaximumSize, 0, &why);
  if (!image && error) *error = platform::Error{"frames", 2, why};
  return image;
}

}  // namespace desktop
