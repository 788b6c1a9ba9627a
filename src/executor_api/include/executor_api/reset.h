/// Wiping every job that was handed to the executors.
#pragma once

#include <json/value.h>

namespace jobm {

/// Empties the job lists, asks the executors that store anything to reset, and removes the
/// downloaded files. Returns {"code", "detail"}: 0 when it was started everywhere, 101203 when a
/// job list couldn't be emptied, which ends it there. The executors' answers are only counted and
/// logged. Listening thread.
Json::Value resetEJobs();

/// Removes the whole download directory. Any thread.
void resetLocalAllJobs();

}  // namespace jobm
