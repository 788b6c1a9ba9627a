/// How the process ends on a signal.
#pragma once

namespace jobm {

/// Has every trapped signal end the process with status 0. Main thread, first thing.
void installSignalHandlers();

/// The handler of every trapped signal: logs, with a back-trace for all but SIGTERM, and ends the
/// process with status 0. Never waits for a lock that the interrupted thread may hold, runs no
/// destructors, and ends the process within a second whatever happens. Any thread, inside a signal
/// handler.
void td_terminate(int signal);

/// Logs a back-trace of the calling thread. Ends the process with status 1 when symbols can't be
/// had. Any thread, also inside a signal handler.
void dmp();

}  // namespace jobm
