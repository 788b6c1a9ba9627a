#include "parsers.h"

#include <gateway/log_macros.h>
#include <json_helper.h>
#include "executor_api/method_calls.h"

#include <utility>
#include <vector>

#include "executors.h"
#include "sync_job_status.h"

namespace jobm {
namespace {

// One call that is to be made: a parser's name and the position of its resource.
struct Notification {
  std::string parserName;
  Json::ArrayIndex position;
};

// The codes of the summary are texts, unlike those of the download items.
Json::Value summaryEntry(const std::string& snapshotId, const char* message) {
  Json::Value entry;
  entry["snapshotId"] = snapshotId;
  entry["success"] = true;
  entry["code"] = "0";
  entry["message"] = message;
  return entry;
}

std::vector<Notification> collectNotifications(Deployment& deployment) {
  std::vector<Notification> notifications;
  const Json::Value& resources = deployment.resources;
  for (Json::ArrayIndex i = 0; i < resources.size(); ++i) {
    if (!hasOperate(resources[i], kOnAdd)) continue;
    const std::string type = json::textOf(resources[i], "resourceType");
    const std::string snapshotId = json::textOf(resources[i], "snapshotId");
    const std::set<std::string> parsers = getParsersByWatchType(type);
    LOGI("%d parsers were registered to resourceType %s", static_cast<int>(parsers.size()),
         type.c_str());
    const char* message = parsers.empty() ? "No one registered, ignored." : "";
    deployment.summary->entries[snapshotId] = summaryEntry(snapshotId, message);
    for (const std::string& parser : parsers) notifications.push_back({parser, i});
  }
  return notifications;
}

Json::Value buildRequest(const Deployment& deployment, Json::ArrayIndex position) {
  const Json::Value& resource = deployment.resources[position];
  Json::Value request;
  request["key"] = resource["resourceType"];
  request["value"] = deployment.downloaded[position]["data"]["textConfig"];
  request["snapshotId"] = resource["snapshotId"];
  return request;
}

void updateEntry(Json::Value& entry, const std::string& snapshotId, const std::string& parserName,
                 int code, const std::string& message) {
  LOGI("result: \n%s", json::styled(entry).c_str());
  if (code == 0) {
    // The last parser's word; a failure before it stays one.
    entry["message"] = "Last successfully processed by " + parserName;
    return;
  }
  LOGI("Set success of snapshotId = %s to false", snapshotId.c_str());
  entry["success"] = false;
  entry["message"] = message;
  entry["code"] = std::to_string(code);
}

// The report's details; `failed` tells whether an entry is not a success.
Json::Value collectDetails(Json::Value& summary, bool& failed) {
  Json::Value details(Json::arrayValue);
  for (auto member = summary.begin(); member != summary.end(); ++member) {
    LOGI("[Final Result] Processing snapshotId: %s", member.name().c_str());
    Json::Value& entry = *member;
    if (!entry.isObject()) {
      LOGI("[Final Result] Not an object.");
      continue;
    }
    entry["snapshotId"] = member.name();
    LOGI("[Final Result] type: %s name: %s", json::textOf(entry, "resourceType").c_str(),
         json::textOf(entry, "resourceName").c_str());
    const Json::Value& success = std::as_const(entry)["success"];
    if (!success.isBool() || !success.asBool()) failed = true;
    details.append(entry);
  }
  return details;
}

void finishParsers(const SharedDeployment& deployment) {
  Json::Value& summary = deployment->summary->entries;
  LOGI("All parsers responded, checking summary...");
  LOGI("After All parsers responded, notifyParsersResults: \n%s", json::styled(summary).c_str());
  bool failed = false;
  Json::Value details = collectDetails(summary, failed);
  if (failed) {
    LOGW("All parsers responded, some FAILED.");
    deployment->summary->reported = true;
    resourcesReply(deployment->deployId, deployment->taskId, details, kDeploy);
    return;
  }
  NotifyExecutors(deployment);
}

void handleParserReply(const SharedDeployment& deployment, const std::string& parserName,
                       const std::string& request, const std::string& snapshotId, int code,
                       const std::string& message) {
  // The count before this answer: the first one logs 0, deliberately.
  LOGI("[%d/%d] Received response from parser.", deployment->received++, deployment->expected);
  LOGI("Result from parser %s is %d, message is %s. Processed resource: %s", parserName.c_str(),
       code, message.c_str(), request.c_str());
  updateEntry(deployment->summary->entries[snapshotId], snapshotId, parserName, code, message);
  if (deployment->received == deployment->expected) finishParsers(deployment);
}

// False when the parser's record is gone; the call is then not expected.
bool notifyParser(const SharedDeployment& deployment, const Notification& notification) {
  const std::string& name = notification.parserName;
  const std::optional<Executor> parser = getParser(name);
  if (!parser) {
    LOGW("Parser %s was registered but its handler was not found.", name.c_str());
    return false;
  }
  const Json::Value request = buildRequest(*deployment, notification.position);
  const std::string snapshotId = json::textOf(request, "snapshotId");
  LOGI("Notifying parser %s to process %s", name.c_str(), snapshotId.c_str());
  const std::string text = json::styled(request);
  callMethod("deployConfig", *parser, text,
             [deployment, name, text, snapshotId](int code, const std::string& message,
                                                  const std::string& /*data*/) {
               handleParserReply(deployment, name, text, snapshotId, code, message);
             });
  return true;
}

}  // namespace

void notifyParsers(const SharedDeployment& deployment) {
  const std::vector<Notification> notifications = collectNotifications(*deployment);
  deployment->expected = static_cast<int>(notifications.size());
  LOGI("Statistics done, %d notify calling are expected.", deployment->expected);
  for (const Notification& notification : notifications) {
    // No answer comes before this loop is done, so the count may still change here.
    if (!notifyParser(deployment, notification)) --deployment->expected;
  }
  if (deployment->expected == 0) NotifyExecutors(deployment);
}

}  // namespace jobm
