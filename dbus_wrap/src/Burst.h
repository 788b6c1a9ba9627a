// Memory after bursts of messages.
#pragma once

#include <malloc.h>

#include <cstddef>

namespace quillon {

// Counts the work of a thread, which tells it when it goes to sleep. Once there was enough of it,
// memory is given back to the system then: the C library keeps all that lies below anything still
// in use.
class Burst {
 public:
  void addTurn() { ++turns; }

  void rest() {
    if (turns < kEnough) return;
    turns = 0;
    malloc_trim(0);
  }

 private:
  static constexpr std::size_t kEnough = 300;

  std::size_t turns = 0;
};

}  // namespace quillon
