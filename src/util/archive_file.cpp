#include "archive_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace jobm {
namespace {

ArchiveFile& fileOf(voidpf object) { return *static_cast<ArchiveFile*>(object); }

voidpf openFile(voidpf object, const void* /*path*/, int mode) {
  const bool reads = (mode & ZLIB_FILEFUNC_MODE_READWRITEFILTER) == ZLIB_FILEFUNC_MODE_READ;
  return reads && fileOf(object).isOpen() ? object : nullptr;
}

uLong readFileAt(voidpf, voidpf object, void* data, uLong length) {
  return fileOf(object).read(data, length);
}

uLong writeNothing(voidpf, voidpf, const void*, uLong) { return 0; }

ZPOS64_T tell(voidpf, voidpf object) { return fileOf(object).position(); }

long seekTo(voidpf, voidpf object, ZPOS64_T offset, int origin) {
  return fileOf(object).seek(static_cast<std::int64_t>(offset), origin) ? 0 : -1;
}

int closeFile(voidpf, voidpf) { return 0; }

int errorOf(voidpf, voidpf object) { return fileOf(object).hasFailed() ? 1 : 0; }

}  // namespace

ArchiveFile::ArchiveFile(const std::string& path) : file(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  struct stat info {};
  if (file >= 0 && fstat(file, &info) == 0) size = static_cast<std::uint64_t>(info.st_size);
}

ArchiveFile::~ArchiveFile() {
  if (file >= 0) close(file);
}

zlib_filefunc64_def ArchiveFile::functions() {
  return {openFile, readFileAt, writeNothing, tell, seekTo, closeFile, errorOf, this};
}

unsigned long ArchiveFile::read(void* data, unsigned long length) {
  auto* const out = static_cast<char*>(data);
  unsigned long done = 0;
  while (done < length) {
    const unsigned long wanted = length - done;
    const bool isLarge = wanted >= windows[0].data.size();
    if (isLarge && !windows[last].has(place)) {
      const std::size_t got = readAt(place, out + done, wanted);
      place += got;
      return done + got;
    }
    const Window& window = windowAt(place);
    if (!window.has(place)) break;
    const auto offset = static_cast<std::size_t>(place - window.start);
    const std::size_t bytes = std::min<std::size_t>(window.length - offset, wanted);
    std::memcpy(out + done, window.data.data() + offset, bytes);
    place += bytes;
    done += bytes;
  }
  return done;
}

bool ArchiveFile::seek(std::int64_t offset, int origin) {
  std::uint64_t base = 0;
  if (origin == ZLIB_FILEFUNC_SEEK_CUR) base = place;
  if (origin == ZLIB_FILEFUNC_SEEK_END) base = size;
  const std::uint64_t target = base + static_cast<std::uint64_t>(offset);
  if (static_cast<std::int64_t>(target) < 0) return false;
  place = sought = target;
  return true;
}

std::size_t ArchiveFile::readAt(std::uint64_t position, void* data, std::size_t length) {
  std::size_t done = 0;
  while (done < length) {
    const ssize_t got = pread(file, static_cast<char*>(data) + done, length - done,
                              static_cast<off_t>(position + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) readFailed = true;
    if (got <= 0) break;
    done += static_cast<std::size_t>(got);
  }
  return done;
}

/// The window that contains `position`; if neither does, the older one is filled from there. At the
/// end of the file even that one doesn't contain it.
const ArchiveFile::Window& ArchiveFile::windowAt(std::uint64_t position) {
  if (windows[last].has(position)) return windows[last];
  last = 1 - last;
  Window& window = windows[last];
  if (!window.has(position)) {
    window.start = position;
    window.length = readAt(position, window.data.data(), window.data.size());
  }
  return window;
}

}  // namespace jobm
