#include "desktop/library/FolderPhotoLibrary.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <unordered_set>

#include "desktop/system/FileUtil.h"

namespace desktop {
namespace {

const char* const kErrorDomain = "PHPhotosErrorDomain";
constexpr int kUserCancelled = 3072;

platform::Error failure(std::string description) {
  return platform::Error{kErrorDomain, -1, std::move(description)};
}

// The instant of a civil time of `zone` (given as its seconds as if UTC). In a gap of a
// daylight-saving change the earlier offset applies.
kit::Date fromLocal(double civil, const kit::TimeZone& zone) {
  double guess = civil - static_cast<double>(zone.secondsFromGMTForDate(kit::Date{civil}));
  return kit::Date{civil - static_cast<double>(zone.secondsFromGMTForDate(kit::Date{guess}))};
}

kit::Date creationDateOf(const MediaInfo& info, std::int64_t mtimeNs, const kit::TimeZone& zone) {
  switch (info.timeBase) {
    case TimeBase::Absolute:
      return kit::Date{info.captureTime};
    case TimeBase::Local:
      return fromLocal(info.captureTime, zone);
    case TimeBase::None:
      break;
  }
  return kit::Date{static_cast<double>(mtimeNs) / 1e9};
}

// Reads `which` of `files` into `out` (same positions as `which`) on `threads` threads.
void readFiles(MediaReader& reader, const std::vector<WalkedFile>& files,
               const std::vector<std::size_t>& which, std::vector<MediaInfo>& out, int threads) {
  std::atomic<std::size_t> next{0};
  auto work = [&] {
    for (std::size_t k; (k = next.fetch_add(1)) < which.size();)
      out[k] = reader.read(files[which[k]].path);
  };
  int extra = which.size() < 16 ? 0 : threads - 1;
  std::vector<std::thread> pool;
  for (int i = 0; i < extra; ++i) pool.emplace_back(work);
  work();
  for (auto& t : pool) t.join();
}

class DeletionRequest : public platform::ChangeRequest {
 public:
  void deleteAssets(const std::vector<platform::AssetPtr>& assets) override {
    requested.insert(requested.end(), assets.begin(), assets.end());
  }
  std::vector<platform::AssetPtr> requested;
};

// Nothing when the file of `asset` is still the one fetched, else why not.
std::optional<platform::Error> changedSinceFetch(const FileAsset& asset) {
  struct stat st {};
  if (::lstat(asset.path().c_str(), &st) != 0) {
    return failure(asset.path() + " is gone since the library was read; nothing of it was deleted");
  }
  if (!S_ISREG(st.st_mode) || fileIdOf(st) != asset.fileId() || st.st_size != asset.fileSize() ||
      mtimeNsOf(st) != asset.modificationTimeNs()) {
    return failure(asset.path() + " changed since the library was read; it was not deleted");
  }
  return std::nullopt;
}

}  // namespace

// ---- FileAsset ----

FileAsset::FileAsset(const WalkedFile& file, const MediaInfo& info, kit::Date creationDate)
    : file_(file),
      identifier_(std::to_string(file.id.device) + ":" + std::to_string(file.id.inode)),
      creationDate_(creationDate),
      duration_(info.type == platform::MediaType::Video ? info.duration : 0.0),
      type_(info.type),
      width_(info.width),
      height_(info.height) {}

kit::Value FileAsset::valueForKey(std::string_view key) const {
  if (key == "filename") return kit::Value(lastComponent(file_.path));
  if (key == "localIdentifier") return kit::Value(identifier_);
  return {};
}

// ---- FetchReport ----

int FetchReport::count(LibraryIssue::Kind kind) const {
  return static_cast<int>(std::count_if(issues.begin(), issues.end(),
                                        [kind](const LibraryIssue& i) { return i.kind == kind; }));
}

std::string deletionQuestion(int count) {
  return "Allow Solvanta to delete " + std::to_string(count) + " items?";
}

// ---- FolderPhotoLibrary ----

FolderPhotoLibrary::FolderPhotoLibrary(FolderPhotoLibraryOptions options)
    : options_(std::move(options)), reader_(options_.reader) {
  if (!reader_) reader_ = std::make_shared<FileMediaReader>();
  if (options_.readerThreads <= 0) {
    options_.readerThreads =
        std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, 4);
  }
}

