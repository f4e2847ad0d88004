#include "desktop/media/ThumbnailImageManager.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "desktop/media/MediaDecoding.h"
#include "desktop/testing/DesktopTesting.h"
#include "desktop/threaded/ThreadedEnvironment.h"
#include "sim/Environment.h"

namespace desktop {

void PrintTo(const PixelSize& size, std::ostream* out) {
  *out << size.width << "x" << size.height;
}

namespace {

using testing::fileAsset;

// What one request delivered.
struct Delivery {
  int calls = 0;
  kit::ImagePtr image;
  kit::Dictionary info;
  bool onMain = false;
  platform::ImageResultHandler handler() {
    return [this](kit::ImagePtr i, const kit::Dictionary& d) {
      ++calls;
      image = std::move(i);
      info = d;
      onMain = kit::isMainThread();
    };
  }
  std::string error() const {
    auto it = info.find(platform::kImageErrorKey);
    const std::string* text = it == info.end() ? nullptr : it->second.asString();
    return text ? *text : std::string();
  }
};

PixelSize sizeOf(const kit::ImagePtr& image) {
  return image ? PixelSize{image->pixelWidth(), image->pixelHeight()} : PixelSize{};
}

void writeImage(const std::string& path, const char* format, int width, int height,
                std::uint32_t seed = 1, int orientation = 0) {
  samplegen::Bytes bytes = samplegen::encodeImage(format, width, height, seed);
  ASSERT_FALSE(bytes.empty());
  if (orientation) {
    samplegen::ExifFields exif;
    exif.orientation = orientation;
    bytes = samplegen::withExif(bytes, exif);
    ASSERT_FALSE(bytes.empty());
  }
  testing::writeBytes(path, bytes);
}

struct ThumbnailImageManagerTest : ::testing::Test {
  sim::Environment env;
  testing::TempDir dir;

