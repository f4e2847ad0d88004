#include "platform/Types.h"

namespace platform {

std::string describeUserInfo(const Error& error) {
  if (error.userInfo.empty()) return "[:]";
  std::string s = "[";
  bool first = true;
  for (const auto& [key, value] : error.userInfo) {
    s += (first ? "\"" : ", \"") + key + "\": \"" + value + "\"";
    first = false;
  }
  return s + "]";
}

std::string describe(const Error& error) {
  std::string s = "Error Domain=" + error.domain + " Code=" + std::to_string(error.code) + " \"" +
                  error.localizedDescription + "\"";
  if (!error.userInfo.empty()) s += " UserInfo=" + describeUserInfo(error);
  return s;
}

}  // namespace platform
