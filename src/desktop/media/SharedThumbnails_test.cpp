#include "desktop/media/SharedThumbnails.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QCryptographicHash>
#include <QImage>
#include <QImageReader>
#include <QImageWriter>

#include "desktop/media/ThumbnailImageManager.h"
#include "desktop/testing/DesktopTesting.h"
#include "samplegen/SampleMedia.h"
#include "sim/Environment.h"

namespace desktop {
namespace {

using testing::fileAsset;

std::string md5Name(const std::string& uri) {
  return QCryptographicHash::hash(QByteArray::fromStdString(uri), QCryptographicHash::Md5).toHex().toStdString() +
         ".png";
}

std::int64_t mtimeOf(const std::string& path) {
  struct stat st {};
  ::stat(path.c_str(), &st);
  return st.st_mtime;
}

// A picture of one colour with the given tags, written where a file manager would put it.
void writeThirdParty(const std::string& where, QColor colour, const std::string& uri, std::int64_t mtime) {
  QImage image(256, 192, QImage::Format_RGB32);
  image.fill(colour);
  image.setText("Thumb::URI", QString::fromStdString(uri));
  image.setText("Thumb::MTime", QString::number(mtime));
  ::mkdir((where.substr(0, where.find_last_of('/'))).c_str(), 0700);
  ASSERT_TRUE(QImageWriter(QString::fromStdString(where), "png").write(image));
}

struct SharedThumbnailsTest : ::testing::Test {
  sim::Environment env;
  testing::TempDir dir;
  std::string folder = dir / "thumbnails";
  std::string photo = dir / "IMG 1.jpg";  // a blank in the name: escaped in the URI

  void SetUp() override {
    testing::writeBytes(photo, samplegen::encodeImage("JPEG", 800, 600, 7));
    ::mkdir(folder.c_str(), 0700);
  }
  ThumbnailImageManager manager() {
    ThumbnailImageManagerOptions options;
    options.sharedThumbnailsFolder = folder;
    return ThumbnailImageManager(options);
  }
  kit::ImagePtr thumbnail(ThumbnailImageManager& images) {
    kit::ImagePtr result;
    platform::ImageRequestOptions sync;
    sync.setSynchronous(true);
    images.requestImageForAsset(fileAsset(photo), {200, 200}, platform::kImageContentModeAspectFit, sync,
                                [&](kit::ImagePtr image, const kit::Dictionary&) { result = std::move(image); });
    return result;
  }
  std::string largePath() const { return folder + "/large/" + md5Name(SharedThumbnails::uriOf(photo)); }
};

TEST(SharedThumbnailsUriTest, BytesOutsideThePathCharactersAreEscaped) {
  EXPECT_EQ(SharedThumbnails::uriOf("/home/me/a b/\xC3\xBC#1%.jpg"), "file:///home/me/a%20b/%C3%BC%231%25.jpg");
  EXPECT_EQ(SharedThumbnails::uriOf("/p/x-y_z.~(1)+,;=:@$&'!*.png"), "file:///p/x-y_z.~(1)+,;=:@$&'!*.png");
}

TEST_F(SharedThumbnailsTest, OursAreWrittenUnderTheStandardNameAndReadBack) {
  auto images = manager();
  kit::ImagePtr first = thumbnail(images);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->pixelWidth(), 200);
  EXPECT_EQ(first->pixelHeight(), 150);
  env.runUntilIdle();  // the write happens in the background

