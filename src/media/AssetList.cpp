#include "media/AssetList.h"

#include <algorithm>
#include <functional>
#include <string>

namespace media {
namespace {

std::uint64_t hashOf(const std::string& id) { return std::hash<std::string>{}(id); }
std::uint64_t tagOf(std::uint64_t hash) { return (hash >> 32) | 1; }

}  // namespace

std::size_t AssetList::probe(const std::string& id, std::uint64_t hash) const {
  const std::size_t mask = slots_.size() - 1;
  const std::uint64_t tag = tagOf(hash);
  for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
    std::uint64_t slot = slots_[i];
    if (slot == 0) return i;
    if ((slot >> 32) == tag && items_[slot & 0xFFFFFFFFu]->localIdentifier() == id) return i;
  }
}

bool AssetList::contains(const platform::Asset& asset) const {
  if (slots_.empty()) return false;
  const std::string& id = asset.localIdentifier();
  return slots_[probe(id, hashOf(id))] != 0;
}

void AssetList::reserve(std::size_t count) {
  std::size_t wanted = slots_.empty() ? 64 : slots_.size();
  while ((items_.size() + count) * 2 > wanted) wanted *= 2;
  items_.reserve(items_.size() + count);
  if (wanted != slots_.size()) rehash(wanted);
}

bool AssetList::appendIfAbsent(const platform::AssetPtr& asset) {
  if ((items_.size() + 1) * 2 > slots_.size()) rehash(slots_.empty() ? 64 : slots_.size() * 2);
  return insert(asset, hashOf(asset->localIdentifier()));
}

void AssetList::appendAllIfAbsent(const std::vector<platform::AssetPtr>& assets) {
  reserve(assets.size());
  // A large table lives in memory, not in the cache: ask for a run's slots first, so that the
  // waits for them overlap, then insert the run.
  constexpr std::size_t kRun = 16;
  std::uint64_t hashes[kRun];
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t start = 0; start < assets.size(); start += kRun) {
    std::size_t n = std::min(kRun, assets.size() - start);
    for (std::size_t k = 0; k < n; ++k) {
      hashes[k] = hashOf(assets[start + k]->localIdentifier());
      __builtin_prefetch(&slots_[hashes[k] & mask]);
    }
    for (std::size_t k = 0; k < n; ++k) insert(assets[start + k], hashes[k]);
  }
}

bool AssetList::insert(const platform::AssetPtr& asset, std::uint64_t hash) {
  std::size_t i = probe(asset->localIdentifier(), hash);
  if (slots_[i] != 0) return false;
  slots_[i] = (tagOf(hash) << 32) | items_.size();
  items_.push_back(asset);
  return true;
}

void AssetList::rehash(std::size_t slotCount) {
  slots_.assign(slotCount, 0);
  for (std::size_t index = 0; index < items_.size(); ++index) {
    const std::string& id = items_[index]->localIdentifier();
    std::uint64_t hash = hashOf(id);
    slots_[probe(id, hash)] = (tagOf(hash) << 32) | index;
  }
}

}  // namespace media
