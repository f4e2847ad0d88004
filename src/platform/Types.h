// Shared platform types: errors, media types, authorization states.
#pragma once

#include <map>
#include <string>

namespace platform {

// A platform error: domain, code and the text the platform would show.
struct Error {
  std::string domain;
  int code = 0;
  std::string localizedDescription;
  // Further facts (a file's path, an underlying error), by name.
  std::map<std::string, std::string> userInfo = {};
};

// The error as the platform describes it: Error Domain=D Code=N "text" UserInfo={...}.
std::string describe(const Error& error);
// Its userInfo alone: ["key": "value", ...], keys in order; [:] when empty.
std::string describeUserInfo(const Error& error);

// Media types of the photo library (the platform's values).
enum class MediaType : int { Unknown = 0, Image = 1, Video = 2, Audio = 3 };

// Authorization states of a protected resource (the platform's values). Other values may
// come from a newer platform; callers compare the integer.
enum class AuthorizationStatus : int {
  NotDetermined = 0,
  Restricted = 1,
  Denied = 2,
  Authorized = 3,
  Limited = 4,
};

}  // namespace platform
