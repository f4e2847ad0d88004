// make-sample-library DIR: writes Solvanta's sample library and its manifest into DIR.
#include <cstdio>
#include <cstring>
#include <string>

#include "samplegen/SampleContacts.h"
#include "samplegen/SampleLibrary.h"

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3 || std::strcmp(argv[1], "--help") == 0) {
    std::fprintf(argc == 2 ? stdout : stderr,
                 "Usage: make-sample-library DIR [CONTACTS_DIR]\n"
                 "Writes a small photo library (photos, videos, damaged and foreign files, links)\n"
                 "into DIR, and DIR/%s: the sections a scan must find. With CONTACTS_DIR, also a\n"
                 "sample address book there: a folder of .vcf files, one contact each.\n",
                 samplegen::kManifestName);
    return argc == 2 ? 0 : 2;
  }
  std::string error;
  if (!samplegen::writeSampleLibrary(argv[1], &error)) {
    std::fprintf(stderr, "make-sample-library: %s\n", error.c_str());
    return 1;
  }
  if (argc == 3) {
    if (!samplegen::writeSampleAddressBook(argv[2], &error)) {
      std::fprintf(stderr, "make-sample-library: %s\n", error.c_str());
      return 1;
    }
    std::printf("Sample address book written to %s\n", argv[2]);
  }
  std::printf("Sample library written to %s (manifest: %s/%s)\n", argv[1], argv[1],
              samplegen::kManifestName);
  return 0;
}
