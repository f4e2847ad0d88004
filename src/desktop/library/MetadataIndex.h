// The metadata index: a SQLite database that remembers what was read from each file, keyed by
// the file's identity, size and modification time, so that an unchanged file is never read
// twice.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "desktop/library/LibraryWalk.h"
#include "desktop/library/MediaReader.h"

struct sqlite3;

namespace desktop {

struct IndexEntry {
  std::int64_t size = 0;
  std::int64_t mtimeNs = 0;
  MediaInfo info;  // never an unreadable result
};

using IndexEntries = std::unordered_map<FileId, IndexEntry, FileIdHash>;

// One connection to one index file. Not thread-safe: one thread at a time (the photo
// library serialises its fetches). Several processes may share the file.
class MetadataIndex {
 public:
  // Opens or creates the index at `path` (its folder must exist). An index of another layout
  // or a damaged file is started afresh. Nothing, with `error` filled, when no index can be
  // had there.
  static std::unique_ptr<MetadataIndex> open(const std::string& path, std::string* error);
  ~MetadataIndex();
  MetadataIndex(const MetadataIndex&) = delete;
  MetadataIndex& operator=(const MetadataIndex&) = delete;

  // Every entry.
  IndexEntries loadAll(std::string* error = nullptr);
  // In one transaction: writes `changed` (replacing entries of the same identity) and removes
  // `removed`. False, with `error` filled and nothing changed, on failure.
  bool update(const std::vector<std::pair<FileId, IndexEntry>>& changed,
              const std::vector<FileId>& removed, std::string* error = nullptr);

  const std::string& path() const { return path_; }

 private:
  MetadataIndex(sqlite3* db, std::string path) : db_(db), path_(std::move(path)) {}
  sqlite3* db_;
  std::string path_;
};

// The index file of the library at `root` inside the cache folder `cacheFolder`: one file per
// library, named after a hash of the root's path.
std::string indexPathFor(const std::string& cacheFolder, const std::string& root);

}  // namespace desktop