platform::AuthorizationStatus FolderPhotoLibrary::authorizationStatus() {
  if (!options_.permissions) return platform::AuthorizationStatus::NotDetermined;
  return options_.permissions->status(PermissionKind::Photos);
}

void FolderPhotoLibrary::requestAuthorization(
    std::function<void(platform::AuthorizationStatus)> handler) {
  if (!options_.permissions) {
    kit::globalQueue(kit::QoS::Default).async([handler] {
      if (handler) handler(platform::AuthorizationStatus::NotDetermined);
    });
    return;
  }
  options_.permissions->request(PermissionKind::Photos, std::move(handler));
}

platform::FetchResult FolderPhotoLibrary::fetchAssetsWithMediaType(
    platform::MediaType mediaType, const platform::FetchOptions* options) {
  return fetch(mediaType, options);
}

platform::FetchResult FolderPhotoLibrary::fetchAssetsWithOptions(
    const platform::FetchOptions* options) {
  return fetch(std::nullopt, options);
}

FetchReport FolderPhotoLibrary::lastFetchReport() const {
  std::lock_guard lock(mu_);
  return report_;
}

platform::FetchResult FolderPhotoLibrary::fetch(std::optional<platform::MediaType> type,
                                                const platform::FetchOptions* options) {
  if (authorizationStatus() != platform::AuthorizationStatus::Authorized) return {};
  std::lock_guard fetchLock(fetchMu_);

  std::set<FileId> excluded;
  for (const auto& folder : options_.excludedFolders) {
    if (FileId id; folderId(folder, &id)) excluded.insert(id);
  }
  WalkResult walk = walkLibrary(options_.root, excluded);
  FetchReport report;
  report.rootOk = walk.rootOk;
  report.rootError = walk.rootError;
  report.files = static_cast<int>(walk.files.size());
  report.hardLinksSkipped = walk.hardLinksSkipped;
  report.symlinksSkipped = walk.symlinksSkipped;
  for (const auto& p : walk.problems) {
    report.issues.push_back({p.kind == WalkProblem::Kind::UnreadableFolder
                                 ? LibraryIssue::Kind::UnreadableFolder
                                 : LibraryIssue::Kind::FolderLoop,
                             p.path, p.reason});
  }
  if (!walk.rootOk) {
    std::lock_guard lock(mu_);
    report_ = std::move(report);
    return {};
  }

  if (!indexLoaded_) {
    indexLoaded_ = true;
    if (!options_.indexPath.empty()) {
      std::string error;
      index_ = MetadataIndex::open(options_.indexPath, &error);
      if (index_) {
        entries_ = index_->loadAll(&error);
        if (!error.empty()) diagnose("metadata index: " + error);
      } else {
        diagnose("metadata index unavailable, every file is read on each scan: " + error);
      }
    }
  }

  // Which files must be read: those the index does not know as they are now.
  std::vector<std::size_t> toRead;
  std::unordered_set<FileId, FileIdHash> present;
  present.reserve(walk.files.size());
  for (std::size_t i = 0; i < walk.files.size(); ++i) {
    const WalkedFile& f = walk.files[i];
    present.insert(f.id);
    auto it = entries_.find(f.id);
    if (it == entries_.end() || it->second.size != f.size || it->second.mtimeNs != f.mtimeNs)
      toRead.push_back(i);
  }
  std::vector<MediaInfo> fresh(toRead.size());
  readFiles(*reader_, walk.files, toRead, fresh, options_.readerThreads);
  report.readFromFiles = static_cast<int>(toRead.size());

  std::vector<std::pair<FileId, IndexEntry>> changed;
  std::vector<FileId> removed;
  std::unordered_map<FileId, std::string, FileIdHash> unreadable;
  for (std::size_t k = 0; k < toRead.size(); ++k) {
    const WalkedFile& f = walk.files[toRead[k]];
    if (fresh[k].unreadable) {
      unreadable[f.id] = fresh[k].problem;
      if (entries_.erase(f.id)) removed.push_back(f.id);
      continue;
    }
    IndexEntry entry{f.size, f.mtimeNs, std::move(fresh[k])};
    changed.emplace_back(f.id, entry);
    entries_[f.id] = std::move(entry);
  }
  for (auto it = entries_.begin(); it != entries_.end();) {
    if (present.count(it->first)) {
      ++it;
    } else {
      removed.push_back(it->first);
      it = entries_.erase(it);
    }
  }
  if (index_) {
    std::string error;
    if (!index_->update(changed, removed, &error)) diagnose("metadata index not updated: " + error);
  }

  auto zone = kit::TimeZone::defaultTimeZone();
  std::vector<platform::AssetPtr> assets;
  for (const WalkedFile& f : walk.files) {
    if (auto bad = unreadable.find(f.id); bad != unreadable.end()) {
      report.issues.push_back({LibraryIssue::Kind::UnreadableFile, f.path, bad->second});
      continue;
    }
    const MediaInfo& info = entries_.at(f.id).info;
    if (info.type == platform::MediaType::Unknown) {
      report.issues.push_back(
          {LibraryIssue::Kind::NotMedia, f.path,
           f.size == 0 ? "empty file" : "content of no known photo or video format"});
      continue;
    }
    if (!info.problem.empty())
      report.issues.push_back({LibraryIssue::Kind::Damaged, f.path, info.problem});
    (info.type == platform::MediaType::Video ? report.videos : report.photos) += 1;
    if (type && info.type != *type) continue;
    assets.push_back(std::make_shared<FileAsset>(f, info, creationDateOf(info, f.mtimeNs, *zone)));
  }
  platform::sortAssets(assets, options);
  {
    std::lock_guard lock(mu_);
    report_ = std::move(report);
  }
  return platform::FetchResult(std::move(assets));
}

