// make-sample-library DIR: writes Solvanta's sample library and its manifest into DIR.
#include <cstdio>
#include <cstring>
#include <string>

#include "samplegen/SampleLibrary.h"

int main(int argc, char** argv) {
  if (argc != 2 || std::strcmp(argv[1], "--help") == 0) {
    std::fprintf(argc == 2 ? stdout : stderr,
                 "Usage: make-sample-library DIR\n"
                 "Writes a small photo library (photos, videos, damaged and foreign files, links)\n"
                 "into DIR, and DIR/%s: the sections a scan must find.\n",
                 samplegen::kManifestName);
    return argc == 2 ? 0 : 2;
  }
  std::string error;
  if (!samplegen::writeSampleLibrary(argv[1], &error)) {
    std::fprintf(stderr, "make-sample-library: %s\n", error.c_str());
    return 1;
  }
  std::printf("Sample library written to %s (manifest: %s/%s)\n", argv[1], argv[1],
              samplegen::kManifestName);
  return 0;
}
