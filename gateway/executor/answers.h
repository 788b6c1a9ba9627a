/// What an executor answers.
#pragma once

#include <string>

#include "misbehaviour.h"

namespace gateway {

/// The text of {"code", "message", "data"} for a call of `method` with `payload`. `wrong` is what
/// is wrong with the call, "" for nothing. With `perResource`, "data" of a deployment's answer
/// lists one
/// {"resourceId", "code", "message"} per resource. `misbehaviour` (may be null) may set the codes.
std::string executorAnswer(const std::string& method, const std::string& payload,
                           const std::string& wrong, bool perResource,
                           const Misbehaviour* misbehaviour);

}  // namespace gateway
