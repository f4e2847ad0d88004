// HomeVC: the hub. It shows the photo and video counts and two disk figures, loads the banner
// on every appearance, and opens duplicate photos, duplicate videos, the secret space and the
// settings. Main thread.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kit/ViewController.h"
#include "kit/Views.h"
#include "platform/PhotoLibrary.h"

namespace shell {

class HomeVC : public kit::ViewController {
 public:
  HomeVC();

  kit::Outlet<kit::Label> totalPhotoCount{this, "totalPhotoCount"};
  kit::Outlet<kit::Label> totalVideoCount{this, "totalVideoCount"};
  kit::Outlet<kit::Label> totalContactCount{this, "totalContactCount"};
  // Shows the free space, in spite of its name.
  kit::Outlet<kit::Label> usedSpace{this, "usedSpace"};
  // Shows the space used on disk, in spite of its name.
  kit::Outlet<kit::Label> usedRam{this, "usedRam"};
  kit::Outlet<kit::LayoutConstraint> adsheightConstarint{this, "adsheightConstarint"};
  kit::Outlet<kit::View> adsView{this, "adsView"};

  void loadView() override;
  // Takes the three figures, once: coming back does not refresh them.
  void viewDidLoad() override;
  void viewWillAppear(bool animated) override;

  // Actions, each ending (but menuBtn:) with the paced interstitial over this screen.
  void menuBtn(kit::Object* sender);
  void photoBtn(kit::Object* sender);
  void videoBtn(kit::Object* sender);
  void secretBtn(kit::Object* sender);

 private:
  void openDuplicates(const std::string& type);
  void showDiskFigures();
};

// An empty object the gallery picker holds.
class HomeVM {};

// The gallery fetcher of the secret space's picker.
class HomeHelper {
 public:
  static std::shared_ptr<HomeHelper> shared();

  // Main thread only.
  std::vector<platform::AssetPtr> imageArray;
  std::vector<std::string> mediaURLs;  // never used

  // Empties imageArray now; later, on the main queue (by way of the background queue),
  // fetches newest first every asset for "Images" (videos included) or the videos for any
  // other text, appends them to imageArray and hands imageArray to `completion`.
  void fetchGalleryAssets(const std::string& type,
                          std::function<void(const std::vector<platform::AssetPtr>&)> completion);
};

}  // namespace shell
