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

// The run-wise append must give what appending one by one gives: duplicates inside the run,
// duplicates of earlier items, and a run that crosses several table rebuilds.
TEST(AssetListTest, AppendAllMatchesAppendingOneByOne) {
  std::vector<platform::AssetPtr> first, second;
  for (int i = 0; i < 300; ++i) first.push_back(sim::photo(i, "id" + std::to_string(i % 200)));
  for (int i = 0; i < 5000; ++i) second.push_back(sim::photo(i, "id" + std::to_string((i * 7) % 3000)));
  media::AssetList runWise, oneByOne;
  runWise.appendAllIfAbsent(first);
  runWise.appendAllIfAbsent(second);
  for (const auto& a : first) oneByOne.appendIfAbsent(a);
  for (const auto& a : second) oneByOne.appendIfAbsent(a);
  EXPECT_EQ(runWise.items(), oneByOne.items());
  EXPECT_EQ(runWise.size(), 3000u);
  EXPECT_TRUE(runWise.contains(*sim::photo(0, "id2999")));
  EXPECT_FALSE(runWise.contains(*sim::photo(0, "id3000")));
}

}  // namespace
