/// The service from its start to the point where its threads run it.
#pragma once

namespace jobm {

/// Starts everything and parks. Never returns; ends the process with status 0 when another one
/// already owns the service's bus name. Main thread.
[[noreturn]] void runService();

/// Starts the thread that serves the bus. Returns 1, or 0 when there is no thread to be had; the
/// process then goes on without a bus service. Main thread.
int listen();

}  // namespace jobm
