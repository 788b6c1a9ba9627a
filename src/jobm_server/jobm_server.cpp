#include "jobm_server/jobm_server.h"

#include <curl/curl.h>
#include <gateway/log_macros.h>
#include <unistd.h>

#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "dbus_process_call/dbus_process_call.h"
#include "dbus_process_call/proxies.h"
#include "engine_api/bus_control.h"
#include "executor_api/job_status.h"
#include "executor_api/registry.h"
#include "lib/json_helper.h"
#include "scheduler_link/identity.h"
#include "scheduler_link/routing.h"
#include "status_file/status_file.h"
#include "util/http_download_kiv.h"
#include "wire/bus_names.h"
#include "wire/codes.h"
#include "wire/topics.h"

namespace jobm {
namespace {

using Message = std::shared_ptr<quillon::DMessage>;

std::string serviceReply(int code, const std::string& message) {
  Json::Value reply;
  reply["code"] = code;
  reply["message"] = message;
  reply["data"] = Json::Value();
  return json::styled(reply);
}

std::string syncJobStatusCalled(const std::string& payload) {
  return reportJobStatus(payload) ? serviceReply(0, "syncJobStatus success")
                                  : serviceReply(kParamsError, "syncJobStatus fail, params error");
}

std::string registrationReply(const std::string& error, const char* success) {
  return error.empty() ? serviceReply(0, success) : serviceReply(kParamsError, error);
}

// Tells executors how packages are encrypted. They look the key up as "securied".
std::string selfDescription() {
  Json::Value reply;
  reply["code"] = 0;
  reply["message"] = "success";
  Json::Value& secured = reply["data"]["ability"]["securied"];
  secured["algorithm"] = "aes-256-cbc";
  secured["padding"] = "zero";
  return json::styled(reply);
}

// The reply to one of the methods that take a JSON text; none for any other member.
std::optional<std::string> callJsonMethod(std::string_view member, const Message& request) {
  if (member == "syncJobStatus") return syncJobStatusCalled(request->readString());
  if (member == "registerExecutor") {
    return registrationReply(registerExecutor(request->readString()), "registerExecutor success");
  }
  if (member == "registerParser") {
    return registrationReply(registerParser(request->readString()), "registerParser success");
  }
  return std::nullopt;
}

// The reply to a method call; none for a member that is not a method of this service.
std::optional<std::string> answer(const char* member, const Message& request) {
  if (std::string_view(member) == "getSelfDescribing") return selfDescription();
  std::optional<std::string> reply = callJsonMethod(member, request);
  if (reply) LOGI("onMethodCall %s res =%s\n", member, reply->c_str());
  return reply;
}

void republishJobLog(const Message& signal) {
  const std::string payload = signal->readString();
  Json::Value parsed;
  if (!json::parse(payload, parsed)) {
    LOGE("payload parse Error ! payload = %s\n", payload.c_str());
    return;
  }
  try {
    const std::string result = std::as_const(parsed)["result"].asString();
    publishAsync(gatewayTopic(topic::kPostLog), result, 1);
  } catch (const std::exception& e) {
    LOGE("jobstatus_event Exception e = %s\n", e.what());
  }
}

// The watchdog ends the process; until then it lives on without proxies and log, see "After
// Terminate" in docs/architecture.md.
void releaseEverything() {
  LOGE("receive WatchDog Terminate signal.");
  setStatusWord("phase", "terminated");
  dropProxies();
  releaseConnections();
  curl_global_cleanup();
  log_destroy();
}

void superviseEngine(const Message& signal) {
  const std::string name = signal->readString();
  if (name != bus::kScriptEngine.name) return;
  LOGI("NameOwnerChanged called name = %s\n", name.c_str());
  const std::string oldOwner = signal->readString();
  const std::string newOwner = signal->readString();
  LOGE("old_owner= %s  new_owner = %s \n", oldOwner.c_str(), newOwner.c_str());
  if (!newOwner.empty()) return;
  LOGE("%s offline...\n", bus::kScriptEngine.name);
  handleEngineDead(name);
}

void work(const char* member, const Message& signal) {
  if (member == nullptr) return;
  const std::string_view name = member;
  if (name == "subscribe_event") {
    const std::string topic = signal->readString();
    const std::string payload = signal->readString();
    dispatchMasterResponse(topic, payload);
  } else if (name == "jobstatus_event") {
    republishJobLog(signal);
  } else if (name == "Terminate") {
    releaseEverything();
  } else if (name == "cloudConnectivityEvent") {
    netChanged(signal->readString());
  } else if (name == "NameOwnerChanged") {
    superviseEngine(signal);
  }
}

}  // namespace

bool JobManagerServer::onMethodCall(const char* member, const Message& request,
                                    const Message& reply) {
  try {
    LOGI("onMethodCall %s called.\n", member);
    const std::optional<std::string> text = answer(member, request);
    if (!text) return true;
    reply->writeString(*text);
    send(reply);
  } catch (const std::exception& e) {
    LOGE("onMethodCall Exception e = %s\n", e.what());
    reply->writeString(serviceReply(kParamsError, e.what()));
    send(reply);
  }
  return true;
}

bool JobManagerServer::onSignalReceived(const char* member, const Message& signal) {
  try {
    work(member, signal);
  } catch (const std::exception& e) {
    LOGE("onSignalReceived Exception e = %s\n", e.what());
  }
  return true;
}

void JobManagerServer::stop() {
  LOGE("stop called.");
  DServer::stop();
  _exit(0);
}

}  // namespace jobm
