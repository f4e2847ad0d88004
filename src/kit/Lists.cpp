#include "kit/Lists.h"

#include <algorithm>

#include "kit/Dispatch.h"
#include "kit/Fatal.h"

namespace kit {

ListCell::ListCell() : contentView_(std::make_shared<View>()) { addSubview(contentView_); }

Point ListCell::originInSuperview() const {
  auto* table = dynamic_cast<TableView*>(superview());
  std::optional<IndexPath> path = table ? table->indexPathForCell(*this) : std::nullopt;
  return path ? table->rectForRowAtIndexPath(*path).origin : View::originInSuperview();
}

// ---- ListView ----

void ListView::registerCell(std::string reuseIdentifier, CellFactory factory) {
  factories_[std::move(reuseIdentifier)] = std::move(factory);
}

std::shared_ptr<ListCell> ListView::dequeueCell(const std::string& reuseIdentifier, IndexPath) {
  auto& pool = pool_[reuseIdentifier];
  if (!pool.empty()) {
    auto cell = pool.back();
    pool.pop_back();
    cell->prepareForReuse();
    return cell;
  }
  auto it = factories_.find(reuseIdentifier);
  if (it == factories_.end()) {
    fatal("unable to dequeue a cell with identifier " + reuseIdentifier +
          ": no cell is registered for it");
  }
  auto cell = it->second();
  if (!cell) fatal("cell factory for " + reuseIdentifier + " made no cell");
  cell->setReuseIdentifier(reuseIdentifier);
  cell->awakeFromNib();
  return cell;
}

void ListView::reloadData() {
  if (!needsReload_) {
    needsReload_ = true;
    setNeedsLayout();
  }
  countsValid_ = false;
}

void ListView::refreshCounts() {
  int sections = std::max(0, querySections());
  counts_.assign(sections, 0);
  for (int s = 0; s < sections; ++s) counts_[s] = std::max(0, queryItems(s));
  countsValid_ = true;
}

int ListView::numberOfSections() {
  if (!countsValid_) refreshCounts();
  return static_cast<int>(counts_.size());
}

int ListView::numberOfItemsInSection(int section) {
  if (!countsValid_) refreshCounts();
  if (section < 0 || section >= static_cast<int>(counts_.size())) return 0;
  return counts_[section];
}

void ListView::setVisibleRange(int first, int count) {
  first = std::max(0, first);
  count = std::max(0, count);
  if (first == visibleFirst_ && count == visibleCount_) return;
  visibleFirst_ = first;
  visibleCount_ = count;
  notify("visibleRange");
  if (countsValid_ && !needsReload_) {
    // Show the new window with the data we have; cells already shown stay as they are.
    std::vector<IndexPath> wanted = windowPaths();
    for (auto it = visible_.begin(); it != visible_.end();) {
      if (std::find(wanted.begin(), wanted.end(), it->first) == wanted.end()) {
        recycle(it->second);
        it = visible_.erase(it);
      } else {
        ++it;
      }
    }
    for (const IndexPath& p : wanted) {
      if (!visible_.count(p)) showCell(p);
    }
    cellsChanged();
  }
}

void ListView::scrollToItem(IndexPath indexPath) {
  if (!countsValid_) refreshCounts();
  int flat = 0;
  for (int s = 0; s < indexPath.section && s < static_cast<int>(counts_.size()); ++s) flat += counts_[s];
  setVisibleRange(flat + indexPath.row, visibleCount_);
}

std::vector<IndexPath> ListView::windowPaths() const {
  std::vector<IndexPath> paths;
  int flat = 0;
  const int end = visibleFirst_ + visibleCount_;
  for (int s = 0; s < static_cast<int>(counts_.size()) && flat < end; ++s) {
    for (int r = 0; r < counts_[s] && flat < end; ++r, ++flat) {
      if (flat >= visibleFirst_) paths.push_back({s, r});
    }
  }
  return paths;
}

void ListView::recycle(const std::shared_ptr<ListCell>& cell) {
  cell->removeFromSuperview();
  cell->setCellSelected(false);
  pool_[cell->reuseIdentifier()].push_back(cell);
}

void ListView::showCell(IndexPath path) {
  ++cellRequests_;
  auto cell = queryCell(path);
  if (!cell) fatal("data source returned no cell");
  visible_[path] = cell;
  if (cell->superview() != this) addSubview(cell);
  willDisplay(*cell, path);
}

void ListView::layoutIfNeeded() {
  if (!needsReload_) return;
  needsReload_ = false;
  for (auto& [path, cell] : visible_) recycle(cell);
  visible_.clear();
  refreshCounts();
  for (const IndexPath& p : windowPaths()) showCell(p);
  cellsChanged();
}

void ListView::reloadItemsAtIndexPaths(const std::vector<IndexPath>& paths) {
  if (needsReload_) return;  // the pending reload asks for everything anyway
  std::vector<int> before = counts_;
  refreshCounts();
  if (counts_ != before) {
    reloadData();
    return;
  }
  for (const IndexPath& p : paths) {
    auto it = visible_.find(p);
    if (it == visible_.end()) continue;
    recycle(it->second);
    visible_.erase(it);
    showCell(p);
  }
  cellsChanged();
}

std::vector<std::shared_ptr<ListCell>> ListView::visibleCells() const {
  std::vector<std::shared_ptr<ListCell>> cells;
  for (const auto& [path, cell] : visible_) cells.push_back(cell);
  return cells;
}

std::vector<IndexPath> ListView::indexPathsForVisibleItems() const {
  std::vector<IndexPath> paths;
  for (const auto& [path, cell] : visible_) paths.push_back(path);
  return paths;
}

std::shared_ptr<ListCell> ListView::cellAtIndexPath(IndexPath indexPath) const {
  auto it = visible_.find(indexPath);
  return it == visible_.end() ? nullptr : it->second;
}

std::optional<IndexPath> ListView::indexPathForCell(const View& cell) const {
  for (const auto& [path, c] : visible_) {
    if (c.get() == &cell) return path;
  }
  return std::nullopt;
}

// ---- TableView ----

int TableView::querySections() {
  auto ds = dataSource();
  return ds ? ds->numberOfSectionsInTableView(*this) : 0;
}

int TableView::queryItems(int section) {
  auto ds = dataSource();
  return ds ? ds->numberOfRowsInSection(*this, section) : 0;
}

std::shared_ptr<ListCell> TableView::queryCell(IndexPath indexPath) {
  auto ds = dataSource();
  if (!ds) fatal("table has no data source");
  return ds->cellForRowAtIndexPath(*this, indexPath);
}

void TableView::willDisplay(ListCell& cell, IndexPath indexPath) {
  if (auto d = delegate()) d->willDisplayCell(*this, cell, indexPath);
}

double TableView::heightForRow(IndexPath indexPath) {
  if (auto d = delegate()) {
    if (auto h = d->heightForRowAtIndexPath(*this, indexPath)) return *h;
  }
  return rowHeight_;
}

Rect TableView::rectForRowAtIndexPath(IndexPath indexPath) {
  double top = 0;
  for (int section = 0; section < indexPath.section; ++section) {
    for (int row = 0, n = numberOfRowsInSection(section); row < n; ++row) top += heightForRow({section, row});
  }
  for (int row = 0; row < indexPath.row; ++row) top += heightForRow({indexPath.section, row});
  return makeRect(0, top, frame().width(), heightForRow(indexPath));
}

std::optional<IndexPath> TableView::indexPathForRowAtPoint(Point point) {
  if (point.y < 0) return std::nullopt;
  double top = 0;
  for (int section = 0, sections = numberOfSections(); section < sections; ++section) {
    for (int row = 0, n = numberOfRowsInSection(section); row < n; ++row) {
      double bottom = top + heightForRow({section, row});
      if (point.y < bottom) return IndexPath{section, row};
      top = bottom;
    }
  }
  return std::nullopt;
}

void TableView::userSelectRow(IndexPath indexPath) {
  if (!allowsSelection_ || !isReachableByTouch()) return;
  if (auto d = delegate()) d->didSelectRowAtIndexPath(*this, indexPath);
  runLayoutPass();
}

// ---- CollectionView ----

CollectionView::CollectionView() : ListView(12) {
  setCollectionViewLayout(std::make_shared<CollectionViewFlowLayout>());
}

void CollectionView::setCollectionViewLayout(std::shared_ptr<CollectionViewFlowLayout> layout) {
  if (!layout) return;
  layout_ = std::move(layout);
  layout_->attach(this);
  notify("collectionViewLayout");
}

Size CollectionView::sizeForItem(IndexPath indexPath) {
  if (auto d = delegate()) {
    if (auto s = d->sizeForItemAtIndexPath(*this, indexPath)) return *s;
  }
  return layout_->itemSize();
}

Size CollectionView::measureContent() {
  const bool horizontal = layout_->scrollDirection() == 1;
  const EdgeInsets inset = layout_->sectionInset();
  // Along the scroll direction lines follow each other; across it items share a line.
  const double across = horizontal ? frame().height() : frame().width();
  double along = 0;
  const std::vector<int>& counts = knownCounts();
  for (int section = 0; section < static_cast<int>(counts.size()); ++section) {
    const int n = counts[static_cast<std::size_t>(section)];
    along += horizontal ? inset.left + inset.right : inset.top + inset.bottom;
    if (n <= 0) continue;
    const Size item = sizeForItem({section, 0});
    const double itemAlong = horizontal ? item.width : item.height;
    const double itemAcross = horizontal ? item.height : item.width;
    const double room = across - (horizontal ? inset.top + inset.bottom : inset.left + inset.right);
    const double spacing = layout_->minimumInteritemSpacing();
    int perLine = itemAcross + spacing > 0 ? static_cast<int>((room + spacing) / (itemAcross + spacing)) : n;
    perLine = std::max(1, std::min(perLine, n));
    const int lines = (n + perLine - 1) / perLine;
    along += lines * itemAlong + (lines - 1) * layout_->minimumLineSpacing();
  }
  return horizontal ? Size{along, across} : Size{across, along};
}

void CollectionView::cellsChanged() {
  ListView::cellsChanged();
  Size measured = measureContent();
  if (measured == contentSize_) return;
  contentSize_ = measured;
  notify("contentSize");
}

int CollectionView::querySections() {
  auto ds = dataSource();
  return ds ? ds->numberOfSectionsInCollectionView(*this) : 0;
}

int CollectionView::queryItems(int section) {
  auto ds = dataSource();
  return ds ? ds->numberOfItemsInSection(*this, section) : 0;
}

std::shared_ptr<ListCell> CollectionView::queryCell(IndexPath indexPath) {
  auto ds = dataSource();
  if (!ds) fatal("collection has no data source");
  return ds->cellForItemAtIndexPath(*this, indexPath);
}

void CollectionView::willDisplay(ListCell& cell, IndexPath indexPath) {
  cell.setCellSelected(std::find(selected_.begin(), selected_.end(), indexPath) != selected_.end());
  if (auto d = delegate()) d->willDisplayCell(*this, cell, indexPath);
}

std::vector<IndexPath> CollectionView::indexPathsForSelectedItems() const { return selected_; }

void CollectionView::selectItemAtIndexPath(IndexPath p) {
  if (!allowsMultipleSelection_) selected_.clear();
  if (std::find(selected_.begin(), selected_.end(), p) == selected_.end()) selected_.push_back(p);
  if (auto cell = cellAtIndexPath(p)) cell->setCellSelected(true);
  notify("selection");
}

void CollectionView::deselectItemAtIndexPath(IndexPath p) {
  std::erase(selected_, p);
  if (auto cell = cellAtIndexPath(p)) cell->setCellSelected(false);
  notify("selection");
}

void CollectionView::userSelectItem(IndexPath indexPath) {
  if (!isReachableByTouch()) return;
  auto self = shared_from_this();
  if (auto d = delegate(); d && !d->shouldSelectItemAtIndexPath(*this, indexPath)) return;
  bool wasSelected = std::find(selected_.begin(), selected_.end(), indexPath) != selected_.end();
  if (allowsMultipleSelection_ && wasSelected) {
    deselectItemAtIndexPath(indexPath);
    if (auto d = delegate()) d->didDeselectItemAtIndexPath(*this, indexPath);
  } else {
    selectItemAtIndexPath(indexPath);
    if (auto d = delegate()) d->didSelectItemAtIndexPath(*this, indexPath);
  }
  runLayoutPass();
}

}  // namespace kit
