/// The list of resources that an executor currently holds, kept in the configuration store under
/// its name.
#pragma once

#include <json/value.h>

#include <string>

namespace jobm {

/// Edits the job list of `executorName` by the scheduler's action code: adds (replacing what has
/// the same "resourceId"), deletes or empties; any other code leaves it as it is. Returns 0, the
/// store's error, or kStoreUnreadable when the list could not be read and is left as it is.
/// Listening thread: it reads, edits and writes.
[[nodiscard]] int updateStoredJobs(const std::string& executorName, const Json::Value& items,
                                   int ackCode);

}  // namespace jobm
