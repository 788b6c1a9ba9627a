#include "executor_api/method_calls.h"

#include <gateway/log_context.h>
#include <gateway/log_macros.h>

#include <cstdint>
#include <exception>
#include <utility>

#include "dbus_wrap/LoopTasks.h"
#include "lib/json_helper.h"
#include "wire/codes.h"

namespace jobm {
namespace {

using Message = std::shared_ptr<quillon::DMessage>;

constexpr const char* kWatchTypesFinish = "onWatchTypesFinish";
constexpr const char* kDriverManager = "driver_manager";

// The texts of the bus daemon. The first is compared whole, the second searched for, since names
// precede and follow it.
constexpr const char* kDisconnected =
    "Message recipient disconnected from message bus without replying";
constexpr const char* kNotProvided = "was not provided by any .service files";

ExecutorReply noService() { return {kNoService, "Service not exist", {}}; }

ExecutorReply busFailure(const std::string& text) {
  if (text == kDisconnected) return {kNoReply, kNoReplyMessage, {}};
  if (text.find(kNotProvided) != std::string::npos) return noService();
  return replyFormatError();
}

void logParseFailed(const std::string& method, const char* text) {
  LOGE("callMethod %s parse failed res = %s\n", method.c_str(), text);
}

void logError(const std::string& method, const char* text) {
  LOGE("callMethod %s error res = %s\n", method.c_str(), text);
}

// Names the deploy call for every method, see "Log lines in another's name" in
// docs/architecture.md.
void logException(const char* what) { LOGE("deployJob json error ! e = %s\n", what); }

ReplyLog logOf(const std::string& method) {
  return {[method](const char* text) { logParseFailed(method, text); },
          [method](const char* text) { logError(method, text); }, logException};
}

void handleMethodReply(const std::string& method, const MethodResultCallback& callback,
                       const Message& message) {
  LOGI("Received reply, with serial_id=%d",
       message ? static_cast<int>(message->getReplySerial()) : 0);
  if (!message) return;
  const std::string text = message->readString();
  LOGI("callMethod %s res = %s\n", method.c_str(), text.c_str());
  const ExecutorReply reply = classifyReply(text, logOf(method));
  if (!callback) return;
  callback(reply.code, reply.message, reply.answered ? json::styled(reply.data) : "");
}

// Reports a call that can't even be made, from the loop like every other outcome.
void reportLater(const MethodResultCallback& callback, const ExecutorReply& outcome) {
  if (!callback) return;
  quillon::postToLoop([callback, outcome, context = gateway::LogContext()] {
    const gateway::LogContextScope scope(context);
    callback(outcome.code, outcome.message, "");
  });
}

// Copies of every executor that watches more than one type; one with a single type has the whole
// batch in its one call.
std::vector<Executor> batchWatchers() {
  std::vector<Executor> watchers;
  for (Executor& executor : allExecutors()) {
    if (executor.watchType.size() > 1) watchers.push_back(std::move(executor));
  }
  return watchers;
}

void logWatchTypesFinish(const std::string& name, int code, const std::string& message,
                         const std::string& data) {
  LOGI("callMethod %s executor:%s res code = %d mess = %s data = %s\n", kWatchTypesFinish,
       name.c_str(), code, message.c_str(), data.c_str());
}

void logInitialised(int code, const std::string& message, const std::string& data) {
  LOGI("initExecutor res code =%d message = %s data = %s\n", code, message.c_str(), data.c_str());
}

void callWatchTypesFinish(const Executor& executor) {
  const std::string name = executor.executorName;
  callMethod(kWatchTypesFinish, executor, "",
             [name](int code, const std::string& message, const std::string& data) {
               logWatchTypesFinish(name, code, message, data);
             });
}

}  // namespace

ExecutorReply replyFormatError() {
  return {kReplyFormat, "JOBM_ERROR_ExecutorReplyFormatError", {}};
}

std::optional<ExecutorReply> readAnswer(const std::string& text, const TextLog& exception) {
  Json::Value parsed;
  if (!json::parse(text, parsed)) return std::nullopt;
  try {
    const Json::Value& root = parsed;
    return ExecutorReply{root["code"].asInt(), root["message"].asString(), root["data"], true};
  } catch (const std::exception& e) {
    exception(e.what());
    return replyFormatError();
  }
}

ExecutorReply classifyReply(const std::string& text, const ReplyLog& log) {
  std::optional<ExecutorReply> reply = readAnswer(text, log.exception);
  if (!reply) {
    log.parseFailed(text.c_str());
    reply = busFailure(text);
  }
  if (reply->code != 0) log.error(text.c_str());
  return *std::move(reply);
}

void sendMessageWithReply(const std::shared_ptr<quillon::DProxy>& proxy, const Message& message,
                          quillon::ReplyCallback callback, void* userData) {
  LOGI("sendMessageWithReply begin...");
  // The share of the proxy keeps it alive until the reply is there.
  const auto answered = [proxy, callback = std::move(callback)](const Message& reply, void* data) {
    if (callback) callback(reply, data);
  };
  if (proxy->sendMessageWithReply(message, answered, userData)) return;
  quillon::postToLoop([answered, userData, context = gateway::LogContext()] {
    const gateway::LogContextScope scope(context);
    answered({}, userData);
  });
}

void callMethod(const char* method, const Executor& executor, const std::string& payload,
                const MethodResultCallback& callback) {
  LOGI("callMethod %s begin \n", method != nullptr ? method : "(null)");
  if (method == nullptr) {
    if (callback) callback(kParamsError, "params error", "");
    return;
  }
  const Message call = executor.proxy->makeMethodCall(method);
  if (!call) {
    reportLater(callback, noService());
    return;
  }
  LOGI("payload= %s", payload.c_str());
  if (!payload.empty()) call->writeString(payload);
  if (!call->fitsBus()) {
    LOGE("callMethod %s for %s is too long for the bus\n", method, executor.executorName.c_str());
    reportLater(callback, replyFormatError());
    return;
  }
  sendMessageWithReply(
      executor.proxy, call,
      [name = std::string(method), callback](const Message& reply, void*) {
        handleMethodReply(name, callback, reply);
      },
      nullptr);
}

void initExecutor(const Executor& executor) {
  LOGI("initExecutor begin executor = %s\n", executor.executorName.c_str());
  callMethod("initExecutor", executor, "", logInitialised);
}

void callOnWatchTypesFinish() {
  bool hasDriverManager = false;
  for (const Executor& executor : batchWatchers()) {
    callWatchTypesFinish(executor);
    if (executor.executorName == kDriverManager) hasDriverManager = true;
  }
  if (hasDriverManager) return;
  const std::optional<Executor> parser = getParser(kDriverManager);
  if (parser) callWatchTypesFinish(*parser);
}

}  // namespace jobm
