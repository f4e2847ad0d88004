#include "desktop/Platform.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <mutex>

#include "desktop/system/Device.h"
#include "desktop/system/FileUtil.h"
#include "desktop/testing/DesktopTesting.h"
#include "desktop/threaded/ThreadedEnvironment.h"
#include "platform/Platform.h"

namespace desktop {
namespace {

struct PlatformTest : ::testing::Test {
  ThreadedEnvironment env{nullptr, 2};
  testing::IsolatedHome home;
  std::mutex mu;
  std::vector<std::vector<std::string>> launched;
  std::unique_ptr<Platform> make(PlatformOptions options = {}) {
    options.launcher = [this](const std::vector<std::string>& argv) {
      std::lock_guard lock(mu);
      launched.push_back(argv);
      return argv.size() == 2 && argv[1].find("fail") == std::string::npos;
    };
    return std::make_unique<Platform>(std::move(options));
  }
};

mode_t modeOf(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 0777 : 0;
}

TEST_F(PlatformTest, InstallsItsServicesAndKeepsDataInTheXdgFolders) {
  {
    auto p = make();
    EXPECT_EQ(&platform::photoLibrary(), &p->photos());
    EXPECT_EQ(&platform::preferences(), &p->preferences());
    EXPECT_EQ(p->photos().root(), home.folders().home + "/Pictures");
    EXPECT_EQ(modeOf(home.folders().config()), 0700u);
    EXPECT_EQ(modeOf(home.folders().cache()), 0700u);

    platform::preferences().setBool(true, "IS_PIN_SET");
    EXPECT_TRUE(testing::listFolder(home.folders().config()) ==
                std::vector<std::string>{"preferences.json"});

    auto& files = platform::fileManager();
    EXPECT_EQ(files.searchPathForDirectoriesInDomains(platform::kDocumentDirectory,
                                                      platform::kUserDomainMask, true),
              std::vector<std::string>{home.folders().documents()});
    EXPECT_EQ(modeOf(home.folders().documents()), 0700u);
    EXPECT_EQ(modeOf(home.folders().data()), 0700u);
    EXPECT_EQ(files.searchPathForDirectoriesInDomains(platform::kApplicationSupportDirectory,
                                                      platform::kUserDomainMask, false),
              std::vector<std::string>{"~/.local/share/solvanta/Application Support"});
    EXPECT_EQ(modeOf(home.folders().applicationSupport()), 0700u);
    EXPECT_TRUE(
        files.searchPathForDirectoriesInDomains(platform::kDocumentDirectory, 8, true).empty());
  }
  EXPECT_FALSE(platform::services().photoLibrary);
  // Preferences written in one run are there in the next.
  auto again = make();
  EXPECT_TRUE(platform::preferences().boolForKey("IS_PIN_SET"));
}

TEST_F(PlatformTest, FileSystemFiguresAreIntegersInBytes) {
  auto p = make();
  platform::Error error;
  auto attributes =
      platform::fileManager().attributesOfFileSystemForPath(home.dir().path(), &error);
  ASSERT_TRUE(attributes);
  auto size = attributes->at(platform::kFileSystemSize).asInteger();
  auto free = attributes->at(platform::kFileSystemFreeSize).asInteger();
  ASSERT_TRUE(size && free);
  EXPECT_GT(*size, 0);
  EXPECT_LE(*free, *size);
  EXPECT_FALSE(
      platform::fileManager().attributesOfFileSystemForPath(home.dir() / "missing", &error));
  EXPECT_EQ(error.code, 260);
}

TEST_F(PlatformTest, LibraryRootFromOptionsOrVariable) {
  std::string error;
  ASSERT_TRUE(makeDirectories(home.dir() / "elsewhere", 0755, &error));
  {
    testing::ScopedEnv library("SOLVANTA_LIBRARY", home.dir() / "elsewhere");
    EXPECT_EQ(make()->photos().root(), home.dir() / "elsewhere");
  }
  PlatformOptions options;
  options.libraryRoot = home.dir() / "elsewhere/../elsewhere";
  EXPECT_EQ(make(std::move(options))->photos().root(), home.dir() / "elsewhere");
}

TEST_F(PlatformTest, DeviceIsThisLinuxMachine) {
  auto p = make();
  auto& device = platform::device();
  EXPECT_FALSE(device.systemName().empty());
  EXPECT_FALSE(device.systemVersion().empty());
  EXPECT_FALSE(device.name().empty());
  EXPECT_FALSE(device.machineIdentifier().empty());
  EXPECT_EQ(dottedVersion("6.1.0-18-amd64"), "6.1.0");
  EXPECT_EQ(dottedVersion("5.15.90.1-microsoft-standard"), "5.15.90.1");
  EXPECT_EQ(dottedVersion("6."), "6");
  EXPECT_EQ(dottedVersion("custom"), "");
}

// The system is the distribution of /etc/os-release; without that file, Linux and its kernel.
TEST_F(PlatformTest, DeviceSystemComesFromOsRelease) {
  ASSERT_TRUE(writeFileAtomically(home.dir() / "os-release",
                                  "PRETTY_NAME=\"Testix 3\"\nNAME=\"Testix Linux\"\nVERSION_ID=\"3.1\"\n", 0644));
  Device named(home.dir() / "os-release");
  EXPECT_EQ(named.systemName(), "Testix Linux");
  EXPECT_EQ(named.systemVersion(), "3.1");
  EXPECT_EQ(named.systemMajorVersion(), 3);

  Device bare(home.dir() / "missing");
  EXPECT_EQ(bare.systemName(), "Linux");
  EXPECT_GT(bare.systemMajorVersion(), 0);  // the kernel's release
}

TEST_F(PlatformTest, WebAndMailLinksOpenThroughTheDesktopOpener) {
  auto p = make();
  auto& app = platform::application();
  EXPECT_TRUE(app.canOpenURL("https://example.org/help"));
  EXPECT_TRUE(app.canOpenURL("MAILTO:someone@example.org"));
  EXPECT_FALSE(app.canOpenURL("itms-apps://x"));
  EXPECT_FALSE(app.canOpenURL("no scheme"));
  std::atomic<int> done{0};
  std::vector<bool> results(3);
  const char* urls[] = {"https://example.org/help", "https://example.org/fail",
                        "ftp://example.org"};
  for (int i = 0; i < 3; ++i) {
    app.openURL(urls[i], {}, [&, i](bool ok) {
      EXPECT_TRUE(kit::isMainThread());
      results[static_cast<std::size_t>(i)] = ok;
      ++done;
    });
  }
  ASSERT_TRUE(env.standaloneLoop()->runUntil([&] { return done.load() == 3; }, 30));
  EXPECT_EQ(results, (std::vector<bool>{true, false, false}));
  // Links open on a global queue, so in no fixed order.
  std::lock_guard lock(mu);
  std::sort(launched.begin(), launched.end());
  EXPECT_EQ(launched,
            (std::vector<std::vector<std::string>>{{"xdg-open", "https://example.org/fail"},
                                                   {"xdg-open", "https://example.org/help"}}));
}

TEST_F(PlatformTest, ImagesFramesAndHouseAdsAreInstalledWithTheirOptions) {
  testing::writeClip(home.dir() / "Pictures/clip.mov", 1.0, std::nullopt);
  PlatformOptions options;
  auto creative = kit::Image::fromPixels(2, 2, std::vector<std::uint8_t>(16, 255));
  options.houseAds.interstitialCreatives = {creative};
  options.houseAds.latencySeconds = 0;
  options.images.cacheCount = 1;
  auto p = make(std::move(options));
  EXPECT_EQ(&platform::imageManager(), &p->images());
  EXPECT_EQ(&platform::assetImageGenerator(), &p->frames());
  EXPECT_EQ(&platform::adsNetwork(), &p->ads());

  platform::Error error;
  EXPECT_TRUE(platform::assetImageGenerator().copyCGImageAtTime(
      "file://" + home.dir().path() + "/Pictures/clip.mov", 0, &error))
      << error.localizedDescription;

  std::atomic<bool> loaded{false};
  std::shared_ptr<platform::InterstitialAd> ad;
  platform::adsNetwork().loadInterstitialWithAdUnitID("unit", {}, [&](auto a, auto) {
    ad = a;
    loaded = true;
  });
  ASSERT_TRUE(env.standaloneLoop()->runUntil([&] { return loaded.load(); }, 30));
  EXPECT_TRUE(ad);
}

}  // namespace
}  // namespace desktop
