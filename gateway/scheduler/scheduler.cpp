#include "scheduler.h"

#include <gateway/log_macros.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "common/trace.h"
#include "lib/json_helper.h"
#include "request_check.h"

namespace gateway {
namespace {

constexpr const char* kMe = "gateway-scheduler";
constexpr const char* kRunner = "task-dispatcher";
constexpr const char* kResultTopic = "local/scheduler/result/";
constexpr const char* kFaultTopic = "local/scheduler/fault";
constexpr const char* kLogTopic = "local/scheduler/log";
constexpr const char* kReportSuffix = "/edge/deploy/post";
constexpr const char* kLogSuffix = "/edge/rule/post_log";
constexpr const char* kTriggerSuffix = "/edge/rule/trigger";
constexpr const char* kReplySuffix = "/scheduler/sysReply";
constexpr int kAccepted = 200;
constexpr int kJobList = 10200;
constexpr int kRefused = 400;
constexpr int kAddJob = 10201;
constexpr int kResetJobs = 10219;

std::int64_t millisecondsNow() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

// Whether an order is only answered when those before it are over: a reset that can be read.
bool takesItsTurn(int ackCode, const std::string& content) {
  Json::Value ignored;
  return ackCode == kResetJobs && jobm::json::parse(content, ignored);
}

}  // namespace

std::string topicPrefix(const SchedulerSettings& settings) {
  return "/sys/" + settings.productKey + "/" + settings.deviceName;
}

Scheduler::Scheduler(SchedulerSettings given, Publish toBroker)
    : settings(std::move(given)),
      prefix(topicPrefix(settings)),
      nextId(millisecondsNow()),
      recording(settings.recordFile, std::ios::app),
      publish(std::move(toBroker)) {}

void Scheduler::onTrigger(const std::string& payload) {
  trace(kMe, kRunner, "trigger " + payload);
  send(kTriggerSuffix, payload);
}

void Scheduler::onMessage(const std::string& topic, const std::string& payload) {
  const std::string suffix = topic.substr(prefix.size());
  record(suffix, payload);
  if (suffix == kLogSuffix) {
    trace(kRunner, kMe, "log " + payload);
    publish(kLogTopic, payload);
    return;
  }
  Json::Value message;
  if (!jobm::json::parse(payload, message)) return complain(topic + ": not JSON: " + payload);
  try {
    suffix == kReportSuffix ? onReport(message) : onRequest(suffix, message);
  } catch (const Json::Exception& e) {
    complain(topic + ": " + e.what() + ": " + payload);
  }
}

void Scheduler::onSubmit(const std::string& payload) {
  Json::Value order;
  if (!jobm::json::parse(payload, order)) return complain("an order is not JSON: " + payload);
  try {
    queue(order);
  } catch (const Json::Exception& e) {
    complain(std::string("an order: ") + e.what() + ": " + payload);
  }
}

void Scheduler::queue(const Json::Value& order) {
  const std::string token = jobm::json::textOf(order, "token");
  // A broker that was killed may deliver it twice.
  if (std::ranges::find(jobs, token, &Job::token) != jobs.end()) {
    return trace("gateway-job", kMe, "repeats an order");
  }
  Job job{.token = token,
          .jobId = order.get("jobId", Json::Value::Int64{nextId}).asInt64(),
          .ackId = nextId + 1,
          .ackCode = order.get("ackCode", kAddJob).asInt(),
          .executor = order.get("executor", "ConfigManager").asString(),
          .ackContent = jobm::json::textOf(order, "ackContent"),
          .request = order.get("request", Json::Value())};
  // Two numbers, because a gateway that confuses the two must be noticed.
  nextId += 2;
  trace("gateway-job", kMe,
        "order " + std::to_string(job.ackCode) + ", job " + std::to_string(job.jobId));
  jobs.push_back(std::move(job));
  Json::Value event(Json::objectValue);
  event["event"] = "queued";
  tell(jobs.back(), event);
}

void Scheduler::onRequest(const std::string& suffix, const Json::Value& request) {
  const std::string address = settings.productKey + "_" + settings.deviceName;
  const std::string wrong = requestFault(suffix, request, address, settings.runId);
  if (!wrong.empty()) {
    complain(suffix + ": " + wrong + ": " + jobm::json::compact(request));
    return reply(request, kRefused, Json::Value(), wrong);
  }
  if (isRedelivery(suffix, request)) return;
  if (suffix.ends_with("/registerRunner")) {
    trace(kRunner, kMe, "registers");
    return reply(request, kAccepted, Json::Value::Int64{settings.runId}, "success");
  }
  if (suffix.ends_with("/heartbeat")) return answerHeartbeat(request);
  takeStatus(request);
}

// A broker delivers a message of quality 1 at least once. What must not happen is that two requests
// share one id.
bool Scheduler::isRedelivery(const std::string& suffix, const Json::Value& request) {
  const std::string text = suffix + jobm::json::compact(request);
  const auto [seen, isNew] = requests.emplace(request["id"].asUInt64(), text);
  if (!isNew && seen->second != text) complain(suffix + ": an id was used twice: " + text);
  return !isNew && seen->second == text;
}

void Scheduler::answerHeartbeat(const Json::Value& request) {
  trace(kRunner, kMe, "heartbeat");
  Json::Value list(Json::arrayValue);
  for (Job& job : jobs) {
    if (job.handedOut) continue;
    job.handedOut = true;
    list.append(acknowledgement(job));
    Json::Value event(Json::objectValue);
    event["event"] = "handed out";
    tell(job, event);
  }
  reply(request, list.empty() ? kAccepted : kJobList, list, "success");
}

Json::Value Scheduler::acknowledgement(const Job& job) const {
  Json::Value ack(Json::objectValue);
  ack["id"] = Json::Value::Int64{job.ackId};
  ack["ackCode"] = job.ackCode;
  ack["jobId"] = Json::Value::Int64{job.jobId};
  ack["executor"] = job.executor;
  ack["ackContent"] = job.ackContent;
  ack["ackStatus"] = 0;
  ack["gmtCreate"] = Json::Value::Int64{job.ackId};
  ack["gmtModified"] = Json::Value::Int64{millisecondsNow()};
  ack["runnerId"] = Json::Value::Int64{settings.runId};
  trace(kMe, kRunner, "job " + std::to_string(job.jobId) + ", code " + std::to_string(job.ackCode));
  return ack;
}

void Scheduler::takeStatus(const Json::Value& request) {
  // The inner quotation marks are what the gateway compares with.
  reply(request, kAccepted, "\"ACK_REQUEST_OK\"", "");
  const Json::Value& attrs = request["attrs"];
  if (attrs[2].isArray()) {
    trace(kRunner, kMe,
          "executor's status of " + attrs[1].asString() + ": " + jobm::json::compact(attrs[2]));
    return;
  }
  trace(kRunner, kMe, "status " + attrs[1].asString() + " of " + attrs[0].asString());
  const auto job = std::ranges::find(jobs, attrs[0].asInt64(), &Job::ackId);
  if (job == jobs.end() || !job->handedOut)
    return complain("status of an acknowledgement not given");
  job->heardOf = true;
  Json::Value event(Json::objectValue);
  event["event"] = "status";
  event["jobStatus"] = attrs[1];
  jobm::json::parse(attrs[2].asString(), event["result"]);
  tell(*job, event);
}

// Reports come at least once, too: a bridge that was killed before it noted the broker's
// acknowledgement delivers its message again, and a runner that was killed reports again what it
// can't know to have arrived. What comes again has the same content. A report without ids is the
// same for every order that could not be read, so that one always counts.
bool Scheduler::isKnownReport(const Json::Value& message) {
  if (jobm::json::textOf(message, "deployId").empty()) return false;
  return !reports.insert(std::hash<std::string>()(jobm::json::compact(message))).second;
}

void Scheduler::onReport(const Json::Value& message) {
  Job* job = jobOfReport(message);
  const std::string wrong = reportFault(message, job != nullptr ? job->request : Json::Value());
  if (!wrong.empty()) return complain("report: " + wrong + ": " + jobm::json::compact(message));
  const std::string what = "report " + jobm::json::textOf(message, "deployId") + ", " +
                           std::to_string(message["details"].size()) + " details";
  if (isKnownReport(message)) return trace(kRunner, kMe, "repeats " + what);
  trace(kRunner, kMe, what);
  auto report = joiner.add(message);
  if (!report) return;
  if (job == nullptr) return complain("report of no job: " + jobm::json::compact(*report));
  job->heardOf = true;
  Json::Value event = *report;
  event["event"] = "report";
  event["details"] = (*report)["details"].size();
  event["resources"] = rowsOf(job->request, (*report)["details"]);
  tell(*job, event);
}

// The job that a report belongs to; null for none. A report without ids says that an order could
// not be read, which happens before anything else is heard of the job; orders are read in order.
Scheduler::Job* Scheduler::jobOfReport(const Json::Value& report) {
  const std::string deployId = jobm::json::textOf(report, "deployId");
  const std::string taskId = jobm::json::textOf(report, "taskId");
  const auto found = std::ranges::find_if(jobs, [&](const Job& job) {
    if (!job.handedOut) return false;
    if (deployId.empty()) return !job.heardOf && !takesItsTurn(job.ackCode, job.ackContent);
    return jobm::json::textOf(job.request, "deployId") == deployId &&
           jobm::json::textOf(job.request, "taskId") == taskId;
  });
  return found == jobs.end() ? nullptr : &*found;
}

void Scheduler::reply(const Json::Value& request, int code, const Json::Value& data,
                      const std::string& message) {
  if (!request.isObject() || !request.isMember("id")) return;
  Json::Value answer(Json::objectValue);
  answer["code"] = code;
  answer["data"] = data;
  answer["message"] = message;
  Json::Value envelope(Json::objectValue);
  envelope["id"] = request["id"];
  envelope["attrs"].append(answer);
  envelope["reply"] = true;
  send(kReplySuffix, jobm::json::compact(envelope));
}

void Scheduler::tell(const Job& job, Json::Value event) {
  event["token"] = job.token;
  event["jobId"] = Json::Value::Int64{job.jobId};
  event["ackId"] = Json::Value::Int64{job.ackId};
  event["deployId"] = jobm::json::textOf(job.request, "deployId");
  const std::string topic = kResultTopic + job.token;
  const std::string payload = jobm::json::compact(event);
  record(topic, payload);
  publish(topic, payload);
}

// Sends to the gateway; everything that it hears from here comes through this.
void Scheduler::send(const std::string& suffix, const std::string& payload) {
  record(suffix, payload);
  publish(prefix + suffix, payload);
}

// One line of JSON. The time is in milliseconds since 1970; a topic of the gateway's is without its
// prefix.
void Scheduler::record(const std::string& topic, const std::string& payload) {
  if (!recording.is_open()) return;
  Json::Value line(Json::objectValue);
  line["time"] = Json::Value::Int64{millisecondsNow()};
  line["topic"] = topic;
  line["payload"] = payload;
  recording << jobm::json::compact(line) << std::flush;
}

void Scheduler::complain(const std::string& what) {
  fault(kRunner, kMe, what);
  publish(kFaultTopic, what);
}

}  // namespace gateway
