// The video player service on Linux, on Qt Multimedia: each player is a media player with its
// own audio output (the desktop's default output device, the one other programs play through)
// and a video sink whose pictures go to the view the owner gives.
//
// Qt's players need Qt's event loop: every call and every event is on the thread of the
// QCoreApplication, which is the kit's main queue in the window. Without a QCoreApplication
// a player is made failed, and so is every item given to it.
//
// The media backend is Qt's FFmpeg backend unless QT_MEDIA_BACKEND names another before the
// first player is made. A computer without a sound device plays the pictures all the same.
#pragma once

#include <memory>
#include <string>

#include "platform/VideoPlayer.h"

namespace desktop {

class QtVideoPlayers : public platform::VideoPlayers {
 public:
  // A player with no item: status ReadyToPlay when Qt's media backend is there, else Failed
  // (domain "media", code 1). Volume 1.0, not muted, rate 0. Main thread.
  std::shared_ptr<platform::Player> makePlayer() override;
  // An item for `url`: a "file:" URL, an absolute path, or an http(s) URL. Its status stays
  // Unknown until a player has it and has opened it: then ReadyToPlay, with its duration,
  // size and buffered range, or Failed with the backend's error (domain "media", the error's
  // number as the code, and its text) for a file that is missing or does not decode. Main
  // thread.
  std::shared_ptr<platform::PlayerItem> makePlayerItemWithURL(const std::string& url) override;
};

// The backend Qt's players are made with: "ffmpeg" unless QT_MEDIA_BACKEND is set. Sets the
// variable when it was unset. Call before the first player; any later call does nothing new.
std::string chooseMediaBackend();

}  // namespace desktop
