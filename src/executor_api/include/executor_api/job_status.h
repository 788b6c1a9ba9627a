/// The status of jobs, as executors report it and as they are asked for it.
#pragma once

#include <cstdint>
#include <string>

#include "executor_api/registry.h"

namespace jobm {

/// Passes an executor's status report (JSON) on to the scheduler. Returns false when it can't be
/// read, which is then all that happens. Listening thread.
bool reportJobStatus(const std::string& payload);

/// Asks an executor for the status of a job; the answer is only logged. Any thread.
/// Nothing calls this yet.
void getJobStatus(std::uint64_t jobId, const std::string& foreignKey, const Executor& executor);

}  // namespace jobm
