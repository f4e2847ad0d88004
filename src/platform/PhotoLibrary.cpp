#include "platform/PhotoLibrary.h"

#include <algorithm>

#include "kit/Fatal.h"

namespace platform {

namespace {

class EmptyAsset : public Asset {
 public:
  const std::string& localIdentifier() const override {
    static const std::string kNone;
    return kNone;
  }
  std::optional<kit::Date> creationDate() const override { return std::nullopt; }
  double duration() const override { return 0; }
  MediaType mediaType() const override { return MediaType::Unknown; }
  int pixelWidth() const override { return 0; }
  int pixelHeight() const override { return 0; }
  kit::Value valueForKey(std::string_view) const override { return {}; }
};

}  // namespace

AssetPtr emptyAsset() { return std::make_shared<EmptyAsset>(); }

const AssetPtr& FetchResult::objectAtIndex(int index) const {
  if (index < 0 || index >= count()) {
    kit::fatal("fetch result index " + std::to_string(index) + " beyond bounds " +
               std::to_string(count()));
  }
  return (*assets_)[static_cast<std::size_t>(index)];
}

const std::vector<AssetPtr>& FetchResult::assets() const {
  static const std::vector<AssetPtr> kNone;
  return assets_ ? *assets_ : kNone;
}

void sortAssets(std::vector<AssetPtr>& assets, const FetchOptions* options) {
  if (!options) return;
  for (auto it = options->sortDescriptors.rbegin(); it != options->sortDescriptors.rend(); ++it) {
    if (it->key != "creationDate") continue;
    bool ascending = it->ascending;
    auto before = [ascending](const AssetPtr& a, const AssetPtr& b) {
      auto da = a->creationDate(), db = b->creationDate();
      double ta = da ? da->timeIntervalSince1970 : -1e300;
      double tb = db ? db->timeIntervalSince1970 : -1e300;
      return ascending ? ta < tb : tb < ta;
    };
    // Libraries are mostly kept in date order already; a stable sort would leave them as they are.
    if (!std::is_sorted(assets.begin(), assets.end(), before)) {
      std::stable_sort(assets.begin(), assets.end(), before);
    }
  }
}

}  // namespace platform
