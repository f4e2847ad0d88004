// Tables and collections: lists of cells asked of a data source, with reuse identifiers.
//
// `reloadData` marks the list; the next layout pass (after the current main-queue task) asks
// the data source for the section and item counts and for the cells in the visible window,
// and only those. The window is set by whoever renders (`setVisibleRange`); headless it holds
// the first few items. Cells that leave the window go back to the reuse pool.
#pragma once

#include <compare>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/Outlets.h"
#include "kit/View.h"

namespace kit {

struct IndexPath {
  int section = 0;
  int row = 0;  // also the item of a collection
  int item() const { return row; }
  auto operator<=>(const IndexPath&) const = default;
};

// A reusable cell: a view with a content view and outlets of its own.
class ListCell : public View, public OutletContainer {
 public:
  ListCell();
  View& contentView() { return *contentView_; }
  const std::string& reuseIdentifier() const { return reuseIdentifier_; }
  // Called once after the cell is made (the cell sets up its outlets here).
  virtual void awakeFromNib() {}
  // Called before a pooled cell is handed out again.
  virtual void prepareForReuse() {}
  bool isCellSelected() const { return cellSelected_; }
  void setCellSelected(bool v) { assign(cellSelected_, v, "cellSelected"); }

  // Called by the list.
  void setReuseIdentifier(std::string id) { reuseIdentifier_ = std::move(id); }

  // In a table, the top-left corner of the cell's row (see TableView::rectForRowAtIndexPath).
  Point originInSuperview() const override;

 protected:
  std::string outletOwnerName() const override { return "cell " + reuseIdentifier_; }

 private:
  std::shared_ptr<View> contentView_;
  std::string reuseIdentifier_;
  bool cellSelected_ = false;
};

class ListView : public View {
 public:
  using CellFactory = std::function<std::shared_ptr<ListCell>()>;

  // Registers the factory for cells of `reuseIdentifier`.
  void registerCell(std::string reuseIdentifier, CellFactory factory);
  // A pooled cell of `reuseIdentifier` (after prepareForReuse), or a new one. Fatal error for
  // an unregistered identifier.
  std::shared_ptr<ListCell> dequeueCell(const std::string& reuseIdentifier, IndexPath indexPath);

  // Marks the list for the next layout pass.
  void reloadData();
  // Asks the data source again, now, for those of `paths` that are visible.
  void reloadItemsAtIndexPaths(const std::vector<IndexPath>& paths);
  bool needsReload() const { return needsReload_; }

  // Counts as of the last data-source query (queried now if a reload is pending).
  int numberOfSections();
  int numberOfItemsInSection(int section);
  // Item counts per section as of the last query, without asking the data source.
  const std::vector<int>& knownCounts() const { return counts_; }

  // The visible window, over all items in section order: `count` items from item `first`.
  void setVisibleRange(int first, int count);
  int visibleFirst() const { return visibleFirst_; }
  int visibleCount() const { return visibleCount_; }
  // Moves the window so that `indexPath` is its first item.
  void scrollToItem(IndexPath indexPath);

  // Cells in the window, in order, and their index paths.
  std::vector<std::shared_ptr<ListCell>> visibleCells() const;
  std::vector<IndexPath> indexPathsForVisibleItems() const;
  // The visible cell at `indexPath`, or null.
  std::shared_ptr<ListCell> cellAtIndexPath(IndexPath indexPath) const;
  // The index path of a visible cell, or nothing.
  std::optional<IndexPath> indexPathForCell(const View& cell) const;

  // Runs a pending reload now (the layout pass calls this).
  void layoutIfNeeded();
  // Number of data-source cell requests so far (for tests and benchmarks).
  long cellRequests() const { return cellRequests_; }

 protected:
  explicit ListView(int defaultVisibleCount) : visibleCount_(defaultVisibleCount) {}
  virtual int querySections() = 0;
  virtual int queryItems(int section) = 0;
  virtual std::shared_ptr<ListCell> queryCell(IndexPath indexPath) = 0;
  virtual void willDisplay(ListCell&, IndexPath) {}
  // Called after the shown cells changed (a layout pass or a reload of items); notifies
  // "cells".
  virtual void cellsChanged() { notify("cells"); }

 private:
  void refreshCounts();
  void recycle(const std::shared_ptr<ListCell>& cell);
  void showCell(IndexPath path);
  std::vector<IndexPath> windowPaths() const;

