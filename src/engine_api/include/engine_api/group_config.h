/// The service's version and the group configuration.
#pragma once

#include <string>

namespace jobm {

/// The content of the file "VERSION" in the parent of the working directory, without white space at
/// its ends; "" when there is none or the working directory is gone or too long (299 bytes). Any
/// thread.
std::string getVersion();

/// Writes the group configuration in `payload` (base64) for `executor`. Returns 1 when it was
/// handled, 0 when it was refused. Every payload is refused in this release, see "Group
/// configurations" in docs/architecture.md. Nothing calls this yet. Any thread.
int deployConfig(const std::string& executor, const std::string& payload);

}  // namespace jobm
