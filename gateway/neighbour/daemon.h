/// What the bus daemon itself tells. For a connection's own thread; each call blocks for 5 s at
/// most.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "bus.h"

namespace gateway {

/// The names that a method of the daemon lists, "ListNames" or "ListActivatableNames"; none when it
/// does not answer.
std::set<std::string> askNames(DBusConnection* connection, const char* method);

/// The unique name of who owns `name`, "" when nobody does.
std::string askOwner(DBusConnection* connection, const std::string& name);

/// The process behind a unique or well-known name; nothing when it is not there or not told.
std::optional<unsigned> askProcess(DBusConnection* connection, const std::string& name);

}  // namespace gateway
