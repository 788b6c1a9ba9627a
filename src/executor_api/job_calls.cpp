#include "executor_api/job_calls.h"

#include <gateway/log_context.h>
#include <gateway/log_macros.h>

#include <algorithm>
#include <cctype>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>

#include "executor_api/stored_jobs.h"
#include "lib/json_helper.h"
#include "sync_job_status/sync_job_status.h"
#include "wire/bus_names.h"
#include "wire/codes.h"

namespace jobm {
namespace {

using Message = std::shared_ptr<quillon::DMessage>;

// The one executor that answers for each resource.
constexpr const char* kCorvexConfig = bus::kCorvexConfigExecutor;

// What a reply handler of a deploy or delete call holds, all of it its own.
struct JobCall {
  std::string deployId;
  std::string taskId;
  std::string executorName;
  Json::Value resources;
};

Json::Value immediateResult(int code, const std::string& message) {
  Json::Value result;
  result["code"] = code;
  result["message"] = message;
  return result;
}

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

Json::Value plainEntry(const Json::Value& item, bool success) {
  Json::Value entry;
  entry["snapshotId"] = item["snapshotId"];
  entry["success"] = success;
  entry["resourceName"] = item["resourceName"];
  return entry;
}

// The first element of the reply's data for each resource, letter case ignored; up to the first
// element that can't be read, which is as far as a search comes.
struct DataIndex {
  std::unordered_map<std::string, const Json::Value*> elements;
  std::string unreadable;  // why the index ends early, if it does
};

DataIndex indexData(const Json::Value& data) {
  DataIndex index;
  if (!data.isArray()) return index;
  try {
    for (const Json::Value& element : data) {
      index.elements.emplace(lowerCase(element["resourceId"].asString()), &element);
    }
  } catch (const std::exception& e) {
    index.unreadable = e.what();
  }
  return index;
}

// A resource that the reply says nothing about counts as successful without a code, also when the
// whole call failed: this executor only names what went wrong.
Json::Value corvexEntry(const Json::Value& item, const DataIndex& index) {
  const std::string resourceId = json::textOf(item, "resourceId");
  Json::Value entry = plainEntry(item, true);
  entry["code"] = "";
  entry["message"] = "";
  const auto found = index.elements.find(lowerCase(resourceId));
  if (found == index.elements.end()) {
    if (!index.unreadable.empty()) throw std::runtime_error(index.unreadable);
    LOGW("%s can't find resourceid %s", kCorvexConfig, resourceId.c_str());
    return entry;
  }
  const Json::Value& element = *found->second;
  entry["code"] = element["code"].asString();
  entry["success"] = element["code"].asInt() == 0;
  entry["message"] = element["message"].asString();
  return entry;
}

// What the reply says about one resource; an unreadable word about it is a failure of the executor.
Json::Value readCorvexEntry(const Json::Value& item, const DataIndex& index) {
  try {
    return corvexEntry(item, index);
  } catch (const std::exception& e) {
    LOGE("deployJob json error ! e = %s\n", e.what());
    const ExecutorReply error = replyFormatError();
    Json::Value entry = plainEntry(item, false);
    entry["code"] = std::to_string(error.code);
    entry["message"] = error.message;
    return entry;
  }
}

void recordPlain(const JobCall& call, bool success, Json::Value& summary) {
  for (const Json::Value& item : std::as_const(call.resources)) {
    summary[json::textOf(item, "snapshotId")] = plainEntry(item, success);
  }
}

void recordCorvex(const JobCall& call, const Json::Value& data, Json::Value& summary) {
  const DataIndex index = indexData(data);
  for (const Json::Value& item : std::as_const(call.resources)) {
    const std::string snapshotId = json::textOf(item, "snapshotId");
    const gateway::LogScope scope(gateway::LogSubject::kResource, snapshotId);
    summary[snapshotId] = readCorvexEntry(item, index);
  }
}

void logNoReply(const JobCall& call) {
  LOGI("deployId %s taskId %s sendMessageWithReply reply NULL\n", call.deployId.c_str(),
       call.taskId.c_str());
}

void logDeployParseFailed(const char* text) { LOGE("deployJob parse failed res = %s\n", text); }
void logDeployError(const char* text) { LOGE("deployJob error res = %s\n", text); }
void logDeployException(const char* what) { LOGE("deployJob json error ! e = %s\n", what); }

void logDeleteParseFailed(const char* text) { LOGE("deleteJob parse failed res = %s\n", text); }
void logDeleteError(const char* text) { LOGE("deleteJob error res = %s\n", text); }
// Says "publish", see "Log lines in another's name" in docs/architecture.md.
void logDeleteException(const char* what) { LOGE("publish json error ! e = %s", what); }

ExecutorReply readDeployReply(const JobCall& call, const Message& message) {
  if (!message) {
    logNoReply(call);
    return {};
  }
  const std::string text = message->readString();
  LOGI("deployJob executor : %s sendMessageWithReply res = %s\n", call.executorName.c_str(),
       text.c_str());
  return classifyReply(text, {logDeployParseFailed, logDeployError, logDeployException});
}

ExecutorReply readDeleteReply(const JobCall& call, const Message& message) {
  if (!message) {
    LOGI("deleteJob %s sendMessageWithReply reply NULL\n", call.executorName.c_str());
    logNoReply(call);
    return {};
  }
  const std::string text = message->readString();
  LOGI("deleteJob %s sendMessageWithReply res = %s\n", call.executorName.c_str(), text.c_str());
  return classifyReply(text, {logDeleteParseFailed, logDeleteError, logDeleteException});
}

void recordDeployReply(const JobCall& call, const Message& message, Json::Value& summary) {
  const ExecutorReply reply = readDeployReply(call, message);
  if (call.executorName == kCorvexConfig) {
    recordCorvex(call, reply.data, summary);
  } else {
    recordPlain(call, reply.code == 0, summary);
  }
}

void recordDeleteReply(const JobCall& call, const Message& message, Json::Value& summary) {
  recordPlain(call, readDeleteReply(call, message).code == 0, summary);
}

using ReplyReader = void (*)(const JobCall&, const Message&, Json::Value& summary);

// The call with the resources, `payload`, as its argument; null for an address that can't be
// called.
Message makeJobCall(const Executor& executor, const char* method, const std::string& payload) {
  Message call = executor.proxy->makeMethodCall(method);
  if (call && !payload.empty()) call->writeString(payload);
  return call;
}

// Sends it; the reply handler holds copies.
void sendJobCall(const Executor& executor, const Message& call, JobCall&& job, ReplyReader reader,
                 const JobReplyHandler& onReply) {
  sendMessageWithReply(
      executor.proxy, call,
      [job = std::make_shared<const JobCall>(std::move(job)), reader, onReply](const Message& reply,
                                                                               void*) {
        onReply([&](Json::Value& summary) { reader(*job, reply, summary); });
      },
      nullptr);
}

void logRegistered() {
  const std::vector<Executor> all = allExecutors();
  LOGI("deployJob map size =%d  ", static_cast<int>(all.size()));
  for (const Executor& executor : all) LOGI("have module : %s\n", executor.executorName.c_str());
}

void logParserAnswer(const std::string& key, const std::string& value, int code,
                     const std::string& message, const std::string& data) {
  LOGI("deployJob key = %s value = %s code = %d message = %s data = %s\n", key.c_str(),
       value.c_str(), code, message.c_str(), data.c_str());
}

Json::Value unknownExecutor(const std::string& executorName) {
  return immediateResult(kUnknownExecutor, executorName + " not exist");
}

// The address of the record can't be called at all.
Json::Value noService() { return immediateResult(kNoService, "Service not exist"); }

// Never sent, never waited for, and not in the job list: nobody would ever have heard of it.
Json::Value tooLong(const char* method, const Executor& executor) {
  LOGE("%s for %s is too long for the bus\n", method, executor.executorName.c_str());
  return immediateResult(kReplyFormat, replyFormatError().message);
}

}  // namespace

Json::Value deployEJob(const std::string& deployId, const std::string& taskId,
                       Json::Value& resources, const std::string& executorName,
                       const JobReplyHandler& onReply) {
  const std::optional<Executor> executor = getExecutor(executorName);
  if (!executor) {
    LOGE("deployJob can`t find registered %s ", executorName.c_str());
    return unknownExecutor(executorName);
  }
  logRegistered();
  for (Json::Value& item : resources) item.removeMember("data");
  const std::string payload = json::styled(resources);
  const Message call = makeJobCall(*executor, "deployJob", payload);
  if (!call) return noService();
  if (!call->fitsBus()) return tooLong("deployJob", *executor);
  if (updateStoredJobs(executorName, resources, kAddJob) != 0) {
    return immediateResult(kStoreFailed, "SetConfigManager_Fail");
  }
  LOGI("deployJob executor :%s payload =%s\n", executorName.c_str(), payload.c_str());
  sendJobCall(*executor, call, {deployId, taskId, executorName, resources}, recordDeployReply,
              onReply);
  return immediateResult(0, "deploy success");
}

Json::Value deleteEJob(const std::string& deployId, const std::string& taskId,
                       const Json::Value& resources, const std::string& executorName,
                       const JobReplyHandler& onReply) {
  LOGI("deleteJob executor =%s", executorName.c_str());
  const std::optional<Executor> executor = getExecutor(executorName);
  if (!executor) return unknownExecutor(executorName);
  const std::string payload = json::styled(resources);
  const Message call = makeJobCall(*executor, "deleteJob", payload);
  if (call && !call->fitsBus()) return tooLong("deleteJob", *executor);
  const bool stored = updateStoredJobs(executorName, resources, kDeleteJob) == 0;
  if (!call) return noService();
  LOGI("deleteJob executor :%s payload =%s\n", executorName.c_str(), payload.c_str());
  sendJobCall(*executor, call, {deployId, taskId, executorName, resources}, recordDeleteReply,
              onReply);
  return stored ? immediateResult(0, "delete success")
                : immediateResult(kStoreFailed, "SetConfigManager_Fail");
}

void deployParserJob(const std::string& key, const std::string& value, const Executor& parser,
                     const MethodResultCallback& callback) {
  Json::Value parsed;
  Json::Value request;
  request["key"] = key;
  request["value"] = json::parse(value, parsed) ? parsed : Json::Value(value);
  const std::string payload = json::compact(request);
  LOGI("deployJob executor = %s, payload = %s\n", parser.executorName.c_str(), payload.c_str());
  callMethod("deployJob", parser, payload,
             [key, value, callback](int code, const std::string& message, const std::string& data) {
               logParserAnswer(key, value, code, message, data);
               if (callback) callback(code, message, data);
             });
}

}  // namespace jobm
