// What `solvanta scan` prints: the sections of duplicates (as text or JSON) on standard
// output, and what the library walk skipped on standard error.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "desktop/library/FolderPhotoLibrary.h"
#include "kit/Date.h"

namespace cli {

struct ScanMember {
  std::string path;        // the file (bytes as found)
  kit::Date captureTime;   // the asset's creation date
  bool markedForDeletion;  // the record's isSelected
};

struct ScanSection {
  std::string header;  // the section's header ("dd-MM-yy")
  std::vector<ScanMember> members;
};

struct ScanResult {
  std::string library;
  bool videos = false;
  std::int64_t scanned = 0;  // the scan's count of photos or videos
  std::vector<ScanSection> sections;
  desktop::FetchReport report;
  // Set when a deletion was asked for: how many files went to the Trash.
  int deleted = -1;
};

// The sections for a person: a summary line, then per section its header and one line per
// member ("keep" or "delete", capture time in the device's zone, path). `deleted` is not shown.
std::string renderText(const ScanResult& result);

// The same as one JSON object:
//   {"library": ..., "media": "photos" | "videos", "scanned": N,
//    "sections": [{"header": ..., "members": [{"path": ..., "captureTime": ISO 8601 with the
//    zone's offset, "markedForDeletion": bool}]}],
//    "skipped": [{"path": ..., "kind": ..., "reason": ...}], "deleted": N (with --delete)}
// Bytes of paths that are not UTF-8 become U+FFFD.
std::string renderJson(const ScanResult& result);

// "1 file", "2 files".
std::string plural(int n, const char* one, const char* many);

// One line per file or folder the walk skipped or read only in part, then a line of counts;
// empty when there is nothing to say.
std::string renderIssues(const desktop::FetchReport& report);

}  // namespace cli
