#include "parser_replies.h"

#include <gateway/log_macros.h>

#include <utility>

#include "executors.h"
#include "lib/json_helper.h"
#include "sync_job_status/sync_job_status.h"

namespace jobm {
namespace {

void updateEntry(Json::Value& entry, const ParserCall& call, int code, const std::string& message) {
  LOGI("result: \n%s", json::styled(entry).c_str());
  if (code == 0) {
    // The last parser's word; a failure before it stays one.
    entry["message"] = "Last successfully processed by " + call.parserName;
    return;
  }
  LOGI("Set success of snapshotId = %s to false", call.snapshotId.c_str());
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

}  // namespace

void handleParserReply(const ParserCall& call, int code, const std::string& message) {
  const SharedDeployment& deployment = call.deployment;
  const int before = deployment->received++;
  // The count before this answer: the first one logs 0, deliberately.
  LOGI("[%d/%d] Received response from parser.", before, deployment->expected);
  LOGI("Result from parser %s is %d, message is %s. Processed resource: %s",
       call.parserName.c_str(), code, message.c_str(), call.request.c_str());
  updateEntry(deployment->summary->entries[call.snapshotId], call, code, message);
  if (deployment->received == deployment->expected) finishParsers(deployment);
}

}  // namespace jobm
