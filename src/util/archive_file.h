/// Reading an archive file for minizip.
#pragma once

#include <minizip/ioapi.h>

#include <array>
#include <cstdint>
#include <string>

namespace jobm {

/// A file read through two buffers, because a ZIP reader alternates between the directory at the
/// end and the entries, both in small pieces: stdio would discard its one buffer at every turn. One
/// thread at a time.
class ArchiveFile {
 public:
  explicit ArchiveFile(const std::string& path);
  ~ArchiveFile();
  ArchiveFile(const ArchiveFile&) = delete;
  ArchiveFile& operator=(const ArchiveFile&) = delete;

  /// The callbacks for unzOpen2_64; the archive must be closed before this object is destroyed.
  zlib_filefunc64_def functions();

  /// Reads up to `length` bytes at the position, advances it and returns how many there were: fewer
  /// at the end of the file or after an error.
  unsigned long read(void* data, unsigned long length);

  /// Moves the position; `origin` is one of minizip's three. False for a position before the
  /// beginning.
  bool seek(std::int64_t offset, int origin);

  bool isOpen() const { return file >= 0; }

  /// True once a read has failed.
  bool hasFailed() const { return readFailed; }

  std::uint64_t position() const { return place; }

  /// Where the last successful seek led.
  std::uint64_t lastSeek() const { return sought; }

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

  int file;
  bool readFailed = false;
  std::uint64_t size = 0;
  std::uint64_t place = 0;
  std::uint64_t sought = 0;
  std::array<Window, 2> windows;
  std::size_t last = 0;  // which of them was used last
};

}  // namespace jobm
