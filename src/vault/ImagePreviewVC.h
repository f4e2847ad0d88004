// The viewers of the secret files: ImagePreviewVC shows one stored photo with share and
// delete; AVPlayerViewController plays one stored movie, presented over the file list.
// PreviewVC is a second photo viewer whose delete removes a photo-library asset; no screen
// pushes it. Main thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/ViewController.h"
#include "kit/Views.h"
#include "platform/PhotoLibrary.h"

namespace vault {

class ImagePreviewVC : public kit::ViewController {
 public:
  ImagePreviewVC();

  kit::Outlet<kit::ImageView> imageView{this, "imageView"};
  kit::Outlet<kit::View> adsView{this, "adsView"};
  kit::Outlet<kit::LayoutConstraint> adsViewHeightConstraint{this, "adsViewHeightConstraint"};
  kit::Outlet<kit::View> actionDialog{this, "actionDialog"};
  // Never read.
  platform::AssetPtr selectedImage;
  // The file to show (a file URL); set by the pusher.
  std::optional<std::string> imageUrl;
  // Never read.
  const std::vector<kit::ImagePtr> images;

  void loadView() override;
  // Shows the file; a missing URL or a file that is no image ends the process.
  void viewDidLoad() override;
  void viewWillAppear(bool animated) override;
  void viewDidLayoutSubviews() override;

  // Offers the file's path, as text, to the share sheet.
  void shareImageFile();
  // Removes the file with no question; on success a toast and a pop, on failure a console line.
  void deleteImageFile();
};

class PreviewVC : public kit::ViewController {
 public:
  PreviewVC();

  kit::Outlet<kit::ImageView> imageView{this, "imageView"};
  kit::Outlet<kit::Button> backButton{this, "backButton"};
  kit::Outlet<kit::Label> imageLabel{this, "imageLabel"};
  kit::Outlet<kit::View> adsView{this, "adsView"};
  kit::Outlet<kit::LayoutConstraint> adsViewHeightConstraint{this, "adsViewHeightConstraint"};
  // The asset that delete removes.
  platform::AssetPtr selectedImage = platform::emptyAsset();
  // The file to show (a file URL); set by the pusher.
  std::optional<std::string> imageUrl;
  // Never read.
  int totalPhotosCount = 0;

  void loadView() override;
  // Shows the file and puts its name in `imageLabel`; a missing URL or a file that is no image
  // ends the process.
  void viewDidLoad() override;
  // Asks "Alert!" before deleting `selectedImage` from the photo library; once deleted the
  // screen pops and CHECK_STATUS turns true.
  void deleteButtonAction();
};

// The presented movie player: play on presentation, pause, seek, close. It keeps what a
// person controls (playing or not, the playhead); whoever renders plays the file `url`
// accordingly (the window with its media player).
class AVPlayerViewController : public kit::ViewController {
 public:
  explicit AVPlayerViewController(std::string url);

  kit::Outlet<kit::Button> playPauseButton{this, "playPauseButton"};
  kit::Outlet<kit::Label> timeLbl{this, "timeLbl"};
  // The file, as a file URL, for the renderer.
  kit::Outlet<kit::Label> urlLbl{this, "urlLbl"};
  const std::string& url() const { return url_; }
  bool isPlaying() const { return playing_; }
  double position() const { return position_; }

  void loadView() override;
  // Starts playing (called when the presentation is done).
  void play();
  // Play or pause, whichever the player is not doing.
  void togglePlay();
  // Moves the playhead by `seconds` (back when negative), not before the start.
  void seekBy(double seconds);
  // The renderer reports the playhead as it plays.
  void setPosition(double seconds);
  // Pauses and dismisses the player.
  void close();

 private:
  void showState();
  std::string url_;
  bool playing_ = false;
  double position_ = 0;
};

}  // namespace vault
