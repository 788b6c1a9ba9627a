/// Zip archives that a test makes up.
#pragma once

#include <zip.h>
#include <zlib.h>

#include "test.h"

namespace test {

/// What a Unix archiver states of a file and of a symbolic link.
inline constexpr unsigned long kFile = 0100644UL << 16;
inline constexpr unsigned long kLink = 0120777UL << 16;

struct ZipEntry {
  std::string name;
  std::string content{};
  unsigned long attributes = 0;
  int method = Z_DEFLATED;
  int times = 1;  // the content
};

/// The bytes of an archive of `entries`.
inline std::string zipOf(const std::vector<ZipEntry>& entries) {
  const std::string path = "/tmp/var/made.zip";
  const zipFile zip = zipOpen(path.c_str(), APPEND_STATUS_CREATE);
  for (const ZipEntry& entry : entries) {
    zip_fileinfo info{};
    info.external_fa = entry.attributes;
    zipOpenNewFileInZip(zip, entry.name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                        entry.method, Z_BEST_SPEED);
    for (int i = 0; i < entry.times; ++i) {
      zipWriteInFileInZip(zip, entry.content.data(), static_cast<unsigned>(entry.content.size()));
    }
    zipCloseFileInZip(zip);
  }
  EXPECT_EQ(zipClose(zip, nullptr), ZIP_OK);
  std::string archive;
  EXPECT_TRUE(jobm::readFile(path, archive));
  return archive;
}

}  // namespace test
