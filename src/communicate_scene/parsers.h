/// The parser phase of a deployment: every parser of a resource's type is asked to process it.
/// Listening thread.
#pragma once

#include "deployment.h"

namespace jobm {

/// Calls the parsers; the last answer goes on to the executors, or reports what failed. Without any
/// parser to call the executors are next at once.
void notifyParsers(const SharedDeployment& deployment);

}  // namespace jobm
