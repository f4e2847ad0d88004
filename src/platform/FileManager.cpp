#include "platform/FileManager.h"

namespace platform {
namespace {

bool unsupported(Error* error, const std::string& path) {
  if (error) *error = Error{"NSCocoaErrorDomain", 4, "The file manager keeps no files.", {{"NSFilePath", path}}};
  return false;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

bool FileManager::fileExistsAtPath(const std::string&, bool* isDirectory) {
  if (isDirectory) *isDirectory = false;
  return false;
}

bool FileManager::createDirectoryAtPath(const std::string& path, bool, Error* error) { return unsupported(error, path); }

std::optional<std::vector<std::string>> FileManager::contentsOfDirectoryAtPath(const std::string& path, Error* error) {
  unsupported(error, path);
  return std::nullopt;
}

bool FileManager::writeData(const std::vector<std::uint8_t>&, const std::string& path, Error* error) {
  return unsupported(error, path);
}

std::optional<std::vector<std::uint8_t>> FileManager::contentsAtPath(const std::string& path, Error* error) {
  unsupported(error, path);
  return std::nullopt;
}

bool FileManager::removeItemAtPath(const std::string& path, Error* error) { return unsupported(error, path); }

std::string fileURLWithPath(const std::string& path) {
  static const char* hex = "0123456789ABCDEF";
  std::string out = "file://";
  for (unsigned char c : path) {
    bool keep = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
                c == '.' || c == '~' || c == '/' || c == '(' || c == ')' || c == '!' || c == '$' ||
                c == '&' || c == '\'' || c == '*' || c == '+' || c == ',' || c == ';' || c == '=' || c == ':' || c == '@';
    if (keep) {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

std::optional<std::string> pathOfFileURL(const std::string& url) {
  const std::string scheme = "file://";
  if (url.compare(0, scheme.size(), scheme) != 0) return std::nullopt;
  std::string out;
  for (std::size_t i = scheme.size(); i < url.size(); ++i) {
    if (url[i] == '%' && i + 2 < url.size() && hexValue(url[i + 1]) >= 0 && hexValue(url[i + 2]) >= 0) {
      out += static_cast<char>(hexValue(url[i + 1]) * 16 + hexValue(url[i + 2]));
      i += 2;
    } else {
      out += url[i];
    }
  }
  if (out.empty() || out[0] != '/') return std::nullopt;
  return out;
}

}  // namespace platform
