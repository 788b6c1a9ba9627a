#include "scheduler_link/identity.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "status_file/status_file.h"

namespace jobm {
namespace {

// Written once by the main thread, read by every thread.
std::mutex namesLock;
std::string productKey;
std::string deviceName;

// Written by the listening thread (run id, last job id) and the main thread (last job id, at
// start-up).
std::atomic<std::int64_t> runId = 0;
std::atomic<std::int64_t> lastJobId = 0;

std::pair<std::string, std::string> names() {
  const std::lock_guard guard(namesLock);
  return {productKey, deviceName};
}

}  // namespace

void setDeviceInfo(const std::string& key, const std::string& name) {
  const std::lock_guard guard(namesLock);
  productKey = key;
  deviceName = name;
}

bool hasDeviceInfo() {
  const auto [key, name] = names();
  return !key.empty() && !name.empty();
}

std::string runnerAddress() {
  const auto [key, name] = names();
  return key + "_" + name;
}

std::string gatewayTopic(const std::string& suffix) {
  const auto [key, name] = names();
  return "/sys/" + key + "/" + name + suffix;
}

std::int64_t getRunId() { return runId; }
void setRunId(std::int64_t id) {
  runId = id;
  setStatus("runnerId", static_cast<Json::Int64>(id));
}

std::int64_t getLastJobId() { return lastJobId; }
void setLastJobId(std::int64_t id) { lastJobId = id; }

}  // namespace jobm
