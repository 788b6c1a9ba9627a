#include <gateway/shown_text.h>

#include <array>
#include <cstdio>
#include <string>

#include "lib/json_helper.h"
#include "snapshot.h"

namespace gateway {
namespace {

// Whatever it is, in one line and without what a terminal would obey: much of it comes from others.
std::string shown(const Json::Value& value) {
  if (value.isNull()) return "";
  const std::string text =
      shownText(value.isString() ? value.asString() : jobm::json::compact(value));
  const std::size_t last = text.find_last_not_of(' ');
  return text.substr(0, last == text.npos ? 0 : last + 1);
}

std::string line(const std::string& name, const std::string& what) {
  std::array<char, 16> left{};
  std::snprintf(left.data(), left.size(), "%-12s", name.c_str());
  return left.data() + what + "\n";
}

// ", NAME VALUE" if there is one.
std::string part(const char* name, const Json::Value& value) {
  const std::string text = shown(value);
  return text.empty() ? "" : std::string(", ") + name + text;
}

std::string wordOf(const Json::Value& word) {
  const std::string state = shown(word["state"]);
  return state.empty() ? "not known" : state + part("since ", word["since"]);
}

std::string onBus(const Json::Value& entry, const char* otherwise = "NOT ON THE BUS") {
  if (entry["onBus"].asBool()) return "on the bus";
  return entry["startable"].asBool() ? "started when called" : otherwise;
}

std::string serviceText(const Json::Value& service) {
  if (!service["onBus"].asBool()) return "NOT ON THE BUS";
  return "on the bus" + part("since ", service["started"]) + part("process ", service["pid"]) +
         part("version ", service["version"]) + part("runner id ", service["runnerId"]) +
         part("", service["phase"]["state"]) + part("since ", service["phase"]["since"]);
}

std::string bridgeText(const Json::Value& bridge) {
  const std::string state = shown(bridge["state"]);
  const std::string takes = state.empty() ? "" : ", " + state + " messages";
  return onBus(bridge) + takes + part("since ", bridge["since"]);
}

std::string listed(const Json::Value& texts) {
  std::string all;
  for (const Json::Value& text : texts) all += (all.empty() ? "" : " ") + shown(text);
  return all.empty() ? "nothing" : all;
}

std::string neighbourText(const Json::Value& entry) {
  std::string text = shown(entry["name"]) + part("", entry["busName"]) + ", " + onBus(entry) +
                     part("", entry["origin"]) + ", watches " + listed(entry["watchTypes"]);
  if (entry.isMember("calledFor")) text += ", called for " + listed(entry["calledFor"]);
  if (entry.isMember("jobs")) text += ", " + shown(entry["jobs"]) + " stored jobs";
  return text;
}

std::string neighboursText(const char* name, const Json::Value& list) {
  std::string text;
  for (const Json::Value& entry : list)
    text += line(text.empty() ? name : "", neighbourText(entry));
  return text;
}

std::string idsOf(const Json::Value& deployment) {
  const std::string id = shown(deployment["deployId"]);
  const bool hasJob = deployment["jobId"].isIntegral() && deployment["jobId"].asInt64() != 0;
  return (id.empty() ? "without an id" : id) + part("task ", deployment["taskId"]) +
         (hasJob ? part("job ", deployment["jobId"]) : "");
}

std::string progressText(const Json::Value& snapshot) {
  const Json::Value& deployment = snapshot["deployment"];
  const std::string now = deployment.isObject()
                              ? idsOf(deployment) + part("with ", deployment["phase"]) +
                                    part("since ", deployment["since"])
                              : "none";
  return now + ", " + shown(snapshot["waiting"]) + " waiting";
}

std::string outcomeText(const Json::Value& outcome) {
  const Json::Value& error = outcome["firstError"];
  std::string text = shown(outcome["finished"]) + " " + idsOf(outcome) + ", " +
                     shown(outcome["succeeded"]) + " succeeded, " + shown(outcome["failed"]) +
                     " failed";
  if (!error.isObject()) return text;
  return text + ": " + shown(error["snapshotId"]) + part("code ", error["code"]) +
         part("", error["message"]);
}

std::string outcomesText(const Json::Value& outcomes) {
  std::string text;
  for (Json::ArrayIndex i = outcomes.size(); i-- > 0;) {
    if (outcomes[i].isObject()) text += line(text.empty() ? "last" : "", outcomeText(outcomes[i]));
  }
  return text;
}

std::string problemsText(const Json::Value& problems) {
  std::string text;
  for (const Json::Value& problem : problems) {
    text += line(text.empty() ? "problems" : "", shown(problem));
  }
  return text.empty() ? line("problems", "none") : text;
}

}  // namespace

std::string textOf(const Json::Value& snapshot) {
  if (!snapshot["bus"].asBool()) return problemsText(snapshot["problems"]);
  const Json::Value& identity = snapshot["identity"];
  const bool hasIdentity = identity["state"] == "present";
  return line("service", serviceText(snapshot["service"])) +
         line("identity", hasIdentity
                              ? shown(identity["productKey"]) + " " + shown(identity["deviceName"])
                              : shown(identity["state"])) +
         line("bridge", bridgeText(snapshot["bridge"])) +
         line("broker", wordOf(snapshot["broker"])) +
         line("scheduler", wordOf(snapshot["scheduler"])) +
         line("watchdog", onBus(snapshot["watchdog"], "not on the bus")) +
         neighboursText("executors", snapshot["executors"]) +
         neighboursText("parsers", snapshot["parsers"]) +
         line("deployment", progressText(snapshot)) + outcomesText(snapshot["deployments"]) +
         problemsText(snapshot["problems"]);
}

}  // namespace gateway
