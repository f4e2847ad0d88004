// The photo library on Linux: every photo and video file under one folder.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "desktop/library/LibraryWalk.h"
#include "desktop/library/MediaReader.h"
#include "desktop/library/MetadataIndex.h"
#include "desktop/system/PermissionStore.h"
#include "desktop/library/Trash.h"
#include "kit/Dispatch.h"
#include "platform/PhotoLibrary.h"

namespace desktop {

// One file of the library. Immutable; any thread.
class FileAsset : public platform::Asset {
 public:
  // The asset of `file` as walked, with what was read from it.
  FileAsset(const WalkedFile& file, const MediaInfo& info, kit::Date creationDate);

  // "<device>:<inode>" in decimal: the same file has the same identifier in every run.
  const std::string& localIdentifier() const override { return identifier_; }
  // The capture time: Exif, else the container's, else the file's modification time.
  std::optional<kit::Date> creationDate() const override { return creationDate_; }
  double duration() const override { return duration_; }
  platform::MediaType mediaType() const override { return type_; }
  int pixelWidth() const override { return width_; }
  int pixelHeight() const override { return height_; }
  // "filename": the file's name (its bytes as they are); "localIdentifier"; else null.
  kit::Value valueForKey(std::string_view key) const override;

  // Desktop-only facts of the file as it was when fetched: its name (the first in walk
  // order), its other names in the library (hard links), identity, size and file time.
  const std::string& path() const { return file_.path; }
  const std::vector<std::string>& otherPaths() const { return file_.otherNames; }
  FileId fileId() const { return file_.id; }
  std::int64_t fileSize() const { return file_.size; }
  std::int64_t modificationTimeNs() const { return file_.mtimeNs; }

 private:
  WalkedFile file_;
  std::string identifier_;
  kit::Date creationDate_;
  double duration_;
  platform::MediaType type_;
  int width_, height_;
};

// Something a fetch skipped or could read only in part.
struct LibraryIssue {
  enum class Kind {
    NotMedia,          // a file that is no photo or video (left out)
    Damaged,           // a photo or video whose metadata could not be read (kept, file time)
    UnreadableFile,    // a file that could not be opened (left out)
    UnreadableFolder,  // a folder that could not be listed (left out)
    FolderLoop,        // a folder reached twice (walked once)
  };
  Kind kind;
  std::string path;
  std::string reason;
};

// What the latest fetch found, for reports.
struct FetchReport {
  bool rootOk = false;
  std::string rootError;
  int files = 0;  // regular files walked (hard links once)
  int photos = 0;
  int videos = 0;
  int readFromFiles = 0;  // files whose metadata was read (not taken from the index)
  int hardLinksSkipped = 0;
  int symlinksSkipped = 0;
  std::vector<LibraryIssue> issues;
  int count(LibraryIssue::Kind kind) const;
};

// Answers the platform's confirmation of a deletion; `message` is the question to show
// ("Allow Solvanta to delete 3 items?"). Runs on the library's change queue and may block
// until the user answers; it must not wait for that queue. True deletes.
using ConfirmPrompt = std::function<bool(const std::string& message)>;

struct FolderPhotoLibraryOptions {
  std::string root;
  // The index file; empty runs without an index (every fetch reads every file).
  std::string indexPath;
  std::shared_ptr<PermissionStore> permissions;
  ConfirmPrompt confirm;  // none refuses every deletion
  std::shared_ptr<const Trash> trash;
  // None: a FileMediaReader.
  std::shared_ptr<MediaReader> reader;
  // Folders never walked (the app's own data).
  std::vector<std::string> excludedFolders;
  // Threads that read files on a fetch; 0 picks min(4, hardware threads).
  int readerThreads = 0;
};

class FolderPhotoLibrary : public platform::PhotoLibrary,
                           public std::enable_shared_from_this<FolderPhotoLibrary> {
 public:
  explicit FolderPhotoLibrary(FolderPhotoLibraryOptions options);

  // The photos permission of the permission store. Any thread.
  platform::AuthorizationStatus authorizationStatus() override;
  // Asks once through the permission store's prompt; `handler` runs on a global queue.
  void requestAuthorization(std::function<void(platform::AuthorizationStatus)> handler) override;

  // Walks the root and returns its photos or videos, ordered as `options` asks (walk order
  // without sort descriptors). Unchanged files come from the index; new and changed ones are
  // read on a few threads and indexed; vanished ones leave the index. Empty unless the photos
  // permission is authorized (limited access has no selection on this platform, so it shows
  // nothing either). Any thread; fetches run one at a time.
  platform::FetchResult fetchAssetsWithMediaType(platform::MediaType mediaType,
                                                 const platform::FetchOptions* options) override;
  platform::FetchResult fetchAssetsWithOptions(const platform::FetchOptions* options) override;

  // On the library's serial change queue: runs `changes`; when it asked for deletions (of
  // assets of this library), asks "Allow Solvanta to delete N items?" through the confirm
  // prompt and moves every file to the Trash, under each of its names in the library; then
  // runs `completion` on the same queue. The
  // completion reports failure with an error, and nothing is deleted, when access is not
  // authorized, the user refuses, an asset is not a file of this library, or a file changed
  // or vanished since it was fetched; a failure of the Trash midway stops there (files
  // already moved stay in the Trash) and reports failure too.
  void performChanges(
      std::function<void(platform::ChangeRequest&)> changes,
      std::function<void(bool success, std::optional<platform::Error> error)> completion) override;

  // The report of the latest fetch. Any thread.
  FetchReport lastFetchReport() const;
  const std::string& root() const { return options_.root; }

 private:
  platform::FetchResult fetch(std::optional<platform::MediaType> type,
                              const platform::FetchOptions* options);
  // The body of performChanges, on the change queue.
  std::optional<platform::Error> applyChanges(
      const std::function<void(platform::ChangeRequest&)>& changes);

  FolderPhotoLibraryOptions options_;
  std::shared_ptr<MediaReader> reader_;

  std::mutex fetchMu_;  // one fetch at a time; guards the index and its entries
  std::unique_ptr<MetadataIndex> index_;
  bool indexLoaded_ = false;
  IndexEntries entries_;

  mutable std::mutex mu_;  // guards the fields below
  FetchReport report_;
  std::shared_ptr<kit::Queue> changes_;
};

// The confirmation text of a deletion of `count` items.
std::string deletionQuestion(int count);

}  // namespace desktop
