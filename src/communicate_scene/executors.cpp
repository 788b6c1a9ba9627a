#include "executors.h"

#include <gateway/log_macros.h>

#include <map>
#include <utility>

#include "executor_api/job_calls.h"
#include "executor_api/registry.h"
#include "lib/json_helper.h"
#include "wire/codes.h"

namespace jobm {
namespace {

// Executor name to its resources.
using ResourceGroups = std::map<std::string, Json::Value>;

void addTo(ResourceGroups& groups, const std::string& executor, const Json::Value& resource) {
  Json::Value& group = groups[executor];
  if (group.isNull()) group = Json::Value(Json::arrayValue);
  group.append(resource);
}

void groupResources(const Json::Value& resources, ResourceGroups& added, ResourceGroups& deleted) {
  LOGI("Grouping resources, prepare to notify executors...");
  for (const Json::Value& resource : resources) {
    const std::string type = json::textOf(resource, "resourceType");
    const std::set<std::string> executors = getExecutorsByWatchType(type);
    LOGI("Processing resourceType=%s, subscribed by %d executors.", type.c_str(),
         static_cast<int>(executors.size()));
    const bool isAdded = hasOperate(resource, kOnAdd);
    for (const std::string& executor : executors) {
      LOGI("  found executor, name: %s", executor.c_str());
      LOGI(isAdded ? "  add job." : "  remove job.");
      addTo(isAdded ? added : deleted, executor, resource);
    }
  }
}

// Counted first, whatever the reply holds: a deployment always comes to its end.
void countReply() {
  ++G_ExecutorResultCounter.done;
  LOGI("G_ExecutorResultCounter(%d/%d)", static_cast<int>(G_ExecutorResultCounter.done),
       static_cast<int>(G_ExecutorResultCounter.total));
}

void endWhenAllAnswered(Deployment& deployment) {
  if (G_ExecutorResultCounter.done != G_ExecutorResultCounter.total) return;
  endDeployment(deployment, collectDetails(deployment.summary, finalDetail));
}

JobReplyHandler replyHandler(const SharedDeployment& deployment) {
  return [deployment](const RecordReply& record) {
    runStep(*deployment, [&] {
      countReply();
      record(deployment->summary);
      endWhenAllAnswered(*deployment);
    });
  };
}

// A call that was never sent brings no answer: its resources have failed already, and it isn't
// waited for.
void recordUnsent(Deployment& deployment, const Json::Value& resources, const Json::Value& result) {
  --G_ExecutorResultCounter.total;
  for (const Json::Value& resource : resources) {
    const std::string snapshotId = json::textOf(resource, "snapshotId");
    Json::Value entry;
    entry["snapshotId"] = snapshotId;
    entry["success"] = false;
    entry["code"] = std::to_string(result["code"].asInt());
    entry["message"] = result["message"];
    deployment.summary[snapshotId] = std::move(entry);
  }
}

void deployGroup(const SharedDeployment& deployment, const std::string& executor,
                 Json::Value& resources) {
  LOGI("handleEngineResourcesByExecutor executor :%s, job count: %d", executor.c_str(),
       static_cast<int>(resources.size()));
  LOGI("   addResources =%s", json::styled(resources).c_str());
  const Json::Value result = deployEJob(deployment->identity.deployId, deployment->identity.taskId,
                                        resources, executor, replyHandler(deployment));
  if (result["code"].asInt() != 0) recordUnsent(*deployment, resources, result);
}

void deleteGroup(const SharedDeployment& deployment, const std::string& executor,
                 const Json::Value& resources) {
  LOGI("handleEngineResourcesByExecutor executor :%s delResources =%s", executor.c_str(),
       json::styled(resources).c_str());
  const Json::Value result = deleteEJob(deployment->identity.deployId, deployment->identity.taskId,
                                        resources, executor, replyHandler(deployment));
  const int code = result["code"].asInt();
  // A deletion whose job list couldn't be stored is sent all the same.
  if (code != 0 && code != kStoreFailed) recordUnsent(*deployment, resources, result);
}

}  // namespace

void NotifyExecutors(const SharedDeployment& deployment) {
  deployment->phase = Phase::kExecutors;
  showProgress(deployment->identity, "executors");
  ResourceGroups added;
  ResourceGroups deleted;
  groupResources(deployment->resources, added, deleted);
  LOGI("All jobs are collected, preparing to notify executors");
  LOGI("All jobs are collected, addResources = %d ; delResources = %d",
       static_cast<int>(added.size()), static_cast<int>(deleted.size()));
  ExecutorResultCounter& counter = G_ExecutorResultCounter;
  counter = {0, static_cast<std::uint32_t>(added.size() + deleted.size())};
  for (auto& [executor, resources] : added) deployGroup(deployment, executor, resources);
  for (const auto& [executor, resources] : deleted) deleteGroup(deployment, executor, resources);
  LOGI("wait G_ExecutorResultCounter(%d/%d)", static_cast<int>(counter.done),
       static_cast<int>(counter.total));
  // Nobody to wait for: no executor was called.
  endWhenAllAnswered(*deployment);
}

}  // namespace jobm
