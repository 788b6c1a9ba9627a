// Every record of this source carries the name of the request's one public function.
#define LOG_FUNCTION "handle1Job"

#include "parsers.h"

#include <gateway/log_context.h>
#include <gateway/log_macros.h>

#include <vector>

#include "executor_api/method_calls.h"
#include "executors.h"
#include "lib/json_helper.h"
#include "parser_replies.h"
#include "wire/codes.h"

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
    deployment.summary[snapshotId] = summaryEntry(snapshotId, message);
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

// False when the parser's record is gone; the call is then not expected.
bool notifyParser(const SharedDeployment& deployment, const Notification& notification) {
  const std::string& name = notification.parserName;
  const std::string snapshotId =
      json::textOf(deployment->resources[notification.position], "snapshotId");
  const gateway::LogScope scope(gateway::LogSubject::kResource, snapshotId);
  const std::optional<Executor> parser = getParser(name);
  if (!parser) {
    LOGW("Parser %s was registered but its handler was not found.", name.c_str());
    return false;
  }
  const Json::Value request = buildRequest(*deployment, notification.position);
  LOGI("Notifying parser %s to process %s", name.c_str(), snapshotId.c_str());
  ++deployment->awaited[snapshotId];
  const std::string text = json::styled(request);
  callMethod("deployConfig", *parser, text,
             [call = ParserCall{deployment, name, text, snapshotId}](
                 int code, const std::string& message, const std::string& /*data*/) {
               handleParserReply(call, code, message);
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
