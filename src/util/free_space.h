/// The part of a file system that downloads and archives leave free.
#pragma once

#include <cstdint>
#include <string>

namespace jobm {

/// Watches that what one download or archive writes leaves 32 MiB of the file system free, or 2 %
/// of it if that is less: the configuration store, mostly on the same disk, must be able to go on.
/// One thread at a time.
class Reserve {
 public:
  /// To be told of every `written` bytes of the open `file`. False when less than the reserve is
  /// free, or would be with the `ahead` bytes that are still to come. Asks the kernel every 256 KiB
  /// or when the reserve is nearer; a file system that doesn't tell its size has room.
  bool isKept(int file, std::uint64_t written, std::uint64_t ahead = 0);

  /// The same for what was made at `path`.
  bool isKept(const std::string& path, std::uint64_t written);

 private:
  bool isWithinStep(std::uint64_t written);
  bool takeStep(std::uint64_t left, std::uint64_t ahead);

  std::uint64_t unasked = 0;  // bytes that may be written before the kernel is asked again
};

}  // namespace jobm
