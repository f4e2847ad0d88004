// The sample library: a few dozen small photos and a few short videos that exercise the scan
// (bursts, singles, a group across midnight, photos without Exif, damaged and foreign files,
// links), with a manifest of what a scan must find in it.
#pragma once

#include <string>

namespace samplegen {

// The manifest's file name inside the library (hidden, so the library's walk skips it).
inline constexpr const char* kManifestName = ".manifest.json";

// Writes the sample library into `dir` (made when missing; files of an earlier sample are
// replaced) and its manifest, `dir`/.manifest.json:
//   {"timeZone": "UTC",
//    "photoGroups": [[path, ...], ...], "videoGroups": [[path, ...], ...],
//    "photos": [path, ...], "videos": [path, ...],
//    "notMedia": [...], "damaged": [...], "neverScanned": [...]}
// Paths are relative to `dir`. Groups list their members oldest first (the first is the one
// kept) and come in the order of their first member's capture time. Capture times are camera
// clock times, so groups and their order hold in any time zone; the printed times and
// section headers match the manifest's in the zone it names. HEIC photos are left out (and
// out of the manifest) on a machine without an HEVC encoder. False with `error` filled on
// failure.
bool writeSampleLibrary(const std::string& dir, std::string* error);

}  // namespace samplegen
