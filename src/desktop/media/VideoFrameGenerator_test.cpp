#include "desktop/media/VideoFrameGenerator.h"

#include <gtest/gtest.h>

#include "desktop/library/Trash.h"
#include "desktop/testing/DesktopTesting.h"

namespace desktop {
namespace {

// Sum of the red, green and blue of pixel (x, y): its brightness, for comparisons.
int brightness(const kit::Image& image, int x, int y) {
  const std::uint8_t* p = &image.rgba()[(static_cast<std::size_t>(y) * image.pixelWidth() + x) * 4];
  return p[0] + p[1] + p[2];
}

struct VideoFrameGeneratorTest : ::testing::Test {
  testing::TempDir dir;
  VideoFrameGenerator frames;

  kit::ImagePtr frameOf(const std::string& url, double seconds) {
    platform::Error error;
    kit::ImagePtr image = frames.copyCGImageAtTime(url, seconds, &error);
    EXPECT_TRUE(image) << url << " at " << seconds << ": " << error.localizedDescription;
    return image;
  }
};

TEST_F(VideoFrameGeneratorTest, FileUrlsAndPlainPathsNameTheSameVideo) {
  std::string path = dir / "my clips/día 1%.mov";
  testing::writeClip(path, 1.0, std::nullopt);
  std::string encoded = percentEncodePath(path);
  ASSERT_NE(encoded, path);
  auto plain = frameOf(path, 0);
  ASSERT_TRUE(plain);
  EXPECT_EQ(plain->pixelWidth(), 64);
  EXPECT_EQ(plain->pixelHeight(), 48);
  for (const std::string& url : {"file://" + encoded, "file://localhost" + encoded,
                                 "FILE:" + encoded}) {
    auto image = frameOf(url, 0);
    ASSERT_TRUE(image) << url;
    EXPECT_EQ(image->rgba(), plain->rgba()) << url;
  }
  EXPECT_EQ(pathOfFileURL("file:///a/b%20c?x#y"), std::optional<std::string>("/a/b c"));
  EXPECT_EQ(pathOfFileURL("file:///a/%zz"), std::nullopt);
  EXPECT_EQ(pathOfFileURL("file:///a/%00b"), std::nullopt);
  EXPECT_EQ(pathOfFileURL("file://host/a"), std::nullopt);
  EXPECT_EQ(pathOfFileURL("https://example.invalid/a.mov"), std::nullopt);
  EXPECT_EQ(pathOfFileURL("relative/clip.mov"), std::optional<std::string>("relative/clip.mov"));
}

TEST_F(VideoFrameGeneratorTest, TheFrameIsTheOneShownAtTheTime) {
  // Ten frames a second, each brighter than the one before.
  std::string path = dir / "v.mov";
  testing::writeClip(path, 1.0, std::nullopt);
  auto start = frameOf(path, 0), half = frameOf(path, 0.5), justAfter = frameOf(path, 0.58),
       last = frameOf(path, 0.95), pastTheEnd = frameOf(path, 30), before = frameOf(path, -1);
  ASSERT_TRUE(start && half && justAfter && last && pastTheEnd && before);
  EXPECT_LT(brightness(*start, 10, 10), brightness(*half, 10, 10));
  EXPECT_LT(brightness(*half, 10, 10), brightness(*last, 10, 10));
  EXPECT_EQ(justAfter->rgba(), half->rgba());  // frame 5 is shown until 0.6
  EXPECT_EQ(pastTheEnd->rgba(), last->rgba());
  EXPECT_EQ(before->rgba(), start->rgba());
}

TEST_F(VideoFrameGeneratorTest, TurnedVideosComeOutAsPlayersShowThem) {
  // The stored picture brightens to the right and downwards; turned a quarter clockwise, its
  // left column becomes the top row (read right to left).
  samplegen::VideoOptions clip;
  clip.rotation = 90;
  ASSERT_TRUE(samplegen::writeVideo(dir / "portrait.mov", clip));
  auto image = frameOf(dir / "portrait.mov", 0);
  ASSERT_TRUE(image);
  ASSERT_EQ(image->pixelWidth(), 48);
  ASSERT_EQ(image->pixelHeight(), 64);
  int topLeft = brightness(*image, 1, 1), topRight = brightness(*image, 46, 1),
      bottomLeft = brightness(*image, 1, 62);
  EXPECT_LT(topRight, topLeft);
  EXPECT_LT(topLeft, bottomLeft);
}

TEST_F(VideoFrameGeneratorTest, FailuresFillTheError) {
  testing::writeBytes(dir / "noise.mov", std::vector<std::uint8_t>(4096, 0x5A));
  for (const std::string& url :
       {std::string("https://example.invalid/a.mov"), "file://elsewhere" + dir.path() + "/a.mov",
        dir / "missing.mov", dir / "noise.mov", dir.path()}) {
    platform::Error error;
    EXPECT_FALSE(frames.copyCGImageAtTime(url, 0, &error)) << url;
    EXPECT_EQ(error.domain, "frames") << url;
    EXPECT_FALSE(error.localizedDescription.empty()) << url;
  }
  EXPECT_FALSE(frames.copyCGImageAtTime(dir / "missing.mov", 0, nullptr));
}

}  // namespace
}  // namespace desktop
