// Memory after bursts of messages.
#pragma once

#include <malloc.h>

#include <cstddef>

namespace quillon {

// Counts the work of a thread, which tells it when it goes to sleep. What a long burst has taken is
// given back to the system then: the C library keeps all that lies below anything still in use.
class Burst {
 public:
  void addTurn() { ++turns; }

  void rest() {
    if (turns < kLong) return;
    turns = 0;
    malloc_trim(0);
  }

 private:
  static constexpr std::size_t kLong = 300;

  std::size_t turns = 0;
};

}  // namespace quillon
