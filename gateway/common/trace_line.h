/// How a message that passes is written down for people: one line, the same for the trace of the
/// local gateway and that of a real one.
#pragma once

#include <string>
#include <string_view>

namespace gateway {

/// "TIME  FROM -> TO  WHAT", in columns and with the line end. `what` comes as one line and is cut
/// where it is long. Any thread.
std::string traceLine(std::string_view time, std::string_view from, std::string_view to,
                      std::string_view what);

}  // namespace gateway
