#include "sync_job_status/sync_job_status.h"

#include <gateway/log_macros.h>

#include <exception>

#include "dbus_process_call/dbus_process_call.h"
#include "lib/comm_path.h"
#include "lib/json_helper.h"
#include "scheduler_link/identity.h"
#include "scheduler_link/routing.h"
#include "wire/codes.h"
#include "wire/topics.h"

namespace jobm {
namespace {

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

// A handler for the scheduler's reply that logs as of the same job.
ReplyHandler ofThisJob(bool (*handler)(const Json::Value&)) {
  return [handler, context = gateway::LogContext()](const Json::Value& reply) {
    const gateway::LogContextScope scope(context);
    return handler(reply);
  };
}

}  // namespace

void syncJobStatus(const JobStatusReport& report, std::int64_t resultCode,
                   const std::string& detail) {
  Json::Value result;
  // A negative code goes out as its unsigned value, which is how the scheduler reads it back.
  result["code"] = static_cast<Json::UInt64>(resultCode);
  result["detail"] = detail;
  syncEngineStringJobStatusToMaster(report, json::styled(result));
}

void syncEngineStringJobStatusToMaster(const JobStatusReport& report, const std::string& result) {
  const auto jobId = static_cast<long long>(report.jobId);
  const std::string id = std::to_string(jobId);
  const gateway::LogScope scope(gateway::LogSubject::kJob, id);
  LOGI("jobid = %lld ackCode = %d  jobStatus =%d \n", jobId, report.ackCode, report.jobStatus);
  const bool isAdded = report.ackCode == kAddJob;
  if (isDeletion(report.ackCode) || (isAdded && report.jobStatus == kJobFailed)) {
    removeJobDirectory(report.executor, report.jobId);
  }
  if (!hasDeviceInfo()) return;
  LOGR("%s [%s] jobid = %lld jobStatus= %d result = %s ", logTag(report.jobStatus),
       report.name.c_str(), jobId, report.jobStatus, result.c_str());
  JobStatusReport reported = report;
  if (!isAdded) reported.jobStatus = kJobDone;
  if (report.ackId == kNoAckId) {
    syncStatusActive(reported, result);
  } else {
    syncStatusPassive(reported, result);
  }
}

void syncStatusPassive(const JobStatusReport& report, const std::string& result) {
  const auto jobId = static_cast<long long>(report.jobId);
  LOGI("syncStatusPassive jobId : %lld  ackId : %lld begin\n", jobId,
       static_cast<long long>(report.ackId));
  Json::Value attrs(Json::arrayValue);
  attrs.append(static_cast<Json::UInt64>(report.ackId));
  attrs.append(report.jobStatus);
  attrs.append(result);
  const std::int64_t id = fileRequest(ofThisJob(syncStatusPassiveResp));
  LOGI("syncStatusPassive id = %lld \n", static_cast<long long>(id));
  const std::string payload = schedulerRequest(id, attrs);
  publishAsync(gatewayTopic(topic::kStatusPassive), payload, 1);
  LOGI("syncStatusPassive jobId %lld end payload =%s\n", jobId, payload.c_str());
}

void syncStatusActive(const JobStatusReport& report, const std::string& result) {
  const auto jobId = static_cast<long long>(report.jobId);
  LOGI("syncStatusActive jobId : %lld begin\n", jobId);
  const std::int64_t runId = getRunId();
  if (runId == 0) {
    LOGE("runId == 0 , return \n");
    return;
  }
  Json::Value job;
  job["jobId"] = static_cast<Json::UInt64>(report.jobId);
  job["jobStatus"] = report.jobStatus;
  job["result"] = result;
  Json::Value attrs(Json::arrayValue);
  attrs.append(static_cast<Json::UInt64>(runId));
  attrs.append(report.executor);
  attrs.append(Json::Value(Json::arrayValue)).append(job);
  const std::int64_t id = fileRequest(ofThisJob(syncStatusActiveResp));
  LOGI("syncStatusActive id = %lld \n", static_cast<long long>(id));
  const std::string payload = schedulerRequest(id, attrs);
  publishAsync(gatewayTopic(topic::kStatusActive), payload, 1);
  LOGI("syncStatusActive jobId %lld end payload =%s\n", jobId, payload.c_str());
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

}  // namespace jobm
