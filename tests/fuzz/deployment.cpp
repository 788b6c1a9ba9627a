// Deployment requests, one after the other while the first is still under way. Each is answered
// with exactly one complete report.
#include "communicate_scene/request.h"
#include "executor_api/registry.h"
#include "lib/json_helper.h"
#include "support.h"

namespace {

// A text as it arrives after a way through JSON: invalid sequences have been replaced.
std::string overTheWire(const Json::Value& text) {
  return fuzz::parsed(jobm::json::styled(text)).asString();
}

// The id under which a request has to be reported; none for what is not a request, and for one
// whose report can't be told by its id.
std::string reportedAs(const Json::Value& request) {
  if (!request.isObject() || !request["deployId"].isConvertibleTo(Json::stringValue)) return {};
  if (!request["taskId"].isConvertibleTo(Json::stringValue)) return {};
  const int type = request["deployType"].isInt() ? request["deployType"].asInt() : -1;
  const bool isAnswered = type == 1 || (type == 0 && request.isMember("resources"));
  return isAnswered ? overTheWire(request["deployId"]) : "";
}

// Whatever becomes of a resource, the report names it; a deletion only from when the executors that
// it interests are told.
void checkComplete(const Json::Value& request, const std::set<std::string>& reported) {
  if (request["deployType"] != Json::Value(0) || !request["resources"].isArray()) return;
  for (const Json::Value& resource : request["resources"]) {
    const std::string type = jobm::json::textOf(resource, "resourceType");
    const bool isTold = fuzz::world.deletionSent && !jobm::getExecutorsByWatchType(type).empty();
    if (!isTold && (!resource.isObject() || resource["operate"] != Json::Value(0))) continue;
    const std::string id = overTheWire(jobm::json::textOf(resource, "snapshotId"));
    fuzz::require(reported.contains(id), "every resource is reported");
  }
}

}  // namespace

void fuzz::check(const std::string& input) {
  const std::vector<std::string> requests = start(input);
  std::map<std::string, std::size_t> expected;
  for (const std::string& request : requests) {
    ++expected[reportedAs(parsed(request))];
    jobm::handle1Job(request);
  }
  runLoop();
  expected.erase("");
  for (const auto& [deployId, times] : expected) {
    const auto reports = reportsOf(deployId);
    require(reports.size() <= times, "no request is reported twice");
    if (world.parserSilent) continue;
    require(reports.size() == times, "every request is reported");
    if (requests.size() == 1) checkComplete(parsed(requests[0]), reports[0]);
  }
  settle();
}
