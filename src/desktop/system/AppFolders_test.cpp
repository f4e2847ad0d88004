#include "desktop/system/AppFolders.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "desktop/testing/DesktopTesting.h"

namespace desktop {
namespace {

using testing::ScopedEnv;

TEST(AppFolders, FollowTheXdgVariablesAndIgnoreRelativeOnes) {
  ScopedEnv home("HOME", "/h/ann");
  ScopedEnv config("XDG_CONFIG_HOME", "/c");
  ScopedEnv data("XDG_DATA_HOME", "relative/data");
  ScopedEnv cache("XDG_CACHE_HOME", std::nullopt);
  AppFolders f = AppFolders::fromEnvironment();
  EXPECT_EQ(f.config(), "/c/solvanta");
  EXPECT_EQ(f.data(), "/h/ann/.local/share/solvanta");
  EXPECT_EQ(f.cache(), "/h/ann/.cache/solvanta");
  EXPECT_EQ(f.documents(), "/h/ann/.local/share/solvanta/Documents");
  EXPECT_EQ(f.applicationSupport(), "/h/ann/.local/share/solvanta/Application Support");
  EXPECT_EQ(f.homeTrash(), "/h/ann/.local/share/Trash");
}

TEST(AppFolders, PicturesFolderComesFromUserDirs) {
  EXPECT_EQ(parsePicturesDir("XDG_PICTURES_DIR=\"$HOME/Bilder\"\n", "/h"), "/h/Bilder");
  EXPECT_EQ(parsePicturesDir("# comment\n  XDG_PICTURES_DIR = \"/srv/photos\"\n", "/h"),
            "/srv/photos");
  EXPECT_EQ(parsePicturesDir("XDG_PICTURES_DIR=\"$HOME/My \\\"Pics\\\"\"", "/h"), "/h/My \"Pics\"");
  EXPECT_EQ(parsePicturesDir("XDG_PICTURES_DIR=\"a\"\nXDG_PICTURES_DIR=\"/b\"\n", "/h"), "/b");
  EXPECT_EQ(parsePicturesDir("XDG_PICTURES_DIR=\"relative\"\n", "/h"), std::nullopt);
  EXPECT_EQ(parsePicturesDir("XDG_PICTURES_DIR=\"/unclosed\n", "/h"), std::nullopt);
  EXPECT_EQ(parsePicturesDir("XDG_PICTURES_DIRX=\"/x\"\nXDG_MUSIC_DIR=\"/m\"\n", "/h"),
            std::nullopt);
  EXPECT_EQ(parsePicturesDir("XDG_PICTURES_DIR=\"$HOMEY/x\"", "/h"), std::nullopt);
}

TEST(AppFolders, LibraryRootPrefersTheVariableThenUserDirsThenPictures) {
  testing::IsolatedHome home;
  const AppFolders& f = home.folders();
  EXPECT_EQ(defaultLibraryRoot(f), f.home + "/Pictures");
  testing::writeBytes(
      f.configHome + "/user-dirs.dirs",
      {'X', 'D', 'G', '_', 'P', 'I', 'C', 'T', 'U', 'R', 'E', 'S', '_', 'D', 'I', 'R',
       '=', '"', '$', 'H', 'O', 'M', 'E', '/', 'F', 'o', 't', 'o', 's', '"', '\n'});
  EXPECT_EQ(defaultLibraryRoot(f), f.home + "/Fotos");
  ScopedEnv library("SOLVANTA_LIBRARY", "/mnt/photos");
  EXPECT_EQ(defaultLibraryRoot(f), "/mnt/photos");
}

TEST(AppFolders, MakeDirectoriesGivesNewFoldersTheirModeExactly) {
  testing::TempDir dir;
  mode_t old = ::umask(077);
  std::string error;
  bool made = makeDirectories(dir / "a/b/c", 0755, &error);
  ::umask(old);
  ASSERT_TRUE(made) << error;
  struct stat st {};
  ASSERT_EQ(::stat((dir / "a/b").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0755u);
  EXPECT_TRUE(makeDirectories(dir / "a/b/c", 0700, &error));  // exists: left as it is
  ASSERT_EQ(::stat((dir / "a/b/c").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0755u);
  testing::writeBytes(dir / "file", {1});
  EXPECT_FALSE(makeDirectories(dir / "file/sub", 0700, &error));
  EXPECT_NE(error.find("Not a directory"), std::string::npos) << error;
}

}  // namespace
}  // namespace desktop
