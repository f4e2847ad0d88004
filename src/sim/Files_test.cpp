// The simulated file tree: what it answers is what the hidden files rely on (folders made
// with and without parents, writes that fail whole on a full disk, links listed but counted
// as what they name, removals of links and folders).
#include <gtest/gtest.h>

#include "sim/Environment.h"
#include "sim/Platform.h"

namespace {

struct SimFilesTest : ::testing::Test {
  sim::Environment env;
  sim::Platform sim;
  platform::FileManager& files = platform::fileManager();
  platform::Error error;
};

TEST_F(SimFilesTest, FoldersNeedTheirParentUnlessIntermediatesAreAsked) {
  EXPECT_FALSE(files.createDirectoryAtPath("/sim/Documents/Cleaner", false, &error));
  EXPECT_EQ(error.code, 4);
  EXPECT_TRUE(files.createDirectoryAtPath("/sim/Documents/Cleaner", true, &error));
  bool isDirectory = false;
  EXPECT_TRUE(files.fileExistsAtPath("/sim/Documents", &isDirectory));
  EXPECT_TRUE(isDirectory);
  // An existing folder is fine with intermediates, an error without.
  EXPECT_TRUE(files.createDirectoryAtPath("/sim/Documents/Cleaner", true, &error));
  EXPECT_FALSE(files.createDirectoryAtPath("/sim/Documents/Cleaner", false, &error));
  EXPECT_EQ(error.code, 516);
  // A file in the way is never a folder.
  ASSERT_TRUE(files.writeData({1}, "/sim/Documents/file", &error));
  EXPECT_FALSE(files.createDirectoryAtPath("/sim/Documents/file", true, &error));
  EXPECT_FALSE(files.createDirectoryAtPath("/sim/Documents/file/inner", true, &error));
}

TEST_F(SimFilesTest, AFullDiskFailsAWholeWriteAndKeepsWhatWasThere) {
  sim.files().putFolder("/d");
  sim.files().setWriteCapacity(5);
  ASSERT_TRUE(files.writeData({1, 2, 3}, "/d/a", &error));
  EXPECT_FALSE(files.writeData({4, 5, 6}, "/d/b", &error));
  EXPECT_EQ(error.code, 640);
  EXPECT_FALSE(files.writeData({7, 8, 9}, "/d/a", &error));
  EXPECT_EQ(sim.files().namesIn("/d"), std::vector<std::string>{"a"});
  EXPECT_EQ(*files.contentsAtPath("/d/a", &error), (std::vector<std::uint8_t>{1, 2, 3}));
  sim.files().setWriteCapacity(std::nullopt);
  EXPECT_TRUE(files.writeData(std::vector<std::uint8_t>(1000, 0), "/d/b", &error));
  // No folder, or a folder in the file's place, refuses the write.
  EXPECT_FALSE(files.writeData({1}, "/missing/x", &error));
  sim.files().putFolder("/d/sub");
  EXPECT_FALSE(files.writeData({1}, "/d/sub", &error));
}

TEST_F(SimFilesTest, LinksAreListedCountAsWhatTheyNameAndGoAsLinks) {
  sim.files().putFile("/out/secret", {42});
  sim.files().putLink("/d/to-secret", "/out/secret");
  sim.files().putLink("/d/dangling", "/nowhere");
  sim.files().putLink("/d/loop", "/d/loop");
  sim.files().putFile("/d/deep/inner", {1});
  EXPECT_EQ(*files.contentsOfDirectoryAtPath("/d", &error),
            (std::vector<std::string>{"dangling", "deep", "loop", "to-secret"}));
  EXPECT_TRUE(files.fileExistsAtPath("/d/to-secret", nullptr));
  EXPECT_FALSE(files.fileExistsAtPath("/d/dangling", nullptr));
  EXPECT_FALSE(files.fileExistsAtPath("/d/loop", nullptr));
  EXPECT_EQ(*files.contentsAtPath("/d/to-secret", &error), std::vector<std::uint8_t>{42});
  // Removing the link leaves what it names; removing a folder takes what it holds.
  EXPECT_TRUE(files.removeItemAtPath("/d/to-secret", &error));
  EXPECT_TRUE(files.fileExistsAtPath("/out/secret", nullptr));
  EXPECT_TRUE(files.removeItemAtPath("/d/deep", &error));
  EXPECT_FALSE(files.fileExistsAtPath("/d/deep/inner", nullptr));
  EXPECT_FALSE(files.removeItemAtPath("/d/deep", &error));
  EXPECT_FALSE(files.contentsOfDirectoryAtPath("/d/dangling", &error));
}

TEST_F(SimFilesTest, ImageFilesRoundTripAndAnythingElseIsNoImage) {
  auto image = kit::Image::fromPixels(2, 1, {1, 2, 3, 255, 4, 5, 6, 255});
  auto data = platform::imageCodec().jpegData(image, 1.0);
  ASSERT_TRUE(data);
  EXPECT_FALSE(platform::imageCodec().jpegData(kit::Image::empty(), 1.0));
  EXPECT_FALSE(platform::imageCodec().jpegData(nullptr, 1.0));
  sim.files().putFile("/d/pic", *data);
  auto back = platform::imageCodec().imageWithContentsOfFile("/d/pic");
  ASSERT_TRUE(back);
  EXPECT_EQ(back->rgba(), image->rgba());
  auto cut = *data;
  cut.pop_back();
  sim.files().putFile("/d/cut", cut);
  sim.files().putFile("/d/empty", {});
  for (const char* path : {"/d/cut", "/d/empty", "/d/none"}) EXPECT_FALSE(platform::imageCodec().imageWithContentsOfFile(path)) << path;
}

}  // namespace
