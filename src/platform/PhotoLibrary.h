// The photo library: assets with metadata, fetches, authorization and changes.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/Date.h"
#include "kit/Value.h"
#include "platform/Types.h"

namespace platform {

// One photo or video of the library. Immutable; safe to read from any thread.
class Asset {
 public:
  virtual ~Asset() = default;
  // Stable identity within the library; platform object equality compares it.
  virtual const std::string& localIdentifier() const = 0;
  // When the asset was taken, if the library knows it.
  virtual std::optional<kit::Date> creationDate() const = 0;
  // Length in seconds; 0 for a photo.
  virtual double duration() const = 0;
  virtual MediaType mediaType() const = 0;
  virtual int pixelWidth() const = 0;
  virtual int pixelHeight() const = 0;
  // Key-value read of a property by name; "filename" gives the file's name as text. Null
  // for a key the asset does not have.
  virtual kit::Value valueForKey(std::string_view key) const = 0;

  bool isEqual(const Asset& other) const { return localIdentifier() == other.localIdentifier(); }
};

using AssetPtr = std::shared_ptr<const Asset>;

// A freshly made asset object: no identity, no date, no pixels, no properties. No library
// holds it, so a deletion of it changes nothing.
AssetPtr emptyAsset();

struct SortDescriptor {
  std::string key;  // "creationDate"
  bool ascending = true;
};

struct FetchOptions {
  std::vector<SortDescriptor> sortDescriptors;
  void setSortDescriptors(std::vector<SortDescriptor> d) { sortDescriptors = std::move(d); }
};

// The result of a fetch: a fixed, ordered list of assets. Copies share the list.
class FetchResult {
 public:
  FetchResult() = default;
  explicit FetchResult(std::vector<AssetPtr> assets)
      : assets_(std::make_shared<const std::vector<AssetPtr>>(std::move(assets))) {}
  explicit FetchResult(std::shared_ptr<const std::vector<AssetPtr>> assets) : assets_(std::move(assets)) {}
  int count() const { return assets_ ? static_cast<int>(assets_->size()) : 0; }
  // The asset at `index`; fatal error out of range, as the platform's.
  const AssetPtr& objectAtIndex(int index) const;
  const std::vector<AssetPtr>& assets() const;

 private:
  std::shared_ptr<const std::vector<AssetPtr>> assets_;
};

// The changes a change block may ask for.
class ChangeRequest {
 public:
  virtual ~ChangeRequest() = default;
  // Asks for the deletion of `assets` (PHAssetChangeRequest deleteAssets:).
  virtual void deleteAssets(const std::vector<AssetPtr>& assets) = 0;
};

class PhotoLibrary {
 public:
  virtual ~PhotoLibrary() = default;

  // The current read-write authorization. Any thread.
  virtual AuthorizationStatus authorizationStatus() = 0;
  // Asks the user when not yet determined; `handler` receives the resulting status on an
  // arbitrary queue (not the main queue), later.
  virtual void requestAuthorization(std::function<void(AuthorizationStatus)> handler) = 0;

  // Assets of `mediaType`, ordered as `options` says (library order when null or without sort
  // descriptors). Without access the result is empty. Any thread.
  virtual FetchResult fetchAssetsWithMediaType(MediaType mediaType, const FetchOptions* options) = 0;
  // Assets of every media type.
  virtual FetchResult fetchAssetsWithOptions(const FetchOptions* options) = 0;

  // Runs `changes` and then `completion` on the platform's own queue. The platform may ask
  // the user to confirm first; a refusal or a failure gives success false and an error.
  virtual void performChanges(std::function<void(ChangeRequest&)> changes,
                              std::function<void(bool success, std::optional<Error> error)> completion) = 0;
};

// Sorts `assets` as `options` asks; only the key "creationDate" is known (assets without a
// date sort first when ascending). Stable. For implementations.
void sortAssets(std::vector<AssetPtr>& assets, const FetchOptions* options);

}  // namespace platform