  std::map<std::string, CellFactory> factories_;
  std::map<std::string, std::vector<std::shared_ptr<ListCell>>> pool_;
  std::map<IndexPath, std::shared_ptr<ListCell>> visible_;
  std::vector<int> counts_;
  bool countsValid_ = false;
  bool needsReload_ = false;
  int visibleFirst_ = 0;
  int visibleCount_;
  long cellRequests_ = 0;
};

// ---- Tables ----

class TableView;
using TableViewCell = ListCell;

class TableViewDataSource {
 public:
  virtual ~TableViewDataSource() = default;
  virtual int numberOfSectionsInTableView(TableView&) { return 1; }
  virtual int numberOfRowsInSection(TableView& tableView, int section) = 0;
  virtual std::shared_ptr<TableViewCell> cellForRowAtIndexPath(TableView& tableView,
                                                               IndexPath indexPath) = 0;
};

class TableViewDelegate {
 public:
  virtual ~TableViewDelegate() = default;
  // A row's height; nothing means the table's rowHeight.
  virtual std::optional<double> heightForRowAtIndexPath(TableView&, IndexPath) { return std::nullopt; }
  virtual void didSelectRowAtIndexPath(TableView&, IndexPath) {}
  virtual void willDisplayCell(TableView&, TableViewCell&, IndexPath) {}
};

class TableView : public ListView {
 public:
  TableView() : ListView(8) {}
  void setDataSource(std::weak_ptr<TableViewDataSource> d) { dataSource_ = std::move(d); }
  void setDelegate(std::weak_ptr<TableViewDelegate> d) { delegate_ = std::move(d); }
  std::shared_ptr<TableViewDataSource> dataSource() const { return dataSource_.lock(); }
  std::shared_ptr<TableViewDelegate> delegate() const { return delegate_.lock(); }

  std::shared_ptr<TableViewCell> dequeueReusableCellWithIdentifier(const std::string& id,
                                                                   IndexPath indexPath) {
    return dequeueCell(id, indexPath);
  }
  void reloadRowsAtIndexPaths(const std::vector<IndexPath>& paths) { reloadItemsAtIndexPaths(paths); }
  int numberOfRowsInSection(int section) { return numberOfItemsInSection(section); }
  std::shared_ptr<TableViewCell> cellForRowAtIndexPath(IndexPath p) const { return cellAtIndexPath(p); }

  double rowHeight() const { return rowHeight_; }
  void setRowHeight(double h) { assign(rowHeight_, h, "rowHeight"); }
  double heightForRow(IndexPath indexPath);
  // 0 none, 1 single line.
  int separatorStyle() const { return separatorStyle_; }
  void setSeparatorStyle(int s) { assign(separatorStyle_, s, "separatorStyle"); }
  bool allowsSelection() const { return allowsSelection_; }
  void setAllowsSelection(bool v) { assign(allowsSelection_, v, "allowsSelection"); }

  // A user's tap on a row: tells the delegate.
  void userSelectRow(IndexPath indexPath);

  // The rows stand one under the other from the top, each as wide as the table and as high
  // as heightForRow says, sections following each other without gaps. Both walk the rows
  // before the one they find, asking the delegate for each height: meant for a tap, not for
  // every frame.
  // The place of the row at `indexPath`, in the table's coordinates.
  Rect rectForRowAtIndexPath(IndexPath indexPath);
  // The row under `point` (in the table's coordinates; only its height counts), or nothing
  // above the first row or below the last one.
  std::optional<IndexPath> indexPathForRowAtPoint(Point point);

 protected:
  int querySections() override;
  int queryItems(int section) override;
  std::shared_ptr<ListCell> queryCell(IndexPath indexPath) override;
  void willDisplay(ListCell& cell, IndexPath indexPath) override;

 private:
  std::weak_ptr<TableViewDataSource> dataSource_;
  std::weak_ptr<TableViewDelegate> delegate_;
  double rowHeight_ = 44;
  int separatorStyle_ = 1;
  bool allowsSelection_ = true;
};

// ---- Collections ----

class CollectionView;
using CollectionViewCell = ListCell;

// The flow layout: items of one size in lines. `itemSize` is virtual so that a subclass may
// compute it.
class CollectionViewFlowLayout : public Object {
 public:
  virtual Size itemSize() const { return itemSize_; }
  virtual void setItemSize(Size s) { itemSize_ = s; }
  double minimumInteritemSpacing() const { return minimumInteritemSpacing_; }
  void setMinimumInteritemSpacing(double v) { minimumInteritemSpacing_ = v; }
  double minimumLineSpacing() const { return minimumLineSpacing_; }
  void setMinimumLineSpacing(double v) { minimumLineSpacing_ = v; }
  // 0 vertical, 1 horizontal.
  int scrollDirection() const { return scrollDirection_; }
  void setScrollDirection(int d) { scrollDirection_ = d; }
  EdgeInsets sectionInset() const { return sectionInset_; }
  void setSectionInset(EdgeInsets i) { sectionInset_ = i; }
  CollectionView* collectionView() const { return collectionView_; }
  void attach(CollectionView* view) { collectionView_ = view; }

