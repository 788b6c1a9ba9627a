#include <gateway/log_macros.h>

#include <algorithm>
#include <utility>

#include "dbus_process_call/dbus_process_call.h"
#include "lib/json_helper.h"
#include "status_file/status_file.h"
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

void stripToOutcome(Json::Value& details) {
  for (Json::Value& detail : details) {
    Json::Value outcome;
    for (const char* key : {"snapshotId", "success", "code"}) {
      if (detail.isObject() && detail.isMember(key)) outcome[key] = detail[key];
    }
    detail = std::move(outcome);
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

std::vector<std::string> build(const DeploymentReport& report, Json::Value& details) {
  if (details.isArray() && details.size() > kMaxDetails) return buildSplit(report, details);
  return {buildDeployMessage(report, Json::Value(details), true)};
}

bool areSendable(const std::vector<std::string>& messages) {
  return std::all_of(messages.begin(), messages.end(),
                     [](const std::string& message) { return message.size() <= kMaxPayload; });
}

// What is too long would never be sent, and the outcome counts for more than the texts beside it.
std::vector<std::string> buildMessages(const DeploymentReport& report, Json::Value& details) {
  std::vector<std::string> messages = build(report, details);
  for (const auto shorten : {stripData, stripToOutcome}) {
    if (areSendable(messages)) break;
    shorten(details);
    messages = build(report, details);
  }
  return messages;
}

bool isFailed(const Json::Value& detail) {
  return !detail.isObject() || detail["success"] != Json::Value(true);
}

// What a parser answers may be as long as a message of the bus.
Json::Value shortened(const Json::Value& value) {
  constexpr std::size_t kBytes = 500;
  if (!value.isString()) return value;
  std::string text = value.asString();
  if (text.size() <= kBytes) return value;
  std::size_t end = kBytes;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80) --end;
  return text.substr(0, end) + "...";
}

Json::Value errorOf(const Json::Value& detail) {
  Json::Value error(Json::objectValue);
  if (!detail.isObject()) return error;
  error["snapshotId"] = detail["snapshotId"];
  error["code"] = detail["code"];
  error["message"] = shortened(detail[detail.isMember("message") ? "message" : "detail"]);
  return error;
}

// For those who look on: how the deployment ended, in short.
void showOutcome(const DeploymentReport& report, const Json::Value& details) {
  if (!hasStatusFile() || !details.isArray()) return;
  Json::Value outcome;
  outcome["deployId"] = report.deployId;
  outcome["taskId"] = report.taskId;
  outcome["jobId"] = Json::Int64{report.jobId};
  outcome["deployType"] = report.deployType;
  Json::Int64 failed = 0;
  for (const Json::Value& detail : details) {
    if (!isFailed(detail)) continue;
    if (failed++ == 0) outcome["firstError"] = errorOf(detail);
  }
  outcome["succeeded"] = Json::Int64{details.size()} - failed;
  outcome["failed"] = failed;
  addStatusOutcome(std::move(outcome));
}

}  // namespace

void reportDeployment(const DeploymentReport& report, Json::Value& details) {
  showOutcome(report, details);
  const std::vector<std::string> messages = buildMessages(report, details);
  publishReport(report.ticket, messages);
  LOGR("resourcesReply payload = %s", messages.back().c_str());
}

Json::Value failedDetails(int deployType, const Json::Value& snapshotIds, const std::string& why) {
  Json::Value details(Json::arrayValue);
  Json::Value failed;
  failed["code"] = static_cast<int>(kChecksumFail);
  failed["success"] = false;
  if (deployType == kReset) {
    failed["detail"] = why;
    details.append(failed);
    return details;
  }
  failed["message"] = why;
  for (const Json::Value& snapshotId : snapshotIds) {
    failed["snapshotId"] = snapshotId;
    details.append(failed);
  }
  return details;
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
