#include "lib/file_text.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace jobm {
namespace {

struct FileCloser {
  void operator()(FILE* file) const { static_cast<void>(std::fclose(file)); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// By how much, at least, the text grows when a file is longer than its size said.
constexpr std::size_t kGrowth = std::size_t{64} * 1024;

std::size_t sizeOf(FILE* file) {
  struct stat info {};
  if (fstat(fileno(file), &info) != 0 || !S_ISREG(info.st_mode)) return 0;
  return static_cast<std::size_t>(info.st_size);
}

}  // namespace

bool readFile(const std::string& path, std::string& text) {
  text.clear();
  const FilePtr file(std::fopen(path.c_str(), "rbe"));
  if (!file) return false;
  std::size_t length = 0;
  // One byte more than the file has, so that a single read finds its end.
  text.resize(sizeOf(file.get()) + 1);
  while (const std::size_t got =
             std::fread(text.data() + length, 1, text.size() - length, file.get())) {
    length += got;
    if (length == text.size()) text.resize(length + std::max(length, kGrowth));
  }
  text.resize(length);
  if (std::ferror(file.get()) == 0) return true;
  text.clear();
  return false;
}

bool writeFile(const std::string& path, const std::string& text) {
  FilePtr file(std::fopen(path.c_str(), "wbe"));
  if (!file) return false;
  const bool written = std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
  // A full disk may show only when the file is closed.
  return std::fclose(file.release()) == 0 && written;
}

}  // namespace jobm
