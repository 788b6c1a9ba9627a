#include "zip_folder.h"

#include <sys/stat.h>
#include <zip.h>

#include <filesystem>
#include <memory>
#include <set>
#include <type_traits>

#include "lib/file_text.h"

namespace gateway {
namespace {

namespace fs = std::filesystem;

struct ZipCloser {
  void operator()(std::remove_pointer_t<zipFile>* file) const { zipClose(file, nullptr); }
};
using ZipPtr = std::unique_ptr<std::remove_pointer_t<zipFile>, ZipCloser>;

// The upper half of the external attributes holds the Unix mode.
constexpr unsigned kModeShift = 16;
// "Version made by": Unix, so that readers look at that mode.
constexpr unsigned kMadeByUnix = 3U << 8 | 20;

// Adds one entry; a directory's name ends in a slash and its content is empty.
bool addEntry(zipFile zip, const std::string& name, const std::string& content, mode_t mode) {
  zip_fileinfo info{};
  // A fixed date (1 January 2020), so that equal folders give equal archives.
  info.tmz_date.tm_year = 2020;
  info.tmz_date.tm_mday = 1;
  info.external_fa = static_cast<uLong>(mode) << kModeShift;
  const int opened = zipOpenNewFileInZip4_64(
      zip, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED, Z_DEFAULT_COMPRESSION,
      0, -MAX_WBITS, DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY, nullptr, 0, kMadeByUnix, 0, 0);
  if (opened != ZIP_OK) return false;
  const bool written =
      zipWriteInFileInZip(zip, content.data(), static_cast<unsigned>(content.size())) == ZIP_OK;
  return zipCloseFileInZip(zip) == ZIP_OK && written;
}

}  // namespace

std::string zipFolder(const std::string& folder, const std::string& archive) {
  std::set<fs::path> paths;
  std::error_code error;
  for (const auto& entry : fs::recursive_directory_iterator(folder, error))
    paths.insert(entry.path());
  if (error) return folder + ": " + error.message();

  const ZipPtr zip(zipOpen64(archive.c_str(), APPEND_STATUS_CREATE));
  if (!zip) return archive + " can't be created";
  for (const fs::path& path : paths) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) return path.string() + " can't be inspected";
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) continue;
    std::string name = fs::relative(path, folder).string();
    std::string content;
    if (S_ISDIR(status.st_mode)) {
      name += '/';
    } else if (!jobm::readFile(path.string(), content)) {
      return path.string() + " can't be read";
    }
    if (!addEntry(zip.get(), name, content, status.st_mode)) return name + " can't be added";
  }
  return "";
}

}  // namespace gateway
