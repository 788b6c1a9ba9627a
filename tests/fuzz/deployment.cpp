// Deployment requests, one after the other while the first is still under way. Each is answered
// with exactly one report, and the report of a deployment that came to the executors is complete.
// The resources of a request that begins with "*" are repeated until its report has to be split.
#include <exception>
#include <map>
#include <set>

#include "communicate_scene/request.h"
#include "neighbours.h"
#include "support.h"

namespace {

std::string requestOf(const std::string& text) {
  std::string request = fuzz::withSums(text);
  if (!request.starts_with('*')) return request;
  Json::Value root = fuzz::parsed(request.substr(1));
  if (!root.isObject() || !root["resources"].isArray()) return request;
  Json::Value& resources = root["resources"];
  const Json::ArrayIndex given = resources.size();
  for (Json::ArrayIndex i = 0; given > 0 && resources.size() <= 200; ++i) {
    resources.append(Json::Value(resources[i % given]));
  }
  return root.toStyledString();
}

// The id under which a request has to be reported; none for what is not a request, and for one
// whose report can't be told by its id.
std::string reportedAs(const Json::Value& request) {
  try {
    if (!request.isObject() || !request["deployType"].isInt()) return {};
    const int deployType = request["deployType"].asInt();
    const bool answered = deployType == 1 || (deployType == 0 && request.isMember("resources"));
    static_cast<void>(request["taskId"].asString());
    return answered ? fuzz::overTheWire(request["deployId"].asString()) : "";
  } catch (const std::exception&) {
    return {};
  }
}

bool reachedExecutors() {
  for (const fuzz::PendingCall& call : fuzz::world().sent) {
    if (call.member == "deployJob" || call.member == "deleteJob") return true;
  }
  return false;
}

void checkComplete(const Json::Value& request, const Json::Value& details) {
  std::set<std::string> reported;
  for (const Json::Value& detail : details) {
    const bool fresh = reported.insert(detail["snapshotId"].asString()).second;
    fuzz::require(fresh, "a resource is reported once");
  }
  for (const Json::Value& resource : request["resources"]) {
    if (resource["operate"] != Json::Value(0)) continue;
    const std::string id = fuzz::overTheWire(resource["snapshotId"].asString());
    fuzz::require(reported.contains(id), "every resource is reported");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  fuzz::addNeighbours();
  input.more.insert(input.more.begin(), input.head);
  std::map<std::string, std::size_t> expected;
  for (const std::string& text : input.more) {
    const std::string request = requestOf(text);
    ++expected[reportedAs(fuzz::parsed(request))];
    jobm::handle1Job(request);
  }
  fuzz::settle();
  for (const auto& [deployId, requests] : expected) {
    if (deployId.empty()) continue;
    Json::Value details(Json::arrayValue);
    const std::size_t reports = fuzz::countReports(deployId, details);
    fuzz::require(reports <= requests, "no request is reported twice");
    if (fuzz::world().parserSilent) continue;
    fuzz::require(reports == requests, "every request is reported");
    const Json::Value request = fuzz::parsed(requestOf(input.head));
    if (input.more.size() == 1 && reachedExecutors()) checkComplete(request, details);
  }
  return 0;
}
