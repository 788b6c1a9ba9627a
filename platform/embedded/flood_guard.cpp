// A place is known by the address of its path, a literal, and its line, packed into one number that
// an atomic holds. Its allowance is kept as the time at which all of it will have grown back: a
// record moves that time on by kGrowBackMs, and may not move it further than the whole allowance
// takes. One compare-and-swap does both, so two threads never share a record's worth.

#include "flood_guard.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <ctime>

namespace flood_guard {
namespace {

struct Place {
  std::atomic<std::uint64_t> key;  // 0: free
  std::atomic<std::int64_t> wholeAgainMs;
};

// Three times what the program has. A place that finds no free one among its neighbours shares.
constexpr std::size_t kPlaces = 1024;
constexpr unsigned kPlaceBits = 10;
constexpr std::size_t kNeighbours = 16;
static_assert(kPlaces == 1U << kPlaceBits);

constexpr unsigned kLineBits = 16;

// Signal handlers log, too.
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

std::array<Place, kPlaces> places;
std::atomic<Clock> clock{uptimeMs};

std::atomic<std::uint64_t> leftOut{0};
std::atomic<std::uint64_t> lastLeftOut{0};  // the key of its place
std::atomic<std::int64_t> nextTellMs{0};

std::uint64_t keyOf(const char* path, int line) {
  const auto address = static_cast<std::uint64_t>(std::bit_cast<std::uintptr_t>(path));
  const auto low = static_cast<std::uint64_t>(line) & ((1U << kLineBits) - 1U);
  return std::max<std::uint64_t>(address << kLineBits | low, 1);
}

Place& placeOf(std::uint64_t key) {
  constexpr std::uint64_t kGolden = 0x9E3779B97F4A7C15U;  // spreads what differs little
  const auto home = static_cast<std::size_t>(key * kGolden >> (64U - kPlaceBits));
  for (std::size_t step = 0; step < kNeighbours; ++step) {
    Place& place = places[(home + step) % kPlaces];
    std::uint64_t taken = place.key.load(std::memory_order_relaxed);
    if (taken == 0 && place.key.compare_exchange_strong(taken, key)) return place;
    if (taken == key) return place;
  }
  return places[home];
}

bool spend(Place& place, std::int64_t now) {
  std::int64_t whole = place.wholeAgainMs.load(std::memory_order_relaxed);
  std::int64_t next = 0;
  do {
    next = std::max(whole, now) + kGrowBackMs;
    if (next - now > kAllowance * kGrowBackMs) return false;
  } while (!place.wholeAgainMs.compare_exchange_weak(whole, next, std::memory_order_relaxed));
  return true;
}

}  // namespace

std::int64_t uptimeMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);  // a third of the other's time, and fine enough
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

bool admits(const char* path, int line) {
  const std::uint64_t key = keyOf(path, line);
  if (spend(placeOf(key), clock.load(std::memory_order_relaxed)())) return true;
  lastLeftOut.store(key, std::memory_order_relaxed);
  leftOut.fetch_add(1, std::memory_order_relaxed);
  return false;
}

LeftOut toTell() {
  if (leftOut.load(std::memory_order_relaxed) == 0) return {};
  const std::int64_t now = clock.load(std::memory_order_relaxed)();
  std::int64_t due = nextTellMs.load(std::memory_order_relaxed);
  if (now < due || !nextTellMs.compare_exchange_strong(due, now + kTellMs)) return {};
  const std::uint64_t key = lastLeftOut.load(std::memory_order_relaxed);
  const auto address = static_cast<std::uintptr_t>(key >> kLineBits);
  return {leftOut.exchange(0), std::bit_cast<const char*>(address),
          static_cast<int>(key & ((1U << kLineBits) - 1U))};
}

void reset(Clock other) {
  clock = other;
  for (Place& place : places) place.wholeAgainMs = 0;
  leftOut = 0;
  nextTellMs = 0;
}

}  // namespace flood_guard
