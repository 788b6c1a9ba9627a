#include "sync_job_status/sync_job_status.h"

#include <gateway/log_macros.h>

#include <exception>

#include "dbus_process_call/dbus_process_call.h"
#include "lib/comm_path.h"
#include "lib/json_helper.h"
#include "scheduler_link/identity.h"
#include "scheduler_link/routing.h"

namespace jobm {
namespace {

constexpr int kAccepted = 200;
constexpr Json::ArrayIndex kMaxDetails = 200;
constexpr const char* kDeployTopic = "/edge/deploy/post";

const char* logTag(int jobStatus) {
  switch (jobStatus) {
    case 0:
      return "[Jobm_RESET_Result][Succeeded]";
    case 2:
    case 3:
      return "[Jobm_Deploy_Result][Succeeded]";
    case 4:
      return "[Jobm_Deploy_Result][Failed]";
    default:
      return "[Jobm_Deploy_Result][Unknown]";
  }
}

void removeJobDirectory(const std::string& executor, std::int64_t jobId) {
  const std::string path = jobPath(executor, std::to_string(jobId));
  // A label that may not become a path has no directory.
  if (path.empty()) return;
  LOGI("delete job path begin path = %s \n", path.c_str());
  rmDirRetrying(path, path);
}

// Reads both kinds of replies: the scheduler sends the word with quotation marks of its own.
bool isAccepted(const Json::Value& reply) {
  const Json::Value& answer = reply["attrs"][0U];
  return answer["code"] == Json::Value(kAccepted) &&
         answer["data"].asString() == "\"ACK_REQUEST_OK\"";
}

std::string buildDeployMessage(const std::string& deployId, const std::string& taskId,
                               Json::Value&& details, int deployType, bool isLast) {
  Json::Value message;
  if (!deployId.empty()) message["deployId"] = deployId;
  if (!taskId.empty()) message["taskId"] = taskId;
  message["isLastReply"] = isLast;
  message["deployType"] = deployType;
  message["details"] = std::move(details);
  return json::styled(message);
}

// The details from `first` up to `last`, for a message of their own.
Json::Value slice(Json::Value& details, Json::ArrayIndex first, Json::ArrayIndex last) {
  Json::Value part(Json::arrayValue);
  for (Json::ArrayIndex i = first; i < last; ++i) part.append(details[i]);
  return part;
}

void stripData(Json::Value& details) {
  for (Json::Value& detail : details) {
    if (detail.isObject()) detail.removeMember("data");
  }
}

}  // namespace

void syncJobStatus(std::int64_t ackId, int ackCode, std::int64_t jobId, int jobStatus,
                   const std::string& executor, std::int64_t resultCode, const std::string& detail,
                   int flag, const std::string& name) {
  Json::Value result;
  // A negative code goes out as its unsigned value, which is how the scheduler reads it back.
  result["code"] = static_cast<Json::UInt64>(resultCode);
  result["detail"] = detail;
  syncEngineStringJobStatusToMaster(ackId, ackCode, jobId, jobStatus, executor,
                                    json::styled(result), flag, name);
}

void syncEngineStringJobStatusToMaster(std::int64_t ackId, int ackCode, std::int64_t jobId,
                                       int jobStatus, const std::string& executor,
                                       const std::string& result, int /*flag*/,
                                       const std::string& name) {
  LOGI("jobid = %lld ackCode = %d  jobStatus =%d \n", static_cast<long long>(jobId), ackCode,
       jobStatus);
  if (isDeletion(ackCode) || (ackCode == kAddJob && jobStatus == kJobFailed)) {
    removeJobDirectory(executor, jobId);
  }
  if (!hasDeviceInfo()) return;
  LOGR("%s [%s] jobid = %lld jobStatus= %d result = %s ", logTag(jobStatus), name.c_str(),
       static_cast<long long>(jobId), jobStatus, result.c_str());
  const int reportedStatus = ackCode == kAddJob ? jobStatus : 0;
  if (ackId == kNoAckId) {
    syncStatusActive(jobId, reportedStatus, executor, result);
  } else {
    syncStatusPassive(jobId, ackId, reportedStatus, result);
  }
}

void syncStatusPassive(std::int64_t jobId, std::int64_t ackId, int jobStatus,
                       const std::string& result) {
  LOGI("syncStatusPassive jobId : %lld  ackId : %lld begin\n", static_cast<long long>(jobId),
       static_cast<long long>(ackId));
  Json::Value attrs(Json::arrayValue);
  attrs.append(static_cast<Json::UInt64>(ackId));
  attrs.append(jobStatus);
  attrs.append(result);
  const std::int64_t id = fileRequest(syncStatusPassiveResp);
  LOGI("syncStatusPassive id = %lld \n", static_cast<long long>(id));
  const std::string payload = schedulerRequest(id, attrs);
  publishAsync(gatewayTopic("/scheduler/publish/syncStatusPassive"), payload, 1);
  LOGI("syncStatusPassive jobId %lld end payload =%s\n", static_cast<long long>(jobId),
       payload.c_str());
}

void syncStatusActive(std::int64_t jobId, int jobStatus, const std::string& executor,
                      const std::string& result) {
  LOGI("syncStatusActive jobId : %lld begin\n", static_cast<long long>(jobId));
  const std::int64_t runId = getRunId();
  if (runId == 0) {
    LOGE("runId == 0 , return \n");
    return;
  }
  Json::Value job;
  job["jobId"] = static_cast<Json::UInt64>(jobId);
  job["jobStatus"] = jobStatus;
  job["result"] = result;
  Json::Value attrs(Json::arrayValue);
  attrs.append(static_cast<Json::UInt64>(runId));
  attrs.append(executor);
  attrs.append(Json::Value(Json::arrayValue)).append(job);
  const std::int64_t id = fileRequest(syncStatusActiveResp);
  LOGI("syncStatusActive id = %lld \n", static_cast<long long>(id));
  const std::string payload = schedulerRequest(id, attrs);
  publishAsync(gatewayTopic("/scheduler/publish/syncStatusActive"), payload, 1);
  LOGI("syncStatusActive jobId %lld end payload =%s\n", static_cast<long long>(jobId),
       payload.c_str());
}

bool syncStatusPassiveResp(const Json::Value& reply) {
  try {
    LOGI(" res = %s\n", json::styled(reply).c_str());
    const bool accepted = isAccepted(reply);
    LOGI("syncStatusPassive end\n");
    return accepted;
  } catch (const std::exception& e) {
    LOGE("syncStatusPassiveResp Exception e = %s\n", e.what());
    return false;
  }
}

bool syncStatusActiveResp(const Json::Value& reply) {
  try {
    LOGI(" res = %s\n", json::styled(reply).c_str());
    return isAccepted(reply);
  } catch (const std::exception& e) {
    LOGE("syncStatusActiveResp Exception e = %s\n", e.what());
    return false;
  }
}

void resourcesReply(const std::string& deployId, const std::string& taskId, Json::Value& details,
                    int deployType) {
  const std::string topic = gatewayTopic(kDeployTopic);
  const Json::ArrayIndex count = details.isArray() ? details.size() : 0;
  std::string payload;
  if (count > kMaxDetails) {
    // Two messages, however many are left for the second, and only then without "data": the cloud
    // side joins exactly two.
    stripData(details);
    payload =
        buildDeployMessage(deployId, taskId, slice(details, 0, kMaxDetails), deployType, false);
    publishAsync(topic, payload, 1);
    payload =
        buildDeployMessage(deployId, taskId, slice(details, kMaxDetails, count), deployType, true);
  } else {
    payload = buildDeployMessage(deployId, taskId, Json::Value(details), deployType, true);
    if (payload.size() > kMaxPayload) {
      // It would never be sent, and the outcome counts for more than the texts beside it.
      stripData(details);
      payload = buildDeployMessage(deployId, taskId, Json::Value(details), deployType, true);
    }
  }
  publishAsync(topic, payload, 1);
  LOGR("resourcesReply payload = %s", payload.c_str());
}

void reportDeployParseError() {
  Json::Value details(Json::arrayValue);
  details.append(Json::Value());
  resourcesReply("", "", details, kDeploy);
}

}  // namespace jobm