  const std::string uri = "file://" + (dir / "IMG%201.jpg");
  QImage written(QString::fromStdString(folder + "/large/" + md5Name(uri)), "png");
  ASSERT_FALSE(written.isNull());
  EXPECT_EQ(written.text("Thumb::URI").toStdString(), uri);
  EXPECT_EQ(written.text("Thumb::MTime").toLongLong(), mtimeOf(photo));
  EXPECT_EQ(written.size(), QSize(256, 192));
  struct stat st {};
  ASSERT_EQ(::stat(largePath().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  // A new manager (an empty cache) answers from the folder without decoding the photo.
  auto later = manager();
  ASSERT_TRUE(thumbnail(later));
  EXPECT_EQ(later.decodeCount(), 0);
}

TEST_F(SharedThumbnailsTest, AThirdPartysThumbnailIsUsedWithoutDecodingThePhoto) {
  writeThirdParty(largePath(), Qt::red, SharedThumbnails::uriOf(photo), mtimeOf(photo));
  auto images = manager();
  kit::ImagePtr image = thumbnail(images);
  ASSERT_TRUE(image);
  EXPECT_EQ(images.decodeCount(), 0);
  EXPECT_EQ(image->pixelWidth(), 200);
  const std::uint8_t* centre = &image->rgba()[(75u * 200u + 100u) * 4u];
  EXPECT_EQ((std::vector<int>{centre[0], centre[1], centre[2]}), (std::vector<int>{255, 0, 0}));
}

TEST_F(SharedThumbnailsTest, StaleOrCorruptThumbnailsAreIgnoredAndRewritten) {
  struct Case {
    const char* what;
    std::function<void()> plant;
  };
  const std::vector<Case> cases = {
      {"an older modification time",
       [&] { writeThirdParty(largePath(), Qt::red, SharedThumbnails::uriOf(photo), mtimeOf(photo) - 60); }},
      {"another file's URI", [&] { writeThirdParty(largePath(), Qt::red, "file:///elsewhere.jpg", mtimeOf(photo)); }},
      {"bytes that are no PNG", [&] { testing::writeBytes(largePath(), {'n', 'o', 't', ' ', 'p', 'n', 'g'}); }},
  };
  for (const Case& c : cases) {
    c.plant();
    auto images = manager();
    kit::ImagePtr image = thumbnail(images);
    ASSERT_TRUE(image) << c.what;
    EXPECT_EQ(images.decodeCount(), 1) << c.what;
    env.runUntilIdle();
    QImage rewritten(QString::fromStdString(largePath()), "png");
    EXPECT_EQ(rewritten.text("Thumb::URI").toStdString(), SharedThumbnails::uriOf(photo)) << c.what;
    EXPECT_EQ(rewritten.text("Thumb::MTime").toLongLong(), mtimeOf(photo)) << c.what;
  }
}

TEST_F(SharedThumbnailsTest, AnUnwritableFolderCostsNothingButTheWrite) {
  testing::writeBytes(dir / "blocked", {'x'});
  ThumbnailImageManagerOptions options;
  options.sharedThumbnailsFolder = dir / "blocked/thumbnails";  // under a file: no folder can be made
  ThumbnailImageManager images(options);
  EXPECT_TRUE(thumbnail(images));
  env.runUntilIdle();
  EXPECT_FALSE(SharedThumbnails(options.sharedThumbnailsFolder).write({photo, 1, 1}, QImage(4, 4, QImage::Format_RGB32), 256));
  EXPECT_TRUE(thumbnail(images));
}

TEST_F(SharedThumbnailsTest, PreparedThumbnailsAreAnsweredFromTheCache) {
  std::string second = dir / "b.jpg";
  testing::writeBytes(second, samplegen::encodeImage("JPEG", 640, 480, 3));
  auto images = manager();
  images.startCachingImagesForAssets({fileAsset(photo), fileAsset(second)}, {200, 200},
                                     platform::kImageContentModeAspectFit);
  EXPECT_EQ(images.decodeCount(), 0);  // nothing on the calling thread
  env.runUntilIdle();
  EXPECT_EQ(images.decodeCount(), 2);
  EXPECT_EQ(images.cachedImageCount(), 2u);
  EXPECT_TRUE(thumbnail(images));
  EXPECT_EQ(images.decodeCount(), 2);
  EXPECT_TRUE(QImageReader(QString::fromStdString(largePath())).canRead());

  // Stopped before their turn, preparations do nothing.
  std::string third = dir / "c.jpg";
  testing::writeBytes(third, samplegen::encodeImage("JPEG", 64, 48, 5));
  images.startCachingImagesForAssets({fileAsset(third)}, {200, 200}, platform::kImageContentModeAspectFit);
  images.stopCachingImagesForAllAssets();
  env.runUntilIdle();
  EXPECT_EQ(images.decodeCount(), 2);
}

}  // namespace
}  // namespace desktop
