#include "kit/Lists.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "kit/Controls.h"
#include "kit/Views.h"
#include "sim/Environment.h"

namespace {

class LabelCell : public kit::TableViewCell {
 public:
  void awakeFromNib() override {
    auto label = kit::make<kit::Label>();
    contentView().addSubview(label);
    registerOutlet("label", label);
    auto button = kit::make<kit::Button>();
    contentView().addSubview(button);
    registerOutlet("button", button);
  }
  void prepareForReuse() override { ++reuses; }
  int reuses = 0;
};

class Source : public kit::TableViewDataSource {
 public:
  int numberOfSectionsInTableView(kit::TableView&) override { return static_cast<int>(rows.size()); }
  int numberOfRowsInSection(kit::TableView&, int s) override { return rows[s]; }
  std::shared_ptr<kit::TableViewCell> cellForRowAtIndexPath(kit::TableView& t, kit::IndexPath p) override {
    asked.push_back(p);
    auto cell = t.dequeueReusableCellWithIdentifier("LabelCell", p);
    cell->outlet<kit::Label>("label").setText(std::to_string(p.section) + "." + std::to_string(p.row));
    return cell;
  }
  std::vector<int> rows{3, 10};
  std::vector<kit::IndexPath> asked;
};

struct ListsTest : ::testing::Test {
  sim::Environment env;
  std::shared_ptr<kit::TableView> table = kit::make<kit::TableView>();
  std::shared_ptr<Source> source = std::make_shared<Source>();
  void SetUp() override {
    table->setDataSource(source);
    table->registerCell("LabelCell", [] { return kit::make<LabelCell>(); });
    table->setVisibleRange(0, 5);
  }
};

TEST_F(ListsTest, OnlyTheVisibleWindowIsAskedForCells) {
  table->reloadData();
  kit::runLayoutPass();
  ASSERT_EQ(source->asked.size(), 5u);
  EXPECT_EQ(source->asked.front(), (kit::IndexPath{0, 0}));
  EXPECT_EQ(source->asked.back(), (kit::IndexPath{1, 1}));
  EXPECT_EQ(table->numberOfSections(), 2);
  EXPECT_EQ(table->numberOfRowsInSection(1), 10);
  EXPECT_EQ(table->cellForRowAtIndexPath({1, 2}), nullptr);
}

TEST_F(ListsTest, ReloadRecyclesCellsThroughTheReusePool) {
  table->reloadData();
  kit::runLayoutPass();
  auto first = std::dynamic_pointer_cast<LabelCell>(table->cellForRowAtIndexPath({0, 0}));
  table->reloadData();
  kit::runLayoutPass();
  int reused = 0;
  for (auto& cell : table->visibleCells()) reused += std::dynamic_pointer_cast<LabelCell>(cell)->reuses;
  EXPECT_EQ(reused, 5);
  EXPECT_EQ(table->visibleCells().size(), 5u);
  auto visible = table->visibleCells();
  EXPECT_NE(std::find(visible.begin(), visible.end(), first), visible.end());  // no new cell was made
  EXPECT_EQ(table->cellForRowAtIndexPath({0, 0})->outlet<kit::Label>("label").text(), "0.0");
}

TEST_F(ListsTest, ScrollingShowsNewRowsAndReleasesOldOnes) {
  table->reloadData();
  kit::runLayoutPass();
  source->asked.clear();
  table->setVisibleRange(3, 5);
  EXPECT_EQ(source->asked.size(), 3u);  // rows 1.3, 1.4 and 1.5 are new
  EXPECT_EQ(table->cellForRowAtIndexPath({0, 0}), nullptr);
  EXPECT_NE(table->cellForRowAtIndexPath({1, 4}), nullptr);
}

TEST_F(ListsTest, AButtonFindsItsRowByWalkingUp) {
  table->reloadData();
  kit::runLayoutPass();
  auto cell = table->cellForRowAtIndexPath({1, 1});
  kit::Button& button = cell->outlet<kit::Button>("button");
  auto* found = button.ancestorOfType<kit::TableViewCell>();
  ASSERT_EQ(found, cell.get());
  EXPECT_EQ(button.ancestorOfType<kit::TableView>(), table.get());
  EXPECT_EQ(table->indexPathForCell(*found), (kit::IndexPath{1, 1}));
}

// Rows stand one under the other across sections; a point inside a cell's button maps back
// to that row, and points outside every row to none.
TEST_F(ListsTest, RowsHaveTheirPlaceAndPointsFindThem) {
  table->reloadData();
  kit::runLayoutPass();
  EXPECT_EQ(table->rectForRowAtIndexPath({1, 2}).origin.y, 5 * 44);
  EXPECT_EQ(table->indexPathForRowAtPoint({0, 5 * 44 - 0.5}), (kit::IndexPath{1, 1}));
  EXPECT_EQ(table->indexPathForRowAtPoint({0, 5 * 44}), (kit::IndexPath{1, 2}));
  EXPECT_EQ(table->indexPathForRowAtPoint({0, -1}), std::nullopt);
  EXPECT_EQ(table->indexPathForRowAtPoint({0, 13 * 44}), std::nullopt);

  kit::Button& button = table->cellForRowAtIndexPath({1, 1})->outlet<kit::Button>("button");
  button.setFrame(kit::makeRect(5, 6, 10, 10));
  kit::Point inTable = button.convertPoint({1, 1}, table.get());
  EXPECT_EQ(inTable, (kit::Point{6, 4 * 44 + 7}));
  EXPECT_EQ(table->indexPathForRowAtPoint(inTable), (kit::IndexPath{1, 1}));
  EXPECT_EQ(table->convertPoint(inTable, &button), (kit::Point{1, 1}));
}

TEST_F(ListsTest, ReloadRowsAsksAgainForVisibleRowsOnly) {
  table->reloadData();
  kit::runLayoutPass();
  source->asked.clear();
  table->reloadRowsAtIndexPaths({{0, 1}, {1, 8}});
  EXPECT_EQ(source->asked, (std::vector<kit::IndexPath>{{0, 1}}));
}

TEST_F(ListsTest, ReloadRowsAfterTheCountsChangedReloadsEverything) {
  table->reloadData();
  kit::runLayoutPass();
  source->rows = {1};
  source->asked.clear();
  table->reloadRowsAtIndexPaths({{0, 0}});
  EXPECT_TRUE(table->needsReload());
  kit::runLayoutPass();
  EXPECT_EQ(source->asked.size(), 1u);
  EXPECT_EQ(table->visibleCells().size(), 1u);
}

TEST_F(ListsTest, UnregisteredReuseIdentifierIsFatal) {
  EXPECT_THROW(table->dequeueReusableCellWithIdentifier("Nope", {0, 0}), kit::FatalError);
}

class Items : public kit::CollectionViewDataSource, public kit::CollectionViewDelegate {
 public:
  int numberOfItemsInSection(kit::CollectionView&, int) override { return count; }
  std::shared_ptr<kit::CollectionViewCell> cellForItemAtIndexPath(kit::CollectionView& c, kit::IndexPath p) override {
    return c.dequeueReusableCellWithReuseIdentifier("item", p);
  }
  void didSelectItemAtIndexPath(kit::CollectionView&, kit::IndexPath p) override { selected.push_back(p.item()); }
  void didDeselectItemAtIndexPath(kit::CollectionView&, kit::IndexPath p) override { deselected.push_back(p.item()); }
  std::vector<int> selected, deselected;
  int count = 4;
};

TEST(CollectionViewTest, MultipleSelectionTogglesAndMarksCells) {
  sim::Environment env;
  auto view = kit::make<kit::CollectionView>();
  auto items = std::make_shared<Items>();
  view->setDataSource(items);
  view->setDelegate(items);
  view->registerCell("item", [] { return kit::make<kit::CollectionViewCell>(); });
  view->setAllowsMultipleSelection(true);
  view->reloadData();
  kit::runLayoutPass();
  view->userSelectItem({0, 1});
  view->userSelectItem({0, 2});
  view->userSelectItem({0, 1});
  EXPECT_EQ(items->selected, (std::vector<int>{1, 2}));
  EXPECT_EQ(items->deselected, (std::vector<int>{1}));
  EXPECT_TRUE(view->cellForItemAtIndexPath({0, 2})->isCellSelected());
  EXPECT_FALSE(view->cellForItemAtIndexPath({0, 1})->isCellSelected());
}

// The content size follows the data after each layout, in lines along the scroll direction,
// and is announced only when it changes.
TEST(CollectionViewTest, ContentSizeFollowsTheItemsInLines) {
  sim::Environment env;
  auto view = kit::make<kit::CollectionView>();
  auto items = std::make_shared<Items>();
  view->setDataSource(items);
  view->registerCell("item", [] { return kit::make<kit::CollectionViewCell>(); });
  view->setFrame(kit::makeRect(0, 0, 200, 100));
  auto layout = std::make_shared<kit::CollectionViewFlowLayout>();
  layout->setItemSize({40, 40});
  layout->setSectionInset({5, 5, 5, 5});
  view->setCollectionViewLayout(layout);
  int announced = 0;
  view->addObserver([&](std::string_view p) { announced += p == "contentSize"; });

  items->count = 9;  // four to a line of 190 points (40 + 10 spacing): three lines
  view->reloadData();
  kit::runLayoutPass();
  EXPECT_EQ(view->contentSize(), (kit::Size{200, 5 + 3 * 40 + 2 * 10 + 5}));
  EXPECT_EQ(announced, 1);
  view->reloadData();
  kit::runLayoutPass();
  EXPECT_EQ(announced, 1);  // same size, no news

  layout->setScrollDirection(1);  // one line across 90 points of height: two items a column
  view->reloadData();
  kit::runLayoutPass();
  EXPECT_EQ(view->contentSize(), (kit::Size{5 + 5 * 40 + 4 * 10 + 5, 100}));
  EXPECT_EQ(announced, 2);
}

// A view lays itself out only after asking for it, once per request.
TEST(ViewLayoutTest, LayoutSubviewsRunsOncePerRequest) {
  sim::Environment env;
  struct Counting : kit::View {
    void layoutSubviews() override { ++runs; }
    int runs = 0;
  };
  auto view = kit::make<Counting>();
  view->layoutIfNeeded();
  EXPECT_EQ(view->runs, 0);
  view->setNeedsLayout();
  view->setNeedsLayout();
  view->layoutIfNeeded();
  kit::runLayoutPass();
  EXPECT_EQ(view->runs, 1);
}

}  // namespace
