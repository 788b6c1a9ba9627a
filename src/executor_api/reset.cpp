#include "executor_api/reset.h"

#include <gateway/log_macros.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "executor_api/method_calls.h"
#include "executor_api/registry.h"
#include "executor_api/stored_jobs.h"
#include "lib/comm_path.h"
#include "lib/json_helper.h"
#include "sync_job_status/sync_job_status.h"
#include "wire/codes.h"

namespace jobm {
namespace {

using Message = std::shared_ptr<quillon::DMessage>;

// The executors that take part in a reset on a standard gateway: the three built-in ones. Fixed,
// see "Answers to a reset" in docs/architecture.md.
constexpr std::int32_t kResetReplies = 3;
constexpr int kOutcomeFailed = 4;

// Spans resets: what is missing from one is made up by replies of the next. Listening thread only.
struct ResetState {
  std::int32_t cnt = 0;
  std::uint32_t successCnt = 0;
  std::string lastError;
};
ResetState resetState;

Json::Value outcome(int code, const std::string& detail) {
  Json::Value result;
  result["code"] = code;
  result["detail"] = detail;
  return result;
}

void logException(const char* what) { LOGE("publish json error ! e = %s", what); }

// Failure texts of the bus are not classified as elsewhere, see "Answers to a reset": the text
// itself is the message.
ExecutorReply readResetReply(const std::string& text) {
  std::optional<ExecutorReply> reply = readAnswer(text, logException);
  if (!reply) {
    LOGE("resetEJobs parse failed res = %s\n", text.c_str());
    reply = ExecutorReply{kNoReply, text, {}};
  }
  if (reply->code != 0) LOGE("resetEJobs error res = %s\n", text.c_str());
  return *std::move(reply);
}

void removeExecutorDirectory(const std::string& executorName) {
  const std::string path = kindPath(executorName);
  // Without a name the path is that of everybody's files.
  if (path.empty() || executorName.empty()) return;
  rmDirRetrying(path, path);
}

void finishReset() {
  const bool success = resetState.successCnt == kResetReplies;
  const Json::Value result =
      success ? outcome(0, "reset success") : outcome(kResetIncomplete, resetState.lastError);
  LOGI("resetEJobs actual result : %s code : %d\n", json::styled(result).c_str(),
       success ? 0 : kOutcomeFailed);
  resetState = {};
}

void handleResetReply(const std::string& executorName, const Message& message) {
  LOGI("resetEJobs %s responced.\n", executorName.c_str());
  LOGI("successCnt = %d cnt =%d \n", static_cast<int>(resetState.successCnt), resetState.cnt);
  if (!message) {
    // Unlike a deployment's replies, a missing one isn't counted.
    LOGW("resetEJobs sendMessageWithReply reply NULL\n");
    return;
  }
  ++resetState.cnt;
  const std::string text = message->readString();
  LOGI("resetEJobs sendMessageWithReply res = %s\n", text.c_str());
  const ExecutorReply reply = readResetReply(text);
  if (reply.code == 0) {
    ++resetState.successCnt;
    removeExecutorDirectory(executorName);
  } else {
    LOGE("executor resetJobs fail res = %s\n", reply.message.c_str());
    resetState.lastError = reply.message;
  }
  LOGI("successCnt = %d cnt=%d\n", static_cast<int>(resetState.successCnt), resetState.cnt);
  if (resetState.cnt == kResetReplies) finishReset();
}

void callReset(const Executor& executor, const std::string& executorName) {
  sendMessageWithReply(
      executor.proxy, executor.proxy->makeMethodCall("resetJobs"),
      [executorName](const Message& reply, void*) { handleResetReply(executorName, reply); },
      nullptr);
}

}  // namespace

Json::Value resetEJobs() {
  LOGI("resetJob begin\n");
  for (const Executor& executor : allExecutors()) {
    if (executor.storeType.empty()) continue;
    const std::string& name = executor.executorName;
    LOGI("resetJob executor =%s\n", name.c_str());
    if (updateStoredJobs(name, Json::Value(), kResetJobs) != 0) {
      LOGE("resetEJobs updateStoredJobs fail");
      resetLocalAllJobs();
      return outcome(kStoreFailed, "reset fail");
    }
    callReset(executor, name);
  }
  resetLocalAllJobs();
  return outcome(0, "reset success");
}

void resetLocalAllJobs() { rmDirRetrying(kDownloadRoot, std::string(kDownloadRoot) + "/*"); }

}  // namespace jobm
