/// Keeps one place that logs without end from filling the disk: each place in the source has an
/// allowance of records that it may use up at any speed, and that grows back slowly. Any thread,
/// also inside a signal handler: no lock, no allocation.
#pragma once

#include <cstdint>

namespace flood_guard {

/// What a place may write at once, and how long one more record takes to grow back. In a day that
/// is at most 416,000 records. docs/decisions.md has the arithmetic.
inline constexpr std::int64_t kAllowance = 200000;
inline constexpr std::int64_t kGrowBackMs = 400;
/// How far apart two lines are that tell of records left out.
inline constexpr std::int64_t kTellMs = 60000;

/// True when the record of this place may be written. Otherwise it counts as left out. `path` lives
/// as long as the program.
bool admits(const char* path, int line);

struct LeftOut {
  std::uint64_t records = 0;
  const char* path = nullptr;  // of the last one
  int line = 0;
};

/// The records left out since this was last told; none when it is not a minute since then.
LeftOut toTell();

/// Milliseconds that never go back; from any start.
using Clock = std::int64_t (*)();

/// Replaces the clock, which is the system's time since its start, and gives back all allowances.
/// For tests, while nobody else logs.
void reset(Clock clock);

/// The clock that is used without reset.
std::int64_t uptimeMs();

}  // namespace flood_guard