  // A synchronous request; the handler must have run exactly once by the time it returns.
  Delivery fetch(ThumbnailImageManager& images, const platform::AssetPtr& asset, kit::Size size,
                 int mode = platform::kImageContentModeAspectFit) {
    Delivery d;
    platform::ImageRequestOptions sync;
    sync.setSynchronous(true);
    images.requestImageForAsset(asset, size, mode, sync, d.handler());
    EXPECT_EQ(d.calls, 1);
    return d;
  }
};

TEST_F(ThumbnailImageManagerTest, PhotosAreFittedOrFilledAndNeverEnlarged) {
  writeImage(dir / "a.jpg", "JPEG", 400, 300);
  auto asset = fileAsset(dir / "a.jpg");
  ThumbnailImageManager images;
  const int fill = platform::kImageContentModeAspectFill;
  EXPECT_EQ(sizeOf(fetch(images, asset, {200, 200}).image), (PixelSize{200, 150}));
  EXPECT_EQ(sizeOf(fetch(images, asset, {200, 200}, fill).image), (PixelSize{267, 200}));
  EXPECT_EQ(sizeOf(fetch(images, asset, {100, 20}, fill).image), (PixelSize{100, 75}));
  EXPECT_EQ(sizeOf(fetch(images, asset, {100, 20}).image), (PixelSize{27, 20}));
  EXPECT_EQ(sizeOf(fetch(images, asset, platform::kImageManagerMaximumSize).image),
            (PixelSize{400, 300}));
  EXPECT_EQ(sizeOf(fetch(images, asset, {1000, 1000}, fill).image), (PixelSize{400, 300}));
  Delivery ok = fetch(images, asset, {50, 50});
  EXPECT_EQ(ok.info.at(platform::kImageResultIsDegradedKey).asBool(), std::optional<bool>(false));
  EXPECT_FALSE(ok.info.count(platform::kImageErrorKey));
}

TEST_F(ThumbnailImageManagerTest, EveryPhotoFormatOfQtsReadersDecodes) {
  ThumbnailImageManager images;
  for (const char* format : {"JPEG", "PNG", "WEBP", "TIFF"}) {
    std::string path = dir / (std::string("photo.") + format);
    writeImage(path, format, 40, 30);
    EXPECT_EQ(sizeOf(fetch(images, fileAsset(path), {20, 20}).image), (PixelSize{20, 15})) << format;
  }
}

TEST_F(ThumbnailImageManagerTest, PixelsAreRgbaRowsInPlace) {
  // The sample picture's pixel (x, y) is (37 + 4x, 91 + 5y, 13 + 3(x + y)) for seed 1; PNG
  // keeps it exactly.
  writeImage(dir / "p.png", "PNG", 16, 8);
  ThumbnailImageManager images;
  auto image = fetch(images, fileAsset(dir / "p.png"), platform::kImageManagerMaximumSize).image;
  ASSERT_EQ(sizeOf(image), (PixelSize{16, 8}));
  auto pixel = [&](int x, int y) {
    const std::uint8_t* p = &image->rgba()[(static_cast<std::size_t>(y) * 16 + x) * 4];
    return std::vector<int>{p[0], p[1], p[2], p[3]};
  };
  EXPECT_EQ(pixel(0, 0), (std::vector<int>{37, 91, 13, 255}));
  EXPECT_EQ(pixel(5, 3), (std::vector<int>{57, 106, 37, 255}));
  EXPECT_EQ(pixel(15, 7), (std::vector<int>{97, 126, 79, 255}));
}

TEST_F(ThumbnailImageManagerTest, PhotosAreTurnedUprightByTheirOrientation) {
  writeImage(dir / "turned.jpg", "JPEG", 40, 20, 1, /*orientation=*/6);
  auto asset = fileAsset(dir / "turned.jpg");
  ThumbnailImageManager images;
  EXPECT_EQ(sizeOf(fetch(images, asset, platform::kImageManagerMaximumSize).image),
            (PixelSize{20, 40}));
  EXPECT_EQ(sizeOf(fetch(images, asset, {10, 10}).image), (PixelSize{5, 10}));
}

TEST_F(ThumbnailImageManagerTest, HeicPhotosDecodeFromTheirThumbnailWhenItIsLargeEnough) {
  // The sample picture's blue is 13 times its seed throughout: 39 in the main picture (seed
  // 3), 195 in the embedded thumbnail (seed 15, 160 by 120). The mean blue tells which one
  // was decoded.
  std::string why;
  samplegen::Bytes heic = samplegen::encodeHeic(640, 480, 3, nullptr, {160, 15}, &why);
  if (heic.empty()) GTEST_SKIP() << "no HEIC encoder on this machine: " << why;
  testing::writeBytes(dir / "h.heic", heic);
  auto asset = fileAsset(dir / "h.heic");
  ThumbnailImageManager images;
  auto blue = [](const kit::ImagePtr& image) {
    double sum = 0;
    for (std::size_t i = 2; image && i < image->rgba().size(); i += 4) sum += image->rgba()[i];
    return image ? sum / (image->rgba().size() / 4) : -1.0;
  };

  auto small = fetch(images, asset, {100, 100}).image;
  EXPECT_EQ(sizeOf(small), (PixelSize{100, 75}));
  EXPECT_NEAR(blue(small), 195, 25);
  auto filled = fetch(images, asset, {160, 100}, platform::kImageContentModeAspectFill).image;
  EXPECT_EQ(sizeOf(filled), (PixelSize{160, 120}));
  EXPECT_NEAR(blue(filled), 195, 25);

  auto large = fetch(images, asset, {200, 200}).image;
  EXPECT_EQ(sizeOf(large), (PixelSize{200, 150}));
  EXPECT_NEAR(blue(large), 39, 25);
  EXPECT_EQ(sizeOf(fetch(images, asset, platform::kImageManagerMaximumSize).image),
            (PixelSize{640, 480}));
}

TEST_F(ThumbnailImageManagerTest, VideosShowAFrameScaledAndUpright) {
  testing::writeClip(dir / "v.mov", 1.0, std::nullopt);
  samplegen::VideoOptions portrait;
  portrait.rotation = 90;
  ASSERT_TRUE(samplegen::writeVideo(dir / "p.mov", portrait));
  ThumbnailImageManager images;
  EXPECT_EQ(sizeOf(fetch(images, fileAsset(dir / "v.mov"), {32, 32}).image), (PixelSize{32, 24}));
  EXPECT_EQ(sizeOf(fetch(images, fileAsset(dir / "p.mov"), {32, 32}).image), (PixelSize{24, 32}));
}

TEST_F(ThumbnailImageManagerTest, DamagedMissingOrForeignAssetsGiveAnError) {
  testing::writeBytes(dir / "bad.jpg", {0xFF, 0xD8, 0xFF, 0xE0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
  testing::writeClip(dir / "v.mov", 1.0, std::nullopt);
  ASSERT_EQ(::truncate((dir / "v.mov").c_str(), 300), 0);
  writeImage(dir / "gone.jpg", "JPEG", 20, 20);
  auto gone = fileAsset(dir / "gone.jpg");
  ASSERT_EQ(::unlink((dir / "gone.jpg").c_str()), 0);
  struct Foreign : platform::Asset {
    std::string id = "foreign";
    const std::string& localIdentifier() const override { return id; }
    std::optional<kit::Date> creationDate() const override { return std::nullopt; }
    double duration() const override { return 0; }
    platform::MediaType mediaType() const override { return platform::MediaType::Image; }
    int pixelWidth() const override { return 10; }
    int pixelHeight() const override { return 10; }
    kit::Value valueForKey(std::string_view) const override { return {}; }
  };

  ThumbnailImageManager images;
  std::vector<platform::AssetPtr> assets{fileAsset(dir / "bad.jpg"), fileAsset(dir / "v.mov"),
                                         gone, std::make_shared<Foreign>()};
  for (const auto& asset : assets) {
    Delivery d = fetch(images, asset, {100, 100});
    EXPECT_FALSE(d.image) << asset->localIdentifier();
    EXPECT_FALSE(d.error().empty()) << asset->localIdentifier();
  }
  EXPECT_NE(fetch(images, gone, {100, 100}).error().find("gone.jpg"), std::string::npos);
  EXPECT_EQ(images.cachedImageCount(), 0u);
}

TEST_F(ThumbnailImageManagerTest, TheCacheAnswersRepeatsWithTheSameImageWithinItsBounds) {
  for (const char* name : {"a.jpg", "b.jpg", "c.jpg"}) writeImage(dir / name, "JPEG", 400, 300);
  auto a = fileAsset(dir / "a.jpg"), b = fileAsset(dir / "b.jpg"), c = fileAsset(dir / "c.jpg");
  ThumbnailImageManagerOptions options;
  options.cacheCount = 2;
  options.cacheBytes = 1 << 20;  // a full 400x300 picture (480 000 bytes) is over a quarter
  ThumbnailImageManager images(options);

  auto first = fetch(images, a, {200, 200}).image;
  EXPECT_EQ(fetch(images, a, {200, 200}).image, first);
  EXPECT_NE(fetch(images, a, {200, 200}, platform::kImageContentModeAspectFill).image, first);
  EXPECT_EQ(images.decodeCount(), 2);
  EXPECT_EQ(images.cachedImageCount(), 2u);

  // The least recently used goes first.
  EXPECT_EQ(fetch(images, a, {200, 200}).image, first);
  fetch(images, b, {200, 200});
  fetch(images, c, {200, 200});
  EXPECT_EQ(images.cachedImageCount(), 2u);
  EXPECT_EQ(images.decodeCount(), 4);
  EXPECT_NE(fetch(images, a, {200, 200}).image, first);
  EXPECT_EQ(images.decodeCount(), 5);

  auto full = fetch(images, a, platform::kImageManagerMaximumSize).image;
  EXPECT_NE(fetch(images, a, platform::kImageManagerMaximumSize).image, full);
  EXPECT_LE(images.cachedBytes(), std::size_t{1} << 20);
  EXPECT_EQ(images.cachedBytes(), 2u * 200 * 150 * 4);
}

TEST_F(ThumbnailImageManagerTest, AFileChangedSinceTheFetchIsDecodedAfresh) {
  writeImage(dir / "a.jpg", "JPEG", 400, 300);
  ThumbnailImageManager images;
  auto before = fileAsset(dir / "a.jpg");
  EXPECT_EQ(sizeOf(fetch(images, before, platform::kImageManagerMaximumSize).image),
            (PixelSize{400, 300}));
  writeImage(dir / "a.jpg", "JPEG", 200, 100);
  samplegen::setModificationTime(dir / "a.jpg", 1.0e9);
  auto after = fileAsset(dir / "a.jpg");
  ASSERT_EQ(after->localIdentifier(), before->localIdentifier());
  EXPECT_EQ(sizeOf(fetch(images, after, platform::kImageManagerMaximumSize).image),
            (PixelSize{200, 100}));
}

TEST_F(ThumbnailImageManagerTest, AsynchronousRequestsDecodeInTheBackgroundAndDeliverOnMain) {
  writeImage(dir / "a.jpg", "JPEG", 400, 300);
  auto asset = fileAsset(dir / "a.jpg");
  ThumbnailImageManager images;
  Delivery d;
  images.requestImageForAsset(asset, {200, 200}, 0, {}, d.handler());
  EXPECT_EQ(d.calls, 0);
  env.runBackground();
  EXPECT_EQ(images.decodeCount(), 1);
  EXPECT_EQ(d.calls, 0);
  env.runMain();
  EXPECT_EQ(d.calls, 1);
  EXPECT_TRUE(d.onMain);
  EXPECT_EQ(sizeOf(d.image), (PixelSize{200, 150}));

  // A cached image skips the decode but is still delivered later, on the main queue.
  Delivery again;
  images.requestImageForAsset(asset, {200, 200}, 0, {}, again.handler());
  EXPECT_EQ(env.pendingBackgroundCount(), 0u);
  EXPECT_EQ(again.calls, 0);
  env.runUntilIdle();
  EXPECT_EQ(again.calls, 1);
  EXPECT_EQ(again.image, d.image);

  Delivery failed;
  testing::writeBytes(dir / "bad.png", {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13, 'I',
                                         'H', 'D', 'R', 1, 2, 3});
  images.requestImageForAsset(fileAsset(dir / "bad.png"), {200, 200}, 0, {}, failed.handler());
  env.runUntilIdle();
  EXPECT_EQ(failed.calls, 1);
  EXPECT_TRUE(failed.onMain);
  EXPECT_FALSE(failed.image);
  EXPECT_FALSE(failed.error().empty());
}

TEST_F(ThumbnailImageManagerTest, CancelledRequestsDeliverNothing) {
  writeImage(dir / "a.jpg", "JPEG", 400, 300);
  auto asset = fileAsset(dir / "a.jpg");
  ThumbnailImageManager images;

  Delivery early;
  images.cancelImageRequest(images.requestImageForAsset(asset, {200, 200}, 0, {}, early.handler()));
  env.runUntilIdle();
  EXPECT_EQ(early.calls, 0);
  EXPECT_EQ(images.decodeCount(), 0);  // cancelled before its decode began

  Delivery late;
  int id = images.requestImageForAsset(asset, {200, 200}, 0, {}, late.handler());
  env.runBackground();
  images.cancelImageRequest(id);
  env.runUntilIdle();
  EXPECT_EQ(late.calls, 0);
  EXPECT_EQ(images.cachedImageCount(), 1u);  // the finished decode is kept

  Delivery kept;
  images.requestImageForAsset(asset, {100, 100}, 0, {}, kept.handler());
  images.cancelImageRequest(12345);
  env.runUntilIdle();
  EXPECT_EQ(kept.calls, 1);
}

TEST(ThumbnailImageManagerThreads, ConcurrentRequestsAllGetTheirImage) {
  ThreadedEnvironment env{nullptr, 2};
  testing::TempDir dir;
  std::vector<std::shared_ptr<FileAsset>> assets;
  for (int i = 0; i < 3; ++i) {
    std::string path = dir / ("p" + std::to_string(i) + ".jpg");
    writeImage(path, "JPEG", 120, 90, static_cast<std::uint32_t>(i));
    assets.push_back(fileAsset(path));
  }
  ThumbnailImageManagerOptions options;
  options.cacheCount = 4;  // fewer than the requests' shapes: evictions race with lookups
  ThumbnailImageManager images(options);

  std::atomic<int> wrong{0}, asyncDone{0};
  const kit::Size sizes[] = {{60, 60}, {30, 30}};
  const PixelSize expected[] = {{60, 45}, {30, 23}};
  env.mainQueue().async([&] {
    for (int round = 0; round < 4; ++round) {
      for (const auto& asset : assets) {
        images.requestImageForAsset(asset, sizes[round % 2], 0, {},
                                    [&, round](kit::ImagePtr image, const kit::Dictionary&) {
                                      if (sizeOf(image) != expected[round % 2]) ++wrong;
                                      ++asyncDone;
                                    });
      }
    }
  });
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&, t] {
      platform::ImageRequestOptions sync;
      sync.setSynchronous(true);
      for (int round = 0; round < 6; ++round) {
        int shape = (round + t) % 2;
        images.requestImageForAsset(assets[(round + t) % 3], sizes[shape], 0, sync,
                                    [&](kit::ImagePtr image, const kit::Dictionary&) {
                                      if (sizeOf(image) != expected[shape]) ++wrong;
                                    });
      }
    });
  }
  for (auto& thread : threads) thread.join();
  ASSERT_TRUE(env.standaloneLoop()->runUntil([&] { return asyncDone.load() == 12; }, 60));
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_LE(images.cachedImageCount(), 4u);
}

TEST_F(ThumbnailImageManagerTest, AFileThatFailsIsNotDecodedAgainUntilItChanges) {
  // A row on screen asks at every reload; a damaged file costs one decode, not one each time.
  testing::writeBytes(dir / "bad.jpg", {0xFF, 0xD8, 0xFF, 0xE0, 'b', 'a', 'd'});
  auto asset = fileAsset(dir / "bad.jpg");
  ThumbnailImageManager images;
  EXPECT_FALSE(fetch(images, asset, {200, 200}).image);
  EXPECT_FALSE(fetch(images, asset, {200, 200}).image);
  EXPECT_EQ(images.decodeCount(), 1);
  // Mended on disk (the asset still describes the file as the scan saw it): tried again.
  writeImage(dir / "bad.jpg", "JPEG", 40, 30);
  EXPECT_TRUE(fetch(images, asset, {200, 200}).image);
  EXPECT_EQ(images.decodeCount(), 2);
}

}  // namespace
}  // namespace desktop
