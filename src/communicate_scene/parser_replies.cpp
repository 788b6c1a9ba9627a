#include "parser_replies.h"

#include <gateway/log_context.h>
#include <gateway/log_macros.h>

#include <algorithm>
#include <utility>

#include "executors.h"
#include "lib/json_helper.h"

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

bool isFailed(const Json::Value& detail) {
  const Json::Value& success = detail["success"];
  return !success.isBool() || !success.asBool();
}

void finishParsers(const SharedDeployment& deployment) {
  LOGI("All parsers responded, checking summary...");
  LOGI("After All parsers responded, notifyParsersResults: \n%s",
       json::styled(deployment->summary).c_str());
  Json::Value details = collectDetails(deployment->summary, wholeDetail);
  if (std::none_of(details.begin(), details.end(), isFailed)) {
    NotifyExecutors(deployment);
    return;
  }
  LOGW("All parsers responded, some FAILED.");
  endDeployment(*deployment, std::move(details));
}

void recordReply(const ParserCall& call, int code, const std::string& message) {
  const SharedDeployment& deployment = call.deployment;
  const int before = deployment->received++;
  // The count before this answer, see "Log lines in another's name" in docs/architecture.md.
  LOGI("[%d/%d] Received response from parser.", before, deployment->expected);
  LOGI("Result from parser %s is %d, message is %s. Processed resource: %s",
       call.parserName.c_str(), code, message.c_str(), call.request.c_str());
  --deployment->awaited[call.snapshotId];
  updateEntry(deployment->summary[call.snapshotId], call, code, message);
  if (deployment->received != deployment->expected) return;
  const gateway::LogScope ofAll(gateway::LogSubject::kResource, nullptr);
  finishParsers(deployment);
}

}  // namespace

void handleParserReply(const ParserCall& call, int code, const std::string& message) {
  runStep(*call.deployment, [&] { recordReply(call, code, message); });
}

}  // namespace jobm
