#include "free_space.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <limits>

namespace jobm {
namespace {

constexpr std::uint64_t kMaxReserve = std::uint64_t{32} * 1024 * 1024;
constexpr std::uint64_t kReserveShare = 50;  // one part of so many
constexpr std::uint64_t kStep = std::uint64_t{256} * 1024;

/// How much may be written until only the reserve is free. `failed` is what asking returned.
std::uint64_t spare(int failed, const struct statvfs& info) {
  // Some have no size, a tmpfs without a limit for one.
  if (failed != 0 || info.f_blocks == 0) return std::numeric_limits<std::uint64_t>::max();
  const std::uint64_t block = info.f_frsize;
  const std::uint64_t reserve = std::min(kMaxReserve, info.f_blocks * block / kReserveShare);
  // What only root may use is not counted: the service need not be root.
  const std::uint64_t free = info.f_bavail * block;
  return free - std::min(free, reserve);
}

}  // namespace

bool Reserve::isKept(int file, std::uint64_t written, std::uint64_t ahead) {
  if (isWithinStep(written)) return true;
  struct statvfs info {};
  return takeStep(spare(fstatvfs(file, &info), info), ahead);
}

bool Reserve::isKept(const std::string& path, std::uint64_t written) {
  if (isWithinStep(written)) return true;
  struct statvfs info {};
  return takeStep(spare(statvfs(path.c_str(), &info), info), 0);
}

bool Reserve::isWithinStep(std::uint64_t written) {
  if (written >= unasked) return false;
  unasked -= written;
  return true;
}

bool Reserve::takeStep(std::uint64_t left, std::uint64_t ahead) {
  unasked = std::min(left, kStep);
  return left > ahead;
}

}  // namespace jobm
