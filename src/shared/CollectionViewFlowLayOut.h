// The three-per-row flow layout of the thumbnail collections: items 1 point apart, scrolling
// horizontally, each the collection's width divided by 3.2 wide and 140 high, whatever size
// is assigned.
#pragma once

#include "kit/Lists.h"

namespace shared {

class CollectionViewFlowLayOut : public kit::CollectionViewFlowLayout {
 public:
  CollectionViewFlowLayOut() {
    setMinimumInteritemSpacing(1.0);
    setMinimumLineSpacing(1.0);
    setScrollDirection(1);
  }

  // Read by nobody.
  double numberOfColumns = 3.0;

  kit::Size itemSize() const override {
    double width = collectionView() ? collectionView()->frame().width() : 0.0;
    return kit::Size{width / 3.2, 140.0};
  }
  void setItemSize(kit::Size) override {}
};

}  // namespace shared
