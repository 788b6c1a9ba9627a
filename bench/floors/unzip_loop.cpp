#include "unzip_loop.h"

#include <minizip/unzip.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <type_traits>

#include "support/bus.h"

namespace bench {
namespace {

struct CloseArchive {
  void operator()(unzFile archive) const { unzClose(archive); }
};
struct CloseFile {
  void operator()(FILE* file) const { std::fclose(file); }
};

void copyEntry(unzFile archive, const std::string& path) {
  const std::unique_ptr<FILE, CloseFile> file(std::fopen(path.c_str(), "wb"));
  require(file && unzOpenCurrentFile(archive) == UNZ_OK, "an entry can't be unpacked");
  std::array<char, 8192> buffer;
  int got = 0;
  while ((got = unzReadCurrentFile(archive, buffer.data(), buffer.size())) > 0) {
    std::fwrite(buffer.data(), 1, static_cast<std::size_t>(got), file.get());
  }
  require(got == 0 && unzCloseCurrentFile(archive) == UNZ_OK, "an entry is damaged");
}

}  // namespace

void unzipLoop(const std::string& archivePath, const std::string& directory) {
  const std::unique_ptr<std::remove_pointer_t<unzFile>, CloseArchive> archive(
      unzOpen64(archivePath.c_str()));
  require(archive != nullptr, "no archive");
  int more = unzGoToFirstFile(archive.get());
  for (; more == UNZ_OK; more = unzGoToNextFile(archive.get())) {
    std::array<char, 512> name{};
    unz_file_info info{};
    unzGetCurrentFileInfo(archive.get(), &info, name.data(), name.size(), nullptr, 0, nullptr, 0);
    const std::string path = directory + "/" + name.data();
    if (path.back() == '/') {
      std::filesystem::create_directories(path);
    } else {
      copyEntry(archive.get(), path);
    }
  }
}

}  // namespace bench
