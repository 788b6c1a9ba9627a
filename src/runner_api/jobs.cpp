#include "runner_api/jobs.h"

#include <gateway/log_context.h>
#include <gateway/log_macros.h>

#include <exception>
#include <utility>

#include "communicate_scene/queue.h"
#include "communicate_scene/request.h"
#include "dbus_process_call/dbus_process_call.h"
#include "executor_api/reset.h"
#include "lib/comm_path.h"
#include "lib/file_text.h"
#include "lib/json_helper.h"
#include "scheduler_link/identity.h"
#include "sync_job_status/journal.h"
#include "sync_job_status/sync_job_status.h"
#include "util/http_download_kiv.h"
#include "wire/codes.h"
#include "wire/store_keys.h"

namespace jobm {
namespace {

struct JobOrder {
  std::int64_t ackId;
  int ackCode;
  std::int64_t jobId;
};

void reportStatus(const JobOrder& order, int status, const char* detail, const std::string& name) {
  syncJobStatus({order.ackId, order.ackCode, order.jobId, status, kConfigManager, name}, 0, detail);
}

void reportSuccess(const JobOrder& order, int status, const std::string& name) {
  reportStatus(order, status, "job deploy success", name);
}

// Refuses a job when what waits, for its turn or to be reported, is as much as may; before anything
// of it counts as accepted.
bool refuseWithoutRoom(const JobOrder& order, std::size_t bytes, const std::string& name) {
  if (hasRoomFor(bytes) && !isJournalFull()) return false;
  LOGW("job %lld is refused: too many deployments waiting\n", static_cast<long long>(order.jobId));
  reportStatus(order, kJobFailed, "too many deployments waiting", name);
  return true;
}

void addJob(const JobOrder& order, const std::string& jobDirectory, const Json::Value& content) {
  LOGI("ADD_JOB begin... \n");
  setLastJobId(order.jobId);
  const std::string source = content["content"].asString();
  const std::string storage = content["type"].asString();
  const std::string name = content["name"].asString();
  static_cast<void>(content["context"].asString());  // read for its type only
  if (refuseWithoutRoom(order, 0, name)) return;
  const std::string indexPath = jobDirectory + "/" + "index";
  if (downloadJob(source, storage, indexPath, true) != 0) {
    reportStatus(order, kJobFailed, "Download job package fail", name);
    return;
  }
  std::string text;
  readFile(indexPath, text);
  if (refuseWithoutRoom(order, text.size(), name)) return;
  JobRequest request = acceptJob(text);
  request.jobId = order.jobId;
  try {
    // Before anything is stored or deployed: the deployment reports its own results.
    reportSuccess(order, kJobDeployed, name);
    setConfig(key::kJobContent, text);
    setConfig(key::kJobId, std::to_string(order.jobId));
  } catch (const std::exception& e) {
    reportFailure(request, e.what());
    throw;
  }
  handle1Job(std::move(request));
  rmDir(jobDirectory);
}

// The status report removes the directory of the label it is given. One that was made for a job of
// another executor stays, see "Deleting a job" in docs/architecture.md.
void deleteJob(const JobOrder& order) {
  LOGI("DELETE_JOB begin... \n");
  reportSuccess(order, kJobDone, "");
}

// Takes its turn like a deployment: what came before it is over by then, and goes with the rest.
void resetJobs(const JobOrder& order) {
  runInTurn(0, [order] {
    const std::string id = std::to_string(order.jobId);
    const gateway::LogScope scope(gateway::LogSubject::kJob, id);
    reportSuccess(order, kJobDone, "");
    static_cast<void>(resetEJobs());
  });
}

void handleListedJob(const Json::Value& job, unsigned index) {
  const int ackCode = job["ackCode"].asInt();
  const std::int64_t jobId = job["jobId"].asInt64();
  const std::string executor = job["executor"].asString();
  const std::string ackContent = job["ackContent"].isNull() ? "" : job["ackContent"].asString();
  LOGI("index %d handleHeartbeatResp job payload = %s", static_cast<int>(index),
       json::styled(job).c_str());
  const std::int64_t ackId = job["id"].asInt64();
  handleJob(ackId, ackCode, jobId, executor, ackContent);
}

}  // namespace

bool handleHeartbeatResp(const Json::Value& reply) {
  publishAgain();  // this reply has come all the way
  try {
    const Json::Value& answer = reply["attrs"][0U];
    if (answer["code"].asInt() != kJobList) return false;
    const Json::Value& data = answer["data"];
    if (data.isNull()) {
      LOGE("handleHeartbeatResp data is null\n");
      return false;
    }
    for (Json::ArrayIndex i = 0; i < data.size(); ++i) handleListedJob(data[i], i);
    return true;
  } catch (const std::exception& e) {
    LOGE("handleHeartbeatResp Exception e =  %s\n", e.what());
    return false;
  }
}

void handleJob(std::int64_t ackId, int ackCode, std::int64_t jobId, const std::string& executor,
               const std::string& ackContent) {
  LOGI("handleJob begin ackCode=%d jobId = %lld ackId = %lld executor =%s\n", ackCode,
       static_cast<long long>(jobId), static_cast<long long>(ackId), executor.c_str());
  const JobOrder order{ackId, ackCode, jobId};
  const std::string id = std::to_string(jobId);
  const gateway::LogScope scope(gateway::LogSubject::kJob, id);
  try {
    Json::Value content;
    // Before the code is looked at: an order without JSON content is never carried out, see "Orders
    // without JSON" in docs/architecture.md.
    if (!json::parse(ackContent, content)) {
      LOGE("handleJob parse Error, Error content = %s\n", ackContent.c_str());
      reportDeployParseError();
      return;
    }
    if (ackCode == kResetJobs) {
      resetJobs(order);
      return;
    }
    const std::string jobDirectory = generateDir(executor, std::to_string(jobId));
    if (jobDirectory.empty()) {
      LOGE("获取或者创建任务路径为空");
      reportDeployParseError();
      return;
    }
    if (isDeletion(ackCode)) {
      deleteJob(order);
    } else if (ackCode == kAddJob) {
      addJob(order, jobDirectory, content);
    }
  } catch (const std::exception& e) {
    LOGE("handleJob Exception e = %s\n", e.what());
  }
}

}  // namespace jobm
