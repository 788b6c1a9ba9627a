#include "runner_api/runner.h"

#include <gateway/log_macros.h>

#include <atomic>
#include <ctime>
#include <exception>
#include <sstream>

#include "dbus_process_call/dbus_process_call.h"
#include "engine_api/group_config.h"
#include "lib/json_helper.h"
#include "lib/try_three_times.h"
#include "runner_api/jobs.h"
#include "scheduler_link/identity.h"
#include "scheduler_link/routing.h"
#include "status_file/status_file.h"
#include "wire/bus_names.h"
#include "wire/codes.h"
#include "wire/store_keys.h"
#include "wire/topics.h"

namespace jobm {
namespace {

constexpr float kQuietSeconds = 600.0F;

// The last heartbeat's reply is not there yet. Set by the heartbeat thread, reset by the listening
// thread.
std::atomic<bool> awaitsReply = false;

int subscribeOnce(const std::string& topic) {
  const int result = subscribe(topic, bus::kJobManager.name, 1);
  LOGI("subscribe result = %d\n", result);
  return result;
}

bool subscribeReplies() {
  const std::string topic = gatewayTopic(topic::kSchedulerReply);
  const int result = tryThreeTimes([&] { return subscribeOnce(topic); }, [](int) {});
  if (result != 0) LOGE("Error subscribe reply =%d\n", result);
  return result == 0;
}

// The numbers are what the scheduler expects of this kind of gateway, not measured.
Json::Value describeRunner(int cpu, std::int64_t memorySize, const std::string& executorNames,
                           const std::string& sdkVersion) {
  Json::Value version;
  version["version"] = getVersion();
  setStatus("version", version["version"]);
  Json::Value runner;
  runner["type"] = 0;
  runner["cpu"] = cpu;
  runner["memory"] = static_cast<Json::UInt64>(memorySize);
  runner["tenant"] = "TV_RN";
  runner["runnerGroup"] = "tarnvale.runner.group";
  runner["address"] = runnerAddress();
  runner["addressType"] = 1;
  // The rate that is announced; heartbeats really go out every 9 s.
  runner["heartRate"] = 10000;
  runner["linkType"] = 0;
  runner["executor"] = executorNames;
  runner["sdkVersion"] = sdkVersion;
  runner["tags"].append(json::styled(version));
  return runner;
}

// Takes the leading number of the stored job id; the rest of the text is ignored.
void restoreLastJobId() {
  const std::string text = getConfig(key::kJobId);
  if (text.empty()) return;
  std::istringstream stream(text);
  std::int64_t id = 0;
  stream >> id;
  setLastJobId(id);
}

// Thins the log: with a heartbeat every 9 s only the first one, and the first after a stall, is
// worth a line.
void logAfterSilence(std::int64_t id) {
  static std::time_t lastHeartbeatTime = 0;  // heartbeat thread only
  const std::time_t now = std::time(nullptr);
  const auto elapsed = static_cast<float>(std::difftime(now, lastHeartbeatTime));
  if (elapsed > kQuietSeconds) {
    LOGI("sendHeartbeat begin. id = %lld \n", static_cast<long long>(id));
  }
  lastHeartbeatTime = now;
}

bool handleAnsweredHeartbeat(const Json::Value& reply) {
  awaitsReply = false;
  setStatusWord("scheduler", "answers");
  return handleHeartbeatResp(reply);
}

}  // namespace

void registerRunner(int cpu, std::int64_t memorySize, const std::string& executorNames,
                    const std::string& sdkVersion) {
  LOGI("registerRunner begin cpu= %d, memorySize =%lld, executorNames=%s, sdkVersion = %s\n", cpu,
       static_cast<long long>(memorySize), executorNames.c_str(), sdkVersion.c_str());
  if (!subscribeReplies()) return;
  Json::Value attrs(Json::arrayValue);
  attrs.append(describeRunner(cpu, memorySize, executorNames, sdkVersion));
  const std::int64_t id = fileRequest(registerRunnerResp);
  LOGI("registerRunner id = %lld\n", static_cast<long long>(id));
  const std::string payload = schedulerRequest(id, attrs);
  LOGI("publishAsync payload =%s\n", payload.c_str());
  publishAsync(gatewayTopic(topic::kRegisterRunner), payload, 1);
  restoreLastJobId();
}

bool registerRunnerResp(const Json::Value& reply) {
  try {
    LOGI("register response =%s\n", json::styled(reply).c_str());
    const Json::Value& answer = reply["attrs"][0U];
    if (answer["code"] != Json::Value(kAccepted)) return false;
    setRunId(answer["data"].asInt64());
    LOGI("Response runId = %lld\n", static_cast<long long>(getRunId()));
    return true;
  } catch (const std::exception& e) {
    LOGE("registerRunnerResp Exception e = %s\n", e.what());
    return false;
  }
}

void handleHeartbeat() {
  if (getRunId() == 0) {
    LOGE("runId == 0 , return \n");
    return;
  }
  sendHeartbeat("");
}

void sendHeartbeat(const std::string& /*ignored*/) {
  if (awaitsReply.exchange(true)) setStatusWord("scheduler", "silent");
  Json::Value usage;
  // Constants: the scheduler balances nothing by them (oddity 18 in docs/cloud-interface.md).
  usage["cpuUsage"] = 1.0;
  usage["memUsage"] = 1.0;
  usage["diskUsage"] = 1.0;
  Json::Value attrs(Json::arrayValue);
  attrs.append(static_cast<Json::UInt64>(getRunId()));
  attrs.append(usage);
  const std::int64_t id = fileRequest(handleAnsweredHeartbeat);
  logAfterSilence(id);
  publishAsync(gatewayTopic(topic::kHeartbeat), schedulerRequest(id, attrs), 1);
}

}  // namespace jobm
