#include "kit/CowArray.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

TEST(CowArrayTest, CopiesAreIndependentValues) {
  kit::CowArray<int> a{1, 2, 3};
  kit::CowArray<int> b = a;
  b.append(4);
  a.append(5);  // a fell behind the shared storage: it copies first
  EXPECT_EQ(a.toVector(), (std::vector<int>{1, 2, 3, 5}));
  EXPECT_EQ(b.toVector(), (std::vector<int>{1, 2, 3, 4}));
  b.removeAt(0);
  b.set(0, 9);
  EXPECT_EQ(b.toVector(), (std::vector<int>{9, 3, 4}));
  EXPECT_EQ(a.toVector(), (std::vector<int>{1, 2, 3, 5}));
}

TEST(CowArrayTest, SnapshotsTakenWhileAppendingKeepTheirPrefix) {
  kit::CowArray<std::shared_ptr<int>> log;
  std::vector<kit::CowArray<std::shared_ptr<int>>> snapshots;
  for (int i = 0; i < 1000; ++i) {
    log.append(std::make_shared<int>(i));
    snapshots.push_back(log);  // O(1): shares the storage
  }
  for (int i = 0; i < 1000; i += 97) {
    ASSERT_EQ(snapshots[i].size(), static_cast<std::size_t>(i + 1));
    EXPECT_EQ(*snapshots[i].back(), i);
    EXPECT_EQ(snapshots[i][0], log[0]);  // the same objects, not copies of them
  }
  EXPECT_TRUE(log.contains(snapshots[500].back()));
}

TEST(CowArrayTest, OutOfRangeIsFatal) {
  kit::CowArray<int> a{1};
  EXPECT_THROW(a[1], kit::FatalError);
  EXPECT_THROW(a.removeAt(3), kit::FatalError);
  a.removeIf([](int v) { return v == 1; });
  EXPECT_TRUE(a.empty());
}

}  // namespace
