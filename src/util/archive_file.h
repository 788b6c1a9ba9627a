/// Reading an archive file for minizip.
#pragma once

#include <minizip/ioapi.h>

#include <array>
#include <cstdint>
#include <string>

namespace jobm {

/// A file that is read through two windows, the one used last and the one before: a ZIP reader goes
/// to and fro between the directory at the end and the entries, and takes both in small bites.
/// stdio would throw its buffer away at each of these turns. One thread at a time.
class ArchiveFile {
 public:
  explicit ArchiveFile(const std::string& path);
  ~ArchiveFile();
  ArchiveFile(const ArchiveFile&) = delete;
  ArchiveFile& operator=(const ArchiveFile&) = delete;

  /// What unzOpen2_64 wants; the archive must be closed before this object goes.
  zlib_filefunc64_def functions();

  /// Reads up to `length` bytes at the position and moves it. Fewer at the end or after an error.
  unsigned long read(void* data, unsigned long length);

  /// Moves the position; `origin` is one of minizip's three. False for a place before the
  /// beginning.
  bool seek(std::int64_t offset, int origin);

  bool isOpen() const { return mFile >= 0; }
  bool failed() const { return mFailed; }
  std::uint64_t position() const { return mPosition; }

  /// Where the last successful seek led.
  std::uint64_t lastSeek() const { return mLastSeek; }

 private:
  struct Window {
    std::uint64_t start = 0;
    std::size_t length = 0;
    std::array<char, 16384> data;
    bool has(std::uint64_t position) const {
      return position >= start && position - start < length;
    }
  };

  std::size_t readAt(std::uint64_t position, void* data, std::size_t length);
  const Window& windowAt(std::uint64_t position);

  int mFile;
  bool mFailed = false;
  std::uint64_t mSize = 0;
  std::uint64_t mPosition = 0;
  std::uint64_t mLastSeek = 0;
  std::array<Window, 2> mWindows;
  std::size_t mLast = 0;  // the window used last
};

}  // namespace jobm