void FolderPhotoLibrary::performChanges(
    std::function<void(platform::ChangeRequest&)> changes,
    std::function<void(bool success, std::optional<platform::Error> error)> completion) {
  std::shared_ptr<kit::Queue> queue;
  {
    std::lock_guard lock(mu_);
    if (!changes_) changes_ = kit::makeSerialQueue("solvanta.photos.changes");
    queue = changes_;
  }
  queue->async([self = shared_from_this(), changes = std::move(changes),
                completion = std::move(completion)] {
    std::optional<platform::Error> error = self->applyChanges(changes);
    if (completion) completion(!error, error);
  });
}

std::optional<platform::Error> FolderPhotoLibrary::applyChanges(
    const std::function<void(platform::ChangeRequest&)>& changes) {
  DeletionRequest request;
  if (changes) changes(request);
  if (request.requested.empty()) return std::nullopt;
  if (authorizationStatus() != platform::AuthorizationStatus::Authorized) {
    return failure("Solvanta may not change the photo library");
  }
  std::vector<std::shared_ptr<const FileAsset>> files;
  std::set<std::string> seen;
  for (const auto& asset : request.requested) {
    auto file = std::dynamic_pointer_cast<const FileAsset>(asset);
    if (!file) return failure("an asset to delete is not a file of this library");
    if (seen.insert(file->localIdentifier()).second) files.push_back(std::move(file));
  }
  for (const auto& file : files) {
    if (auto error = changedSinceFetch(*file)) return error;
  }
  if (!options_.confirm || !options_.confirm(deletionQuestion(static_cast<int>(files.size())))) {
    return platform::Error{
        kErrorDomain, kUserCancelled,
        "The operation couldn\xE2\x80\x99t be completed. (PHPhotosErrorDomain error 3072.)"};
  }
  if (!options_.trash) return failure("no Trash to move the files to");
  for (const auto& file : files) {
    // Looked at again: the question may have stood open for a while.
    if (auto error = changedSinceFetch(*file)) return error;
    std::string error;
    if (!options_.trash->moveToTrash(file->path(), &error)) return failure(error);
    // The file's other names go too, so that it leaves the library; a name that no longer
    // holds this file is left alone.
    for (const auto& other : file->otherPaths()) {
      struct stat st {};
      if (::lstat(other.c_str(), &st) != 0 || !S_ISREG(st.st_mode) ||
          fileIdOf(st) != file->fileId()) {
        continue;
      }
      if (!options_.trash->moveToTrash(other, &error)) return failure(error);
    }
  }
  return std::nullopt;
}

}  // namespace desktop
