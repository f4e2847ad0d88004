// The scripted run of the real program: seven screenshots of the window's size, each showing
// something.
#include <gtest/gtest.h>

#include <QDir>
#include <QImage>
#include <QTemporaryDir>

#include <cstdlib>
#include <set>

namespace {

TEST(ScreenshotsTest, TheScriptedRunWritesSevenPicturesOfTheWindow) {
  QTemporaryDir dir;
  ASSERT_TRUE(dir.isValid());
  // Leaks inside Qt's own renderer are not ours to fix.
  std::string command = "LSAN_OPTIONS=suppressions=" SOLVANTA_LSAN_SUPPRESSIONS " " + std::string(SOLVANTA_PROGRAM) +
                        " --screenshot '" + dir.path().toStdString() + "' > '" + dir.path().toStdString() + "/log.txt' 2>&1";
  int status = std::system(command.c_str());
  QFile log(dir.path() + "/log.txt");
  log.open(QIODevice::ReadOnly);
  ASSERT_EQ(status, 0) << log.readAll().toStdString();
  for (const char* name : {"0-splash", "0-interlude", "1-home", "2-find-prompt", "3-scanning", "4-results", "5-interstitial",
                           "8-video-interstitial", "10-import-grid", "11-secret-files", "12-preview"}) {
    QImage image(dir.path() + "/" + name + ".png");
    ASSERT_FALSE(image.isNull()) << name;
    EXPECT_EQ(image.width(), 390) << name;
    EXPECT_EQ(image.height(), 844) << name;
    std::set<QRgb> colours;
    for (int y = 0; y < image.height() && colours.size() < 2; y += 7) {
      for (int x = 0; x < image.width() && colours.size() < 2; x += 7) colours.insert(image.pixel(x, y));
    }
    EXPECT_GE(colours.size(), 2u) << name << " is a single colour";
  }
  // The video ad shows a picture of its video in the middle, not the ad's dark backdrop.
  QImage video(dir.path() + "/8-video-interstitial.png");
  ASSERT_FALSE(video.isNull());
  EXPECT_NE(video.pixel(195, 422), video.pixel(195, 150));
}

}  // namespace
