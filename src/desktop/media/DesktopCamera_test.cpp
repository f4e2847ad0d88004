// The desktop camera over a fake camera view: what the view wrote becomes the capture's
// result on the main queue, one capture at a time.
#include "desktop/media/DesktopCamera.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

#include "desktop/testing/DesktopTesting.h"
#include "platform/FileManager.h"
#include "sim/Environment.h"

namespace desktop {
namespace {

struct DesktopCameraTest : ::testing::Test {
  sim::Environment env;
  testing::TempDir dir;
  DesktopCamera camera;
  std::function<void(CameraFiles)> closeView;  // the open view's way back
  int shown = 0;

  void SetUp() override {
    camera.setHandlers([] { return true; }, [this](std::function<void(CameraFiles)> done) {
      ++shown;
      closeView = std::move(done);
    });
  }

  // Captures; the view is closed with `files`; returns what `finished` got.
  std::optional<platform::CaptureResult> captureGiving(const CameraFiles& files) {
    std::optional<platform::CaptureResult> got;
    camera.capture([&](platform::CaptureResult r) { got = std::move(r); });
    env.runUntilIdle();
    EXPECT_FALSE(got) << "the result came before the view closed";
    closeView(files);
    EXPECT_FALSE(got) << "the result must come on the main queue";
    env.runUntilIdle();
    return got;
  }
};

TEST_F(DesktopCameraTest, APhotoBecomesThePictureAndItsScratchFileGoes) {
  std::string photo = dir / "shot.jpg";
  testing::writePhoto(photo, {});
  auto got = captureGiving({photo, ""});
  ASSERT_TRUE(got);
  ASSERT_TRUE(got->originalImage);
  EXPECT_GT(got->originalImage->pixelWidth(), 0);
  EXPECT_FALSE(got->mediaURL);
  EXPECT_FALSE(std::filesystem::exists(photo));
}

TEST_F(DesktopCameraTest, AMovieBecomesItsFileURLAndStays) {
  std::string movie = dir / "my take.mp4";
  testing::writeBytes(movie, {1, 2, 3});
  auto got = captureGiving({"", movie});
  ASSERT_TRUE(got);
  EXPECT_FALSE(got->originalImage);
  EXPECT_EQ(got->mediaURL, platform::fileURLWithPath(movie));
  EXPECT_TRUE(std::filesystem::exists(movie));
}

TEST_F(DesktopCameraTest, ClosedViewOrUnreadablePhotoGivesNothing) {
  auto closed = captureGiving({});
  ASSERT_TRUE(closed);
  EXPECT_FALSE(closed->originalImage);
  EXPECT_FALSE(closed->mediaURL);

  std::string junk = dir / "junk.jpg";
  testing::writeBytes(junk, {'n', 'o', 't'});
  auto unreadable = captureGiving({junk, ""});
  ASSERT_TRUE(unreadable);
  EXPECT_FALSE(unreadable->originalImage);
  EXPECT_FALSE(unreadable->mediaURL);
}

TEST_F(DesktopCameraTest, OneCaptureAtATimeAndNoneWithoutHandlers) {
  std::optional<platform::CaptureResult> first, second;
  camera.capture([&](platform::CaptureResult r) { first = std::move(r); });
  camera.capture([&](platform::CaptureResult r) { second = std::move(r); });
  env.runUntilIdle();
  EXPECT_EQ(shown, 1);
  ASSERT_TRUE(second) << "a second capture while the view is open ends empty at once";
  EXPECT_FALSE(second->originalImage || second->mediaURL);
  EXPECT_FALSE(first);
  closeView({});
  env.runUntilIdle();
  EXPECT_TRUE(first);

  DesktopCamera none;
  EXPECT_FALSE(none.isSourceTypeAvailable());
  std::optional<platform::CaptureResult> got;
  none.capture([&](platform::CaptureResult r) { got = std::move(r); });
  env.runUntilIdle();
  ASSERT_TRUE(got);
  EXPECT_FALSE(got->originalImage || got->mediaURL);
}

}  // namespace
}  // namespace desktop
