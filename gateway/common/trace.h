/// The trace of a job: every program of the local gateway tells what passes through it.
#pragma once

#include <string_view>

namespace gateway {

/// Writes one line: seconds since the start, from whom, to whom, what. It goes to the end of the
/// file that the environment's GATEWAY_TRACE names, or to standard output; the start is
/// GATEWAY_TRACE_START (seconds since the epoch), or the first call. A line is written whole, so
/// several programs may share one file. Any thread.
void trace(std::string_view from, std::string_view to, std::string_view what);

/// trace() for what can only come from a mistake of the service: begins with the word "FAULT".
void fault(std::string_view from, std::string_view to, std::string_view what);

}  // namespace gateway
