// The application's lifecycle notifications, posted on the default notification centre by
// whoever runs the app (the window, a scripted run) on the main thread: once when launching
// has finished, and each time the app becomes active or leaves the foreground.
#pragma once

namespace kit {

inline constexpr const char* kApplicationDidFinishLaunchingNotification =
    "UIApplicationDidFinishLaunchingNotification";
inline constexpr const char* kApplicationDidBecomeActiveNotification =
    "UIApplicationDidBecomeActiveNotification";
inline constexpr const char* kApplicationWillResignActiveNotification =
    "UIApplicationWillResignActiveNotification";
inline constexpr const char* kApplicationDidEnterBackgroundNotification =
    "UIApplicationDidEnterBackgroundNotification";

}  // namespace kit
