#include "executor_api/deployment_results.h"

#include <gateway/log_macros.h>

#include <utility>

#include "executor_api/method_calls.h"
#include "lib/json_helper.h"
#include "sync_job_status/sync_job_status.h"

namespace jobm {

ExecutorResultCounter G_ExecutorResultCounter;

DeploymentResults::DeploymentResults(std::function<void(bool)> whenOver)
    : onOver(std::move(whenOver)) {}

DeploymentResults::~DeploymentResults() {
  if (onOver) onOver(reported);
}

void reportFinalResult(const std::string& deployId, const std::string& taskId,
                       const SharedResults& results) {
  Json::Value details(Json::arrayValue);
  const Json::Value& entries = results->entries;
  for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
    LOGI("[Final Result] Processing snapshotId: %s", entry.name().c_str());
    const Json::Value& result = *entry;
    if (!result.isObject() || !result.isMember("snapshotId")) {
      LOGI("[Final Result] Not an object.");
      continue;
    }
    LOGI("[Final Result] type: %s name: %s", json::textOf(result, "resourceType").c_str(),
         json::textOf(result, "resourceName").c_str());
    Json::Value& detail = details.append(Json::Value(Json::objectValue));
    for (const char* key : {"code", "message", "success", "snapshotId"}) detail[key] = result[key];
  }
  results->reported = true;
  resourcesReply(deployId, taskId, details, kDeploy);
  callOnWatchTypesFinish();
}

}  // namespace jobm