 private:
  Size itemSize_{50, 50};
  double minimumInteritemSpacing_ = 10;
  double minimumLineSpacing_ = 10;
  int scrollDirection_ = 0;
  EdgeInsets sectionInset_;
  CollectionView* collectionView_ = nullptr;
};

class CollectionViewDataSource {
 public:
  virtual ~CollectionViewDataSource() = default;
  virtual int numberOfSectionsInCollectionView(CollectionView&) { return 1; }
  virtual int numberOfItemsInSection(CollectionView& collectionView, int section) = 0;
  virtual std::shared_ptr<CollectionViewCell> cellForItemAtIndexPath(CollectionView& collectionView,
                                                                     IndexPath indexPath) = 0;
};

class CollectionViewDelegate {
 public:
  virtual ~CollectionViewDelegate() = default;
  // Asked before a user's tap selects or deselects an item; false leaves it as it is.
  virtual bool shouldSelectItemAtIndexPath(CollectionView&, IndexPath) { return true; }
  virtual void didSelectItemAtIndexPath(CollectionView&, IndexPath) {}
  virtual void didDeselectItemAtIndexPath(CollectionView&, IndexPath) {}
  // An item's size; nothing means the layout's itemSize.
  virtual std::optional<Size> sizeForItemAtIndexPath(CollectionView&, IndexPath) { return std::nullopt; }
  virtual void willDisplayCell(CollectionView&, CollectionViewCell&, IndexPath) {}
};

class CollectionView : public ListView {
 public:
  CollectionView();
  void setDataSource(std::weak_ptr<CollectionViewDataSource> d) { dataSource_ = std::move(d); }
  void setDelegate(std::weak_ptr<CollectionViewDelegate> d) { delegate_ = std::move(d); }
  std::shared_ptr<CollectionViewDataSource> dataSource() const { return dataSource_.lock(); }
  std::shared_ptr<CollectionViewDelegate> delegate() const { return delegate_.lock(); }

  std::shared_ptr<CollectionViewCell> dequeueReusableCellWithReuseIdentifier(const std::string& id,
                                                                             IndexPath indexPath) {
    return dequeueCell(id, indexPath);
  }
  void reloadItems(const std::vector<IndexPath>& paths) { reloadItemsAtIndexPaths(paths); }
  std::shared_ptr<CollectionViewCell> cellForItemAtIndexPath(IndexPath p) const { return cellAtIndexPath(p); }

  const std::shared_ptr<CollectionViewFlowLayout>& collectionViewLayout() const { return layout_; }
  void setCollectionViewLayout(std::shared_ptr<CollectionViewFlowLayout> layout);
  Size sizeForItem(IndexPath indexPath);
  // The size of everything the layout places, as of the last layout: the lines of each
  // section (items of the section's first item size) with the layout's spacing and insets,
  // across the scroll direction as wide as the view. Notifies "contentSize" when it changes.
  Size contentSize() const { return contentSize_; }

  bool allowsMultipleSelection() const { return allowsMultipleSelection_; }
  void setAllowsMultipleSelection(bool v) { assign(allowsMultipleSelection_, v, "allowsMultipleSelection"); }
  std::vector<IndexPath> indexPathsForSelectedItems() const;
  void selectItemAtIndexPath(IndexPath p);
  void deselectItemAtIndexPath(IndexPath p);
  // A user's tap on an item: asks the delegate, then selects it (or, with multiple selection,
  // toggles it) and tells the delegate.
  void userSelectItem(IndexPath indexPath);

 protected:
  int querySections() override;
  int queryItems(int section) override;
  std::shared_ptr<ListCell> queryCell(IndexPath indexPath) override;
  void willDisplay(ListCell& cell, IndexPath indexPath) override;
  void cellsChanged() override;

 private:
  Size measureContent();

  Size contentSize_;
  std::weak_ptr<CollectionViewDataSource> dataSource_;
  std::weak_ptr<CollectionViewDelegate> delegate_;
  std::shared_ptr<CollectionViewFlowLayout> layout_;
  bool allowsMultipleSelection_ = false;
  std::vector<IndexPath> selected_;
};

}  // namespace kit
