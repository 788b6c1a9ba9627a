#include "call_fault.h"

#include <set>

#include "lib/json_helper.h"

namespace gateway {
namespace {

std::string resourcesFault(const Json::Value& resources, bool withoutData) {
  if (!resources.isArray() || resources.empty()) return "not a list of resources";
  for (const Json::Value& resource : resources) {
    for (const char* name : {"snapshotId", "resourceId", "resourceType"}) {
      if (jobm::json::textOf(resource, name).empty())
        return std::string("a resource lacks ") + name;
    }
    if (withoutData && resource.isMember("data")) return "a resource carries data";
  }
  return "";
}

std::string configFault(const Json::Value& config) {
  if (!config.isObject() || config.size() != 3) return "not an object of three members";
  for (const char* name : {"key", "value", "snapshotId"}) {
    if (!config[name].isString()) return std::string(name) + " is not a text";
  }
  return "";
}

std::string queryFault(const Json::Value& query) {
  if (!query.isObject() || query.size() != 2) return "not an object of two members";
  const bool good = query["jobId"].isUInt64() && query["foreignKey"].isString();
  return good ? "" : "not a job id and a key";
}

}  // namespace

std::string callFault(const std::string& method, const std::string& signature,
                      const std::string& payload) {
  static const std::set<std::string> withoutArgument = {"resetJobs", "initExecutor",
                                                        "onWatchTypesFinish"};
  if (withoutArgument.contains(method))
    return signature.empty() ? "" : "arguments where none belong";
  if (signature != "s") return "not one text argument";
  Json::Value value;
  if (!jobm::json::parse(payload, value)) return "the argument is not JSON";
  if (method == "deployJob") return resourcesFault(value, true);
  if (method == "deleteJob") return resourcesFault(value, false);
  if (method == "deployConfig") return configFault(value);
  if (method == "getJobStatus") return queryFault(value);
  return "unknown method";
}

}  // namespace gateway
