/// Deploying and deleting resources on executors: the calls, and what their replies say. Counting
/// the replies, and acting on the last one, is the caller's part. Listening thread.
#pragma once

#include <json/value.h>

#include <functional>
#include <string>

#include "executor_api/method_calls.h"
#include "executor_api/registry.h"

namespace jobm {

/// Writes into `summary`, by snapshotId, what a reply says about each resource of its call.
using RecordReply = std::function<void(Json::Value& summary)>;

/// Takes the reply of a call, a missing one included; called once, from the loop, never from inside
/// the call. `record` reads the reply and is only valid meanwhile.
using JobReplyHandler = std::function<void(const RecordReply& record)>;

/// Sends `resources` (which lose their "data") to an executor after adding them to its job list.
/// Returns {"code", "message"}: 0 when the call was sent; otherwise it was not, and no reply will
/// come.
[[nodiscard]] Json::Value deployEJob(const std::string& deployId, const std::string& taskId,
                                     Json::Value& resources, const std::string& executorName,
                                     const JobReplyHandler& onReply);

/// The same for a deletion, except that "data" stays and that 101203, a job list that couldn't be
/// stored, doesn't keep the call from being sent.
[[nodiscard]] Json::Value deleteEJob(const std::string& deployId, const std::string& taskId,
                                     const Json::Value& resources, const std::string& executorName,
                                     const JobReplyHandler& onReply);

/// Sends one key and value to a parser; `callback` gets its answer. Nothing calls this yet.
void deployParserJob(const std::string& key, const std::string& value, const Executor& parser,
                     const MethodResultCallback& callback);

}  // namespace jobm
