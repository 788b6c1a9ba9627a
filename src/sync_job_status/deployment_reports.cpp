#include <gateway/log_macros.h>

#include <utility>

#include "dbus_process_call/dbus_process_call.h"
#include "lib/json_helper.h"
#include "sync_job_status/journal.h"
#include "sync_job_status/sync_job_status.h"
#include "wire/codes.h"

namespace jobm {
namespace {

constexpr Json::ArrayIndex kMaxDetails = 200;

std::string buildDeployMessage(const DeploymentReport& report, Json::Value&& details, bool isLast) {
  Json::Value message;
  if (!report.deployId.empty()) message["deployId"] = report.deployId;
  if (!report.taskId.empty()) message["taskId"] = report.taskId;
  message["isLastReply"] = isLast;
  message["deployType"] = report.deployType;
  message["details"] = std::move(details);
  return json::styled(message);
}

// The details from `first` up to `last`, for a message of their own.
Json::Value slice(const Json::Value& details, Json::ArrayIndex first, Json::ArrayIndex last) {
  Json::Value part(Json::arrayValue);
  for (Json::ArrayIndex i = first; i < last; ++i) part.append(details[i]);
  return part;
}

void stripData(Json::Value& details) {
  for (Json::Value& detail : details) {
    if (detail.isObject()) detail.removeMember("data");
  }
}

// Two messages, however many details are left for the second, and only then without "data": the
// cloud's side joins exactly two.
std::vector<std::string> buildSplit(const DeploymentReport& report, Json::Value& details) {
  stripData(details);
  const Json::ArrayIndex count = details.size();
  return {buildDeployMessage(report, slice(details, 0, kMaxDetails), false),
          buildDeployMessage(report, slice(details, kMaxDetails, count), true)};
}

std::vector<std::string> buildMessages(const DeploymentReport& report, Json::Value& details) {
  if (details.isArray() && details.size() > kMaxDetails) return buildSplit(report, details);
  std::string payload = buildDeployMessage(report, Json::Value(details), true);
  if (payload.size() > kMaxPayload) {
    // It would never be sent, and the outcome counts for more than the texts beside it.
    stripData(details);
    payload = buildDeployMessage(report, Json::Value(details), true);
  }
  return {std::move(payload)};
}

}  // namespace

void reportDeployment(const DeploymentReport& report, Json::Value& details) {
  const std::vector<std::string> messages = buildMessages(report, details);
  publishReport(report.ticket, messages);
  LOGR("resourcesReply payload = %s", messages.back().c_str());
}

void resourcesReply(const std::string& deployId, const std::string& taskId, Json::Value& details,
                    int deployType) {
  reportDeployment({kNoTicket, deployId, taskId, deployType}, details);
}

void reportDeployParseError() {
  Json::Value details(Json::arrayValue);
  details.append(Json::Value());
  resourcesReply("", "", details, kDeploy);
}

}  // namespace jobm
