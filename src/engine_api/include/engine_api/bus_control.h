/// Operations on the bus daemon: who owns a name, starting and stopping services. Each blocks until
/// the daemon answers, at most 25 s. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace jobm {

/// Whether the bus name has an owner; false also without an answer.
bool nameHasOwner(const std::string& name);

/// Asks the daemon to start the service of that name. Returns 1 when it was started, 2 when it was
/// running already, -1 without an answer.
int startServiceByName(const std::string& name, std::uint32_t flags);

/// Starts a service that lost its name, unless the name has an owner again. One attempt.
void handleEngineDead(const std::string& name);

/// Kills the process that owns the name, if getPidByName finds it. Returns 1.
/// Nothing calls this yet.
int stopServiceByName(const std::string& name);

/// The process that owns the name, or -1; always -1 with the standard daemon, see "The method that
/// no daemon has" in docs/architecture.md. Only stopServiceByName calls this.
int getPidByName(const std::string& name);

}  // namespace jobm
