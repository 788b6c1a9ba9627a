#include "deployment.h"

#include <gateway/log_macros.h>

#include <exception>
#include <utility>

#include "communicate_scene/queue.h"
#include "executor_api/method_calls.h"
#include "lib/json_helper.h"
#include "status_file/status_file.h"
#include "sync_job_status/sync_job_status.h"
#include "wire/codes.h"

namespace jobm {

ExecutorResultCounter G_ExecutorResultCounter;

namespace {

// The parsers that were asked about these resources will not answer any more.
void failAwaited(Deployment& deployment) {
  for (const auto& [snapshotId, calls] : deployment.awaited) {
    if (calls == 0) continue;
    Json::Value& entry = deployment.summary[snapshotId];
    entry["success"] = false;
    entry["code"] = std::to_string(kNoReply);
    entry["message"] = kNoReplyMessage;
  }
}

void endAbandoned(Deployment& deployment) {
  LOGW("deployment %s: %d of %d parsers answered, the others' resources have failed.",
       deployment.identity.deployId.c_str(), deployment.received, deployment.expected);
  failAwaited(deployment);
  endDeployment(deployment, collectDetails(deployment.summary, wholeDetail));
}

void endFailed(Deployment& deployment) {
  const DeploymentReport& identity = deployment.identity;
  LOGE("deployment %s has failed: %s\n", identity.deployId.c_str(), deployment.failure->c_str());
  const Json::Value snapshotIds = snapshotIdsOf(deployment.resources);
  endDeployment(deployment, failedDetails(identity.deployType, snapshotIds, *deployment.failure));
}

void endUnfinished(Deployment& deployment) {
  const DeploymentLogScope scope(deployment.identity);
  // What is not in the journal may have been reported as soon as it tried to.
  const Ticket ticket = deployment.identity.ticket;
  const bool isOpen = ticket == kNoTicket ? !deployment.ended : !isReported(ticket);
  if (deployment.failure && isOpen) return endFailed(deployment);
  if (!deployment.ended) endAbandoned(deployment);
}

// The last holder has gone. It may be a reply handler in the middle of its destruction, so no
// exception may leave; and none may keep those that wait from their turn.
void release(Deployment* last) noexcept {
  const std::unique_ptr<Deployment> deployment(last);
  try {
    endUnfinished(*deployment);
  } catch (const std::exception& e) {
    LOGE("release Exception e = %s\n", e.what());
  }
  resumeQueue();
}

}  // namespace

SharedDeployment beginDeployment(Deployment&& deployment) {
  SharedDeployment shared(std::make_unique<Deployment>(std::move(deployment)).release(), release);
  holdQueue();
  showProgress(shared->identity, "parsers");
  return shared;
}

void runStep(Deployment& deployment, const std::function<void()>& step) {
  if (deployment.failure) return;
  try {
    step();
  } catch (const std::exception& e) {
    deployment.failure = e.what();
  }
}

void showProgress(const DeploymentReport& identity, const char* phase) {
  if (!hasStatusFile()) return;
  Json::Value shown;
  shown["deployId"] = identity.deployId;
  shown["taskId"] = identity.taskId;
  shown["jobId"] = Json::Int64{identity.jobId};
  shown["phase"] = phase;
  shown["since"] = statusTime();
  setStatus("deployment", shown);
}

void showNoDeployment() { setStatus("deployment", Json::Value()); }

void endDeployment(Deployment& deployment, Json::Value&& details) {
  deployment.ended = true;
  showNoDeployment();
  reportDeployment(deployment.identity, details);
  if (deployment.phase == Phase::kExecutors) callOnWatchTypesFinish();
}

Json::Value snapshotIdsOf(const Json::Value& resources) {
  Json::Value ids(Json::arrayValue);
  if (!resources.isArray()) return ids;
  for (const Json::Value& resource : resources) {
    const std::string id = json::textOf(resource, "snapshotId");
    if (!id.empty()) ids.append(id);
  }
  return ids;
}

std::optional<Json::Value> wholeDetail(const std::string& name, const Json::Value& entry) {
  if (!entry.isObject()) return std::nullopt;
  Json::Value detail = entry;
  detail["snapshotId"] = name;
  return detail;
}

std::optional<Json::Value> finalDetail(const std::string& /*name*/, const Json::Value& entry) {
  if (!entry.isObject() || !entry.isMember("snapshotId")) return std::nullopt;
  Json::Value detail(Json::objectValue);
  for (const char* key : {"code", "message", "success", "snapshotId"}) detail[key] = entry[key];
  return detail;
}

Json::Value collectDetails(const Json::Value& summary, DetailOf detailOf) {
  Json::Value details(Json::arrayValue);
  for (auto entry = summary.begin(); entry != summary.end(); ++entry) {
    const std::string name = entry.name();
    LOGI("[Final Result] Processing snapshotId: %s", name.c_str());
    std::optional<Json::Value> detail = detailOf(name, *entry);
    if (!detail) {
      LOGI("[Final Result] Not an object.");
      continue;
    }
    LOGI("[Final Result] type: %s name: %s", json::textOf(*entry, "resourceType").c_str(),
         json::textOf(*entry, "resourceName").c_str());
    details.append(*std::move(detail));
  }
  return details;
}

}  // namespace jobm
