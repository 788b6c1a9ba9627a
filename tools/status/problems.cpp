#include <string>
#include <utility>

#include "lib/json_helper.h"
#include "snapshot.h"

namespace gateway {
namespace {

using jobm::json::textOf;

void addBasics(const Json::Value& snapshot, Json::Value& problems) {
  const Json::Value& service = snapshot["service"];
  const std::string file = textOf(service, "statusFile");
  const std::string identity = textOf(snapshot["identity"], "state");
  if (!service["onBus"].asBool()) problems.append("the service is not on the bus");
  if (service["onBus"].asBool() && file != "current") {
    problems.append("the service's status.json is " + file + ": much is not known");
  }
  if (identity == "absent")
    problems.append("the store holds no identity: the service waits for it");
  if (identity == "unreadable") problems.append("the configuration store can't be read");
}

void addCloud(const Json::Value& snapshot, Json::Value& problems) {
  const std::string phase = textOf(snapshot["service"]["phase"], "state");
  const std::string broker = textOf(snapshot["broker"], "state");
  if (!phase.empty() && phase != "registered") {
    problems.append("the service is not registered with the scheduler: " + phase);
  }
  if (!snapshot["bridge"]["onBus"].asBool()) problems.append("the bridge is not on the bus");
  if (textOf(snapshot["bridge"], "state") == "refuses") {
    problems.append("the bridge does not take the service's messages");
  }
  if (broker == "disconnected") problems.append("the bridge has lost the broker");
  if (textOf(snapshot["scheduler"], "state") == "silent") {
    problems.append("the scheduler does not answer the heartbeats");
  }
}

// One that only stores nothing is called for has nothing to miss.
bool missesCalls(const Json::Value& entry) {
  return entry.isMember("calledFor") && entry["calledFor"].empty() && !entry["watchTypes"].empty();
}

void addNeighbours(const Json::Value& list, const std::string& kind, Json::Value& problems) {
  for (const Json::Value& entry : list) {
    const std::string who = kind + " " + textOf(entry, "name");
    if (!entry["onBus"].asBool() && !entry["startable"].asBool()) {
      problems.append(who + " is registered but not on the bus");
    }
    if (missesCalls(entry)) {
      problems.append(who + " is not called: it has not registered since the service's start");
    }
  }
}

// On its way as long as the bridge takes messages.
bool mayStay(const Json::Value& bridge) {
  return !bridge["onBus"].asBool() || textOf(bridge, "state") == "refuses";
}

void addDeployments(const Json::Value& snapshot, Json::Value& problems) {
  const Json::Value& deployments = snapshot["deployments"];
  if (!deployments.empty()) {
    const Json::Value& last = deployments[deployments.size() - 1];
    if (last.isObject() && last["failed"].isIntegral() && last["failed"].asInt64() > 0) {
      problems.append("the last deployment, " + textOf(last, "deployId") + ", has failed");
    }
  }
  Json::Int64 kept = 0;
  for (const Json::Value& entry : snapshot["unreported"]) {
    kept += textOf(entry, "state") == "reported" ? 1 : 0;
  }
  if (kept > 0 && mayStay(snapshot["bridge"])) {
    problems.append("the bridge has not taken the report of " + std::to_string(kept) +
                    (kept == 1 ? " deployment" : " deployments"));
  }
}

}  // namespace

Json::Value problemsOf(const Json::Value& snapshot) {
  Json::Value problems(Json::arrayValue);
  addBasics(snapshot, problems);
  addCloud(snapshot, problems);
  addNeighbours(snapshot["executors"], "executor", problems);
  addNeighbours(snapshot["parsers"], "parser", problems);
  addDeployments(snapshot, problems);
  return problems;
}

}  // namespace gateway
