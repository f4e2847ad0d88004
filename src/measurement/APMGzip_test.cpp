#include "measurement/APMGzip.h"

#include <gtest/gtest.h>

namespace {

TEST(APMGzipTest, RoundTripsAndWritesAGzipHeader) {
  kit::Data data;
  for (int i = 0; i < 100000; ++i) data.push_back(static_cast<std::uint8_t>(i * 7 % 251));
  auto zipped = APMGzipData(data, nullptr);
  ASSERT_TRUE(zipped);
  ASSERT_GE(zipped->size(), 2u);
  EXPECT_EQ((*zipped)[0], 0x1f);
  EXPECT_EQ((*zipped)[1], 0x8b);
  EXPECT_EQ(APMGunzipData(*zipped, nullptr), data);

  auto empty = APMGzipData({}, nullptr);
  ASSERT_TRUE(empty);
  EXPECT_EQ(APMGunzipData(*empty, nullptr), kit::Data());
}

TEST(APMGzipTest, TruncatedOrForeignBytesDoNotInflate) {
  kit::Data data(5000, 'a');
  auto zipped = APMGzipData(data, nullptr);
  ASSERT_TRUE(zipped);
  kit::Data truncated(zipped->begin(), zipped->end() - 4);
  platform::Error error;
  EXPECT_FALSE(APMGunzipData(truncated, &error));
  EXPECT_NE(error.localizedDescription.find("inflate"), std::string::npos);
  EXPECT_FALSE(APMGunzipData(data, nullptr));
  EXPECT_FALSE(APMGunzipData({}, nullptr));
}

TEST(APMGzipTest, InflationStopsAtTheLimit) {
  kit::Data data(1 << 20, 'a');  // a thousandfold ratio
  auto zipped = APMGzipData(data, nullptr);
  ASSERT_TRUE(zipped);
  platform::Error error;
  EXPECT_FALSE(APMGunzipData(*zipped, &error, data.size() - 1));
  EXPECT_NE(error.localizedDescription.find("exceeds"), std::string::npos);
  EXPECT_EQ(APMGunzipData(*zipped, nullptr, data.size()), data);
}

}  // namespace
