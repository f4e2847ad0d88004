#include "media/AssetList.h"

#include <gtest/gtest.h>

#include "sim/Platform.h"

namespace {

TEST(AssetListTest, KeepsFirstOfEqualAssetsInOrderThroughGrowth) {
  media::AssetList list;
  std::vector<platform::AssetPtr> firsts;
  for (int i = 0; i < 1000; ++i) {
    auto asset = sim::photo(i, "id" + std::to_string(i));
    firsts.push_back(asset);
    EXPECT_TRUE(list.appendIfAbsent(asset));
  }
  for (int i = 0; i < 1000; i += 3) {
    // A different object with the same identifier is the same asset.
    EXPECT_FALSE(list.appendIfAbsent(sim::photo(0, "id" + std::to_string(i))));
  }
  EXPECT_EQ(list.items(), firsts);
  EXPECT_TRUE(list.contains(*sim::photo(0, "id999")));
  EXPECT_FALSE(list.contains(*sim::photo(0, "id1000")));
}

}  // namespace
