// AssetList: an append-only list of assets that holds no two equal assets (platform equality:
// the same local identifier). Its membership test takes constant time and touches one compact
// table, instead of a search of the list. Not thread-safe.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/PhotoLibrary.h"

namespace media {

class AssetList {
 public:
  // Appends `asset` unless an equal one is already in the list; returns whether it appended.
  bool appendIfAbsent(const platform::AssetPtr& asset);
  bool contains(const platform::Asset& asset) const;
  // Appends each of `assets` in order unless an equal one is already in the list (or earlier in
  // `assets`). Same result as appending one by one; faster for long lists, as it fetches the
  // table's slots for a run of assets before it inserts them.
  void appendAllIfAbsent(const std::vector<platform::AssetPtr>& assets);
  const std::vector<platform::AssetPtr>& items() const { return items_; }
  std::size_t size() const { return items_.size(); }

 private:
  // Finds the slot holding an asset equal to the one with `id` and `hash`, or the empty slot
  // where it would go.
  std::size_t probe(const std::string& id, std::uint64_t hash) const;
  // Makes room for `count` more items without a rebuild of the table on the way.
  void reserve(std::size_t count);
  // Rebuilds the table with `slotCount` slots, a power of two more than twice the items.
  void rehash(std::size_t slotCount);
  // Inserts `asset`, with `hash` the hash of its identifier, unless present; the table has room.
  bool insert(const platform::AssetPtr& asset, std::uint64_t hash);

  std::vector<platform::AssetPtr> items_;
  // Open addressing, linear probing, at most half full. A slot is 0 when empty, else the
  // upper half of the identifier's hash (with its low bit set) over the item's index.
  std::vector<std::uint64_t> slots_;
};

}  // namespace media
