#include "media/AssetList.h"

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

bool AssetList::appendIfAbsent(const platform::AssetPtr& asset) {
  if ((items_.size() + 1) * 2 > slots_.size()) grow();
  const std::string& id = asset->localIdentifier();
  std::uint64_t hash = hashOf(id);
  std::size_t i = probe(id, hash);
  if (slots_[i] != 0) return false;
  slots_[i] = (tagOf(hash) << 32) | items_.size();
  items_.push_back(asset);
  return true;
}

void AssetList::grow() {
  std::vector<std::uint64_t> old;
  old.swap(slots_);
  slots_.assign(old.empty() ? 64 : old.size() * 2, 0);
  for (std::size_t index = 0; index < items_.size(); ++index) {
    const std::string& id = items_[index]->localIdentifier();
    std::uint64_t hash = hashOf(id);
    slots_[probe(id, hash)] = (tagOf(hash) << 32) | index;
  }
}

}  // namespace media
