/// The service from its start to the point where its threads run it.
#pragma once

#include <chrono>

namespace jobm {

/// How often the scheduler hears of this gateway. Only the program for endurance tests has others.
struct Periods {
  std::chrono::milliseconds heartbeat{9000};
  std::chrono::milliseconds registration{5000};  // the pause after an attempt
};

/// Starts everything and parks. Never returns; ends the process with status 0 when another one
/// already owns the service's bus name. Main thread.
[[noreturn]] void runService(const Periods& periods);

/// Starts the thread that serves the bus. Returns 1, or 0 when there is no thread to be had; the
/// process then goes on without a bus service. Main thread.
int listen();

}  // namespace jobm
