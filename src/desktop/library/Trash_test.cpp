#include "desktop/library/Trash.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "desktop/system/FileUtil.h"
#include "desktop/testing/DesktopTesting.h"

namespace desktop {
namespace {

using testing::TempDir;

TEST(TrashPaths, PercentEncodingKeepsOnlyUnreservedBytesAndSlashes) {
  EXPECT_EQ(percentEncodePath("/home/ann/Pictures/a-b_c.d~e.jpg"),
            "/home/ann/Pictures/a-b_c.d~e.jpg");
  EXPECT_EQ(percentEncodePath("/p/my photo 100%.jpg"), "/p/my%20photo%20100%25.jpg");
  EXPECT_EQ(percentEncodePath("/p/caf\xC3\xA9\n#?.jpg"), "/p/caf%C3%A9%0A%23%3F.jpg");
  EXPECT_EQ(percentEncodePath("/p/\xE9"), "/p/%E9");
}

TEST(TrashPaths, MountPointIsTheHighestFolderOnTheSameDevice) {
  EXPECT_EQ(mountPointOf("/"), "/");
  TempDir dir;
  std::string top = mountPointOf(dir.path());
  struct stat a {
  }, b{};
  ASSERT_EQ(::stat(top.c_str(), &a), 0);
  ASSERT_EQ(::stat(dir.path().c_str(), &b), 0);
  EXPECT_EQ(a.st_dev, b.st_dev);
  EXPECT_EQ(dir.path().rfind(top == "/" ? "/" : top + "/", 0), 0u);
  if (top != "/") {
    ASSERT_EQ(::stat(parentPath(top).c_str(), &a), 0);
    EXPECT_NE(a.st_dev, b.st_dev);
  }
}

struct TrashTest : ::testing::Test {
  TempDir dir;
  Trash trash{dir / "data/Trash"};
  std::string files = dir / "data/Trash/files";
  std::string info = dir / "data/Trash/info";
};

TEST_F(TrashTest, TakenNamesMoveOnAndNothingIsReplaced) {
  testing::writeBytes(dir / "a/photo.jpg", {1});
  testing::writeBytes(dir / "b/photo.jpg", {2});
  testing::writeBytes(dir / "c/photo.jpg", {3});
  std::string error;
  ASSERT_EQ(trash.moveToTrash(dir / "a/photo.jpg", &error), files + "/photo.jpg") << error;
  // A record that someone else holds, and a stray file without a record.
  testing::writeBytes(info + "/photo.2.jpg.trashinfo", {'x'});
  testing::writeBytes(files + "/photo.3.jpg", {9});
  ASSERT_EQ(trash.moveToTrash(dir / "b/photo.jpg", &error), files + "/photo.4.jpg") << error;
  ASSERT_EQ(trash.moveToTrash(dir / "c/photo.jpg", &error), files + "/photo.5.jpg") << error;

  EXPECT_EQ(testing::listFolder(info),
            (std::vector<std::string>{"photo.2.jpg.trashinfo", "photo.4.jpg.trashinfo",
                                      "photo.5.jpg.trashinfo", "photo.jpg.trashinfo"}));
  EXPECT_EQ(readWholeFile(files + "/photo.3.jpg"), std::string(1, '\x09'));
  EXPECT_EQ(readWholeFile(files + "/photo.4.jpg"), std::string(1, '\x02'));
  auto record = readWholeFile(info + "/photo.4.jpg.trashinfo");
  ASSERT_TRUE(record);
  EXPECT_EQ(record->rfind("[Trash Info]\nPath=" + dir.path() + "/b/photo.jpg\nDeletionDate=", 0),
            0u)
      << *record;
  struct stat st {};
  ASSERT_EQ(::stat((dir / "data/Trash").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
}

TEST_F(TrashTest, NamesWithoutExtensionAndVeryLongNames) {
  testing::writeBytes(dir / "x/README", {1});
  testing::writeBytes(dir / "y/README", {2});
  std::string error;
  EXPECT_EQ(trash.moveToTrash(dir / "x/README", &error), files + "/README");
  EXPECT_EQ(trash.moveToTrash(dir / "y/README", &error), files + "/README.2");
  std::string longName(250, 'n');
  longName += ".jpg";
  testing::writeBytes(dir / "z/" + longName, {3});
  auto moved = trash.moveToTrash(dir / "z/" + longName, &error);
  ASSERT_TRUE(moved) << error;
  std::string name = lastComponent(*moved);
  EXPECT_LE(name.size() + std::string(".trashinfo").size(), 255u);
  EXPECT_EQ(name.substr(name.size() - 4), ".jpg");
  EXPECT_EQ(::access((info + "/" + name + ".trashinfo").c_str(), F_OK), 0);
}

TEST_F(TrashTest, FailureLeavesTheFileAndNoRecord) {
  std::string error;
  EXPECT_FALSE(trash.moveToTrash(dir / "missing.jpg", &error));
  EXPECT_NE(error.find("No such file"), std::string::npos) << error;
  EXPECT_TRUE(testing::listFolder(info).empty());

  testing::writeBytes(dir / "sealed/photo.jpg", {1});
  ASSERT_EQ(::chmod((dir / "sealed").c_str(), 0555), 0);  // the file cannot leave its folder
  {
    testing::PermissionsEnforced enforced;
    EXPECT_FALSE(trash.moveToTrash(dir / "sealed/photo.jpg", &error));
  }
  EXPECT_NE(error.find("Permission denied"), std::string::npos) << error;
  EXPECT_EQ(::access((dir / "sealed/photo.jpg").c_str(), F_OK), 0);
  EXPECT_TRUE(testing::listFolder(info).empty());
  EXPECT_TRUE(testing::listFolder(files).empty());
}

// The per-volume trash, on a RAM file system when the machine has one apart from the temporary
// folder's. The test cleans up what it made there.
TEST_F(TrashTest, FileOnAnotherFileSystemGoesToThatVolumesTrash) {
  struct stat shm {
  }, tmp{};
  if (::stat("/dev/shm", &shm) != 0 || ::stat(dir.path().c_str(), &tmp) != 0 ||
      shm.st_dev == tmp.st_dev || ::access("/dev/shm", W_OK) != 0) {
    GTEST_SKIP() << "no second writable file system";
  }
  std::string top = mountPointOf("/dev/shm");
  std::string volumeTrash = (top == "/" ? "" : top) + "/.Trash-" + std::to_string(::getuid());
  struct stat existing {};
  bool trashExisted = ::lstat(volumeTrash.c_str(), &existing) == 0;
  struct stat shared {};
  if (::lstat(((top == "/" ? "" : top) + "/.Trash").c_str(), &shared) == 0) {
    GTEST_SKIP() << "the volume has a shared trash; leaving it alone";
  }
  char pattern[] = "/dev/shm/solvanta-test-XXXXXX";
  ASSERT_TRUE(::mkdtemp(pattern));
  std::string folder = pattern;
  std::string name = lastComponent(folder) + ".jpg";
  testing::writeBytes(folder + "/" + name, {7});

  std::string error;
  auto moved = trash.moveToTrash(folder + "/" + name, &error);
  ::rmdir(folder.c_str());
  ASSERT_TRUE(moved) << error;
  EXPECT_EQ(*moved, volumeTrash + "/files/" + name);
  auto record = readWholeFile(volumeTrash + "/info/" + name + ".trashinfo");
  ::unlink(moved->c_str());
  ::unlink((volumeTrash + "/info/" + name + ".trashinfo").c_str());
  if (!trashExisted) {
    ::rmdir((volumeTrash + "/files").c_str());
    ::rmdir((volumeTrash + "/info").c_str());
    ::rmdir(volumeTrash.c_str());
  }
  ASSERT_TRUE(record);
  // Relative to the volume's top folder.
  std::string relative = folder.substr(top == "/" ? 1 : top.size() + 1) + "/" + name;
  EXPECT_NE(record->find("\nPath=" + relative + "\n"), std::string::npos) << *record;
  EXPECT_TRUE(testing::listFolder(files).empty());
}

}  // namespace
}  // namespace desktop
