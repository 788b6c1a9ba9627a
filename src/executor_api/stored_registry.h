// The registry as the configuration store has it: one JSON object for executors and one for
// parsers, their registrations by name. For the registry's own sources, which hold its lock.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>

#include "dbus_process_call/dbus_process_call.h"

namespace jobm::registry {

/// The registrations under `key`; an empty object when there are none or what is there is no
/// object, nothing when the store could not be read.
std::optional<Json::Value> storedRegistrations(const std::string& key);

/// Writes back what was read before a registration was stored that is refused after all; `before`
/// is what readConfig gave for `key`.
void putBack(const std::string& key, const ConfigRead& before);

}  // namespace jobm::registry
