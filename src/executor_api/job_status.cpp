#include "executor_api/job_status.h"

#include <gateway/log_macros.h>

#include <exception>

#include "executor_api/method_calls.h"
#include "lib/json_helper.h"
#include "sync_job_status/sync_job_status.h"
#include "wire/codes.h"

namespace jobm {
namespace {

void passOn(const Json::Value& report) {
  const std::int64_t jobId = report["jobId"].asInt64();
  const int jobStatus = report["jobStatus"].asInt();
  const std::string executor = report["executor"].asString();
  const std::string result = report["result"].asString();
  const std::string foreignKey = report["foreignKey"].asString();
  // Every executor's report counts as one on an added job, and its status doubles as the result
  // code.
  syncJobStatus({kNoAckId, kAddJob, jobId, jobStatus, executor, foreignKey}, jobStatus, result);
}

}  // namespace

bool reportJobStatus(const std::string& payload) {
  LOGI("reportJobStatus payload =%s", payload.c_str());
  try {
    Json::Value report;
    if (!json::parse(payload, report)) {
      LOGI("reportJobStatus parse failed payload = %s\n", payload.c_str());
      return false;
    }
    passOn(report);
    return true;
  } catch (const std::exception& e) {
    LOGE("reportJobStatus json error ! e = %s", e.what());
    return false;
  }
}

void getJobStatus(std::uint64_t jobId, const std::string& foreignKey, const Executor& executor) {
  Json::Value query;
  query["jobId"] = Json::UInt64{jobId};
  query["foreignKey"] = foreignKey;
  callMethod("getJobStatus", executor, json::styled(query),
             [](int, const std::string&, const std::string&) {});
}

}  // namespace jobm
