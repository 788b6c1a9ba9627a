#include "registration.h"

#include <gateway/log_macros.h>

#include "common/trace.h"
#include "lib/json_helper.h"

namespace gateway {
namespace {

constexpr const char* kManager = "iot.job.manager";
constexpr const char* kManagerPath = "/iot/job/manager";
constexpr int kDeployed = 3;

Json::Value listOf(const std::vector<std::string>& texts) {
  Json::Value list(Json::arrayValue);
  for (const std::string& text : texts) list.append(text);
  return list;
}

}  // namespace

Registration::Registration(const ExecutorSettings& given)
    : settings(given), jobManager(kManager, kManagerPath, kManager) {}

void Registration::announce() {
  Json::Value payload(Json::objectValue);
  payload["executorName"] = settings.executorName;
  payload["linkType"] = 0;
  payload["executorAddr"]["name"] = settings.busName;
  payload["executorAddr"]["interface"] = settings.busName;
  payload["executorAddr"]["path"] = settings.path;
  payload["storeType"] = listOf(settings.storeType);
  payload["watchType"] = listOf(settings.watchType);
  for (const std::string& method : settings.registerAs) call(method, jobm::json::compact(payload));
}

void Registration::reportStatus(int jobId, const std::string& resourceId) {
  Json::Value payload(Json::objectValue);
  payload["jobId"] = jobId;
  payload["jobStatus"] = kDeployed;
  payload["executor"] = settings.executorName;
  payload["result"] = "deployed";
  payload["foreignKey"] = resourceId;
  call("syncJobStatus", jobm::json::compact(payload));
}

void Registration::call(const std::string& method, const std::string& payload) {
  const auto message = jobManager.makeMethodCall(method.c_str());
  if (!message) return;
  message->writeString(payload);
  const std::string me = settings.executorName;
  const auto answered = [me, method](const std::shared_ptr<quillon::DMessage>& reply, void*) {
    if (!reply || !reply->getErrorName().empty()) {
      trace(me, "task-dispatcher", method + ": no job manager yet");
      return;
    }
    const std::string text = reply->readString();
    Json::Value answer;
    const bool good = jobm::json::parse(text, answer) && answer.isObject() &&
                      answer["code"].isInt() && answer["code"].asInt() == 0;
    trace("task-dispatcher", me, method + (good ? " succeeded" : " failed: " + text));
  };
  if (!jobManager.sendMessageWithReply(message, answered, nullptr))
    LOGW("%s not sent", method.c_str());
}

}  // namespace gateway
