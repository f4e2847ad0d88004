#include "desktop/library/MediaReader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "desktop/testing/DesktopTesting.h"

namespace desktop {
namespace {

using platform::MediaType;
using testing::TempDir;

MediaType sniff(const std::string& head, std::string* format = nullptr) {
  return sniffMediaType(reinterpret_cast<const std::uint8_t*>(head.data()), head.size(), format);
}

// An ISO media head: an "ftyp" box of `major` and `compatible` brands.
std::string isoHead(const std::string& major, const std::string& compatible) {
  std::string box = "ftyp" + major + std::string("\0\0\0\0", 4) + compatible;
  std::uint32_t size = static_cast<std::uint32_t>(box.size() + 4);
  std::string out{static_cast<char>(size >> 24), static_cast<char>(size >> 16),
                  static_cast<char>(size >> 8), static_cast<char>(size)};
  return out + box;
}

TEST(MediaSniffing, KnowsEachFormatByItsContent) {
  std::string format;
  EXPECT_EQ(sniff("\xFF\xD8\xFF\xE0rest", &format), MediaType::Image);
  EXPECT_EQ(format, "jpeg");
  EXPECT_EQ(sniff("\x89PNG\r\n\x1A\nrest", &format), MediaType::Image);
  EXPECT_EQ(format, "png");
  EXPECT_EQ(sniff("GIF89a...", &format), MediaType::Image);
  EXPECT_EQ(sniff(std::string("RIFF\x10\0\0\0WEBPVP8 ", 16), &format), MediaType::Image);
  EXPECT_EQ(format, "webp");
  EXPECT_EQ(sniff(std::string("II*\0\x08\0\0\0", 8), &format), MediaType::Image);
  EXPECT_EQ(sniff(std::string("MM\0*\0\0\0\x08", 8), &format), MediaType::Image);
  EXPECT_EQ(format, "tiff");
  EXPECT_EQ(sniff(isoHead("heic", "mif1heic"), &format), MediaType::Image);
  EXPECT_EQ(format, "heif");
  EXPECT_EQ(sniff(isoHead("qt  ", "qt  "), &format), MediaType::Video);
  EXPECT_EQ(format, "quicktime");
  EXPECT_EQ(sniff(isoHead("isom", "isomiso2avc1mp41")), MediaType::Video);
  EXPECT_EQ(sniff(isoHead("M4V ", "M4V M4A mp42isom")), MediaType::Video);
  // An unknown major brand: the compatible brands decide.
  EXPECT_EQ(sniff(isoHead("xyz1", "mif1")), MediaType::Image);
  // QuickTime from before the "ftyp" box.
  EXPECT_EQ(sniff(std::string("\0\0\0\x08wide\0\0\0\0mdat", 16)), MediaType::Video);
}

TEST(MediaSniffing, RejectsWhatIsNoPhotoOrVideo) {
  EXPECT_EQ(sniff(""), MediaType::Unknown);
  EXPECT_EQ(sniff("\xFF\xD8"), MediaType::Unknown);  // too short to tell
  EXPECT_EQ(sniff("Hello, this is text.\n"), MediaType::Unknown);
  EXPECT_EQ(sniff("%PDF-1.7\n"), MediaType::Unknown);
  EXPECT_EQ(sniff(isoHead("M4A ", "M4A mp42isom")), MediaType::Unknown);  // audio only
  EXPECT_EQ(sniff(isoHead("abcd", "efgh")), MediaType::Unknown);
}

TEST(CaptureTimes, ExifTextsGiveCameraTimeOrAnInstant) {
  TimeBase base;
  double seconds = 0;
  ASSERT_TRUE(parseExifCaptureTime("2023:06:10 09:15:00", "", "", &base, &seconds));
  EXPECT_EQ(base, TimeBase::Local);
  EXPECT_DOUBLE_EQ(seconds, samplegen::utcSeconds(2023, 6, 10, 9, 15, 0));

  ASSERT_TRUE(parseExifCaptureTime("2023:06:10 09:15:00", "25", "", &base, &seconds));
  EXPECT_DOUBLE_EQ(seconds, samplegen::utcSeconds(2023, 6, 10, 9, 15, 0) + 0.25);

  ASSERT_TRUE(parseExifCaptureTime("2023:06:10 09:15:00", "", "+02:00", &base, &seconds));
  EXPECT_EQ(base, TimeBase::Absolute);
  EXPECT_DOUBLE_EQ(seconds, samplegen::utcSeconds(2023, 6, 10, 7, 15, 0));
  ASSERT_TRUE(parseExifCaptureTime("2023:06:10 09:15:00", "", "-05:30", &base, &seconds));
  EXPECT_DOUBLE_EQ(seconds, samplegen::utcSeconds(2023, 6, 10, 14, 45, 0));

  // A malformed offset leaves the time on the camera's clock.
  ASSERT_TRUE(parseExifCaptureTime("2024:02:29 23:59:59", "", "garbage", &base, &seconds));
  EXPECT_EQ(base, TimeBase::Local);

  for (const char* bad :
       {"", "0000:00:00 00:00:00", "    :  :     :  :  ", "2023:13:45 99:99:99",
        "2023:02:29 10:00:00", "2023:06:10", "2023/06/10 09:15:00", "2023:06:10 24:00:00"}) {
    EXPECT_FALSE(parseExifCaptureTime(bad, "", "", &base, &seconds)) << bad;
  }
}

TEST(CaptureTimes, ContainerStampsAreUtc) {
  double seconds = 0;
  ASSERT_TRUE(parseContainerTime("2023-06-20T10:00:00.000000Z", &seconds));
  EXPECT_DOUBLE_EQ(seconds, samplegen::utcSeconds(2023, 6, 20, 10, 0, 0));
  ASSERT_TRUE(parseContainerTime("2023-06-20 10:00:01", &seconds));
  EXPECT_DOUBLE_EQ(seconds, samplegen::utcSeconds(2023, 6, 20, 10, 0, 1));
  ASSERT_TRUE(parseContainerTime("2023-06-20T10:00:00.5Z", &seconds));
  EXPECT_DOUBLE_EQ(seconds, samplegen::utcSeconds(2023, 6, 20, 10, 0, 0) + 0.5);
  EXPECT_FALSE(parseContainerTime("2023-06-20T10:00:00+0200", &seconds));
  EXPECT_FALSE(parseContainerTime("yesterday", &seconds));
}

struct ReaderTest : ::testing::Test {
  TempDir dir;
  FileMediaReader reader;
};

TEST_F(ReaderTest, ReadsExifOfJpegPngAndHeic) {
  testing::writePhoto(dir / "a.jpg", {"2023:06:10 09:15:00", "5", "+01:00"});
  MediaInfo jpeg = reader.read(dir / "a.jpg");
  EXPECT_EQ(jpeg.type, MediaType::Image);
  EXPECT_EQ(jpeg.format, "jpeg");
  EXPECT_EQ(jpeg.timeBase, TimeBase::Absolute);
  EXPECT_DOUBLE_EQ(jpeg.captureTime, samplegen::utcSeconds(2023, 6, 10, 8, 15, 0) + 0.5);
  EXPECT_EQ(jpeg.width, 32);
  EXPECT_EQ(jpeg.height, 24);
  EXPECT_EQ(jpeg.duration, 0);
  EXPECT_TRUE(jpeg.problem.empty()) << jpeg.problem;

  auto png = samplegen::withExif(samplegen::encodeImage("PNG", 20, 10, 3), {"2023:06:11 18:30:00"});
  testing::writeBytes(dir / "b.png", png);
  MediaInfo pngInfo = reader.read(dir / "b.png");
  EXPECT_EQ(pngInfo.type, MediaType::Image);
  EXPECT_EQ(pngInfo.timeBase, TimeBase::Local);
  EXPECT_DOUBLE_EQ(pngInfo.captureTime, samplegen::utcSeconds(2023, 6, 11, 18, 30, 0));
  EXPECT_EQ(pngInfo.width, 20);

  samplegen::ExifFields fields{"2023:06:13 12:00:02"};
  std::string error;
  auto heic = samplegen::encodeHeic(64, 64, 4, &fields, &error);
  if (heic.empty()) GTEST_SKIP() << "no HEVC encoder on this machine: " << error;
  testing::writeBytes(dir / "c.heic", heic);
  MediaInfo heif = reader.read(dir / "c.heic");
  EXPECT_EQ(heif.type, MediaType::Image);
  EXPECT_EQ(heif.format, "heif");
  EXPECT_EQ(heif.timeBase, TimeBase::Local);
  EXPECT_DOUBLE_EQ(heif.captureTime, samplegen::utcSeconds(2023, 6, 13, 12, 0, 2));
}

TEST_F(ReaderTest, PhotoWithoutExifHasNoCaptureTimeAndNoProblem) {
  testing::writePhoto(dir / "plain.jpg", {});
  MediaInfo info = reader.read(dir / "plain.jpg");
  EXPECT_EQ(info.type, MediaType::Image);
  EXPECT_EQ(info.timeBase, TimeBase::None);
  EXPECT_TRUE(info.problem.empty()) << info.problem;
}

TEST_F(ReaderTest, ReadsVideoLengthAndCreationTime) {
  testing::writeClip(dir / "a.mov", 2.5, "2023-06-20T10:00:00.000000Z", "mov");
  testing::writeClip(dir / "b.mp4", 3.0, "2023-06-21T10:00:00.000000Z", "mp4");
  testing::writeClip(dir / "c.m4v", 4.0, std::nullopt, "ipod");
  MediaInfo mov = reader.read(dir / "a.mov");
  EXPECT_EQ(mov.type, MediaType::Video);
  EXPECT_EQ(mov.duration, 2.5);
  EXPECT_EQ(mov.timeBase, TimeBase::Absolute);
  EXPECT_DOUBLE_EQ(mov.captureTime, samplegen::utcSeconds(2023, 6, 20, 10, 0, 0));
  EXPECT_EQ(mov.width, 64);
  EXPECT_EQ(mov.height, 48);
  EXPECT_TRUE(mov.problem.empty()) << mov.problem;
  MediaInfo mp4 = reader.read(dir / "b.mp4");
  EXPECT_EQ(mp4.type, MediaType::Video);
  EXPECT_EQ(mp4.duration, 3.0);
  MediaInfo m4v = reader.read(dir / "c.m4v");
  EXPECT_EQ(m4v.type, MediaType::Video);
  EXPECT_EQ(m4v.duration, 4.0);
  EXPECT_EQ(m4v.timeBase, TimeBase::None);
}

TEST_F(ReaderTest, DamagedFilesKeepTheirTypeAndSayWhy) {
  auto jpeg =
      samplegen::withExif(samplegen::encodeImage("JPEG", 32, 24, 5), {"2023:06:10 09:15:00"});
  // Cut inside the Exif block.
  testing::writeBytes(dir / "cut.jpg", {jpeg.begin(), jpeg.begin() + 60});
  MediaInfo cut = reader.read(dir / "cut.jpg");
  EXPECT_EQ(cut.type, MediaType::Image);
  EXPECT_EQ(cut.timeBase, TimeBase::None);
  EXPECT_NE(cut.problem.find("damaged"), std::string::npos) << cut.problem;
  EXPECT_FALSE(cut.unreadable);

  // An Exif block whose directory is garbage.
  std::vector<std::uint8_t> garbled = {0xFF, 0xD8, 0xFF, 0xE1, 0x00, 0x20, 'E',  'x',  'i',  'f',
                                       0,    0,    'I',  'I',  0x2A, 0x00, 0xFF, 0xFF, 0xFF, 0x7F};
  garbled.resize(4 + 0x20, 0xEE);
  garbled.insert(garbled.end(), {0xFF, 0xD9});
  testing::writeBytes(dir / "garbled.jpg", garbled);
  MediaInfo bad = reader.read(dir / "garbled.jpg");
  EXPECT_EQ(bad.type, MediaType::Image);
  EXPECT_EQ(bad.timeBase, TimeBase::None);

  testing::writePhoto(dir / "baddate.jpg", {"2023:13:45 99:99:99"});
  MediaInfo badDate = reader.read(dir / "baddate.jpg");
  EXPECT_EQ(badDate.timeBase, TimeBase::None);
  EXPECT_NE(badDate.problem.find("2023:13:45 99:99:99"), std::string::npos) << badDate.problem;

  testing::writeClip(dir / "whole.mov", 1.0, "2023-06-20T10:00:00.000000Z");
  struct stat st {};
  ASSERT_EQ(::stat((dir / "whole.mov").c_str(), &st), 0);
  ASSERT_EQ(::truncate((dir / "whole.mov").c_str(), 40), 0);
  MediaInfo video = reader.read(dir / "whole.mov");
  EXPECT_EQ(video.type, MediaType::Video);
  EXPECT_FALSE(video.problem.empty());
}

TEST_F(ReaderTest, EmptyTextAndSpecialFilesAreNoMedia) {
  testing::writeBytes(dir / "empty.jpg", {});
  EXPECT_EQ(reader.read(dir / "empty.jpg").type, MediaType::Unknown);
  testing::writeBytes(dir / "notes.jpg", {'h', 'e', 'l', 'l', 'o'});
  EXPECT_EQ(reader.read(dir / "notes.jpg").type, MediaType::Unknown);
  // A pipe with no writer would block a plain open.
  ASSERT_EQ(::mkfifo((dir / "pipe.jpg").c_str(), 0644), 0);
  MediaInfo pipe = reader.read(dir / "pipe.jpg");
  EXPECT_EQ(pipe.type, MediaType::Unknown);
  EXPECT_FALSE(pipe.unreadable);
}

TEST_F(ReaderTest, UnreadableFileIsMarkedSo) {
  testing::writePhoto(dir / "locked.jpg", {"2023:06:10 09:15:00"});
  ASSERT_EQ(::chmod((dir / "locked.jpg").c_str(), 0), 0);
  testing::PermissionsEnforced enforced;
  MediaInfo info = reader.read(dir / "locked.jpg");
  EXPECT_TRUE(info.unreadable);
  EXPECT_NE(info.problem.find("Permission denied"), std::string::npos) << info.problem;
}

}  // namespace
}  // namespace desktop
