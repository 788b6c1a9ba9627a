/// Deploying and deleting resources on executors. The replies fill the deployment's results; the
/// one that completes them reports. Listening thread.
#pragma once

#include <json/value.h>

#include <string>

#include "executor_api/deployment_results.h"
#include "executor_api/method_calls.h"
#include "executor_api/registry.h"

namespace jobm {

/// Sends `resources` (which lose their "data") to an executor after adding them to its job list.
/// Returns
/// {"code", "message"}: 0 when the call was sent; otherwise it was not, and no reply will come.
Json::Value deployEJob(const std::string& deployId, const std::string& taskId,
                       Json::Value& resources, const std::string& executorName,
                       const SharedResults& results);

/// The same for a deletion, except that "data" stays and that 101203, a job list that couldn't be
/// stored, doesn't keep the call from being sent.
Json::Value deleteEJob(const std::string& deployId, const std::string& taskId,
                       const Json::Value& resources, const std::string& executorName,
                       const SharedResults& results);

/// Sends one key and value to a parser; `callback` gets its answer.
void deployParserJob(const std::string& key, const std::string& value, const Executor& parser,
                     const MethodResultCallback& callback);

}  // namespace jobm
