/// The service's version and the group configuration.
#pragma once

#include <string>

namespace jobm {

/// The content of the file "VERSION" in the parent of the working directory, without white space at
/// its ends;
/// "" when there is none. Any thread.
std::string getVersion();

/// Writes the group configuration in `payload` (base64) for `executor`. Returns 1 when it was
/// handled, 0 when it was refused. The step that would unpack the decoded bytes isn't part of this
/// release, so every payload is refused as unreadable; it must be settled with the sender before
/// anything calls this. Any thread.
int deployConfig(const std::string& executor, const std::string& payload);

}  // namespace jobm
