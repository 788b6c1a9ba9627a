// Every record of this source carries the name of its one public function.
#define LOG_FUNCTION "handle1Job"

#include "communicate_scene/request.h"

#include <gateway/log_context.h>
#include <gateway/log_macros.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "communicate_scene/download.h"
#include "communicate_scene/queue.h"
#include "dbus_process_call/dbus_process_call.h"
#include "deployment.h"
#include "executor_api/method_calls.h"
#include "executor_api/reset.h"
#include "lib/comm_path.h"
#include "lib/file_text.h"
#include "lib/json_helper.h"
#include "parsers.h"
#include "sync_job_status/sync_job_status.h"
#include "wire/codes.h"

namespace jobm {
namespace {

void resetAll(const DeploymentReport& identity) {
  LOGI("RESET begin...");
  Json::Value reply = resetEJobs();
  LOGI("resetEJobs res = %s\n", json::styled(reply).c_str());
  reply["success"] = std::as_const(reply)["code"].asInt() == 0;
  Json::Value details(Json::arrayValue);
  details.append(std::move(reply));
  reportDeployment(identity, details);
}

void reportDownloads(Deployment& deployment) {
  reportDeployment(deployment.identity, deployment.downloaded);
}

// A refused resourceId has no directory, and its item keeps saying why.
void deleteResource(const Json::Value& resource, Json::Value& item) {
  const std::string resourceId = json::textOf(resource, "resourceId");
  const std::string directory = jobPath(kConfigManager, resourceId);
  if (directory.empty()) return;
  LOGI("ON_DELETE: snapshotId: %s resourceId: %s resourceType: %s",
       json::textOf(resource, "snapshotId").c_str(), resourceId.c_str(),
       json::textOf(resource, "resourceType").c_str());
  rmDir(directory);
  item = Json::Value(Json::objectValue);
  item["snapshotId"] = resource["snapshotId"];
  item["code"] = 0;
  item["success"] = true;
  item["message"] = "Resource has been successfully deleted.";
}

void deleteResources(Deployment& deployment) {
  const Json::Value& resources = deployment.resources;
  for (Json::ArrayIndex i = 0; i < resources.size() && i < deployment.downloaded.size(); ++i) {
    if (!hasOperate(resources[i], kOnDelete)) continue;
    const std::string snapshotId = json::textOf(resources[i], "snapshotId");
    const gateway::LogScope scope(gateway::LogSubject::kResource, snapshotId);
    deleteResource(resources[i], deployment.downloaded[i]);
  }
}

bool isFailure(const Json::Value& item) {
  const bool hasCode = item.isMember("code") && item["code"].isIntegral();
  if (hasCode && item["code"].asInt64() != 0) return true;
  return item.isMember("success") && item["success"].isBool() && !item["success"].asBool();
}

// Whether every resource was downloaded; otherwise the outcome has been reported.
bool checkDownloads(Deployment& deployment) {
  const Json::Value& items = deployment.downloaded;
  const Json::Value& resources = deployment.resources;
  if (items.size() != resources.size()) {
    LOGE(
        "Error occurred while downloading: count of item that was downloaded is not equal to "
        "resource count from cloud.");
    reportDownloads(deployment);
    return false;
  }
  for (Json::ArrayIndex i = 0; i < items.size(); ++i) {
    if (!isFailure(items[i])) continue;
    const std::string snapshotId = json::textOf(resources[i], "snapshotId");
    const gateway::LogScope scope(gateway::LogSubject::kResource, snapshotId);
    LOGE("Error occurred while downloading resource %s with name %s.",
         json::textOf(resources[i], "resourceType").c_str(),
         json::textOf(resources[i], "resourceName").c_str());
    reportDownloads(deployment);
    return false;
  }
  return true;
}

void failItem(Json::Value& item, const std::string& message) {
  item["code"] = static_cast<int>(kStoreFailed);
  item["message"] = message;
  item["success"] = false;
  item.removeMember("data");
}

// The executors of these types read the file itself.
bool staysOnDisk(const std::string& resourceType) {
  return resourceType == "function" || resourceType == "driver" || resourceType == "stream" ||
         resourceType == "rule";
}

// Writes the content of one resource under its type. False when its item now says what went wrong.
bool storeResource(const Json::Value& resource, Json::Value& item) {
  const std::string format = json::textOf(resource, "configFormat");
  if (format != "text" && format != "zip") return true;
  const std::string key = json::textOf(resource, "resourceType");
  const std::string file = json::textOf(std::as_const(item)["data"], "config");
  if (key.empty() || file.empty()) return true;
  std::string content;
  readFile(file, content);
  if (content.empty()) {
    failItem(item, "SetConfigManager_Fail_OpenDownloadedFile");
    return false;
  }
  const int result = setForeignConfig(key, content);
  if (result != 0) {
    failItem(item, "SetConfigManager_Fail_" + std::to_string(result));
    return false;
  }
  item["data"]["textConfig"] = content;
  if (!staysOnDisk(key)) std::remove(file.c_str());
  return true;
}

bool storeResources(Deployment& deployment) {
  const Json::Value& resources = deployment.resources;
  for (Json::ArrayIndex i = 0; i < resources.size(); ++i) {
    const Json::Value& resource = resources[i];
    if (!hasOperate(resource, kOnAdd)) continue;
    const std::string snapshotId = json::textOf(resource, "snapshotId");
    const gateway::LogScope scope(gateway::LogSubject::kResource, snapshotId);
    LOGI("Collecting parsers: processing resource type %s with name %s [%s]",
         json::textOf(resource, "resourceType").c_str(),
         json::textOf(resource, "resourceName").c_str(), snapshotId.c_str());
    if (storeResource(resource, deployment.downloaded[i])) continue;
    reportDownloads(deployment);
    return false;
  }
  return true;
}

void deploy(const DeploymentReport& identity, Json::Value&& resources) {
  Deployment deployment;
  deployment.identity = identity;
  showProgress(identity, "downloads");
  deployment.resources = std::move(resources);
  LOGI("Beginning download resources...");
  deployment.downloaded = downloadResources(deployment.resources);
  if (!deployment.downloaded.isArray()) {
    LOGE(
        "Error occurred while downloading: returned result from function downloadResources is not "
        "an JSON array.");
    reportDownloads(deployment);
    return;
  }
  deleteResources(deployment);
  if (!checkDownloads(deployment)) return;
  LOGI("downloadResult: \n%s", json::styled(deployment.downloaded).c_str());
  LOGI("All resources are downloaded, setting content to Config manager with key = resourceType.");
  if (!storeResources(deployment)) return;
  LOGI("All resources are written into Config manager with key = resourceType.");
  LOGI("Going to notify all parsers to process resources");
  const SharedDeployment begun = beginDeployment(std::move(deployment));
  runStep(*begun, [&] { notifyParsers(begun); });
}

// A request of any other type is not for this service, and not answered.
std::optional<int> deployTypeOf(const Json::Value& request) {
  const Json::Value& type = request["deployType"];
  if (!type.isInt() || (type.asInt() != kDeploy && type.asInt() != kReset)) return std::nullopt;
  return type.asInt();
}

// Takes the resources out of the request: there may be thousands.
void carryOut(const JobRequest& job, Json::Value&& parsed) {
  const Json::Value& request = parsed;
  DeploymentReport identity{job.ticket, request["deployId"].asString(),
                            request["taskId"].asString()};
  identity.jobId = job.jobId;
  const DeploymentLogScope scope(identity);
  LOGI("handle1Job deployId =%s taskId= %s", identity.deployId.c_str(), identity.taskId.c_str());
  const std::optional<int> deployType = deployTypeOf(request);
  if (!deployType) return;
  identity.deployType = *deployType;
  if (deployType == kReset) {
    resetAll(identity);
    return;
  }
  if (!request.isMember("resources")) {
    LOGE("deployJob has no key \"resources\", origin message is %s.", job.payload.c_str());
    return;
  }
  deploy(identity, std::move(parsed["resources"]));
}

// Nothing for a request that will not be answered, see carryOut.
std::optional<AcceptedDeployment> readAccepted(const Json::Value& request) {
  const std::optional<int> deployType = deployTypeOf(request);
  if (!deployType || (deployType == kDeploy && !request.isMember("resources"))) return std::nullopt;
  return AcceptedDeployment{request["deployId"].asString(), request["taskId"].asString(),
                            *deployType, snapshotIdsOf(request["resources"])};
}

void startRequest(JobRequest& job) {
  const std::string jobId = job.jobId != 0 ? std::to_string(job.jobId) : "";
  const gateway::LogScope scope(gateway::LogSubject::kJob, jobId);
  try {
    Json::Value request = std::move(job.parsed);
    if (request.isNull() && !json::parse(job.payload, request)) {
      LOGE("payload parse Error\n");
      return;
    }
    carryOut(job, std::move(request));
  } catch (const std::exception& e) {
    LOGE("handle1Job Exception e = %s, origin payload is: %s", e.what(), job.payload.c_str());
    reportFailure(job, e.what());
  }
  if (!isQueueHeld()) showNoDeployment();
}

}  // namespace

JobRequest acceptJob(std::string payload) {
  JobRequest job{std::move(payload)};
  try {
    if (!json::parse(job.payload, job.parsed)) return job;
    const std::optional<AcceptedDeployment> accepted = readAccepted(std::as_const(job.parsed));
    if (!accepted) return job;
    job.isAccepted = true;
    job.ticket = acceptDeployment(*accepted);
  } catch (const std::exception& e) {
    LOGI("no deployment is expected of this request: %s\n", e.what());
  }
  return job;
}

void reportFailure(const JobRequest& job, const std::string& why) {
  // What is not in the journal was not reported either: nothing throws behind that.
  if (!job.isAccepted || (job.ticket != kNoTicket && isReported(job.ticket))) return;
  Json::Value request;
  if (!json::parse(job.payload, request)) return;
  const auto accepted = readAccepted(std::as_const(request));
  if (!accepted) return;
  Json::Value details = failedDetails(accepted->deployType, accepted->snapshotIds, why);
  reportDeployment({job.ticket, accepted->deployId, accepted->taskId, accepted->deployType},
                   details);
}

void handle1Job(JobRequest&& request) {
  const std::size_t bytes = request.payload.size();
  const auto job = std::make_shared<JobRequest>(std::move(request));
  // What waits is kept as a text: what it was read into is several times as large.
  if (isQueueHeld()) job->parsed = Json::Value();
  runInTurn(bytes, [job] { startRequest(*job); });
}

void handle1Job(const std::string& payload) { handle1Job(JobRequest{payload}); }

}  // namespace jobm
