/// One deployment at a time: the counters of parsers' and executors' answers always count for one.
/// Listening thread only.
#pragma once

#include <functional>
#include <string>

#include "deployment.h"

namespace jobm {

/// Runs `start(payload)` now, or once the deployments before it are over.
void runInTurn(const std::string& payload, void (*start)(const std::string& payload));

/// The results of a deployment that goes on to parsers and executors. Until their last share goes,
/// later requests wait.
SharedResults beginDeployment(const std::string& deployId);

}  // namespace jobm
